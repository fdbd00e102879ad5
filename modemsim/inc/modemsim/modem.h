// The simulated modem: a registry of QMI services, each with a dispatch table of handlers, state
// in memory (and in a state directory when one is given), a record of what every service
// received, fault injection and indications. It is a qmi_host::Server: the in-process transport
// reaches it directly, tarvik-modemd serves it over a Unix socket.
//
// Threads: a request is handled on the thread that delivers it (the in-process client's, or the
// daemon's connection thread), one request at a time across the modem; a delayed request waits
// in a timed queue and is handled on the modem's worker thread. A handler runs with its
// service's mutex held; code on other threads that reads or changes service state takes the
// same mutex (Service::mutex()). A handler must not call back into the client library.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common_v01.h"
#include "modemsim/state_store.h"
#include "modemsim/status.h"
#include "qmi_client_host.h"
#include "qmi_idl_lib.h"
#include "qmi_trace.h"

namespace modemsim {

class Modem;
class Service;
class TraceReader;

// QMI error codes a handler or a fault puts in the result TLV 0x02.
constexpr uint16_t kQmiErrNone = QMI_ERR_NONE_V01;
constexpr uint16_t kQmiErrMalformedMsg = QMI_ERR_MALFORMED_MSG_V01;
constexpr uint16_t kQmiErrInternal = QMI_ERR_INTERNAL_V01;
constexpr uint16_t kQmiErrInvalidArg = QMI_ERR_INVALID_ARG_V01;
constexpr uint16_t kQmiErrNotSupported = QMI_ERR_NOT_SUPPORTED_V01;

constexpr uint32_t kAllClients = 0xFFFFFFFFu;
constexpr int kAnyMessage = -1;

// The standard response TLV (0x02) every response record of the standard services starts with:
// two 4-byte enums in the record (result 0 success, 1 failure; the QMI error code), two u16 on
// the wire.
using QmiResult = qmi_response_type_v01;

// One request being handled. `request` is the decoded request record; `response` the response
// record, zeroed, that the handler fills (result TLV included). Leaving `answer` true sends the
// response encoded with the service's table; false sends nothing (the client times out).
struct Call {
  Modem &modem;
  Service &service;
  uint32_t client;
  uint16_t msg_id;
  uint16_t txn;
  const void *request;
  uint32_t request_len;
  void *response;
  uint32_t response_len;
  const uint8_t *tlvs;  // raw TLV area of the request
  size_t tlv_len;
  bool answer = true;

  template <typename T>
  const T &Request() const {
    return *static_cast<const T *>(request);
  }
  template <typename T>
  T &Response() const {
    return *static_cast<T *>(response);
  }
  // Writes the result TLV at offset 0 of the response record (the layout of our tables).
  void SetResult(uint16_t result, uint16_t error) const;
};

using Handler = std::function<void(Call &call)>;

// What a service received, decoded with its request table (status 0) or not (the codec's
// error; `record` then holds what was decoded before it failed).
struct Received {
  uint32_t client;
  uint16_t msg_id;
  uint16_t txn;
  int32_t decode_status;
  std::vector<uint8_t> tlvs;
  std::vector<uint8_t> record;

  template <typename T>
  const T &As() const {
    static_assert(std::is_trivially_copyable<T>::value, "records are plain data");
    return *reinterpret_cast<const T *>(record.data());
  }
};

// Fault answered instead of (or before) the handler. `count` faults the next N matching
// requests; a negative count keeps the fault until cleared.
struct Fault {
  enum Kind {
    kTransportError,  // the request fails in transport with `error` (a QMI_* client error)
    kResult,          // answered with result 1 and QMI error `error`, handler not run
    kNoAnswer,        // never answered
    kDelay,           // handled normally after `delay_ms`
  };
  Kind kind = kNoAnswer;
  int error = 0;
  uint32_t delay_ms = 0;
  int count = -1;
};

class Service {
 public:
  Service(Modem &modem, qmi_idl_service_object_type object, uint32_t instance);

  uint32_t id() const { return id_; }
  uint32_t instance() const { return instance_; }
  qmi_idl_service_object_type object() const { return object_; }
  Modem &modem() const { return modem_; }

