// The qmi-proxy transport: what a proxy that misbehaves does to the caller (a stand-in proxy on an
// abstract socket of this test's own), and the library sharing the simulated modem's QMUX device
// with libqmi's qmicli through libqmi's own qmi-proxy. (The standard-service suites run through
// the proxy as ctest's qmi-proxy.* tests.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <poll.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "modemsim/modem.h"
#include "modemsim/qmux_server.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "qmi_proxy_wire.h"
#include "qmux_frame.h"
#include "sar_v01.h"
#include "tarvik_extend_cmn.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
constexpr uint32_t kSar = SAR_QMI_SERVICE_ID_V01;
constexpr uint32_t kUim = 0x0B;
constexpr char kProxyProgram[] = "/usr/libexec/qmi-proxy";

// What the stand-in proxy does with a connection once it has read the open request.
enum class Act {
  kRefuse,      // answers with QMI error 0x0003
  kGarbage,     // answers with bytes that are no frame
  kHalfAnswer,  // sends the first bytes of a good answer, then closes
  kSilent,      // never answers
  kDeaf,        // answers the open, then nothing
  kRelay,       // opens the device and passes frames both ways until Cut()
};

// A proxy on the abstract socket TARVIK_QMI_PROXY_SOCKET names, one connection at a time.
class StandInProxy {
 public:
  StandInProxy(Act act, std::string device) : act_(act), device_(std::move(device)) {
    const std::string name = "tarvik-test-proxy-" + std::to_string(getpid());
    setenv("TARVIK_QMI_PROXY_SOCKET", name.c_str(), 1);
    listen_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path + 1, name.data(), name.size());
    const auto len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (bind(listen_, reinterpret_cast<sockaddr *>(&addr), len) != 0 || listen(listen_, 4) != 0) {
      ADD_FAILURE() << "cannot listen on @" << name;
    }
    pipe2(stop_, O_CLOEXEC);
    thread_ = std::thread([this] { Serve(); });
  }
  ~StandInProxy() {
    (void)!write(stop_[1], "x", 1);
    thread_.join();
    for (int fd : {listen_, stop_[0], stop_[1]}) close(fd);
  }
  // The relay sends half a frame and closes the connection it serves (the next one is served).
  void Cut() { cut_ = true; }
  int connections() const { return connections_; }
  // The first open request read, as bytes.
  std::vector<uint8_t> open_request() const {
    std::lock_guard<std::mutex> lock(mu_);
    return open_request_;
  }

 private:
  // Until `fd` is readable or 20 ms passed; false once the proxy stops.
  bool Wait(int fd) {
    pollfd p[2] = {{fd, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    return poll(p, 2, 20) >= 0 && p[1].revents == 0;
  }
  void Serve() {
    for (;;) {
      if (!Wait(listen_)) return;
      const int conn = accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (conn < 0) continue;
      ++connections_;
      Handle(conn);
      close(conn);
    }
  }
  void Handle(int conn) {
    qmux::FrameReader reader;
    std::vector<uint8_t> bytes;
    qmux::Frame f;
    uint8_t buf[4096];
    while (!reader.Next(&f)) {
      if (!Wait(conn)) return;
      const ssize_t n = read(conn, buf, sizeof(buf));
      if (n == 0) return;
      if (n > 0) {
        reader.Append(buf, static_cast<size_t>(n));
        bytes.insert(bytes.end(), buf, buf + n);
      }
    }
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (open_request_.empty()) open_request_ = bytes;
    }
    const uint8_t result[] = {0x02, 0x04,
                              0x00, act_ == Act::kRefuse,
                              0x00, act_ == Act::kRefuse ? uint8_t{0x03} : uint8_t{0x00},
                              0x00};
    qmux::Frame answer;
    answer.sender = qmux::kFromModem;
    answer.kind = qmux::Kind::kResponse;
    answer.txn = f.txn;
    answer.msg_id = qmi_proxy::kCtlInternalProxyOpen;
    answer.tlv = result;
    answer.tlv_len = sizeof(result);
    std::vector<uint8_t> out;
    qmux::AppendFrame(answer, &out);
    if (act_ == Act::kGarbage) out.assign(40, 0xA5);
    if (act_ == Act::kHalfAnswer) out.resize(5);
    if (act_ != Act::kSilent) (void)!write(conn, out.data(), out.size());
    if (act_ == Act::kRelay) {
      Relay(conn);
      return;
    }
    while (act_ != Act::kHalfAnswer && Wait(conn) && read(conn, buf, sizeof(buf)) != 0) {
    }
  }
  void Relay(int conn) {
    const int dev = open(device_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    termios tio;
    if (dev >= 0 && tcgetattr(dev, &tio) == 0) {
      cfmakeraw(&tio);
      tcsetattr(dev, TCSANOW, &tio);
    }
    uint8_t buf[4096];
    while (dev >= 0 && !cut_) {
      pollfd p[3] = {{conn, POLLIN, 0}, {dev, POLLIN, 0}, {stop_[0], POLLIN, 0}};
      if (poll(p, 3, 20) < 0 || p[2].revents != 0) break;
      if (p[0].revents != 0) {
        const ssize_t n = read(conn, buf, sizeof(buf));
        if (n <= 0) break;
        (void)!write(dev, buf, static_cast<size_t>(n));
      }
      if (p[1].revents != 0) {
        const ssize_t n = read(dev, buf, sizeof(buf));
        if (n > 0) (void)!write(conn, buf, static_cast<size_t>(n));
      }
    }
    if (cut_) {
      const uint8_t half_frame[] = {qmux::kMarker, 0x20, 0x00, qmux::kFromModem, 0x11};
      (void)!write(conn, half_frame, sizeof(half_frame));
      cut_ = false;
    }
    if (dev >= 0) close(dev);
  }

  const Act act_;
  const std::string device_;
  int listen_ = -1;
  int stop_[2] = {-1, -1};
  std::thread thread_;
  std::atomic<bool> cut_{false};
  std::atomic<int> connections_{0};
  mutable std::mutex mu_;
  std::vector<uint8_t> open_request_;
};

// Standard error of this process into a file while it lives; what was written, on demand.
class StderrCapture {
 public:
  StderrCapture() : path_(tarvik_test::ScratchDir() + "/stderr") {
    fflush(stderr);
    saved_ = dup(2);
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(fd, 2);
    close(fd);
  }
  ~StderrCapture() {
    fflush(stderr);
    dup2(saved_, 2);
    close(saved_);
  }
  std::string text() const {
    std::ifstream in(path_);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

 private:
  std::string path_;
  int saved_ = -1;
};

class ThroughQmiProxy : public ::testing::Test {
 protected:
  void SetUp() override {
    modem_ = modemsim::CreateStandardModem("");
    server_ = std::make_unique<modemsim::QmuxServer>(*modem_);
    std::string error;
    ASSERT_TRUE(server_->Start(link_, &error)) << error;
    char resolved[PATH_MAX];
    ASSERT_NE(realpath(link_.c_str(), resolved), nullptr);
    device_ = resolved;
  }
  void TearDown() override { qmi_client_host_select_transport("inproc"); }

  const std::string link_ = tarvik_test::ScratchDir() + "/cdc-wdm";
  std::string device_;  // the pseudo-terminal the link names
  std::unique_ptr<modemsim::Modem> modem_;
  std::unique_ptr<modemsim::QmuxServer> server_;
};

TEST_F(ThroughQmiProxy, AProxyThatDoesNotOpenTheDeviceFailsTheSelectionWithTheReason) {
  struct Row {
    Act act;
    const char *said;  // on standard error
  };
  const Row rows[] = {
      {Act::kRefuse, "the proxy refused to open DEV (QMI error 0x0003)"},
      {Act::kGarbage, "the proxy answered the open of DEV with something else"},
      {Act::kHalfAnswer, "the proxy closed the connection instead of opening DEV"},
      {Act::kSilent, "the proxy did not answer the open of DEV in time"},
      {Act::kDeaf, "the proxy opened LINK but nothing answered its version list"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.said);
    std::string said = row.said;
    if (said.find("DEV") != std::string::npos) said.replace(said.find("DEV"), 3, device_);
    if (said.find("LINK") != std::string::npos) said.replace(said.find("LINK"), 4, link_);
    StderrCapture captured;
    StandInProxy proxy(row.act, device_);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(qmi_client_host_select_transport(("qmi-proxy:" + link_).c_str()),
              QMI_CLIENT_TRANSPORT_ERR);
    // Never past the transport's five-second wait for an answer.
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(7));
    EXPECT_EQ(tarvik_get_sar_dsi(), -1);
    qmi_client_host_select_transport("inproc");
    EXPECT_NE(captured.text().find("qmi-proxy:" + link_ + ": " + said), std::string::npos)
        << captured.text();
    // The proxy was asked to open the device the link names, as libqmi's clients ask.
    qmux::FrameReader reader;
    const std::vector<uint8_t> request = proxy.open_request();
    reader.Append(request.data(), request.size());
    qmux::Frame f;
    ASSERT_TRUE(reader.Next(&f));
    EXPECT_EQ(f.service, qmux::kControlService);
    EXPECT_EQ(f.msg_id, qmi_proxy::kCtlInternalProxyOpen);
    const uint8_t *v = nullptr;
    uint16_t n = 0;
    ASSERT_TRUE(qmux::FindTlv(f.tlv, f.tlv_len, 0x01, &v, &n));
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(v), n), device_);
    EXPECT_TRUE(modem_->ReceivedBy(kSar).empty());
  }
}

