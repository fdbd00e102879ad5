// NV items on the validated and the raw path, driven through the simulated modem.
#include <string.h>

#include <algorithm>

#include "extend/extend_service.h"
#include "features_env.h"
#include "qmi_client.h"
#include "syslog_capture.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_nvefs.h"

namespace features_test {
namespace {

using NvTest = FeatureTest;

// A full item goes out whole and comes back whole; a buffer shorter than the item is filled
// and keeps its count; a deleted item is gone, and a failed read leaves the count alone.
TEST_F(NvTest, WriteReadDelete) {
  const auto item = Pattern(424);
  ASSERT_EQ(tarvik_nv_write_ex(1, 7232, item.data(), 424), 0);
  std::vector<uint8_t> stored;
  ASSERT_TRUE(fm_->NvItem(1, 7232, &stored));
  EXPECT_EQ(stored, item);
  const auto sent = SentRequests(REQUEST_ID_NVEFS);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].data.size(), TARVIK_NVEFS_REQ_SIZE);
  const auto req = sent[0].As<tarvik_nvefs_req_t>();
  EXPECT_EQ(req.op, NVEFS_OP_NV_WRITE);
  EXPECT_EQ(req.sub, 1);
  EXPECT_EQ(req.item, 7232);
  EXPECT_EQ(req.len_all, 424u);
  EXPECT_EQ(0, memcmp(req.data, item.data(), 424));

  for (uint32_t cap : {500u, 16u}) {
    SCOPED_TRACE("capacity " + std::to_string(cap));
    std::vector<uint8_t> buf(cap + 1, 0xEE);
    uint32_t len = cap;
    ASSERT_EQ(tarvik_nv_read(1, 7232, buf.data(), &len), 0);
    EXPECT_EQ(len, std::min(cap, 424u));
    EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + len, item.begin()));
    EXPECT_EQ(buf[len], 0xEE) << "nothing written past the item or the capacity";
  }

  ASSERT_EQ(tarvik_nv_delete(1, 7232), 0);
  uint8_t buf[8];
  uint32_t len = sizeof(buf);
  EXPECT_EQ(tarvik_nv_read(1, 7232, buf, &len), modemsim::features::kNvNotActive);
  EXPECT_EQ(len, sizeof(buf)) << "the count is only written on success";
}

// Limits of subscription, item number, buffer and length, and a failed exchange: each refused
// row sends nothing, and no row leaves the NV lock held.
TEST_F(NvTest, ArgumentLimits) {
  uint8_t buf[8] = {1, 2, 3};
  uint32_t cap = sizeof(buf);
  uint32_t zero = 0;
  ExpectCalls(
      {
          {"read sub 2 item 550", [&] { return tarvik_nv_read(2, 550, buf, &cap); }, 5, true},
          {"read sub 2 item 551", [&] { return tarvik_nv_read(2, 551, buf, &cap); }, -104, false},
          {"read sub 3 item 550", [&] { return tarvik_nv_read(3, 550, buf, &cap); }, -104, false},
          {"read item 7232", [&] { return tarvik_nv_read(0, 7232, buf, &cap); }, 5, true},
          {"read item 7233", [&] { return tarvik_nv_read(0, 7233, buf, &cap); }, -109, false},
          {"read null buf", [&] { return tarvik_nv_read(0, 1, nullptr, &cap); }, -107, false},
          {"read null len", [&] { return tarvik_nv_read(0, 1, buf, nullptr); }, -108, false},
          {"read zero len", [&] { return tarvik_nv_read(0, 1, buf, &zero); }, -108, false},
          {"write sub 2 item 550", [&] { return tarvik_nv_write_ex(2, 550, buf, 1); }, -104, false},
          {"write item 7233", [&] { return tarvik_nv_write_ex(1, 7233, buf, 1); }, -109, false},
          {"write null buf", [&] { return tarvik_nv_write_ex(0, 1, nullptr, 1); }, -107, false},
          {"write 0 bytes", [&] { return tarvik_nv_write_ex(0, 1, buf, 0); }, -108, false},
          {"write 425 bytes", [&] { return tarvik_nv_write_ex(0, 1, buf, 425); }, -108, false},
          {"delete sub 2", [&] { return tarvik_nv_delete(2, 550); }, -104, false},
          {"delete item 7233", [&] { return tarvik_nv_delete(0, 7233); }, -109, false},
          {"delete item 7232 never written", [&] { return tarvik_nv_delete(0, 7232); }, 5, true},
          {"write after a time-out",
           [&] {
             FailTransport(QMI_TIMEOUT_ERR, 1);
             return tarvik_nv_write_ex(0, 1, buf, 1);
           },
           -103, true},
      },
      [&] { cap = sizeof(buf); },
      [] {
        const uint8_t v = 42;
        tarvik_nv_write_ex(0, 2, &v, 1);
      });
  // The one subscription-2 read goes out with subscription 2 and item 550.
  ClearSent();
  cap = 8;
  tarvik_nv_read(2, 550, buf, &cap);
  const auto req = Only<tarvik_nvefs_req_t>(REQUEST_ID_NVEFS);
  EXPECT_EQ(req.sub, 2);
  EXPECT_EQ(req.item, 550);
  EXPECT_TRUE(tarvik_test::SyslogContains("sub cust case for tt"));
  EXPECT_TRUE(tarvik_test::SyslogContains("nv_id is out range(7232)"));
}

