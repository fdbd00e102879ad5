// base-model: the modem's on-board model.
//   base-model cfg V [V...]               configuration vector (1 to 100 values)
//   base-model detection on|off
//   base-model event EVENT on|off         indication switch (0x12 reason, 0x14 scene)
//   base-model reason | scene | dds       what the modem has detected
#include <stdio.h>

#include <string>
#include <vector>

#include "command.h"
#include "tarvik_base_model.h"

namespace tarvik_tool {

bool ParseChannelNumber(const std::string &text, unsigned long max, unsigned long *value);
int FeatureConnect(const Options &options);
int FeatureFailed(const Options &options, const char *what, long status);

namespace {

bool ParseSwitch(const std::string &text, uint8_t *on) {
  if (text != "on" && text != "off") {
    return false;
  }
  *on = text == "on" ? 1 : 0;
  return true;
}

int PrintValues(const Options &options, const std::string &what, const uint32_t *v, uint32_t n) {
  if (options.json) {
    printf("{\"command\":\"%s\",\"status\":0,\"values\":[", what.c_str());
    for (uint32_t i = 0; i < n; ++i) {
      printf("%s%u", i > 0 ? "," : "", v[i]);
    }
    printf("]}\n");
  } else {
    printf("%s:", what.c_str());
    for (uint32_t i = 0; i < n; ++i) {
      printf(" %u", v[i]);
    }
    printf("\n");
  }
  return 0;
}

int RunBaseModel(const Options &options, const Args &args) {
  if (args.empty()) {
    return UsageError("base-model");
  }
  const std::string &verb = args[0];
  const std::string what = "base-model " + verb;
  std::vector<uint32_t> values;
  uint8_t on = 0;
  unsigned long event = 0;
  bool ok = false;
  if (verb == "cfg") {
    ok = args.size() >= 2;
    for (size_t i = 1; ok && i < args.size(); ++i) {
      unsigned long v = 0;
      ok = ParseChannelNumber(args[i], UINT32_MAX, &v);
      values.push_back(static_cast<uint32_t>(v));
    }
  } else if (verb == "detection") {
    ok = args.size() == 2 && ParseSwitch(args[1], &on);
  } else if (verb == "event") {
    ok = args.size() == 3 && ParseChannelNumber(args[1], UINT32_MAX, &event) &&
         ParseSwitch(args[2], &on);
  } else {
    ok = args.size() == 1 && (verb == "reason" || verb == "scene" || verb == "dds");
  }
  if (!ok) {
    return UsageError("base-model");
  }
  const int ready = FeatureConnect(options);
  if (ready != 0) {
    return ready;
  }
  uint32_t out[TARVIK_BASE_MODEL_REASON_CAPACITY];
  uint32_t len = sizeof(out) / sizeof(out[0]);
  uint32_t result = 0;
  if (verb == "cfg") {
    result = tarvik_base_model_set_modem_cfg(values.data(), static_cast<uint32_t>(values.size()));
  } else if (verb == "detection") {
    result = tarvik_base_model_set_modem_model_detection_switch(on);
  } else if (verb == "event") {
    result = tarvik_base_model_set_modem_event_ind_switch(static_cast<uint32_t>(event), on);
  } else if (verb == "reason") {
    result = tarvik_base_model_get_modem_reason(out, &len);
  } else if (verb == "scene") {
    result = tarvik_base_model_get_modem_scene(out, &len);
  } else {
    result = tarvik_base_model_get_dds_assistant_info(out, &len);
  }
  if (result != 0) {
    return FeatureFailed(options, what.c_str(), static_cast<long>(result));
  }
  if (verb == "reason" || verb == "scene" || verb == "dds") {
    return PrintValues(options, what, out, len);
  }
  if (options.json) {
    printf("{\"command\":\"%s\",\"status\":0}\n", what.c_str());
  } else {
    printf("%s: done\n", what.c_str());
  }
  return 0;
}

TARVIK_COMMAND("base-model", "cfg|detection|event|reason|scene|dds ...",
               "configures the modem's on-board model and reads what it detected", RunBaseModel);

}  // namespace
}  // namespace tarvik_tool
