// The request step and client slots shared by the standard-service clients (UIM, NAS, SAR,
// sensor, data filter), and the service discovery the vendor channel and the sensor client
// share.
//
// Each client keeps its own process-wide handle and its own log lines (they carry the client's
// source file and the exported function's name); what every one of them does the same way lives
// here: opening a client of a carried service description, and one request whose request and
// response records come from the radio allocator, zeroed, and go back to it on every path.
//
// Nothing here logs, locks or keeps state: callers hold their handles and serialise their calls
// as their own contracts say.
#ifndef TARVIK_STD_CLIENT_H
#define TARVIK_STD_CLIENT_H

#include <stdint.h>
#include <string.h>

#include <type_traits>

#include "qcril_memory_management.h"
#include "qmi_client.h"

namespace tarvik_std {

// How one kind of client is opened: the carried service description asked for by version, the
// wait for a server, the callbacks. A null `err_cb` registers none.
struct ClientSlot {
  qmi_idl_service_object_type (*get_object)(uint32_t major, uint32_t minor, uint32_t library);
  uint32_t major;
  uint32_t minor;
  uint32_t library;
  uint32_t create_timeout_ms;
  qmi_client_ind_cb ind_cb;
  qmi_client_error_cb err_cb;
};

// What opening a client did. `init` is the result of qmi_client_init_instance (a missing service
// description gives QMI_INTERNAL_ERR); `register_cb` that of the error-callback registration
// (QMI_NO_ERR when the slot has no error callback or the client was not created).
struct OpenResult {
  int init;
  int register_cb;
};

// Creates a client of any instance of the slot's service into *handle (null on failure), then
// registers the slot's error callback on it. A registration failure leaves the client open: the
// caller decides what that means.
[[nodiscard]] inline OpenResult Open(const ClientSlot &slot, qmi_client_type *handle) {
  *handle = nullptr;
  OpenResult out{QMI_INTERNAL_ERR, QMI_NO_ERR};
  const qmi_idl_service_object_type object = slot.get_object(slot.major, slot.minor, slot.library);
  if (object == nullptr) {
    return out;
  }
  qmi_client_os_params os_params;
  memset(&os_params, 0, sizeof(os_params));
  qmi_client_type created = nullptr;
  out.init = qmi_client_init_instance(object, QMI_CLIENT_INSTANCE_ANY, slot.ind_cb, nullptr,
                                      &os_params, slot.create_timeout_ms, &created);
  if (out.init != QMI_NO_ERR) {
    return out;
  }
  *handle = created;
  if (slot.err_cb != nullptr) {
    out.register_cb = qmi_client_register_error_cb(created, slot.err_cb, nullptr);
  }
  return out;
}

// Releases *handle when there is one and clears it in any case. QMI_NO_ERR when there was none,
// else the result of qmi_client_release.
inline int Close(qmi_client_type *handle) {
  if (*handle == nullptr) {
    return QMI_NO_ERR;
  }
  const int rc = qmi_client_release(*handle);
  *handle = nullptr;
  return rc;
}

// Service discovery as the vendor channel and the sensor client make it, between their own
// notifier and client creation: up to `looks` looks at the number of servers of `object`, the
// first `waits` failed ones each followed by a wait of `wait_ms` on the notifier's `signal`;
// `on_look(rc, num_services, look)` hears of each look (from 0). Returns the number of servers
// the last look found.
template <typename OnLook>
unsigned int AwaitService(qmi_idl_service_object_type object, qmi_cci_os_signal_type *signal,
                          int looks, int waits, unsigned int wait_ms, OnLook on_look) {
  unsigned int num_services = 0;
  for (int look = 0; look < looks; ++look) {
    const qmi_client_error_type rc =
        qmi_client_get_service_list(object, nullptr, nullptr, &num_services);
    on_look(rc, num_services, look);
    if (rc == QMI_NO_ERR) {
      break;
    }
    if (look < waits) {
      qmi_cci_os_signal_wait(signal, wait_ms);
    }
  }
  return num_services;
}

// The service list after AwaitService: `*num_entries` entries asked for into `entries` (which
// holds `capacity`, zeroed first); *num_entries then holds how many were listed.
inline qmi_client_error_type ListServices(qmi_idl_service_object_type object,
                                          qmi_service_info *entries, unsigned int capacity,
                                          unsigned int *num_entries, unsigned int *num_services) {
  memset(entries, 0, sizeof(*entries) * capacity);
  if (*num_entries > capacity) {
    *num_entries = capacity;
  }
  return qmi_client_get_service_list(object, entries, num_entries, num_services);
}

// A message without a request record: sent with a null request of length 0.
struct NoRecord {};

// Which allocation of a Request failed.
enum class Missing { kNone, kRequest, kResponse };

// One request of a standard service. The request record (unless Req is NoRecord) and then the
// response record are taken from the radio allocator, tagged with the exported function and
// source line given, and zeroed; both go back to it when the object goes out of scope, whatever
// path the caller leaves by. When the request allocation fails the response is not tried.
template <typename Req, typename Resp>
class Request {
 public:
  static constexpr bool kHasRequest = !std::is_same<Req, NoRecord>::value;

  Request(const char *func, int line) : func_(func), line_(line) {
    if (kHasRequest) {
      req_ = static_cast<Req *>(qcril_malloc_adv(sizeof(Req), func_, line_));
      if (req_ == nullptr) {
        missing_ = Missing::kRequest;
        return;
      }
      memset(static_cast<void *>(req_), 0, sizeof(Req));
    }
    resp_ = static_cast<Resp *>(qcril_malloc_adv(sizeof(Resp), func_, line_));
    if (resp_ == nullptr) {
      missing_ = Missing::kResponse;
      return;
    }
    memset(static_cast<void *>(resp_), 0, sizeof(Resp));
  }

  // Only what was allocated goes back: a message without a request record, or a failed
  // allocation, leaves nothing to free.
  ~Request() {
    if (resp_ != nullptr) qcril_free_adv(resp_, func_, line_);
    if (req_ != nullptr) qcril_free_adv(req_, func_, line_);
  }

  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;

  // kNone when both records are held; otherwise the caller reports the failure and sends
  // nothing.
  Missing missing() const { return missing_; }

  Req &req() { return *req_; }
  Resp &resp() { return *resp_; }

  // Sends the request on `client` and decodes the answer into the response record. Returns the
  // transport result of qmi_client_send_msg_sync; the modem's verdict stays in the response.
  [[nodiscard]] int Send(qmi_client_type client, uint32_t msg_id, uint32_t timeout_ms) {
    return qmi_client_send_msg_sync(client, msg_id, kHasRequest ? req_ : nullptr,
                                    kHasRequest ? sizeof(Req) : 0, resp_, sizeof(Resp), timeout_ms);
  }

  // True when `transport` (a Send result) is QMI_NO_ERR and the response's standard result
  // says success.
  bool Succeeded(int transport) const { return transport == QMI_NO_ERR && resp_->resp.result == 0; }

 private:
  const char *func_;
  int line_;
  Req *req_ = nullptr;
  Resp *resp_ = nullptr;
  Missing missing_ = Missing::kNone;
};

}  // namespace tarvik_std

#endif  // TARVIK_STD_CLIENT_H