TEST_F(ThroughQmiProxy, AProxyThatGoesMidFrameIsAServiceLossUntilItIsBack) {
  StderrCapture captured;
  StandInProxy proxy(Act::kRelay, device_);
  ASSERT_EQ(qmi_client_host_select_transport(("qmi-proxy:" + link_).c_str()), QMI_NO_ERR);
  ASSERT_EQ(tarvik_set_sar_dsi(4), 0);
  EXPECT_EQ(modem_->ReceivedBy(kSar).size(), 1u);
  proxy.Cut();
  EXPECT_TRUE(tarvik_test::WaitUntil([&] { return tarvik_get_sar_dsi() == -1; }, seconds(5)));
  EXPECT_NE(captured.text().find("the proxy closed the connection for " + link_), std::string::npos)
      << captured.text();
  // The transport connects again and the client starts over.
  modem_->ClearReceived(kSar);
  EXPECT_TRUE(tarvik_test::WaitUntil([&] { return tarvik_get_sar_dsi() == 4; }, seconds(5),
                                     milliseconds(100)));
  EXPECT_FALSE(modem_->ReceivedBy(kSar).empty());
  EXPECT_GE(proxy.connections(), 2);
}

// ModemManager's case: another libqmi client works the device through the same proxy meanwhile.
TEST_F(ThroughQmiProxy, TheLibraryAndQmicliShareTheDeviceAndBothGetEveryAnswer) {
  if (access(kProxyProgram, X_OK) != 0 || access("/usr/bin/qmicli", X_OK) != 0) {
    GTEST_SKIP() << "libqmi-utils (qmicli, qmi-proxy) is not installed";
  }
  ASSERT_EQ(qmi_client_host_select_transport(("qmi-proxy:" + link_).c_str()), QMI_NO_ERR);
  constexpr int kRounds = 6;
  std::atomic<int> qmicli_ok{0};
  std::string qmicli_out;
  std::thread other([&] {
    for (int i = 0; i < kRounds; ++i) {
      const char *arg = i % 2 == 0 ? "--sar-rf-get-state" : "--uim-get-card-status";
      const char *printed = i % 2 == 0 ? "Successfully got SAR RF state" : "Card state: 'present'";
      std::string out;
      const int rc = tarvik_test::RunShell(
          "timeout 20 qmicli -p --device-open-qmi -d " + link_ + " " + arg + " 2>&1", &out);
      if (rc == 0 && out.find(printed) != std::string::npos) ++qmicli_ok;
      qmicli_out += out;
    }
  });
  int ours_ok = 0;
  for (int i = 0; i < 4 * kRounds; ++i) {
    uint16_t states = 0;
    ours_ok += tarvik_set_sar_dsi(1 + i % 8) == 0;
    ours_ok += tarvik_get_sar_dsi() == 1 + i % 8;
    ours_ok += tarvik_uim_get_card_status(&states) == 0 && states == 0x0101;
  }
  other.join();
  EXPECT_EQ(ours_ok, 3 * 4 * kRounds);
  EXPECT_EQ(qmicli_ok, kRounds) << qmicli_out;
  // Every request of both reached the modem once: ours and qmicli's.
  size_t sar = 0, uim = 0;
  for (const auto &r : modem_->ReceivedBy(kSar))
    sar += r.msg_id == QMI_SAR_RF_GET_STATE_REQ_MSG_V01;
  for (const auto &r : modem_->ReceivedBy(kUim)) uim += r.msg_id == 0x002F;
  EXPECT_EQ(sar, size_t{4 * kRounds + kRounds / 2});
  EXPECT_EQ(uim, size_t{4 * kRounds + kRounds / 2});
  // The proxy keeps a connection's client ids: the library releases its own before it leaves.
  qmi_client_host_select_transport("inproc");
  EXPECT_TRUE(tarvik_test::WaitUntil(
      [&] { return modem_->Clients(kSar).empty() && modem_->Clients(kUim).empty(); }, seconds(3)));
}

}  // namespace
