// In-process transport: hands messages to the server registered in this process (the simulated
// modem) and takes its reports on the server's threads.
#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "cci_internal.h"
#include "qmi_client.h"

namespace qmi_cci {
namespace {

class InprocTransport;

// The registered server and the live in-process transports that follow it.
struct Registry {
  std::mutex mu;
  qmi_host::Server *server = nullptr;
  std::vector<InprocTransport *> transports;
};

Registry &GetRegistry() {
  static auto *registry = new Registry();
  return *registry;
}

class InprocTransport final : public Transport {
 public:
  explicit InprocTransport(qmi_host::ClientSink *sink) : sink_(sink) {}

  // Switches to another server (or none). Calls into the old server finish first.
  void SetServer(qmi_host::Server *server) {
    std::unique_lock<std::shared_timed_mutex> lock(mu_);
    if (shut_) return;
    if (server_ != nullptr) {
      server_->Detach(&sink_);
      sink_.DropAll();
    }
    server_ = server;
    if (server_ != nullptr) server_->Attach(&sink_);
  }

  int Open(uint32_t service_id, uint32_t instance, uint32_t *client) override {
    std::shared_lock<std::shared_timed_mutex> lock(mu_);
    if (server_ == nullptr) return QMI_SERVICE_ERR;
    return server_->Open(&sink_, service_id, instance, client);
  }

  void Close(uint32_t client) override {
    std::shared_lock<std::shared_timed_mutex> lock(mu_);
    if (server_ != nullptr) server_->Close(client);
  }

  int Send(uint32_t client, const uint8_t *msg, size_t len) override {
    std::shared_lock<std::shared_timed_mutex> lock(mu_);
    if (server_ == nullptr) return QMI_SERVICE_ERR;
    return server_->Deliver(client, msg, len);
  }

  void Shutdown() override {
    Registry &reg = GetRegistry();
    {
      std::lock_guard<std::mutex> reg_lock(reg.mu);
      auto &v = reg.transports;
      v.erase(std::remove(v.begin(), v.end(), this), v.end());
    }
    SetServer(nullptr);
    std::unique_lock<std::shared_timed_mutex> lock(mu_);
    shut_ = true;
  }

 private:
  TrackingSink sink_;
  std::shared_timed_mutex mu_;  // shared while calling the server, exclusive to switch
  qmi_host::Server *server_ = nullptr;
  bool shut_ = false;
};

}  // namespace

std::unique_ptr<Transport> MakeInprocTransport(qmi_host::ClientSink *sink) {
  auto transport = std::make_unique<InprocTransport>(sink);
  Registry &reg = GetRegistry();
  std::lock_guard<std::mutex> lock(reg.mu);
  reg.transports.push_back(transport.get());
  transport->SetServer(reg.server);
  return transport;
}

}  // namespace qmi_cci

namespace qmi_host {

void RegisterInprocServer(Server *server) {
  qmi_cci::Registry &reg = qmi_cci::GetRegistry();
  std::lock_guard<std::mutex> lock(reg.mu);
  reg.server = server;
  for (auto *t : reg.transports) t->SetServer(server);
}

void UnregisterInprocServer(Server *server) {
  qmi_cci::Registry &reg = qmi_cci::GetRegistry();
  std::lock_guard<std::mutex> lock(reg.mu);
  if (reg.server != server) return;
  reg.server = nullptr;
  for (auto *t : reg.transports) t->SetServer(nullptr);
}

}  // namespace qmi_host
