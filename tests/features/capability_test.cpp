// Capability and identity queries, MCFG controls, the device name, the status notifications and
// the base model requests with their indications, as the modem receives them.

#include <mutex>

#include "features_env.h"
#include "tarvik_base_model.h"
#include "wait_until.h"

namespace features_test {
namespace {

using CapabilityTest = FeatureTest;
using DeviceNameTest = FeatureTest;

template <auto Query>
long long Ask() {
  return static_cast<long long>(Query());
}

// The commands of the common requests the modem received, in order.
std::vector<uint32_t> Commands(const std::vector<Sent> &sent) {
  std::vector<uint32_t> out;
  for (const Sent &s : sent) out.push_back(s.As<tarvik_cmn_req_t>().cmd);
  return out;
}

TEST_F(CapabilityTest, NumberQueries) {
  const struct {
    const char *name;
    uint32_t cmd, word;
    long long (*call)();
    long long expected;
  } rows[] = {
      {"chipset", COMMON_CMD_CHIPSET_ID, 0x1B3, Ask<tarvik_modem_chipset_id_get>, 0x1B3},
      {"hw", COMMON_CMD_HW_ID, 0x77, Ask<tarvik_modem_hw_id_get>, 0x77},
      {"bp chip", COMMON_CMD_BP_CHIP_ID, 9, Ask<tarvik_modem_bp_chip_id_get>, 9},
      {"cdma 1", COMMON_CMD_CDMA_SUPPORT, 1, Ask<tarvik_modem_cdma_support_status_get>, 1},
      {"cdma 2 is no", COMMON_CMD_CDMA_SUPPORT, 2, Ask<tarvik_modem_cdma_support_status_get>, 0},
      {"dsda 1", COMMON_CMD_DSDA_SUPPORT, 1, Ask<tarvik_modem_dsda_support_status_get>, 1},
      {"customer max", COMMON_CMD_MBN_LIST_CUST_MAX_NUM, 30, Ask<tarvik_mbn_list_cust_max_num_get>,
       30},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(identity_->SetWord(row.cmd, row.word));
    ClearSent();
    EXPECT_EQ(row.call(), row.expected);
    EXPECT_EQ(Commands(SentRequests(REQUEST_ID_COMMON)), std::vector<uint32_t>{row.cmd});
    // A refusal by the modem and a transport failure both read as 0.
    TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, result), 3);
    EXPECT_EQ(row.call(), 0);
    modemsim::extend::SetTamper(*modem_, {});
    FailTransport(QMI_TIMEOUT_ERR, 1);
    EXPECT_EQ(row.call(), 0);
  }
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_modem_chipset_id_get: qmi response fail"));
  EXPECT_TRUE(tarvik_test::SyslogContains(
      "tarvik_modem_hw_id_get: tarvik_common_qmi_req fail, REQUEST_ID_COMMON"));
}

