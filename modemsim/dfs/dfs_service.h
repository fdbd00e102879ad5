// The simulated modem's data filter service (DFS, 0x30): per client its binding to a data port,
// its indication registration, its filter mode and its filter table with modem-issued handles.
// A client's table lives as long as the client; a modem restart forgets every table.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace dfs {

// Filters one client may hold unless SetCapacity says otherwise.
constexpr size_t kDefaultCapacity = 512;

struct FilterView {
  uint32_t handle;
  uint16_t filter_id;
  bool ipv6;
  std::string proto;  // "tcp", "udp" or "" (no port rules)
  std::string src;    // addresses as text ("" when the filter has none)
  std::string dst;
  uint16_t sport;
  uint16_t dport;
};

struct ClientView {
  uint32_t client;
  bool bound;
  int32_t ip_pref;   // as bound (0: none given)
  int64_t ep_type;   // -1: no endpoint given
  int64_t iface_id;  // -1: no endpoint given
  int mux_id;        // -1: unbound
  bool report_mode;  // registered for the filter-mode indication
  uint8_t mode;      // filter mode
  std::vector<FilterView> filters;
};

// The clients of the modem's DFS service, by client id (empty without the service).
std::vector<ClientView> Clients(Modem &modem);

// How many filters one client's table holds at most.
void SetCapacity(Modem &modem, size_t per_client);

// One line per client for `sim status` (empty without clients), and the same as a JSON array.
std::string StatusText(Modem &modem);
std::string StatusJson(Modem &modem);

}  // namespace dfs
}  // namespace modemsim
