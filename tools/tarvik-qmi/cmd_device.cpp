// device, build, start-service: what a service engineer asks first about a device (its identity,
// SIM configuration and build classification), read through the library from the same property
// store the radio process uses, and a service start request through init's "ctl.start".
#include <string>
#include <vector>

#include "tarvik_utils_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

Field Text(const char *key, const char *value) {
  return Str(key, value != nullptr ? value : "");
}

int Device(Report &report, const Args &) {
  QuietLibrary();
  return report
      .Add({
          Text("device", tarvik_device_name_get()),
          Text("odm_device", tarvik_odm_device_get()),
          Text("odm_name", tarvik_odm_name_get()),
          Text("build_region", tarvik_build_region_get()),
          Text("vendor_build_region", tarvik_vendor_build_region_get()),
          Num("manufacturer_id", tarvik_get_tarvik_manufacturer_id()),
          Num("hal_chip_id", tarvik_get_modem_hal_chip_id()),
          Num("bp_chip_id", tarvik_get_modem_bp_chip_id()),
          Num("device_type", tarvik_get_tarvik_device_type()),
          Bool("single_sim", tarvik_get_single_sim_flag()),
          Bool("sim_present_sub0", tarvik_sim_card_is_present(0)),
          Bool("sim_present_sub1", tarvik_sim_card_is_present(1)),
          Num("default_data_sub", tarvik_get_default_data_sub()),
          Num("active_call_sub", tarvik_get_active_call_sub()),
          Num("gps_type", tarvik_modem_get_gps_type()),
      })
      .Ok();
}

const char *BuildTypeName(uint32_t type) {
  static const char *const names[] = {"?",      "PRE",    "FACTORY", "CERT",
                                      "STABLE", "NATIVE", "DEV",     "BETA"};
  return type < sizeof(names) / sizeof(names[0]) ? names[type] : "?";
}

int Build(Report &report, const Args &) {
  QuietLibrary();
  const uint32_t type = tarvik_build_type_get();
  report.Add({Num("build_type", type), Text("build_type_name", BuildTypeName(type))});
  static const struct {
    const char *key;
    bool (*fn)(void);
  } kChecks[] = {
      {"factory", tarvik_is_factory_version},
      {"factory_profile", tarvik_is_factory_version_ex},
      {"cert", tarvik_is_cert_version},
      {"ct_cert", tarvik_is_ct_cert_version},
      {"cm_cert", tarvik_is_cm_cert_version},
      {"cu_cert", tarvik_is_cu_cert_version},
      {"china", tarvik_is_china_version},
      {"test_build", tarvik_is_test_build},
      {"native", tarvik_is_native_version},
      {"ravu", tarvik_is_ravu_version},
      {"ravu_region", tarvik_is_ravu_version_ex},
      {"root", tarvik_is_root_version},
      {"mp", tarvik_is_mp_version},
      {"user", tarvik_is_user_version},
      {"pre", tarvik_is_pre_version},
      {"dev", tarvik_is_dev_version},
      {"stable", tarvik_is_stable_version},
  };
  for (const auto &c : kChecks) report.Add(Bool(c.key, c.fn()));
  return report.Ok();
}

int StartService(Report &report, const Args &args) {
  QuietLibrary();
  report.Add(Str("service", args[0]));
  const int result = tarvik_start_service(args[0].c_str());
  if (result != 0) {
    return report.Refuse(result == -3
                             ? "the name is over 92 characters"
                             : "the start request was refused (" + std::to_string(result) + ")",
                         kExitFailed);
  }
  return report.Ok();
}

const Verb kDevice[] = {{"", "", 0, 0, Device}};
const Verb kBuild[] = {{"", "", 0, 0, Build}};
const Verb kStart[] = {{"", "NAME", 1, 1, StartService}};
TARVIK_COMMAND("device", "device identity, SIM configuration and subscriptions", kDevice);
TARVIK_COMMAND("build", "build type and build classification checks", kBuild);
TARVIK_COMMAND("start-service", "asks init to start a service (ctl.start)", kStart);

}  // namespace
}  // namespace tarvik_tool
