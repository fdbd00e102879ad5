// The simulated modem's core: service registry, dispatch, recording, faults, indications.
//
// Lock order: a service's state mutex, then sinks_mu_, then mu_, then trace_mu_. Nothing but
// trace_mu_ (which guards only the trace's readers) is taken while mu_ is held, and no sink or
// hook is called under it.
#include "modemsim/modem.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "modemsim/trace.h"

namespace modemsim {

namespace wire = qmi_host::wire;

namespace {

qmi_trace::Entry MessageEntry(const Service &service, uint32_t client, bool received,
                              qmi_idl_type_of_message_type type, uint16_t txn, uint16_t msg_id,
                              const uint8_t *tlvs, size_t len) {
  return qmi_trace::MessageEntry(service.object(), service.id(), client, received, type, msg_id,
                                 txn, tlvs, len);
}

// What a fault does to the request it takes.
std::string FaultNote(const Fault &f) {
  switch (f.kind) {
    case Fault::kNoAnswer:
      return "fault: never answered";
    case Fault::kDelay:
      return "fault: answered after " + std::to_string(f.delay_ms) + " ms";
    case Fault::kResult: {
      char code[8];
      snprintf(code, sizeof(code), "0x%04X", static_cast<unsigned>(f.error) & 0xFFFF);
      return std::string("fault: refused with QMI error ") + code;
    }
    case Fault::kTransportError:
      return "fault: fails in transport with " + std::to_string(f.error);
  }
  return "fault";
}

}  // namespace

void Call::SetResult(uint16_t result, uint16_t error) const {
  if (response_len >= sizeof(QmiResult)) {
    const QmiResult r{static_cast<qmi_result_type_v01>(result),
                      static_cast<qmi_error_type_v01>(error)};
    memcpy(response, &r, sizeof(r));
  }
}

// --- Service ---

Service::Service(Modem &modem, qmi_idl_service_object_type object, uint32_t instance)
    : modem_(modem), object_(object), id_(object->service_id), instance_(instance) {}

void Service::Handle(uint16_t msg_id, Handler handler) {
  std::lock_guard<std::mutex> lock(state_mutex_);
  handlers_[msg_id] = std::move(handler);
}

void Service::SetFailureWriter(FailureWriter writer) {
  std::lock_guard<std::mutex> lock(state_mutex_);
  failure_writer_ = std::move(writer);
}

void Service::SetSummary(Summary summary) {
  std::lock_guard<std::mutex> lock(state_mutex_);
  summary_ = std::move(summary);
}

void Service::OnRestart(std::function<void()> hook) {
  std::lock_guard<std::mutex> lock(state_mutex_);
  restart_hooks_.push_back(std::move(hook));
}

void Service::OnClientGone(std::function<void(uint32_t)> hook) {
  std::lock_guard<std::mutex> lock(state_mutex_);
  client_gone_hooks_.push_back(std::move(hook));
}

// --- Modem ---

Modem::Modem(const std::string &state_dir) : state_(state_dir) {}

Modem::~Modem() {
  if (in_process_) qmi_host::UnregisterInprocServer(this);
  {
    std::lock_guard<std::mutex> lock(mu_);
    stop_ = true;
  }
  queue_cv_.notify_all();
  if (worker_.joinable()) worker_.join();
  // No handler runs any more: the modules' state goes before the services that point to it.
  decltype(module_state_) module_state;
  {
    std::lock_guard<std::mutex> lock(module_state_mu_);
    module_state.swap(module_state_);
  }
}

Service &Modem::AddService(qmi_idl_service_object_type object, uint32_t instance) {
  uint32_t id = object->service_id;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = services_.find(id);
    if (it != services_.end()) return *it->second;
    services_[id] = std::make_unique<Service>(*this, object, instance);
  }
  std::lock_guard<std::mutex> sinks(sinks_mu_);
  for (auto *sink : sinks_) sink->OnServiceUp(id, instance);
  std::lock_guard<std::mutex> lock(mu_);
  return *services_[id];
}

Service *Modem::FindService(uint32_t service_id) {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = services_.find(service_id);
  return it == services_.end() ? nullptr : it->second.get();
}

