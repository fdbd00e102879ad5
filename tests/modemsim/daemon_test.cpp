// tarvik-modemd as another process: a client over the socket transport, a restart injected from
// a shell through tarvik-qmi, and the daemon going away and coming back.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "modemsim/socket_server.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_qmi_v01.h"
#include "test_env.h"

extern char **environ;

namespace {

using namespace std::chrono_literals;

pid_t Spawn(const std::vector<std::string> &argv) {
  std::vector<char *> args;
  for (auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawn(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0) return -1;
  return pid;
}

int RunTool(const std::vector<std::string> &words) {
  std::vector<std::string> argv{tarvik_test::BinDir() + "/tarvik-qmi"};
  argv.insert(argv.end(), words.begin(), words.end());
  const pid_t pid = Spawn(argv);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

class DaemonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(tarvik_test::BinDir().empty()) << "TARVIK_BIN_DIR is not set";
    socket_ = tarvik_test::ScratchDir() + "/modemd.sock";
    StartDaemon();
  }
  void TearDown() override {
    if (handle_ != nullptr) qmi_client_release(handle_);
    StopDaemon();
  }

  void StartDaemon() {
    pid_ = Spawn({tarvik_test::BinDir() + "/tarvik-modemd", "--socket", socket_, "--state",
                  tarvik_test::ScratchDir() + "/state"});
    ASSERT_GT(pid_, 0);
    // The daemon is up once control commands get an answer.
    std::string out;
    for (int i = 0; i < 300; ++i) {
      if (modemsim::SendControlCommand(socket_, {"status"}, &out) == 0) return;
      std::this_thread::sleep_for(10ms);
    }
    FAIL() << "tarvik-modemd did not come up";
  }

  void StopDaemon() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
  }

  static void ErrCb(qmi_client_type, qmi_client_error_type error, void *data) {
    static_cast<std::atomic<int> *>(data)->store(error);
  }

  static bool WaitError(const std::atomic<int> &error) {
    for (int i = 0; i < 300 && error.load() == 0; ++i) std::this_thread::sleep_for(10ms);
    return error.load() != 0;
  }

  // A client of the daemon's extend service whose error callback stores into *error.
  void OpenExtendClient(std::atomic<int> *error) {
    ASSERT_EQ(QMI_NO_ERR, qmi_client_host_select_transport(("unix:" + socket_).c_str()));
    ASSERT_EQ(QMI_NO_ERR, qmi_client_init_instance(&tarvik_extend_qmi_idl_service_object_v01,
                                                   QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr,
                                                   nullptr, 2000, &handle_));
    ASSERT_EQ(QMI_NO_ERR, qmi_client_register_error_cb(handle_, ErrCb, error));
  }

  std::string socket_;
  pid_t pid_ = -1;
  qmi_client_type handle_ = nullptr;
};

TEST_F(DaemonTest, RestartFromTheToolFiresTheErrorCallback) {
  std::atomic<int> error{0};
  ASSERT_NO_FATAL_FAILURE(OpenExtendClient(&error));
  EXPECT_EQ(0, RunTool({"--modem", "unix:" + socket_, "sim", "restart", "0xFFE4"}));
  ASSERT_TRUE(WaitError(error));
  EXPECT_EQ(QMI_SERVICE_ERR, error.load());
  EXPECT_EQ(2, RunTool({"--modem", "unix:" + socket_, "sim", "restart"}));
  EXPECT_EQ(1, RunTool({"--modem", "unix:" + socket_, "sim", "absent", "0x1234"}));
  EXPECT_EQ(1,
            RunTool({"--modem", "unix:" + tarvik_test::ScratchDir() + "/none", "sim", "status"}));
}

TEST_F(DaemonTest, DaemonLossTakesServicesDownAndReconnectBringsThemBack) {
  std::atomic<int> error{0};
  ASSERT_NO_FATAL_FAILURE(OpenExtendClient(&error));
  StopDaemon();
  ASSERT_TRUE(WaitError(error));
  EXPECT_EQ(QMI_SERVICE_ERR, error.load());
  unsigned count = 0;
  EXPECT_EQ(QMI_SERVICE_ERR, qmi_client_get_service_list(&tarvik_extend_qmi_idl_service_object_v01,
                                                         nullptr, nullptr, &count));
  StartDaemon();
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

// Runs tarvik-modemd with `args` to its end (the cases where it refuses to start or only prints).
tarvik_test::ToolRun RunDaemon(const std::string &args) {
  const std::string command = tarvik_test::BinDir() + "/tarvik-modemd " + args + " 2>&1";
  tarvik_test::ToolRun run{-1, "", ""};
  FILE *pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return run;
  char buf[512];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) run.out.append(buf, n);
  const int raw = pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return run;
}

// What is at --socket PATH decides: only a stale socket is replaced; a file, a directory and
// the live socket of the fixture's daemon stay as they are, and the daemon says why it refuses.
TEST_F(DaemonTest, SocketPathIsClaimedOnlyWhenStale) {
  const std::string dir = tarvik_test::ScratchDir();
  {
    FILE *f = fopen((dir + "/victim.txt").c_str(), "w");
    ASSERT_NE(nullptr, f);
    fputs("keep me", f);
    fclose(f);
  }
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
    const tarvik_test::ToolRun run = RunDaemon(row.args);
    EXPECT_EQ(row.status, run.status);
    EXPECT_NE(std::string::npos, run.out.find(row.says)) << run.out;
  }
  struct stat st;
  ASSERT_EQ(0, stat((dir + "/victim.txt").c_str(), &st));
  EXPECT_EQ(7, st.st_size);
  EXPECT_EQ(0, stat((dir + "/a_dir").c_str(), &st));
  std::string out;
  EXPECT_EQ(0, modemsim::SendControlCommand(socket_, {"status"}, &out));  // still reachable

  // A daemon killed without cleaning up leaves a stale socket: the next one takes it over.
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
  ASSERT_EQ(0, lstat(socket_.c_str(), &st));
  ASSERT_NO_FATAL_FAILURE(StartDaemon());
}

// At exit the daemon removes its own socket, and nothing that has taken the path over since.
TEST_F(DaemonTest, ExitRemovesOnlyTheDaemonsOwnSocket) {
  struct stat st;
  for (bool taken_over : {false, true}) {
    SCOPED_TRACE(taken_over ? "path taken over" : "own socket");
    if (taken_over) {
      ASSERT_NO_FATAL_FAILURE(StartDaemon());
      ASSERT_EQ(0, unlink(socket_.c_str()));
      FILE *f = fopen(socket_.c_str(), "w");
      ASSERT_NE(nullptr, f);
      fclose(f);
    }
    StopDaemon();
    EXPECT_EQ(taken_over ? 0 : -1, lstat(socket_.c_str(), &st));
  }
  unlink(socket_.c_str());
}

}  // namespace