TEST_F(CapabilityTest, CardMode) {
  const struct {
    const char *name, *multisim;
    uint32_t dsda;
    const char *dsda_cap;
    uint32_t mode;
    size_t asked;
  } rows[] = {{"single SIM asks nothing", "ssss", 1, "", CARD_MODE_FLAG_SS, 0},
              {"no DSDA in the modem", "dsds", 0, "", CARD_MODE_FLAG_DSDS, 1},
              {"DSDA, property unset", "dsds", 1, "", CARD_MODE_FLAG_DSDA, 1},
              {"DSDA, property off", "dsds", 1, "0", CARD_MODE_FLAG_DSDS, 1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    property_set("persist.radio.multisim.config", row.multisim);
    property_set("persist.vendor.radio.dsda_cap", row.dsda_cap);
    ASSERT_TRUE(identity_->SetWord(COMMON_CMD_DSDA_SUPPORT, row.dsda));
    ClearSent();
    EXPECT_EQ(tarvik_get_card_mode_flag(), row.mode);
    EXPECT_EQ(SentRequests().size(), row.asked);
  }
}

TEST_F(CapabilityTest, StringAndRecordBounds) {
  ASSERT_TRUE(identity_->SetString(50, "0123456789"));
  ASSERT_TRUE(identity_->SetRecord(51, {5, 0xA1, 0xA2, 0xA3, 0xA4, 0xEE}));
  const struct {
    const char *name;
    bool record;
    uint32_t type, capacity, status, count;
  } rows[] = {
      {"10 characters in 10", false, 50, 10, TARVIK_CMN_ERR_BUF_TOO_SHORT, 0},
      {"10 characters in 11", false, 50, 11, 0, 10},
      {"record of 5 in 5", true, 51, 5, TARVIK_CMN_ERR_BUF_TOO_SHORT, 0},
      {"record of 5 in 6", true, 51, 6, 0, 5},
      {"unknown type", false, 77, 64, modemsim::features::kCmnNotSupported, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    char out[64];
    memset(out, '#', sizeof(out));
    uint32_t len = row.capacity;
    ClearSent();
    EXPECT_EQ(row.record ? tarvik_modem_raw_content_get(row.type, out, &len)
                         : tarvik_modem_string_info_get(row.type, out, &len),
              row.status);
    EXPECT_EQ(len, row.count);
    EXPECT_EQ(Commands(SentRequests(REQUEST_ID_COMMON)), std::vector<uint32_t>{row.type});
    if (row.status != 0) {
      EXPECT_EQ(out[0], '#') << "nothing copied";
    } else if (row.record) {
      EXPECT_EQ(0, memcmp(out, "\x05\xA1\xA2\xA3\xA4", 5));
      EXPECT_EQ(out[5], '#');
    } else {
      EXPECT_STREQ(out, "0123456789");
    }
  }
  uint32_t len = 8;
  ClearSent();
  EXPECT_EQ(tarvik_modem_string_info_get(50, nullptr, &len), kBad);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(tarvik_modem_raw_content_get(51, &len, nullptr), kBad);
  EXPECT_TRUE(SentRequests().empty());

  // A text filling the whole data area without a terminator is cut, never read past.
  Tamper(REQUEST_ID_COMMON, [](const uint8_t *, std::vector<uint8_t> *answer) {
    answer->assign(TARVIK_CMN_RSP_SIZE, 'A');
    memset(answer->data(), 0, 8);
  });
  std::vector<char> wide(600, '#');
  len = 600;
  EXPECT_EQ(tarvik_modem_string_info_get(50, wide.data(), &len), 0u);
  EXPECT_EQ(len, 499u);
  EXPECT_EQ(strlen(wide.data()), 499u);
}

// MBN list paths and the discovery timer; configuration events reach the client that asked for
// them, and no other.
TEST_F(CapabilityTest, Mcfg) {
  char path[TARVIK_MCFG_PATH_SIZE];
  const std::string p179(179, 'p'), p180(180, 'p');
  ExpectCalls({
      {"get kind 10", [&] { return tarvik_mcfg_mbn_txt_path_get(path, 10); }, kBad, false},
      {"get null", [&] { return tarvik_mcfg_mbn_txt_path_get(nullptr, 9); }, kBad, false},
      {"set kind 11", [&] { return tarvik_mcfg_mbn_txt_path_set("x", 11); }, kBad, false},
      {"set null", [&] { return tarvik_mcfg_mbn_txt_path_set(nullptr, 10); }, kBad, false},
      {"set 180", [&] { return tarvik_mcfg_mbn_txt_path_set(p180.c_str(), 12); }, kBad, false},
      {"set 179", [&] { return tarvik_mcfg_mbn_txt_path_set(p179.c_str(), 12); }, 0, true},
      {"set kind 10", [&] { return tarvik_mcfg_mbn_txt_path_set("/data/a.txt", 10); }, 0, true},
      {"get kind 9", [&] { return tarvik_mcfg_mbn_txt_path_get(path, 9); }, 0, true},
  });
  EXPECT_STREQ(path, "/data/a.txt");
  ASSERT_EQ(tarvik_mcfg_mbn_txt_path_get(path, 11), 0u);
  EXPECT_EQ(path, p179);
  EXPECT_EQ(mcfg_->Path(11), p179);
  // The set request carries the characters alone.
  ClearSent();
  ASSERT_EQ(tarvik_mcfg_mbn_txt_path_set("/b", 10), 0u);
  const auto req = Only<tarvik_cmn_req_t>(REQUEST_ID_COMMON);
  EXPECT_EQ(req.cmd, 10u);
  EXPECT_EQ(0, memcmp(req.payload, "/b\0", 3));
  // A field without terminator yields 179 characters.
  Tamper(REQUEST_ID_COMMON, [](const uint8_t *, std::vector<uint8_t> *answer) {
    answer->assign(8 + TARVIK_MCFG_PATH_SIZE + 20, 'q');
    memset(answer->data(), 0, 8);
  });
  ASSERT_EQ(tarvik_mcfg_mbn_txt_path_get(path, 9), 0u);
  EXPECT_EQ(strlen(path), 179u);
  TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, result), 7);
  EXPECT_EQ(tarvik_mcfg_mbn_txt_path_set("/c", 12), 7u);
  modemsim::extend::SetTamper(*modem_, {});

  EXPECT_EQ(tarvik_mcfg_ext_set_discover_timer_timeout(77), 1u);
  EXPECT_EQ(mcfg_->DiscoverTimer(), 77u);
  EXPECT_EQ(tarvik_mcfg_ext_get_discover_timer_timeout(), 77);
  // An answer to another type is refused.
  TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, data),
              COMMON_MSG_MCFG_SET_DISCOVER_TIMER);
  EXPECT_EQ(tarvik_mcfg_ext_get_discover_timer_timeout(), -1);
  EXPECT_TRUE(tarvik_test::SyslogContains("t_rsp != t"));
  modemsim::extend::SetTamper(*modem_, {});
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_mcfg_ext_set_discover_timer_timeout(5), 0u);
  EXPECT_EQ(mcfg_->DiscoverTimer(), 77u);
  EXPECT_EQ(modemsim::features::ReportMcfgEvent(*modem_, {1, 2}), 0);
  EXPECT_EQ(tarvik_reg_mcfg_event_ind(), 0u);
  EXPECT_EQ(Commands(SentRequests(REQUEST_ID_COMMON)).back(), COMMON_CMD_REG_MCFG_EVENT_IND);
  EXPECT_EQ(mcfg_->EventClients().size(), 1u);
  EXPECT_EQ(modemsim::features::ReportMcfgEvent(*modem_, {1, 2}), 1);
}

