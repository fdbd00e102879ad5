// Serves a modem over a SOCK_SEQPACKET Unix socket (framing in qmi_client_host.h).
#include "modemsim/socket_server.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>

#include "modemsim/control.h"
#include "modemsim/trace.h"

namespace modemsim {

namespace wire = qmi_host::wire;

namespace {

bool FillAddress(const std::string &path, sockaddr_un *addr) {
  if (path.empty() || path.size() >= sizeof(addr->sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  memset(addr, 0, sizeof(*addr));
  addr->sun_family = AF_UNIX;
  memcpy(addr->sun_path, path.c_str(), path.size() + 1);
  return true;
}

// A trace entry longer than this goes in several frames (kTraceLine with arg 1: more follows).
constexpr size_t kTraceChunk = 32768;
constexpr auto kTraceWait = std::chrono::milliseconds(100);

std::vector<std::string> SplitWords(const uint8_t *p, size_t len) {
  std::vector<std::string> words;
  std::string cur;
  for (size_t i = 0; i < len; ++i) {
    if (p[i] == '\0') {
      words.push_back(cur);
      cur.clear();
    } else {
      cur += (char)p[i];
    }
  }
  if (!cur.empty()) words.push_back(cur);
  return words;
}

// Adds `fd` to the epoll set `epoll_fd`, for reading.
bool Watch(int epoll_fd, int fd) {
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.fd = fd;
  return epoll_ctl(epoll_fd, EPOLL_CTL_ADD, fd, &ev) == 0;
}

}  // namespace

// One connected process: a client sink of the modem. The serving thread hands it the frames
// the process sends; the modem's answers and indications, from whichever thread the modem sends
// them on, go out one whole frame at a time.
class SocketServer::Connection final : public qmi_host::ClientSink {
 public:
  Connection(Modem &modem, int fd) : modem_(modem), fd_(fd) {}
  ~Connection() override {
    shutdown(fd_, SHUT_RDWR);  // a trace stream sees its reader gone and ends
    if (trace_thread_.joinable()) {
      trace_thread_.join();
    } else if (attached_) {
      modem_.Detach(this);
    }
    close(fd_);
  }
  bool finished() const { return finished_.load(); }

  void OnServiceUp(uint32_t service_id, uint32_t instance) override {
    Send({wire::kServiceUp, service_id, instance, 0}, nullptr, 0);
  }
  void OnServiceDown(uint32_t service_id, uint32_t instance) override {
    Send({wire::kServiceDown, service_id, instance, 0}, nullptr, 0);
  }
  void OnMessage(uint32_t client, const uint8_t *msg, size_t len) override {
    Send({wire::kMessage, 0, 0, client}, msg, len);
  }
  void OnTxnError(uint32_t client, uint16_t txn, int error) override {
    uint8_t body[2];
    wire::PutU16(body, txn);
    Send({wire::kTxnError, 0, (uint32_t)error, client}, body, sizeof(body));
  }

  // Handles one frame the process sent. False when the connection follows the trace from now
  // on: the serving thread reads it no more.
  bool Handle(const wire::FrameHeader &h, const uint8_t *payload, size_t payload_len) {
    switch (h.op) {
      case wire::kHello:
        if (!attached_) {
          attached_ = true;
          modem_.Attach(this);  // reports the services up, then events follow
          Send({wire::kHelloDone, 0, 0, 0}, nullptr, 0);
        }
        break;
      case wire::kOpen: {
        uint32_t client = 0;
        const int rc = attached_ ? modem_.Open(this, h.service, h.arg, &client) : QMI_SERVICE_ERR;
        uint8_t body[4];
        wire::PutU32(body, client);
        Send({wire::kOpenResult, h.service, (uint32_t)rc, h.client}, body, sizeof(body));
        break;
      }
      case wire::kClose:
        modem_.Close(h.client);
        break;
      case wire::kMessage: {
        wire::QmiHeader q{};
        const int rc = modem_.Deliver(h.client, payload, payload_len);
        if (rc != QMI_NO_ERR && wire::ParseQmiHeader(payload, payload_len, &q)) {
          OnTxnError(h.client, q.txn, rc);
        }
        break;
      }
      case wire::kControl: {
        std::string out;
        const std::vector<std::string> words = SplitWords(payload, payload_len);
        int status = RunControlCommand(modem_, words, &out);
        if (status == 2) out += "usage: " + ControlUsage(words) + "\n";
        Send({wire::kControlReply, 0, (uint32_t)status, 0},
             reinterpret_cast<const uint8_t *>(out.data()), out.size());
        break;
      }
      case wire::kTrace: {
        // The connection follows the trace until its reader hangs up, then it is done.
        std::vector<std::string> words = SplitWords(payload, payload_len);
        trace_thread_ = std::thread([this, words = std::move(words)] {
          FollowTrace(words);
          if (attached_) modem_.Detach(this);
          finished_ = true;
        });
        return false;
      }
      default:
        break;
    }
    return true;
  }

 private:
  void Send(const wire::FrameHeader &h, const uint8_t *body, size_t len) {
    std::lock_guard<std::mutex> lock(write_mu_);
    wire::SendFrame(fd_, h, body, len);
  }

  // Answers a trace request, then streams what the modem does until the reader hangs up (or the
  // server stops: its socket is shut down).
  void FollowTrace(const std::vector<std::string> &words) {
    const bool json = !words.empty() && words[0] == "--json";
    const Words w(words.begin() + (json ? 1 : 0), words.end());
    ControlReply reply(json);
    std::set<uint32_t> services;
    const int status =
        !w.empty() && w[0] == "trace" ? TraceRequest(modem_, w, reply, &services) : reply.Usage();
    std::string out = reply.out();
    if (status == 2 && !json) out += "usage: " + ControlUsage(words) + "\n";
    // Following before the answer: whatever the modem does once the reader has it is traced.
    TraceReader reader(services);
    if (status == 0) modem_.AddTraceReader(&reader);
    Send({wire::kControlReply, 0, (uint32_t)status, 0},
         reinterpret_cast<const uint8_t *>(out.data()), out.size());
    if (status != 0) return;
    std::vector<qmi_trace::Entry> entries;
    uint64_t dropped = 0;
    bool open = true;
    while (open && !HungUp()) {
      reader.Take(&entries, &dropped, kTraceWait);
      if (dropped != 0) {
        qmi_trace::Entry e;
        e.kind = qmi_trace::Entry::Kind::kDropped;
        e.time_us = qmi_trace::Now();
        e.count = dropped;
        e.note = "the reader fell behind";
        entries.push_back(std::move(e));
      }
      for (size_t i = 0; open && i < entries.size(); ++i) {
        open = SendEntry(json ? qmi_trace::Json(entries[i]) : qmi_trace::Text(entries[i]));
      }
    }
    modem_.RemoveTraceReader(&reader);
  }

  bool SendEntry(const std::string &text) {
    const auto *p = reinterpret_cast<const uint8_t *>(text.data());
    size_t at = 0;
    do {
      const size_t n = std::min(kTraceChunk, text.size() - at);
      const uint32_t more = at + n < text.size() ? 1 : 0;
      std::lock_guard<std::mutex> lock(write_mu_);
      if (!wire::SendFrame(fd_, {wire::kTraceLine, 0, more, 0}, p + at, n)) return false;
      at += n;
    } while (at < text.size());
    return true;
  }

  // A trace's reader sends nothing after its request: readable means it hung up.
  bool HungUp() const {
    pollfd p = {fd_, POLLIN, 0};
    return poll(&p, 1, 0) != 0;
  }

  Modem &modem_;
  const int fd_;
  bool attached_ = false;  // to the modem, as its sink
  std::mutex write_mu_;
  std::thread trace_thread_;
  std::atomic<bool> finished_{false};  // the trace stream ended
};

SocketServer::SocketServer(Modem &modem) : modem_(modem) {}

SocketServer::~SocketServer() {
  Stop();
}

// Clears the way for binding at `path`: nothing there, or a socket nobody answers on (left by a
// daemon that died), which is removed. Anything else stays, and *error says why.
static bool ClaimPath(const std::string &path, const sockaddr_un &addr, std::string *error) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return true;
    *error = path + ": " + strerror(errno);
    return false;
  }
  if (!S_ISSOCK(st.st_mode)) {
    *error = path + " exists and is not a socket; not replacing it";
    errno = EEXIST;
    return false;
  }
  const int probe = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (probe < 0) {
    *error = std::string("socket: ") + strerror(errno);
    return false;
  }
  const bool live = connect(probe, reinterpret_cast<const sockaddr *>(&addr), sizeof(addr)) == 0;
  const int connect_errno = errno;
  close(probe);
  if (live) {
    *error = "another daemon is serving on " + path;
    errno = EADDRINUSE;
    return false;
  }
  if (connect_errno != ECONNREFUSED || unlink(path.c_str()) != 0) {
    *error = path + ": " + strerror(connect_errno != ECONNREFUSED ? connect_errno : errno);
    return false;
  }
  return true;
}

bool SocketServer::Start(const std::string &path, std::string *error) {
  std::string why;
  const bool ok = Listen(path, &why);
  if (!ok && error != nullptr) *error = why;
  return ok;
}

bool SocketServer::Listen(const std::string &path, std::string *error) {
  sockaddr_un addr;
  if (!FillAddress(path, &addr)) {
    *error = "socket path too long: " + path;
    return false;
  }
  if (!ClaimPath(path, addr, error)) return false;
  listen_fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  struct stat st;
  if (listen_fd_ < 0 || bind(listen_fd_, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0 ||
      stat(path.c_str(), &st) != 0 || listen(listen_fd_, 16) != 0 ||
      (epoll_fd_ = epoll_create1(EPOLL_CLOEXEC)) < 0 || (wake_fd_ = eventfd(0, EFD_CLOEXEC)) < 0 ||
      !Watch(epoll_fd_, listen_fd_) || !Watch(epoll_fd_, wake_fd_)) {
    const int saved = errno;
    *error = path + ": " + strerror(saved);
    for (int *fd : {&listen_fd_, &epoll_fd_, &wake_fd_}) {
      if (*fd >= 0) close(*fd);
      *fd = -1;
    }
    errno = saved;
    return false;
  }
  path_ = path;
  socket_dev_ = st.st_dev;
  socket_ino_ = st.st_ino;
  buf_.resize(wire::kMaxFrameLen);
  thread_ = std::thread([this] { Serve(); });
  return true;
}

void SocketServer::Stop() {
  if (listen_fd_ < 0) return;
  const uint64_t one = 1;
  while (write(wake_fd_, &one, sizeof(one)) < 0 && errno == EINTR) {
  }
  thread_.join();
  connections_.clear();  // each destructor detaches it from the modem and closes its socket
  tracing_.clear();      // each destructor shuts its socket down and joins its stream
  for (int *fd : {&listen_fd_, &epoll_fd_, &wake_fd_}) {
    close(*fd);
    *fd = -1;
  }
  // Only the socket this server bound: another daemon may have taken the path over since.
  struct stat st;
  if (lstat(path_.c_str(), &st) == 0 && st.st_dev == socket_dev_ && st.st_ino == socket_ino_) {
    unlink(path_.c_str());
  }
}

// The serving thread: one frame at a time from whichever connection has one, until Stop.
void SocketServer::Serve() {
  epoll_event ready[32];
  for (;;) {
    const int n = epoll_wait(epoll_fd_, ready, 32, -1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return;
    for (int i = 0; i < n; ++i) {
      const int fd = ready[i].data.fd;
      if (fd == wake_fd_) return;
      if (fd == listen_fd_) {
        Accept();
      } else {
        Read(fd);
      }
    }
  }
}

void SocketServer::Accept() {
  const int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) return;
  if (!Watch(epoll_fd_, fd)) {
    close(fd);
    return;
  }
  connections_[fd] = std::make_unique<Connection>(modem_, fd);
  tracing_.erase(
      std::remove_if(tracing_.begin(), tracing_.end(), [](const auto &c) { return c->finished(); }),
      tracing_.end());
}

// One frame from `fd`. A connection whose process hung up is closed; one that follows the trace
// from now on leaves the serving thread for a thread of its own.
void SocketServer::Read(int fd) {
  const auto it = connections_.find(fd);
  if (it == connections_.end()) return;
  ssize_t n;
  do {
    n = recv(fd, buf_.data(), buf_.size(), MSG_DONTWAIT);
  } while (n < 0 && errno == EINTR);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
  bool served_here = n > 0;
  wire::FrameHeader h;
  if (served_here && wire::ParseFrameHeader(buf_.data(), (size_t)n, &h)) {
    served_here = it->second->Handle(h, buf_.data() + wire::kFrameHeaderLen,
                                     (size_t)n - wire::kFrameHeaderLen);
    if (!served_here) tracing_.push_back(std::move(it->second));
  }
  if (served_here) return;
  epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, fd, nullptr);
  connections_.erase(it);  // a hung-up connection's destructor detaches it and closes it
}

namespace {

// A connection to the daemon at `path`, or -1 (errno set).
int ConnectTo(const std::string &path) {
  sockaddr_un addr;
  if (!FillAddress(path, &addr)) return -1;
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) {
    const int saved = errno;
    close(fd);
    errno = saved;
    return -1;
  }
  return fd;
}

bool SendWords(int fd, wire::Op op, const std::vector<std::string> &words) {
  std::string payload;
  for (const auto &w : words) payload += w + '\0';
  return wire::SendFrame(fd, {op, 0, 0, 0}, reinterpret_cast<const uint8_t *>(payload.data()),
                         payload.size());
}

// Waits for the next frame (up to timeout_ms, -1: for ever): its length, 0 for none in time,
// -1 when the connection ended.
ssize_t NextFrame(int fd, std::vector<uint8_t> *buf, int timeout_ms, wire::FrameHeader *h) {
  for (;;) {
    pollfd p = {fd, POLLIN, 0};
    const int ready = poll(&p, 1, timeout_ms);
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) return 0;
    const ssize_t n = ready < 0 ? -1 : recv(fd, buf->data(), buf->size(), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || !wire::ParseFrameHeader(buf->data(), (size_t)n, h)) return -1;
    return n;
  }
}

