// The "qmi-proxy:PATH" transport: the device is shared through libqmi's proxy, as ModemManager
// and `qmicli -p` share it. The proxy opens PATH for every connection that names it (by its
// resolved path, as libqmi's clients give it) and passes QMUX frames through, so once the open
// is answered this is the QMUX transport on a socket. A proxy that is not running is started,
// as libqmi's clients start it; a proxy that closes the connection (it died, or the device went)
// is a service loss like a device that hangs up. The proxy keeps the client ids of a connection
// that goes, so they are released before the connection is closed.
//
// Why an attempt failed is written to standard error, once per new reason, so that a program
// whose services stay down says why.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "qmi_proxy_wire.h"
#include "qmux_frame.h"
#include "qmux_link.h"

namespace qmi_cci {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kProxyProgram[] = "/usr/libexec/qmi-proxy";
// How long a started proxy may take to listen, and the proxy to answer the open (it opens the
// device first): less than the five seconds a selection waits for the first attempt, so that a
// proxy that never answers is reported before the selection returns.
constexpr auto kStartWait = std::chrono::seconds(4);
constexpr auto kAnswerWait = std::chrono::seconds(4);
// A proxy is started at most this often while none listens.
constexpr auto kRestartSpacing = std::chrono::seconds(5);
constexpr auto kRetrySpacing = std::chrono::milliseconds(900);
constexpr uint8_t kOpenTxn = 1;

// The abstract socket name: TARVIK_QMI_PROXY_SOCKET, else the one libqmi's proxy listens on.
std::string SocketName() {
  const char *name = getenv("TARVIK_QMI_PROXY_SOCKET");
  return name != nullptr && *name != '\0' ? name : qmi_proxy::kDefaultSocket;
}

// Starts the proxy detached from this process (its own session, standard streams on
// /dev/null, no descriptor of ours), so that it outlives us and is never our child to reap.
// Between fork and exec only async-signal-safe calls.
bool StartProxy() {
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    setsid();
    if (fork() != 0) _exit(0);
    const int null = open("/dev/null", O_RDWR);
    if (null >= 0) {
      dup2(null, 0);
      dup2(null, 1);
      dup2(null, 2);
    }
    closefrom(3);
    char *const argv[] = {const_cast<char *>(kProxyProgram), nullptr};
    execv(kProxyProgram, argv);
    _exit(127);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Waits until `fd` is readable, the transport stops (`wake`) or `deadline`; true when readable.
bool WaitReadable(int fd, int wake, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd p[2] = {{fd, POLLIN, 0}, {wake, POLLIN, 0}};
    const int n = poll(p, 2, static_cast<int>(left.count()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || p[1].revents != 0) return false;
    return true;
  }
}

// Sleeps `ms`, or less when the transport stops; false when it stopped.
bool Pause(int wake, int ms) {
  pollfd p = {wake, POLLIN, 0};
  return poll(&p, 1, ms) == 0;
}

class ProxyLink final : public QmuxLink {
 public:
  explicit ProxyLink(std::string path) : path_(std::move(path)) {}

  int Open(int wake) override {
    // A link that keeps failing is tried once a second, not at the transport's pace.
    if (failing_ && !Pause(wake, static_cast<int>(kRetrySpacing.count()))) return -1;
    failing_ = true;
    const std::string socket_name = SocketName();
    int fd = Connect(socket_name);
    if (fd < 0 && socket_name == qmi_proxy::kDefaultSocket) fd = StartAndConnect(wake);
    if (fd < 0) {
      Say("no proxy listens on @" + socket_name +
          (socket_name == qmi_proxy::kDefaultSocket
               ? std::string(" and ") + kProxyProgram + " could not be started"
               : std::string()));
      return -1;
    }
    if (OpenDevice(fd, wake)) {
      Say("");
      failing_ = false;
      return fd;
    }
    close(fd);
    return -1;
  }

  ssize_t Write(int fd, const void *data, size_t len) override {
    return send(fd, data, len, MSG_NOSIGNAL);  // a proxy that went is a loss, not a signal
  }

  void Lost() override {
    Say("the proxy closed the connection for " + path_ +
        ": its services are down until it is back");
  }

  // Not through Say: the reader thread owns what was said last.
  void Unanswered() override {
    fprintf(stderr,
            "qmi-proxy:%s: the proxy opened %s but nothing answered its version list (is it a QMI "
            "device?)\n",
            path_.c_str(), path_.c_str());
  }

  bool ReleaseOnClose() const override { return true; }

 private:
  static int Connect(const std::string &name) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const size_t len = std::min(name.size(), sizeof(addr.sun_path) - 1);
    memcpy(addr.sun_path + 1, name.data(), len);  // abstract: a leading NUL, no terminator
    const auto addr_len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + len);
    int rc;
    do {
      rc = connect(fd, reinterpret_cast<sockaddr *>(&addr), addr_len);
    } while (rc < 0 && errno == EINTR);
    if (rc == 0) return fd;
    close(fd);
    return -1;
  }

