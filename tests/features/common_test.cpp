// Common requests: the send functions' bounds, result mapping, and the one-shot features.

#include "features_env.h"
#include "tarvik_extend_cdc.h"
#include "tarvik_venue_mode.h"

namespace features_test {
namespace {

using CommonTest = FeatureTest;

TEST_F(CommonTest, ResultMapping) {
  const int rows[][2] = {{-1, -101}, {-2, -102}, {-3, -103}, {-4, -4}, {0, 0}, {7, 7}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row[0]);
    EXPECT_EQ(tarvik_qmi_result_map(row[0]), row[1]);
  }
}

TEST_F(CommonTest, CommonRequestBounds) {
  uint32_t rsp[TARVIK_CMN_RSP_SIZE / 4];
  std::vector<uint8_t> payload(600, 0xA5);
  const uint8_t *p = payload.data();
  ExpectCalls({
      {"bare command", [&] { return tarvik_common_qmi_req(5, 0, nullptr, rsp); }, 0, true},
      {"499 bytes", [&] { return tarvik_common_qmi_req(6, 499, payload.data(), rsp); }, 0, true},
      {"500 bytes", [&] { return tarvik_common_qmi_req(6, 500, payload.data(), rsp); }, kBad,
       false},
      {"null src", [&] { return tarvik_common_qmi_req(6, 1, nullptr, rsp); }, kBad, false},
      {"null rsp", [&] { return tarvik_common_qmi_req(6, 0, nullptr, nullptr); }, kBad, false},
      {"msg 491 bytes", [&] { return tarvik_send_common_qmi_msg(35, 491, p, rsp); }, 0, true},
      {"msg 492 bytes", [&] { return tarvik_send_common_qmi_msg(35, 492, p, rsp); }, kBad, false},
  });
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_common_qmi_req: v is null"));
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_send_common_qmi_msg: l is out of range"));
  // The typed message's header and payload land where the modem reads them.
  ClearSent();
  ASSERT_EQ(tarvik_send_common_qmi_msg(178, 4, "\x10\x27\x00\x00", rsp), 0u);
  EXPECT_EQ(SentRequests(REQUEST_ID_COMMON).at(0).data.size(), TARVIK_CMN_REQ_SIZE);
  const auto req = Only<tarvik_cmn_req_t>(REQUEST_ID_COMMON);
  EXPECT_EQ(req.cmd, COMMON_CMD_MSG);
  EXPECT_EQ(Word(req.payload, 0), 178u);
  EXPECT_EQ(Word(req.payload, 1), 4u);
  EXPECT_EQ(Word(req.payload, 2), 10000u);
  // ... and the modem kept the value: reading it back answers it.
  ASSERT_EQ(tarvik_send_common_qmi_msg(177, 0, nullptr, rsp), 0u);
  EXPECT_EQ(Word(reinterpret_cast<const tarvik_cmn_rsp_t *>(rsp)->data, 2), 10000u);
}

// The byte commands reach the modem; a refusal comes back as the modem's code (the mode byte
// of its answer still stored) and a transport failure unmapped.
TEST_F(CommonTest, ExtendModeAndBuildInformation) {
  ASSERT_EQ(tarvik_extend_mode_set(4), 0u);
  EXPECT_EQ(settings_->ExtendMode(), 4);
  uint8_t mode = 0;
  ASSERT_EQ(tarvik_extend_mode_get(&mode), 0u);
  EXPECT_EQ(mode, 4);
  ASSERT_EQ(tarvik_extend_build_information(9), 0u);
  EXPECT_EQ(settings_->BuildInformation(), 9);
  EXPECT_EQ(tarvik_extend_mode_get(nullptr), kBad);

  TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, result), 0x21);
  mode = 0;
  EXPECT_EQ(tarvik_extend_mode_get(&mode), 0x21u);
  EXPECT_EQ(mode, 4);
  EXPECT_EQ(tarvik_extend_build_information(1), 0x21u);
  uint32_t rsp[TARVIK_CMN_RSP_SIZE / 4];
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_common_qmi_req(5, 0, nullptr, rsp), static_cast<uint32_t>(-3));
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_extend_mode_set(3), static_cast<uint32_t>(-3));
}

