// main() of every test program: each selected test runs in a process of its own.
//
// The library keeps process-wide state that nothing resets (the vendor channel, the standard
// service clients, caches read once), and each test gets its own property store and simulated
// modem, so a test may only ever see a fresh process. ctest already starts one process per test;
// a program run by hand (`./tests_dfs`, `--gtest_filter=...`) does the same here: when more than
// one test is selected, this process runs none itself but starts itself once per test, with a
// filter naming that test, and prints what the children print in gtest's usual layout, with
// gtest's counts, summary and exit status. One selected test, `--gtest_list_tests` (ctest's
// discovery) and anything else gtest does on its own run in this process as usual. A child
// tells its test's outcome through a file named in TARVIK_TEST_OUTCOME (its output may be
// interleaved with lines other threads print): its exit status and that file decide.
//
// Under ThreadSanitizer, a run without --gtest_filter leaves out the Firing* suites, as the tsan
// preset leaves out their posix_timer label: ThreadSanitizer crashes in the thread glibc starts
// to notify a POSIX timer. A filter that names them runs them.
//
// Honoured across children: --gtest_filter, --gtest_also_run_disabled_tests, --gtest_repeat,
// --gtest_shuffle and --gtest_random_seed, --gtest_fail_fast, --gtest_color, --gtest_brief,
// --gtest_print_time and the GTEST_TOTAL_SHARDS / GTEST_SHARD_INDEX sharding variables. Other
// flags reach each child unchanged. --gtest_output is not written in this mode (each child
// would overwrite the file): run a single test for it.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <utility>
#include <vector>

extern char **environ;

#if defined(__SANITIZE_THREAD__)
#define TARVIK_TEST_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TARVIK_TEST_TSAN 1
#endif
#endif

namespace {

// --- gtest's filter: positive patterns, then after '-' negative ones, ':'-separated ---

bool Glob(const char *pattern, const char *end, const char *name) {
  for (; pattern != end; ++pattern, ++name) {
    if (*pattern == '*') {
      for (const char *rest = name;; ++rest) {
        if (Glob(pattern + 1, end, rest)) return true;
        if (*rest == '\0') return false;
      }
    }
    if (*name == '\0' || (*pattern != '?' && *pattern != *name)) return false;
  }
  return *name == '\0';
}

bool AnyOf(const std::string &patterns, const std::string &name) {
  size_t from = 0;
  while (true) {
    const size_t to = std::min(patterns.find(':', from), patterns.size());
    if (Glob(patterns.data() + from, patterns.data() + to, name.c_str())) return true;
    if (to == patterns.size()) return false;
    from = to + 1;
  }
}

bool FilterSelects(const std::string &filter, const std::string &name) {
  const size_t dash = filter.find('-');
  std::string positive = filter.substr(0, dash);
  if (positive.empty()) positive = "*";
  return AnyOf(positive, name) &&
         (dash == std::string::npos || !AnyOf(filter.substr(dash + 1), name));
}

// --- the selection ---

struct Suite {
  std::string name;
  std::vector<std::string> tests;  // full names
};

int EnvInt(const char *name, int fallback) {
  const char *v = getenv(name);
  return v != nullptr && *v != '\0' ? atoi(v) : fallback;
}

std::vector<Suite> Selected() {
  const testing::UnitTest &unit = *testing::UnitTest::GetInstance();
  const std::string filter = GTEST_FLAG_GET(filter);
  const bool disabled_too = GTEST_FLAG_GET(also_run_disabled_tests);
  const int shards = EnvInt("GTEST_TOTAL_SHARDS", 1);
  const int shard = EnvInt("GTEST_SHARD_INDEX", 0);
  std::vector<Suite> out;
  int index = 0;
  for (int i = 0; i < unit.total_test_suite_count(); ++i) {
    const testing::TestSuite &ts = *unit.GetTestSuite(i);
    Suite suite{ts.name(), {}};
    for (int j = 0; j < ts.total_test_count(); ++j) {
      const testing::TestInfo &t = *ts.GetTestInfo(j);
      const std::string full = std::string(ts.name()) + "." + t.name();
      const bool disabled =
          strncmp(ts.name(), "DISABLED_", 9) == 0 || strncmp(t.name(), "DISABLED_", 9) == 0;
      if ((disabled && !disabled_too) || !FilterSelects(filter, full)) continue;
      if (shards > 1 && index++ % shards != shard) continue;
      suite.tests.push_back(full);
    }
    if (!suite.tests.empty()) out.push_back(suite);
  }
  return out;
}

// --- gtest's layout ---

enum class Color { kNone, kRed, kGreen, kYellow };
bool g_color = false;

void Tag(Color color, const char *tag) {
  static const char *const kCodes[] = {"", "\033[0;31m", "\033[0;32m", "\033[0;33m"};
  if (g_color && color != Color::kNone) {
    printf("%s%s\033[m", kCodes[static_cast<int>(color)], tag);
  } else {
    printf("%s", tag);
  }
}

std::string Count(size_t n, const char *what) {
  return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

bool ColorWanted() {
  const std::string c = GTEST_FLAG_GET(color);
  if (c == "yes" || c == "true" || c == "t" || c == "1") return true;
  if (c != "auto" || !isatty(fileno(stdout))) return false;
  const char *term = getenv("TERM");
  const std::string t = term != nullptr ? term : "";
  return t == "xterm" || t == "xterm-color" || t == "xterm-256color" || t == "screen" ||
         t == "screen-256color" || t == "tmux" || t == "tmux-256color" || t == "rxvt-unicode" ||
         t == "rxvt-unicode-256color" || t == "linux" || t == "cygwin" || t == "xterm-kitty" ||
         t == "alacritty" || t == "foot";
}

// --- one child ---

enum class Outcome { kPassed, kSkipped, kFailed };

std::string Plain(const std::string &line) {  // without colour codes
  std::string out;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\033') {
      while (i < line.size() && line[i] != 'm') ++i;
    } else {
      out += line[i];
    }
  }
  return out;
}

