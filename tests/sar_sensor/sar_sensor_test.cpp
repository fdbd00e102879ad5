// The RF SAR and sensor clients of a radio process against the simulated modem.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "json_lines.h"
#include "modemsim/modem.h"
#include "qcril_alloc_host.h"
#include "sar_v01.h"
#include "served_modem.h"
#include "sns_client_v01.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_sensor_api.h"
#include "test_env.h"

namespace {

using modemsim::Fault;
using Clock = std::chrono::steady_clock;
constexpr uint32_t kSar = SAR_QMI_SERVICE_ID_V01;
constexpr uint32_t kSns = SNS_CLIENT_SVC_SERVICE_ID_V01;

class Clients : public ::testing::Test {
 protected:
  void SetUp() override {
    modem_ = modemsim::CreateStandardModem("");
    qmux_ = tarvik_test::Serve(*modem_);
  }
  std::unique_ptr<modemsim::Modem> modem_;
  std::unique_ptr<modemsim::QmuxServer> qmux_;  // stopped before the modem goes
};

TEST_F(Clients, SarSendsTheRangeRuleAndReadsBackWhatTheModemKeeps) {
  struct Row {
    uint32_t dsi;
    uint32_t sent;
  };
  const Row rows[] = {{7, 7}, {0, 0}, {21, 0}, {0xFFFFFFFF, 0}, {20, 20}, {1, 1}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.dsi);
    modem_->ClearReceived(kSar);
    EXPECT_EQ(tarvik_set_sar_dsi(row.dsi), 0);
    const auto received = modem_->ReceivedBy(kSar);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].As<sar_rf_set_state_req_msg_v01>().sar_rf_state, row.sent);
    EXPECT_EQ(received[0].As<sar_rf_set_state_req_msg_v01>().compatibility_key_valid, 0);
    EXPECT_EQ(tarvik_get_sar_dsi(), static_cast<int>(row.sent));
  }
  EXPECT_EQ(modem_->Clients(kSar).size(), 1u);
  EXPECT_EQ(qcril_alloc_host_outstanding(), 0);

  // An answer without the state reads as 0.
  modem_->FindService(kSar)->Handle(QMI_SAR_RF_GET_STATE_REQ_MSG_V01, [](modemsim::Call &) {});
  EXPECT_EQ(tarvik_get_sar_dsi(), 0);
}

TEST_F(Clients, SarRetriesOnceOnANewClientAfterAnyFailureButATimeOut) {
  TARVIK_SKIP_OVER_QMUX("transport failures injected");
  struct Row {
    const char *name;
    bool set;
    int error;
    int count;
    int result;
    size_t sends;
    bool new_client;
  };
  const Row rows[] = {
      {"set, service error once", true, QMI_SERVICE_ERR, 1, 0, 2, true},
      {"get, service error once", false, QMI_SERVICE_ERR, 1, 5, 2, true},
      {"set, transport error twice", true, QMI_CLIENT_TRANSPORT_ERR, 2, QMI_CLIENT_TRANSPORT_ERR, 2,
       true},
      {"get, transport error twice", false, QMI_CLIENT_TRANSPORT_ERR, 2, -1, 2, true},
      {"set, time-out", true, QMI_TIMEOUT_ERR, 1, QMI_TIMEOUT_ERR, 1, false},
      {"get, time-out", false, QMI_TIMEOUT_ERR, 1, -1, 1, false},
  };
  ASSERT_EQ(tarvik_set_sar_dsi(5), 0);
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<uint32_t> before = modem_->Clients(kSar);
    ASSERT_EQ(before.size(), 1u);
    modem_->ClearReceived(kSar);
    const uint16_t msg =
        row.set ? QMI_SAR_RF_SET_STATE_REQ_MSG_V01 : QMI_SAR_RF_GET_STATE_REQ_MSG_V01;
    modem_->SetFault(kSar, msg, {Fault::kTransportError, row.error, 0, row.count});
    EXPECT_EQ(row.set ? tarvik_set_sar_dsi(5) : tarvik_get_sar_dsi(), row.result);
    const auto received = modem_->ReceivedBy(kSar);
    EXPECT_EQ(received.size(), row.sends);
    for (const auto &r : received) EXPECT_EQ(r.msg_id, msg);
    const std::vector<uint32_t> after = modem_->Clients(kSar);
    ASSERT_EQ(after.size(), 1u) << "the old client was released";
    EXPECT_EQ(after[0] != before[0], row.new_client);
    if (row.sends == 2) {
      EXPECT_EQ(received[1].client, after[0]);
    }
    modem_->ClearFaults(kSar);
  }
  EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
}

