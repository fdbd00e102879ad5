// Restart control behind the common request: restart (typed message 31) and crash (99) orders
// are recorded (the last kMaxOrders) and, once the answer is out, the modem restarts every
// service, down for RestartDownMs (300 ms by default; `set restart-down-ms MS`): clients get
// their error callbacks and the vendor channel reconnects on its next request. NV sync (35)
// makes the store durable (every namespace directory and the state directory fsynced) before
// it answers. `status` shows the orders, the restart time and the syncs.
#pragma once

#include <stdint.h>

#include <mutex>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

class RestartControl {
 public:
  explicit RestartControl(StateStore *store) : store_(store) {}

  struct Order {
    uint32_t type;  // 31 restart, 99 crash
    uint32_t flag;
  };
  static constexpr size_t kMaxOrders = 8;
  std::vector<Order> Orders() const;
  void SetRestartDownMs(uint32_t ms);
  uint32_t RestartDownMs() const;
  uint32_t NvSyncCount() const;

 private:
  friend struct RestartHandlers;
  mutable std::mutex mu_;
  StateStore *store_;
  std::vector<Order> orders_;
  uint32_t restart_down_ms_ = 300;
  uint32_t nv_syncs_ = 0;
};

RestartControl *RestartOf(Modem &modem);

}  // namespace features
}  // namespace modemsim
