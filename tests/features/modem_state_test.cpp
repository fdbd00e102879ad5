// The simulated modem's state as the library sees it: each modem keeps its own, a state directory
// that cannot be written fails the request, and a result fault fails a request on every service.
#include <stdio.h>

#include "data_filter_service_v01.h"
#include "features_env.h"
#include "network_access_service_v01.h"
#include "sar_v01.h"
#include "sns_client_v01.h"
#include "tarvik_base_model.h"
#include "uim/uim_service.h"

namespace features_test {
namespace {

constexpr int kEvent = 3;
void IgnoreEvent(int, void *, int) {}

using ModemStateTest = FeatureTest;

// What the library sets on one modem (an NV item, a base model switch, an event registration)
// is not there on a modem created after it in the same process.
TEST_F(ModemStateTest, ASecondModemStartsWithStateOfItsOwn) {
  const uint8_t value[] = {0xA5, 0x5A};
  for (int modem = 0; modem < 2; ++modem) {
    SCOPED_TRACE(modem == 0 ? "first modem" : "second modem");
    if (modem == 1) {
      ASSERT_NO_FATAL_FAILURE(StartModem(""));
    }
    std::vector<uint8_t> item;
    EXPECT_FALSE(nvefs_->NvItem(0, 550, &item));
    EXPECT_EQ(0, base_model_->State().detection);
    EXPECT_EQ(0, modemsim::extend::InjectEvent(*modem_, kEvent, value, sizeof(value)));

    ASSERT_EQ(0, tarvik_nv_write_ex(0, 550, value, sizeof(value)));
    ASSERT_EQ(0u, tarvik_base_model_set_modem_model_detection_switch(1));
    ASSERT_EQ(0, tarvik_extend_qmi_register(kEvent, IgnoreEvent, 0));
    EXPECT_TRUE(nvefs_->NvItem(0, 550, &item));
    EXPECT_EQ(1, base_model_->State().detection);
    EXPECT_EQ(1, modemsim::extend::InjectEvent(*modem_, kEvent, value, sizeof(value)));
  }
}

// What the modem keeps (NV items, files, its profile, MBN paths and the discovery timer)
// outlives a restart on the same state directory.
TEST_F(ModemStateTest, NonVolatileStateOutlivesARestart) {
  const std::string dir = tarvik_test::ScratchDir() + "/state";
  ASSERT_NO_FATAL_FAILURE(StartModem(dir));
  const uint8_t item[5] = {5, 4, 3, 2, 1};
  const auto file = Pattern(5000);
  const char path[] = "/nv/item_files/test/blob";
  const uint32_t path_len = sizeof(path) - 1;
  ASSERT_TRUE(identity_->SetWord(COMMON_CMD_CHIPSET_ID, 0x2A1));
  ASSERT_TRUE(identity_->SetString(60, "kept"));
  ASSERT_EQ(tarvik_mcfg_mbn_txt_path_set("/kept.txt", 12), 0u);
  ASSERT_EQ(tarvik_mcfg_ext_set_discover_timer_timeout(9), 1u);
  ASSERT_EQ(tarvik_modem_nv_sync(), 0u);
  // Items and files are written through: no sync after them.
  ASSERT_EQ(tarvik_nv_write_ex(1, 6828, item, 5), 0);
  ASSERT_EQ(tarvik_efs_write(1, path, path_len, file.data(), 5000), 0);
  ASSERT_NO_FATAL_FAILURE(StartModem(dir));

  std::vector<uint8_t> buf(6000);
  uint32_t len = 16;
  ASSERT_EQ(tarvik_nv_read(1, 6828, buf.data(), &len), 0);
  EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + len),
            std::vector<uint8_t>(item, item + 5));
  len = 6000;
  ASSERT_EQ(tarvik_efs_read(1, path, path_len, buf.data(), &len), 0);
  EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + len), file);
  EXPECT_EQ(tarvik_modem_chipset_id_get(), 0x2A1u);
  char text[TARVIK_MCFG_PATH_SIZE];
  len = sizeof(text);
  EXPECT_EQ(tarvik_modem_string_info_get(60, text, &len), 0u);
  EXPECT_STREQ(text, "kept");
  EXPECT_EQ(tarvik_mcfg_mbn_txt_path_get(text, 11), 0u);
  EXPECT_STREQ(text, "/kept.txt");
  EXPECT_EQ(tarvik_mcfg_ext_get_discover_timer_timeout(), 9);
}

