// sim: controls the simulated modem: fault injection, restarts, absent services, indications,
// status. With --modem unix:PATH the command runs in tarvik-modemd (so it outlasts this process);
// otherwise in the embedded modem, which lives only as long as this command. `sim trace`
// follows tarvik-modemd's trace: every message its modem receives and sends, decoded.
#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <chrono>
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

// The modem's answer to a control command: its fields, or why it refused.
int Answered(Report &report, int status, std::string out) {
  if (report.options().json) {
    report.Add(Members(MembersOf(out), ""));
    return status == 0 ? report.Ok() : report.Failed(Family::kControl, status, status);
  }
  if (!out.empty() && out.back() == '\n') out.pop_back();
  if (status == 0) return report.Add(Members("", out)).Ok();
  fprintf(stderr, "tarvik-qmi: %s failed: %s\n", report.command().c_str(), out.c_str());
  return status;
}

std::string Unreachable(const std::string &socket) {
  return "cannot reach tarvik-modemd at " + socket + ": " + strerror(errno);
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
    if (status < 0) return report.Refuse(Unreachable(socket), kExitFailed);
  } else {
    if (const int ready = Connect(report)) return ready;
    if (EmbeddedModem() == nullptr) {
      return report.Refuse("sim commands reach a simulated modem: --modem unix:PATH", kExitUsage);
    }
    status = modemsim::RunControlCommand(*EmbeddedModem(), words, &out);
    if (status == 2 && !json) out += "usage: " + modemsim::ControlUsage(words) + "\n";
  }
  return Answered(report, status, out);
}

constexpr unsigned long kMaxTraceSeconds = 24 * 3600;
volatile sig_atomic_t g_interrupted = 0;

void OnInterrupt(int) {
  g_interrupted = 1;
}

// sim trace [SERVICE...] [--for SECONDS]: prints tarvik-modemd's trace entries as they come,
// until SECONDS have passed or an interrupt (Ctrl-C); a daemon that goes away ends it with exit
// status 1. The modem judges the services; the entries are its own lines or JSON objects.
int Trace(Report &report, const Args &args) {
  Args words;
  if (report.options().json) words.push_back("--json");
  words.push_back("trace");
  unsigned long seconds = 0;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--for") {
      words.push_back(args[i]);
    } else if (i + 1 >= args.size() || !ParseNumber(args[++i], kMaxTraceSeconds, &seconds) ||
               seconds == 0) {
      return report.Refuse("--for takes 1 to " + std::to_string(kMaxTraceSeconds) + " seconds");
    }
  }
  const std::string socket = DaemonSocket(report.options());
  if (socket.empty()) {
    return report.Refuse("a trace follows tarvik-modemd: give --modem unix:PATH", kExitUsage);
  }
  modemsim::TraceFollower follower;
  std::string verdict;
  const int status = follower.Start(socket, words, &verdict);
  if (status < 0) return report.Refuse(Unreachable(socket), kExitFailed);
  if (status != 0) return Answered(report, status, verdict);
  printf("%s", verdict.c_str());
  fflush(stdout);
  struct sigaction sa {};
  sa.sa_handler = OnInterrupt;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  long long entries = 0;
  std::string entry;
  while (!g_interrupted && (seconds == 0 || std::chrono::steady_clock::now() < deadline)) {
    const int got = follower.Next(&entry, 100);
    if (got < 0) {
      return report.Refuse("tarvik-modemd at " + socket + " went away: the trace ends",
                           kExitFailed);
    }
    if (got == 0) continue;
    ++entries;
    printf("%s\n", entry.c_str());
    fflush(stdout);
  }
  return report.Add(Num("entries", entries)).Ok();
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
      out.push_back(
          {u.first.c_str(), u.second.c_str(), 0, SIZE_MAX, u.first == "trace" ? Trace : Run});
    return out;
  }();
  return verbs;
}

const Registrar kSim(Command{"sim",
                             "controls the simulated modem: faults, restarts, indications, status",
                             Verbs().data(), Verbs().size()});

}  // namespace
}  // namespace tarvik_tool
