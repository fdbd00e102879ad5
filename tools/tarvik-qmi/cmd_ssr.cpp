// ssr-level, ssr: the platform's restart level (subsystem restart or full dump) and its backup,
// and the restart, crash and NV sync orders with the restart counts they keep.
#include <stdio.h>

#include <string>
#include <vector>

#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"
#include "tarvik_utils_cust.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

const char *const kTypeNames[] = {"default", "ssr", "dump", "invalid"};

Field Level() {
  char name[TARVIK_PROPERTY_BUF_SIZE];
  uint32_t len = sizeof(name);
  tarvik_get_modem_ssr_type_name(name, &len);
  return Str("level", name);
}

int LevelGet(Report &report, const Args &) {
  QuietLibrary();
  const uint32_t type = tarvik_get_modem_ssr_type();
  return report.Add({Num("type", type), Str("type_name", kTypeNames[type > 3 ? 3 : type]), Level()})
      .Ok();
}

int LevelSet(Report &report, const Args &args) {
  unsigned long type = 0;
  if (!ParseNumber(args[0], 2, &type)) {
    return report.Refuse("type '" + args[0] + "' is not 0 (default), 1 (ssr) or 2 (dump)");
  }
  QuietLibrary();
  const uint32_t changed = tarvik_set_modem_ssr_type(static_cast<uint32_t>(type));
  return report.Add({Bool("changed", changed != 0), Level()}).Ok();
}

int LevelName(Report &report, const Args &args) {
  unsigned long capacity = TARVIK_PROPERTY_BUF_SIZE;
  if (!args.empty() && !ParseNumber(args[0], TARVIK_PROPERTY_BUF_SIZE, &capacity)) {
    return report.Refuse("capacity '" + args[0] + "' is not a number up to 256");
  }
  QuietLibrary();
  char name[TARVIK_PROPERTY_BUF_SIZE] = {};
  uint32_t len = static_cast<uint32_t>(capacity);
  tarvik_get_modem_ssr_type_name(name, &len);
  if (capacity <= 1) return report.Refuse("the capacity must be above 1");
  return report.Add({Str("name", name), Num("len", len)}).Ok();
}

bool ParseFlag(Report &report, const Args &args, uint32_t *flag, int *exit_status) {
  unsigned long value = 0;
  if (!ParseNumber(args[0], UINT32_MAX, &value)) {
    *exit_status = report.Refuse("flag '" + args[0] + "' is not a number");
    return false;
  }
  *flag = static_cast<uint32_t>(value);
  report.Add(Num("flag", value));
  return true;
}

// The orders report nothing: the outcome is what the modem took (see `sim status`) and the log.
template <void (*Order)(uint32_t)>
int RunOrder(Report &report, const Args &args) {
  uint32_t flag = 0;
  int status = kExitOk;
  if (!ParseFlag(report, args, &flag, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  Order(flag);
  return report.Ok();
}

int NvSync(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  const uint32_t status = tarvik_modem_nv_sync();
  return status != 0 ? report.Failed(Family::kFeature, static_cast<int32_t>(status)) : report.Ok();
}

// The counts of the mask bits, and of any whole values given.
int Counts(Report &report, const Args &args) {
  std::vector<uint32_t> values;
  for (uint32_t bit : {0, 1, 2, 3, 4, 5, 6, 7, 8, 16, 17, 18, 19}) values.push_back(1u << bit);
  for (const auto &a : args) {
    unsigned long v = 0;
    if (!ParseNumber(a, UINT32_MAX, &v)) return report.Refuse("'" + a + "' is not a number");
    values.push_back(static_cast<uint32_t>(v));
  }
  QuietLibrary();
  std::string json, text;
  for (uint32_t v : values) {
    char name[64];
    snprintf(name, sizeof(name), "persist.radio.ssr_count_0x%08x", v);
    const int count = tarvik_get_property_value_from_int(name, nullptr, 0);
    json += (json.empty() ? "\"" : ",\"") + std::string(name + 24) + "\":" + std::to_string(count);
    text += (text.empty() ? "" : " ") + std::string(name + 24) + "=" + std::to_string(count);
  }
  return report.Add(Raw("counts", "{" + json + "}", text)).Ok();
}

int LegacyMask(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  return report.Add(Num("mask", tarvik_get_legacy_hook_update_mask())).Ok();
}

const Verb kLevelVerbs[] = {
    {"get", "", 0, 0, LevelGet},
    {"set", "0|1|2", 1, 1, LevelSet},
    {"name", "[CAPACITY]", 0, 1, LevelName},
};
TARVIK_COMMAND("ssr-level", "the restart level: 0 default (backup), 1 subsystem restart, 2 dump",
               kLevelVerbs);

const Verb kOrderVerbs[] = {
    {"restart", "FLAG", 1, 1, RunOrder<tarvik_modem_ssr>},
    {"crash", "FLAG", 1, 1, RunOrder<tarvik_modem_crash_without_orange_screen>},
    {"dump", "FLAG", 1, 1, RunOrder<tarvik_modem_crash_with_orange_screen>},
    {"nv-sync", "", 0, 0, NvSync},
    {"counts", "[VALUE...]", 0, 32, Counts},
    {"legacy-mask", "", 0, 0, LegacyMask},
};
TARVIK_COMMAND("ssr", "restart, crash (restart or dump) and NV sync orders; the restart counts",
               kOrderVerbs);

}  // namespace
}  // namespace tarvik_tool
