// The "qmux:PATH" transport: a QMI character device (or a pseudo-terminal serving QMUX). Client
// ids come from the device's control service; the services up are the ones its version list
// names (ids above 0xFF cannot be named, so they are never up). A revoked client id means its
// service restarted: the service is down until the version list names it again. A device that
// fails or hangs up takes every service down; the device is then opened again until it is back.
// A device cannot tell that its user went away, so the client ids still open are released when
// the process exits.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "cci_internal.h"
#include "qmi_client.h"
#include "qmux_frame.h"
#include "qmux_link.h"

namespace qmi_cci {
namespace {

constexpr auto kReopenDelay = std::chrono::milliseconds(100);
constexpr auto kReplyWait = std::chrono::seconds(5);
// How often the version list is asked for again while the device has not answered it, and
// while a service whose client id was revoked is not listed again.
constexpr auto kVersionRetry = std::chrono::milliseconds(1000);
constexpr auto kRelist = std::chrono::milliseconds(50);

// The library's client handle for a device client id: service in bits 8-15, id in bits 0-7.
uint32_t ClientHandle(uint8_t service, uint8_t id) {
  return (uint32_t{service} << 8) | id;
}

// Whether a control answer's result TLV (0x02: u16 result, u16 error) says success.
bool ControlSucceeded(const uint8_t *tlv, size_t len) {
  const uint8_t *v = nullptr;
  uint16_t n = 0;
  return qmux::FindTlv(tlv, len, 0x02, &v, &n) && n >= 4 && v[0] == 0;
}

class QmuxTransport;

// The transports alive in this process, for the release at exit (never destroyed: exit handlers
// may run after static destructors).
struct Live {
  std::mutex mu;
  std::set<QmuxTransport *> transports;
};
Live &LiveTransports() {
  static Live *live = new Live();
  return *live;
}
void ReleaseAtExit();

class QmuxTransport final : public Transport {
 public:
  QmuxTransport(qmi_host::ClientSink *sink, std::unique_ptr<QmuxLink> link)
      : sink_(sink), link_(std::move(link)) {}

  // Starts the reader and waits until the device listed its services (or could not be used).
  bool Start() {
    if (pipe2(wake_, O_CLOEXEC) != 0) return false;
    static std::once_flag at_exit;
    std::call_once(at_exit, [] { atexit(ReleaseAtExit); });
    {
      std::lock_guard<std::mutex> lock(LiveTransports().mu);
      LiveTransports().transports.insert(this);
    }
    reader_ = std::thread([this] { ReaderLoop(); });
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait_for(lock, kReplyWait, [&] { return first_attempt_done_; });
    const bool opened = fd_ >= 0, ready = ready_;
    lock.unlock();
    if (opened && !ready) link_->Unanswered();
    return ready;
  }

  int Open(uint32_t service_id, uint32_t /*instance*/, uint32_t *client) override {
    if (service_id == qmux::kControlService || service_id > 0xFF) return QMI_SERVICE_ERR;
    const uint8_t service = static_cast<uint8_t>(service_id);
    std::vector<uint8_t> reply;
    const int rc = Control(qmux::kCtlAllocateClientId, {0x01, 0x01, 0x00, service}, &reply);
    if (rc != QMI_NO_ERR) return rc;
    const uint8_t *v = nullptr;
    uint16_t n = 0;
    if (!qmux::FindTlv(reply.data(), reply.size(), 0x01, &v, &n) || n < 2 || v[0] != service) {
      return QMI_SERVICE_ERR;
    }
    *client = ClientHandle(service, v[1]);
    std::lock_guard<std::mutex> lock(mu_);
    // The reader recorded the id as it read the answer; gone already when its service restarted
    // right after handing it out.
    return open_.count(*client) != 0 ? QMI_NO_ERR : QMI_SERVICE_ERR;
  }

  void Close(uint32_t client) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (open_.erase(client) == 0) return;
    }
    std::vector<uint8_t> reply;
    (void)Control(
        qmux::kCtlReleaseClientId,
        {0x01, 0x02, 0x00, static_cast<uint8_t>(client >> 8), static_cast<uint8_t>(client & 0xFF)},
        &reply);
  }

  int Send(uint32_t client, const uint8_t *msg, size_t len) override {
    qmi_host::wire::QmiHeader h;
    if (!qmi_host::wire::ParseQmiHeader(msg, len, &h)) return QMI_CLIENT_PARAM_ERR;
    qmux::Frame f;
    f.service = static_cast<uint8_t>(client >> 8);
    f.client = static_cast<uint8_t>(client & 0xFF);
    f.txn = h.txn;
    f.msg_id = h.msg_id;
    f.tlv = msg + qmi_host::wire::kQmiHeaderLen;
    f.tlv_len = h.len;
    return Write(f) ? QMI_NO_ERR : QMI_SERVICE_ERR;
  }

