// tarvik-modemd as another process: a client over the socket transport, a restart injected from
// a shell through tarvik-qmi, and the daemon going away and coming back.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "modemsim/socket_server.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_qmi_v01.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

using namespace std::chrono_literals;

class DaemonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(tarvik_test::BinDir().empty())
        << "no tarvik-modemd: TARVIK_BIN_DIR is not set and no bin/ beside the tests";
    ASSERT_NO_FATAL_FAILURE(StartDaemon());
    socket_ = daemon_->socket();
  }
  void TearDown() override {
    if (handle_ != nullptr) qmi_client_release(handle_);
  }

  // Returns once the daemon answers control commands.
  void StartDaemon() { ASSERT_TRUE(daemon_.emplace().up()) << "tarvik-modemd did not come up"; }
  void StopDaemon() { daemon_.reset(); }  // SIGTERM, and waits for its exit

  int Sim(const std::string &words) {
    return tarvik_test::RunTool("--modem unix:" + socket_ + " sim " + words).status;
  }

  static void ErrCb(qmi_client_type, qmi_client_error_type error, void *data) {
    static_cast<std::atomic<int> *>(data)->store(error);
  }

  // Opens a client of the daemon's extend service; waits for its error callback's QMI_SERVICE_ERR
  // after `cause`.
  void ExpectServiceErrorAfter(const std::function<void()> &cause) {
    if (handle_ != nullptr) qmi_client_release(handle_);
    error_ = 0;
    ASSERT_EQ(QMI_NO_ERR, qmi_client_host_select_transport(("unix:" + socket_).c_str()));
    ASSERT_EQ(QMI_NO_ERR, qmi_client_init_instance(&tarvik_extend_qmi_idl_service_object_v01,
                                                   QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr,
                                                   nullptr, 2000, &handle_));
    ASSERT_EQ(QMI_NO_ERR, qmi_client_register_error_cb(handle_, ErrCb, &error_));
    cause();
    tarvik_test::WaitUntil([this] { return error_.load() != 0; }, 5000ms);
    EXPECT_EQ(QMI_SERVICE_ERR, error_.load());
  }

  std::optional<tarvik_test::ModemDaemon> daemon_;
  std::string socket_;
  qmi_client_type handle_ = nullptr;
  std::atomic<int> error_{0};  // written by the client's error callback
};

// A service restart ordered from a shell, and the daemon going away, both end the client's service
// (its error callback); a daemon that comes back serves new clients.
TEST_F(DaemonTest, RestartOrDaemonLossFiresTheErrorCallbackAndAReturnServesAgain) {
  ExpectServiceErrorAfter([&] { EXPECT_EQ(0, Sim("restart 0xFFE4")); });
  EXPECT_EQ(2, Sim("restart"));
  EXPECT_EQ(1, Sim("absent 0x1234"));
  ExpectServiceErrorAfter([&] { StopDaemon(); });
  EXPECT_EQ(1, Sim("status"));
  unsigned count = 0;
  EXPECT_EQ(QMI_SERVICE_ERR, qmi_client_get_service_list(&tarvik_extend_qmi_idl_service_object_v01,
                                                         nullptr, nullptr, &count));
  ASSERT_NO_FATAL_FAILURE(StartDaemon());
  qmi_client_type again = nullptr;
  ASSERT_EQ(QMI_NO_ERR, qmi_client_init_instance(&tarvik_extend_qmi_idl_service_object_v01,
                                                 QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr, nullptr,
                                                 3000, &again));
  EXPECT_EQ(QMI_NO_ERR, qmi_client_release(again));
}

// A request sent as soon as a restarted daemon answers: the channel's reopen waits for the
// service the transport is about to report and opens it on the first try.
TEST_F(DaemonTest, RequestRightAfterADaemonRestartSucceeds) {
  ASSERT_EQ(QMI_NO_ERR, qmi_client_host_select_transport(("unix:" + socket_).c_str()));
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    uint8_t req[2] = {0x5A, (uint8_t)round}, resp[2] = {};
    for (bool restart : {false, true}) {
      if (restart) {
        StopDaemon();
        ASSERT_NO_FATAL_FAILURE(StartDaemon());
      }
      uint32_t len = sizeof(resp);
      ASSERT_EQ(0, tarvik_extend_qmi_send_sync(0xFF, req, sizeof(req), resp, &len));
      EXPECT_EQ(0, memcmp(req, resp, sizeof(req)));
    }
  }
}

// What is at --socket PATH decides: only a stale socket is replaced; a file, a directory and
// the live socket of the fixture's daemon stay as they are, and the daemon says why it refuses.
// At exit it removes its own socket only.
TEST_F(DaemonTest, SocketPathIsClaimedOnlyWhenStaleAndRemovedOnlyWhenOwn) {
  const std::string dir = tarvik_test::ScratchDir();
  ASSERT_TRUE(std::ofstream(dir + "/victim.txt") << "keep me");
  ASSERT_EQ(0, mkdir((dir + "/a_dir").c_str(), 0700));
  const struct {
    const char *name;
    std::string args;
    int status;
    const char *says;
  } rows[] = {
      {"regular file", "--socket " + dir + "/victim.txt", 1, "exists and is not a socket"},
      {"directory", "--socket " + dir + "/a_dir", 1, "exists and is not a socket"},
      {"live socket", "--socket " + socket_, 1, "another daemon is serving on"},
      {"qmux on a file", "--qmux " + dir + "/victim.txt", 1, "is not a link to a pseudo-terminal"},
      {"help", "--help", 0, "usage: tarvik-modemd [--socket PATH] [--qmux PATH]"},
      {"unknown option", "--sock " + socket_, 2, "unknown option --sock"},
      {"no socket", "--state " + dir, 2, "--socket or --qmux is required"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    // Runs to its end (it refuses to start or only prints), its output and errors together.
    std::string out;
    const int raw = tarvik_test::RunShell(
        tarvik_test::ProgramCommand("tarvik-modemd") + " " + row.args + " 2>&1", &out);
    ASSERT_NE(-1, raw);
    EXPECT_TRUE(WIFEXITED(raw) && row.status == WEXITSTATUS(raw)) << raw;
    EXPECT_NE(std::string::npos, out.find(row.says)) << out;
  }
  struct stat st;
  ASSERT_EQ(0, stat((dir + "/victim.txt").c_str(), &st));
  EXPECT_EQ(7, st.st_size);
  EXPECT_EQ(0, stat((dir + "/a_dir").c_str(), &st));
  std::string out;
  EXPECT_EQ(0, modemsim::SendControlCommand(socket_, {"status"}, &out));  // still reachable

  // At exit the daemon removes its own socket.
  StopDaemon();
  EXPECT_EQ(-1, lstat(socket_.c_str(), &st));
  // One that died without cleaning up leaves a stale socket (bound, nobody listening): the next
  // daemon takes it over.
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  snprintf(addr.sun_path, sizeof addr.sun_path, "%s", socket_.c_str());
  ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr));
  close(fd);
  ASSERT_NO_FATAL_FAILURE(StartDaemon());
  // At exit it leaves what has taken the path over since.
  ASSERT_EQ(0, unlink(socket_.c_str()));
  ASSERT_TRUE(std::ofstream(socket_));
  StopDaemon();
  EXPECT_EQ(0, lstat(socket_.c_str(), &st));
}

}  // namespace
