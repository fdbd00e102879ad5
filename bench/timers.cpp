// A timer start and stop through the library against the raw system calls it stands on:
// timer_create (notify by thread), timer_settime, a disarming timer_settime and timer_delete.
// Ratio printed at the end: BM_TarvikTimerStartStop / BM_RawPosixTimer. The timeout is an hour:
// nothing fires. The four system calls are nearly all of either side's cost, so the ratio shows
// what the id list, its locks and the record allocation add on top of them.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <time.h>

#include "bench_ratio.h"
#include "tarvik_utils_cmn.h"
#include "tarvik_utils_timer.h"

namespace {

void Never(union sigval) {}

void BM_TarvikTimerStartStop(benchmark::State &state) {
  // Logging would dominate both ways; measure the timers themselves.
  tarvik_hal_close_print();
  for (auto _ : state) {
    if (!tarvik_timer_start(1, Never, 3600) || !tarvik_timer_stop(1)) {
      state.SkipWithError("timer start or stop failed");
      break;
    }
  }
}
BENCHMARK(BM_TarvikTimerStartStop);

void BM_RawPosixTimer(benchmark::State &state) {
  for (auto _ : state) {
    struct sigevent sev = {};
    sev.sigev_notify = SIGEV_THREAD;
    sev.sigev_value.sival_int = 1;
    sev.sigev_notify_function = Never;
    timer_t timer;
    struct itimerspec expiry = {};
    expiry.it_value.tv_sec = 3600;
    if (timer_create(CLOCK_REALTIME, &sev, &timer) != 0 ||
        timer_settime(timer, 0, &expiry, nullptr) != 0) {
      state.SkipWithError("timer_create or timer_settime failed");
      break;
    }
    const struct itimerspec zero = {};
    timer_settime(timer, 0, &zero, nullptr);
    timer_delete(timer);
  }
}
BENCHMARK(BM_RawPosixTimer);

}  // namespace

int main(int argc, char **argv) {
  return tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &reporter) {
    reporter.PrintRatio("BM_TarvikTimerStartStop", "BM_RawPosixTimer", 1.3, 1,
                        tarvik_bench::RatioReporter::Judged::kCpu);
  });
}