  void Shutdown() override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (stop_) return;
      stop_ = true;
      cv_.notify_all();
    }
    const char byte = 0;
    while (wake_[1] >= 0 && write(wake_[1], &byte, 1) < 0 && errno == EINTR) {
    }
    if (reader_.joinable()) reader_.join();
  }

  ~QmuxTransport() override {
    {
      std::lock_guard<std::mutex> lock(LiveTransports().mu);
      LiveTransports().transports.erase(this);
    }
    Shutdown();
    for (int fd : wake_) {
      if (fd >= 0) close(fd);
    }
  }

  // Sends a release for every client id still open, without waiting for the answers.
  void ReleaseWithoutWaiting() {
    std::set<uint32_t> open;
    {
      std::lock_guard<std::mutex> lock(mu_);
      open.swap(open_);
    }
    for (uint32_t client : open) {
      const uint8_t info[] = {0x01, 0x02, 0x00, static_cast<uint8_t>(client >> 8),
                              static_cast<uint8_t>(client & 0xFF)};
      uint8_t txn = 0;
      {
        std::lock_guard<std::mutex> lock(mu_);
        txn = NextControlTxnLocked();
      }
      Write(ControlRequest(txn, qmux::kCtlReleaseClientId, info, sizeof(info)));
    }
  }

 private:
  // The next control transaction (1-255; 0 is never used). mu_ held.
  uint8_t NextControlTxnLocked() {
    if (++ctl_txn_ == 0) ctl_txn_ = 1;
    return ctl_txn_;
  }

  static qmux::Frame ControlRequest(uint8_t txn, uint16_t msg_id, const uint8_t *tlv = nullptr,
                                    size_t tlv_len = 0) {
    return qmux::ControlFrame(qmux::kFromControlPoint, qmux::Kind::kRequest, txn, msg_id, tlv,
                              tlv_len);
  }

  // One control request; waits for its response. QMI_NO_ERR with the response's TLVs when the
  // device answered with success.
  int Control(uint16_t msg_id, std::vector<uint8_t> tlvs, std::vector<uint8_t> *reply) {
    std::unique_lock<std::mutex> lock(mu_);
    if (fd_ < 0) return QMI_SERVICE_ERR;
    const uint64_t generation = generation_;
    const uint8_t txn = NextControlTxnLocked();
    ctl_replies_.erase(txn);
    lock.unlock();
    if (!Write(ControlRequest(txn, msg_id, tlvs.data(), tlvs.size()))) {
      return QMI_CLIENT_TRANSPORT_ERR;
    }
    lock.lock();
    const bool answered = cv_.wait_for(lock, kReplyWait, [&] {
      return ctl_replies_.count(txn) != 0 || generation_ != generation || stop_;
    });
    auto it = ctl_replies_.find(txn);
    if (it == ctl_replies_.end()) return answered ? QMI_SERVICE_ERR : QMI_TIMEOUT_ERR;
    reply->swap(it->second);
    ctl_replies_.erase(it);
    return ControlSucceeded(reply->data(), reply->size()) ? QMI_NO_ERR : QMI_SERVICE_ERR;
  }

  // A control-service frame in the library's trace (`received`: from the device).
  void TraceControl(const qmux::Frame &f, bool received) const {
    if (!trace_ || f.service != qmux::kControlService) return;
    Trace(qmi_trace::MessageEntry(qmi_trace::ControlService(), qmux::kControlService, f.client,
                                  received, qmux::MessageType(f.kind), f.msg_id, f.txn, f.tlv,
                                  f.tlv_len));
  }

  bool Write(const qmux::Frame &f) {
    TraceControl(f, false);
    std::vector<uint8_t> bytes;
    if (!qmux::AppendFrame(f, &bytes)) return false;
    std::lock_guard<std::mutex> lock(write_mu_);
    int fd;
    {
      std::lock_guard<std::mutex> state(mu_);
      fd = fd_;
    }
    size_t done = 0;
    while (fd >= 0 && done < bytes.size()) {
      const ssize_t n = link_->Write(fd, bytes.data() + done, bytes.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    return fd >= 0;
  }

  void AskVersions() {
    uint8_t txn = 0;
    {
      std::lock_guard<std::mutex> lock(mu_);
      txn = version_txn_ = NextControlTxnLocked();
      versions_asked_ = std::chrono::steady_clock::now();
    }
    Write(ControlRequest(txn, qmux::kCtlGetVersionInfo));
  }

  void ReaderLoop() {
    for (;;) {
      const int fd = link_->Open(wake_[0]);
      {
        std::unique_lock<std::mutex> lock(mu_);
        if (stop_) {
          if (fd >= 0) close(fd);
          return;
        }
        fd_ = fd;
        if (fd < 0) {
          first_attempt_done_ = true;
          cv_.notify_all();
          cv_.wait_for(lock, kReopenDelay, [&] { return stop_; });
          continue;
        }
      }
      ReadFrames(fd);
      bool stopping;
      {
        std::lock_guard<std::mutex> lock(mu_);
        stopping = stop_;
      }
      if (stopping && link_->ReleaseOnClose()) ReleaseWithoutWaiting();
      if (!stopping) link_->Lost();
      sink_.DropAll();
      std::set<uint32_t> lost;
      {
        std::lock_guard<std::mutex> write_lock(write_mu_);
        std::unique_lock<std::mutex> lock(mu_);
        close(fd_);
        fd_ = -1;
        ready_ = false;
        ++generation_;
        ctl_replies_.clear();
        open_.clear();
        listed_.clear();
        relisting_.clear();
        first_attempt_done_ = true;
        cv_.notify_all();
        if (stop_) return;
        cv_.wait_for(lock, kReopenDelay, [&] { return stop_; });
      }
    }
  }

  // Until the device fails, hangs up or the transport stops.
  void ReadFrames(int fd) {
    qmux::FrameReader reader;
    std::vector<uint8_t> buf(4096);
    AskVersions();
    for (;;) {
      int wait_ms = MsUntilVersionsDue();
      if (wait_ms == 0) {
        AskVersions();
        wait_ms = MsUntilVersionsDue();
      }
      pollfd p[2] = {{fd, POLLIN, 0}, {wake_[0], POLLIN, 0}};
      const int n = poll(p, 2, wait_ms);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 || p[1].revents != 0) return;
      if (n == 0) continue;
      const ssize_t got = read(fd, buf.data(), buf.size());
      if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (got <= 0) return;  // read error or hang-up: the device is gone
      reader.Append(buf.data(), static_cast<size_t>(got));
      qmux::Frame f;
      while (reader.Next(&f)) {
        if (f.sender != qmux::kFromModem || f.kind == qmux::Kind::kRequest) continue;
        if (f.service == qmux::kControlService) {
          TraceControl(f, true);
          OnControl(f);
        } else {
          OnService(f);
        }
      }
    }
  }

  // Until the version list is to be asked for again (-1: not while every service is listed),
  // however busy the device is meanwhile.
  int MsUntilVersionsDue() {
    std::lock_guard<std::mutex> lock(mu_);
    if (ready_ && relisting_.empty()) return -1;
    const auto due = versions_asked_ + (ready_ ? kRelist : kVersionRetry);
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(due - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
  }

  void OnControl(const qmux::Frame &f) {
    if (f.kind == qmux::Kind::kIndication && f.msg_id == qmux::kCtlRevokeClientId) {
      OnRevoked(f);
      return;
    }
    if (f.kind != qmux::Kind::kResponse) return;
    bool versions;
    {
      std::lock_guard<std::mutex> lock(mu_);
      versions = f.msg_id == qmux::kCtlGetVersionInfo && f.txn == version_txn_;
    }
    if (versions) {
      const uint8_t *v = nullptr;
      uint16_t n = 0;
      std::vector<uint8_t> services;
      if (qmux::FindTlv(f.tlv, f.tlv_len, 0x01, &v, &n) && n >= 1) {
        for (size_t i = 0; i < v[0] && 1 + 5 * (i + 1) <= n; ++i) {
          if (v[1 + 5 * i] != qmux::kControlService) services.push_back(v[1 + 5 * i]);
        }
      }
      std::vector<uint8_t> back;
      {
        std::lock_guard<std::mutex> lock(mu_);
        for (uint8_t s : services) {
          if (listed_.insert(s).second) back.push_back(s);
          relisting_.erase(s);
        }
      }
      for (uint8_t s : back) sink_.OnServiceUp(s, 0);
      std::lock_guard<std::mutex> lock(mu_);
      ready_ = true;
      first_attempt_done_ = true;
      cv_.notify_all();
      return;
    }
    std::lock_guard<std::mutex> lock(mu_);
    // An id handed out is open from here on, so that a revocation read after it applies to it.
    const uint8_t *v = nullptr;
    uint16_t n = 0;
    if (f.msg_id == qmux::kCtlAllocateClientId && ControlSucceeded(f.tlv, f.tlv_len) &&
        qmux::FindTlv(f.tlv, f.tlv_len, 0x01, &v, &n) && n >= 2) {
      open_.insert(ClientHandle(v[0], v[1]));
    }
    ctl_replies_[static_cast<uint8_t>(f.txn)].assign(f.tlv, f.tlv + f.tlv_len);
    cv_.notify_all();
  }

  // The device revoked a client id: its service restarted, so every client of it is lost.
  void OnRevoked(const qmux::Frame &f) {
    const uint8_t *v = nullptr;
    uint16_t n = 0;
    if (!qmux::FindTlv(f.tlv, f.tlv_len, 0x01, &v, &n) || n < 2) return;
    const uint8_t service = v[0];
    {
      std::lock_guard<std::mutex> lock(mu_);
      open_.erase(ClientHandle(service, v[1]));
      if (listed_.erase(service) == 0) return;  // already reported down
      relisting_.insert(service);
    }
    sink_.OnServiceDown(service, 0);
    AskVersions();
  }

  void OnService(const qmux::Frame &f) {
    // A service frame's QMI message is the library's own message format: header, then TLVs.
    const uint8_t *msg = f.tlv - qmux::kServiceQmiHeaderLen;
    const size_t len = qmux::kServiceQmiHeaderLen + f.tlv_len;
    std::vector<uint32_t> targets;
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (f.client == qmux::kBroadcastClient && f.kind == qmux::Kind::kIndication) {
        for (uint32_t c : open_) {
          if ((c >> 8) == f.service) targets.push_back(c);
        }
      } else if (open_.count(ClientHandle(f.service, f.client)) != 0) {
        targets.push_back(ClientHandle(f.service, f.client));
      }
    }
    for (uint32_t c : targets) sink_.OnMessage(c, msg, len);
  }

  TrackingSink sink_;
  const std::unique_ptr<QmuxLink> link_;
  const bool trace_ = Tracing();
  int wake_[2] = {-1, -1};
  std::thread reader_;
  std::mutex write_mu_;  // taken before mu_ when both are held
  std::mutex mu_;
  std::condition_variable cv_;
  int fd_ = -1;
  bool ready_ = false;  // the device listed its services
  bool stop_ = false;
  bool first_attempt_done_ = false;
  uint64_t generation_ = 0;
  uint8_t ctl_txn_ = 0;
  uint8_t version_txn_ = 0;  // the version list asked for last (answered by the reader itself)
  std::chrono::steady_clock::time_point versions_asked_;
  std::map<uint8_t, std::vector<uint8_t>> ctl_replies_;  // control txn -> TLVs
  std::set<uint32_t> open_;
  std::set<uint8_t> listed_;     // services the device listed and that were not revoked since
  std::set<uint8_t> relisting_;  // revoked services the version list has not named again
};

