// Internals of the QMI client library stand-in: the transport interface and the core that
// keeps clients, transactions and the callback thread.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "qmi_client_host.h"
#include "qmi_trace.h"

namespace qmi_cci {

// A way to reach servers. Reports service events and messages to the sink it was made with.
class Transport {
 public:
  virtual ~Transport() = default;
  virtual int Open(uint32_t service_id, uint32_t instance, uint32_t *client) = 0;
  virtual void Close(uint32_t client) = 0;
  // QMI_NO_ERR once handed over; QMI_CLIENT_TRANSPORT_ERR / QMI_SERVICE_ERR otherwise.
  virtual int Send(uint32_t client, const uint8_t *msg, size_t len) = 0;
  // Called by a request's thread after Send, before it blocks: a transport may read and
  // dispatch its input on this thread until `finished` or the deadline (saving a hand-off),
  // or return at once; the caller then waits for completion as usual.
  virtual void Await(const std::atomic<bool> & /*finished*/,
                     std::chrono::steady_clock::time_point /*deadline*/) {}
  // Stops every thread of the transport; after it returns no sink call comes from it and every
  // other call fails.
  virtual void Shutdown() = 0;
};

// Forwards a server's reports to the core and remembers which services are up, so that a
// transport that loses its server can report them all down.
class TrackingSink final : public qmi_host::ClientSink {
 public:
  explicit TrackingSink(qmi_host::ClientSink *target) : target_(target) {}
  void OnServiceUp(uint32_t service_id, uint32_t instance) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      up_.insert({service_id, instance});
    }
    target_->OnServiceUp(service_id, instance);
  }
  void OnServiceDown(uint32_t service_id, uint32_t instance) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      up_.erase({service_id, instance});
    }
    target_->OnServiceDown(service_id, instance);
  }
  void OnMessage(uint32_t client, const uint8_t *msg, size_t len) override {
    target_->OnMessage(client, msg, len);
  }
  void OnTxnError(uint32_t client, uint16_t txn, int error) override {
    target_->OnTxnError(client, txn, error);
  }
  // Reports every service still up as down.
  void DropAll() {
    std::set<std::pair<uint32_t, uint32_t>> up;
    {
      std::lock_guard<std::mutex> lock(mu_);
      up.swap(up_);
    }
    for (const auto &s : up) target_->OnServiceDown(s.first, s.second);
  }

 private:
  qmi_host::ClientSink *target_;
  std::mutex mu_;
  std::set<std::pair<uint32_t, uint32_t>> up_;
};

// The trace TARVIK_QMI_TRACE names (a file, "-" for standard error): whether there is one,
// decided once (a caller keeps the answer and checks its copy), and an entry written to it.
bool Tracing();
void Trace(const qmi_trace::Entry &entry);

std::unique_ptr<Transport> MakeInprocTransport(qmi_host::ClientSink *sink);
// *error gets QMI_CLIENT_TRANSPORT_ERR when the first connection attempt failed (the transport
// still exists and keeps trying).
std::unique_ptr<Transport> MakeSocketTransport(qmi_host::ClientSink *sink, const std::string &path,
                                               int *error);

// A QMUX device ("qmux:PATH"): *error as for the socket transport (the device could not be
// opened, or did not list its services in time).
std::unique_ptr<Transport> MakeQmuxTransport(qmi_host::ClientSink *sink, const std::string &path,
                                             int *error);

}  // namespace qmi_cci