// The process asks for configuration events on its vendor channel; a radio module of the same
// process listens on a client of its own with the callback the library offers for them, which
// logs each one. The channel itself drops them (events above 7).
TEST_F(CapabilityTest, ConfigurationEventsReachTheOfferedCallbackOfTheAskingProcess) {
  ASSERT_EQ(tarvik_reg_mcfg_event_ind(), 0u);
  qmi_client_os_params os_params{};
  qmi_client_type module = nullptr;
  ASSERT_EQ(qmi_client_init_instance(tarvik_extend_get_service_object_internal_v01(1, 1, 6),
                                     QMI_CLIENT_INSTANCE_ANY, tarvik_qmi_client_unsol_ind_cb,
                                     nullptr, &os_params, 1000, &module),
            QMI_NO_ERR);
  tarvik_test::ClearSyslog();
  EXPECT_EQ(modemsim::features::ReportMcfgEvent(*modem_, {1, 2}), 2) << "channel and module";
  EXPECT_TRUE(tarvik_test::WaitUntil(
      [] { return tarvik_test::SyslogContains("tarvik_qmi_client_unsol_ind_cb: msg_id 3"); },
      std::chrono::seconds(5)))
      << tarvik_test::SyslogDump();
  EXPECT_EQ(qmi_client_release(module), QMI_NO_ERR);
}

std::vector<uint8_t> NameFile(const modemsim::features::NvEfs &fm) {
  std::vector<uint8_t> content;
  fm.File(0, TARVIK_DEVICE_NAME_FILE, &content);
  return content;
}