void Modem::SetAnswerOnWorker(bool on) {
  std::lock_guard<std::mutex> lock(mu_);
  answer_on_worker_ = on;
}

void Modem::ServeInProcess() {
  in_process_ = true;
  qmi_host::RegisterInprocServer(this);
}

// --- qmi_host::Server ---

void Modem::Attach(qmi_host::ClientSink *sink) {
  std::lock_guard<std::mutex> sinks(sinks_mu_);
  sinks_.insert(sink);
  std::vector<std::pair<uint32_t, uint32_t>> up;
  {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto &s : services_) {
      if (s.second->up_) up.push_back({s.first, s.second->instance_});
    }
  }
  for (auto &s : up) sink->OnServiceUp(s.first, s.second);
}

void Modem::Detach(qmi_host::ClientSink *sink) {
  std::vector<std::pair<uint32_t, uint32_t>> gone;  // client, service
  {
    std::lock_guard<std::mutex> sinks(sinks_mu_);
    sinks_.erase(sink);
    std::lock_guard<std::mutex> lock(mu_);
    for (auto it = clients_.begin(); it != clients_.end();) {
      if (it->second.sink == sink) {
        gone.push_back({it->first, it->second.service_id});
        it = clients_.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (auto &g : gone) {
    Service *service = FindService(g.second);
    if (service == nullptr) continue;
    std::lock_guard<std::mutex> state(service->state_mutex_);
    for (auto &hook : service->client_gone_hooks_) hook(g.first);
  }
}

int Modem::Open(qmi_host::ClientSink *sink, uint32_t service_id, uint32_t instance,
                uint32_t *client) {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = services_.find(service_id);
  if (it == services_.end() || !it->second->up_ ||
      (instance != QMI_CLIENT_INSTANCE_ANY && instance != it->second->instance_)) {
    return QMI_SERVICE_ERR;
  }
  do {
    *client = next_client_++;
  } while (*client == 0 || *client == kAllClients || clients_.count(*client) != 0);
  clients_[*client] = ClientRec{sink, service_id};
  return QMI_NO_ERR;
}

void Modem::Close(uint32_t client) {
  uint32_t service_id = 0;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = clients_.find(client);
    if (it == clients_.end()) return;
    service_id = it->second.service_id;
    clients_.erase(it);
  }
  Service *service = FindService(service_id);
  if (service == nullptr) return;
  std::lock_guard<std::mutex> state(service->state_mutex_);
  for (auto &hook : service->client_gone_hooks_) hook(client);
}

int Modem::Deliver(uint32_t client, const uint8_t *msg, size_t len) {
  wire::QmiHeader hdr{};
  if (!wire::ParseQmiHeader(msg, len, &hdr) || hdr.type != wire::kQmiRequest) {
    return QMI_CLIENT_PARAM_ERR;
  }
  Task task{client, std::vector<uint8_t>(msg, msg + len), false, Fault{}, 0, 0, 0, 0, {}};
  std::unique_lock<std::mutex> lock(mu_);
  auto it = clients_.find(client);
  if (it == clients_.end()) return QMI_SERVICE_ERR;
  task.fault_set = TakeFault(it->second.service_id, hdr.msg_id, &task.fault);
  if (tracing()) {
    qmi_trace::Entry e =
        MessageEntry(*services_[it->second.service_id], client, true, QMI_IDL_REQUEST, hdr.txn,
                     hdr.msg_id, msg + wire::kQmiHeaderLen, hdr.len);
    if (task.fault_set) e.note = FaultNote(task.fault);
    Trace(e);
  }
  const bool delayed = task.fault_set && task.fault.kind == Fault::kDelay;
  if (delayed || answer_on_worker_) {
    const uint32_t delay_ms = delayed ? task.fault.delay_ms : 0;
    Enqueue(Clock::now() + std::chrono::milliseconds(delay_ms), std::move(task));
    queue_cv_.notify_one();
    return QMI_NO_ERR;
  }
  lock.unlock();
  // Handled on the caller's thread: no hand-off to the worker on the common path. process_mu_
  // keeps requests one at a time.
  std::lock_guard<std::mutex> process(process_mu_);
  Process(task);
  return QMI_NO_ERR;
}

// --- worker ---

// mu_ held. The worker starts with the first task: a modem that never delays or schedules
// anything runs no thread of its own.
void Modem::Enqueue(Clock::time_point when, Task &&task) {
  queue_.emplace(when, std::move(task));
  if (!worker_.joinable()) worker_ = std::thread([this] { WorkerLoop(); });
}

void Modem::WorkerLoop() {
  std::unique_lock<std::mutex> lock(mu_);
  while (!stop_) {
    if (queue_.empty()) {
      queue_cv_.wait(lock);
      continue;
    }
    auto first = queue_.begin();
    if (first->first > Clock::now()) {
      // A copy: the task may be taken off the queue (a service taken down) while this waits,
      // and the wait reads its deadline again when it wakes.
      const Clock::time_point due = first->first;
      queue_cv_.wait_until(lock, due);
      continue;
    }
    Task task = std::move(first->second);
    queue_.erase(first);
    lock.unlock();
    if (task.call) {
      std::lock_guard<std::mutex> process(process_mu_);
      task.call();
    } else if (task.restart != 0) {
      (void)Restart(task.restart, task.down_ms);  // an id the modem lacks has nothing to restart
    } else if (task.bring_up != 0) {
      BringUp(task.bring_up, &task.epoch);
    } else {
      std::lock_guard<std::mutex> process(process_mu_);
      Process(task);
    }
    lock.lock();
  }
}

bool Modem::TakeFault(uint32_t service_id, uint16_t msg_id, Fault *fault) {
  for (int key : {(int)msg_id, kAnyMessage}) {
    auto it = faults_.find({service_id, key});
    if (it == faults_.end()) continue;
    *fault = it->second;
    if (it->second.count > 0 && --it->second.count == 0) faults_.erase(it);
    return true;
  }
  return false;
}

void Modem::Process(Task &task) {
  wire::QmiHeader hdr{};
  if (!wire::ParseQmiHeader(task.msg.data(), task.msg.size(), &hdr)) return;  // Deliver checked
  const uint8_t *tlvs = task.msg.data() + wire::kQmiHeaderLen;
  Service *service = nullptr;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto c = clients_.find(task.client);
    if (c == clients_.end()) return;  // closed, or dropped by a restart, while queued
    service = services_[c->second.service_id].get();
  }
  const qmi_idl_service_object_type obj = service->object_;
  uint32_t req_size = 0, resp_size = 0;
  const bool known =
      qmi_idl_get_message_c_struct_len(obj, QMI_IDL_REQUEST, hdr.msg_id, &req_size) == 0 &&
      qmi_idl_get_message_c_struct_len(obj, QMI_IDL_RESPONSE, hdr.msg_id, &resp_size) == 0;
  std::vector<uint8_t> request(std::max<uint32_t>(req_size, 1));
  Received rec{task.client,
               hdr.msg_id,
               hdr.txn,
               QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND,
               std::vector<uint8_t>(tlvs, tlvs + hdr.len),
               {}};
  if (known) {
    rec.decode_status = qmi_idl_message_decode(obj, QMI_IDL_REQUEST, hdr.msg_id, tlvs, hdr.len,
                                               request.data(), (uint32_t)request.size());
  }
  rec.record = request;
  const int decode_status = rec.decode_status;
  {
    std::lock_guard<std::mutex> lock(mu_);
    Recording &r = received_[service->id_];
    if (r.recent.size() == kMaxRecorded) r.recent.pop_front();
    r.recent.push_back(std::move(rec));
    ++r.total;
  }
  received_cv_.notify_all();

  if (task.fault_set) {
    switch (task.fault.kind) {
      case Fault::kNoAnswer:
        return;
      case Fault::kTransportError: {
        std::lock_guard<std::mutex> sinks(sinks_mu_);
        qmi_host::ClientSink *sink = SinkOf(task.client);
        if (sink != nullptr) sink->OnTxnError(task.client, hdr.txn, task.fault.error);
        return;
      }
      case Fault::kResult:
        SendResultOnly(*service, task.client, hdr.txn, hdr.msg_id, (uint16_t)task.fault.error);
        return;
      case Fault::kDelay:
        break;
    }
  }
  if (!known || decode_status != QMI_IDL_LIB_NO_ERR) {
    SendResultOnly(*service, task.client, hdr.txn, hdr.msg_id,
                   known ? kQmiErrMalformedMsg : kQmiErrNotSupported);
    return;
  }
  std::vector<uint8_t> &response = response_buf_;  // process_mu_ held
  response.assign(std::max<uint32_t>(resp_size, 1), 0);
  Call call{*this,    *service,        task.client, hdr.msg_id, hdr.txn, request.data(),
            req_size, response.data(), resp_size,   tlvs,       hdr.len, true};
  bool handled = false;
  {
    std::lock_guard<std::mutex> state(service->state_mutex_);
    auto h = service->handlers_.find(hdr.msg_id);
    if (h != service->handlers_.end()) {
      h->second(call);
      handled = true;
    }
  }
  if (!handled) {
    SendResultOnly(*service, task.client, hdr.txn, hdr.msg_id, kQmiErrNotSupported);
    return;
  }
  if (!call.answer) return;
  uint32_t max_len = 0;
  qmi_idl_get_max_message_len(obj, QMI_IDL_RESPONSE, hdr.msg_id, &max_len);
  std::vector<uint8_t> &out = out_buf_;
  out.resize(std::min<uint32_t>(max_len, 0xffff));
  uint32_t encoded = 0;
  const int rc =
      qmi_idl_message_encode(obj, QMI_IDL_RESPONSE, hdr.msg_id, response.data(),
                             (uint32_t)response.size(), out.data(), (uint32_t)out.size(), &encoded);
  if (rc != QMI_IDL_LIB_NO_ERR) {
    SendResultOnly(*service, task.client, hdr.txn, hdr.msg_id, kQmiErrInternal);
    return;
  }
  Answer(task.client, wire::kQmiResponse, hdr.txn, hdr.msg_id, out.data(), encoded);
}

// A response that carries the failure `error`: the zeroed response record, with the failure
// written where the service keeps its verdict, encoded with the table (so every mandatory TLV is
// there); the standard result TLV alone when the table cannot encode it.
void Modem::SendResultOnly(Service &service, uint32_t client, uint16_t txn, uint16_t msg_id,
                           uint16_t error) {
  uint32_t resp_size = 0, max_len = 0;
  std::vector<uint8_t> out;
  bool encoded_ok = false;
  if (qmi_idl_get_message_c_struct_len(service.object_, QMI_IDL_RESPONSE, msg_id, &resp_size) ==
          0 &&
      qmi_idl_get_max_message_len(service.object_, QMI_IDL_RESPONSE, msg_id, &max_len) == 0) {
    std::vector<uint8_t> record(std::max<uint32_t>(resp_size, 1));
    {
      std::lock_guard<std::mutex> state(service.state_mutex_);
      if (service.failure_writer_) {
        service.failure_writer_(record.data(), resp_size, error);
      } else if (resp_size >= sizeof(QmiResult)) {
        const QmiResult r{QMI_RESULT_FAILURE_V01, static_cast<qmi_error_type_v01>(error)};
        memcpy(record.data(), &r, sizeof(r));
      }
    }
    out.resize(std::min<uint32_t>(max_len, 0xffff));
    uint32_t encoded = 0;
    encoded_ok = qmi_idl_message_encode(service.object_, QMI_IDL_RESPONSE, msg_id, record.data(),
                                        (uint32_t)record.size(), out.data(), (uint32_t)out.size(),
                                        &encoded) == 0;
    out.resize(encoded_ok ? encoded : 0);
  }
  if (!encoded_ok) {
    out.assign(7, 0);
    out[0] = 0x02;
    wire::PutU16(&out[1], 4);
    wire::PutU16(&out[3], 1);
    wire::PutU16(&out[5], error);
  }
  Answer(client, wire::kQmiResponse, txn, msg_id, out.data(), out.size());
}

void Modem::Answer(uint32_t client, uint8_t type, uint16_t txn, uint16_t msg_id,
                   const uint8_t *tlvs, size_t len) {
  std::vector<uint8_t> msg(wire::kQmiHeaderLen + len);
  wire::PutQmiHeader(msg.data(), {type, txn, msg_id, (uint16_t)len});
  if (len > 0) memcpy(msg.data() + wire::kQmiHeaderLen, tlvs, len);
  std::lock_guard<std::mutex> sinks(sinks_mu_);
  qmi_host::ClientSink *sink = SinkOf(client);
  if (sink == nullptr) return;
  if (tracing()) TraceSent(client, QMI_IDL_RESPONSE, txn, msg_id, tlvs, len);
  sink->OnMessage(client, msg.data(), msg.size());
}

void Modem::TraceSent(uint32_t client, qmi_idl_type_of_message_type type, uint16_t txn,
                      uint16_t msg_id, const uint8_t *tlvs, size_t len) {
  std::lock_guard<std::mutex> lock(mu_);
  auto c = clients_.find(client);
  if (c == clients_.end()) return;
  Trace(
      MessageEntry(*services_[c->second.service_id], client, false, type, txn, msg_id, tlvs, len));
}

void Modem::TraceService(const Service &service, bool up) {
  qmi_trace::Entry e;
  e.kind = up ? qmi_trace::Entry::Kind::kServiceUp : qmi_trace::Entry::Kind::kServiceDown;
  e.time_us = qmi_trace::Now();
  e.service_id = service.id();
  e.service = service.object();
  Trace(e);
}

void Modem::AddTraceReader(TraceReader *reader) {
  std::lock_guard<std::mutex> lock(trace_mu_);
  trace_readers_.push_back(reader);
  tracing_.store(true, std::memory_order_relaxed);
}

void Modem::RemoveTraceReader(TraceReader *reader) {
  std::lock_guard<std::mutex> lock(trace_mu_);
  trace_readers_.erase(std::remove(trace_readers_.begin(), trace_readers_.end(), reader),
                       trace_readers_.end());
  tracing_.store(!trace_readers_.empty(), std::memory_order_relaxed);
}

void Modem::Trace(const qmi_trace::Entry &entry) {
  std::lock_guard<std::mutex> lock(trace_mu_);
  for (TraceReader *reader : trace_readers_) reader->Offer(entry);
}

qmi_host::ClientSink *Modem::SinkOf(uint32_t client) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto c = clients_.find(client);
  return c == clients_.end() ? nullptr : c->second.sink;
}

