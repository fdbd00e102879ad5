// The NAS client of a radio process against the simulated modem: binding to the process's
// subscription, the three 5G controls, the pass-through, and two radio processes on one modem.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "json_lines.h"
#include "modemsim/modem.h"
#include "network_access_service_v01.h"
#include "qcril_alloc_host.h"
#include "served_modem.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

using modemsim::Fault;
using Clock = std::chrono::steady_clock;
constexpr uint32_t kNas = NAS_QMI_SERVICE_ID_V01;
constexpr uint16_t kNrMode = QMI_NAS_SET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01;
constexpr uint16_t kEndc = QMI_NAS_SET_ENDC_CONFIG_REQ_MSG_V01;
constexpr uint16_t kDeprio = QMI_NAS_DEPRIORITIZE_NR5G_REQ_MSG_V01;

class Nas : public ::testing::Test {
 protected:
  void SetUp() override {
    modem_ = modemsim::CreateStandardModem("");
    qmux_ = tarvik_test::Serve(*modem_);
  }
  size_t Count(uint16_t msg_id) const {
    size_t n = 0;
    for (const auto &r : modem_->ReceivedBy(kNas)) n += r.msg_id == msg_id ? 1 : 0;
    return n;
  }
  std::unique_ptr<modemsim::Modem> modem_;
  std::unique_ptr<modemsim::QmuxServer> qmux_;  // stopped before the modem goes
};

// What one control sends for one caller value.
struct ControlRow {
  const char *name;
  int (*control)(uint32_t);
  uint32_t value;
  uint16_t msg_id;
  uint32_t sent;
};

uint32_t SentValue(const modemsim::Received &r) {
  switch (r.msg_id) {
    case kNrMode: {
      const auto &req = r.As<nas_set_system_selection_preference_req_msg_v01>();
      EXPECT_EQ(req.nr5g_disable_mode_valid, 1);
      return static_cast<uint32_t>(req.nr5g_disable_mode);
    }
    case kEndc:
      return r.As<nas_set_endc_config_req_msg_v01>().enable_endc;
    case kDeprio:
      return r.As<nas_deprioritize_nr5g_req_msg_v01>().deprioritize_nr5g;
  }
  ADD_FAILURE() << "unexpected message 0x" << std::hex << r.msg_id;
  return 0xFFFFFFFF;
}

TEST_F(Nas, ControlsBindOnceAndSendTheModemTheirRuleOfTheCallersValue) {
  tarvik_set_ril_process_instance_id(1);
  const ControlRow rows[] = {
      {"nr mode 1", tarvik_set_nr_mode, 1, kNrMode, 1},
      {"nr mode 2", tarvik_set_nr_mode, 2, kNrMode, 2},
      {"nr mode 3", tarvik_set_nr_mode, 3, kNrMode, 0},
      {"nr mode 0", tarvik_set_nr_mode, 0, kNrMode, 0},
      {"nr mode 0x101", tarvik_set_nr_mode, 0x101, kNrMode, 0},
      {"endc 1", tarvik_enable_endc, 1, kEndc, 1},
      {"endc 0x100", tarvik_enable_endc, 0x100, kEndc, 0},
      {"endc 0x180", tarvik_enable_endc, 0x180, kEndc, 1},
      {"deprio 2", tarvik_deprioritize_sa, 2, kDeprio, 1},
      {"deprio 0x200", tarvik_deprioritize_sa, 0x200, kDeprio, 0},
  };
  for (const ControlRow &row : rows) {
    SCOPED_TRACE(row.name);
    modem_->ClearReceived(kNas);
    EXPECT_EQ(row.control(row.value), 0);
    const auto received = modem_->ReceivedBy(kNas);
    ASSERT_FALSE(received.empty());
    EXPECT_EQ(received.back().msg_id, row.msg_id);
    EXPECT_EQ(SentValue(received.back()), row.sent);
  }
  // The first control created and bound the one client, to the process's subscription.
  EXPECT_EQ(modem_->Clients(kNas).size(), 1u);
  EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
  modem_->ClearReceived(kNas);
  ASSERT_EQ(tarvik_set_nr_mode(1), 0);
  EXPECT_EQ(Count(QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01), 0u);
}

TEST_F(Nas, BindingCarriesTheInstanceIdAndAFailedBindingLeavesNoClient) {
  struct Row {
    uint32_t instance;
    bool bound;
    size_t binds;
  };
  const Row rows[] = {{2, false, 0}, {255, false, 0}, {0, true, 1}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.instance);
    tarvik_set_ril_process_instance_id(row.instance);
    modem_->ClearReceived(kNas);
    const int expected = row.bound ? 0 : -1;
    EXPECT_EQ(tarvik_set_nr_mode(1), expected);
    EXPECT_EQ(tarvik_enable_endc(1), expected);
    EXPECT_EQ(tarvik_deprioritize_sa(1), expected);
    EXPECT_EQ(Count(QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01), row.binds);
    EXPECT_EQ(modem_->ReceivedBy(kNas).size(), row.bound ? 4u : 0u);
    EXPECT_EQ(modem_->Clients(kNas).size(), row.bound ? 1u : 0u);
    for (const auto &r : modem_->ReceivedBy(kNas)) {
      if (r.msg_id != QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01) continue;
      EXPECT_EQ(r.As<nas_bind_subscription_req_msg_v01>().subs_type, NAS_PRIMARY_SUBSCRIPTION_V01);
    }
  }
}

