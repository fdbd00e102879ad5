// The QMI client library stand-in: clients, transactions, the callback thread and the choice of
// transport.
//
// Locks: Core::mu_ guards everything in the core; it is never held while calling a transport or
// a user callback. Transports call the core (as its ClientSink) from their own threads.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "cci_internal.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "qmux_link.h"

namespace {

constexpr uint32_t kInfoMagic = 0x54514d49;  // "IMQT": an info filled by this library

// A request waiting for its response. Completed under Core::mu_; `finished` lets a transport
// that reads on the waiting thread see completion without the lock.
struct Pending {
  std::condition_variable cv;
  bool done = false;
  std::atomic<bool> finished{false};
  int error = QMI_NO_ERR;
  uint16_t msg_id = 0;
  std::vector<uint8_t> tlvs;

  void Complete(int err) {
    error = err;
    done = true;
    finished.store(true, std::memory_order_release);
    cv.notify_one();
  }
};

}  // namespace

struct qmi_client_struct {
  bool notifier = false;
  qmi_idl_service_object_type obj = nullptr;
  uint32_t service_id = 0;
  uint32_t instance = 0;
  uint32_t client_id = 0;
  qmi_cci::Transport *transport = nullptr;
  qmi_client_ind_cb ind_cb = nullptr;
  void *ind_data = nullptr;
  qmi_client_error_cb err_cb = nullptr;
  void *err_data = nullptr;
  qmi_client_os_params *signal = nullptr;  // notifier only
  bool dead = false;
  bool released = false;
  bool err_reported = false;
  uint16_t next_txn = 0;
  std::unordered_map<uint16_t, Pending *> pending;
};

namespace {

using Handle = std::shared_ptr<qmi_client_struct>;
using SteadyClock = std::chrono::steady_clock;

struct Event {
  Handle handle;
  bool indication;
  uint16_t msg_id;
  int error;
  std::vector<uint8_t> data;
};

void RaiseSignal(qmi_client_os_params *sig) {
  pthread_mutex_lock(&sig->mutex);
  sig->sig_set = 1;
  pthread_cond_broadcast(&sig->cond);
  pthread_mutex_unlock(&sig->mutex);
}

void LowerSignal(qmi_client_os_params *sig) {
  pthread_mutex_lock(&sig->mutex);
  sig->sig_set = 0;
  pthread_mutex_unlock(&sig->mutex);
}

class Core final : public qmi_host::ClientSink {
 public:
  static Core &Get() {
    static Core *core = new Core();  // never destroyed: callbacks may run during exit
    return *core;
  }

  int Select(const std::string &choice) {
    std::lock_guard<std::mutex> select_lock(select_mu_);
    return SelectLocked(choice);
  }

  qmi_cci::Transport *EnsureTransport() {
    std::lock_guard<std::mutex> select_lock(select_mu_);
    if (!selected_) {
      const char *env = getenv("TARVIK_QMI_TRANSPORT");
      if (SelectLocked(env != nullptr && *env != '\0' ? env : "inproc") == QMI_CLIENT_PARAM_ERR) {
        SelectLocked("inproc");
      }
    }
    return transport_;
  }

  uint64_t dropped() const { return dropped_.load(); }

  // Waits until no callback is queued or running. False when `timeout_ms` passed first, or when
  // called from a callback (which would wait for itself).
  bool WaitCallbacks(uint32_t timeout_ms) {
    std::unique_lock<std::mutex> lock(mu_);
    if (std::this_thread::get_id() == cb_thread_id_) return false;
    return cb_done_cv_.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                                [&] { return events_.empty() && running_ == nullptr; });
  }

