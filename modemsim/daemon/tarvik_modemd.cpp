// tarvik-modemd: hosts the standard simulated modem for other processes over a Unix socket
// and/or as a QMUX device on a pseudo-terminal.
//
//   tarvik-modemd [--socket PATH] [--qmux PATH] [--state DIR]
//
// Runs until SIGTERM or SIGINT. Faults and restarts are injected through the socket
// (tarvik-qmi --modem unix:PATH sim ...).
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "modemsim/modem.h"
#include "modemsim/qmux_server.h"
#include "modemsim/socket_server.h"

namespace {

constexpr const char kUsage[] =
    "usage: tarvik-modemd [--socket PATH] [--qmux PATH] [--state DIR]\n"
    "\n"
    "Hosts the simulated modem for other processes until SIGTERM or SIGINT.\n"
    "  --socket PATH  Unix socket to serve on. A stale socket there (nobody answers on it) is\n"
    "                 replaced; a file, a directory or another daemon's socket is refused.\n"
    "  --qmux PATH    also serve QMUX, as a QMI character device does, on a pseudo-terminal\n"
    "                 that PATH becomes a symbolic link to (for qmicli -d PATH or\n"
    "                 TARVIK_QMI_TRANSPORT=qmux:PATH). Only a stale link to a pseudo-terminal\n"
    "                 at PATH is replaced; anything else there is refused.\n"
    "  --state DIR    keep the modem's non-volatile data (NV items, modem files) in DIR\n"
    "                 (default: memory only)\n"
    "  --help         print this and exit\n"
    "At least one of --socket and --qmux is needed.\n"
    "Exit status: 0 after a stop signal, 1 when PATH cannot be served, 2 for bad arguments.\n";

int Usage(const char *problem) {
  fprintf(stderr, "tarvik-modemd: %s\n%s", problem, kUsage);
  return 2;
}

}  // namespace

int main(int argc, char **argv) {
  std::string socket_path, qmux_path, state_dir;
  for (int i = 1; i < argc; ++i) {
    const std::string opt = argv[i];
    if (opt == "--help" || opt == "-h") {
      fputs(kUsage, stdout);
      return 0;
    }
    std::string *value = opt == "--socket"  ? &socket_path
                         : opt == "--qmux"  ? &qmux_path
                         : opt == "--state" ? &state_dir
                                            : nullptr;
    if (value == nullptr) return Usage(("unknown option " + opt).c_str());
    if (i + 1 >= argc) return Usage((opt + " needs a value").c_str());
    *value = argv[++i];
  }
  if (socket_path.empty() && qmux_path.empty()) return Usage("--socket or --qmux is required");
  // Signals are taken synchronously by this thread; every other thread inherits the mask.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  auto modem = modemsim::CreateStandardModem(state_dir);
  modemsim::SocketServer server(*modem);
  modemsim::QmuxServer qmux(*modem);
  std::string error;
  for (const std::string *path : {&socket_path, &qmux_path}) {
    if (path->empty()) continue;
    const bool ok = path == &socket_path ? server.Start(*path, &error) : qmux.Start(*path, &error);
    if (!ok) {
      fprintf(stderr, "tarvik-modemd: cannot serve on %s: %s\n", path->c_str(), error.c_str());
      return 1;
    }
    printf("tarvik-modemd: serving %zu service(s) on %s\n", modem->Status().size(), path->c_str());
  }
  fflush(stdout);
  int sig = 0;
  sigwait(&stop_signals, &sig);
  qmux.Stop();
  server.Stop();
  return 0;
}