// A refusal by the modem comes back as its own code; a channel failure as the feature code (a
// time-out is not retried), and a missing service as "no client".
TEST_F(NvTest, RefusalsAndTransportFailures) {
  uint8_t buf[8] = {1};
  uint32_t len = sizeof(buf);
  const struct {
    const char *name;
    std::function<int()> call;
  } rows[] = {
      {"read", [&] { return tarvik_nv_read(0, 1, buf, &len); }},
      {"write", [&] { return tarvik_nv_write_ex(0, 1, buf, 1); }},
      {"delete", [] { return tarvik_nv_delete(0, 1); }},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    FailTransport(QMI_TIMEOUT_ERR, 1);
    EXPECT_EQ(row.call(), -103);
    TamperField(REQUEST_ID_NVEFS, offsetof(tarvik_nvefs_rsp_t, result), 0x4321);
    EXPECT_EQ(row.call(), 0x4321);
    fm_->SetTamper({});
  }
  EXPECT_TRUE(tarvik_test::SyslogContains("qmi response fail"));
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_qmi_result_map, old_result -3, new_result -103"));
  ASSERT_EQ(modem_->SetPresent(modemsim::extend::kServiceId, false), 0);
  tarvik_extend_qmi_init_force();
  EXPECT_EQ(tarvik_nv_write_ex(0, 1, buf, 1), -102);
}

// Answers whose claimed item length and the data they carry disagree: only what arrived is
// copied, and an answer without item data is empty whatever it claims.
TEST_F(NvTest, ClaimedLengthMeetsTheDataCarried) {
  const uint8_t v[4] = {1, 2, 3, 4};
  ASSERT_EQ(tarvik_nv_write_ex(0, 3, v, 4), 0);
  struct Row {
    const char *name;
    int32_t claim;
    size_t keep;  // the answer is cut to this many bytes
    int status;
    uint32_t len;
  };
  const size_t header = offsetof(tarvik_nvefs_rsp_t, data);
  const Row rows[] = {
      {"claims 0, carries nothing", 0, header, -108, 424},
      {"claims 4, carries nothing", 4, header, -108, 424},
      {"claims 5000, carries 4", 5000, SIZE_MAX, 0, 4},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    TamperField(REQUEST_ID_NVEFS, offsetof(tarvik_nvefs_rsp_t, data_len_all), row.claim, row.keep);
    ClearSent();
    std::vector<uint8_t> buf(424, 0xEE);
    uint32_t len = 424;
    EXPECT_EQ(tarvik_nv_read(0, 3, buf.data(), &len), row.status);
    EXPECT_EQ(len, row.len);
    const size_t copied = row.status == 0 ? row.len : 0;
    EXPECT_EQ(0, memcmp(buf.data(), v, copied));
    EXPECT_EQ(buf[copied], 0xEE);
    const auto req = Only<tarvik_nvefs_req_t>(REQUEST_ID_NVEFS);
    EXPECT_EQ(req.op, NVEFS_OP_NV_READ);
    EXPECT_EQ(req.item, 3);
  }
  EXPECT_EQ(tarvik_test::SyslogCount("rsp.data_len_all is invalid"), 2u);
}

// ---------------------------------------------------------------------------------------------
// Raw path
// ---------------------------------------------------------------------------------------------