  // Handler of a message id (replaces an earlier one). Requests without a handler are answered
  // with kQmiErrNotSupported.
  void Handle(uint16_t msg_id, Handler handler);
  // Called (with the service mutex held) when the service restarts: volatile state goes.
  void OnRestart(std::function<void()> hook);
  // Called (with the service mutex held) when a client closes or is dropped by a restart.
  void OnClientGone(std::function<void(uint32_t client)> hook);

  // How the service writes a failure with QMI error `error` into a zeroed response record
  // before it is encoded: what a kResult fault, a malformed request and a message without
  // handler are answered with. The default is the standard result TLV 0x02, QmiResult{1, error}
  // at offset 0 of the record; a service whose responses carry their verdict elsewhere sets its
  // own (called with the service mutex held).
  using FailureWriter = std::function<void(void *record, uint32_t len, uint16_t error)>;
  void SetFailureWriter(FailureWriter writer);

  // What `sim status` shows of the service's own state: typed fields, rendered after the
  // service's own words on its line and as members of its JSON object. Called with the service
  // mutex held.
  using Summary = std::function<std::vector<Field>()>;
  void SetSummary(Summary summary);

  // Held while a handler runs; take it to touch service state from another thread.
  std::mutex &mutex() const { return state_mutex_; }

 private:
  friend class Modem;
  Modem &modem_;
  qmi_idl_service_object_type object_;
  uint32_t id_;
  uint32_t instance_;
  bool up_ = true;
  uint64_t down_epoch_ = 0;  // counts SetPresent(false): a queued bring-up of an older one is void
  std::map<uint16_t, Handler> handlers_;
  std::vector<std::function<void()>> restart_hooks_;
  std::vector<std::function<void(uint32_t)>> client_gone_hooks_;
  FailureWriter failure_writer_;
  Summary summary_;
  mutable std::mutex state_mutex_;
};

struct ServiceStatus {
  uint32_t id;
  uint32_t instance;
  bool up;
  size_t clients;
  size_t received;
  std::vector<Field> summary;  // the service's Summary, when it has one
};

class Modem final : public qmi_host::Server {
 public:
  // state_dir "" keeps all state in memory.
  explicit Modem(const std::string &state_dir = "");
  ~Modem() override;
  Modem(const Modem &) = delete;
  Modem &operator=(const Modem &) = delete;

  // Adds a service (up at once). One service per id; adding an id again returns the existing
  // service.
  Service &AddService(qmi_idl_service_object_type object, uint32_t instance = 0);
  Service *FindService(uint32_t service_id);

  // Makes this modem the in-process transport's server (undone by the destructor).
  void ServeInProcess();

  // Handles every request on the modem's worker thread instead of the delivering thread, as a
  // modem on another processor would: the caller always waits for a hand-off.
  void SetAnswerOnWorker(bool on);

  StateStore &state() { return state_; }
  const std::string &state_dir() const { return state_.dir(); }

  // --- module state ---
  // The state a module keeps for this modem: one object per type T, made by the first call
  // (from `args`) and returned by every later one, destroyed with the modem (after its worker
  // has stopped). A module's handlers may keep a pointer to it: it lives exactly as long as
  // they can run. Any thread.
  template <typename T, typename... Args>
  T &ModuleState(Args &&...args) {
    std::lock_guard<std::mutex> lock(module_state_mu_);
    std::shared_ptr<void> &slot = module_state_[std::type_index(typeid(T))];
    if (!slot) slot = std::make_shared<T>(std::forward<Args>(args)...);
    return *static_cast<T *>(slot.get());
  }
  // The object of type T, or null when this modem has none.
  template <typename T>
  T *FindModuleState() const {
    std::lock_guard<std::mutex> lock(module_state_mu_);
    auto it = module_state_.find(std::type_index(typeid(T)));
    return it == module_state_.end() ? nullptr : static_cast<T *>(it->second.get());
  }

