#include "served_modem.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "libqmi_judge.h"
#include "qmi_client_host.h"
#include "test_env.h"

namespace tarvik_test {

bool OverQmux() {
  const char *choice = getenv("TARVIK_TEST_TRANSPORT");
  return choice != nullptr && (strcmp(choice, "qmux") == 0 || strcmp(choice, "qmi-proxy") == 0);
}

bool OverQmiProxy() {
  const char *choice = getenv("TARVIK_TEST_TRANSPORT");
  return choice != nullptr && strcmp(choice, "qmi-proxy") == 0;
}

std::unique_ptr<modemsim::QmuxServer> Serve(modemsim::Modem &modem) {
  if (!OverQmux()) {
    modem.ServeInProcess();
    EXPECT_EQ(qmi_client_host_select_transport("inproc"), QMI_NO_ERR);
    return nullptr;
  }
  const std::string link = ScratchDir() + "/cdc-wdm";
  auto server = std::make_unique<modemsim::QmuxServer>(modem);
#ifdef TARVIK_LIBQMI_JUDGE
  server->SetFrameTap(JudgeFrame);
#endif
  std::string error;
  if (!server->Start(link, &error)) {
    ADD_FAILURE() << "cannot serve QMUX at " << link << ": " << error;
    return nullptr;
  }
  // Through the proxy, the library asks it to open the device, as ModemManager and qmicli -p
  // do; the proxy is started when none runs.
  const std::string choice = (OverQmiProxy() ? "qmi-proxy:" : "qmux:") + link;
  EXPECT_EQ(qmi_client_host_select_transport(choice.c_str()), QMI_NO_ERR) << choice;
  return server;
}

}  // namespace tarvik_test