TEST_F(Nas, ARefusedBindingIsTriedTenTimesHalfASecondApartAServiceErrorOnce) {
  TARVIK_SKIP_OVER_QMUX("transport failures injected");
  tarvik_set_ril_process_instance_id(0);
  struct Row {
    const char *name;
    Fault fault;
    size_t attempts;
    long min_ms, max_ms;
  };
  const Row rows[] = {
      {"service error", {Fault::kTransportError, QMI_SERVICE_ERR, 0, 1}, 1, 0, 400},
      {"modem refuses", {Fault::kResult, modemsim::kQmiErrInternal, 0, -1}, 10, 4800, 8000},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    modem_->ClearReceived(kNas);
    modem_->SetFault(kNas, QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01, row.fault);
    const auto start = Clock::now();
    EXPECT_FALSE(init_nas_qmi_client());
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    EXPECT_GE(ms, row.min_ms);
    EXPECT_LE(ms, row.max_ms);
    EXPECT_EQ(Count(QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01), row.attempts);
    EXPECT_TRUE(modem_->Clients(kNas).empty()) << "the unbound client is released";
    modem_->ClearFaults(kNas);
  }
  // The next control tries again, and succeeds.
  EXPECT_EQ(tarvik_enable_endc(1), 0);
  EXPECT_EQ(modem_->Clients(kNas).size(), 1u);
}

TEST_F(Nas, ControlsReportTheTransportNotTheModemAndKeepAClientWhoseServiceWent) {
  TARVIK_SKIP_OVER_QMUX("transport failures injected");
  tarvik_set_ril_process_instance_id(0);
  ASSERT_TRUE(init_nas_qmi_client());
  modem_->SetFault(kNas, kEndc, {Fault::kResult, modemsim::kQmiErrInvalidArg, 0, 1});
  EXPECT_EQ(tarvik_enable_endc(1), 0);
  modem_->SetFault(kNas, kEndc, {Fault::kTransportError, QMI_CLIENT_TRANSPORT_ERR, 0, 1});
  EXPECT_EQ(tarvik_enable_endc(1), QMI_CLIENT_TRANSPORT_ERR);

  // No memory: nothing sent, nothing kept.
  for (uint32_t nth : {1u, 2u}) {
    SCOPED_TRACE(nth);
    modem_->ClearReceived(kNas);
    qcril_alloc_host_fail_nth(nth);
    EXPECT_EQ(tarvik_deprioritize_sa(1), -1);
    qcril_alloc_host_fail_nth(0);
    EXPECT_TRUE(modem_->ReceivedBy(kNas).empty());
    EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
  }

  ASSERT_EQ(modem_->Restart(kNas), QMI_NO_ERR);
  tarvik_test::WaitUntil([] { return __atomic_load_n(&SSR_Detected, __ATOMIC_RELAXED) != 0; },
                         std::chrono::seconds(3));
  EXPECT_EQ(__atomic_load_n(&SSR_Detected, __ATOMIC_RELAXED), 1);
  EXPECT_EQ(tarvik_set_nr_mode(1), QMI_SERVICE_ERR);
  EXPECT_EQ(tarvik_set_nr_mode(1), QMI_SERVICE_ERR);
}