uintptr_t Modem::ConnectionOf(uint32_t client) const {
  return reinterpret_cast<uintptr_t>(SinkOf(client));
}

// --- faults, restart, presence ---

void Modem::SetFault(uint32_t service_id, int msg_id, const Fault &fault) {
  std::lock_guard<std::mutex> lock(mu_);
  faults_[{service_id, msg_id}] = fault;
}

void Modem::ClearFaults(uint32_t service_id) {
  std::lock_guard<std::mutex> lock(mu_);
  for (auto it = faults_.begin(); it != faults_.end();) {
    it = it->first.first == service_id ? faults_.erase(it) : std::next(it);
  }
}

void Modem::DropClientsOf(Service &service) {
  std::vector<uint32_t> gone;
  {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto it = clients_.begin(); it != clients_.end();) {
      if (it->second.service_id == service.id_) {
        gone.push_back(it->first);
        it = clients_.erase(it);
      } else {
        ++it;
      }
    }
  }
  std::lock_guard<std::mutex> state(service.state_mutex_);
  for (uint32_t client : gone) {
    for (auto &hook : service.client_gone_hooks_) hook(client);
  }
}

int Modem::SetPresent(uint32_t service_id, bool present) {
  if (FindService(service_id) == nullptr) return QMI_SERVICE_ERR;
  if (present) {
    BringUp(service_id);
    return QMI_NO_ERR;
  }
  // Absent until made present: a restart or a bring-up queued before does not undo it.
  return TakeDown(service_id, true);
}