  // --- fault injection ---
  void SetFault(uint32_t service_id, int msg_id, const Fault &fault);
  void ClearFaults(uint32_t service_id);
  // Modem restart of one service: it goes down (clients get their error callbacks, handles
  // die, restart hooks run) and comes back after down_ms (0: before this returns).
  // QMI_SERVICE_ERR for an unknown service.
  [[nodiscard]] int Restart(uint32_t service_id, uint32_t down_ms = 0);
  // The same, started on the modem's worker thread after `after_ms`: what a handler uses (a
  // handler must not call Restart itself, it holds its service's mutex).
  void ScheduleRestart(uint32_t service_id, uint32_t after_ms, uint32_t down_ms = 0);
  // Runs `call` on the modem's worker thread after `after_ms`, one at a time with the request
  // handlers (no service mutex held): what a module uses for something the modem does later on
  // its own, such as an indication some time after a request was answered. Calls still queued
  // when the modem goes are dropped.
  void Schedule(uint32_t after_ms, std::function<void()> call);
  // Takes a service away until it is made present again (a restart or bring-up queued before
  // is cancelled).
  [[nodiscard]] int SetPresent(uint32_t service_id, bool present);

  // --- indications ---
  // Encodes `record` with the service's indication table and sends it to one client or to
  // kAllClients of the service. Returns the number of clients reached or a negative codec /
  // QMI_SERVICE_ERR status.
  int PushIndication(uint32_t service_id, uint16_t msg_id, const void *record, uint32_t len,
                     uint32_t client = kAllClients);
  // Sends a TLV area as it is (for tests of malformed input).
  int PushRawIndication(uint32_t service_id, uint16_t msg_id, const uint8_t *tlvs, size_t len,
                        uint32_t client = kAllClients);

  // --- recording ---
  // The requests a service received, oldest first: the last kMaxRecorded of them.
  static constexpr size_t kMaxRecorded = 4096;
  std::vector<Received> ReceivedBy(uint32_t service_id) const;
  void ClearReceived(uint32_t service_id);
  // Waits until the service has received at least `count` requests since the last
  // ClearReceived; false on time-out.
  bool WaitReceived(uint32_t service_id, size_t count, uint32_t timeout_ms) const;
  // Clients currently open on a service.
  std::vector<uint32_t> Clients(uint32_t service_id) const;
  // The connection a client was opened on (one per process over the daemon's socket, one for
  // the in-process transport), as an opaque non-zero id; 0 for a client that is not open.
  uintptr_t ConnectionOf(uint32_t client) const;

  // Takes every service's mutex: never from a handler (use ServiceIds there).
  std::vector<ServiceStatus> Status() const;
  // What `status` shows of a module beyond its services' lines: top-level fields (a record
  // given to the same key by several modules is one record), in ascending `order` after the
  // services. Called without any service mutex held; a module reads its own state under its
  // own lock. Registered by a module's init.
  using StatusFields = std::function<std::vector<Field>()>;
  void AddStatus(int order, StatusFields fields);
  // Every module's fields, merged.
  std::vector<Field> ModuleStatus() const;
  // The ids of the services the modem hosts; safe from a handler.
  std::vector<uint32_t> ServiceIds() const;

  // --- trace (modemsim/trace.h) ---
  // From AddTraceReader on, the reader is offered every message the modem receives and sends
  // and its services going down and up; after RemoveTraceReader returns it is offered nothing.
  void AddTraceReader(TraceReader *reader);
  void RemoveTraceReader(TraceReader *reader);
  // Whether anyone follows the trace: what each message checks first (one relaxed load).
  bool tracing() const { return tracing_.load(std::memory_order_relaxed); }
  // Offers an entry to the readers: the QMUX server's control traffic comes this way.
  void Trace(const qmi_trace::Entry &entry);

  // qmi_host::Server
  void Attach(qmi_host::ClientSink *sink) override;
  void Detach(qmi_host::ClientSink *sink) override;
  int Open(qmi_host::ClientSink *sink, uint32_t service_id, uint32_t instance,
           uint32_t *client) override;
  void Close(uint32_t client) override;
  int Deliver(uint32_t client, const uint8_t *msg, size_t len) override;

