// tarvik-modemd: hosts the standard simulated modem for other processes over a Unix socket.
//
//   tarvik-modemd --socket PATH [--state DIR]
//
// Runs until SIGTERM or SIGINT. Faults and restarts are injected through the same socket
// (tarvik-qmi --modem unix:PATH sim ...).
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "modemsim/modem.h"
#include "modemsim/socket_server.h"

int main(int argc, char **argv) {
  std::string socket_path, state_dir;
  for (int i = 1; i < argc; ++i) {
    const std::string opt = argv[i];
    if ((opt == "--socket" || opt == "--state") && i + 1 < argc) {
      (opt == "--socket" ? socket_path : state_dir) = argv[++i];
    } else {
      fprintf(stderr, "usage: tarvik-modemd --socket PATH [--state DIR]\n");
      return 2;
    }
  }
  if (socket_path.empty()) {
    fprintf(stderr, "usage: tarvik-modemd --socket PATH [--state DIR]\n");
    return 2;
  }
  // Signals are taken synchronously by this thread; every other thread inherits the mask.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  auto modem = modemsim::CreateStandardModem(state_dir);
  modemsim::SocketServer server(*modem);
  if (!server.Start(socket_path)) {
    fprintf(stderr, "tarvik-modemd: cannot listen on %s: %s\n", socket_path.c_str(),
            strerror(errno));
    return 1;
  }
  printf("tarvik-modemd: serving %zu service(s) on %s\n", modem->Status().size(),
         socket_path.c_str());
  fflush(stdout);
  int sig = 0;
  sigwait(&stop_signals, &sig);
  server.Stop();
  return 0;
}
