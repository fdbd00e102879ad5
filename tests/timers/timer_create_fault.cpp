#include "timer_create_fault.h"

#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <time.h>

#include <atomic>

namespace tarvik_test {
namespace {
std::atomic<int> g_failures{0};
}  // namespace

void FailNextTimerCreates(int count) {
  g_failures.store(count);
}

}  // namespace tarvik_test

extern "C" int timer_create(clockid_t clock, struct sigevent *sev, timer_t *timer) noexcept {
  using Fn = int (*)(clockid_t, struct sigevent *, timer_t *);
  static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "timer_create"));
  int left = tarvik_test::g_failures.load();
  while (left > 0 && !tarvik_test::g_failures.compare_exchange_weak(left, left - 1)) {
  }
  if (left > 0) {
    errno = EAGAIN;
    return -1;
  }
  return real(clock, sev, timer);
}
