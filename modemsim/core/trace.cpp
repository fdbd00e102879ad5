// The simulated modem's trace readers and the `trace` word (see modemsim/trace.h).
#include "modemsim/trace.h"

#include <utility>
#include <vector>

#include "modemsim/text.h"

namespace modemsim {

TraceReader::TraceReader(std::set<uint32_t> services, size_t capacity)
    : services_(std::move(services)), capacity_(capacity) {}

void TraceReader::Offer(const qmi_trace::Entry &entry) {
  if (!services_.empty() && services_.count(entry.service_id) == 0) return;
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (queue_.size() >= capacity_) {
      ++dropped_;
      return;
    }
    queue_.push_back(entry);
  }
  cv_.notify_one();
}

void TraceReader::Take(std::vector<qmi_trace::Entry> *out, uint64_t *dropped,
                       std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mu_);
  cv_.wait_for(lock, timeout, [&] { return !queue_.empty() || dropped_ != 0; });
  out->assign(std::make_move_iterator(queue_.begin()), std::make_move_iterator(queue_.end()));
  queue_.clear();
  *dropped = dropped_;
  dropped_ = 0;
}

namespace {

// A service given by the name its table carries ("sar", "uim"; "ctl" for QMUX control). When
// there is none, `known` lists the names there are.
bool ServiceNamed(Modem &modem, const std::string &name, unsigned long *id, std::string *known) {
  std::vector<std::pair<uint32_t, qmi_idl_service_object_type>> objects;
  objects.emplace_back(0, qmi_trace::ControlService());
  for (const ServiceStatus &status : modem.Status()) {
    const Service *service = modem.FindService(status.id);
    objects.emplace_back(status.id, service != nullptr ? service->object() : nullptr);
  }
  for (const auto &[service_id, object] : objects) {
    if (object == nullptr || object->name == nullptr) continue;
    if (name == object->name) {
      *id = service_id;
      return true;
    }
    *known += std::string(known->empty() ? "" : ", ") + object->name;
  }
  return false;
}

}  // namespace

int TraceRequest(Modem &modem, const Words &w, ControlReply &reply, std::set<uint32_t> *services) {
  services->clear();
  std::vector<Value> named;
  std::string text;
  for (size_t i = 1; i < w.size(); ++i) {
    unsigned long id = 0;
    std::string known;
    if (!ParseNumber(w[i], 0xffffffffUL, &id) && !ServiceNamed(modem, w[i], &id, &known)) {
      return reply.Refused("no service named " + w[i] + ": give its id or one of " + known, 1);
    }
    const Service *service = id != 0 ? modem.FindService(static_cast<uint32_t>(id)) : nullptr;
    if (id != 0 && service == nullptr) return reply.NoService(static_cast<uint32_t>(id));
    const qmi_idl_service_object_type object =
        service != nullptr ? service->object() : qmi_trace::ControlService();
    if (services->insert(static_cast<uint32_t>(id)).second) {
      named.push_back(Value::Number(static_cast<long long>(id)));
      text += (text.empty() ? "" : ", ") + ServiceName(static_cast<uint32_t>(id));
      if (object != nullptr && object->name != nullptr) text += std::string(" ") + object->name;
    }
  }
  reply.Add({"kind", "", Value::Text("tracing")});
  reply.Add({"services", "", named.empty() ? Value::Text("all") : Value::List(named)});
  return reply.Done("tracing " + (named.empty() ? "every service" : text));
}

namespace {

// As a command of its own (the embedded modem, a one-shot control command) a trace has nothing
// to follow: it streams only from tarvik-modemd.
int Trace(Modem &modem, const Words &w, ControlReply &reply) {
  std::set<uint32_t> services;
  ControlReply check(false);
  const int status = TraceRequest(modem, w, check, &services);
  if (status == 2) return reply.Usage();
  const std::string why = status != 0 ? check.out().substr(0, check.out().size() - 1)
                                      : "a trace follows tarvik-modemd: tarvik-qmi --modem "
                                        "unix:PATH sim trace";
  return reply.Refused(why, 1);
}

}  // namespace

MODEMSIM_CONTROL_WORD("trace", "[SERVICE...] [--for SECONDS]", Trace);

}  // namespace modemsim