int Modem::TakeDown(uint32_t service_id, bool cancel_queued) {
  Service *service = FindService(service_id);
  if (service == nullptr) return QMI_SERVICE_ERR;
  {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto it = queue_.begin(); cancel_queued && it != queue_.end();) {
      const Task &t = it->second;
      it = t.bring_up == service_id || t.restart == service_id ? queue_.erase(it) : std::next(it);
    }
    ++service->down_epoch_;
    if (!service->up_) return QMI_NO_ERR;
    service->up_ = false;
  }
  DropClientsOf(*service);
  if (tracing()) TraceService(*service, false);
  std::lock_guard<std::mutex> sinks(sinks_mu_);
  for (auto *sink : sinks_) sink->OnServiceDown(service_id, service->instance_);
  return QMI_NO_ERR;
}

int Modem::Restart(uint32_t service_id, uint32_t down_ms) {
  const int rc = TakeDown(service_id, false);
  if (rc != QMI_NO_ERR) return rc;
  Service *service = FindService(service_id);
  {
    std::lock_guard<std::mutex> state(service->state_mutex_);
    for (auto &hook : service->restart_hooks_) hook();
  }
  if (down_ms == 0) return SetPresent(service_id, true);
  std::lock_guard<std::mutex> lock(mu_);
  Task task{0, {}, false, Fault{}, service_id, 0, 0, 0, {}};
  task.epoch = service->down_epoch_;
  Enqueue(Clock::now() + std::chrono::milliseconds(down_ms), std::move(task));
  queue_cv_.notify_one();
  return QMI_NO_ERR;
}