  // --- ClientSink ---
  void OnServiceUp(uint32_t service_id, uint32_t instance) override {
    if (trace_) TraceService(service_id, qmi_trace::Entry::Kind::kServiceUp);
    std::vector<qmi_client_os_params *> signals;
    {
      std::lock_guard<std::mutex> lock(mu_);
      up_[service_id].insert(instance);
      for (auto &entry : handles_) {
        const Handle &h = entry.second;
        if (h->notifier && h->service_id == service_id && h->signal != nullptr) {
          signals.push_back(h->signal);
        }
      }
      // Signals are raised under mu_ so that a notifier released concurrently cannot have its
      // signal object freed under us: release takes mu_ before it returns.
      for (auto *sig : signals) RaiseSignal(sig);
    }
    services_cv_.notify_all();
  }

  void OnServiceDown(uint32_t service_id, uint32_t instance) override {
    if (trace_) TraceService(service_id, qmi_trace::Entry::Kind::kServiceDown);
    std::lock_guard<std::mutex> lock(mu_);
    auto it = up_.find(service_id);
    if (it != up_.end()) {
      it->second.erase(instance);
      if (it->second.empty()) up_.erase(it);
    }
    // The last server is gone: the notifiers' signals fall, so that a wait returns early only
    // when a server is up again (the signal says what the service list says).
    if (up_.count(service_id) == 0) {
      for (auto &entry : handles_) {
        const Handle &h = entry.second;
        if (h->notifier && h->service_id == service_id && h->signal != nullptr) {
          LowerSignal(h->signal);
        }
      }
    }
    for (auto &entry : handles_) {
      const Handle &h = entry.second;
      if (!h->notifier && !h->dead && h->service_id == service_id && h->instance == instance) {
        KillLocked(h);
      }
    }
  }

  void OnMessage(uint32_t client, const uint8_t *msg, size_t len) override {
    if (trace_) TraceReceived(client, msg, len);
    qmi_host::wire::QmiHeader hdr{};
    std::lock_guard<std::mutex> lock(mu_);
    auto it = by_client_.find(client);
    if (!qmi_host::wire::ParseQmiHeader(msg, len, &hdr) || it == by_client_.end()) {
      ++dropped_;
      return;
    }
    qmi_client_struct *h = it->second;
    const uint8_t *tlvs = msg + qmi_host::wire::kQmiHeaderLen;
    if (hdr.type == qmi_host::wire::kQmiResponse) {
      auto p = h->pending.find(hdr.txn);
      if (p == h->pending.end() || p->second->msg_id != hdr.msg_id) {
        ++dropped_;
        return;
      }
      Pending *pending = p->second;
      h->pending.erase(p);
      pending->tlvs.assign(tlvs, tlvs + hdr.len);
      pending->Complete(QMI_NO_ERR);
    } else if (hdr.type == qmi_host::wire::kQmiIndication) {
      if (h->ind_cb != nullptr) {
        QueueLocked(
            Event{handles_[h], true, hdr.msg_id, 0, std::vector<uint8_t>(tlvs, tlvs + hdr.len)});
      }
    } else {
      ++dropped_;
    }
  }

  void OnTxnError(uint32_t client, uint16_t txn, int error) override {
    if (trace_) {
      qmi_trace::Entry e = ClientEntry(client);
      e.kind = qmi_trace::Entry::Kind::kTxnError;
      e.txn = txn;
      e.error = error;
      qmi_cci::Trace(e);
    }
    std::lock_guard<std::mutex> lock(mu_);
    auto it = by_client_.find(client);
    if (it == by_client_.end()) return;
    auto p = it->second->pending.find(txn);
    if (p == it->second->pending.end()) {
      ++dropped_;
      return;
    }
    p->second->Complete(error);
    it->second->pending.erase(p);
  }

