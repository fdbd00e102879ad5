// The modem's identity and capabilities as the common request reports them: the u32 answers of
// commands 8, 19, 26, 30, 32, 33 (chipset, DSDA, baseband chip, customer maximum, hardware,
// CDMA), texts and length-prefixed records by the caller's command number (defaults: texts 40
// and 41, record 42). With a state directory the profile persists (namespace "profile").
// Control words: `profile`, `set chipset-id|hw-id|bp-chip-id|cdma|dsda|cust-max N`,
// `set string TYPE TEXT`, `set record TYPE HEX`.
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

constexpr uint32_t kProfileVersionType = 40;
constexpr uint32_t kProfileSerialType = 41;
constexpr uint32_t kProfileRfRecordType = 42;

class Identity {
 public:
  explicit Identity(StateStore *store);

  // Changes of the profile; false when the store refused them (the profile is then as it was).
  [[nodiscard]] bool SetWord(uint32_t cmd, uint32_t value);
  [[nodiscard]] bool SetString(uint32_t cmd, const std::string &text);
  [[nodiscard]] bool SetRecord(uint32_t cmd, const std::vector<uint8_t> &record);

  struct Profile {
    std::map<uint32_t, uint32_t> words;
    std::map<uint32_t, std::string> strings;
    std::map<uint32_t, std::vector<uint8_t>> records;
  };
  Profile Get() const;

  // The answer to command `cmd`; false when the profile has none.
  bool Answer(uint32_t cmd, std::vector<uint8_t> *data) const;

 private:
  mutable std::mutex mu_;
  StateStore *store_;
  Profile profile_;
};

// The modem's identity, or null without the module.
Identity *IdentityOf(Modem &modem);

}  // namespace features
}  // namespace modemsim
