// The network access service (0x03) of the simulated modem: each client is bound to one of the
// modem's two subscriptions, and each subscription keeps its own 5G settings, which the get
// messages read back. A client that has not bound speaks for the subscription its process (its
// connection) bound a client to last, else for the primary: a radio process's short-lived
// clients act for that process's subscription. Settings outlive a restart (the modem keeps its
// configuration); bindings go with their clients.
#include <stdio.h>

#include <map>

#include "modemsim/modem.h"
#include "network_access_service_v01.h"

namespace modemsim {
namespace {

constexpr uint32_t kSubscriptions = 2;

struct Subscription {
  uint32_t nr5g_disable_mode = NAS_NR5G_DISABLE_MODE_NONE_V01;
  uint8_t endc = 1;
  uint8_t deprioritize_nr5g = 0;
};

struct Binding {
  uint32_t sub;
  uintptr_t connection;
  uint64_t order;  // later bindings are larger
};

struct NasState {
  std::map<uint32_t, Binding> bound;  // by client
  uint64_t bindings = 0;
  Subscription subs[kSubscriptions];

  Subscription &Of(const Call &call) {
    auto it = bound.find(call.client);
    if (it != bound.end()) return subs[it->second.sub];
    const uintptr_t connection = call.modem.ConnectionOf(call.client);
    const Binding *latest = nullptr;
    for (const auto &b : bound) {
      if (b.second.connection == connection && (!latest || b.second.order > latest->order)) {
        latest = &b.second;
      }
    }
    return subs[latest != nullptr ? latest->sub : 0u];
  }
};

void InitModule(Modem &modem) {
  NasState *state = &modem.ModuleState<NasState>();
  Service &nas = modem.AddService(nas_get_service_object_v01());
  nas.Handle(QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01, [state](Call &call) {
    const uint32_t sub =
        static_cast<uint32_t>(call.Request<nas_bind_subscription_req_msg_v01>().subs_type);
    if (sub >= kSubscriptions) {
      call.SetResult(1, kQmiErrInvalidArg);
      return;
    }
    state->bound[call.client] = {sub, call.modem.ConnectionOf(call.client), ++state->bindings};
  });
  nas.Handle(QMI_NAS_SET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01, [state](Call &call) {
    const auto &req = call.Request<nas_set_system_selection_preference_req_msg_v01>();
    if (!req.nr5g_disable_mode_valid) return;  // nothing this modem keeps was asked for
    const uint32_t mode = static_cast<uint32_t>(req.nr5g_disable_mode);
    if (mode > NAS_NR5G_DISABLE_MODE_NSA_V01) {
      call.SetResult(1, kQmiErrInvalidArg);
      return;
    }
    state->Of(call).nr5g_disable_mode = mode;
  });
  nas.Handle(QMI_NAS_GET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01, [state](Call &call) {
    auto &resp = call.Response<nas_get_system_selection_preference_resp_msg_v01>();
    resp.nr5g_disable_mode_valid = 1;
    resp.nr5g_disable_mode =
        static_cast<nas_nr5g_disable_mode_enum_v01>(state->Of(call).nr5g_disable_mode);
  });
  nas.Handle(QMI_NAS_SET_ENDC_CONFIG_REQ_MSG_V01, [state](Call &call) {
    state->Of(call).endc = call.Request<nas_set_endc_config_req_msg_v01>().enable_endc;
  });
  nas.Handle(QMI_NAS_GET_ENDC_CONFIG_REQ_MSG_V01, [state](Call &call) {
    auto &resp = call.Response<nas_get_endc_config_resp_msg_v01>();
    resp.endc_enabled_valid = 1;
    resp.endc_enabled = state->Of(call).endc;
  });
  nas.Handle(QMI_NAS_DEPRIORITIZE_NR5G_REQ_MSG_V01, [state](Call &call) {
    state->Of(call).deprioritize_nr5g =
        call.Request<nas_deprioritize_nr5g_req_msg_v01>().deprioritize_nr5g;
  });
  nas.OnClientGone([state](uint32_t client) { state->bound.erase(client); });
  nas.SetSummary([state] {
    std::vector<std::vector<Field>> subs;
    for (uint32_t i = 0; i < kSubscriptions; ++i) {
      const Subscription &s = state->subs[i];
      subs.push_back({Label("sub" + std::to_string(i)),
                      {"nr5g_disable_mode", "nr5g_disable %s", Value::Number(s.nr5g_disable_mode)},
                      {"endc", "endc %s", Value::Number(s.endc)},
                      {"sa_deprio", "sa_deprio %s", Value::Number(s.deprioritize_nr5g)}});
    }
    return std::vector<Field>{{"subscriptions", "%s", Value::Records(std::move(subs), false)}};
  });
}

}  // namespace
}  // namespace modemsim

MODEMSIM_MODULE("nas", 20, modemsim::InitModule);
