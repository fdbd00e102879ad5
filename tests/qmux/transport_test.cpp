// What only the qmux transport has, against the simulated modem serving QMUX on a pseudo-terminal:
// the tool on the device, services that cannot be named over QMUX, a device that goes away. (The
// standard-service suites run over QMUX as ctest's qmux.* tests.)
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "modemsim/modem.h"
#include "modemsim/qmux_server.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "sar_v01.h"
#include "sns_client_v01.h"
#include "tarvik_extend_cmn.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

constexpr uint32_t kSar = SAR_QMI_SERVICE_ID_V01;

class OverQmux : public ::testing::Test {
 protected:
  void SetUp() override {
    modem_ = modemsim::CreateStandardModem("");
    server_ = std::make_unique<modemsim::QmuxServer>(*modem_);
    std::string error;
    ASSERT_TRUE(server_->Start(link_, &error)) << error;
    ASSERT_EQ(qmi_client_host_select_transport(("qmux:" + link_).c_str()), QMI_NO_ERR);
  }
  void TearDown() override { qmi_client_host_select_transport("inproc"); }

  const std::string link_ = tarvik_test::ScratchDir() + "/qmux";
  std::unique_ptr<modemsim::Modem> modem_;
  std::unique_ptr<modemsim::QmuxServer> server_;
};

// The tool, pointed at the device as at a real modem.
TEST_F(OverQmux, ToolCommandsReachTheModem) {
  struct Row {
    const char *args;
    const char *printed;
    uint32_t service;  // 0: none reached
  };
  // One process reads the device at a time, as with a real one: this one lets go of it.
  ASSERT_EQ(qmi_client_host_select_transport("inproc"), QMI_NO_ERR);
  const std::string modem = "--json --modem qmux:" + link_ + " --instance 0 ";
  const Row rows[] = {
      {"sar set 6", R"("status":0)", kSar},          {"sar get", R"("dsi":6)", kSar},
      {"uim power 0 down", R"("status":0)", 0x0B},   {"nas endc 0", R"("status":0)", 0x03},
      {"sim status", R"("status_name":"usage")", 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.args);
    if (row.service != 0) modem_->ClearReceived(row.service);
    const tarvik_test::ToolRun run = tarvik_test::RunTool(modem + row.args);
    EXPECT_NE(run.out.find(row.printed), std::string::npos) << run.out << run.err;
    if (row.service != 0) {
      EXPECT_FALSE(modem_->ReceivedBy(row.service).empty());
      // The tool's process released its client ids as it exited (the device reads them soon).
      tarvik_test::WaitUntil([&] { return modem_->Clients(row.service).empty(); },
                             std::chrono::seconds(1));
      EXPECT_TRUE(modem_->Clients(row.service).empty());
    }
  }
}

TEST_F(OverQmux, OnlyServicesWithEightBitIdsAreListed) {
  struct Row {
    const char *name;
    qmi_idl_service_object_type object;
    unsigned int services;
  };
  const Row rows[] = {{"RF SAR", sar_get_service_object_v01(), 1},
                      {"sensor client", SNS_CLIENT_SVC_get_service_object_v01(), 0}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    qmi_service_info info[2];
    unsigned int entries = 2, services = 99;
    qmi_client_get_service_list(row.object, info, &entries, &services);
    EXPECT_EQ(services, row.services);
  }
}

TEST_F(OverQmux, ADeviceThatGoesAwayIsAServiceLossUntilItIsBack) {
  ASSERT_EQ(tarvik_set_sar_dsi(4), 0);
  server_->Stop();  // the device hangs up
  EXPECT_EQ(tarvik_get_sar_dsi(), -1);
  ASSERT_TRUE(server_->Start(link_));
  modem_->ClearReceived(kSar);
  // The transport opens the device again and the client starts over on a new client id.
  int got = -1;
  tarvik_test::WaitUntil(
      [&] {
        got = tarvik_get_sar_dsi();
        return got == 4;
      },
      std::chrono::seconds(5), std::chrono::milliseconds(100));
  EXPECT_EQ(got, 4);
  EXPECT_FALSE(modem_->ReceivedBy(kSar).empty());
}

}  // namespace