bool Starts(const std::string &s, const std::string &prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

constexpr const char *kOutcomeVar = "TARVIK_TEST_OUTCOME";

// In a child: appends "SUITE.NAME passed|skipped|failed" to the file the parent named.
class OutcomeWriter : public testing::EmptyTestEventListener {
 public:
  explicit OutcomeWriter(std::string path) : path_(std::move(path)) {}
  void OnTestEnd(const testing::TestInfo &info) override {
    const testing::TestResult &r = *info.result();
    FILE *f = fopen(path_.c_str(), "a");
    if (f == nullptr) return;
    fprintf(f, "%s.%s %s\n", info.test_suite_name(), info.name(),
            r.Skipped()  ? "skipped"
            : r.Passed() ? "passed"
                         : "failed");
    fclose(f);
  }

 private:
  std::string path_;
};

// What the child reported of `test` ("" when nothing).
std::string ReadOutcome(const char *path, const std::string &test) {
  std::string outcome;
  FILE *f = fopen(path, "r");
  if (f == nullptr) return outcome;
  char line[4096];
  while (fgets(line, sizeof(line), f) != nullptr) {
    std::string l(line);
    if (!l.empty() && l.back() == '\n') l.pop_back();
    if (Starts(l, test + " ")) outcome = l.substr(test.size() + 1);
  }
  fclose(f);
  return outcome;
}

// Runs `test` in a child of this program and copies its report through, without the child's
// own banner and summary (with `brief`, only when the test failed). `argv` is this program's
// command line as given.
Outcome RunChild(const std::vector<std::string> &argv, const std::string &test, bool brief) {
  std::vector<std::string> args = argv;
  args.push_back("--gtest_filter=" + test);
  args.push_back("--gtest_brief=0");
  args.push_back("--gtest_repeat=1");
  args.push_back("--gtest_shuffle=0");
  args.push_back("--gtest_output=");
  args.push_back(std::string("--gtest_color=") + (g_color ? "yes" : "no"));
  std::vector<char *> cargv;
  for (std::string &a : args) cargv.push_back(&a[0]);
  cargv.push_back(nullptr);
  char outcome_path[] = "/tmp/tarvik-test-outcome-XXXXXX";
  const int outcome_fd = mkstemp(outcome_path);
  if (outcome_fd >= 0) close(outcome_fd);
  std::vector<std::string> env = {std::string(kOutcomeVar) + "=" + outcome_path};
  for (char **e = environ; *e != nullptr; ++e) {
    if (strncmp(*e, kOutcomeVar, strlen(kOutcomeVar)) != 0) env.push_back(*e);
  }
  std::vector<char *> cenv;
  for (std::string &e : env) cenv.push_back(&e[0]);
  cenv.push_back(nullptr);

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    perror("pipe2");
    return Outcome::kFailed;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  fflush(stdout);
  pid_t pid = -1;
  const int spawned =
      posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, cargv.data(), cenv.data());
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  const auto start = std::chrono::steady_clock::now();

  bool summary = false;
  std::string held;  // what `brief` keeps back
  if (spawned == 0) {
    FILE *in = fdopen(fds[0], "r");
    char *raw = nullptr;
    size_t cap = 0;
    ssize_t n;
    bool after_banner = false;  // the blank line that follows a dropped suite end
    while ((n = getline(&raw, &cap, in)) > 0) {
      const std::string line(raw, static_cast<size_t>(n));
      const std::string plain = Plain(line);
      if (summary) continue;
      if (Starts(plain, "[----------] Global test environment tear-down")) {
        summary = true;
        continue;
      }
      if (Starts(plain, "[==========]") || Starts(plain, "[----------]") ||
          Starts(plain, "Note: Google Test filter")) {
        after_banner = true;
        continue;
      }
      if (after_banner && plain == "\n") continue;
      after_banner = false;
      if (brief) {
        held += line;
      } else {
        fwrite(line.data(), 1, line.size(), stdout);
      }
    }
    free(raw);
    fclose(in);
  } else {
    close(fds[0]);
  }
  int status = 0;
  if (spawned == 0) {
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }
  const long ms = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::steady_clock::now() - start)
                                        .count());
  const std::string reported = ReadOutcome(outcome_path, test);
  unlink(outcome_path);
  const bool clean_exit = spawned == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (clean_exit && reported == "passed") return Outcome::kPassed;
  if (clean_exit && reported == "skipped") return Outcome::kSkipped;
  fwrite(held.data(), 1, held.size(), stdout);
  if (reported != "failed") {  // it never got to report: say why, in the test's own failure line
    if (spawned != 0) {
      printf("could not start %s: %s\n", argv[0].c_str(), strerror(spawned));
    } else if (WIFSIGNALED(status)) {
      printf("the test's process was killed by signal %d (%s)\n", WTERMSIG(status),
             strsignal(WTERMSIG(status)));
    } else if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
      printf("the test's process exited with status %d\n", WEXITSTATUS(status));
    } else {
      printf("the test's process ended without reporting the test\n");
    }
    Tag(Color::kRed, "[  FAILED  ] ");
    printf("%s (%ld ms)\n", test.c_str(), ms);
  }
  return Outcome::kFailed;
}

