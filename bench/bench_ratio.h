// A console reporter that also keeps each benchmark's time per iteration, so that a program
// can print "ratio A / B" lines against a baseline measured in the same run. For stable ratios
// on a busy machine run with --benchmark_repetitions=5 --benchmark_enable_random_interleaving.
#pragma once

#include <benchmark/benchmark.h>
#include <stdio.h>

#include <map>
#include <string>
#include <vector>

namespace tarvik_bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &r : runs) {
      if (r.run_type == Run::RT_Iteration && !r.error_occurred) {
        // With --benchmark_repetitions the fastest repetition counts: on a shared machine the
        // slower ones measure the neighbours.
        auto it = ns_.find(r.run_name.function_name);
        const double t = r.GetAdjustedRealTime();
        if (it == ns_.end() || t < it->second) ns_[r.run_name.function_name] = t;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Prints nothing when either benchmark did not run (filtered out or failed).
  void PrintRatio(const char *what, const char *base, double target) const {
    const auto a = ns_.find(what), b = ns_.find(base);
    if (a == ns_.end() || b == ns_.end() || b->second <= 0) return;
    printf("ratio %s / %s = %.2f (target <= %.1f)\n", what, base, a->second / b->second, target);
  }

 private:
  std::map<std::string, double> ns_;
};

}  // namespace tarvik_bench
