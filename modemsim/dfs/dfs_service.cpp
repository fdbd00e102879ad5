// The simulated data filter service: bindings, filter modes per data path, filters per client.
#include "dfs/dfs_service.h"

#include <arpa/inet.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "data_filter_service_v01.h"
#include "qmi_platform_host.h"

namespace modemsim {
namespace dfs {
namespace {

struct Client {
  bool bound = false;
  int32_t ip_pref = 0;
  int64_t ep_type = -1;
  int64_t iface_id = -1;
  int mux_id = -1;
  bool report_mode = false;
};

// A filter and the client that added it: only that client removes it, and it goes with that
// client.
struct Held {
  uint32_t client;
  FilterView filter;
};

// The filter mode and filters of one data path: a data port (mux id) and IP family. A client
// bound there works on it; one that never bound works on the default path.
struct Table {
  uint8_t mode = 0;
  std::vector<Held> filters;
};
using PathKey = std::pair<int64_t, int32_t>;
// The default data path: the data port of the control channel itself (no mux), IPv4.
const PathKey kDefaultPath{0, DFS_IP_FAMILY_IPV4_V01};

struct DfsState {
  std::map<uint32_t, Client> clients;
  std::map<PathKey, Table> tables;
  uint32_t next_handle = 1;
  size_t capacity = kDefaultCapacity;
  AnswerHook answer_hook;

  static PathKey KeyOf(const Client &c) {
    return c.bound ? PathKey{c.mux_id, c.ip_pref} : kDefaultPath;
  }
  Table &TableOf(uint32_t id) { return tables[KeyOf(clients[id])]; }
  // The filters of client `id`, wherever it added them.
  std::vector<FilterView> FiltersOf(uint32_t id) const {
    std::vector<FilterView> out;
    for (const auto &t : tables) {
      for (const Held &h : t.second.filters) {
        if (h.client == id) out.push_back(h.filter);
      }
    }
    return out;
  }
  void RemoveFiltersOf(uint32_t id) {
    for (auto &t : tables) {
      auto &f = t.second.filters;
      f.erase(std::remove_if(f.begin(), f.end(), [id](const Held &h) { return h.client == id; }),
              f.end());
    }
  }
};

std::string V4Text(uint32_t addr) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &addr, text, sizeof(text));
  return text;
}

std::string V6Text(const uint8_t (&addr)[16]) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(AF_INET6, addr, text, sizeof(text));
  return text;
}

using Add = dfs_add_filters_req_msg_v01;
using AddResp = dfs_add_filters_resp_msg_v01;

// Rule errors per filter id of an add-filters request, as the modem checks them: a rule whose
// filter id the request does not list, an address of the other family than the client's
// binding, a port of 0.
class RuleCheck {
 public:
  RuleCheck(const Add &req, int32_t bound_pref) : req_(req), pref_(bound_pref) {}

  std::map<uint16_t, uint64_t> Run() {
    Addr(req_.ipv4_src_valid, req_.ipv4_src, req_.ipv4_src_len, DFS_IP_FAMILY_IPV6_V01,
         DFS_RULE_ERR_IPV4_SRC_V01);
    Addr(req_.ipv4_dst_valid, req_.ipv4_dst, req_.ipv4_dst_len, DFS_IP_FAMILY_IPV6_V01,
         DFS_RULE_ERR_IPV4_DST_V01);
    Addr(req_.ipv6_src_valid, req_.ipv6_src, req_.ipv6_src_len, DFS_IP_FAMILY_IPV4_V01,
         DFS_RULE_ERR_IPV6_SRC_V01);
    Addr(req_.ipv6_dst_valid, req_.ipv6_dst, req_.ipv6_dst_len, DFS_IP_FAMILY_IPV4_V01,
         DFS_RULE_ERR_IPV6_DST_V01);
    Port(req_.udp_src_valid, req_.udp_src, req_.udp_src_len, DFS_RULE_ERR_UDP_SRC_V01);
    Port(req_.udp_dst_valid, req_.udp_dst, req_.udp_dst_len, DFS_RULE_ERR_UDP_DST_V01);
    Port(req_.tcp_src_valid, req_.tcp_src, req_.tcp_src_len, DFS_RULE_ERR_TCP_SRC_V01);
    Port(req_.tcp_dst_valid, req_.tcp_dst, req_.tcp_dst_len, DFS_RULE_ERR_TCP_DST_V01);
    return errors_;
  }

