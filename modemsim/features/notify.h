// Status notifications to the modem: the last screen (command 17) and sleep (34) status it was
// told; `status` shows them.
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

class Notify {
 public:
  // The last status received by command `cmd`; false when none was.
  bool State(uint32_t cmd, uint32_t *value) const;
  void Set(uint32_t cmd, uint32_t value);

 private:
  mutable std::mutex mu_;
  std::map<uint32_t, uint32_t> last_;
};

Notify *NotifyOf(Modem &modem);

}  // namespace features
}  // namespace modemsim
