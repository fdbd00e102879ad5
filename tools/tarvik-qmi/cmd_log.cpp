// log: writes one line through the library's logging (system log and standard output, each
// under its print mask).
#include <string>

#include "tarvik_utils_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

std::string Join(const Args &args, size_t first) {
  std::string message;
  for (size_t i = first; i < args.size(); ++i) message += (i > first ? " " : "") + args[i];
  return message;
}

// As text the library's own standard-output line is the output; with --json the report is.
int Write(Report &report, const Args &args, bool error) {
  const std::string message = Join(args, 0);
  if (report.options().json) QuietLibrary();
  if (error) {
    TARVIK_LOGE("%s", message.c_str());
  } else {
    TARVIK_LOGD("%s", message.c_str());
  }
  if (!report.options().json) return kExitOk;
  return report.Add({Str("level", error ? "error" : "debug"), Str("message", message)}).Ok();
}

int Debug(Report &report, const Args &args) {
  return Write(report, args, false);
}
int Error(Report &report, const Args &args) {
  return Write(report, args, true);
}

const Verb kVerbs[] = {
    {"debug", "MESSAGE...", 1, SIZE_MAX, Debug},
    {"error", "MESSAGE...", 1, SIZE_MAX, Error},
    {"", "MESSAGE...", 1, SIZE_MAX, Debug},  // debug when no level is named
};
TARVIK_COMMAND("log", "writes a line through the library's logging (debug or error level)", kVerbs);

}  // namespace
}  // namespace tarvik_tool