TEST_F(Nas, PassThroughRunsEachRequestOnItsOwnClientAndReadsBackTheControls) {
  tarvik_set_ril_process_instance_id(1);
  ASSERT_EQ(tarvik_set_nr_mode(2), 0);
  ASSERT_EQ(tarvik_enable_endc(0), 0);
  const uint32_t bound = modem_->Clients(kNas).at(0);
  modem_->ClearReceived(kNas);

  nas_get_system_selection_preference_req_msg_v01 req{};
  nas_get_system_selection_preference_resp_msg_v01 pref{};
  nas_get_endc_config_resp_msg_v01 endc{};
  EXPECT_EQ(tarvik_send_nas_qmi_req_msg(QMI_NAS_GET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01, &req,
                                        sizeof(req), &pref, sizeof(pref), 1000),
            0);
  EXPECT_EQ(tarvik_send_nas_qmi_req_msg(QMI_NAS_GET_ENDC_CONFIG_REQ_MSG_V01, &req, sizeof(req),
                                        &endc, sizeof(endc), 1000),
            0);
  EXPECT_EQ(pref.resp.result, QMI_RESULT_SUCCESS_V01);
  EXPECT_EQ(pref.nr5g_disable_mode, NAS_NR5G_DISABLE_MODE_NSA_V01);
  EXPECT_EQ(endc.endc_enabled_valid, 1);
  EXPECT_EQ(endc.endc_enabled, 0);
  const auto received = modem_->ReceivedBy(kNas);
  ASSERT_EQ(received.size(), 2u);
  EXPECT_NE(received[0].client, received[1].client);
  EXPECT_NE(received[0].client, bound);
  EXPECT_EQ(modem_->Clients(kNas), std::vector<uint32_t>{bound});

  // Refused before any client: a missing record, a message the carried table lacks.
  EXPECT_EQ(tarvik_send_nas_qmi_req_msg(0x0034, nullptr, 0, &pref, sizeof(pref), 1000), -1);
  EXPECT_EQ(tarvik_send_nas_qmi_req_msg(0x0034, &req, sizeof(req), nullptr, 0, 1000), -1);
  EXPECT_EQ(tarvik_send_nas_qmi_req_msg(0x0099, &req, sizeof(req), &pref, sizeof(pref), 1000),
            QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND);
  EXPECT_EQ(modem_->ReceivedBy(kNas).size(), 2u);
  EXPECT_EQ(modem_->Clients(kNas), std::vector<uint32_t>{bound});

  // A client of another radio process, bound to the other subscription, sees its own settings.
  qmi_client_os_params os{};
  qmi_client_type other = nullptr;
  ASSERT_EQ(qmi_client_init_instance(nas_get_service_object_v01(), QMI_CLIENT_INSTANCE_ANY, nullptr,
                                     nullptr, &os, 1000, &other),
            QMI_NO_ERR);
  nas_bind_subscription_req_msg_v01 bind{NAS_PRIMARY_SUBSCRIPTION_V01};
  nas_bind_subscription_resp_msg_v01 bind_resp{};
  ASSERT_EQ(qmi_client_send_msg_sync(other, QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01, &bind,
                                     sizeof(bind), &bind_resp, sizeof(bind_resp), 1000),
            QMI_NO_ERR);
  ASSERT_EQ(qmi_client_send_msg_sync(other, QMI_NAS_GET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01,
                                     nullptr, 0, &pref, sizeof(pref), 1000),
            QMI_NO_ERR);
  EXPECT_EQ(pref.nr5g_disable_mode, NAS_NR5G_DISABLE_MODE_NONE_V01);
  bind.subs_type = static_cast<nas_subs_type_enum_v01>(2);
  ASSERT_EQ(qmi_client_send_msg_sync(other, QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01, &bind,
                                     sizeof(bind), &bind_resp, sizeof(bind_resp), 1000),
            QMI_NO_ERR);
  EXPECT_EQ(bind_resp.resp.result, QMI_RESULT_FAILURE_V01) << "the modem has two subscriptions";
  qmi_client_release(other);
}

// Two radio processes (instance 0 and 1) on one tarvik-modemd, each with its own settings.
TEST(NasTwoProcesses, EachProcessReadsBackItsOwnSubscription) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  struct Row {
    int instance;
    int mode;
    int endc;
    tarvik_test::ToolRun show;
  };
  Row rows[] = {{0, 1, 0, {}}, {1, 2, 1, {}}};
  std::vector<std::thread> processes;
  for (Row &row : rows) {
    processes.emplace_back([&daemon, &row] {
      const std::string me = daemon.modem() + " --instance " + std::to_string(row.instance);
      EXPECT_EQ(tarvik_test::RunTool(me + " nas nr-mode " + std::to_string(row.mode)).status, 0);
      EXPECT_EQ(tarvik_test::RunTool(me + " nas endc " + std::to_string(row.endc)).status, 0);
      row.show = tarvik_test::RunTool(me + " --json nas show");
    });
  }
  for (auto &p : processes) p.join();
  const auto status =
      tarvik_test::JsonLines(tarvik_test::RunTool(daemon.modem() + " --json sim status").out);
  ASSERT_EQ(status.size(), 1u);
  nlohmann::json subs;
  for (const auto &s : status[0].at("services")) {
    if (s.at("service") == kNas) subs = s.at("subscriptions");
  }
  for (const Row &row : rows) {
    SCOPED_TRACE(row.instance);
    ASSERT_EQ(row.show.status, 0) << row.show.err;
    const auto shown = tarvik_test::JsonLines(row.show.out);
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].at("nr5g_disable_mode"), row.mode);
    EXPECT_EQ(shown[0].at("endc"), row.endc);
    EXPECT_EQ(subs.at(row.instance).at("nr5g_disable_mode"), row.mode);
    EXPECT_EQ(subs.at(row.instance).at("endc"), row.endc);
  }
}

}  // namespace