TEST_F(CommonTest, FeatureControlPrintsTheOutcome) {
  const struct {
    uint8_t outcome;
    const char *line;
  } rows[] = {{0, "MTPL GPIO: control(1) SUCCESS"},
              {2, "MTPL GPIO: NOT SUPPORTED on this product"},
              {1, "MTPL GPIO: control(1) FAILED, modem_result=1"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    settings_->SetFeatureOutcome(COMMON_FEATURE_MTPL_GPIO, row.outcome, {});
    const Printed run = StdoutOf([] { return tarvik_modem_mtpl_gpio_control(1); });
    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(run.Shows(row.line)) << run.out;
  }
  ClearSent();
  settings_->SetFeatureOutcome(COMMON_FEATURE_RFFE_DEVICE_CHECK, 0, {0xAB, 0xCD});
  const Printed check = StdoutOf([] { return tarvik_modem_rffe_device_check(2); });
  EXPECT_EQ(check.result, 0);
  EXPECT_TRUE(check.Shows("rffe device check result: PASS")) << check.out;
  EXPECT_TRUE(check.Shows("Return Len: 12"));
  EXPECT_TRUE(check.Shows("02 00 AB CD "));
  const auto req = Only<tarvik_cmn_req_t>(REQUEST_ID_COMMON);
  EXPECT_EQ(req.cmd, COMMON_CMD_FEATURE_CONTROL);
  EXPECT_EQ(Word(req.payload, 0), 0u);
  EXPECT_EQ(Word(req.payload, 1), 3u);
  EXPECT_EQ(Word(req.payload, 2), COMMON_FEATURE_RFFE_DEVICE_CHECK);
  EXPECT_EQ(req.payload[12], 2);

  FailTransport(QMI_TIMEOUT_ERR, 1);
  const Printed failed = StdoutOf([] { return tarvik_modem_mtpl_gpio_control(1); });
  EXPECT_EQ(failed.result, static_cast<uint32_t>(-3));
  EXPECT_TRUE(failed.Shows("MTPL GPIO: QMI send failed, result=-3")) << failed.out;
  EXPECT_EQ(tarvik_modem_set_satellite(1), 0u);
}

TEST_F(CommonTest, CellInformation) {
  const std::vector<uint8_t> info = Pattern(30);
  nvefs_->SetCellInfo(info);
  uint8_t out[64];
  int out_len = 29;
  const uint8_t *q = reinterpret_cast<const uint8_t *>("q");
  const Printed small = StdoutOf([&] { return tarvik_extend_cellinfo(q, 1, out, &out_len); });
  EXPECT_EQ(small.result, 0);
  EXPECT_TRUE(small.Shows("rsp buffer is not big enough")) << small.out;
  EXPECT_EQ(out_len, 29) << "nothing copied, count untouched";
  out_len = 30;
  EXPECT_EQ(tarvik_extend_cellinfo(nullptr, 0, out, &out_len), 0u);
  EXPECT_EQ(out_len, 30);
  EXPECT_EQ(0, memcmp(out, info.data(), 30));

  const std::vector<uint8_t> big(413, 1);
  q = big.data();
  ExpectCalls({
      {"413 bytes", [&] { return tarvik_extend_cellinfo(q, 413, out, &out_len); }, kBad, false},
      {"-1 bytes", [&] { return tarvik_extend_cellinfo(q, -1, out, &out_len); }, kBad, false},
      {"412 bytes", [&] { return tarvik_extend_cellinfo(q, 412, out, &out_len); }, 0, true},
  });
  const auto req = Only<tarvik_nv_item_req_t>(REQUEST_ID_NV_ITEM);
  EXPECT_EQ(req.op, NV_ITEM_OP_CELLINFO);
  EXPECT_EQ(req.len, 412u);

  // An answer claiming more than it carries: only what arrived is counted.
  TamperField(REQUEST_ID_NV_ITEM, offsetof(tarvik_nv_item_rsp_t, data_len), 4000);
  out_len = sizeof(out);
  EXPECT_EQ(tarvik_extend_cellinfo(nullptr, 0, out, &out_len), 0u);
  EXPECT_EQ(out_len, 30);

  FailTransport(QMI_TIMEOUT_ERR, 1);
  const Printed failed =
      StdoutOf([&] { return tarvik_extend_cellinfo(nullptr, 0, out, &out_len); });
  EXPECT_EQ(failed.result, static_cast<uint32_t>(-3));
  EXPECT_TRUE(failed.Shows("command execute error")) << failed.out;
  EXPECT_EQ(out_len, 0);
}

// ---------------------------------------------------------------------------------------------
// CDC and venue mode
// ---------------------------------------------------------------------------------------------

TEST_F(CommonTest, CdcCarriesEventAndDataAndCutsLongRequests) {
  std::vector<uint8_t> data = Pattern(600);
  data[499] = 0x5A;  // a non-zero last byte, so the modem sees all 500
  uint8_t out[600];
  uint32_t len = sizeof(out);
  ASSERT_EQ(tarvik_cdc_request(42, data.data(), 600, out, &len), 0);
  EXPECT_TRUE(tarvik_test::SyslogContains("req_len is out range(600), will force to 500"));
  ASSERT_EQ(SentRequests(REQUEST_ID_CDC).size(), 1u);
  EXPECT_EQ(SentRequests(REQUEST_ID_CDC)[0].data.size(), TARVIK_CDC_REQ_SIZE);
  const auto req = Only<tarvik_cdc_req_t>(REQUEST_ID_CDC);
  EXPECT_EQ(req.event_id, 42u);
  EXPECT_EQ(0, memcmp(req.data, data.data(), 500));
  EXPECT_EQ(len, 500u);
  EXPECT_EQ(0, memcmp(out, data.data(), 500));

  // An event without data is sent with the event id alone; the modem answers what it keeps.
  ClearSent();
  uint8_t small[8];
  len = sizeof(small);
  ASSERT_EQ(tarvik_cdc_request(42, nullptr, 0, small, &len), 0);
  EXPECT_EQ(len, 8u);
  EXPECT_EQ(0, memcmp(small, data.data(), 8));
  const auto bare = Only<tarvik_cdc_req_t>(REQUEST_ID_CDC);
  EXPECT_EQ(std::count(bare.data, bare.data + sizeof(bare.data), 0), 500);
}

TEST_F(CommonTest, CdcRefusalsAndFailures) {
  uint8_t out[8];
  uint32_t len = sizeof(out);
  uint32_t zero = 0;
  EXPECT_EQ(tarvik_cdc_request(1, nullptr, 3, out, &len), -107);
  EXPECT_EQ(tarvik_cdc_request(1, "x", 1, nullptr, &len), -108);
  EXPECT_EQ(tarvik_cdc_request(1, "x", 1, out, nullptr), -106);
  EXPECT_EQ(tarvik_cdc_request(1, "x", 1, out, &zero), -106);
  EXPECT_TRUE(SentRequests().empty());
  EXPECT_EQ(tarvik_cdc_request(9, nullptr, 0, out, &len), -106) << "nothing kept: empty answer";
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_cdc_request(1, "x", 1, out, &len), -103);
  TamperField(REQUEST_ID_CDC, offsetof(tarvik_cdc_rsp_t, result), -77);
  EXPECT_EQ(tarvik_cdc_request(1, "x", 1, out, &len), -77);
  // A claimed length beyond the answer is cut to what arrived; with nothing after the header
  // the answer is empty whatever it claims.
  const struct {
    const char *name;
    int32_t claim;
    size_t keep;
    int status;
    uint32_t len;
  } lies[] = {{"claims 600, carries 3", 600, SIZE_MAX, 0, 3},
              {"claims 5, carries nothing", 5, offsetof(tarvik_cdc_rsp_t, data), -106, 600}};
  for (const auto &lie : lies) {
    SCOPED_TRACE(lie.name);
    TamperField(REQUEST_ID_CDC, offsetof(tarvik_cdc_rsp_t, data_len), lie.claim, lie.keep);
    ClearSent();
    uint8_t wide[600];
    len = sizeof(wide);
    EXPECT_EQ(tarvik_cdc_request(1, "xyz", 3, wide, &len), lie.status);
    EXPECT_EQ(len, lie.len);
    EXPECT_EQ(0, memcmp(wide, "xyz", lie.status == 0 ? 3 : 0));
    EXPECT_EQ(Only<tarvik_cdc_req_t>(REQUEST_ID_CDC).event_id, 1u);
  }
}

