// The tool's connection to a modem: the embedded simulated modem or tarvik-modemd.
#include "modem_conn.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "modemsim/modem.h"
#include "qmi_client_host.h"

namespace tarvik_tool {
namespace {
std::unique_ptr<modemsim::Modem> g_embedded;
bool g_prepared = false;
int g_status = 0;
}  // namespace

// --modem, else a unix:PATH in TARVIK_QMI_TRANSPORT, else "" (the embedded modem).
std::string ModemTarget(const Options &options) {
  if (!options.modem.empty()) return options.modem;
  const char *env = getenv("TARVIK_QMI_TRANSPORT");
  return env != nullptr && strncmp(env, "unix:", 5) == 0 ? env : "";
}

std::string DaemonSocket(const Options &options) {
  const std::string m = ModemTarget(options);
  return m.compare(0, 5, "unix:") == 0 ? m.substr(5) : std::string();
}

int PrepareModem(const Options &options) {
  if (g_prepared) return g_status;
  g_prepared = true;
  const std::string choice = ModemTarget(options);
  if (choice.empty()) {
    g_embedded = modemsim::CreateStandardModem(options.state_dir);
    g_embedded->ServeInProcess();
    g_status = qmi_client_host_select_transport("inproc") == QMI_NO_ERR ? 0 : 1;
    if (g_status != 0) fprintf(stderr, "tarvik-qmi: cannot start the embedded modem\n");
    return g_status;
  }
  if (DaemonSocket(options).empty()) {
    fprintf(stderr, "tarvik-qmi: --modem takes unix:PATH, not '%s'\n", choice.c_str());
    return g_status = 2;
  }
  if (qmi_client_host_select_transport(choice.c_str()) != QMI_NO_ERR) {
    fprintf(stderr, "tarvik-qmi: cannot reach tarvik-modemd at %s\n",
            DaemonSocket(options).c_str());
    return g_status = 1;
  }
  return g_status = 0;
}

modemsim::Modem *EmbeddedModem() {
  return g_embedded.get();
}

}  // namespace tarvik_tool
