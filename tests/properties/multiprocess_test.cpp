// The store shared between processes: visibility of another process's writes to a reader that
// cached the old value, concurrent writers, writers killed at each step of a write, readers
// racing writers, and the tool in two separate runs.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "cutils/properties.h"
#include "test_env.h"

namespace {

// Deterministic crash points for the store's writer: this program defines fsync and rename (ELF
// interposition, like the system-log capture); armed, they kill the calling process with SIGKILL
// at the chosen step of a write, so a test can prove what a crash there leaves behind.
enum class CrashPoint {
  kNone,
  kBeforeTempSync,  // the temporary file is written but not yet flushed
  kBeforeRename,    // the temporary is flushed, the store not yet replaced
  kAfterRename,     // the store is replaced, the directory not yet flushed
};
CrashPoint g_crash_point = CrashPoint::kNone;

template <typename Fn>
Fn Next(const char *name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

bool IsStoreTemp(int fd) {
  char target[PATH_MAX];
  const ssize_t n =
      readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
  const std::string path(target, n > 0 ? static_cast<size_t>(n) : 0);
  const std::string suffix = "/properties.tmp";
  return path.size() > suffix.size() &&
         path.compare(path.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

extern "C" int fsync(int fd) {
  static const auto real = Next<int (*)(int)>("fsync");
  if (g_crash_point == CrashPoint::kBeforeTempSync && IsStoreTemp(fd)) {
    raise(SIGKILL);
  }
  return real(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept {
  static const auto real = Next<int (*)(const char *, const char *)>("rename");
  if (g_crash_point == CrashPoint::kBeforeRename) {
    raise(SIGKILL);
  }
  const int ret = real(from, to);
  if (g_crash_point == CrashPoint::kAfterRename) {
    raise(SIGKILL);
  }
  return ret;
}

namespace {

std::string Get(const std::string &key) {
  char value[PROPERTY_VALUE_MAX + 1];
  property_get(key.c_str(), value, "<unset>");
  return value;
}

// Runs `fn` in a forked child whose exit status is fn's result.
template <typename Fn>
pid_t Spawn(Fn fn) {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(fn());
  }
  return pid;
}

int Wait(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
  }
  return status;
}

bool ExitedWith(int status, int code) {
  return WIFEXITED(status) && WEXITSTATUS(status) == code;
}

// Runs `fn` in a child and waits: true when it exited with 0.
template <typename Fn>
bool InChild(Fn fn) {
  return ExitedWith(Wait(Spawn(fn)), 0);
}

// Read system calls of this process so far (/proc/self/io counts every read, pread, ...).
long ReadSyscalls() {
  std::ifstream in("/proc/self/io");
  std::string key;
  long value = -1;
  while (in >> key >> value) {
    if (key == "syscr:") {
      return value;
    }
  }
  return -1;
}

// A reader that cached a value sees another process's write, and reads the store file again only
// then: while the store is unchanged, reads cost no system call.
TEST(PropertyProcesses, ReaderThatCachedSeesAnotherProcessWrite) {
  ASSERT_EQ(property_set("persist.test.shared", "parent"), 0);
  ASSERT_EQ(Get("persist.test.shared"), "parent");  // now cached in this process
  const long before = ReadSyscalls();
  ASSERT_GE(before, 0);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(Get(i % 2 ? "persist.test.shared" : "test.absent"), i % 2 ? "parent" : "<unset>");
  }
  EXPECT_LT(ReadSyscalls() - before, 10);  // only the reads of /proc/self/io itself

  ASSERT_TRUE(InChild([] {
    return Get("persist.test.shared") == "parent" &&
                   property_set("persist.test.shared", "child") == 0
               ? 0
               : 1;
  }));
  const long after_write = ReadSyscalls();
  EXPECT_EQ(Get("persist.test.shared"), "child");
  EXPECT_GT(ReadSyscalls() - after_write, 1) << "a changed store must be read again";
  // A property that only the child's write created.
  ASSERT_TRUE(InChild([] { return property_set("test.added", "x"); }));
  EXPECT_EQ(Get("test.added"), "x");
}

TEST(PropertyProcesses, ForkWhileAnotherThreadReadsLeavesTheChildAStoreItCanUse) {
  ASSERT_EQ(property_set("test.fork", "1"), 0);
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    while (!stop.load()) {
      Get("test.fork");
    }
  });
  int good = 0;
  while (good < 50 && InChild([] {
           alarm(5);  // a child stuck on a lock dies of SIGALRM
           return Get("test.fork") == "1" && property_set("test.fork", "1") == 0 ? 0 : 1;
         })) {
    ++good;
  }
  stop.store(true);
  reader.join();
  EXPECT_EQ(good, 50);
}

TEST(PropertyProcesses, ConcurrentWritersLoseNoUpdate) {
  constexpr int kWriters = 4;
  constexpr int kEach = 25;
  auto name = [](int w, int i) { return "test.w" + std::to_string(w) + ".n" + std::to_string(i); };
  std::vector<pid_t> pids;
  for (int w = 0; w < kWriters; ++w) {
    pids.push_back(Spawn([&, w] {
      for (int i = 0; i < kEach; ++i) {
        if (property_set(name(w, i).c_str(), std::to_string(w * 1000 + i).c_str()) != 0 ||
            property_set("test.last", name(w, i).c_str()) != 0) {
          return 1;
        }
      }
      return 0;
    }));
  }
  for (pid_t pid : pids) {
    EXPECT_TRUE(ExitedWith(Wait(pid), 0));
  }
  int found = 0;
  for (int w = 0; w < kWriters; ++w) {
    for (int i = 0; i < kEach; ++i) {
      found += Get(name(w, i)) == std::to_string(w * 1000 + i);
    }
  }
  EXPECT_EQ(found, kWriters * kEach);
  EXPECT_EQ(Get("test.last").substr(0, 6), "test.w");
}

TEST(PropertyProcesses, WriterKilledMidWriteLeavesOldOrNewStore) {
  const struct {
    const char *name;
    CrashPoint point;
    bool new_value_visible;
    bool temp_left;
  } rows[] = {
      {"before the temporary is flushed", CrashPoint::kBeforeTempSync, false, true},
      {"before the rename", CrashPoint::kBeforeRename, false, true},
      {"after the rename", CrashPoint::kAfterRename, true, false},
  };
  const std::string temp = tarvik_test::PropertyDir() + "/properties.tmp";
  ASSERT_EQ(property_set("persist.test.bystander", "kept"), 0);
  int round = 0;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const std::string old_value = "old-" + std::to_string(round);
    const std::string new_value = "new-" + std::to_string(round++);
    ASSERT_EQ(property_set("persist.test.crash", old_value.c_str()), 0);
    ASSERT_EQ(Get("persist.test.crash"), old_value);  // cached here before the crash

    const int status = Wait(Spawn([&] {
      g_crash_point = row.point;
      property_set("persist.test.crash", new_value.c_str());
      return 0;  // not reached when the crash point works
    }));
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
    EXPECT_EQ(access(temp.c_str(), F_OK) == 0, row.temp_left);

    // This process and one that starts now read the same.
    const std::string expected = row.new_value_visible ? new_value : old_value;
    auto reads_expected = [&] {
      return Get("persist.test.crash") == expected && Get("persist.test.bystander") == "kept";
    };
    EXPECT_TRUE(reads_expected());
    EXPECT_TRUE(InChild([&] { return reads_expected() ? 0 : 1; }));
    // The dead writer's lock is gone and its leftovers do not get in the way.
    ASSERT_EQ(property_set("persist.test.after", new_value.c_str()), 0);
    EXPECT_EQ(Get("persist.test.after"), new_value);
    EXPECT_NE(access(temp.c_str(), F_OK), 0);
    uint64_t counter = 0;
    std::ifstream(tarvik_test::PropertyDir() + "/lock", std::ios::binary)
        .read(reinterpret_cast<char *>(&counter), sizeof counter);
    EXPECT_EQ(counter % 2, 0u) << "the change counter is left mid-write";
  }
}

TEST(PropertyProcesses, ReadersRacingWritersSeeWholeValues) {
  const std::string a(PROPERTY_VALUE_MAX, 'A');
  const std::string b(PROPERTY_VALUE_MAX, 'B');
  ASSERT_EQ(property_set("test.race", a.c_str()), 0);
  const pid_t writer = Spawn([&] {
    for (int i = 0; i < 150; ++i) {
      if (property_set("test.race", (i % 2 ? a : b).c_str()) != 0) {
        return 1;
      }
    }
    return 0;
  });
  std::vector<pid_t> readers;
  for (int r = 0; r < 2; ++r) {
    readers.push_back(Spawn([&] {
      while (Get("test.race.done") != "1") {
        const std::string v = Get("test.race");
        if (v != a && v != b) {
          return 1;
        }
      }
      return 0;
    }));
  }
  EXPECT_TRUE(ExitedWith(Wait(writer), 0));
  ASSERT_EQ(property_set("test.race.done", "1"), 0);  // lets the readers finish
  for (pid_t pid : readers) {
    EXPECT_TRUE(ExitedWith(Wait(pid), 0));
  }

  // Writers killed at arbitrary moments: whatever is left is one whole value.
  for (int i = 0; i < 20; ++i) {
    const pid_t victim = Spawn([&] {
      for (unsigned n = 0;; ++n) {
        property_set("test.race", (n % 2 ? a : b).c_str());
      }
      return 0;
    });
    usleep(static_cast<useconds_t>(1000 + i * 700));
    kill(victim, SIGKILL);
    Wait(victim);
    const std::string v = Get("test.race");
    EXPECT_TRUE(v == a || v == b) << v;
  }
}

TEST(PropertyProcesses, ToolSetThenGetInSeparateRuns) {
  if (tarvik_test::BinDir().empty()) {
    GTEST_SKIP() << "TARVIK_BIN_DIR is not set";
  }
  using tarvik_test::RunTool;
  ASSERT_EQ(RunTool("prop set persist.test.tool 'from the tool'").status, 0);
  const tarvik_test::ToolRun get = RunTool("prop get persist.test.tool");
  EXPECT_EQ(get.out, "from the tool\n");
  EXPECT_EQ(get.status, 0);
  EXPECT_EQ(Get("persist.test.tool"), "from the tool");

  ASSERT_EQ(property_set("ro.test.tool", "fixed"), 0);
  EXPECT_NE(RunTool("prop set ro.test.tool other").status, 0) << "a refused write fails the tool";
  EXPECT_EQ(RunTool("prop get test.tool.unset fallback").out, "fallback\n");
  EXPECT_EQ(RunTool("prop dir").out, tarvik_test::PropertyDir() + "\n");

  ASSERT_EQ(property_set("ctl.start", "vendor.test_service"), 0);
  const std::string ctl = RunTool("--json prop ctl").out;
  EXPECT_NE(ctl.find("\"name\":\"ctl.start\""), std::string::npos) << ctl;
  EXPECT_NE(ctl.find("\"value\":\"vendor.test_service\""), std::string::npos) << ctl;

  const std::string list = RunTool("--json prop list").out;
  EXPECT_NE(list.find("\"persist.test.tool\":\"from the tool\""), std::string::npos) << list;
  EXPECT_NE(list.find("\"ro.test.tool\":\"fixed\""), std::string::npos) << list;
}

}  // namespace
