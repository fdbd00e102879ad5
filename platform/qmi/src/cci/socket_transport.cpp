// Unix socket transport to tarvik-modemd: SOCK_SEQPACKET, one frame per message (framing in
// qmi_client_host.h). A reader thread takes the daemon's frames; when the connection drops every
// service goes down and the thread reconnects every 100 ms until the transport shuts down.
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "cci_internal.h"
#include "qmi_client.h"

namespace qmi_cci {
namespace {

namespace wire = qmi_host::wire;

constexpr auto kReconnectDelay = std::chrono::milliseconds(100);
constexpr auto kReplyWait = std::chrono::seconds(5);
// How long the reader thread stays off the socket while request threads read, before it looks
// again (an indication that arrives just after a request is read at most this late).
constexpr auto kReaderPause = std::chrono::milliseconds(5);

int ConnectTo(const std::string &path) {
  sockaddr_un addr{};
  if (path.size() >= sizeof(addr.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  addr.sun_family = AF_UNIX;
  memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

class SocketTransport final : public Transport {
 public:
  SocketTransport(qmi_host::ClientSink *sink, std::string path)
      : sink_(sink), path_(std::move(path)), kick_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  // Starts the reader and waits for the outcome of the first connection attempt.
  bool Start() {
    reader_ = std::thread([this] { ReaderLoop(); });
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait(lock, [&] { return first_attempt_done_; });
    return fd_ >= 0;
  }

  int Open(uint32_t service_id, uint32_t instance, uint32_t *client) override {
    std::unique_lock<std::mutex> lock(mu_);
    if (fd_ < 0 || !ready_) return QMI_SERVICE_ERR;
    const uint32_t cookie = ++next_cookie_;
    const uint64_t generation = generation_;
    if (!SendLocked({wire::kOpen, service_id, instance, cookie}, nullptr, 0)) {
      return LostLocked(lock);
    }
    const bool answered = cv_.wait_for(lock, kReplyWait, [&] {
      return open_results_.count(cookie) != 0 || generation_ != generation || stop_;
    });
    auto it = open_results_.find(cookie);
    if (!answered || it == open_results_.end()) {
      return answered ? QMI_SERVICE_ERR : QMI_TIMEOUT_ERR;
    }
    const int status = it->second.first;
    *client = it->second.second;
    open_results_.erase(it);
    return status;
  }

  void Close(uint32_t client) override {
    std::lock_guard<std::mutex> lock(mu_);
    SendLocked({wire::kClose, 0, 0, client}, nullptr, 0);
  }

  int Send(uint32_t client, const uint8_t *msg, size_t len) override {
    std::unique_lock<std::mutex> lock(mu_);
    if (fd_ < 0) return QMI_SERVICE_ERR;
    return SendLocked({wire::kMessage, 0, 0, client}, msg, len) ? QMI_NO_ERR : LostLocked(lock);
  }

  void Shutdown() override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (stop_) return;
      stop_ = true;
      if (fd_ >= 0) shutdown(fd_, SHUT_RDWR);
      cv_.notify_all();
    }
    pause_cv_.notify_all();
    if (reader_.joinable()) reader_.join();
  }

  ~SocketTransport() override {
    Shutdown();
    if (kick_fd_ >= 0) close(kick_fd_);
  }

 private:
  bool SendLocked(const wire::FrameHeader &h, const uint8_t *body, size_t body_len) {
    return fd_ >= 0 && wire::SendFrame(fd_, h, body, body_len);
  }

  // A write on the connection failed: the daemon is gone, though the reader thread may not have
  // seen the hang-up yet (a busy machine). Its services are reported down before the caller
  // hears of the failure, so that a caller that looks at once (service list, reopen) waits for
  // them to come back instead of finding them still up on a dead connection. mu_ held.
  int LostLocked(std::unique_lock<std::mutex> &lock) {
    const uint64_t generation = generation_;
    if (fd_ >= 0) shutdown(fd_, SHUT_RDWR);  // the reader thread wakes to the hang-up
    cv_.wait_for(lock, kReplyWait, [&] { return generation_ != generation || stop_; });
    return QMI_CLIENT_TRANSPORT_ERR;
  }

  void ReaderLoop() {
    for (;;) {
      int fd = ConnectTo(path_);
      {
        std::unique_lock<std::mutex> lock(mu_);
        if (stop_) {
          if (fd >= 0) close(fd);
          break;
        }
        fd_ = fd;
        if (fd >= 0) {
          SendLocked({wire::kHello, 0, 0, 0}, nullptr, 0);
        } else {
          first_attempt_done_ = true;
          cv_.notify_all();
          cv_.wait_for(lock, kReconnectDelay, [&] { return stop_; });
          continue;
        }
      }
      ReadFrames(fd);
      sink_.DropAll();
      std::lock_guard<std::mutex> read_lock(read_mu_);
      std::unique_lock<std::mutex> lock(mu_);
      close(fd_);
      fd_ = -1;
      ready_ = false;
      early_up_.clear();
      ++generation_;
      open_results_.clear();
      first_attempt_done_ = true;
      cv_.notify_all();
      if (stop_) break;
      cv_.wait_for(lock, kReconnectDelay, [&] { return stop_; });
    }
  }

  // A request's thread reads its own response when no other thread is reading: the reader
  // thread then does not have to hand it over. Frames are read and dispatched only under
  // read_mu_, so they are handled one at a time in arrival order whoever reads them.
  void Await(const std::atomic<bool> &finished,
             std::chrono::steady_clock::time_point deadline) override {
    int fd;
    {
      std::lock_guard<std::mutex> lock(mu_);
      fd = fd_;
    }
    if (fd < 0) return;
    // While a request's thread waits, the reader thread keeps off the socket (kicked out of its
    // poll if it is in one) so that the response wakes only the thread that wants it.
    {
      std::lock_guard<std::mutex> pause(pause_mu_);
      ++awaiters_;
      if (reader_polling_ && kick_fd_ >= 0) {
        const uint64_t one = 1;
        (void)!write(kick_fd_, &one, sizeof(one));
      }
    }
    struct Leave {
      SocketTransport *t;
      ~Leave() {
        std::lock_guard<std::mutex> pause(t->pause_mu_);
        --t->awaiters_;  // the reader thread comes back by itself within kReaderPause
      }
    } leave{this};
    if (!read_mu_.try_lock()) return;
    std::lock_guard<std::mutex> read_lock(read_mu_, std::adopt_lock);
    // The reader thread closes a connection only under read_mu_: fd stays valid here. Polls
    // are short so that a completion by another thread (a release) is seen soon.
    while (!finished.load(std::memory_order_acquire)) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return;
      pollfd p{fd, POLLIN, 0};
      if (poll(&p, 1, (int)std::min<int64_t>(left.count() + 1, 50)) < 0 && errno != EINTR) {
        return;
      }
      if ((p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return;
      if ((p.revents & POLLIN) != 0 && ReadOne(fd) < 0) return;
    }
  }

  // Reads and dispatches one frame if one is waiting; read_mu_ held. 1: a frame, 0: none,
  // -1: the connection ended.
  int ReadOne(int fd) {
    ssize_t n;
    do {
      n = recv(fd, read_buf_.data(), read_buf_.size(), MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
    if (n <= 0) return -1;
    Dispatch(read_buf_.data(), (size_t)n);
    return 1;
  }

  // Until the connection ends. Waits for input without read_mu_, so that a request's thread
  // can take over reading; reads under it.
  void ReadFrames(int fd) {
    for (;;) {
      {
        std::unique_lock<std::mutex> pause(pause_mu_);
        while (awaiters_ > 0 && !StopRequested()) pause_cv_.wait_for(pause, kReaderPause);
        reader_polling_ = true;
      }
      pollfd p[2] = {{fd, POLLIN, 0}, {kick_fd_, POLLIN, 0}};
      const int n = poll(p, kick_fd_ >= 0 ? 2 : 1, -1);
      {
        std::lock_guard<std::mutex> pause(pause_mu_);
        reader_polling_ = false;
      }
      if (n < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if ((p[1].revents & POLLIN) != 0) {
        uint64_t count;
        (void)!read(kick_fd_, &count, sizeof(count));
        continue;  // a request's thread reads now
      }
      std::lock_guard<std::mutex> read_lock(read_mu_);
      if (ReadOne(fd) < 0) return;
    }
  }

  bool StopRequested() {
    std::lock_guard<std::mutex> lock(mu_);
    return stop_;
  }

  void Dispatch(const uint8_t *frame, size_t n) {
    wire::FrameHeader h;
    if (!wire::ParseFrameHeader(frame, n, &h)) return;
    const uint8_t *payload = frame + wire::kFrameHeaderLen;
    const size_t payload_len = n - wire::kFrameHeaderLen;
    switch (h.op) {
      // A service is reported up only once the connection can open clients of it: the daemon
      // lists its services before kHelloDone, and those wait for it.
      case wire::kServiceUp: {
        std::unique_lock<std::mutex> lock(mu_);
        if (!ready_) {
          early_up_.insert({h.service, h.arg});
          break;
        }
        lock.unlock();
        sink_.OnServiceUp(h.service, h.arg);
        break;
      }
      case wire::kServiceDown: {
        std::unique_lock<std::mutex> lock(mu_);
        if (!ready_) {
          early_up_.erase({h.service, h.arg});
          break;
        }
        lock.unlock();
        sink_.OnServiceDown(h.service, h.arg);
        break;
      }
      case wire::kHelloDone: {
        std::set<std::pair<uint32_t, uint32_t>> up;
        {
          std::lock_guard<std::mutex> lock(mu_);
          ready_ = true;
          up.swap(early_up_);
        }
        for (const auto &s : up) sink_.OnServiceUp(s.first, s.second);
        // The first connection counts as made once its services are reported.
        std::lock_guard<std::mutex> lock(mu_);
        first_attempt_done_ = true;
        cv_.notify_all();
        break;
      }
      case wire::kOpenResult:
        if (payload_len >= 4) {
          std::lock_guard<std::mutex> lock(mu_);
          open_results_[h.client] = {(int)h.arg, wire::GetU32(payload)};
          cv_.notify_all();
        }
        break;
      case wire::kMessage:
        sink_.OnMessage(h.client, payload, payload_len);
        break;
      case wire::kTxnError:
        if (payload_len >= 2) sink_.OnTxnError(h.client, wire::GetU16(payload), (int)h.arg);
        break;
      default:
        break;
    }
  }

  TrackingSink sink_;
  const std::string path_;
  std::mutex read_mu_;  // held while reading and dispatching a frame
  // Pausing the reader thread while request threads read. pause_mu_ may be held when taking
  // mu_, never the other way round.
  const int kick_fd_;
  std::mutex pause_mu_;
  std::condition_variable pause_cv_;
  int awaiters_ = 0;
  bool reader_polling_ = false;
  std::vector<uint8_t> read_buf_ = std::vector<uint8_t>(wire::kMaxFrameLen);
  std::thread reader_;
  std::mutex mu_;
  std::condition_variable cv_;
  int fd_ = -1;
  bool ready_ = false;                                // kHelloDone seen on the current connection
  std::set<std::pair<uint32_t, uint32_t>> early_up_;  // services listed before kHelloDone
  bool stop_ = false;
  bool first_attempt_done_ = false;
  uint64_t generation_ = 0;
  uint32_t next_cookie_ = 0;
  std::map<uint32_t, std::pair<int, uint32_t>> open_results_;  // cookie -> status, client
};

}  // namespace

std::unique_ptr<Transport> MakeSocketTransport(qmi_host::ClientSink *sink, const std::string &path,
                                               int *error) {
  auto transport = std::make_unique<SocketTransport>(sink, path);
  *error = transport->Start() ? QMI_NO_ERR : QMI_CLIENT_TRANSPORT_ERR;
  return transport;
}

}  // namespace qmi_cci
