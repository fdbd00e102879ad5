// mode: the modem's extend mode byte.
//   mode get
//   mode set VALUE
#include <stdio.h>

#include <string>

#include "command.h"
#include "tarvik_extend_cmn.h"

namespace tarvik_tool {

bool ParseChannelNumber(const std::string &text, unsigned long max, unsigned long *value);
int FeatureConnect(const Options &options);
int FeatureFailed(const Options &options, const char *what, long status);

namespace {

int RunMode(const Options &options, const Args &args) {
  unsigned long value = 0;
  const bool get = args.size() == 1 && args[0] == "get";
  const bool set = args.size() == 2 && args[0] == "set" && ParseChannelNumber(args[1], 255, &value);
  if (!get && !set) {
    return UsageError("mode");
  }
  const int ready = FeatureConnect(options);
  if (ready != 0) {
    return ready;
  }
  uint8_t mode = static_cast<uint8_t>(value);
  const uint32_t status = get ? tarvik_extend_mode_get(&mode) : tarvik_extend_mode_set(mode);
  if (status != 0) {
    return FeatureFailed(options, get ? "mode get" : "mode set", static_cast<int32_t>(status));
  }
  if (options.json) {
    printf("{\"mode\":%u}\n", mode);
  } else {
    printf("extend mode: %u\n", mode);
  }
  return 0;
}

TARVIK_COMMAND("mode", "get|set [VALUE]", "reads or sets the modem's extend mode byte", RunMode);

}  // namespace
}  // namespace tarvik_tool