TEST_F(DeviceNameTest, WrittenOnlyWhenUnreadableThenCached) {
  property_set("ro.product.device", "kestrel");
  char *all[] = {const_cast<char *>("all_product")};
  EXPECT_TRUE(tarvik_device_name_list_contain_ex(all, 1));
  EXPECT_TRUE(SentRequests().empty()) << "the wildcard needs no name";

  // No list to look in: the name is read all the same, the file written and the cache filled.
  EXPECT_FALSE(tarvik_device_name_list_contain_ex(nullptr, 0));
  const std::vector<uint8_t> kestrel = {'k', 'e', 's', 't', 'r', 'e', 'l'};
  EXPECT_EQ(NameFile(*nvefs_), kestrel) << "characters without terminator";
  ClearSent();
  EXPECT_STREQ(tarvik_device_name_read_from_efs(), "kestrel");
  char *lists[] = {const_cast<char *>("falcon"), const_cast<char *>("kestrel")};
  EXPECT_TRUE(tarvik_device_name_list_contain_ex(lists, 2));
  EXPECT_FALSE(tarvik_device_name_list_contain_ex(lists, 1));
  EXPECT_FALSE(tarvik_device_name_list_contain_ex(lists, 0));
  EXPECT_EQ(SentRequests(REQUEST_ID_NVEFS).size(), 0u) << "cached after one read";
}

TEST_F(DeviceNameTest, AFileThatExistsKeepsItsName) {
  property_set("ro.product.device", "kestrel");
  const char old[] = "merlin";
  ASSERT_EQ(tarvik_efs_write(0, TARVIK_DEVICE_NAME_FILE, 20, old, 6), 0);
  // First read from two threads at once: both see the same name, the file is read once.
  ClearSent();
  const char *seen[2] = {};
  std::thread other([&] { seen[1] = tarvik_device_name_read_from_efs(); });
  seen[0] = tarvik_device_name_read_from_efs();
  other.join();
  EXPECT_STREQ(seen[0], "merlin");
  EXPECT_STREQ(seen[1], "merlin");
  EXPECT_EQ(SentRequests(REQUEST_ID_NVEFS).size(), 2u)
      << "one read by the save step, one into the cache";
  EXPECT_EQ(NameFile(*nvefs_), std::vector<uint8_t>(old, old + 6));
}

TEST_F(DeviceNameTest, AnUnreadableFileLeavesAnEmptyNameForGood) {
  property_set("ro.product.device", "kestrel");
  FailTransport(QMI_TIMEOUT_ERR, -1);
  EXPECT_STREQ(tarvik_device_name_read_from_efs(), "");
  ClearSent();
  modem_->ClearFaults(modemsim::extend::kServiceId);
  EXPECT_STREQ(tarvik_device_name_read_from_efs(), "");
  EXPECT_EQ(SentRequests(REQUEST_ID_NVEFS).size(), 0u);
}

TEST_F(CapabilityTest, ScreenAndSleepStatus) {
  const struct {
    const char *name;
    uint32_t (*notify)(uint32_t);
    uint32_t cmd, status;
    bool sent;
  } rows[] = {
      {"screen on", tarvik_qcril_screen_status_notify_to_modem, COMMON_CMD_SCREEN_STATUS, 1, true},
      {"screen 2 is not sent", tarvik_qcril_screen_status_notify_to_modem, COMMON_CMD_SCREEN_STATUS,
       2, false},
      {"sleep 7", tarvik_qcril_sleep_status_notify_to_modem, COMMON_CMD_SLEEP_STATUS, 7, true},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    ClearSent();
    EXPECT_EQ(row.notify(row.status), 0u);
    ASSERT_EQ(SentRequests(REQUEST_ID_COMMON).size(), row.sent ? 1u : 0u);
    uint32_t held = 0;
    if (row.sent) {
      const auto req = Only<tarvik_cmn_req_t>(REQUEST_ID_COMMON);
      EXPECT_EQ(req.cmd, row.cmd);
      EXPECT_EQ(Word(req.payload, 0), row.status);
      ASSERT_TRUE(notify_->State(row.cmd, &held));
      EXPECT_EQ(held, row.status);
    } else {
      EXPECT_TRUE(!notify_->State(row.cmd, &held) || held != row.status);
    }
  }
  EXPECT_TRUE(tarvik_test::SyslogContains("status is out of range", 3));
  FailTransport(QMI_TIMEOUT_ERR, 1);
  EXPECT_EQ(tarvik_qcril_sleep_status_notify_to_modem(0), static_cast<uint32_t>(-103));
  TamperField(REQUEST_ID_COMMON, offsetof(tarvik_cmn_rsp_t, result), 4);
  EXPECT_EQ(tarvik_qcril_screen_status_notify_to_modem(0), 4u);
}