// The daemon's answer to a control command or a trace request: its exit status and text.
int ControlReplyOf(int fd, std::vector<uint8_t> *buf, std::string *out) {
  for (;;) {
    wire::FrameHeader h;
    const ssize_t n = NextFrame(fd, buf, -1, &h);
    if (n <= 0) return -1;
    if (h.op != wire::kControlReply) continue;
    out->assign(reinterpret_cast<const char *>(buf->data()) + wire::kFrameHeaderLen,
                (size_t)n - wire::kFrameHeaderLen);
    return (int)h.arg;
  }
}

}  // namespace

int SendControlCommand(const std::string &path, const std::vector<std::string> &words,
                       std::string *out) {
  const int fd = ConnectTo(path);
  if (fd < 0) return -1;
  std::vector<uint8_t> buf(wire::kMaxFrameLen);
  const int status = SendWords(fd, wire::kControl, words) ? ControlReplyOf(fd, &buf, out) : -1;
  close(fd);
  return status;
}

TraceFollower::~TraceFollower() {
  if (fd_ >= 0) close(fd_);
}

int TraceFollower::Start(const std::string &path, const std::vector<std::string> &words,
                         std::string *out) {
  fd_ = ConnectTo(path);
  if (fd_ < 0) return -1;
  buf_.resize(wire::kFrameHeaderLen + kTraceChunk + wire::kMaxFrameLen);
  return SendWords(fd_, wire::kTrace, words) ? ControlReplyOf(fd_, &buf_, out) : -1;
}

int TraceFollower::Next(std::string *entry, int timeout_ms) {
  entry->clear();
  for (;;) {
    wire::FrameHeader h;
    const ssize_t n = NextFrame(fd_, &buf_, entry->empty() ? timeout_ms : -1, &h);
    if (n < 0) return -1;
    if (n == 0) return 0;
    if (h.op != wire::kTraceLine) continue;
    entry->append(reinterpret_cast<const char *>(buf_.data()) + wire::kFrameHeaderLen,
                  (size_t)n - wire::kFrameHeaderLen);
    if (h.arg == 0) return 1;
  }
}

}  // namespace modemsim
