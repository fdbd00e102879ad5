// What every command of tarvik-qmi shares: options, the command and verb tables, argument
// parsing (numbers, hex), status names, the one report shape (text or JSON) and the connection
// to a modem.
//
// A command family is one file with a table of verbs and a TARVIK_COMMAND(...) line:
//
//   const Verb kVerbs[] = {{"read", "SUB ITEM", 2, 2, Read}, ...};
//   TARVIK_COMMAND("nv", "NV items of the modem", kVerbs);
//
// main() parses the global options (anywhere on the line), answers help, checks the verb and its
// argument count and calls the verb with a Report named "<command> <verb>".
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "modemsim/text.h"

namespace modemsim {
class Modem;
}

namespace tarvik_tool {

// Exit statuses of every command.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // the library, the modem or the daemon said no; efs exists/cmp:
                                // absent / different
constexpr int kExitUsage = 2;   // bad arguments: nothing was sent
constexpr int kExitError = 3;   // efs exists/cmp: no answer (transport, argument or modem error)

struct Options {
  bool json = false;  // --json: one JSON object on stdout, on success and on failure
  // --modem: "" (the embedded simulated modem), unix:PATH, qmux:PATH or qmi-proxy:PATH
  std::string modem;
  std::string state_dir;  // --state: where the embedded modem keeps its non-volatile data
  long instance = -1;     // --instance: the radio process instance id set first; -1: not set
};

using Args = std::vector<std::string>;

// Families of status codes: the same number means different things by who returned it.
enum class Family {
  kChannel,    // vendor channel: 0, -1..-5
  kFeature,    // modem features: -101..-109, 0x0FFFF00A/B/01, else the modem's result (QMI error)
  kNv,         // NV items: the feature codes, else the modem's NV status
  kFile,       // modem files: the feature codes, else the modem's file error (errno-like)
  kClient,     // QMI client library: -1..-21 and the codec's -40..-51
  kModem,      // the modem's QMI error codes (0x30 invalid argument, 0x5E not supported...)
  kControl,    // simulated modem control: 0 done, 1 refused, 2 usage
  kService,    // standard-service clients (NAS, SAR): -1 no client or no memory, else kClient
  kSensor,     // sensor client: -1 invalid argument, -2 no client, -3 the request failed
  kUim,        // UIM operations: the client codes, -1 no client/memory/record, -4 purge failed
  kBlacklist,  // five-tuple blacklist commands: 6, 500..505, -1 malformed request buffer
};

// "subscription invalid" for (kFeature, -104); "ok" for 0; a generic name for unknown codes.
std::string StatusName(Family family, long status);
// "subscription invalid (-104)"; positive codes in hex: "invalid argument (0x30)".
std::string StatusText(Family family, long status);

// Text and JSON forms of one output field.
struct Field {
  std::string key;
  std::string json;  // the JSON value
  std::string text;  // the text value
};
Field Num(const std::string &key, long long value);
Field Str(const std::string &key, const std::string &value);
Field Bool(const std::string &key, bool value);
Field Hex(const std::string &key, const void *data, size_t len);  // "-" in text when empty
Field Nums(const std::string &key, const std::vector<uint32_t> &values);
Field Raw(const std::string &key, const std::string &json, const std::string &text);
// Members of another JSON object ("a":1,"b":2) spliced into the report; `text` printed as it is.
Field Members(const std::string &json_members, const std::string &text);

// JSON strings, hex bytes and numbers are the control language's (modemsim/text.h).
using modemsim::HexOf;
using modemsim::JsonString;

// The outcome of one command, printed once: with --json one object {"command", "status",
// "status_name", fields...} on stdout, whatever the outcome; as text, "key: value" lines on
// stdout for a success and one "tarvik-qmi: COMMAND failed: NAME (CODE)" line on stderr for a
// failure.
class Report {
 public:
  Report(const Options &options, std::string command);
  const Options &options() const { return options_; }
  const std::string &command() const { return command_; }

  Report &Add(Field field);
  Report &Add(std::vector<Field> fields);

  // An answer: prints the fields with status 0 and returns `exit_status` (efs exists gives
  // kExitFailed for an absent file).
  int Ok(int exit_status = kExitOk);
  // An answer of one value: as text the value alone (for scripts, like getprop), as JSON a field.
  int OkValue(Field value);
  // A status that is not 0 (named by `family`); the fields added so far go to JSON only.
  int Failed(Family family, long status, int exit_status = kExitFailed);
  // What the tool itself refuses (arguments, local files, an unreachable daemon); nothing sent.
  int Refuse(const std::string &why, int exit_status = kExitUsage);

 private:
  void PrintJson(const std::string &status, const std::string &name) const;
  const Options &options_;
  std::string command_;
  std::vector<Field> fields_;
};

// --- arguments ---
// Decimal or 0x-hex, the whole word, within [0, max]; hex digits in pairs or "-" for nothing
// (on failure *why says what is wrong).
using modemsim::ParseHex;
using modemsim::ParseNumber;
// A subscription (0, 1 or 2 on the wire; the library decides which it accepts) into *sub.
bool ParseSub(Report &report, const std::string &text, uint32_t *sub, int *exit_status);

// --- commands ---
struct Verb {
  const char *name;   // "" for a command taking no verb
  const char *usage;  // the arguments after the verb
  size_t min_args;    // after the verb
  size_t max_args;    // after the verb; SIZE_MAX for any number
  int (*run)(Report &report, const Args &args);
};

struct Command {
  const char *name;     // first word on the command line
  const char *summary;  // one line for the help text
  const Verb *verbs;
  size_t verb_count;
};

void RegisterCommand(const Command &command);
const std::vector<Command> &Commands();

struct Registrar {
  explicit Registrar(const Command &command) { RegisterCommand(command); }
};

// --- the modem ---
// Quiets the library's standard-output trace and reaches the modem; kExitOk when ready,
// otherwise refuses through `report` (daemon unreachable: kExitFailed, bad --modem: kExitUsage).
int Connect(Report &report);
// The embedded modem after Connect; nullptr with --modem unix:PATH.
modemsim::Modem *EmbeddedModem();
// The daemon's socket path (from --modem or TARVIK_QMI_TRANSPORT), or "" for the embedded modem.
std::string DaemonSocket(const Options &options);
// The library traces every step to standard output under the shell print mask; the tool's own
// output must stay readable (and parseable with --json). The system log keeps the trace.
void QuietLibrary();

}  // namespace tarvik_tool

#define TARVIK_TOOL_CONCAT_(a, b) a##b
#define TARVIK_TOOL_CONCAT(a, b) TARVIK_TOOL_CONCAT_(a, b)
#define TARVIK_COMMAND(name, summary, verbs)                                      \
  static const ::tarvik_tool::Registrar TARVIK_TOOL_CONCAT(g_command_, __LINE__)( \
      ::tarvik_tool::Command{name, summary, verbs, sizeof(verbs) / sizeof(verbs[0])})
