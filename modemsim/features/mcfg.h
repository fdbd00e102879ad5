// The modem's configuration service (MCFG) behind the common request: the two MBN list paths
// (commands 9/10 and 11/12) and the discovery timer (typed messages 177/178) persist (namespace
// "mcfg"); command 23 records the asking client (forgotten when it goes). Control word
// `mcfg-event [HEX]`; `status` shows the clients that asked.
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

class Mcfg {
 public:
  explicit Mcfg(StateStore *store);

  // The path of a kind, by its get command (9, 11).
  std::string Path(uint32_t get_cmd) const;
  uint32_t DiscoverTimer() const;
  // The clients that asked for configuration events.
  std::set<uint32_t> EventClients() const;

 private:
  friend struct McfgHandlers;
  mutable std::mutex mu_;
  StateStore *store_;
  std::map<uint32_t, std::string> paths_;
  uint32_t discover_timer_ = 30;
  std::set<uint32_t> event_clients_;
};

// The module's state, or null without it.
Mcfg *McfgOf(Modem &modem);

// The configuration service reports an event: indication 0x03 with event kMcfgEvent and `data`
// to every client of the extend service opened by a process (connection) one of whose clients
// asked for configuration events (command 23): the library asks on its vendor channel, which
// drops the event (its events end at 7), and a radio module of the process receives it on a
// client of its own with the library's tarvik_qmi_client_unsol_ind_cb. Returns the clients
// reached, or a negative status.
constexpr uint32_t kMcfgEvent = 23;
int ReportMcfgEvent(Modem &modem, const std::vector<uint8_t> &data);

}  // namespace features
}  // namespace modemsim
