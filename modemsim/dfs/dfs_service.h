// The simulated modem's data filter service (DFS, 0x30): per client its binding to a data port
// (mux id, endpoint, IP family) and its indication registration; per data path (the data port
// and IP family a client is bound to) the filter mode and the filters on it, with modem-issued
// handles. A client that never bound works on the default path: the control channel's own data
// port (mux id 0) and IPv4, as a QMI data service binds a client that does not bind itself. A
// filter belongs to the client that added it: the client's remove-all takes away its own
// filters only, and a client that goes (released, or its process gone) takes them with it; a
// path keeps its filter mode. A modem restart forgets everything.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace dfs {

// Filters one data path may hold unless SetCapacity says otherwise.
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
  int32_t ip_pref;                  // as bound (IPv4 when the bind named none; 0: unbound)
  int64_t ep_type;                  // -1: no endpoint given
  int64_t iface_id;                 // -1: no endpoint given
  int mux_id;                       // -1: unbound
  bool report_mode;                 // registered for the filter-mode indication
  uint8_t mode;                     // filter mode of its path
  std::vector<FilterView> filters;  // those it added
};

// The clients of the modem's DFS service, by client id (empty without the service).
std::vector<ClientView> Clients(Modem &modem);

// The data paths some client worked on (they and their modes outlive their clients; the default
// path is mux id 0, IPv4).
struct PathView {
  int mux_id;
  int32_t ip_pref;
  uint8_t mode;
  size_t filters;
};
std::vector<PathView> Paths(Modem &modem);

// How many filters one data path holds at most.
void SetCapacity(Modem &modem, size_t per_path);

// Called with the response record of every answer after the handler filled it (its message id,
// record and length), under the service's mutex: what tests and fuzz targets use to answer
// what a modem might. An empty hook removes it.
using AnswerHook = std::function<void(uint16_t msg_id, void *record, uint32_t len)>;
void SetAnswerHook(Modem &modem, AnswerHook hook);

// Filters held over every data path.
size_t FilterCount(Modem &modem);

// For `sim status`: "dfs", one line per client and per data path (none without any), as JSON
// {"clients":[...],"paths":[...]}.
std::vector<Field> Status(Modem &modem);
constexpr int kStatusOrder = 300;

}  // namespace dfs
}  // namespace modemsim