  // --- API ---
  int ServiceList(qmi_idl_service_object_type obj, qmi_service_info *infos, unsigned *num_entries,
                  unsigned *num_services) {
    uint32_t service_id = 0;
    if (obj == nullptr || num_services == nullptr || (infos != nullptr && num_entries == nullptr) ||
        qmi_idl_get_service_id(obj, &service_id) != QMI_IDL_LIB_NO_ERR) {
      return QMI_CLIENT_PARAM_ERR;
    }
    EnsureTransport();
    std::lock_guard<std::mutex> lock(mu_);
    auto it = up_.find(service_id);
    const size_t count = it == up_.end() ? 0 : it->second.size();
    *num_services = (unsigned)count;
    if (infos != nullptr) {
      unsigned filled = 0;
      if (it != up_.end()) {
        for (uint32_t instance : it->second) {
          if (filled >= *num_entries) break;
          FillInfo(&infos[filled++], service_id, instance);
        }
      }
      *num_entries = filled;
    } else if (num_entries != nullptr) {
      *num_entries = 0;
    }
    return count == 0 ? QMI_SERVICE_ERR : QMI_NO_ERR;
  }

  int NotifierInit(qmi_idl_service_object_type obj, qmi_client_os_params *sig,
                   qmi_client_type *out) {
    uint32_t service_id = 0;
    if (obj == nullptr || sig == nullptr || out == nullptr ||
        qmi_idl_get_service_id(obj, &service_id) != QMI_IDL_LIB_NO_ERR) {
      return QMI_CLIENT_PARAM_ERR;
    }
    InitSignal(sig);
    EnsureTransport();
    auto h = std::make_shared<qmi_client_struct>();
    h->notifier = true;
    h->obj = obj;
    h->service_id = service_id;
    h->signal = sig;
    std::lock_guard<std::mutex> lock(mu_);
    handles_[h.get()] = h;
    if (up_.count(service_id) != 0) RaiseSignal(sig);
    *out = h.get();
    return QMI_NO_ERR;
  }

  int Init(const qmi_service_info *info, qmi_idl_service_object_type obj, qmi_client_ind_cb ind_cb,
           void *ind_data, qmi_client_type *out) {
    uint32_t service_id = 0;
    if (info == nullptr || obj == nullptr || out == nullptr ||
        qmi_idl_get_service_id(obj, &service_id) != QMI_IDL_LIB_NO_ERR) {
      return QMI_CLIENT_PARAM_ERR;
    }
    const uint8_t *raw = info->info;
    if (qmi_host::wire::GetU32(raw + 8) != kInfoMagic ||
        qmi_host::wire::GetU32(raw) != service_id) {
      return QMI_CLIENT_PARAM_ERR;
    }
    const uint32_t instance = qmi_host::wire::GetU32(raw + 4);
    qmi_cci::Transport *transport = EnsureTransport();
    if (transport == nullptr) return QMI_SERVICE_ERR;
    uint32_t client_id = 0;
    const int rc = transport->Open(service_id, instance, &client_id);
    if (rc != QMI_NO_ERR) return rc;
    auto h = std::make_shared<qmi_client_struct>();
    h->obj = obj;
    h->service_id = service_id;
    h->instance = instance;
    h->client_id = client_id;
    h->transport = transport;
    h->ind_cb = ind_cb;
    h->ind_data = ind_data;
    bool lost = false;
    {
      std::lock_guard<std::mutex> lock(mu_);
      auto it = up_.find(service_id);
      // The service may have gone down between the open and now; the server forgot the client.
      lost = it == up_.end() || it->second.count(instance) == 0 || transport != transport_;
      if (!lost) {
        handles_[h.get()] = h;
        by_client_[client_id] = h.get();
      }
    }
    if (lost) {
      transport->Close(client_id);
      return QMI_SERVICE_ERR;
    }
    *out = h.get();
    return QMI_NO_ERR;
  }