 private:
  bool Listed(uint16_t id) const {
    return std::find(req_.filter_id, req_.filter_id + req_.filter_id_len, id) !=
           req_.filter_id + req_.filter_id_len;
  }
  void Flag(uint16_t id, uint64_t bit) {
    errors_[id] |= Listed(id) ? bit : bit | DFS_RULE_ERR_FILTER_ID_V01;
  }
  template <typename Rule>
  void Addr(uint8_t valid, const Rule *rules, uint32_t len, int32_t other_family, uint64_t bit) {
    for (uint32_t k = 0; valid && k < len; ++k) {
      if (pref_ == other_family || !Listed(rules[k].filter_id)) Flag(rules[k].filter_id, bit);
    }
  }
  void Port(uint8_t valid, const dfs_port_rule_v01 *rules, uint32_t len, uint64_t bit) {
    for (uint32_t k = 0; valid && k < len; ++k) {
      if (rules[k].port == 0 || !Listed(rules[k].filter_id)) Flag(rules[k].filter_id, bit);
    }
  }

  const Add &req_;
  int32_t pref_;
  std::map<uint16_t, uint64_t> errors_;
};

// The first rule of list `rules` for filter `id`, or null.
template <typename Rule>
const Rule *RuleOf(uint8_t valid, const Rule *rules, uint32_t len, uint16_t id) {
  for (uint32_t k = 0; valid && k < len; ++k) {
    if (rules[k].filter_id == id) return &rules[k];
  }
  return nullptr;
}

FilterView Describe(const Add &req, uint16_t id, uint32_t handle) {
  FilterView f{handle, id, false, "", "", "", 0, 0};
  if (auto *r = RuleOf(req.ipv4_src_valid, req.ipv4_src, req.ipv4_src_len, id))
    f.src = V4Text(r->addr);
  if (auto *r = RuleOf(req.ipv4_dst_valid, req.ipv4_dst, req.ipv4_dst_len, id))
    f.dst = V4Text(r->addr);
  if (auto *r = RuleOf(req.ipv6_src_valid, req.ipv6_src, req.ipv6_src_len, id)) {
    f.ipv6 = true;
    f.src = V6Text(r->addr);
  }
  if (auto *r = RuleOf(req.ipv6_dst_valid, req.ipv6_dst, req.ipv6_dst_len, id)) {
    f.ipv6 = true;
    f.dst = V6Text(r->addr);
  }
  const struct {
    const char *proto;
    const dfs_port_rule_v01 *src;
    const dfs_port_rule_v01 *dst;
  } kinds[] = {
      {"udp", RuleOf(req.udp_src_valid, req.udp_src, req.udp_src_len, id),
       RuleOf(req.udp_dst_valid, req.udp_dst, req.udp_dst_len, id)},
      {"tcp", RuleOf(req.tcp_src_valid, req.tcp_src, req.tcp_src_len, id),
       RuleOf(req.tcp_dst_valid, req.tcp_dst, req.tcp_dst_len, id)},
  };
  for (const auto &k : kinds) {
    if (k.src == nullptr && k.dst == nullptr) continue;
    f.proto = k.proto;
    f.sport = k.src != nullptr ? k.src->port : 0;
    f.dport = k.dst != nullptr ? k.dst->port : 0;
  }
  return f;
}

void AddFilters(DfsState *state, Call &call) {
  const Add &req = call.Request<Add>();
  AddResp &resp = call.Response<AddResp>();
  const std::map<uint16_t, uint64_t> errors =
      RuleCheck(req, state->clients[call.client].ip_pref).Run();
  Table &table = state->TableOf(call.client);
  if (!errors.empty()) {
    resp.rule_errors_valid = 1;
    for (const auto &e : errors) {
      if (resp.rule_errors_len == QMI_DFS_MAX_FILTERS_V01) break;
      resp.rule_errors[resp.rule_errors_len++] = {e.first, e.second};
    }
    call.SetResult(1, kQmiErrInvalidArg);
    return;
  }
  if (req.filter_id_len == 0) {
    call.SetResult(1, QMI_ERR_MISSING_ARG_V01);
    return;
  }
  if (table.filters.size() + req.filter_id_len > state->capacity) {
    call.SetResult(1, QMI_ERR_INSUFFICIENT_RESOURCES_V01);
    return;
  }
  resp.filter_handles_valid = 1;
  for (uint32_t k = 0; k < req.filter_id_len; ++k) {
    const uint32_t handle = state->next_handle++;
    table.filters.push_back({call.client, Describe(req, req.filter_id[k], handle)});
    resp.filter_handles[resp.filter_handles_len++] = {req.filter_id[k], handle};
  }
}