// --- the run ---

struct Totals {
  size_t passed = 0;
  std::vector<std::string> skipped, failed;
};

void Shuffle(std::vector<Suite> *suites, int iteration) {
  int seed = GTEST_FLAG_GET(random_seed);
  if (seed == 0) seed = static_cast<int>(time(nullptr) % 99999) + 1;
  seed = (seed + iteration - 1) % 99999 + 1;
  printf("Note: Randomizing tests' orders with a seed of %d .\n", seed);
  std::mt19937 rng(static_cast<unsigned>(seed));
  std::shuffle(suites->begin(), suites->end(), rng);
  for (Suite &s : *suites) std::shuffle(s.tests.begin(), s.tests.end(), rng);
}

int RunInChildren(const std::vector<std::string> &argv, std::vector<Suite> suites) {
  const bool brief = GTEST_FLAG_GET(brief);
  const bool print_time = GTEST_FLAG_GET(print_time);
  const bool fail_fast = GTEST_FLAG_GET(fail_fast);
  const int repeat = GTEST_FLAG_GET(repeat);
  size_t tests = 0;
  for (const Suite &s : suites) tests += s.tests.size();
  bool all_passed = true;
  for (int iteration = 1; repeat < 0 || iteration <= repeat; ++iteration) {
    if (repeat != 1) printf("\nRepeating all tests (iteration %d) . . .\n\n", iteration);
    const std::string filter = GTEST_FLAG_GET(filter);
    if (filter != "*") {
      Tag(Color::kYellow, "Note: Google Test filter = ");
      printf("%s\n", filter.c_str());
    }
    if (GTEST_FLAG_GET(shuffle)) Shuffle(&suites, iteration);
    printf("Note: each test runs in a process of its own.\n");
    Tag(Color::kGreen, "[==========] ");
    printf("Running %s from %s.\n", Count(tests, "test").c_str(),
           Count(suites.size(), "test suite").c_str());
    if (!brief) {
      Tag(Color::kGreen, "[----------] ");
      printf("Global test environment set-up.\n");
    }
    Totals totals;
    const auto start = std::chrono::steady_clock::now();
    bool stop = false;
    for (const Suite &suite : suites) {
      const auto suite_start = std::chrono::steady_clock::now();
      if (!brief) {
        Tag(Color::kGreen, "[----------] ");
        printf("%s from %s\n", Count(suite.tests.size(), "test").c_str(), suite.name.c_str());
      }
      for (const std::string &test : suite.tests) {
        if (stop) {
          totals.skipped.push_back(test);
          continue;
        }
        switch (RunChild(argv, test, brief)) {
          case Outcome::kPassed:
            ++totals.passed;
            break;
          case Outcome::kSkipped:
            totals.skipped.push_back(test);
            break;
          case Outcome::kFailed:
            totals.failed.push_back(test);
            stop = fail_fast;
            break;
        }
      }
      if (!brief && print_time) {
        const long ms = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                              std::chrono::steady_clock::now() - suite_start)
                                              .count());
        Tag(Color::kGreen, "[----------] ");
        printf("%s from %s (%ld ms total)\n\n", Count(suite.tests.size(), "test").c_str(),
               suite.name.c_str(), ms);
      }
    }
    if (!brief) {
      Tag(Color::kGreen, "[----------] ");
      printf("Global test environment tear-down\n");
    }
    const long ms = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now() - start)
                                          .count());
    Tag(Color::kGreen, "[==========] ");
    printf("%s from %s ran.", Count(tests, "test").c_str(),
           Count(suites.size(), "test suite").c_str());
    if (print_time) printf(" (%ld ms total)", ms);
    printf("\n");
    Tag(Color::kGreen, "[  PASSED  ] ");
    printf("%s.\n", Count(totals.passed, "test").c_str());
    if (!totals.skipped.empty()) {
      Tag(Color::kGreen, "[  SKIPPED ] ");
      printf("%s, listed below:\n", Count(totals.skipped.size(), "test").c_str());
      for (const std::string &t : totals.skipped) {
        Tag(Color::kGreen, "[  SKIPPED ] ");
        printf("%s\n", t.c_str());
      }
    }
    if (!totals.failed.empty()) {
      all_passed = false;
      Tag(Color::kRed, "[  FAILED  ] ");
      printf("%s, listed below:\n", Count(totals.failed.size(), "test").c_str());
      for (const std::string &t : totals.failed) {
        Tag(Color::kRed, "[  FAILED  ] ");
        printf("%s\n", t.c_str());
      }
      printf("\n%2zu FAILED %s\n", totals.failed.size(),
             totals.failed.size() == 1 ? "TEST" : "TESTS");
    }
    fflush(stdout);
    if (stop) break;
  }
  return all_passed ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  const std::vector<std::string> given(argv, argv + argc);
  testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
#ifdef TARVIK_TEST_TSAN
  if (GTEST_FLAG_GET(filter) == "*") {
    GTEST_FLAG_SET(filter, "*-Firing*");
    printf(
        "Note: the Firing* suites are left out under ThreadSanitizer (it crashes in glibc's timer "
        "notification thread); name them in --gtest_filter to run them.\n");
  }
#endif
  std::vector<Suite> suites = Selected();
  size_t selected = 0;
  for (const Suite &s : suites) selected += s.tests.size();
  if (selected <= 1) {
    if (const char *outcome = getenv(kOutcomeVar)) {
      testing::UnitTest::GetInstance()->listeners().Append(new OutcomeWriter(outcome));
    }
    return RUN_ALL_TESTS();
  }
  if (!GTEST_FLAG_GET(output).empty()) {
    fprintf(stderr,
            "Note: --gtest_output is not written when each test runs in a process of its "
            "own; select one test to have it written.\n");
  }
  g_color = ColorWanted();
  // The children take their shard from the selection made here.
  unsetenv("GTEST_TOTAL_SHARDS");
  unsetenv("GTEST_SHARD_INDEX");
  return RunInChildren(given, suites);
}