TEST_F(CommonTest, VenueMode) {
  const std::vector<uint8_t> cfg = {1, 0, 7, 9};
  uint8_t out[16];
  uint32_t len = sizeof(out);
  ASSERT_EQ(tarvik_set_venue_mode(cfg.data(), 4, out, &len), 0);
  EXPECT_EQ(cdc_->VenueMode(), cfg);
  EXPECT_EQ(len, 4u);
  EXPECT_EQ(0, memcmp(out, cfg.data(), 4));
  const auto req = Only<tarvik_cmn_req_t>(REQUEST_ID_COMMON);
  EXPECT_EQ(req.cmd, COMMON_CMD_VENUE_MODE);
  EXPECT_EQ(req.reserved, 0u);

  len = 2;
  ASSERT_EQ(tarvik_set_venue_mode(cfg.data(), 4, out, &len), 0);
  EXPECT_EQ(len, 2u) << "cut to the capacity";

  std::vector<uint8_t> big(505, 1);
  len = sizeof(out);
  ClearSent();
  EXPECT_EQ(tarvik_set_venue_mode(big.data(), 505, out, &len), -1);
  EXPECT_EQ(tarvik_set_venue_mode(nullptr, 1, out, &len), -1);
  EXPECT_TRUE(SentRequests().empty());
  EXPECT_EQ(tarvik_set_venue_mode(big.data(), 504, out, &len), 0);

  // An answer of the header alone carries no data.
  TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, result), 0, 8);
  EXPECT_EQ(tarvik_set_venue_mode(cfg.data(), 4, out, &len), -1);
  EXPECT_TRUE(tarvik_test::SyslogContains("rsp_data_len is invalid"));
  TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, result), 12);
  EXPECT_EQ(tarvik_set_venue_mode(cfg.data(), 4, out, &len), 12);
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_set_venue_mode(cfg.data(), 4, out, &len), -3) << "not mapped";
}

}  // namespace
}  // namespace features_test