void Bind(DfsState *state, Call &call) {
  const auto &req = call.Request<dfs_bind_client_req_msg_v01>();
  if (!req.mux_id_valid) {
    call.SetResult(1, QMI_ERR_MISSING_ARG_V01);
    return;
  }
  if (req.ip_preference_valid && req.ip_preference != DFS_IP_FAMILY_IPV4_V01 &&
      req.ip_preference != DFS_IP_FAMILY_IPV6_V01) {
    call.SetResult(1, kQmiErrInvalidArg);
    return;
  }
  const int64_t ep_type = req.ep_id_valid ? (int64_t)req.ep_id.ep_type : -1;
  const int64_t iface = req.ep_id_valid ? (int64_t)req.ep_id.iface_id : -1;
  // An endpoint id of -1 on the wire (all ones) is no endpoint for the port table either.
  const int epid = req.ep_id_valid ? (int)req.ep_id.iface_id : -1;
  if (qmi_platform_host_find_port((int)req.ep_id.ep_type, epid, req.mux_id) < 0 ||
      (req.ep_id_valid && req.ep_id.iface_id == 0xFFFFFFFFu)) {
    call.SetResult(1, kQmiErrInvalidArg);
    return;
  }
  Client &client = state->clients[call.client];
  client.bound = true;
  client.ip_pref = req.ip_preference_valid ? (int32_t)req.ip_preference : DFS_IP_FAMILY_IPV4_V01;
  client.ep_type = ep_type;
  client.iface_id = iface;
  client.mux_id = req.mux_id;
}

// The service as its handlers see it: every answer passes the answer hook, if one is set.
class DfsService {
 public:
  DfsService(Service &service, DfsState *state) : service_(service), state_(state) {}
  template <typename Fn>
  void Handle(uint16_t msg_id, Fn fn) {
    DfsState *state = state_;
    service_.Handle(msg_id, [state, fn](Call &call) {
      fn(call);
      if (state->answer_hook) state->answer_hook(call.msg_id, call.response, call.response_len);
    });
  }
  Service &service() { return service_; }

 private:
  Service &service_;
  DfsState *state_;
};

void InitModule(Modem &modem) {
  DfsState *state = &modem.ModuleState<DfsState>();
  DfsService dfs(modem.AddService(&dfs_qmi_idl_service_object_v01, 0), state);
  dfs.Handle(QMI_DFS_INDICATION_REGISTER_REQ_V01, [state](Call &call) {
    const auto &req = call.Request<dfs_indication_register_req_msg_v01>();
    if (req.report_filter_mode_valid) {
      state->clients[call.client].report_mode = req.report_filter_mode != 0;
    }
  });
  dfs.Handle(QMI_DFS_BIND_CLIENT_REQ_V01, [state](Call &call) { Bind(state, call); });
  dfs.Handle(QMI_DFS_SET_FILTER_MODE_REQ_V01, [state](Call &call) {
    Table &table = state->TableOf(call.client);
    const uint8_t mode = call.Request<dfs_set_filter_mode_req_msg_v01>().filter_mode != 0;
    if (mode == table.mode) return;
    table.mode = mode;
    // Every registered client on this data path hears of the change.
    const PathKey key = DfsState::KeyOf(state->clients[call.client]);
    const dfs_filter_mode_ind_msg_v01 ind = {mode};
    for (const auto &c : state->clients) {
      if (c.second.report_mode && DfsState::KeyOf(c.second) == key) {
        call.modem.PushIndication(DFS_V01_SERVICE_ID, QMI_DFS_FILTER_MODE_IND_V01, &ind,
                                  sizeof(ind), c.first);
      }
    }
  });
  dfs.Handle(QMI_DFS_GET_FILTER_MODE_REQ_V01, [state](Call &call) {
    auto &resp = call.Response<dfs_get_filter_mode_resp_msg_v01>();
    resp.filter_mode_valid = 1;
    resp.filter_mode = state->TableOf(call.client).mode;
  });
  // The client's own filters; other clients' on the same path stay.
  dfs.Handle(QMI_DFS_REMOVE_ALL_FILTERS_REQ_V01,
             [state](Call &call) { state->RemoveFiltersOf(call.client); });
  dfs.Handle(QMI_DFS_ADD_FILTERS_REQ_V01, [state](Call &call) { AddFilters(state, call); });
  dfs.service().OnRestart([state] {
    state->clients.clear();
    state->tables.clear();
  });
  // A client that goes takes its filters with it; the paths keep their filter modes.
  dfs.service().OnClientGone([state](uint32_t client) {
    state->RemoveFiltersOf(client);
    state->clients.erase(client);
  });
  modem.AddStatus(kStatusOrder, [&modem] { return Status(modem); });
}