// A read that leaves part of the item behind says so, measured against the item's length as
// the modem gives it; what is copied never goes past 412 bytes or past what the answer carries.
TEST_F(NvTest, RawReadCutsAndSaysSo) {
  const auto item = Pattern(20);
  ASSERT_EQ(tarvik_extend_nv_write_item(453, 1, item.data(), 20), 0u);
  const auto written = SentRequests(REQUEST_ID_NV_ITEM);
  ASSERT_EQ(written.size(), 1u);
  EXPECT_EQ(written[0].data.size(), TARVIK_NV_ITEM_REQ_SIZE);
  const auto req = written[0].As<tarvik_nv_item_req_t>();
  EXPECT_EQ(req.op, NV_ITEM_OP_WRITE);
  EXPECT_EQ(req.arg1, 453u);
  EXPECT_EQ(req.arg2, 1u);
  EXPECT_EQ(req.len, 20u);

  struct Row {
    const char *name;
    int32_t claim;     // 0: the modem's own answer
    uint32_t carried;  // data bytes the rewritten answer keeps
    int capacity;
    uint32_t status;
    int len;
  };
  const Row rows[] = {
      {"capacity below the item", 0, 0, 10, TARVIK_NV_ITEM_ERR_NO_FIT, 10},
      {"capacity above the item", 0, 0, 64, 0, 20},
      {"claim above 412, capacity between", 500, 412, 450, TARVIK_NV_ITEM_ERR_NO_FIT, 412},
      {"claim beyond the answer", 30, 20, 64, 0, 20},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    fm_->SetTamper({});
    if (row.claim != 0) {
      TamperField(REQUEST_ID_NV_ITEM, offsetof(tarvik_nv_item_rsp_t, data_len), row.claim,
                  offsetof(tarvik_nv_item_rsp_t, data) + row.carried);
    }
    ClearSent();
    std::vector<uint8_t> buf(600, 0xEE);
    int len = row.capacity;
    EXPECT_EQ(tarvik_extend_nv_read_item(453, 1, buf.data(), &len), row.status);
    EXPECT_EQ(len, row.len);
    EXPECT_EQ(0, memcmp(buf.data(), item.data(), std::min(row.len, 20)));
    EXPECT_EQ(buf[row.len], 0xEE);
    const auto read = Only<tarvik_nv_item_req_t>(REQUEST_ID_NV_ITEM);
    EXPECT_EQ(read.op, NV_ITEM_OP_READ);
    EXPECT_EQ(read.arg1, 453u);
  }
}

// Payload limits of a raw write; a failed raw read zeroes the count and comes back unmapped.
TEST_F(NvTest, RawLimitsAndFailures) {
  std::vector<uint8_t> data(413, 1);
  ExpectCalls({
      {"413 bytes", [&] { return tarvik_extend_nv_write_item(1, 0, data.data(), 413); },
       TARVIK_NV_ITEM_ERR_NO_FIT, false},
      {"-1 bytes", [&] { return tarvik_extend_nv_write_item(1, 0, data.data(), -1); },
       TARVIK_NV_ITEM_ERR_NO_FIT, false},
      {"null", [&] { return tarvik_extend_nv_write_item(1, 0, nullptr, 4); },
       TARVIK_NV_ITEM_ERR_NO_FIT, false},
      {"412 bytes", [&] { return tarvik_extend_nv_write_item(1, 0, data.data(), 412); }, 0, true},
  });
  uint8_t buf[8];
  int len = sizeof(buf);
  EXPECT_EQ(tarvik_extend_nv_read_item(77, 0, buf, &len),
            static_cast<uint32_t>(modemsim::features::kNvNotActive));
  EXPECT_EQ(len, 0);
  len = sizeof(buf);
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_extend_nv_read_item(77, 0, buf, &len), static_cast<uint32_t>(-3));
  EXPECT_EQ(len, 0);
}

// Backup and restore go through the long-process channel: a backup that takes the modem
// longer than an ordinary request's 3 s still succeeds.
TEST_F(NvTest, BackupAndRestoreTakeTheirTime) {
  const uint8_t before[2] = {1, 1};
  const uint8_t after[2] = {2, 2};
  ASSERT_EQ(tarvik_nv_write_ex(0, 71, before, 2), 0);
  fm_->SetStoreDelays(3300, 0, 0);
  EXPECT_EQ(tarvik_extend_nv_backup(0), 0u);
  fm_->SetStoreDelays(0, 0, 0);
  ASSERT_EQ(tarvik_nv_write_ex(0, 71, after, 2), 0);
  EXPECT_EQ(tarvik_extend_nv_restore(0), 0u);
  std::vector<uint8_t> v;
  ASSERT_TRUE(fm_->NvItem(0, 71, &v));
  EXPECT_EQ(v, std::vector<uint8_t>(before, before + 2));
  EXPECT_EQ(tarvik_extend_nv_restore(1), static_cast<uint32_t>(modemsim::features::kNvNotActive))
      << "no backup of subscription 1";
  EXPECT_EQ(tarvik_extend_nv_goldencopy(), 0u);
  const auto sent = SentRequests(REQUEST_ID_NV_ITEM);
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0].As<tarvik_nv_item_req_t>().op, NV_ITEM_OP_BACKUP);
  EXPECT_EQ(sent[3].As<tarvik_nv_item_req_t>().op, NV_ITEM_OP_GOLDENCOPY);
}

}  // namespace
}  // namespace features_test
