// An independent QMI client (libqmi's qmicli) against the simulated modem's QMUX device: each
// command must be understood by both sides, reach the modem as the request our tables decode,
// and leave the modem in the state the command asks for.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "modemsim/control.h"
#include "modemsim/modem.h"
#include "modemsim/qmux_server.h"
#include "test_env.h"

namespace {

std::string FindQmicli() {
  const char *path = getenv("PATH");
  std::string dirs = path != nullptr ? path : "/usr/bin";
  size_t at = 0;
  while (at <= dirs.size()) {
    const size_t end = dirs.find(':', at);
    const std::string candidate =
        dirs.substr(at, end == std::string::npos ? std::string::npos : end - at) + "/qmicli";
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return "";
}

// Runs qmicli on the device; its exit status and everything it printed.
int RunQmicli(const std::string &qmicli, const std::string &device, const std::string &arg,
              std::string *out) {
  return tarvik_test::RunShell(
      "timeout 20 " + qmicli + " -d " + device + " --device-open-qmi " + arg + " 2>&1", out);
}

TEST(QmicliTest, CommandsReachTheModemAndChangeItsState) {
  const std::string qmicli = FindQmicli();
  if (qmicli.empty()) GTEST_SKIP() << "qmicli (libqmi-utils) is not installed";
  auto modem = modemsim::CreateStandardModem("");
  modemsim::QmuxServer server(*modem);
  const std::string link = testing::TempDir() + "qmux_qmicli_" + std::to_string(getpid());
  std::string error;
  ASSERT_TRUE(server.Start(link, &error)) << error;

  struct Row {
    const char *arg;
    const char *printed;  // in qmicli's output
    uint32_t service;
    uint16_t msg_id;     // the request the modem received
    const char *status;  // in the modem's `status --json` afterwards
  };
  const char kSim1Present[] = R"("slot":1,"card":"sim","state":"present")";
  const Row rows[] = {
      {"--sar-rf-set-state=3", "RF state set successfully", 0x11, 0x0001, R"("dsi":3)"},
      {"--sar-rf-get-state", "SAR RF state: 3", 0x11, 0x0002, R"("dsi":3)"},
      {"--sar-rf-set-state=0", "RF state set successfully", 0x11, 0x0001, R"("dsi":0)"},
      {"--uim-get-card-status", "Card state: 'present'", 0x0B, 0x002F, kSim1Present},
      {"--uim-sim-power-off=1", "SIM power off", 0x0B, 0x0030,
       R"("slot":1,"card":"sim","state":"absent")"},
      {"--uim-get-card-status", "Card state: 'absent'", 0x0B, 0x002F,
       R"("slot":1,"card":"sim","state":"absent")"},
      {"--uim-sim-power-on=1", "SIM power on", 0x0B, 0x0031, kSim1Present},
      {"--nas-get-system-selection-preference", "Successfully got system selection preference",
       0x03, 0x0034, R"("service":3,"instance":0,"up":true,"clients":0)"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.arg);
    modem->ClearReceived(row.service);
    std::string out;
    EXPECT_EQ(RunQmicli(qmicli, link, row.arg, &out), 0) << out;
    EXPECT_NE(out.find(row.printed), std::string::npos) << out;
    const auto received = modem->ReceivedBy(row.service);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].msg_id, row.msg_id);
    EXPECT_EQ(received[0].decode_status, 0) << "our table does not decode qmicli's request";
    // qmicli released its client id: the modem's client is gone.
    EXPECT_TRUE(modem->Clients(row.service).empty());
    std::string status;
    ASSERT_EQ(modemsim::RunControlCommand(*modem, {"--json", "status"}, &status), 0) << status;
    EXPECT_NE(status.find(row.status), std::string::npos) << status;
  }
  EXPECT_EQ(server.dropped_bytes(), 0u);
}

}  // namespace
