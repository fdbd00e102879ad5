// sim: controls the simulated modem: fault injection, restarts, absent services, indications,
// status. With --modem unix:PATH the command runs in tarvik-modemd (so it outlasts this process);
// otherwise in the embedded modem, which lives only as long as this command.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "modemsim/control.h"
#include "modemsim/socket_server.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

// The control command's JSON object without its braces (its first line: a daemon adds the usage
// after it).
std::string MembersOf(const std::string &out) {
  const std::string line = out.substr(0, out.find('\n'));
  if (line.size() < 2 || line.front() != '{' || line.back() != '}') return "";
  return line.substr(1, line.size() - 2);
}

int Run(Report &report, const Args &args) {
  const bool json = report.options().json;
  Args words;
  if (json) words.push_back("--json");
  words.push_back(report.command().substr(report.command().find(' ') + 1));
  words.insert(words.end(), args.begin(), args.end());
  std::string out;
  int status;
  const std::string socket = DaemonSocket(report.options());
  if (!socket.empty()) {
    status = modemsim::SendControlCommand(socket, words, &out);
    if (status < 0) {
      return report.Refuse("cannot reach tarvik-modemd at " + socket + ": " + strerror(errno),
                           kExitFailed);
    }
  } else {
    if (const int ready = Connect(report)) return ready;
    if (EmbeddedModem() == nullptr) {
      return report.Refuse("sim commands reach a simulated modem: --modem unix:PATH", kExitUsage);
    }
    status = modemsim::RunControlCommand(*EmbeddedModem(), words, &out);
    if (status == 2 && !json) out += std::string("usage: ") + modemsim::ControlUsage() + "\n";
  }
  if (json) {
    report.Add(Members(MembersOf(out), ""));
    return status == 0 ? report.Ok() : report.Failed(Family::kControl, status, status);
  }
  if (!out.empty() && out.back() == '\n') out.pop_back();
  if (status == 0) return report.Add(Members("", out)).Ok();
  fprintf(stderr, "tarvik-qmi: %s failed: %s\n", report.command().c_str(), out.c_str());
  return status;
}

const Verb kVerbs[] = {
    {"status", "", 0, 0, Run},
    {"restart", "SERVICE [DOWN_MS]", 1, 2, Run},
    {"absent", "SERVICE", 1, 1, Run},
    {"present", "SERVICE", 1, 1, Run},
    {"fault", "SERVICE MSG|any noanswer|delay MS|result QMI_ERROR|transport [-ERR] [COUNT]", 3, 5,
     Run},
    {"clear", "SERVICE", 1, 1, Run},
    {"indicate", "SERVICE MSG HEX|-", 3, 3, Run},
    {"event", "EVENT [HEX]", 1, 2, Run},
    {"profile", "", 0, 0, Run},
    {"set",
     "chipset-id|hw-id|bp-chip-id|cdma|dsda|cust-max|restart-down-ms N | string TYPE TEXT | "
     "record TYPE HEX",
     2, 64, Run},
    {"mcfg-event", "[HEX]", 0, 1, Run},
    {"card",
     "SLOT none|sim|euicc EID|present|absent|error|switch on|off | slots N | purge "
     "purged|failed|silent [MS]",
     2, 3, Run},
};
TARVIK_COMMAND("sim", "controls the simulated modem: faults, restarts, indications, status",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