void ReleaseAtExit() {
  std::lock_guard<std::mutex> lock(LiveTransports().mu);
  for (QmuxTransport *t : LiveTransports().transports) t->ReleaseWithoutWaiting();
}

// A character device (or a pseudo-terminal serving QMUX), opened as it is.
class DeviceLink final : public QmuxLink {
 public:
  explicit DeviceLink(std::string path) : path_(std::move(path)) {}
  int Open(int /*wake*/) override {
    const int fd = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios tio;
    if (fd >= 0 && isatty(fd) && tcgetattr(fd, &tio) == 0) {
      cfmakeraw(&tio);
      tcsetattr(fd, TCSANOW, &tio);
      tcflush(fd, TCIFLUSH);  // whatever an earlier user left unread is not ours
    }
    return fd;
  }

 private:
  const std::string path_;
};

}  // namespace

std::unique_ptr<Transport> MakeQmuxTransport(qmi_host::ClientSink *sink,
                                             std::unique_ptr<QmuxLink> link, int *error) {
  auto transport = std::make_unique<QmuxTransport>(sink, std::move(link));
  *error = transport->Start() ? QMI_NO_ERR : QMI_CLIENT_TRANSPORT_ERR;
  return transport;
}

std::unique_ptr<Transport> MakeQmuxTransport(qmi_host::ClientSink *sink, const std::string &path,
                                             int *error) {
  return MakeQmuxTransport(sink, std::make_unique<DeviceLink>(path), error);
}

}  // namespace qmi_cci
