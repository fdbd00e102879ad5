// property_get on a store that has not changed since the last read, against the floor of any
// property read: a lookup in an in-memory std::unordered_map plus the copy into the caller's
// buffer. Ratio printed at the end (no target: measured for scale, on CPU time):
// BM_PropertyGetUnchanged / BM_UnorderedMapLookup.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench_ratio.h"
#include "cutils/properties.h"

namespace {

constexpr int kProperties = 64;

std::string Name(int i) {
  return "persist.vendor.radio.bench_" + std::to_string(i);
}
std::string Value(int i) {
  return "value-" + std::to_string(i * 7919);
}

// A store of its own for the run, removed at exit.
struct BenchStore {
  std::string dir;
  BenchStore() {
    char templ[] = "/tmp/tarvik-bench-props-XXXXXX";
    if (mkdtemp(templ) != nullptr) {
      dir = templ;
      setenv("TARVIK_PROPERTY_DIR", templ, 1);
    }
  }
  ~BenchStore() {
    std::error_code ec;
    if (!dir.empty()) {
      std::filesystem::remove_all(dir, ec);
    }
  }
};

const std::vector<std::string> &Names() {
  static BenchStore store;
  static const std::vector<std::string> names = [] {
    std::vector<std::string> out;
    for (int i = 0; i < kProperties; ++i) {
      out.push_back(Name(i));
      property_set(out.back().c_str(), Value(i).c_str());
    }
    return out;
  }();
  return names;
}

void BM_PropertyGetUnchanged(benchmark::State &state) {
  const auto &names = Names();
  char value[PROPERTY_VALUE_MAX + 1];
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(property_get(names[i].c_str(), value, "dflt"));
    benchmark::ClobberMemory();
    i = (i + 1) % names.size();
  }
  if (strcmp(value, "") == 0) {
    state.SkipWithError("property store not readable");
  }
}
BENCHMARK(BM_PropertyGetUnchanged);

void BM_UnorderedMapLookup(benchmark::State &state) {
  const auto &names = Names();
  std::unordered_map<std::string, std::string> map;
  for (int i = 0; i < kProperties; ++i) {
    map.emplace(Name(i), Value(i));
  }
  char value[PROPERTY_VALUE_MAX + 1];
  size_t i = 0;
  for (auto _ : state) {
    const auto it = map.find(names[i]);
    const std::string &found = it != map.end() ? it->second : std::string();
    memcpy(value, found.c_str(), found.size() + 1);
    benchmark::DoNotOptimize(value);
    benchmark::ClobberMemory();
    i = (i + 1) % names.size();
  }
}
BENCHMARK(BM_UnorderedMapLookup);

}  // namespace

int main(int argc, char **argv) {
  return tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &r) {
    r.PrintRatio("BM_PropertyGetUnchanged", "BM_UnorderedMapLookup", 0, 1,
                 tarvik_bench::RatioReporter::Judged::kCpu);
  });
}
