// Restart and crash orders, NV sync (see restart.h).
#include "restart.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "commands.h"
#include "modemsim/control.h"
#include "modemsim/text.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {

struct RestartHandlers {
  // Once the answer is out, every service goes down for the restart time and comes back, as
  // after a subsystem restart.
  static void Order(RestartControl *r, Message &msg) {
    if (msg.len < 4) {
      msg.result = kNvBadParam;
      return;
    }
    uint32_t down_ms = 0;
    {
      std::lock_guard<std::mutex> lock(r->mu_);
      r->orders_.push_back({msg.type, GetU32(msg.value)});
      if (r->orders_.size() > RestartControl::kMaxOrders) r->orders_.erase(r->orders_.begin());
      down_ms = r->restart_down_ms_;
    }
    // Scheduled calls run one at a time with the requests: this one once the answer is out,
    // however long the delivering thread takes to send it.
    Modem &modem = msg.modem;
    modem.Schedule(0, [&modem, down_ms] {
      for (const uint32_t id : modem.ServiceIds()) {
        modem.ScheduleRestart(id, kRestartAfterAnswerMs, down_ms);
      }
    });
  }

  // Items and files are written through to the store as they change; a sync makes their
  // directory entries durable before it is answered.
  static void NvSync(RestartControl *r, Message &msg) {
    msg.result = SyncStore(r->store_);
    if (msg.result != 0) return;
    std::lock_guard<std::mutex> lock(r->mu_);
    ++r->nv_syncs_;
  }

  // Every namespace directory of the store, then the state directory itself.
  static int32_t SyncStore(StateStore *store) {
    if (store == nullptr) return 0;
    std::vector<std::string> dirs;
    if (DIR *d = opendir(store->dir().c_str())) {
      while (const dirent *e = readdir(d)) {
        if (e->d_name[0] != '.' && e->d_type == DT_DIR)
          dirs.push_back(store->dir() + "/" + e->d_name);
      }
      closedir(d);
    }
    dirs.push_back(store->dir());
    for (const std::string &dir : dirs) {
      const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      if (fd < 0) return kStoreFailed;
      const int rc = fsync(fd);
      close(fd);
      if (rc != 0) return kStoreFailed;
    }
    return 0;
  }

  static constexpr uint32_t kRestartAfterAnswerMs = 20;
};

namespace {

const char *OrderName(uint32_t type) {
  return type == COMMON_MSG_MODEM_SSR ? "restart" : "crash";
}

void InitModule(Modem &modem) {
  RestartControl *r =
      &modem.ModuleState<RestartControl>(modem.state().persistent() ? &modem.state() : nullptr);
  for (uint32_t type : {COMMON_MSG_MODEM_SSR, COMMON_MSG_MODEM_CRASH}) {
    HandleMessage(modem, type, [r](Message &msg) { RestartHandlers::Order(r, msg); });
  }
  HandleMessage(modem, COMMON_MSG_NV_SYNC, [r](Message &msg) { RestartHandlers::NvSync(r, msg); });
  modem.AddStatus(kStatusOrders, [r] {
    std::vector<std::vector<Field>> orders;
    for (const RestartControl::Order &o : r->Orders()) {
      orders.push_back(
          {{"order", "%s", Value::Text(OrderName(o.type))}, {"flag", "%s", Value::Hex(o.flag, 8)}});
    }
    const long long down = r->RestartDownMs();
    return std::vector<Field>{
        {"features", "%s",
         Value::Record({{"orders", "orders %s", Value::Records(std::move(orders), false), true},
                        {"restart_down_ms", "(restart down %s ms)", Value::Number(down)}})}};
  });
  modem.AddStatus(kStatusNvSync, [r] {
    return std::vector<Field>{
        {"features", "%s",
         Value::Record({{"nv_syncs", ", nv syncs %s", Value::Number(r->NvSyncCount())}})}};
  });
}

// set restart-down-ms MS
int SetDownWord(Modem &modem, const Words &w, ControlReply &reply) {
  RestartControl *r = RestartOf(modem);
  unsigned long value = 0;
  if (w.size() != 3) return reply.Usage();
  if (r == nullptr) return reply.Refused("no feature modem");
  if (!ParseNumber(w[2], 600000, &value)) return reply.Usage();
  r->SetRestartDownMs(static_cast<uint32_t>(value));
  reply.Add({"set", "", Value::Text(w[1])});
  return reply.Done(w[1] + " set");
}
MODEMSIM_CONTROL_WORD("set restart-down-ms", "MS", SetDownWord);

}  // namespace

std::vector<RestartControl::Order> RestartControl::Orders() const {
  std::lock_guard<std::mutex> lock(mu_);
  return orders_;
}

void RestartControl::SetRestartDownMs(uint32_t ms) {
  std::lock_guard<std::mutex> lock(mu_);
  restart_down_ms_ = ms;
}

uint32_t RestartControl::RestartDownMs() const {
  std::lock_guard<std::mutex> lock(mu_);
  return restart_down_ms_;
}

uint32_t RestartControl::NvSyncCount() const {
  std::lock_guard<std::mutex> lock(mu_);
  return nv_syncs_;
}

RestartControl *RestartOf(Modem &modem) {
  return modem.FindModuleState<RestartControl>();
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("restart", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
