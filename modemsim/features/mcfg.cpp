// MBN list paths, the discovery timer and configuration events (see mcfg.h).
#include "mcfg.h"

#include <stdio.h>

#include <algorithm>

#include "commands.h"
#include "extend/extend_service.h"
#include "modemsim/control.h"
#include "modemsim/text.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {

struct McfgHandlers {
  static void PathGet(Mcfg *m, Command &c) {
    std::lock_guard<std::mutex> lock(m->mu_);
    const std::string &path = m->paths_[c.cmd];
    c.data.assign(TARVIK_MCFG_PATH_SIZE, 0);
    std::copy(path.begin(), path.begin() + std::min<size_t>(path.size(), c.data.size() - 1),
              c.data.begin());
  }

  // The set command of each path kind is one above its get command. The modem takes at most
  // what its 180-byte field holds with a terminator.
  static void PathSet(Mcfg *m, Command &c) {
    const std::string path(
        reinterpret_cast<const char *>(c.payload),
        strnlen(reinterpret_cast<const char *>(c.payload), TARVIK_CMN_PAYLOAD_MAX));
    if (path.size() >= TARVIK_MCFG_PATH_SIZE) {
      c.result = kNvBadParam;
      return;
    }
    std::lock_guard<std::mutex> lock(m->mu_);
    if (m->store_ != nullptr && !m->store_->Put(kNamespace, kPathPrefix + std::to_string(c.cmd - 1),
                                                path.data(), path.size())) {
      c.result = kStoreFailed;
      return;
    }
    m->paths_[c.cmd - 1] = path;
  }

  static void Register(Mcfg *m, Command &c) {
    std::lock_guard<std::mutex> lock(m->mu_);
    m->event_clients_.insert(c.client);
  }

  static void TimerGet(Mcfg *m, Message &msg) {
    std::lock_guard<std::mutex> lock(m->mu_);
    msg.answer.resize(4);
    PutU32(&msg.answer, 0, m->discover_timer_);
  }

  static void TimerSet(Mcfg *m, Message &msg) {
    if (msg.len < 4) {
      msg.result = kNvBadParam;
      return;
    }
    const uint32_t timeout = GetU32(msg.value);
    std::lock_guard<std::mutex> lock(m->mu_);
    if (m->store_ != nullptr &&
        !m->store_->Put(kNamespace, kDiscoverTimerKey, &timeout, sizeof(timeout))) {
      msg.result = kStoreFailed;
      return;
    }
    m->discover_timer_ = timeout;
  }

  static void ClientGone(Mcfg *m, uint32_t client) {
    std::lock_guard<std::mutex> lock(m->mu_);
    m->event_clients_.erase(client);
  }

  static constexpr const char *kNamespace = "mcfg";
  static constexpr const char *kPathPrefix = "path.";
  static constexpr const char *kDiscoverTimerKey = "discover_timer";
};

