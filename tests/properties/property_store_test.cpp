// The property store: its rules within one process (names, value limits, ro.* and ctl.*, the
// reading defaults, listing, a hand-edited store file) and the store shared between processes
// (another process's writes seen by a reader that cached the old value, concurrent writers,
// writers killed at each step of a write, readers racing writers, the tool in separate runs).
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cutils/properties.h"
#include "property_host.h"
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

bool IsStoreTemp(int fd) {
  char path[PATH_MAX] = {};
  if (readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1) <= 0) {
    return false;
  }
  const char *base = strrchr(path, '/');
  return base != nullptr && strcmp(base, "/properties.tmp") == 0;
}

}  // namespace

extern "C" int fsync(int fd) {
  static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
  if (g_crash_point == CrashPoint::kBeforeTempSync && IsStoreTemp(fd)) {
    raise(SIGKILL);
  }
  return real(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept {
  static const auto real =
      reinterpret_cast<int (*)(const char *, const char *)>(dlsym(RTLD_NEXT, "rename"));
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

std::string Get(const std::string &key, const char *def = "<unset>") {
  char value[PROPERTY_VALUE_MAX + 1];
  memset(value, 'x', sizeof value);
  const int n = property_get(key.c_str(), value, def);
  EXPECT_EQ(n, static_cast<int>(strlen(value))) << key;
  return value;
}

std::string ReadStoreFile() {
  std::ifstream in(tarvik_test::PropertyDir() + "/properties");
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs ListAll() {
  Pairs out;
  EXPECT_EQ(property_list([](const char *k, const char *v,
                             void *cookie) { static_cast<Pairs *>(cookie)->emplace_back(k, v); },
                          &out),
            0);
  return out;
}

// Each row sets a value and reads it back: names, value lengths, ro.* written once, values that
// hold the store's separators, ctl.* requests that are never stored.
TEST(PropertyStore, SetThenGetRules) {
  const std::string longest(PROPERTY_NAME_MAX_HOST, 'n');
  const std::string max(PROPERTY_VALUE_MAX, 'a');
  const std::string over(PROPERTY_VALUE_MAX + 1, 'b');
  const struct {
    std::string name, value;
    int status;
    std::string read;  // after the set
  } rows[] = {
      {"persist.vendor.radio.adb_log_qz", "v", 0, "v"},
      {"vendor.a-b_c@d:e.9", "v", 0, "v"},
      {"x", "v", 0, "v"},
      {longest, "v", 0, "v"},
      {longest + "n", "v", -1, "<unset>"},
      {"", "v", -1, "<unset>"},
      {".leading", "v", -1, "<unset>"},
      {"trailing.", "v", -1, "<unset>"},
      {"double..dot", "v", -1, "<unset>"},
      {"has space", "v", -1, "<unset>"},
      {"tab\tname", "v", -1, "<unset>"},
      {"new\nline", "v", -1, "<unset>"},
      {"slash/name", "v", -1, "<unset>"},
      {"equals=sign", "v", -1, "<unset>"},
      {"uml\xc3\xa4ut", "v", -1, "<unset>"},
      {"test.len", max, 0, max},
      {"test.len", over, -1, max},  // a refused value leaves the old one
      {"test.len.new", over, -1, "<unset>"},
      {"ro.test.serial", "first", 0, "first"},
      {"ro.test.serial", "second", -1, "first"},
      {"ro.test.serial", "first", -1, "first"},
      {"rox.test", "1", 0, "1"},  // only the "ro." prefix is read-only
      {"rox.test", "2", 0, "2"},
      {"vendor.ro.test", "1", 0, "1"},
      {"vendor.ro.test", "2", 0, "2"},
      {"test.sep0", "a\tb", 0, "a\tb"},
      {"test.sep1", "line1\nline2", 0, "line1\nline2"},
      {"test.sep2", "back\\slash", 0, "back\\slash"},
      {"test.sep3", "\\n literally", 0, "\\n literally"},
      {"test.sep4", "=;# \x7f", 0, "=;# \x7f"},
      {"test.sep5", "\xc3\xa4\xc3\xb6", 0, "\xc3\xa4\xc3\xb6"},
      {"ctl.start", "vendor.qcrild", 0, "<unset>"},
      {"ctl.stop", "vendor.ipacm", 0, "<unset>"},
      {"ctl.start", std::string(PROPERTY_VALUE_MAX + 1, 's'), -1, "<unset>"},
      {"ctl.start", "vendor.qcrild2", 0, "<unset>"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name + "=" + row.value);
    EXPECT_EQ(property_set(row.name.c_str(), row.value.c_str()), row.status);
    EXPECT_EQ(Get(row.name), row.read);
  }
  EXPECT_EQ(property_set(nullptr, "v"), -1);
  // Stored: 4 names, test.len, ro.test.serial, rox.test, vendor.ro.test, 6 separators; the store
  // stays one record per line whatever the values hold.
  EXPECT_EQ(ListAll().size(), 14u);
  const std::string store = ReadStoreFile();
  EXPECT_EQ(std::count(store.begin(), store.end(), '\n'), 1 + 14);

  std::string requests;
  EXPECT_EQ(property_ctl_requests(
                [](const char *n, const char *v, int pid, void *cookie) {
                  *static_cast<std::string *>(cookie) +=
                      std::string(n) + "=" + v + "@" + std::to_string(pid) + ";";
                },
                &requests),
            3);
  const std::string pid = "@" + std::to_string(getpid()) + ";";
  EXPECT_EQ(requests, "ctl.start=vendor.qcrild" + pid + "ctl.stop=vendor.ipacm" + pid +
                          "ctl.start=vendor.qcrild2" + pid);
  EXPECT_EQ(property_ctl_requests(nullptr, nullptr), -1);
}

TEST(PropertyStore, ReadDefaults) {
  char value[PROPERTY_VALUE_MAX + 1];
  EXPECT_EQ(property_get("test.unset", value, nullptr), 0);
  EXPECT_STREQ(value, "");
  const std::string long_default(200, 'd');
  EXPECT_EQ(property_get("test.unset", value, long_default.c_str()), PROPERTY_VALUE_MAX);
  EXPECT_EQ(std::string(value), long_default.substr(0, PROPERTY_VALUE_MAX));
  EXPECT_EQ(property_get(nullptr, value, "dflt"), 4);
  EXPECT_STREQ(value, "dflt");
  EXPECT_EQ(property_get("test.unset", nullptr, "dflt"), -1);

  // An empty value reads like an unset one; NULL sets the empty value.
  ASSERT_EQ(property_set("test.empty", "full"), 0);
  ASSERT_EQ(property_set("test.empty", nullptr), 0);
  EXPECT_EQ(Get("test.empty", "dflt"), "dflt");
}

TEST(PropertyStore, ListIsSortedAndCallbacksMayReadTheStore) {
  for (const char *name : {"b.two", "a.one", "c.three"}) {
    ASSERT_EQ(property_set(name, name), 0);
  }
  Pairs seen;
  // The callback reads the store again: listing must not hold anything that blocks it.
  ASSERT_EQ(property_list(
                [](const char *k, const char *, void *cookie) {
                  char v[PROPERTY_VALUE_MAX + 1];
                  property_get(k, v, "");
                  static_cast<Pairs *>(cookie)->emplace_back(k, v);
                },
                &seen),
            0);
  EXPECT_EQ(seen, (Pairs{{"a.one", "a.one"}, {"b.two", "b.two"}, {"c.three", "c.three"}}));
  EXPECT_EQ(property_list(nullptr, nullptr), -1);
}

// Written before the first property call of this process, so the first read loads it.
TEST(PropertyStore, MalformedStoreLinesAreSkipped) {
  {
    std::ofstream out(tarvik_test::PropertyDir() + "/properties");
    out << "# tarvik property store 1\n"
        << "good.one\tvalue one\n"
        << "no tab here\n"
        << "bad name\tx\n"
        << "bad.escape\tend\\q\n"
        << "too.long\t" << std::string(PROPERTY_VALUE_MAX + 1, 'l') << "\n"
        << "dup.name\tfirst\n"
        << "dup.name\tsecond\n"
        << "good.two\t\\ttabbed\n"
        << "cut.off\tno newline";
  }
  EXPECT_EQ(std::string(property_store_dir()), tarvik_test::PropertyDir());
  EXPECT_EQ(ListAll(),
            (Pairs{{"dup.name", "second"}, {"good.one", "value one"}, {"good.two", "\ttabbed"}}));
  // A write rewrites the store in the canonical form, dropping what could not be read.
  ASSERT_EQ(property_set("good.three", "3"), 0);
  EXPECT_EQ(ReadStoreFile(),
            "# tarvik property store 1\ndup.name\tsecond\ngood.one\tvalue one\ngood.three\t3\n"
            "good.two\t\\ttabbed\n");
}

// A store this process cannot lock (here the lock is a directory) is still readable: every read
// goes to the file, since there is no change counter to trust a cached copy by.
TEST(PropertyStore, StoreWithoutUsableLockIsReadUncachedAndRefusesWrites) {
  const std::string dir = tarvik_test::PropertyDir();
  ASSERT_EQ(mkdir((dir + "/lock").c_str(), 0755), 0);
  for (const char *value : {"one", "two"}) {
    std::ofstream(dir + "/properties", std::ios::trunc)
        << "# tarvik property store 1\ntest.ro_store\t" << value << "\n";
    EXPECT_EQ(Get("test.ro_store"), value);
  }
  EXPECT_EQ(property_set("test.ro_store", "three"), -1);
  EXPECT_EQ(property_set("ctl.start", "svc"), -1);
  EXPECT_EQ(Get("test.ro_store"), "two");
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

// Waits for a child: true when it exited with 0.
bool ExitedOk(pid_t pid) {
  const int status = Wait(pid);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
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

  ASSERT_TRUE(ExitedOk(Spawn([] {
    return Get("persist.test.shared") == "parent" &&
                   property_set("persist.test.shared", "child") == 0
               ? 0
               : 1;
  })));
  const long after_write = ReadSyscalls();
  EXPECT_EQ(Get("persist.test.shared"), "child");
  EXPECT_GT(ReadSyscalls() - after_write, 1) << "a changed store must be read again";
  // A property that only the child's write created.
  ASSERT_TRUE(ExitedOk(Spawn([] { return property_set("test.added", "x"); })));
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
  while (good < 50 && ExitedOk(Spawn([] {
           alarm(5);  // a child stuck on a lock dies of SIGALRM
           return Get("test.fork") == "1" && property_set("test.fork", "1") == 0 ? 0 : 1;
         }))) {
    ++good;
  }
  stop.store(true);
  reader.join();
  EXPECT_EQ(good, 50);
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
    EXPECT_TRUE(ExitedOk(Spawn([&] { return reads_expected() ? 0 : 1; })));
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

// Writers in several processes lose no update while readers racing them see only whole values.
TEST(PropertyProcesses, ConcurrentWritersLoseNoUpdateAndReadersSeeWholeValues) {
  constexpr int kWriters = 4;
  constexpr int kEach = 25;
  const std::string a(PROPERTY_VALUE_MAX, 'A');
  const std::string b(PROPERTY_VALUE_MAX, 'B');
  auto name = [](int w, int i) { return "test.w" + std::to_string(w) + ".n" + std::to_string(i); };
  ASSERT_EQ(property_set("test.race", a.c_str()), 0);
  std::vector<pid_t> readers, writers;
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
  for (int w = 0; w < kWriters; ++w) {
    writers.push_back(Spawn([&, w] {
      for (int i = 0; i < kEach; ++i) {
        if (property_set(name(w, i).c_str(), std::to_string(w * 1000 + i).c_str()) != 0 ||
            property_set("test.race", (i % 2 ? a : b).c_str()) != 0) {
          return 1;
        }
      }
      return 0;
    }));
  }
  for (pid_t pid : writers) {
    EXPECT_TRUE(ExitedOk(pid));
  }
  ASSERT_EQ(property_set("test.race.done", "1"), 0);  // lets the readers finish
  for (pid_t pid : readers) {
    EXPECT_TRUE(ExitedOk(pid));
  }
  int found = 0;
  for (int w = 0; w < kWriters; ++w) {
    for (int i = 0; i < kEach; ++i) {
      found += Get(name(w, i)) == std::to_string(w * 1000 + i);
    }
  }
  EXPECT_EQ(found, kWriters * kEach);

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
