// mode: the modem's extend mode byte.
#include <string>

#include "tarvik_extend_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

int Get(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  uint8_t mode = 0;
  const uint32_t status = tarvik_extend_mode_get(&mode);
  if (status != 0) return report.Failed(Family::kFeature, static_cast<int32_t>(status));
  return report.Add(Num("mode", mode)).Ok();
}

int Set(Report &report, const Args &args) {
  unsigned long value = 0;
  if (!ParseNumber(args[0], 255, &value)) {
    return report.Refuse("mode '" + args[0] + "' is not a number from 0 to 255");
  }
  report.Add(Num("mode", static_cast<long long>(value)));
  if (const int ready = Connect(report)) return ready;
  const uint32_t status = tarvik_extend_mode_set(static_cast<uint8_t>(value));
  return status != 0 ? report.Failed(Family::kFeature, static_cast<int32_t>(status)) : report.Ok();
}

const Verb kVerbs[] = {{"get", "", 0, 0, Get}, {"set", "VALUE", 1, 1, Set}};
TARVIK_COMMAND("mode", "reads or sets the modem's extend mode byte", kVerbs);

}  // namespace
}  // namespace tarvik_tool
