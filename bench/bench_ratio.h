// A console reporter that also keeps each benchmark's real and CPU time per iteration, keyed by
// benchmark and thread count, so that a program can print "ratio A / B" lines against a baseline
// measured in the same run. With --benchmark_repetitions the median of the repetitions counts
// (add --benchmark_enable_random_interleaving on a busy machine); without, the single run.
//
// Every program ends with its ratio lines, one form for all (bench/run_all.sh reads them):
//   ratio A / B, N thread(s): real R, cpu C (target <= T on real|cpu)
// A target is printed on the ratio it is set against, with the time it is judged on: CPU time
// for work done on the calling thread alone (the fairer measure on a shared machine, where
// other processes take the core away), real time for a round trip that hands work to another
// thread or process (whose CPU time the calling thread does not see).
#pragma once

#include <benchmark/benchmark.h>
#include <stdio.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tarvik_bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &r : runs) {
      if (r.error_occurred) continue;
      const Key key(r.run_name.function_name, r.threads);
      const Times times{r.GetAdjustedRealTime(), r.GetAdjustedCPUTime()};
      if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median") {
        median_[key] = times;
      } else if (r.run_type == Run::RT_Iteration) {
        single_[key] = times;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  enum class Judged { kReal, kCpu };

  // Prints nothing when either benchmark did not run (filtered out or failed). A target of 0
  // prints none.
  void PrintRatio(const char *what, const char *base, double target, int64_t threads = 1,
                  Judged judged = Judged::kReal) const {
    Times a, b;
    if (!Find(what, threads, &a) || !Find(base, threads, &b) || b.real <= 0 || b.cpu <= 0) return;
    printf("ratio %s / %s, %lld thread(s): real %.2f, cpu %.2f", what, base,
           static_cast<long long>(threads), a.real / b.real, a.cpu / b.cpu);
    if (target > 0) {
      printf(" (target <= %.1f on %s)", target, judged == Judged::kReal ? "real" : "cpu");
    }
    printf("\n");
  }

 private:
  using Key = std::pair<std::string, int64_t>;
  struct Times {
    double real = 0;
    double cpu = 0;
  };
  bool Find(const char *name, int64_t threads, Times *times) const {
    const Key key(name, threads);
    for (const auto *table : {&median_, &single_}) {
      const auto it = table->find(key);
      if (it != table->end()) {
        *times = it->second;
        return true;
      }
    }
    return false;
  }
  std::map<Key, Times> median_, single_;
};

// main() of a benchmark program: runs the benchmarks named on the command line with a
// RatioReporter, then lets `print_ratios(reporter)` print the program's ratio lines.
template <typename PrintRatios>
int RunWithRatios(int argc, char **argv, PrintRatios print_ratios) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  print_ratios(reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace tarvik_bench
