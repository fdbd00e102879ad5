// tarvik-qmi: the service tool. Reaches the modem through libtarvik_qmi, by default against an
// embedded simulated modem, or against tarvik-modemd with --modem unix:PATH.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "tarvik_utils_cmn.h"
#include "tool.h"

#ifndef TARVIK_TOOL_VERSION
#define TARVIK_TOOL_VERSION "0.1"
#endif

namespace tarvik_tool {

namespace {
std::vector<Command> &Registry() {
  static auto *commands = new std::vector<Command>();
  return *commands;
}

const Command *FindCommand(const std::string &name) {
  for (const auto &c : Commands()) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

void PrintCommandUsage(FILE *out, const Command &c) {
  for (size_t i = 0; i < c.verb_count; ++i) {
    const Verb &v = c.verbs[i];
    fprintf(out, "  tarvik-qmi %s%s%s%s%s\n", c.name, *v.name ? " " : "", v.name,
            *v.usage ? " " : "", v.usage);
  }
}

void PrintHelp(FILE *out) {
  fprintf(out,
          "usage: tarvik-qmi [OPTIONS] COMMAND [ARGS...]   (options may also follow the command)\n"
          "       tarvik-qmi help [COMMAND]\n\n"
          "options:\n"
          "  --json           one JSON object on stdout: command, status, status_name, fields\n"
          "  --modem TARGET   modem to talk to: unix:PATH for tarvik-modemd, qmux:PATH for a\n"
          "                   QMI device (/dev/cdc-wdm0, tarvik-modemd --qmux), qmi-proxy:PATH\n"
          "                   for one shared through libqmi's qmi-proxy (as ModemManager holds\n"
          "                   it) (default: the embedded simulated modem)\n"
          "  --state DIR      state directory of the embedded modem (default: TARVIK_MODEM_STATE)\n"
          "  --instance ID    radio process instance id (the subscription this process serves:\n"
          "                   0 or 1), set before anything else; nas binds to it\n"
          "  -h, --help       this text; --version: the tool's version\n\n"
          "exit status: 0 done, 1 failed (efs exists/cmp: absent/different), 2 bad arguments,\n"
          "3 efs exists/cmp could not answer\n\n"
          "commands:\n");
  auto commands = Commands();
  std::sort(commands.begin(), commands.end(),
            [](const Command &a, const Command &b) { return strcmp(a.name, b.name) < 0; });
  for (const auto &c : commands) fprintf(out, "  %-14s %s\n", c.name, c.summary);
}

int Help(const std::string &topic) {
  if (topic.empty()) {
    PrintHelp(stdout);
    return kExitOk;
  }
  const Command *c = FindCommand(topic);
  if (c == nullptr) {
    fprintf(stderr, "tarvik-qmi: no command '%s' (tarvik-qmi help lists them)\n", topic.c_str());
    return kExitUsage;
  }
  printf("%s: %s\n", c->name, c->summary);
  PrintCommandUsage(stdout, *c);
  return kExitOk;
}

// Runs `command` with the words after its name.
int Dispatch(const Options &options, const Command &command, const Args &words) {
  const Verb *verb = nullptr;
  size_t first = 0;
  for (size_t i = 0; i < command.verb_count; ++i) {
    const Verb &v = command.verbs[i];
    if (*v.name == '\0' || (!words.empty() && words[0] == v.name)) {
      verb = &v;
      first = *v.name == '\0' ? 0 : 1;
      break;
    }
  }
  const std::string label =
      verb != nullptr && *verb->name ? std::string(command.name) + " " + verb->name : command.name;
  Report report(options, label);
  if (verb == nullptr) {
    if (!options.json) PrintCommandUsage(stderr, command);
    return report.Refuse(words.empty()
                             ? "needs a verb (tarvik-qmi help " + std::string(command.name) + ")"
                             : "no verb '" + words[0] + "' (tarvik-qmi help " + command.name + ")");
  }
  const Args args(words.begin() + static_cast<long>(first), words.end());
  if (args.size() < verb->min_args || args.size() > verb->max_args) {
    return report.Refuse(std::string("takes ") + (*verb->usage ? verb->usage : "no arguments") +
                         " (" + std::to_string(args.size()) + " given)");
  }
  return verb->run(report, args);
}

}  // namespace

void RegisterCommand(const Command &command) {
  Registry().push_back(command);
}
const std::vector<Command> &Commands() {
  return Registry();
}

}  // namespace tarvik_tool

int main(int argc, char **argv) {
  using namespace tarvik_tool;
  Options options;
  const char *state = getenv("TARVIK_MODEM_STATE");
  if (state != nullptr) options.state_dir = state;
  // Global options anywhere until "--"; everything else is the command and its words.
  Args words;
  bool help = false, version = false, options_done = false;
  for (int i = 1; i < argc; ++i) {
    const std::string w = argv[i];
    if (options_done) {
      words.push_back(w);
    } else if (w == "--") {
      options_done = true;
    } else if (w == "--json") {
      options.json = true;
    } else if (w == "--instance") {
      unsigned long id = 0;
      if (i + 1 >= argc || !ParseNumber(argv[i + 1], 0xFFFFFFFFul, &id)) {
        fprintf(stderr, "tarvik-qmi: --instance takes a number\n");
        return kExitUsage;
      }
      options.instance = static_cast<long>(id);
      ++i;
    } else if (w == "--modem" || w == "--state") {
      if (i + 1 >= argc) {
        fprintf(stderr, "tarvik-qmi: %s takes a value\n", w.c_str());
        return kExitUsage;
      }
      (w == "--modem" ? options.modem : options.state_dir) = argv[++i];
    } else if (w == "--help" || w == "-h") {
      help = true;
    } else if (w == "--version") {
      version = true;
    } else {
      words.push_back(w);
    }
  }
  // The process's identity comes first: every later log line and client binding uses it.
  if (options.instance >= 0)
    tarvik_set_ril_process_instance_id(static_cast<uint32_t>(options.instance));
  if (version) {
    printf("tarvik-qmi %s\n", TARVIK_TOOL_VERSION);
    return kExitOk;
  }
  if (!words.empty() && words[0] == "help") {
    return Help(words.size() > 1 ? words[1] : "");
  }
  if (help) return Help(words.empty() ? "" : words[0]);
  if (words.empty()) {
    PrintHelp(stderr);
    return kExitUsage;
  }
  const Command *command = FindCommand(words[0]);
  if (command == nullptr) {
    fprintf(stderr, "tarvik-qmi: unknown command '%s' (tarvik-qmi help lists them)\n",
            words[0].c_str());
    return kExitUsage;
  }
  return Dispatch(options, *command, Args(words.begin() + 1, words.end()));
}
