// The base model messages of the extend service (0x0E-0x14): the modem's on-board model, its
// configuration, detection and indication switches, and what it detected (reason, scene, the
// data-subscription assistant record).
#pragma once

#include <stdint.h>

#include <array>
#include <mutex>
#include <set>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

struct BaseModelState {
  std::vector<uint32_t> cfg;
  uint8_t detection = 0;
  std::set<uint32_t> events;                    // indication message ids switched on
  std::array<std::vector<uint32_t>, 4> reason;  // arfcn, pci, reason bitmask, extended bitmask
  uint32_t scene = 0;
  uint32_t scene_ext = 0;
  std::array<uint32_t, 17> dds{};
};

class BaseModel {
 public:
  BaseModelState State() const;
  void SetDdsInfo(const std::array<uint32_t, 17> &info);

 private:
  friend struct BaseModelHandlers;
  mutable std::mutex mu_;
  BaseModelState state_;
};

BaseModel *BaseModelOf(Modem &modem);

// The modem detects a reason or a scene: the state changes, and when detection and the event
// are switched on, indication 0x12 (with `ind`) or 0x14 goes to every client. Returns the
// clients reached (0 when the indication was not due), or a negative status.
int DetectReason(Modem &modem, const std::array<std::vector<uint32_t>, 4> &lists,
                 const std::array<uint32_t, 4> &ind);
int DetectScene(Modem &modem, uint32_t scene, uint32_t scene_ext);

}  // namespace features
}  // namespace modemsim
