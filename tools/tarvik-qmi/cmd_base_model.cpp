// base-model: the modem's on-board model: its configuration, detection and indication switches,
// and what it has detected.
#include <string>
#include <vector>

#include "tarvik_base_model.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

bool ParseSwitch(Report &report, const std::string &text, uint8_t *on, int *exit_status) {
  if (text != "on" && text != "off") {
    *exit_status = report.Refuse("'" + text + "' is not on or off");
    return false;
  }
  *on = text == "on" ? 1 : 0;
  report.Add(Bool("on", *on != 0));
  return true;
}

int Finish(Report &report, uint32_t result) {
  return result != 0 ? report.Failed(Family::kFeature, static_cast<int32_t>(result)) : report.Ok();
}

int Cfg(Report &report, const Args &args) {
  std::vector<uint32_t> values;
  for (const auto &a : args) {
    unsigned long v = 0;
    if (!ParseNumber(a, UINT32_MAX, &v)) return report.Refuse("'" + a + "' is not a number");
    values.push_back(static_cast<uint32_t>(v));
  }
  report.Add(Nums("values", values));
  if (const int ready = Connect(report)) return ready;
  return Finish(
      report, tarvik_base_model_set_modem_cfg(values.data(), static_cast<uint32_t>(values.size())));
}

int Detection(Report &report, const Args &args) {
  uint8_t on = 0;
  int status = kExitOk;
  if (!ParseSwitch(report, args[0], &on, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  return Finish(report, tarvik_base_model_set_modem_model_detection_switch(on));
}

int Event(Report &report, const Args &args) {
  unsigned long event = 0;
  uint8_t on = 0;
  int status = kExitOk;
  if (!ParseNumber(args[0], UINT32_MAX, &event)) {
    return report.Refuse("event '" + args[0] + "' is not a number");
  }
  report.Add(Num("event", static_cast<long long>(event)));
  if (!ParseSwitch(report, args[1], &on, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  return Finish(report,
                tarvik_base_model_set_modem_event_ind_switch(static_cast<uint32_t>(event), on));
}

// reason, scene and dds: a list of values the modem has detected.
template <uint32_t (*Get)(uint32_t *, uint32_t *)>
int Values(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  uint32_t out[TARVIK_BASE_MODEL_REASON_CAPACITY];
  uint32_t len = sizeof(out) / sizeof(out[0]);
  const uint32_t result = Get(out, &len);
  if (result != 0) return report.Failed(Family::kFeature, static_cast<int32_t>(result));
  return report.Add(Nums("values", std::vector<uint32_t>(out, out + len))).Ok();
}

const Verb kVerbs[] = {
    {"cfg", "V [V...]", 1, 100, Cfg},
    {"detection", "on|off", 1, 1, Detection},
    {"event", "EVENT on|off", 2, 2, Event},
    {"reason", "", 0, 0, Values<tarvik_base_model_get_modem_reason>},
    {"scene", "", 0, 0, Values<tarvik_base_model_get_modem_scene>},
    {"dds", "", 0, 0, Values<tarvik_base_model_get_dds_assistant_info>},
};
TARVIK_COMMAND("base-model",
               "the modem's on-board model: configuration, switches, what it detected", kVerbs);

}  // namespace
}  // namespace tarvik_tool
