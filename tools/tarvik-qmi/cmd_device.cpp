// device, build, start-service: what a service engineer asks first about a device (its identity,
// SIM configuration and build classification), read through the library from the same property
// store the radio process uses, and a service start request through init's "ctl.start".
#include <stdio.h>

#include <string>
#include <vector>

#include "command.h"
#include "tarvik_utils_cmn.h"

namespace tarvik_tool {
namespace {

struct Field {
  const char *label;  // text output
  const char *key;    // JSON key
  std::string value;
  bool quoted;  // JSON: a string rather than a number or boolean
};

std::string Quote(const std::string &text) {
  std::string out;
  out.reserve(text.size() + 2);
  out.push_back('"');
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c >= 0x20 && c != '"' && c != '\\') {
      out.push_back(ch);
      continue;
    }
    char esc[8];
    snprintf(esc, sizeof esc, c < 0x20 ? "\\u%04x" : "\\%c", c);
    out += esc;
  }
  out.push_back('"');
  return out;
}

void Print(const Options &options, const std::vector<Field> &fields) {
  if (!options.json) {
    for (const auto &f : fields) {
      printf("%-22s %s\n", f.label, f.value.c_str());
    }
    return;
  }
  printf("{");
  for (size_t i = 0; i < fields.size(); ++i) {
    const auto &f = fields[i];
    printf("%s\"%s\":%s", i ? "," : "", f.key, f.quoted ? Quote(f.value).c_str() : f.value.c_str());
  }
  printf("}\n");
}

Field Text(const char *label, const char *key, const char *value) {
  return {label, key, value != nullptr ? value : "", true};
}
Field Number(const char *label, const char *key, long long value) {
  return {label, key, std::to_string(value), false};
}
Field Flag(const Options &options, const char *label, const char *key, bool value) {
  return {label, key, options.json ? (value ? "true" : "false") : (value ? "yes" : "no"), false};
}

// The library traces every property read to standard output under the shell print mask; the
// tool's own output must stay readable (and parseable with --json). The system log still gets
// the trace.
void QuietLibrary() {
  tarvik_hal_set_shell_print_mask(0);
}

int RunDevice(const Options &options, const Args &args) {
  if (!args.empty()) {
    return UsageError("device");
  }
  QuietLibrary();
  std::vector<Field> fields = {
      Text("device", "device", tarvik_device_name_get()),
      Text("odm device", "odm_device", tarvik_odm_device_get()),
      Text("odm name", "odm_name", tarvik_odm_name_get()),
      Text("build region", "build_region", tarvik_build_region_get()),
      Text("vendor build region", "vendor_build_region", tarvik_vendor_build_region_get()),
      Number("manufacturer id", "manufacturer_id", tarvik_get_tarvik_manufacturer_id()),
      Number("hal chip id", "hal_chip_id", tarvik_get_modem_hal_chip_id()),
      Number("bp chip id", "bp_chip_id", tarvik_get_modem_bp_chip_id()),
      Number("device type", "device_type", tarvik_get_tarvik_device_type()),
      Flag(options, "single sim", "single_sim", tarvik_get_single_sim_flag()),
      Flag(options, "sim present sub0", "sim_present_sub0", tarvik_sim_card_is_present(0)),
      Flag(options, "sim present sub1", "sim_present_sub1", tarvik_sim_card_is_present(1)),
      Number("default data sub", "default_data_sub", tarvik_get_default_data_sub()),
      Number("active call sub", "active_call_sub", tarvik_get_active_call_sub()),
      Number("gps type", "gps_type", tarvik_modem_get_gps_type()),
  };
  Print(options, fields);
  return 0;
}

const char *BuildTypeName(uint32_t type) {
  static const char *const names[] = {"?",      "PRE",    "FACTORY", "CERT",
                                      "STABLE", "NATIVE", "DEV",     "BETA"};
  return type < sizeof(names) / sizeof(names[0]) ? names[type] : "?";
}

int RunBuild(const Options &options, const Args &args) {
  if (!args.empty()) {
    return UsageError("build");
  }
  QuietLibrary();
  const uint32_t type = tarvik_build_type_get();
  std::vector<Field> fields = {
      Number("build type", "build_type", type),
      Text("build type name", "build_type_name", BuildTypeName(type)),
  };
  struct Check {
    const char *label;
    const char *key;
    bool (*fn)(void);
  };
  static const Check checks[] = {
      {"factory", "factory", tarvik_is_factory_version},
      {"factory profile", "factory_profile", tarvik_is_factory_version_ex},
      {"certification", "cert", tarvik_is_cert_version},
      {"ct certification", "ct_cert", tarvik_is_ct_cert_version},
      {"cmcc certification", "cm_cert", tarvik_is_cm_cert_version},
      {"cu certification", "cu_cert", tarvik_is_cu_cert_version},
      {"china", "china", tarvik_is_china_version},
      {"test keys", "test_build", tarvik_is_test_build},
      {"native", "native", tarvik_is_native_version},
      {"phone os (profile)", "ravu", tarvik_is_ravu_version},
      {"phone os (region)", "ravu_region", tarvik_is_ravu_version_ex},
      {"debuggable", "root", tarvik_is_root_version},
      {"mass production", "mp", tarvik_is_mp_version},
      {"user build", "user", tarvik_is_user_version},
      {"pre-release", "pre", tarvik_is_pre_version},
      {"development", "dev", tarvik_is_dev_version},
      {"stable", "stable", tarvik_is_stable_version},
  };
  for (const auto &c : checks) {
    fields.push_back(Flag(options, c.label, c.key, c.fn()));
  }
  Print(options, fields);
  return 0;
}

int RunStartService(const Options &options, const Args &args) {
  if (args.size() != 1) {
    return UsageError("start-service");
  }
  QuietLibrary();
  const int result = tarvik_start_service(args[0].c_str());
  if (options.json) {
    Print(options, {Text("", "service", args[0].c_str()), Number("", "result", result)});
  } else if (result != 0) {
    fprintf(stderr, "tarvik-qmi: start-service %s failed (%d)\n", args[0].c_str(), result);
  }
  return result == 0 ? 0 : 1;
}

TARVIK_COMMAND("device", "", "device identity, SIM configuration and subscriptions", RunDevice);
TARVIK_COMMAND("build", "", "build type and build classification checks", RunBuild);
TARVIK_COMMAND("start-service", "NAME", "ask init to start a service (ctl.start)", RunStartService);

}  // namespace
}  // namespace tarvik_tool
