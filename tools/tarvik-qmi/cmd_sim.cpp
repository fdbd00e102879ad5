// sim: controls the simulated modem: fault injection, restarts, absent services, indications,
// status. With --modem unix:PATH the command runs in tarvik-modemd (so it outlasts this process);
// otherwise in the embedded modem, which lives only as long as this command.
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <utility>
#include <vector>

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
    if (status == 2 && !json) out += "usage: " + modemsim::ControlUsage(words) + "\n";
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

// The verbs are the modem's control words, their usage the modem's own: the tool forwards the
// words and the modem judges them. Words registered as two ("set restart-down-ms") are one verb
// here with their usages joined.
const std::vector<Verb> &Verbs() {
  static const std::vector<Verb> verbs = [] {
    static std::vector<std::pair<std::string, std::string>> usages;
    for (const modemsim::ControlWord &w : modemsim::ControlWords()) {
      std::string word = w.word, usage = w.usage;
      const size_t space = word.find(' ');
      if (space != std::string::npos) {
        usage = word.substr(space + 1) + (usage.empty() ? "" : " " + usage);
        word.resize(space);
      }
      if (!usages.empty() && usages.back().first == word) {
        usages.back().second += " | " + usage;
      } else {
        usages.emplace_back(word, usage);
      }
    }
    std::vector<Verb> out;
    for (const auto &u : usages)
      out.push_back({u.first.c_str(), u.second.c_str(), 0, SIZE_MAX, Run});
    return out;
  }();
  return verbs;
}

const Registrar kSim(Command{"sim",
                             "controls the simulated modem: faults, restarts, indications, status",
                             Verbs().data(), Verbs().size()});

}  // namespace
}  // namespace tarvik_tool