TEST_F(Clients, SarWithoutServiceOrMemoryGivesMinusOneAndSendsNothing) {
  ASSERT_EQ(modem_->SetPresent(kSar, false), QMI_NO_ERR);
  EXPECT_EQ(tarvik_set_sar_dsi(3), -1);
  EXPECT_EQ(tarvik_get_sar_dsi(), -1);
  EXPECT_EQ(tarvik_check_and_init_qmi_client_rf_sar(), 0);
  ASSERT_EQ(modem_->SetPresent(kSar, true), QMI_NO_ERR);
  qcril_alloc_host_fail_nth(1);
  EXPECT_EQ(tarvik_set_sar_dsi(3), -1);
  qcril_alloc_host_fail_nth(1);
  EXPECT_EQ(tarvik_get_sar_dsi(), -1);
  qcril_alloc_host_fail_nth(0);
  EXPECT_TRUE(modem_->ReceivedBy(kSar).empty());
  EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
  EXPECT_EQ(qcril_alloc_host_null_frees(), 0u);  // a get has no request record to give back
  // A refusal by the modem is not examined.
  EXPECT_EQ(tarvik_force_init_qmi_client_rf_sar(), 1);
  modem_->SetFault(kSar, QMI_SAR_RF_SET_STATE_REQ_MSG_V01,
                   {Fault::kResult, modemsim::kQmiErrInvalidArg, 0, 1});
  EXPECT_EQ(tarvik_set_sar_dsi(3), 0);
  tarvik_release_qmi_client_rf_sar();
  EXPECT_TRUE(modem_->Clients(kSar).empty());
}

TEST_F(Clients, SensorSendsThePayloadAndTheFlagOnlyWhenSetOnOneClientTillClosed) {
  TARVIK_SKIP_OVER_QMUX("the sensor client's service id is above 0xFF");
  int context = 0;
  tarvik_qmi_client_close();  // nothing to close yet
  struct Row {
    uint32_t len;
    uint8_t flag;
  };
  const Row rows[] = {{3, 0}, {3, 1}, {1000, 1}, {0, 0}};
  std::vector<uint8_t> payload(1000);
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 7);
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << row.len << " bytes, flag " << int(row.flag));
    modem_->ClearReceived(kSns);
    EXPECT_EQ(tarvik_sensor_qmi_send_sync(payload.data(), row.len, &context, nullptr, row.flag), 0);
    const auto received = modem_->ReceivedBy(kSns);
    ASSERT_EQ(received.size(), 1u);
    const auto &req = received[0].As<sns_client_req_msg_v01>();
    ASSERT_EQ(req.payload_len, row.len);
    EXPECT_EQ(memcmp(req.payload, payload.data(), row.len), 0);
    EXPECT_EQ(req.use_jumbo_report_valid, row.flag);
    EXPECT_EQ(req.use_jumbo_report, row.flag);
    // TLV 0x10 on the wire exactly when the flag is set.
    const bool has_tlv = received[0].tlvs.size() > 3u + row.len + 2u;
    EXPECT_EQ(has_tlv, row.flag != 0);
  }
  // All on the one client.
  const auto clients = modem_->Clients(kSns);
  ASSERT_EQ(clients.size(), 1u);
  // Refused before anything is sent.
  modem_->ClearReceived(kSns);
  EXPECT_EQ(tarvik_sensor_qmi_send_sync(payload.data(), 3, nullptr, nullptr, 0), -1);
  EXPECT_EQ(tarvik_sensor_qmi_send_sync(nullptr, 3, &context, nullptr, 0), -1);
  EXPECT_EQ(tarvik_sensor_qmi_send_sync(payload.data(), 1001, &context, nullptr, 0), -1);
  EXPECT_TRUE(modem_->ReceivedBy(kSns).empty());
  // A failed request keeps the client.
  modem_->SetFault(kSns, SNS_CLIENT_REQ_V01, {Fault::kTransportError, QMI_SERVICE_ERR, 0, 1});
  EXPECT_EQ(tarvik_sensor_qmi_send_sync(payload.data(), 3, &context, nullptr, 0), -3);
  EXPECT_EQ(modem_->Clients(kSns), clients);
  // Closed, the next send makes a fresh one.
  tarvik_qmi_client_close();
  EXPECT_TRUE(modem_->Clients(kSns).empty());
  modem_->ClearReceived(kSns);
  ASSERT_EQ(tarvik_sensor_qmi_send_sync(payload.data(), 1, &context, nullptr, 1), 0);
  const auto fresh = modem_->Clients(kSns);
  ASSERT_EQ(fresh.size(), 1u);
  EXPECT_NE(fresh[0], clients[0]);
  const auto received = modem_->ReceivedBy(kSns);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].client, fresh[0]);
}