void Modem::ScheduleRestart(uint32_t service_id, uint32_t after_ms, uint32_t down_ms) {
  std::lock_guard<std::mutex> lock(mu_);
  Task task{0, {}, false, Fault{}, 0, service_id, 0, 0, {}};
  task.down_ms = down_ms;
  Enqueue(Clock::now() + std::chrono::milliseconds(after_ms), std::move(task));
  queue_cv_.notify_one();
}

void Modem::Schedule(uint32_t after_ms, std::function<void()> call) {
  std::lock_guard<std::mutex> lock(mu_);
  Task task{0, {}, false, Fault{}, 0, 0, 0, 0, {}};
  task.call = std::move(call);
  Enqueue(Clock::now() + std::chrono::milliseconds(after_ms), std::move(task));
  queue_cv_.notify_one();
}

void Modem::BringUp(uint32_t service_id, const uint64_t *epoch) {
  uint32_t instance = 0;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = services_.find(service_id);
    if (it == services_.end() || it->second->up_) return;
    if (epoch != nullptr && *epoch != it->second->down_epoch_) return;  // taken away since
    it->second->up_ = true;
    instance = it->second->instance_;
    if (tracing()) TraceService(*it->second, true);
  }
  std::lock_guard<std::mutex> sinks(sinks_mu_);
  for (auto *sink : sinks_) sink->OnServiceUp(service_id, instance);
}

