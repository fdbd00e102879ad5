// Screen and sleep status (see notify.h).
#include "notify.h"

#include "commands.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {
namespace {

void InitModule(Modem &modem) {
  Notify *n = &modem.ModuleState<Notify>();
  for (uint32_t cmd : {COMMON_CMD_SCREEN_STATUS, COMMON_CMD_SLEEP_STATUS}) {
    HandleCommand(modem, cmd, [n](Command &c) { n->Set(c.cmd, GetU32(c.payload)); });
  }
  modem.AddStatus(kStatusNotify, [n] {
    std::vector<Field> fields;
    const struct {
      const char *name;
      uint32_t cmd;
    } kNotes[] = {{"screen", COMMON_CMD_SCREEN_STATUS}, {"sleep", COMMON_CMD_SLEEP_STATUS}};
    for (const auto &note : kNotes) {
      uint32_t v = 0;
      fields.push_back({note.name, std::string(note.name) + " %s",
                        n->State(note.cmd, &v) ? Value::Number(v) : Value::Null(), true});
    }
    return std::vector<Field>{{"features", "%s", Value::Record(std::move(fields))}};
  });
}

}  // namespace

bool Notify::State(uint32_t cmd, uint32_t *value) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = last_.find(cmd);
  if (it == last_.end()) return false;
  *value = it->second;
  return true;
}

void Notify::Set(uint32_t cmd, uint32_t value) {
  std::lock_guard<std::mutex> lock(mu_);
  last_[cmd] = value;
}

Notify *NotifyOf(Modem &modem) {
  return modem.FindModuleState<Notify>();
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("notify", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
