// The store shared between processes: visibility of another process's writes to a reader that
// cached the old value, concurrent writers, writers killed at each step of a write, readers
// racing writers, and the tool in two separate runs.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "crash_points.h"
#include "cutils/properties.h"
#include "property_host.h"
#include "test_env.h"

namespace {

using tarvik_test::CrashPoint;

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

bool FileExists(const std::string &path) {
  return access(path.c_str(), F_OK) == 0;
}

uint64_t ReadCounter() {
  uint64_t counter = 0;
  std::ifstream in(tarvik_test::PropertyDir() + "/lock", std::ios::binary);
  in.read(reinterpret_cast<char *>(&counter), sizeof counter);
  return counter;
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

TEST(PropertyProcesses, ReaderThatCachedSeesAnotherProcessWrite) {
  ASSERT_EQ(property_set("persist.test.shared", "parent"), 0);
  ASSERT_EQ(Get("persist.test.shared"), "parent");  // now cached in this process
  ASSERT_TRUE(ExitedWith(Wait(Spawn([] {
                           if (Get("persist.test.shared") != "parent") {
                             return 1;
                           }
                           return property_set("persist.test.shared", "child") == 0 ? 0 : 2;
                         })),
                         0));
  EXPECT_EQ(Get("persist.test.shared"), "child");
  // A property that only the child's write created.
  ASSERT_TRUE(
      ExitedWith(Wait(Spawn([] { return property_set("test.added", "x") == 0 ? 0 : 1; })), 0));
  EXPECT_EQ(Get("test.added"), "x");
}

TEST(PropertyProcesses, UnchangedStoreIsReadWithoutSystemCalls) {
  ASSERT_EQ(property_set("test.fast", "1"), 0);
  ASSERT_EQ(Get("test.fast"), "1");
  const long before = ReadSyscalls();
  ASSERT_GE(before, 0);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(Get(i % 2 ? "test.fast" : "test.absent"), i % 2 ? "1" : "<unset>");
  }
  // Only the reads of /proc/self/io itself.
  EXPECT_LT(ReadSyscalls() - before, 10);

  ASSERT_TRUE(ExitedWith(Wait(Spawn([] { return property_set("test.fast", "2"); })), 0));
  const long after_write = ReadSyscalls();
  EXPECT_EQ(Get("test.fast"), "2");
  EXPECT_GT(ReadSyscalls() - after_write, 1) << "a changed store must be read again";
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
  while (good < 50 &&
         ExitedWith(Wait(Spawn([] {
                      alarm(5);  // a child stuck on a lock dies of SIGALRM
                      return Get("test.fork") == "1" && property_set("test.fork", "1") == 0 ? 0 : 1;
                    })),
                    0)) {
    ++good;
  }
  stop.store(true);
  reader.join();
  EXPECT_EQ(good, 50);
}

TEST(PropertyProcesses, ConcurrentWritersLoseNoUpdate) {
  constexpr int kWriters = 4;
  constexpr int kEach = 25;
  std::vector<pid_t> pids;
  for (int w = 0; w < kWriters; ++w) {
    pids.push_back(Spawn([w] {
      for (int i = 0; i < kEach; ++i) {
        const std::string name = "test.w" + std::to_string(w) + ".n" + std::to_string(i);
        if (property_set(name.c_str(), std::to_string(w * 1000 + i).c_str()) != 0 ||
            property_set("test.last", name.c_str()) != 0) {
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
      const std::string name = "test.w" + std::to_string(w) + ".n" + std::to_string(i);
      found += Get(name) == std::to_string(w * 1000 + i);
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
  const std::string dir = tarvik_test::PropertyDir();
  ASSERT_EQ(property_set("persist.test.bystander", "kept"), 0);
  int round = 0;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const std::string old_value = "old-" + std::to_string(round);
    const std::string new_value = "new-" + std::to_string(round);
    ++round;
    ASSERT_EQ(property_set("persist.test.crash", old_value.c_str()), 0);
    ASSERT_EQ(Get("persist.test.crash"), old_value);  // cached here before the crash

    const int status = Wait(Spawn([&] {
      tarvik_test::ArmCrashPoint(row.point);
      property_set("persist.test.crash", new_value.c_str());
      return 0;  // not reached when the crash point works
    }));
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
    EXPECT_EQ(FileExists(dir + "/properties.tmp"), row.temp_left);

    const std::string expected = row.new_value_visible ? new_value : old_value;
    EXPECT_EQ(Get("persist.test.crash"), expected);
    EXPECT_EQ(Get("persist.test.bystander"), "kept");
    // A process that starts now reads the same.
    EXPECT_TRUE(ExitedWith(Wait(Spawn([&] {
                             return Get("persist.test.crash") == expected &&
                                            Get("persist.test.bystander") == "kept"
                                        ? 0
                                        : 1;
                           })),
                           0));
    // The dead writer's lock is gone and its leftovers do not get in the way.
    ASSERT_EQ(property_set("persist.test.after", new_value.c_str()), 0);
    EXPECT_EQ(Get("persist.test.after"), new_value);
    EXPECT_FALSE(FileExists(dir + "/properties.tmp"));
    EXPECT_EQ(ReadCounter() % 2, 0u) << "the change counter is left mid-write";
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

// Runs the tool with the given arguments; returns its standard output.
std::string Tool(const std::string &args, int *exit_status) {
  tarvik_test::ToolRun run = tarvik_test::RunTool(args);
  *exit_status = run.status;
  return run.out;
}

TEST(PropertyProcesses, ToolSetThenGetInSeparateRuns) {
  if (tarvik_test::BinDir().empty()) {
    GTEST_SKIP() << "TARVIK_BIN_DIR is not set";
  }
  int status = -1;
  Tool("prop set persist.test.tool 'from the tool'", &status);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(Tool("prop get persist.test.tool", &status), "from the tool\n");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Get("persist.test.tool"), "from the tool");

  ASSERT_EQ(property_set("ro.test.tool", "fixed"), 0);
  Tool("prop set ro.test.tool other", &status);
  EXPECT_NE(status, 0) << "a refused write must fail the tool";
  EXPECT_EQ(Tool("prop get test.tool.unset fallback", &status), "fallback\n");
  EXPECT_EQ(Tool("prop dir", &status), tarvik_test::PropertyDir() + "\n");

  ASSERT_EQ(property_set("ctl.start", "vendor.test_service"), 0);
  const std::string ctl = Tool("--json prop ctl", &status);
  EXPECT_NE(ctl.find("\"name\":\"ctl.start\""), std::string::npos) << ctl;
  EXPECT_NE(ctl.find("\"value\":\"vendor.test_service\""), std::string::npos) << ctl;

  const std::string list = Tool("--json prop list", &status);
  EXPECT_NE(list.find("\"persist.test.tool\":\"from the tool\""), std::string::npos) << list;
  EXPECT_NE(list.find("\"ro.test.tool\":\"fixed\""), std::string::npos) << list;
}

}  // namespace