// ---------------------------------------------------------------------------------------------
// Base model
// ---------------------------------------------------------------------------------------------

using BaseModelTest = FeatureTest;

TEST_F(BaseModelTest, ConfigurationAndSwitchesReachTheModem) {
  std::vector<uint32_t> cfg(101);
  for (uint32_t i = 0; i < cfg.size(); ++i) cfg[i] = i * 3;
  EXPECT_EQ(tarvik_base_model_set_modem_cfg(cfg.data(), 101), 2u);
  EXPECT_EQ(tarvik_base_model_set_modem_cfg(cfg.data(), 0), 2u);
  EXPECT_EQ(tarvik_base_model_set_modem_cfg(nullptr, 5), 1u);
  EXPECT_TRUE(modem_->ReceivedBy(modemsim::extend::kServiceId).empty());
  ASSERT_EQ(tarvik_base_model_set_modem_cfg(cfg.data(), 100), 0u);
  EXPECT_EQ(base_model_->State().cfg, std::vector<uint32_t>(cfg.begin(), cfg.begin() + 100));

  ASSERT_EQ(tarvik_base_model_set_modem_model_detection_switch(1), 0u);
  ASSERT_EQ(tarvik_base_model_set_modem_event_ind_switch(0x14, 1), 0u);
  EXPECT_EQ(base_model_->State().detection, 1);
  EXPECT_EQ(base_model_->State().events.count(0x14), 1u);
  EXPECT_EQ(tarvik_base_model_set_modem_event_ind_switch(99, 1), 1u) << "the modem's own code";
}