TEST_F(Clients, SensorWaitsAboutTwoHundredMsForAMissingServiceThenTriesAgain) {
  TARVIK_SKIP_OVER_QMUX("the sensor client's service id is above 0xFF");
  int context = 0;
  const uint8_t payload[] = {1, 2};
  ASSERT_EQ(modem_->SetPresent(kSns, false), QMI_NO_ERR);
  const auto start = Clock::now();
  EXPECT_EQ(tarvik_sensor_qmi_send_sync(payload, 2, &context, nullptr, 0), -2);
  const auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  EXPECT_GE(ms, 180);
  EXPECT_LE(ms, 1500);
  ASSERT_EQ(modem_->SetPresent(kSns, true), QMI_NO_ERR);
  EXPECT_EQ(tarvik_sensor_qmi_send_sync(payload, 2, &context, nullptr, 0), 0);
  EXPECT_EQ(modem_->ReceivedBy(kSns).size(), 1u);
}

// The tool's sar and sensor commands against one daemon: what reached the modem is in its
// status.
TEST(SarSensorTool, CommandsReachTheModemAndNameTheirFailures) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  const tarvik_test::ToolRow rows[] = {
      {"sar set 21", 0, {{"dsi", 21}, {"sent", 0}}},
      {"sar get", 0, {{"dsi", 0}}},
      {"sar set 20", 0, {{"dsi", 20}, {"sent", 20}}},
      {"sar get", 0, {{"dsi", 20}}},
      {"sar set x", 2, {{"status_name", "usage"}}},
      {"sensor send 0a0b --flag", 0, {{"bytes", 2}, {"flag", true}}},
      {"sensor send 0c", 0, {{"bytes", 1}, {"flag", false}}},
      {"sensor send 0c --other", 2, {{"status_name", "usage"}}},
      {"nas show", 2, {{"status_name", "usage"}}},  // no --instance: nothing would bind
      {"sim absent 0x11", 0, {}},
      {"sar get", 1, {{"status", -1}, {"status_name", "no client or no memory"}}},
      {"sim absent 0x190", 0, {}},
      {"sensor send 0d", 1, {{"status", -2}, {"status_name", "no sensor service client"}}},
  };
  for (const auto &row : rows) tarvik_test::ExpectToolRow(daemon.modem() + " --json ", row);
  const auto status =
      tarvik_test::JsonLines(tarvik_test::RunTool(daemon.modem() + " --json sim status").out);
  ASSERT_EQ(status.size(), 1u);
  for (const auto &s : status[0].at("services")) {
    if (s.at("service") != kSns) continue;
    EXPECT_EQ(s.at("requests"), 2);
    EXPECT_EQ(s.at("flagged"), 1);
    EXPECT_EQ(s.at("last"), "0C");
  }
}

}  // namespace
