// Extend mode, build information and feature control (see settings.h).
#include "settings.h"

#include "commands.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {

struct SettingsHandlers {
  static constexpr const char *kNamespace = "settings";
  static constexpr const char *kExtendModeKey = "extend_mode";
  static constexpr const char *kBuildInfoKey = "build_information";

  // A byte kept in the store and in `*held`.
  static void Store(Settings *s, const char *key, uint8_t *held, Command &c) {
    std::lock_guard<std::mutex> lock(s->mu_);
    if (s->store_ != nullptr && !s->store_->Put(kNamespace, key, c.payload, 1)) {
      c.result = kStoreFailed;
      return;
    }
    *held = c.payload[0];
  }

  // Header (0, 3, feature), then the argument; answered with the argument echoed, the
  // feature's outcome byte and its report.
  static void FeatureControl(Settings *s, Command &c) {
    std::lock_guard<std::mutex> lock(s->mu_);
    auto it = s->features_.find(GetU32(c.payload + 8));
    if (GetU32(c.payload) != 0 || GetU32(c.payload + 4) != 3 || it == s->features_.end()) {
      c.result = kCmnNotSupported;
      return;
    }
    c.data = {c.payload[12], it->second.first};
    c.data.insert(c.data.end(), it->second.second.begin(), it->second.second.end());
  }

  static void Install(Modem &modem, Settings *s) {
    HandleCommand(modem, COMMON_CMD_EXTEND_MODE_GET,
                  [s](Command &c) { c.data = {s->ExtendMode()}; });
    HandleCommand(modem, COMMON_CMD_EXTEND_MODE_SET,
                  [s](Command &c) { Store(s, kExtendModeKey, &s->extend_mode_, c); });
    HandleCommand(modem, COMMON_CMD_BUILD_INFORMATION,
                  [s](Command &c) { Store(s, kBuildInfoKey, &s->build_info_, c); });
    HandleCommand(modem, COMMON_CMD_FEATURE_CONTROL, [s](Command &c) { FeatureControl(s, c); });
  }
};

namespace {

void InitModule(Modem &modem) {
  SettingsHandlers::Install(
      modem, &modem.ModuleState<Settings>(modem.state().persistent() ? &modem.state() : nullptr));
}

}  // namespace

Settings::Settings(StateStore *store) : store_(store) {
  features_[COMMON_FEATURE_SATELLITE] = {0, {}};
  features_[COMMON_FEATURE_RFFE_DEVICE_CHECK] = {0, {0x01, 0x01, 0x01, 0x01}};
  features_[COMMON_FEATURE_MTPL_GPIO] = {0, {}};
  if (store_ == nullptr) return;
  std::vector<uint8_t> setting;
  if (store_->Get(SettingsHandlers::kNamespace, SettingsHandlers::kExtendModeKey, &setting) &&
      setting.size() == 1) {
    extend_mode_ = setting[0];
  }
  if (store_->Get(SettingsHandlers::kNamespace, SettingsHandlers::kBuildInfoKey, &setting) &&
      setting.size() == 1) {
    build_info_ = setting[0];
  }
}

uint8_t Settings::ExtendMode() const {
  std::lock_guard<std::mutex> lock(mu_);
  return extend_mode_;
}

uint8_t Settings::BuildInformation() const {
  std::lock_guard<std::mutex> lock(mu_);
  return build_info_;
}

void Settings::SetFeatureOutcome(uint32_t feature, uint8_t outcome,
                                 const std::vector<uint8_t> &report) {
  std::lock_guard<std::mutex> lock(mu_);
  features_[feature] = {outcome, report};
}

Settings *SettingsOf(Modem &modem) {
  return modem.FindModuleState<Settings>();
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("settings", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
