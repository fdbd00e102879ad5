// Threads, service start through "ctl.start", and the process look-ups over /proc.
#include <gtest/gtest.h>
#include <property_host.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "helpers.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"

using tarvik_test::SyslogContains;
using tarvik_test::SyslogDump;

namespace {

std::atomic<int> g_ran{0};
std::atomic<bool> g_detached{false};

void *Worker(void *arg) {
  // A detached thread cannot be joined: pthread_join on ourselves would be EDEADLK, on a
  // detached thread EINVAL. Ask the attributes instead.
  pthread_attr_t attr;
  int state = -1;
  if (pthread_getattr_np(pthread_self(), &attr) == 0) {
    pthread_attr_getdetachstate(&attr, &state);
    pthread_attr_destroy(&attr);
  }
  g_detached = state == PTHREAD_CREATE_DETACHED;
  g_ran = *static_cast<int *>(arg);
  return nullptr;
}

bool WaitFor(const std::function<bool()> &done) {
  for (int i = 0; i < 500 && !done(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return done();
}

TEST(CreatePthread, RunsDetachedWithItsArgumentAndNeedsAProcedure) {
  static int value = 42;
  const pthread_t thread = tarvik_create_pthread("worker", Worker, &value);
  EXPECT_NE(thread, static_cast<pthread_t>(0));
  ASSERT_TRUE(WaitFor([] { return g_ran.load() == 42; }));
  EXPECT_TRUE(g_detached.load());
  EXPECT_TRUE(SyslogContains("pthread[worker] will be created", LOG_DEBUG));
  EXPECT_TRUE(SyslogContains("result = 0", LOG_DEBUG));

  static int other = 7;  // a null name still starts the thread
  EXPECT_NE(tarvik_create_pthread(nullptr, Worker, &other), static_cast<pthread_t>(0));
  ASSERT_TRUE(WaitFor([] { return g_ran.load() == 7; }));
  EXPECT_TRUE(SyslogContains("pthread[Unkown name] will be created"));

  tarvik_test::ClearSyslog();
  EXPECT_EQ(tarvik_create_pthread("none", nullptr, nullptr), static_cast<pthread_t>(0));
  EXPECT_TRUE(SyslogContains("p_thread_proc_cb is NULL, do nothing", LOG_ERR));
  EXPECT_EQ(tarvik_test::LoggedBy("tarvik_create_pthread"),
            "function entry ------------->; pthread[none] will be created; "
            "p_thread_proc_cb is NULL, do nothing; function exit <-------------");
}

std::vector<std::pair<std::string, std::string>> CtlRequests() {
  std::vector<std::pair<std::string, std::string>> out;
  property_ctl_requests(
      [](const char *name, const char *value, int pid, void *cookie) {
        if (pid == getpid()) {
          static_cast<decltype(out) *>(cookie)->emplace_back(name, value);
        }
      },
      &out);
  return out;
}

TEST(StartService, WritesTheNameToCtlStartAndRefusesNullAndTooLongNames) {
  EXPECT_EQ(tarvik_start_service(nullptr), -1);
  EXPECT_TRUE(SyslogContains("service_name is NULL", LOG_ERR));
  EXPECT_EQ(tarvik_start_service(std::string(93, 's').c_str()), -3);
  EXPECT_EQ(tarvik_start_service("vendor.qcrild2"), 0);
  EXPECT_TRUE(SyslogContains("service_name: vendor.qcrild2", LOG_DEBUG));
  EXPECT_EQ(CtlRequests(),
            (std::vector<std::pair<std::string, std::string>>{{"ctl.start", "vendor.qcrild2"}}));
}

TEST(PidInfo, RecordKeptRecordAndSharedNameField) {
  tarvik_pid_info_t info;
  memset(&info, 0x5A, sizeof(info));
  tarvik_get_current_pid_info(&info);
  EXPECT_EQ(info.p_id, getpid());
  EXPECT_STREQ(info.p_name, "tests_utils");
  EXPECT_TRUE(SyslogContains("] tarvik_get_name_by_pid: proc_pid_path: /proc/" +
                             std::to_string(getpid()) + "/cmdline"))
      << SyslogDump();
  tarvik_get_current_pid_info(nullptr);
  EXPECT_TRUE(SyslogContains("p_pid_info is NULL", LOG_ERR));

  EXPECT_EQ(tarvik_utils_get_pid_number(), getpid());
  EXPECT_STREQ(tarvik_utils_get_pid_name(), "tests_utils");
  EXPECT_EQ(tarvik_utils_get_pid_name(), g_pid_info.p_name);

  // The status-file name lands in the same field; the kept record does not refill it.
  prctl(PR_SET_NAME, "renamed-proc", 0, 0, 0);
  EXPECT_STREQ(tarvik_get_current_pid_name_ex(), "renamed-proc");
  EXPECT_STREQ(tarvik_utils_get_pid_name(), "renamed-proc");
  prctl(PR_SET_NAME, "again", 0, 0, 0);
  EXPECT_STREQ(tarvik_get_current_pid_name_ex(), "renamed-proc");  // read once
  EXPECT_TRUE(SyslogContains("tarvik_get_current_pid_name_ex, g_pid_info.p_name = renamed-proc"));
}

TEST(PidByName, FindsChildByNameAndLeavesPidOnMiss) {
  const std::string name = "tvk" + std::to_string(getpid() % 1000000);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    prctl(PR_SET_NAME, name.c_str(), 0, 0, 0);
    pause();
    _exit(0);
  }
  // The exported signature takes a mutable name.
  std::string wanted = name;
  int pid = -7;
  EXPECT_TRUE(WaitFor([&] {
    tarvik_get_pid_by_name(&pid, wanted.data());  // once the child has taken its name
    return pid == child;
  })) << SyslogDump();
  EXPECT_TRUE(SyslogContains("pid: " + std::to_string(child), LOG_DEBUG));

  int missing = -7;
  std::string longer = name + "-none";
  tarvik_get_pid_by_name(&missing, longer.data());
  EXPECT_EQ(missing, -7);
  // A prefix of a name is not the name.
  std::string prefix = name.substr(0, name.size() - 1);
  tarvik_get_pid_by_name(&missing, prefix.data());
  EXPECT_EQ(missing, -7);

  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);

  tarvik_get_pid_by_name(nullptr, wanted.data());
  EXPECT_TRUE(SyslogContains("pid fail", LOG_ERR));
  tarvik_get_pid_by_name(&missing, nullptr);
  EXPECT_TRUE(SyslogContains("task_name fail", LOG_ERR));
  EXPECT_EQ(missing, -7);
}

}  // namespace
