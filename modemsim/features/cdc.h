// CDC requests (REQUEST_ID_CDC) and venue mode (command 35 of the common request): opaque
// payloads the modem keeps. A CDC event with data stores it, and every event answers with what
// is stored for it; venue mode answers with the configuration now in force ("off": one zero
// byte). Payloads without a length of their own end at their last non-zero byte.
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

class Cdc {
 public:
  std::vector<uint8_t> VenueMode() const;

 private:
  friend struct CdcHandlers;
  mutable std::mutex mu_;
  std::vector<uint8_t> venue_;
  std::map<uint32_t, std::vector<uint8_t>> events_;
};

Cdc *CdcOf(Modem &modem);

}  // namespace features
}  // namespace modemsim