// --- indications ---

int Modem::PushRawIndication(uint32_t service_id, uint16_t msg_id, const uint8_t *tlvs, size_t len,
                             uint32_t client) {
  if (len > 0xffff || (tlvs == nullptr && len != 0)) return QMI_CLIENT_PARAM_ERR;
  std::vector<uint8_t> msg(wire::kQmiHeaderLen + len);
  wire::PutQmiHeader(msg.data(), {wire::kQmiIndication, 0, msg_id, (uint16_t)len});
  if (len > 0) memcpy(msg.data() + wire::kQmiHeaderLen, tlvs, len);
  std::lock_guard<std::mutex> sinks(sinks_mu_);
  std::vector<std::pair<uint32_t, qmi_host::ClientSink *>> targets;
  const Service *service = nullptr;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto s = services_.find(service_id);
    if (s == services_.end() || !s->second->up_) return QMI_SERVICE_ERR;
    service = s->second.get();
    for (auto &c : clients_) {
      if (c.second.service_id == service_id && (client == kAllClients || client == c.first)) {
        targets.push_back({c.first, c.second.sink});
      }
    }
  }
  for (auto &t : targets) {
    if (tracing()) {
      Trace(MessageEntry(*service, t.first, false, QMI_IDL_INDICATION, 0, msg_id, tlvs, len));
    }
    t.second->OnMessage(t.first, msg.data(), msg.size());
  }
  return (int)targets.size();
}