namespace {

void InitModule(Modem &modem) {
  Mcfg *m = &modem.ModuleState<Mcfg>(modem.state().persistent() ? &modem.state() : nullptr);
  for (uint32_t cmd : {COMMON_CMD_MBN_TXT_PATH_GET, COMMON_CMD_MBN_TXT_PATH_GET_2}) {
    HandleCommand(modem, cmd, [m](Command &c) { McfgHandlers::PathGet(m, c); });
  }
  for (uint32_t cmd : {COMMON_CMD_MBN_TXT_PATH_SET, COMMON_CMD_MBN_TXT_PATH_SET_2}) {
    HandleCommand(modem, cmd, [m](Command &c) { McfgHandlers::PathSet(m, c); });
  }
  HandleCommand(modem, COMMON_CMD_REG_MCFG_EVENT_IND,
                [m](Command &c) { McfgHandlers::Register(m, c); });
  HandleMessage(modem, COMMON_MSG_MCFG_GET_DISCOVER_TIMER,
                [m](Message &msg) { McfgHandlers::TimerGet(m, msg); });
  HandleMessage(modem, COMMON_MSG_MCFG_SET_DISCOVER_TIMER,
                [m](Message &msg) { McfgHandlers::TimerSet(m, msg); });
  if (Service *service = modem.FindService(extend::kServiceId)) {
    service->OnClientGone([m](uint32_t client) { McfgHandlers::ClientGone(m, client); });
  }
  modem.AddStatus(kStatusMcfg, [m] {
    const long long clients = static_cast<long long>(m->EventClients().size());
    return std::vector<Field>{{"features", "%s",
                               Value::Record({{"mcfg_event_clients", "mcfg event clients %s",
                                               Value::Number(clients), true}})}};
  });
}

// mcfg-event [HEX]: the configuration service reports an event to the clients that asked.
int EventWord(Modem &modem, const Words &w, ControlReply &reply) {
  std::vector<uint8_t> data;
  if (w.size() > 2 ||
      (w.size() == 2 && (!ParseHex(w[1], &data) || data.size() > extend::kMaxPayload))) {
    return reply.Usage();
  }
  return reply.Sent(ReportMcfgEvent(modem, data));
}
MODEMSIM_CONTROL_WORD("mcfg-event", "[HEX]", EventWord);

}  // namespace

Mcfg::Mcfg(StateStore *store) : store_(store) {
  paths_ = {{COMMON_CMD_MBN_TXT_PATH_GET, "/data/vendor/modem_config/mcfg_sw/mbn_sw.txt"},
            {COMMON_CMD_MBN_TXT_PATH_GET_2, "/data/vendor/modem_config/mcfg_hw/mbn_hw.txt"}};
  if (store_ == nullptr) return;
  for (const std::string &key : store_->Keys(McfgHandlers::kNamespace)) {
    std::vector<uint8_t> value;
    unsigned cmd = 0;
    if (!store_->Get(McfgHandlers::kNamespace, key, &value)) continue;
    if (key == McfgHandlers::kDiscoverTimerKey && value.size() == 4) {
      discover_timer_ = GetU32(value.data());
    } else if (sscanf(key.c_str(), "path.%u", &cmd) == 1) {
      paths_[cmd] = std::string(value.begin(), value.end());
    }
  }
}

std::string Mcfg::Path(uint32_t get_cmd) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = paths_.find(get_cmd);
  return it == paths_.end() ? std::string() : it->second;
}

uint32_t Mcfg::DiscoverTimer() const {
  std::lock_guard<std::mutex> lock(mu_);
  return discover_timer_;
}

std::set<uint32_t> Mcfg::EventClients() const {
  std::lock_guard<std::mutex> lock(mu_);
  return event_clients_;
}

Mcfg *McfgOf(Modem &modem) {
  return modem.FindModuleState<Mcfg>();
}

int ReportMcfgEvent(Modem &modem, const std::vector<uint8_t> &data) {
  Mcfg *m = McfgOf(modem);
  if (m == nullptr) {
    return -1;
  }
  tarvik_extend_qmi_ind_msg_v01 ind{};
  if (data.size() > sizeof(ind.data)) {
    return QMI_CLIENT_PARAM_ERR;
  }
  ind.ind = kMcfgEvent;
  ind.data_valid = 1;
  ind.data_len = static_cast<uint32_t>(data.size());
  std::copy(data.begin(), data.end(), ind.data);
  // The process (connection) that asked hears the event on every client it has of the service:
  // its vendor channel asked, and a radio module of it listens on a client of its own.
  std::set<uintptr_t> asked;
  for (uint32_t client : m->EventClients()) asked.insert(modem.ConnectionOf(client));
  asked.erase(0);
  int reached = 0;
  for (uint32_t client : modem.Clients(extend::kServiceId)) {
    if (asked.count(modem.ConnectionOf(client)) == 0) continue;
    const int rc = modem.PushIndication(extend::kServiceId, TARVIK_EXTEND_QMI_EVENT_MSG_V01, &ind,
                                        sizeof(ind), client);
    if (rc < 0) {
      return rc;
    }
    reached += rc;
  }
  return reached;
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("mcfg", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
