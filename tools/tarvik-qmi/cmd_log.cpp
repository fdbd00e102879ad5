// log: writes one line through the library's logging (system log and standard output, each
// under its print mask).
#include <stdlib.h>

#include <string>

#include "command.h"
#include "tarvik_utils_cmn.h"

namespace tarvik_tool {
namespace {

int RunLog(const Options &, const Args &args) {
  std::string level = "debug";
  size_t first = 0;
  if (!args.empty() && (args[0] == "debug" || args[0] == "error")) {
    level = args[0];
    first = 1;
  }
  if (first >= args.size()) {
    return UsageError("log");
  }
  std::string message;
  for (size_t i = first; i < args.size(); ++i) {
    message += (i > first ? " " : "") + args[i];
  }
  if (level == "error") {
    TARVIK_LOGE("%s", message.c_str());
  } else {
    TARVIK_LOGD("%s", message.c_str());
  }
  return 0;
}

TARVIK_COMMAND("log", "[debug|error] MESSAGE...", "write a line through the library's logging",
               RunLog);

}  // namespace
}  // namespace tarvik_tool
