// Commands of tarvik-qmi. Each service area has a file of its own that registers its commands
// with a static TARVIK_COMMAND(...) object; main() parses the global options and dispatches.
#pragma once

#include <string>
#include <vector>

namespace tarvik_tool {

struct Options {
  bool json = false;      // --json: machine-readable output for scripts
  std::string modem;      // --modem: "" (embedded simulated modem) or unix:PATH
  std::string state_dir;  // --state: where the embedded modem keeps its non-volatile data
};

using Args = std::vector<std::string>;

struct Command {
  const char *name;                                      // first word on the command line
  const char *usage;                                     // arguments after the name
  const char *summary;                                   // one line for the help text
  int (*run)(const Options &options, const Args &args);  // exit status
};

void RegisterCommand(const Command &command);
const std::vector<Command> &Commands();

// Prints "usage: tarvik-qmi <name> <usage>" to stderr and returns the exit status 2.
int UsageError(const Command &command);
int UsageError(const char *name);

struct Registrar {
  explicit Registrar(const Command &command) { RegisterCommand(command); }
};

}  // namespace tarvik_tool

#define TARVIK_TOOL_CONCAT_(a, b) a##b
#define TARVIK_TOOL_CONCAT(a, b) TARVIK_TOOL_CONCAT_(a, b)
#define TARVIK_COMMAND(...)                                 \
  static const ::tarvik_tool::Registrar TARVIK_TOOL_CONCAT( \
      g_command_, __LINE__)(::tarvik_tool::Command{__VA_ARGS__})
