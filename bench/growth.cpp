// How cost grows with what the library and the modem hold, each as a ratio of two sizes measured
// in the same run:
//   - blacklist enters 391-400 against enters 1-10 of one process (target <= 1.2, real time):
//     the library's filter count and the modem's table grow between them (the first enter also
//     switches the filter mode on);
//   - a modem file of 102410 bytes (the largest a write takes) against one of 10241, written and
//     read back (target: 10x within 20%, printed as <= 12 on real time; a tenfold file is the
//     growth the library's size limit allows);
//   - property_get on an unchanged store of 1000 properties against one of 10, beside the same
//     look-ups in a std::unordered_map of 10 and 1000 entries (target: property_get grows at
//     most 1.2 times what the bare map grows, CPU time), and property_set on stores of 10, 100
//     and 1000 properties (no target: the store is rewritten whole on each write; the slope per
//     property is printed). A process has one property store, so each store size is measured in
//     a child process of its own (rounds alternate between the sizes; the median round counts),
//     printed in the same ratio form.
// Logging is off, as a device does with its log properties.
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench_modem.h"
#include "bench_ratio.h"
#include "benchmark/benchmark.h"
#include "cutils/properties.h"
#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_filter_control.h"

namespace {

std::unique_ptr<modemsim::Modem> g_modem;

// ---- blacklist ------------------------------------------------------------------------------

std::vector<uint8_t> Blacklist(uint32_t mode, const std::vector<std::string> &fields) {
  return tarvik_bench::BlacklistCommand(mode, "rmnet_data0", fields);
}

int Run(const std::vector<uint8_t> &cmd) {
  uint32_t status = 0;
  const int rc =
      tarvik_filter_control_handle_msg(cmd.data(), static_cast<uint32_t>(cmd.size()), &status);
  return rc != 0 ? rc : static_cast<int>(status);
}

std::vector<uint8_t> Enter(int n) {
  return Blacklist(1, {"IPV4", "TCP", "10.0.0.1", "10.0.0.2", std::to_string(1000 + n), "443"});
}

// Times the enters `first`..`first + 9` of a blacklist that starts empty each iteration.
void EnterTen(benchmark::State &state, int first) {
  const std::vector<uint8_t> exit = Blacklist(0, {});
  for (auto _ : state) {
    state.PauseTiming();
    bool ok = Run(exit) == 0;
    for (int n = 1; ok && n < first; ++n) ok = Run(Enter(n)) == 0;
    std::vector<std::vector<uint8_t>> timed;
    for (int n = first; n < first + 10; ++n) timed.push_back(Enter(n));
    state.ResumeTiming();
    for (const auto &cmd : timed) ok = ok && Run(cmd) == 0;
    if (!ok) {
      state.SkipWithError("an enter failed");
      break;
    }
  }
  Run(exit);
}
void BM_BlacklistEnters1To10(benchmark::State &state) {
  EnterTen(state, 1);
}
void BM_BlacklistEnters391To400(benchmark::State &state) {
  EnterTen(state, 391);
}
BENCHMARK(BM_BlacklistEnters1To10)->UseRealTime()->Iterations(40);
BENCHMARK(BM_BlacklistEnters391To400)->UseRealTime()->Iterations(40);

// ---- modem files ----------------------------------------------------------------------------

std::vector<uint8_t> FileOf(size_t size) {
  std::vector<uint8_t> f(size);
  for (size_t i = 0; i < size; ++i) f[i] = static_cast<uint8_t>(i * 131 + (i >> 9));
  return f;
}

bool WriteFile(const char *path, const std::vector<uint8_t> &f) {
  return tarvik_efs_write(0, path, static_cast<uint32_t>(strlen(path)), f.data(),
                          static_cast<uint32_t>(f.size())) == 0;
}

void EfsWrite(benchmark::State &state, size_t size) {
  const std::vector<uint8_t> f = FileOf(size);
  const std::string path = "/bench/growth_w" + std::to_string(size);
  for (auto _ : state) {
    if (!WriteFile(path.c_str(), f)) {
      state.SkipWithError("write failed");
      break;
    }
  }
}

void EfsRead(benchmark::State &state, size_t size) {
  const std::vector<uint8_t> f = FileOf(size);
  const std::string path = "/bench/growth_r" + std::to_string(size);
  if (!WriteFile(path.c_str(), f)) {
    state.SkipWithError("write failed");
    return;
  }
  std::vector<uint8_t> buf(TARVIK_EFS_FILE_MAX + 1024);
  for (auto _ : state) {
    uint32_t len = static_cast<uint32_t>(buf.size());
    if (tarvik_efs_read(0, path.c_str(), static_cast<uint32_t>(path.size()), buf.data(), &len) !=
            0 ||
        len != size) {
      state.SkipWithError("read failed");
      break;
    }
  }
}
void BM_EfsWrite10241(benchmark::State &state) {
  EfsWrite(state, TARVIK_EFS_FILE_MAX / 10);
}
void BM_EfsWrite102410(benchmark::State &state) {
  EfsWrite(state, TARVIK_EFS_FILE_MAX);
}
void BM_EfsRead10241(benchmark::State &state) {
  EfsRead(state, TARVIK_EFS_FILE_MAX / 10);
}
void BM_EfsRead102410(benchmark::State &state) {
  EfsRead(state, TARVIK_EFS_FILE_MAX);
}
BENCHMARK(BM_EfsWrite10241)->UseRealTime();
BENCHMARK(BM_EfsWrite102410)->UseRealTime();
BENCHMARK(BM_EfsRead10241)->UseRealTime();
BENCHMARK(BM_EfsRead102410)->UseRealTime();

// ---- property store, one child process per store size ---------------------------------------

struct PropTimes {
  double get_real_ns = 0, get_cpu_ns = 0, set_real_ns = 0, set_cpu_ns = 0;
  double map_cpu_ns = 0;  // the same look-ups in a std::unordered_map of the same names
};

double Seconds(clockid_t clock) {
  timespec ts;
  clock_gettime(clock, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// In a child on the store in `dir`, filled to `count` properties by its first child: the time of
// one property_get of a stored name (store unchanged) and of one property_set. Runs before the
// parent touches its own store.
bool MeasureStore(const std::string &dir, int count, PropTimes *out) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  const pid_t pid = fork();
  if (pid < 0) return false;
  if (pid == 0) {
    close(fds[0]);
    setenv("TARVIK_PROPERTY_DIR", dir.c_str(), 1);
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i)
      names.push_back("persist.vendor.radio.growth_" + std::to_string(i));
    char value[PROPERTY_VALUE_MAX + 1];
    if (property_get(names.back().c_str(), value, "") == 0) {
      for (int i = 0; i < count; ++i) {
        if (property_set(names[i].c_str(), ("value-" + std::to_string(i * 7919)).c_str()) != 0) {
          _exit(1);
        }
      }
    }
    PropTimes t;
    const int gets = 200000;
    double r0 = Seconds(CLOCK_MONOTONIC), c0 = Seconds(CLOCK_THREAD_CPUTIME_ID);
    for (int i = 0; i < gets; ++i) {
      benchmark::DoNotOptimize(property_get(names[(i * 7) % count].c_str(), value, "dflt"));
    }
    t.get_real_ns = (Seconds(CLOCK_MONOTONIC) - r0) * 1e9 / gets;
    t.get_cpu_ns = (Seconds(CLOCK_THREAD_CPUTIME_ID) - c0) * 1e9 / gets;
    std::unordered_map<std::string, std::string> map;
    for (int i = 0; i < count; ++i) map.emplace(names[i], "value-" + std::to_string(i * 7919));
    c0 = Seconds(CLOCK_THREAD_CPUTIME_ID);
    for (int i = 0; i < gets; ++i) {
      const auto it = map.find(names[(i * 7) % count]);
      memcpy(value, it->second.c_str(), it->second.size() + 1);
      benchmark::DoNotOptimize(value);
      benchmark::ClobberMemory();
    }
    t.map_cpu_ns = (Seconds(CLOCK_THREAD_CPUTIME_ID) - c0) * 1e9 / gets;
    // Values this child has not written before, so that every set rewrites the store.
    const int sets = 40;
    const std::string tag = std::to_string(getpid()) + "-";
    r0 = Seconds(CLOCK_MONOTONIC);
    c0 = Seconds(CLOCK_THREAD_CPUTIME_ID);
    for (int i = 0; i < sets; ++i) {
      if (property_set(names[(i * 7) % count].c_str(), (tag + std::to_string(i)).c_str()) != 0) {
        _exit(1);
      }
    }
    t.set_real_ns = (Seconds(CLOCK_MONOTONIC) - r0) * 1e9 / sets;
    t.set_cpu_ns = (Seconds(CLOCK_THREAD_CPUTIME_ID) - c0) * 1e9 / sets;
    _exit(write(fds[1], &t, sizeof(t)) == static_cast<ssize_t>(sizeof(t)) ? 0 : 1);
  }
  close(fds[1]);
  const bool ok = read(fds[0], out, sizeof(*out)) == static_cast<ssize_t>(sizeof(*out));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Rounds alternate between the store sizes; per size the median of the rounds.
bool PropertyStoreGrowth(std::vector<std::string> *lines) {
  const int sizes[] = {10, 100, 1000};
  std::vector<std::string> dirs;
  for (int s = 0; s < 3; ++s) {
    char dir[] = "/tmp/tarvik-bench-growth-XXXXXX";
    if (mkdtemp(dir) == nullptr) return false;
    dirs.push_back(dir);
  }
  std::vector<std::vector<PropTimes>> runs(3);
  bool ok = true;
  for (int round = 0; ok && round < 5; ++round) {
    for (int s = 0; ok && s < 3; ++s) {
      PropTimes t;
      ok = MeasureStore(dirs[s], sizes[s], &t);
      runs[s].push_back(t);
    }
  }
  for (const std::string &d : dirs) {
    std::error_code ec;
    std::filesystem::remove_all(d, ec);
  }
  if (!ok) return false;
  auto med = [&](int s, double PropTimes::*field) {
    std::vector<double> v;
    for (const PropTimes &t : runs[s]) v.push_back(t.*field);
    return Median(v);
  };
  char line[256];
  for (int s = 0; s < 3; ++s) {
    snprintf(line, sizeof(line),
             "property store of %4d: get %.0f ns (cpu %.0f ns, unordered_map %.0f ns), set %.1f us "
             "(cpu %.1f us)",
             sizes[s], med(s, &PropTimes::get_real_ns), med(s, &PropTimes::get_cpu_ns),
             med(s, &PropTimes::map_cpu_ns), med(s, &PropTimes::set_real_ns) / 1000,
             med(s, &PropTimes::set_cpu_ns) / 1000);
    lines->push_back(line);
  }
  // The look-up itself is a hash-map look-up: what grows from 10 to 1000 entries is the memory
  // the look-ups walk (caches), which a bare std::unordered_map shows as well. The target is on
  // property_get's growth over the bare map's growth.
  const double get_growth = med(2, &PropTimes::get_cpu_ns) / med(0, &PropTimes::get_cpu_ns);
  const double map_growth = med(2, &PropTimes::map_cpu_ns) / med(0, &PropTimes::map_cpu_ns);
  snprintf(line, sizeof(line),
           "ratio property_get 1000 / 10 properties, 1 thread(s): real %.2f, cpu %.2f",
           med(2, &PropTimes::get_real_ns) / med(0, &PropTimes::get_real_ns), get_growth);
  lines->push_back(line);
  snprintf(line, sizeof(line),
           "ratio unordered_map look-up 1000 / 10 entries, 1 thread(s): real %.2f, cpu %.2f",
           map_growth, map_growth);
  lines->push_back(line);
  snprintf(line, sizeof(line),
           "ratio property_get growth / unordered_map growth, 1 thread(s): real %.2f, cpu %.2f "
           "(target <= 1.2 on cpu)",
           get_growth / map_growth, get_growth / map_growth);
  lines->push_back(line);
  snprintf(line, sizeof(line),
           "ratio property_set 1000 / 10 properties, 1 thread(s): real %.2f, cpu %.2f",
           med(2, &PropTimes::set_real_ns) / med(0, &PropTimes::set_real_ns),
           med(2, &PropTimes::set_cpu_ns) / med(0, &PropTimes::set_cpu_ns));
  lines->push_back(line);
  snprintf(line, sizeof(line), "property_set slope: %.2f us real, %.2f us cpu per stored property",
           (med(2, &PropTimes::set_real_ns) - med(0, &PropTimes::set_real_ns)) / 990 / 1000,
           (med(2, &PropTimes::set_cpu_ns) - med(0, &PropTimes::set_cpu_ns)) / 990 / 1000);
  lines->push_back(line);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<std::string> store_lines;
  const bool store_ok = PropertyStoreGrowth(&store_lines);
  tarvik_bench::SilenceLibraryLogging();
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  if (qmi_client_host_select_transport("inproc") != QMI_NO_ERR) return 1;
  return tarvik_bench::RunWithRatios(argc, argv, [&](const tarvik_bench::RatioReporter &r) {
    r.PrintRatio("BM_BlacklistEnters391To400", "BM_BlacklistEnters1To10", 1.2);
    r.PrintRatio("BM_EfsWrite102410", "BM_EfsWrite10241", 12);
    r.PrintRatio("BM_EfsRead102410", "BM_EfsRead10241", 12);
    if (!store_ok) printf("ERROR OCCURRED: the property store children failed\n");
    for (const std::string &l : store_lines) printf("%s\n", l.c_str());
  });
}