// Runs `fn` on the module state under the service's mutex; false without the service.
template <typename Fn>
bool WithState(Modem &modem, Fn fn) {
  Service *service = modem.FindService(DFS_V01_SERVICE_ID);
  DfsState *state = modem.FindModuleState<DfsState>();
  if (service == nullptr || state == nullptr) return false;
  std::lock_guard<std::mutex> lock(service->mutex());
  fn(*state);
  return true;
}

}  // namespace

std::vector<ClientView> Clients(Modem &modem) {
  std::vector<ClientView> out;
  WithState(modem, [&out](DfsState &state) {
    for (const auto &c : state.clients) {
      const Client &s = c.second;
      const Table &t = state.TableOf(c.first);
      out.push_back({c.first, s.bound, s.ip_pref, s.ep_type, s.iface_id, s.mux_id, s.report_mode,
                     t.mode, state.FiltersOf(c.first)});
    }
  });
  return out;
}

void SetCapacity(Modem &modem, size_t per_path) {
  WithState(modem, [per_path](DfsState &state) { state.capacity = per_path; });
}

void SetAnswerHook(Modem &modem, AnswerHook hook) {
  WithState(modem, [&hook](DfsState &state) { state.answer_hook = std::move(hook); });
}

size_t FilterCount(Modem &modem) {
  size_t n = 0;
  WithState(modem, [&n](DfsState &state) {
    for (const auto &t : state.tables) n += t.second.filters.size();
  });
  return n;
}

std::vector<PathView> Paths(Modem &modem) {
  std::vector<PathView> out;
  WithState(modem, [&out](DfsState &state) {
    for (const auto &t : state.tables) {
      out.push_back({(int)t.first.first, t.first.second, t.second.mode, t.second.filters.size()});
    }
  });
  return out;
}

std::vector<Field> Status(Modem &modem) {
  std::vector<std::vector<Field>> clients, paths;
  for (const ClientView &c : Clients(modem)) {
    clients.push_back(
        {{"client", "dfs client %s", Value::Number(c.client)},
         {"bound", "%s", Value::Bool(c.bound, "bound", "unbound")},
         {"mux_id", "mux %s", Value::Number(c.mux_id)},
         {"ep_type", "", Value::Number(c.ep_type)},
         {"iface_id", "", Value::Number(c.iface_id)},
         {"ip_pref", "ip %s", Value::Number(c.ip_pref)},
         {"indications", "", Value::Bool(c.report_mode)},
         {"mode", "mode %s", Value::Number(c.mode)},
         {"filters", "filters %s", Value::Number(static_cast<long long>(c.filters.size()))}});
  }
  for (const PathView &p : Paths(modem)) {
    paths.push_back({{"mux_id", "dfs path mux %s", Value::Number(p.mux_id)},
                     {"ip_pref", "ip %s", Value::Number(p.ip_pref)},
                     {"mode", "mode %s", Value::Number(p.mode)},
                     {"filters", "filters %s", Value::Number(static_cast<long long>(p.filters))}});
  }
  return {{"dfs", "%s",
           Value::Record({{"clients", "%s", Value::Records(std::move(clients), true)},
                          {"paths", "%s", Value::Records(std::move(paths), true)}})}};
}

}  // namespace dfs
}  // namespace modemsim

MODEMSIM_MODULE("dfs", 20, modemsim::dfs::InitModule);