// A state directory that cannot be created: every write is answered with a failure, the caller
// sees it, and the modem keeps its state as it was.
TEST_F(ModemStateTest, AStateDirectoryThatCannotBeWrittenFailsTheRequest) {
  const std::string blocker = tarvik_test::ScratchDir() + "/not_a_dir";
  FILE *f = fopen(blocker.c_str(), "w");
  ASSERT_NE(nullptr, f);
  fclose(f);
  ASSERT_NO_FATAL_FAILURE(StartModem(blocker + "/state"));
  const uint8_t value[] = {1, 2, 3};
  const char path[] = "/nv/item_files/test";
  std::vector<uint8_t> held;

  EXPECT_NE(0, tarvik_nv_write_ex(0, 550, value, sizeof(value)));
  EXPECT_FALSE(nvefs_->NvItem(0, 550, &held));
  EXPECT_NE(0, tarvik_efs_write(0, path, sizeof(path) - 1, value, sizeof(value)));
  EXPECT_FALSE(nvefs_->File(0, path, &held));
  EXPECT_NE(0u, tarvik_extend_mode_set(3));
  EXPECT_EQ(0, settings_->ExtendMode());
  EXPECT_EQ(3u, SentRequests(REQUEST_ID_NVEFS).size() + SentRequests(REQUEST_ID_COMMON).size());
}

// The standard response's error on an empty request of `msg` on a client of its own
// (transport errors as they are).
int StandardVerdict(qmi_idl_service_object_type object, uint16_t msg) {
  qmi_client_os_params os{};
  qmi_client_type client = nullptr;
  int rc = qmi_client_init_instance(object, QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr, &os, 1000,
                                    &client);
  if (rc != QMI_NO_ERR) return rc;
  // Zeroed records larger than any of the services' (each response starts with its result).
  std::vector<uint64_t> req(1024), resp(8192);
  rc = qmi_client_send_msg_sync(client, msg, req.data(), req.size() * 8, resp.data(),
                                resp.size() * 8, 1000);
  qmi_client_release(client);
  return rc != QMI_NO_ERR ? rc
                          : reinterpret_cast<const qmi_response_type_v01 *>(resp.data())->error;
}

// A result fault fails the request with the modem's code on every service of the standard modem,
// written where that service keeps its verdict.
TEST_F(ModemStateTest, AResultFaultFailsTheRequestOnEveryService) {
  const struct {
    uint32_t service;
    uint16_t msg_id;
    qmi_idl_service_object_type object;  // null: `call` asks through the library
    int (*call)();
    int failed;
  } rows[] = {
      {modemsim::extend::kServiceId, TARVIK_EXTEND_QMI_GENERIC_MSG_V01, nullptr,
       [] {
         uint8_t req[2] = {1, 2}, resp[2] = {};
         uint32_t len = sizeof(resp);
         return tarvik_extend_qmi_send_sync(modemsim::extend::kLoopbackRequestId, req, sizeof(req),
                                            resp, &len);
       },
       -3},
      {NAS_QMI_SERVICE_ID_V01, QMI_NAS_GET_ENDC_CONFIG_REQ_MSG_V01, nas_get_service_object_v01(),
       nullptr, modemsim::kQmiErrInvalidArg},
      {SAR_QMI_SERVICE_ID_V01, QMI_SAR_RF_SET_STATE_REQ_MSG_V01, sar_get_service_object_v01(),
       nullptr, modemsim::kQmiErrInvalidArg},
      {SNS_CLIENT_SVC_SERVICE_ID_V01, SNS_CLIENT_REQ_V01, SNS_CLIENT_SVC_get_service_object_v01(),
       nullptr, modemsim::kQmiErrInvalidArg},
      {DFS_V01_SERVICE_ID, QMI_DFS_GET_FILTER_MODE_REQ_V01, &dfs_qmi_idl_service_object_v01,
       nullptr, modemsim::kQmiErrInvalidArg},
      {modemsim::uim::kServiceId, QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01, nullptr,
       [] {
         const tarvik_uim_open_channel_req_t req{2, 0};
         uint8_t channel = 0;
         return tarvik_uim_open_channel(&req, &channel);
       },
       -1},
  };
  for (const auto &status : modem_->Status()) {
    bool covered = false;
    for (const auto &row : rows) covered = covered || row.service == status.id;
    EXPECT_TRUE(covered) << "no result-fault row for service " << status.id;
  }
  for (const auto &row : rows) {
    SCOPED_TRACE(row.service);
    modem_->ClearReceived(row.service);
    modem_->SetFault(row.service, row.msg_id,
                     modemsim::Fault{modemsim::Fault::kResult, modemsim::kQmiErrInvalidArg, 0, 1});
    const auto call = [&row] {
      return row.object != nullptr ? StandardVerdict(row.object, row.msg_id) : row.call();
    };
    EXPECT_EQ(row.failed, call());
    const auto got = modem_->ReceivedBy(row.service);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(row.msg_id, got[0].msg_id);
    EXPECT_EQ(0, call());  // the fault was for one request
  }
}

}  // namespace
}  // namespace features_test
