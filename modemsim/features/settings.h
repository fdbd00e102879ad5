// The one-shot commands of the common request: the extend mode (commands 5, 6) and the build
// information byte (7), which persist (namespace "settings"), and the feature-control command
// (100: satellite 7, RF front-end check 8, MTPL GPIO 11), which echoes the argument and answers
// each feature's outcome byte and report.
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

class Settings {
 public:
  explicit Settings(StateStore *store);

  uint8_t ExtendMode() const;
  uint8_t BuildInformation() const;
  // What feature `feature` of command 100 answers: its outcome byte and report.
  void SetFeatureOutcome(uint32_t feature, uint8_t outcome, const std::vector<uint8_t> &report);

 private:
  friend struct SettingsHandlers;
  mutable std::mutex mu_;
  StateStore *store_;
  uint8_t extend_mode_ = 0;
  uint8_t build_info_ = 0;
  std::map<uint32_t, std::pair<uint8_t, std::vector<uint8_t>>> features_;
};

Settings *SettingsOf(Modem &modem);

}  // namespace features
}  // namespace modemsim