// Each query asks for a capacity: one word short is refused with 4 and nothing copied; with it,
// the answer is copied and counted (the reason is the concatenation of its lists).
TEST_F(BaseModelTest, QueriesAndTheirCapacity) {
  modemsim::features::DetectReason(*modem_, {{{100, 200}, {7}, {0xF0, 0x0F, 1}, {}}}, {1, 2, 3, 4});
  modemsim::features::DetectScene(*modem_, 0x30, 0x1);
  std::array<uint32_t, 17> dds;
  for (uint32_t i = 0; i < 17; ++i) dds[i] = 1000 + i;
  base_model_->SetDdsInfo(dds);
  const struct {
    const char *name;
    uint32_t (*query)(uint32_t *, uint32_t *);
    uint32_t need;  // the capacity asked for
    std::vector<uint32_t> answer;
  } rows[] = {
      {"reason", tarvik_base_model_get_modem_reason, 29, {100, 200, 7, 0xF0, 0x0F, 1}},
      {"scene", tarvik_base_model_get_modem_scene, 3, {0x30, 0x1}},
      {"dds", tarvik_base_model_get_dds_assistant_info, 18, {dds.begin(), dds.end()}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<uint32_t> out(40, 0xEEEE);
    uint32_t len = row.need - 1;
    EXPECT_EQ(row.query(out.data(), &len), 4u);
    EXPECT_EQ(out[0], 0xEEEEu);
    len = row.need;
    ASSERT_EQ(row.query(out.data(), &len), 0u);
    EXPECT_EQ(std::vector<uint32_t>(out.begin(), out.begin() + len), row.answer);
  }
  uint32_t len = 29;
  EXPECT_EQ(tarvik_base_model_get_modem_reason(nullptr, &len), 3u);
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_base_model_get_modem_reason: data_rsp is null"));
  EXPECT_TRUE(tarvik_test::SyslogContains("rsp.arfcn[0] = 100"));
  EXPECT_TRUE(tarvik_test::SyslogContains("rsp.pci[0] = 7"));
}

// A count the list cannot hold ends the call; the lists before it stay written and counted.
TEST_F(BaseModelTest, ReasonWithAnOverlongCount) {
  modemsim::extend::SetMessageHandler(
      *modem_, TARVIK_EXTEND_QMI_BASE_MODEL_GET_REASON_MSG_V01, [](modemsim::Call &call) {
        auto &rsp = call.Response<tarvik_extend_qmi_base_model_get_reason_resp_msg_v01>();
        rsp.arfcn_len = 2;
        rsp.arfcn[0] = 11;
        rsp.arfcn[1] = 12;
        rsp.pci_len = 7;
      });
  uint32_t out[40];
  uint32_t len = 40;
  // The codec refuses a count of 7 on the wire (at most 6): the modem cannot encode its answer
  // and fails the request with QMI_ERR_INTERNAL in its result field, which the call returns.
  EXPECT_EQ(tarvik_base_model_get_modem_reason(out, &len), 3u);
  EXPECT_EQ(len, 40u);
}

TEST_F(BaseModelTest, FailedExchangeReadsAsEmptySuccess) {
  ASSERT_EQ(modem_->SetPresent(modemsim::extend::kServiceId, false), 0);
  tarvik_extend_qmi_init_force();
  uint32_t out[20] = {9, 9};
  uint32_t len = 3;
  EXPECT_EQ(tarvik_base_model_get_modem_scene(out, &len), 0u);
  EXPECT_EQ(len, 2u);
  EXPECT_EQ(out[0], 0u);
  EXPECT_EQ(tarvik_base_model_set_modem_model_detection_switch(1), 0u);
}

std::mutex g_mu;
std::vector<std::pair<int, std::vector<uint32_t>>> g_inds;
void OnInd(int id, void *data, int len) {
  std::lock_guard<std::mutex> lock(g_mu);
  const auto *p = static_cast<const uint32_t *>(data);
  g_inds.push_back({id, std::vector<uint32_t>(p, p + len / 4)});
}
size_t IndCount() {
  std::lock_guard<std::mutex> lock(g_mu);
  return g_inds.size();
}

// Indications come only when detection and the event are both on, and reach the callback.
TEST_F(BaseModelTest, IndicationsFollowTheSwitches) {
  ASSERT_TRUE(tarvik_extend_qmi_base_model_register(OnInd));
  ASSERT_EQ(tarvik_base_model_set_modem_event_ind_switch(0x14, 1), 0u);
  EXPECT_EQ(modemsim::features::DetectScene(*modem_, 5, 6), 0) << "detection is off";
  ASSERT_EQ(tarvik_base_model_set_modem_model_detection_switch(1), 0u);
  EXPECT_EQ(modemsim::features::DetectReason(*modem_, {}, {1, 2, 3, 4}), 0) << "event 0x12 is off";
  ASSERT_EQ(tarvik_base_model_set_modem_event_ind_switch(0x12, 1), 0u);
  EXPECT_EQ(modemsim::features::DetectScene(*modem_, 5, 6), 1);
  EXPECT_EQ(modemsim::features::DetectReason(*modem_, {}, {1, 2, 3, 4}), 1);
  tarvik_test::WaitUntil([] { return IndCount() >= 2; }, std::chrono::seconds(3),
                         std::chrono::milliseconds(5));
  std::lock_guard<std::mutex> lock(g_mu);
  ASSERT_EQ(g_inds.size(), 2u);
  EXPECT_EQ(g_inds[0].first, 20);
  EXPECT_EQ(g_inds[0].second, (std::vector<uint32_t>{0, 5, 6}));
  EXPECT_EQ(g_inds[1].first, 18);
  EXPECT_EQ(g_inds[1].second, (std::vector<uint32_t>{1, 2, 3, 4}));
}

}  // namespace
}  // namespace features_test
