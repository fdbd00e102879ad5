// File, thread and process helpers on the real system: copying through the fixed buffer,
// clearing and deleting files and trees (links are removed, never followed) in the test's scratch
// directory, threads, service start through "ctl.start", and the process look-ups over /proc.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <property_host.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "helpers.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"
#include "test_env.h"
#include "wait_until.h"

using tarvik_test::SyslogContains;
using tarvik_test::SyslogCount;
using tarvik_test::SyslogDump;

namespace {

std::string Scratch(const std::string &name) {
  return tarvik_test::ScratchDir() + "/" + name;
}

void WriteFile(const std::string &path, const std::string &data) {
  std::ofstream(path, std::ios::binary) << data;
}

std::string ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool Exists(const std::string &path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

TEST(CopyFile, WholeSourceReplacesTheTargetInBufferSizedChunks) {
  const std::string src = Scratch("src"), tgt = Scratch("tgt");
  std::string big(2 * 10240 + 100, '\0');  // every byte value, no two chunks alike
  for (size_t i = 0; i < big.size(); ++i) {
    big[i] = static_cast<char>((i * 131 + i / 7) & 0xFF);
  }
  WriteFile(src, big);
  EXPECT_EQ(tarvik_copy_file(src.c_str(), tgt.c_str()), 0);
  EXPECT_EQ(ReadFile(tgt), big);
  EXPECT_TRUE(SyslogContains("Start to read src file: bytes_read = 10240")) << SyslogDump();
  EXPECT_EQ(SyslogCount("Continue to read src file: bytes_read = 10240"), 1u);
  EXPECT_EQ(SyslogCount("Continue to read src file: bytes_read = 100,"), 1u);
  EXPECT_EQ(SyslogCount("Continue to read src file: bytes_read = 0,"), 1u);
  EXPECT_EQ(SyslogCount("tarvik_copy_file: Write done with success."), 3u);
  for (const char *data : {"new", ""}) {  // a longer target is cut to the source
    WriteFile(src, data);
    EXPECT_EQ(tarvik_copy_file(src.c_str(), tgt.c_str()), 0);
    EXPECT_EQ(ReadFile(tgt), data);
  }
  EXPECT_EQ(tarvik_copy_file(src.c_str(), Scratch("new").c_str()), 0);
  EXPECT_TRUE(Exists(Scratch("new")));  // an empty source still creates the target
}

TEST(CopyFile, RefusalsAndFailuresGiveTheirCodes) {
  const std::string src = Scratch("src"), t = Scratch("t"), missing = Scratch("missing"),
                    no_dir = Scratch("no/dir/t"), read_t = Scratch("read.t");
  WriteFile(src, std::string(300, 'x'));
  const struct {
    const char *src;
    const char *tgt;
    const char *expected;  // the code and the error lines
  } rows[] = {
      {nullptr, t.c_str(), "-1 src is null"},
      {src.c_str(), nullptr, "-2 tgt is null"},
      {missing.c_str(), t.c_str(), "-3 src open failed"},
      {src.c_str(), no_dir.c_str(), "-4 tgt open failed"},
      // Reading a directory fails with EISDIR after a successful open.
      {tarvik_test::ScratchDir().c_str(), read_t.c_str(),
       "-5 Error happen during reading src file; Error happen during writing tgt file, abort copy"},
      {src.c_str(), "/dev/full",
       "-5 Error happen during writing tgt file; Error happen during writing tgt file, abort copy"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.expected);
    tarvik_test::ClearSyslog();
    const int code = tarvik_copy_file(row.src, row.tgt);
    EXPECT_EQ(std::to_string(code) + " " + tarvik_test::LoggedBy("tarvik_copy_file", LOG_ERR),
              row.expected);
  }
  EXPECT_FALSE(Exists(t));  // the target is not created when the source is missing
}

TEST(ClearFile, EmptiesCreatesAndOnlyLogsFailures) {
  WriteFile(Scratch("full"), "content");
  EXPECT_EQ(tarvik_clear_file_context(Scratch("full").c_str()), 0);
  EXPECT_EQ(ReadFile(Scratch("full")), "");
  EXPECT_EQ(tarvik_clear_file_context(Scratch("new").c_str()), 0);
  EXPECT_TRUE(Exists(Scratch("new")));
  EXPECT_TRUE(SyslogContains("ok, file_name: " + Scratch("new"), LOG_DEBUG));

  const std::string bad = Scratch("missing-dir/file");
  EXPECT_EQ(tarvik_clear_file_context(bad.c_str()), 0);
  EXPECT_TRUE(SyslogContains("fopen fail, file_name: " + bad + ", errno = 2", LOG_ERR))
      << SyslogDump();
  EXPECT_EQ(tarvik_clear_file_context(nullptr), 0);
  EXPECT_TRUE(SyslogContains("file_name is null", LOG_ERR));
}

TEST(Delete, FileEmptyDirectoryMissingAndNull) {
  WriteFile(Scratch("f"), "x");
  EXPECT_EQ(tarvik_delete_file(Scratch("f").c_str()), 0);
  EXPECT_FALSE(Exists(Scratch("f")));
  ASSERT_EQ(mkdir(Scratch("d").c_str(), 0755), 0);
  EXPECT_EQ(tarvik_delete_file(Scratch("d").c_str()), 0);
  EXPECT_FALSE(Exists(Scratch("d")));

  const std::string missing = Scratch("missing");
  EXPECT_EQ(tarvik_delete_file(missing.c_str()), -1);
  EXPECT_TRUE(SyslogContains("fail, file_name: " + missing + ", ret = -1, errno = 2", LOG_ERR))
      << SyslogDump();
  EXPECT_EQ(tarvik_delete_file(nullptr), 1);
  EXPECT_TRUE(SyslogContains("file_name is null", LOG_ERR));
  EXPECT_EQ(tarvik_delete_directory(nullptr), 1);
  EXPECT_TRUE(SyslogContains("dir_path is null", LOG_ERR));
  EXPECT_EQ(tarvik_delete_directory(missing.c_str()), 2);
  EXPECT_TRUE(SyslogContains("dir_path open fail", LOG_ERR));
}

TEST(DeleteDirectory, TreeWithLinksReadOnlyEntriesAndNesting) {
  // Outside the tree: a directory and a file that links inside the tree point at.
  const std::string outside = Scratch("outside");
  ASSERT_EQ(mkdir(outside.c_str(), 0755), 0);
  WriteFile(outside + "/keep", "precious");
  WriteFile(Scratch("outside-file"), "also precious");

  const std::string tree = Scratch("tree");
  for (const char *dir : {"", "/a", "/a/b", "/a/b/c", "/empty", "/a/rodir"}) {
    ASSERT_EQ(mkdir((tree + dir).c_str(), 0755), 0);
  }
  WriteFile(tree + "/top", "1");
  WriteFile(tree + "/a/b/c/deep", "2");
  WriteFile(tree + "/a/readonly", "3");
  WriteFile(tree + "/a/rodir/inside", "4");
  ASSERT_EQ(chmod((tree + "/a/readonly").c_str(), 0444), 0);
  ASSERT_EQ(chmod((tree + "/a/rodir").c_str(), 0555), 0);  // removable only by root
  ASSERT_EQ(symlink(outside.c_str(), (tree + "/a/link-to-dir").c_str()), 0);
  ASSERT_EQ(symlink(Scratch("outside-file").c_str(), (tree + "/link-to-file").c_str()), 0);
  ASSERT_EQ(symlink("/nonexistent/target", (tree + "/dangling").c_str()), 0);
  ASSERT_EQ(mkfifo((tree + "/fifo").c_str(), 0644), 0);

  const int result = tarvik_delete_directory(tree.c_str());
  if (geteuid() == 0) {
    EXPECT_EQ(result, 0) << SyslogDump();
    EXPECT_FALSE(Exists(tree));
    EXPECT_TRUE(SyslogContains("ok, dir_path: " + tree, LOG_DEBUG));
  } else {
    // Without privilege the read-only directory keeps its entry, so the tree cannot go.
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(Exists(tree + "/a/rodir/inside"));
    EXPECT_FALSE(Exists(tree + "/a/readonly"));
    EXPECT_FALSE(Exists(tree + "/a/b"));
    chmod((tree + "/a/rodir").c_str(), 0755);
  }
  EXPECT_FALSE(Exists(tree + "/a/link-to-dir"));
  EXPECT_FALSE(Exists(tree + "/dangling"));
  // What the links pointed at survives.
  EXPECT_EQ(ReadFile(outside + "/keep"), "precious");
  EXPECT_EQ(ReadFile(Scratch("outside-file")), "also precious");
}

TEST(DeleteDirectory, EntryBeyondPathLimitIsLeftAndRmdirFails) {
  // Four nested names of 250 characters put the innermost directory past 1023 bytes: it is not
  // entered or deleted under a cut name, so the directories above it cannot be removed.
  const std::string tree = Scratch("deep");
  ASSERT_EQ(mkdir(tree.c_str(), 0755), 0);
  std::string path = tree;
  for (char c : {'p', 'q', 'r', 's'}) {
    path += "/" + std::string(250, c);
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0) << path.size();
  }
  ASSERT_GE(path.size(), 1024u);
  WriteFile(path + "/f", "x");
  ASSERT_TRUE(Exists(path + "/f"));
  WriteFile(tree + "/shallow", "y");

  EXPECT_EQ(tarvik_delete_directory(tree.c_str()), -1);
  EXPECT_TRUE(SyslogContains(
      "fail, dir_path: " + tree + ", ret = -1, errno = " + std::to_string(ENOTEMPTY), LOG_ERR))
      << SyslogDump();
  EXPECT_TRUE(Exists(path + "/f"));
  EXPECT_FALSE(Exists(tree + "/shallow"));
}

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
  return tarvik_test::WaitUntil(done, std::chrono::seconds(5));
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