int Modem::PushIndication(uint32_t service_id, uint16_t msg_id, const void *record, uint32_t len,
                          uint32_t client) {
  Service *service = FindService(service_id);
  if (service == nullptr) return QMI_SERVICE_ERR;
  uint32_t max_len = 0;
  int rc = qmi_idl_get_max_message_len(service->object_, QMI_IDL_INDICATION, msg_id, &max_len);
  if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  std::vector<uint8_t> out(std::min<uint32_t>(max_len, 0xffff));
  uint32_t encoded = 0;
  rc = qmi_idl_message_encode(service->object_, QMI_IDL_INDICATION, msg_id, record, len, out.data(),
                              (uint32_t)out.size(), &encoded);
  if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  return PushRawIndication(service_id, msg_id, out.data(), encoded, client);
}

// --- recording and status ---

std::vector<Received> Modem::ReceivedBy(uint32_t service_id) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = received_.find(service_id);
  if (it == received_.end()) return {};
  return std::vector<Received>(it->second.recent.begin(), it->second.recent.end());
}

void Modem::ClearReceived(uint32_t service_id) {
  std::lock_guard<std::mutex> lock(mu_);
  received_.erase(service_id);
}

bool Modem::WaitReceived(uint32_t service_id, size_t count, uint32_t timeout_ms) const {
  std::unique_lock<std::mutex> lock(mu_);
  return received_cv_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
    auto it = received_.find(service_id);
    return it != received_.end() && it->second.total >= count;
  });
}

std::vector<uint32_t> Modem::Clients(uint32_t service_id) const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<uint32_t> out;
  for (auto &c : clients_) {
    if (c.second.service_id == service_id) out.push_back(c.first);
  }
  return out;
}

std::vector<uint32_t> Modem::ServiceIds() const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<uint32_t> ids;
  for (const auto &s : services_) ids.push_back(s.first);
  return ids;
}

std::vector<ServiceStatus> Modem::Status() const {
  std::vector<ServiceStatus> out;
  std::vector<Service *> services;
  {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto &s : services_) {
      ServiceStatus st{s.first, s.second->instance_, s.second->up_, 0, 0, {}};
      for (auto &c : clients_) st.clients += c.second.service_id == s.first ? 1 : 0;
      auto r = received_.find(s.first);
      st.received = r == received_.end() ? 0 : (size_t)r->second.total;
      out.push_back(st);
      services.push_back(s.second.get());
    }
  }
  // Services are never removed; their mutex is taken before mu_ (handlers push indications).
  for (size_t i = 0; i < services.size(); ++i) {
    std::lock_guard<std::mutex> lock(services[i]->state_mutex_);
    if (services[i]->summary_) out[i].summary = services[i]->summary_();
  }
  return out;
}

void Modem::AddStatus(int order, StatusFields fields) {
  std::lock_guard<std::mutex> lock(module_state_mu_);
  status_.emplace(order, std::move(fields));
}

std::vector<Field> Modem::ModuleStatus() const {
  std::vector<StatusFields> parts;
  {
    std::lock_guard<std::mutex> lock(module_state_mu_);
    for (const auto &entry : status_) parts.push_back(entry.second);
  }
  std::vector<Field> out;
  for (const StatusFields &part : parts) {
    for (Field &f : part()) out.push_back(std::move(f));
  }
  return MergeRecords(std::move(out));
}

// --- modules ---

namespace {
struct Module {
  std::string name;
  int order;
  ModuleInit init;
};
std::vector<Module> &Modules() {
  static auto *modules = new std::vector<Module>();
  return *modules;
}
std::vector<Module> SortedModules() {
  std::vector<Module> sorted = Modules();
  std::sort(sorted.begin(), sorted.end(), [](const Module &a, const Module &b) {
    return a.order != b.order ? a.order < b.order : a.name < b.name;
  });
  return sorted;
}
}  // namespace

ModuleRegistrar::ModuleRegistrar(const char *name, int order, ModuleInit init) {
  Modules().push_back(Module{name, order, init});
}

std::vector<std::string> RegisteredModules() {
  std::vector<std::string> names;
  for (auto &m : SortedModules()) names.push_back(m.name);
  return names;
}

std::unique_ptr<Modem> CreateStandardModem(const std::string &state_dir) {
  auto modem = std::make_unique<Modem>(state_dir);
  for (auto &m : SortedModules()) m.init(*modem);
  return modem;
}

}  // namespace modemsim