 private:
  using Clock = std::chrono::steady_clock;
  struct ClientRec {
    qmi_host::ClientSink *sink;
    uint32_t service_id;
  };
  struct Task {
    uint32_t client;
    std::vector<uint8_t> msg;
    bool fault_set;
    Fault fault;
    uint32_t bring_up = 0;  // non-zero: bring this service up instead
    uint32_t restart = 0;   // non-zero: restart this service (down for down_ms) instead
    uint32_t down_ms = 0;
    uint64_t epoch = 0;          // bring-up: the service's down_epoch_ when it was queued
    std::function<void()> call;  // set: run this instead
  };

  void Enqueue(Clock::time_point when, Task &&task);
  void WorkerLoop();
  void Process(Task &task);
  bool TakeFault(uint32_t service_id, uint16_t msg_id, Fault *fault);
  void Answer(uint32_t client, uint8_t type, uint16_t txn, uint16_t msg_id, const uint8_t *tlvs,
              size_t len);
  void SendResultOnly(Service &service, uint32_t client, uint16_t txn, uint16_t msg_id,
                      uint16_t error);
  void BringUp(uint32_t service_id, const uint64_t *epoch = nullptr);
  int TakeDown(uint32_t service_id, bool cancel_queued);
  qmi_host::ClientSink *SinkOf(uint32_t client) const;
  // A message the modem sends to `client` (mu_ not held), for the trace.
  void TraceSent(uint32_t client, qmi_idl_type_of_message_type type, uint16_t txn, uint16_t msg_id,
                 const uint8_t *tlvs, size_t len);
  void TraceService(const Service &service, bool up);
  void DropClientsOf(Service &service);

  StateStore state_;
  mutable std::mutex module_state_mu_;
  // Hashed, not ordered: on 32-bit ARM the C++ runtime's type_info::before does not order a type
  // of an unnamed namespace against a named one, so an ordered map can hand out another
  // module's state.
  std::unordered_map<std::type_index, std::shared_ptr<void>> module_state_;
  mutable std::mutex mu_;  // services_, clients_, faults_, received_, queue_
  mutable std::condition_variable received_cv_;
  std::map<uint32_t, std::unique_ptr<Service>> services_;
  std::map<uint32_t, ClientRec> clients_;
  uint32_t next_client_ = 1;
  std::map<std::pair<uint32_t, int>, Fault> faults_;
  struct Recording {
    std::deque<Received> recent;  // the last kMaxRecorded requests
    uint64_t total = 0;
  };
  std::map<uint32_t, Recording> received_;
  std::multimap<int, StatusFields> status_;  // under module_state_mu_

  std::atomic<bool> tracing_{false};
  std::mutex trace_mu_;  // trace_readers_; innermost of all
  std::vector<TraceReader *> trace_readers_;

  std::mutex sinks_mu_;  // held while calling into a sink; before mu_
  std::set<qmi_host::ClientSink *> sinks_;

  std::mutex process_mu_;              // one request handled at a time; before everything else
  std::vector<uint8_t> response_buf_;  // scratch of Process, under process_mu_
  std::vector<uint8_t> out_buf_;
  std::condition_variable queue_cv_;
  std::multimap<Clock::time_point, Task> queue_;
  bool stop_ = false;
  bool answer_on_worker_ = false;
  bool in_process_ = false;
  std::thread worker_;  // started by the first queued task; under mu_
};

// --- service modules ---
// A module adds its services (and handlers) to a modem. Modules register themselves with a
// static MODEMSIM_MODULE(...) object in a source file under modemsim/<area>/; the modemsim
// library is shared, so every such object runs. CreateStandardModem instantiates a modem and
// runs every module in ascending `order`, then by name (a module that adds handlers to another
// module's service uses a higher order).
using ModuleInit = void (*)(Modem &modem);

struct ModuleRegistrar {
  ModuleRegistrar(const char *name, int order, ModuleInit init);
};

std::vector<std::string> RegisteredModules();

std::unique_ptr<Modem> CreateStandardModem(const std::string &state_dir);

}  // namespace modemsim

#define MODEMSIM_CONCAT_(a, b) a##b
#define MODEMSIM_CONCAT(a, b) MODEMSIM_CONCAT_(a, b)
#define MODEMSIM_MODULE(name, order, init)                                                \
  static const ::modemsim::ModuleRegistrar MODEMSIM_CONCAT(g_modemsim_module_, __LINE__)( \
      name, order, init)