  int InitInstance(qmi_idl_service_object_type obj, qmi_service_instance instance,
                   qmi_client_ind_cb ind_cb, void *ind_data, uint32_t timeout_ms,
                   qmi_client_type *out) {
    uint32_t service_id = 0;
    if (obj == nullptr || out == nullptr ||
        qmi_idl_get_service_id(obj, &service_id) != QMI_IDL_LIB_NO_ERR) {
      return QMI_CLIENT_PARAM_ERR;
    }
    EnsureTransport();
    const auto deadline = SteadyClock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
      uint32_t found = 0;
      bool have = false;
      {
        std::unique_lock<std::mutex> lock(mu_);
        auto ready = [&] {
          auto it = up_.find(service_id);
          if (it == up_.end()) return false;
          for (uint32_t inst : it->second) {
            if (instance == QMI_CLIENT_INSTANCE_ANY || inst == instance) {
              found = inst;
              return true;
            }
          }
          return false;
        };
        if (timeout_ms == 0) {
          services_cv_.wait(lock, ready);
          have = true;
        } else {
          have = services_cv_.wait_until(lock, deadline, ready);
        }
      }
      if (!have) return QMI_TIMEOUT_ERR;
      qmi_service_info info;
      FillInfo(&info, service_id, found);
      const int rc = Init(&info, obj, ind_cb, ind_data, out);
      if (rc != QMI_SERVICE_ERR) return rc;
      if (timeout_ms != 0 && SteadyClock::now() >= deadline) return QMI_TIMEOUT_ERR;
    }
  }

  int RegisterErrorCb(qmi_client_type handle, qmi_client_error_cb cb, void *data) {
    std::lock_guard<std::mutex> lock(mu_);
    Handle h = FindLocked(handle);
    if (h == nullptr || h->notifier) return QMI_CLIENT_INVALID_CLNT;
    if (h->dead) return QMI_SERVICE_ERR;
    h->err_cb = cb;
    h->err_data = data;
    return QMI_NO_ERR;
  }

  int SendSync(qmi_client_type handle, unsigned msg_id, void *req, unsigned req_len, void *resp,
               unsigned resp_len, unsigned timeout_ms) {
    qmi_idl_service_object_type obj;
    {
      std::lock_guard<std::mutex> lock(mu_);
      Handle h = FindLocked(handle);
      if (h == nullptr || h->notifier) return QMI_CLIENT_INVALID_CLNT;
      if (h->dead) return QMI_SERVICE_ERR;
      obj = h->obj;
    }
    if (msg_id > 0xffff || resp == nullptr) return QMI_CLIENT_PARAM_ERR;
    uint32_t req_size = 0, resp_size = 0, max_len = 0;
    int rc = qmi_idl_get_message_c_struct_len(obj, QMI_IDL_REQUEST, (uint16_t)msg_id, &req_size);
    if (rc == QMI_IDL_LIB_NO_ERR) {
      rc = qmi_idl_get_message_c_struct_len(obj, QMI_IDL_RESPONSE, (uint16_t)msg_id, &resp_size);
    }
    if (rc == QMI_IDL_LIB_NO_ERR) {
      rc = qmi_idl_get_max_message_len(obj, QMI_IDL_REQUEST, (uint16_t)msg_id, &max_len);
    }
    if (rc != QMI_IDL_LIB_NO_ERR) return rc;
    if (resp_len < resp_size || (req == nullptr && req_size > 1) ||
        (req != nullptr && req_len < req_size)) {
      return QMI_CLIENT_PARAM_ERR;
    }
    uint8_t empty = 0;
    if (req == nullptr) {
      req = &empty;
      req_len = 1;
    }
    max_len = std::min<uint32_t>(max_len, 0xffff);
    uint8_t stack_buf[2048];
    std::vector<uint8_t> heap_buf;
    uint8_t *buf = stack_buf;
    const size_t buf_len = qmi_host::wire::kQmiHeaderLen + max_len;
    if (buf_len > sizeof(stack_buf)) {
      heap_buf.resize(buf_len);
      buf = heap_buf.data();
    }
    uint32_t encoded = 0;
    rc = qmi_idl_message_encode(obj, QMI_IDL_REQUEST, (uint16_t)msg_id, req, req_len,
                                buf + qmi_host::wire::kQmiHeaderLen, max_len, &encoded);
    if (rc != QMI_IDL_LIB_NO_ERR) return rc;

    Pending pending;
    pending.msg_id = (uint16_t)msg_id;
    uint16_t txn = 0;
    uint32_t client_id = 0;
    uint32_t service_id = 0;
    qmi_cci::Transport *transport = nullptr;
    Handle h;
    {
      std::lock_guard<std::mutex> lock(mu_);
      h = FindLocked(handle);
      if (h == nullptr) return QMI_CLIENT_INVALID_CLNT;
      if (h->dead) return QMI_SERVICE_ERR;
      do {
        txn = ++h->next_txn;
      } while (txn == 0 || h->pending.count(txn) != 0);
      h->pending[txn] = &pending;
      client_id = h->client_id;
      service_id = h->service_id;
      transport = h->transport;
    }
    qmi_host::wire::PutQmiHeader(
        buf, {qmi_host::wire::kQmiRequest, txn, (uint16_t)msg_id, (uint16_t)encoded});
    if (trace_) {
      qmi_cci::Trace(qmi_trace::MessageEntry(obj, service_id, client_id, false, QMI_IDL_REQUEST,
                                             (uint16_t)msg_id, txn,
                                             buf + qmi_host::wire::kQmiHeaderLen, encoded));
    }
    const auto deadline = timeout_ms == 0
                              ? SteadyClock::time_point::max()
                              : SteadyClock::now() + std::chrono::milliseconds(timeout_ms);
    rc = transport->Send(client_id, buf, qmi_host::wire::kQmiHeaderLen + encoded);
    if (rc == QMI_NO_ERR) transport->Await(pending.finished, deadline);

    std::unique_lock<std::mutex> lock(mu_);
    if (rc == QMI_NO_ERR) {
      auto done = [&] { return pending.done; };
      if (timeout_ms == 0) {
        pending.cv.wait(lock, done);
      } else if (!pending.cv.wait_until(lock, deadline, done)) {
        rc = QMI_TIMEOUT_ERR;
      }
    }
    if (!pending.done) {
      h->pending.erase(txn);  // a response arriving later finds nothing and is dropped
      return rc;
    }
    lock.unlock();
    if (pending.error != QMI_NO_ERR) return pending.error;
    return qmi_idl_message_decode(obj, QMI_IDL_RESPONSE, (uint16_t)msg_id, pending.tlvs.data(),
                                  (uint32_t)pending.tlvs.size(), resp, resp_len);
  }

  int Decode(qmi_client_type handle, qmi_idl_type_of_message_type type, unsigned msg_id,
             const void *buf, unsigned buf_len, void *c_struct, unsigned c_len) {
    qmi_idl_service_object_type obj;
    {
      std::lock_guard<std::mutex> lock(mu_);
      Handle h = FindLocked(handle);
      if (h == nullptr) return QMI_CLIENT_INVALID_CLNT;
      obj = h->obj;
    }
    if (msg_id > 0xffff || c_struct == nullptr || (buf == nullptr && buf_len != 0)) {
      return QMI_CLIENT_PARAM_ERR;
    }
    return qmi_idl_message_decode(obj, type, (uint16_t)msg_id, buf, buf_len, c_struct, c_len);
  }

  int Release(qmi_client_type handle) {
    Handle h;
    bool open = false;
    {
      std::unique_lock<std::mutex> lock(mu_);
      h = FindLocked(handle);
      if (h == nullptr) return QMI_CLIENT_INVALID_CLNT;
      handles_.erase(h.get());
      if (!h->notifier) by_client_.erase(h->client_id);
      h->released = true;
      for (auto &p : h->pending) p.second->Complete(QMI_CLIENT_INVALID_CLNT);  // other threads
      h->pending.clear();
      // A callback of this handle may be running; wait for it unless we are inside it.
      if (std::this_thread::get_id() != cb_thread_id_) {
        cb_done_cv_.wait(lock, [&] { return running_ != h.get(); });
      }
      open = !h->notifier && !h->dead;
    }
    if (open) h->transport->Close(h->client_id);
    return QMI_NO_ERR;
  }

 private:
  // --- trace (TARVIK_QMI_TRACE) ---
  // An entry about `client`, with its service's id and tables; for a client no longer known,
  // its id alone.
  qmi_trace::Entry ClientEntry(uint32_t client) {
    qmi_trace::Entry e;
    e.time_us = qmi_trace::Now();
    e.client = client;
    std::lock_guard<std::mutex> lock(mu_);
    auto it = by_client_.find(client);
    if (it != by_client_.end()) {
      e.service_id = it->second->service_id;
      e.service = it->second->obj;
    }
    return e;
  }

  void TraceReceived(uint32_t client, const uint8_t *msg, size_t len) {
    qmi_host::wire::QmiHeader hdr{};
    if (!qmi_host::wire::ParseQmiHeader(msg, len, &hdr)) return;
    qmi_trace::Entry e = ClientEntry(client);
    if (e.service == nullptr) return;  // nobody's: dropped below
    e.received = true;
    e.type = hdr.type == qmi_host::wire::kQmiIndication ? QMI_IDL_INDICATION
             : hdr.type == qmi_host::wire::kQmiResponse ? QMI_IDL_RESPONSE
                                                        : QMI_IDL_REQUEST;
    e.msg_id = hdr.msg_id;
    e.txn = hdr.txn;
    e.tlvs.assign(msg + qmi_host::wire::kQmiHeaderLen, msg + len);
    qmi_cci::Trace(e);
  }

  // A service event, named by a client of the service if the process has one.
  void TraceService(uint32_t service_id, qmi_trace::Entry::Kind kind) {
    qmi_trace::Entry e;
    e.kind = kind;
    e.time_us = qmi_trace::Now();
    e.service_id = service_id;
    {
      std::lock_guard<std::mutex> lock(mu_);
      for (const auto &entry : handles_) {
        if (entry.second->service_id == service_id) e.service = entry.second->obj;
      }
    }
    qmi_cci::Trace(e);
  }

  int SelectLocked(const std::string &choice) {
    const bool inproc = choice == "inproc";
    const bool qmux = choice.compare(0, 5, "qmux:") == 0;
    const bool proxy = choice.compare(0, 10, "qmi-proxy:") == 0;
    if (proxy ? choice.size() <= 10
              : !inproc && ((!qmux && choice.compare(0, 5, "unix:") != 0) || choice.size() <= 5)) {
      return QMI_CLIENT_PARAM_ERR;
    }
    if (transport_ != nullptr) transport_->Shutdown();
    {
      // The old transport sends no more events; whatever it reported up is gone.
      std::lock_guard<std::mutex> lock(mu_);
      up_.clear();
      for (auto &entry : handles_) {
        if (!entry.second->notifier && !entry.second->dead) KillLocked(entry.second);
      }
      by_client_.clear();
    }
    int rc = QMI_NO_ERR;
    std::unique_ptr<qmi_cci::Transport> next =
        inproc  ? qmi_cci::MakeInprocTransport(this)
        : proxy ? qmi_cci::MakeQmiProxyTransport(this, choice.substr(10), &rc)
        : qmux  ? qmi_cci::MakeQmuxTransport(this, choice.substr(5), &rc)
                : qmi_cci::MakeSocketTransport(this, choice.substr(5), &rc);
    {
      std::lock_guard<std::mutex> lock(mu_);  // Init compares against it under mu_
      transport_ = next.get();
    }
    graveyard_.push_back(std::move(next));
    selected_ = true;
    return rc;
  }

  Handle FindLocked(qmi_client_type handle) {
    auto it = handles_.find(handle);
    return it == handles_.end() ? nullptr : it->second;
  }

  // The client's service went away: wake its waiters and report once to its error callback.
  void KillLocked(const Handle &h) {
    h->dead = true;
    by_client_.erase(h->client_id);
    for (auto &p : h->pending) p.second->Complete(QMI_SERVICE_ERR);
    h->pending.clear();
    if (h->err_cb != nullptr && !h->err_reported) {
      h->err_reported = true;
      QueueLocked(Event{h, false, 0, QMI_SERVICE_ERR, {}});
    }
  }

  void QueueLocked(Event &&event) {
    events_.push_back(std::move(event));
    if (!cb_started_) {
      cb_started_ = true;
      std::thread thread([this] { CallbackLoop(); });
      cb_thread_id_ = thread.get_id();
      thread.detach();
    }
    events_cv_.notify_one();
  }

  void CallbackLoop() {
    std::unique_lock<std::mutex> lock(mu_);
    for (;;) {
      events_cv_.wait(lock, [&] { return !events_.empty(); });
      Event ev = std::move(events_.front());
      events_.pop_front();
      if (ev.handle->released) {
        cb_done_cv_.notify_all();
        continue;
      }
      qmi_client_struct *h = ev.handle.get();
      running_ = h;
      const qmi_client_ind_cb ind_cb = h->ind_cb;
      void *const ind_data = h->ind_data;
      const qmi_client_error_cb err_cb = h->err_cb;
      void *const err_data = h->err_data;
      lock.unlock();
      if (ev.indication) {
        ind_cb(h, ev.msg_id, ev.data.empty() ? nullptr : ev.data.data(), (unsigned)ev.data.size(),
               ind_data);
      } else {
        err_cb(h, ev.error, err_data);
      }
      lock.lock();
      running_ = nullptr;
      cb_done_cv_.notify_all();
    }
  }

  static void FillInfo(qmi_service_info *info, uint32_t service_id, uint32_t instance) {
    memset(info, 0, sizeof(*info));
    qmi_host::wire::PutU32(info->info, service_id);
    qmi_host::wire::PutU32(info->info + 4, instance);
    qmi_host::wire::PutU32(info->info + 8, kInfoMagic);
  }

  static void InitSignal(qmi_client_os_params *sig) {
    sig->sig_set = 0;
    sig->timed_out = 0;
    sig->clock = CLOCK_MONOTONIC;
    pthread_condattr_init(&sig->attr);
    pthread_condattr_setclock(&sig->attr, CLOCK_MONOTONIC);
    pthread_cond_init(&sig->cond, &sig->attr);
    pthread_mutex_init(&sig->mutex, nullptr);
  }

  const bool trace_ = qmi_cci::Tracing();  // decided once, when the library starts
  std::mutex select_mu_;                   // before mu_
  bool selected_ = false;
  qmi_cci::Transport *transport_ = nullptr;  // written under both locks, read under either
  // Transports are never destroyed: a client may still point at an old one (all its calls
  // then fail), and no thread of theirs outlives Shutdown.
  std::vector<std::unique_ptr<qmi_cci::Transport>> graveyard_;

  std::mutex mu_;
  std::condition_variable services_cv_;
  std::map<uint32_t, std::set<uint32_t>> up_;
  std::unordered_map<qmi_client_struct *, Handle> handles_;
  std::unordered_map<uint32_t, qmi_client_struct *> by_client_;
  std::atomic<uint64_t> dropped_{0};

  std::deque<Event> events_;
  std::condition_variable events_cv_;
  std::condition_variable cb_done_cv_;
  qmi_client_struct *running_ = nullptr;
  std::thread::id cb_thread_id_;
  bool cb_started_ = false;
};

}  // namespace

