// sim: controls the simulated modem: fault injection, restarts, absent services, status. With
// --modem unix:PATH the command runs in tarvik-modemd (so it outlasts this process); otherwise
// in the embedded modem, which lives only as long as this command.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "command.h"
#include "modem_conn.h"
#include "modemsim/control.h"
#include "modemsim/socket_server.h"

namespace tarvik_tool {
namespace {

int RunSim(const Options &options, const Args &args) {
  if (args.empty()) return UsageError("sim");
  std::string out;
  int status;
  const std::string socket = DaemonSocket(options);
  if (!socket.empty()) {
    status = modemsim::SendControlCommand(socket, args, &out);
    if (status < 0) {
      fprintf(stderr, "tarvik-qmi: cannot reach tarvik-modemd at %s: %s\n", socket.c_str(),
              strerror(errno));
      return 1;
    }
  } else {
    const int prepared = PrepareModem(options);
    if (prepared != 0) return prepared;
    status = modemsim::RunControlCommand(*EmbeddedModem(), args, &out);
    if (status == 2) out += std::string("usage: ") + modemsim::ControlUsage() + "\n";
  }
  fputs(out.c_str(), status == 0 ? stdout : stderr);
  return status;
}

TARVIK_COMMAND("sim", "status|restart|absent|present|fault|clear ...",
               "control the simulated modem (faults, restarts)", RunSim);

}  // namespace
}  // namespace tarvik_tool
