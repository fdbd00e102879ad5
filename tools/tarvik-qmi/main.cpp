// tarvik-qmi: the service tool. Reaches the modem through libtarvik_qmi, by default against an
// embedded simulated modem, or against tarvik-modemd with --modem unix:PATH.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "command.h"

namespace tarvik_tool {

namespace {
std::vector<Command> &Registry() {
  static auto *commands = new std::vector<Command>();
  return *commands;
}

void PrintHelp(FILE *out) {
  fprintf(
      out,
      "usage: tarvik-qmi [--json] [--modem unix:PATH] [--state DIR] <command> [args...]\n\n"
      "global options:\n"
      "  --json           machine-readable output\n"
      "  --modem TARGET   modem to talk to: unix:PATH for tarvik-modemd (default: the\n"
      "                   embedded simulated modem)\n"
      "  --state DIR      state directory of the embedded modem (default: TARVIK_MODEM_STATE)\n\n"
      "commands:\n");
  auto commands = Commands();
  std::sort(commands.begin(), commands.end(),
            [](const Command &a, const Command &b) { return strcmp(a.name, b.name) < 0; });
  for (const auto &c : commands) {
    fprintf(out, "  %-12s %-28s %s\n", c.name, c.usage, c.summary);
  }
}
}  // namespace

void RegisterCommand(const Command &command) {
  Registry().push_back(command);
}
const std::vector<Command> &Commands() {
  return Registry();
}

int UsageError(const Command &command) {
  fprintf(stderr, "usage: tarvik-qmi %s %s\n", command.name, command.usage);
  return 2;
}

int UsageError(const char *name) {
  for (const auto &c : Commands()) {
    if (strcmp(c.name, name) == 0) {
      return UsageError(c);
    }
  }
  fprintf(stderr, "tarvik-qmi: unknown command '%s'\n", name);
  return 2;
}

}  // namespace tarvik_tool

int main(int argc, char **argv) {
  using namespace tarvik_tool;
  Options options;
  const char *state = getenv("TARVIK_MODEM_STATE");
  if (state != nullptr) {
    options.state_dir = state;
  }
  int i = 1;
  for (; i < argc && strncmp(argv[i], "--", 2) == 0; ++i) {
    const std::string opt = argv[i];
    if (opt == "--json") {
      options.json = true;
    } else if ((opt == "--modem" || opt == "--state") && i + 1 < argc) {
      (opt == "--modem" ? options.modem : options.state_dir) = argv[++i];
    } else if (opt == "--help") {
      PrintHelp(stdout);
      return 0;
    } else {
      fprintf(stderr, "tarvik-qmi: unknown option '%s'\n", opt.c_str());
      PrintHelp(stderr);
      return 2;
    }
  }
  if (i >= argc) {
    PrintHelp(stderr);
    return 2;
  }
  const std::string name = argv[i];
  const Args args(argv + i + 1, argv + argc);
  for (const auto &c : Commands()) {
    if (name == c.name) {
      return c.run(options, args);
    }
  }
  fprintf(stderr, "tarvik-qmi: unknown command '%s'\n", name.c_str());
  PrintHelp(stderr);
  return 2;
}