  // Starts libqmi's proxy (not more often than kRestartSpacing) and connects once it listens.
  int StartAndConnect(int wake) {
    const auto now = Clock::now();
    if (started_ && now - last_start_ < kRestartSpacing) return -1;
    started_ = true;
    last_start_ = now;
    if (access(kProxyProgram, X_OK) != 0 || !StartProxy()) return -1;
    const auto deadline = now + kStartWait;
    while (Clock::now() < deadline) {
      const int fd = Connect(qmi_proxy::kDefaultSocket);
      if (fd >= 0) return fd;
      if (!Pause(wake, 50)) return -1;
    }
    return -1;
  }

  // Asks the proxy to open the device and reads its answer. True once it is open.
  bool OpenDevice(int fd, int wake) {
    // The proxy keys a device by its path: the one libqmi's clients give it is resolved, so
    // this process shares the proxy's open device with them instead of opening it a second time.
    char resolved[PATH_MAX];
    const std::string device = realpath(path_.c_str(), resolved) != nullptr ? resolved : path_;
    const std::vector<uint8_t> request = qmi_proxy::OpenRequest(kOpenTxn, device);
    if (Write(fd, request.data(), request.size()) != static_cast<ssize_t>(request.size())) {
      Say("cannot send the open of " + device + " to the proxy: " + strerror(errno));
      return false;
    }
    qmux::FrameReader reader;
    std::vector<uint8_t> buf(4096);
    const auto deadline = Clock::now() + kAnswerWait;
    for (;;) {
      if (!WaitReadable(fd, wake, deadline)) {
        if (Pause(wake, 0)) Say("the proxy did not answer the open of " + device + " in time");
        return false;
      }
      const ssize_t got = read(fd, buf.data(), buf.size());
      if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (got <= 0) {
        Say("the proxy closed the connection instead of opening " + device +
            " (is it a QMI device the proxy can open?)");
        return false;
      }
      reader.Append(buf.data(), static_cast<size_t>(got));
      uint16_t error = 0;
      switch (qmi_proxy::ReadOpenAnswer(reader, kOpenTxn, &error)) {
        case qmi_proxy::OpenAnswer::kPending:
          continue;
        case qmi_proxy::OpenAnswer::kOpened:
          return true;
        case qmi_proxy::OpenAnswer::kRefused: {
          char code[16];
          snprintf(code, sizeof(code), "0x%04X", error);
          Say("the proxy refused to open " + device + " (QMI error " + code + ")");
          return false;
        }
        case qmi_proxy::OpenAnswer::kUnexpected:
          Say("the proxy answered the open of " + device + " with something else");
          return false;
      }
    }
  }

  // Writes why the link is down to standard error when the reason is new; "" when it is up.
  void Say(const std::string &why) {
    if (why == said_) return;
    said_ = why;
    if (!why.empty()) fprintf(stderr, "qmi-proxy:%s: %s\n", path_.c_str(), why.c_str());
  }

  const std::string path_;
  bool started_ = false;
  Clock::time_point last_start_;
  bool failing_ = false;
  std::string said_;  // the reason the link is down, "" while it is up
};

}  // namespace

std::unique_ptr<Transport> MakeQmiProxyTransport(qmi_host::ClientSink *sink,
                                                 const std::string &path, int *error) {
  return MakeQmuxTransport(sink, std::make_unique<ProxyLink>(path), error);
}

}  // namespace qmi_cci