extern "C" {

qmi_client_error_type qmi_client_host_select_transport(const char *choice) {
  if (choice == nullptr) return QMI_CLIENT_PARAM_ERR;
  return Core::Get().Select(choice);
}

uint64_t qmi_client_host_dropped_responses(void) {
  return Core::Get().dropped();
}

int qmi_client_host_wait_callbacks(uint32_t timeout_ms) {
  return Core::Get().WaitCallbacks(timeout_ms) ? 1 : 0;
}

qmi_client_error_type qmi_client_notifier_init(qmi_idl_service_object_type service_obj,
                                               qmi_client_os_params *os_params,
                                               qmi_client_type *user_handle) {
  return Core::Get().NotifierInit(service_obj, os_params, user_handle);
}

qmi_client_error_type qmi_client_get_service_list(qmi_idl_service_object_type service_obj,
                                                  qmi_service_info *service_info_array,
                                                  unsigned int *num_entries,
                                                  unsigned int *num_services) {
  return Core::Get().ServiceList(service_obj, service_info_array, num_entries, num_services);
}

qmi_client_error_type qmi_cci_os_signal_wait(qmi_cci_os_signal_type *sig, unsigned int timeout_ms) {
  if (sig == nullptr) return QMI_CLIENT_INVALID_SIG;
  pthread_mutex_lock(&sig->mutex);
  sig->timed_out = 0;
  if (timeout_ms == 0) {
    while (!sig->sig_set) pthread_cond_wait(&sig->cond, &sig->mutex);
  } else {
    const clockid_t clock = sig->clock == CLOCK_MONOTONIC ? CLOCK_MONOTONIC : CLOCK_REALTIME;
    struct timespec deadline;
    clock_gettime(clock, &deadline);
    deadline.tv_sec += timeout_ms / 1000;
    deadline.tv_nsec += (long)(timeout_ms % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
      deadline.tv_sec += 1;
      deadline.tv_nsec -= 1000000000L;
    }
    while (!sig->sig_set) {
      if (pthread_cond_timedwait(&sig->cond, &sig->mutex, &deadline) == ETIMEDOUT) {
        sig->timed_out = sig->sig_set ? 0 : 1;
        break;
      }
    }
  }
  const int rc = sig->timed_out ? QMI_TIMEOUT_ERR : QMI_NO_ERR;
  pthread_mutex_unlock(&sig->mutex);
  return rc;
}

qmi_client_error_type qmi_client_init(qmi_service_info *service_info,
                                      qmi_idl_service_object_type service_obj,
                                      qmi_client_ind_cb ind_cb, void *ind_cb_data,
                                      qmi_client_os_params * /*os_params*/,
                                      qmi_client_type *user_handle) {
  return Core::Get().Init(service_info, service_obj, ind_cb, ind_cb_data, user_handle);
}

qmi_client_error_type qmi_client_init_instance(qmi_idl_service_object_type service_obj,
                                               qmi_service_instance instance_id,
                                               qmi_client_ind_cb ind_cb, void *ind_cb_data,
                                               qmi_client_os_params * /*os_params*/,
                                               uint32_t timeout_ms, qmi_client_type *user_handle) {
  return Core::Get().InitInstance(service_obj, instance_id, ind_cb, ind_cb_data, timeout_ms,
                                  user_handle);
}

qmi_client_error_type qmi_client_register_error_cb(qmi_client_type user_handle,
                                                   qmi_client_error_cb err_cb, void *err_cb_data) {
  return Core::Get().RegisterErrorCb(user_handle, err_cb, err_cb_data);
}

qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type user_handle, unsigned int msg_id,
                                               void *req_c_struct, unsigned int req_c_struct_len,
                                               void *resp_c_struct, unsigned int resp_c_struct_len,
                                               unsigned int timeout_msecs) {
  return Core::Get().SendSync(user_handle, msg_id, req_c_struct, req_c_struct_len, resp_c_struct,
                              resp_c_struct_len, timeout_msecs);
}

qmi_client_error_type qmi_client_message_decode(qmi_client_type user_handle,
                                                qmi_idl_type_of_message_type req_resp_ind,
                                                unsigned int message_id, const void *buf,
                                                unsigned int buf_len, void *c_struct,
                                                unsigned int c_struct_len) {
  return Core::Get().Decode(user_handle, req_resp_ind, message_id, buf, buf_len, c_struct,
                            c_struct_len);
}

qmi_client_error_type qmi_client_release(qmi_client_type user_handle) {
  return Core::Get().Release(user_handle);
}

}  // extern "C"
