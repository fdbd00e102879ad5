// Timers: firing, ids (caller's and automatic), stopping from outside and from the callback,
// clearing the list, and starts from several threads. Waits are generous condition-variable
// waits for things that must happen; system timers are counted in /proc/self/timers rather than
// by waiting for something not to happen. FiringTimers are the cases whose timers fire.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "syslog_capture.h"
#include "tarvik_utils_timer.h"

namespace {
std::atomic<int> g_failing_creates{0};  // the next this many timer_create calls fail
}  // namespace

// The program's timer_create takes the platform's place (ELF interposition, like the system-log
// capture), so that a test can make system timer creation fail.
extern "C" int timer_create(clockid_t clock, struct sigevent *sev, timer_t *timer) noexcept {
  using Fn = int (*)(clockid_t, struct sigevent *, timer_t *);
  static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "timer_create"));
  int left = g_failing_creates.load();
  while (left > 0 && !g_failing_creates.compare_exchange_weak(left, left - 1)) {
  }
  if (left > 0) {
    errno = EAGAIN;
    return -1;
  }
  return real(clock, sev, timer);
}

namespace {

using tarvik_test::SyslogContains;
using tarvik_test::SyslogCount;

std::mutex g_mutex;
std::condition_variable g_cv;
std::vector<int> g_fired;              // ids, in the order the callbacks ran
std::vector<bool> g_self_stop_result;  // what a callback's stop of its own id returned

void Record(union sigval value) {
  std::lock_guard<std::mutex> hold(g_mutex);
  g_fired.push_back(value.sival_int);
  g_cv.notify_all();
}

void StopSelf(union sigval value) {
  const bool stopped = tarvik_timer_stop(static_cast<uint32_t>(value.sival_int));
  std::lock_guard<std::mutex> hold(g_mutex);
  g_self_stop_result.push_back(stopped);
  g_fired.push_back(value.sival_int);
  g_cv.notify_all();
}

bool WaitFired(int id) {
  std::unique_lock<std::mutex> hold(g_mutex);
  return g_cv.wait_for(hold, std::chrono::seconds(20), [id] {
    return std::find(g_fired.begin(), g_fired.end(), id) != g_fired.end();
  });
}

// POSIX timers that exist in this process.
int SystemTimers() {
  std::ifstream in("/proc/self/timers");
  int n = 0;
  for (std::string line; std::getline(in, line);) n += line.rfind("ID:", 0) == 0;
  return n;
}

TEST(Timers, StartWithCallerIdRefusesNullCallbackRunningIdAndFailedCreate) {
  EXPECT_FALSE(tarvik_timer_start(3, nullptr, 5));
  EXPECT_TRUE(SyslogContains("callback is NULL, timer_id = 3, timeout_s = 5", 3));
  EXPECT_TRUE(SyslogContains("ret = 21, timeout_s = 5, timer_id = 3", 7));

  ASSERT_TRUE(tarvik_timer_start(1, Record, 3600));
  EXPECT_FALSE(tarvik_timer_start(1, Record, 3600));
  EXPECT_TRUE(SyslogContains("This timer is active, pls stop it before start it, timer_id = 1", 3));
  EXPECT_TRUE(SyslogContains("timer_id = 1, is_active = 1", 7));
  EXPECT_EQ(SystemTimers(), 1) << "a refused start must not create a system timer";
  EXPECT_TRUE(tarvik_timer_stop(1));

  g_failing_creates = 1;
  EXPECT_FALSE(tarvik_timer_start(2, Record, 3600));
  EXPECT_TRUE(SyslogContains("fail to timer_create, timer_id = 2, timeout_s = 3600", 3));
  EXPECT_TRUE(SyslogContains("ret = 30, timeout_s = 3600, timer_id = 2", 7));
  EXPECT_FALSE(tarvik_timer_stop(2)) << "a failed start must leave nothing listed";
  EXPECT_TRUE(SyslogContains("Not find the timer_callback, timer_id = 2", 3));
  EXPECT_EQ(SystemTimers(), 0);
}

TEST(FiringTimers, AutomaticIdsStartAt501AndCallbacksMayStopTheirOwnTimer) {
  EXPECT_EQ(tarvik_timer_start(Record, 3600), 501u);
  EXPECT_EQ(tarvik_timer_start(Record, 3600), 502u);
  g_failing_creates = 1;
  EXPECT_EQ(tarvik_timer_start(Record, 3600), 0u);  // a failed start uses up its id
  EXPECT_TRUE(SyslogContains("tarvik_sys_timer_create failed", 3));
  EXPECT_EQ(tarvik_timer_start(Record, 3600), 504u);
  // A null callback is refused before an id is taken.
  EXPECT_EQ(tarvik_timer_start(nullptr, 3600), 0u);
  EXPECT_TRUE(SyslogContains("callback is NULL, timeout_s = 3600", 3));
  // Self-stopping timers, with the caller's id and an automatic one.
  ASSERT_TRUE(tarvik_timer_start(9, StopSelf, 0));
  ASSERT_EQ(tarvik_timer_start(StopSelf, 0), 505u);
  ASSERT_TRUE(WaitFired(9));
  ASSERT_TRUE(WaitFired(505));
  {
    std::lock_guard<std::mutex> hold(g_mutex);
    EXPECT_EQ(g_self_stop_result, (std::vector<bool>{true, true}));
  }
  EXPECT_EQ(SystemTimers(), 3);
  for (uint32_t id : {501u, 502u, 504u}) EXPECT_TRUE(tarvik_timer_stop(id)) << id;
  for (uint32_t id : {503u, 505u, 9u}) EXPECT_FALSE(tarvik_timer_stop(id)) << id;
  EXPECT_EQ(SystemTimers(), 0);
  EXPECT_TRUE(tarvik_timer_start(9, Record, 3600)) << "the id is free again";
  EXPECT_TRUE(tarvik_timer_stop(9));
}

TEST(Timers, StopUnlinksFromAnyPlaceInTheList) {
  const struct {
    const char *name;
    std::vector<uint32_t> order;
  } rows[] = {{"head first", {1, 2, 3}},
              {"tail first", {3, 2, 1}},
              {"middle first", {2, 1, 3}},
              {"middle then tail", {2, 3, 1}}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    for (uint32_t id : {1u, 2u, 3u}) ASSERT_TRUE(tarvik_timer_start(id, Record, 3600));
    for (uint32_t id : row.order) {
      EXPECT_TRUE(tarvik_timer_stop(id)) << id;
      EXPECT_FALSE(tarvik_timer_stop(id)) << id;
    }
    EXPECT_EQ(SystemTimers(), 0);
  }
}

TEST(FiringTimers, ClearForgetsEveryTimerThenAFiredTimerStaysListedUntilStopped) {
  ASSERT_TRUE(tarvik_timer_start(1, Record, 3600));
  ASSERT_TRUE(tarvik_timer_start(2, Record, 3600));
  ASSERT_EQ(tarvik_timer_start(Record, 3600), 501u);
  ASSERT_EQ(SystemTimers(), 3);
  tarvik_timer_clear_callback_list();
  EXPECT_EQ(SystemTimers(), 0);
  for (uint32_t id : {1u, 2u, 501u}) EXPECT_FALSE(tarvik_timer_stop(id)) << id;
  // The list works as before afterwards. A zero timeout fires at once.
  ASSERT_TRUE(tarvik_timer_start(1, Record, 0));
  ASSERT_TRUE(WaitFired(1));
  EXPECT_TRUE(SyslogContains("ret = 0, timeout_s = 0, timer_id = 1", 7));
  EXPECT_EQ(SystemTimers(), 1);
  // Fired, but still running as far as the list goes: the id cannot be started again.
  EXPECT_FALSE(tarvik_timer_start(1, Record, 0));
  EXPECT_TRUE(tarvik_timer_stop(1));
  EXPECT_EQ(SystemTimers(), 0);
  EXPECT_FALSE(tarvik_timer_stop(1));
  tarvik_timer_clear_callback_list();  // on an empty list
}

// How many POSIX timers this process can hold at once, up to `want`: a user-mode emulator keeps
// a small table of them (qemu-user: 32 per process).
int TimersAvailable(int want) {
  std::vector<timer_t> made;
  struct sigevent quiet = {};
  quiet.sigev_notify = SIGEV_NONE;
  timer_t timer;
  while (static_cast<int>(made.size()) < want &&
         timer_create(CLOCK_REALTIME, &quiet, &timer) == 0) {
    made.push_back(timer);
  }
  for (timer_t t : made) timer_delete(t);
  return static_cast<int>(made.size());
}

TEST(Timers, ConcurrentStartsGetDistinctIdsAndMutexesStartOnce) {
  constexpr int kThreads = 8;
  // Each thread holds its automatic timers and one of its own at once: 10 each where the system
  // has room, fewer under an emulator (but at least 2).
  const int room = TimersAvailable(kThreads * 10 + kThreads);
  const int each = std::min(10, room / kThreads - 1);
  if (each < 2) {
    GTEST_SKIP() << "this process can hold only " << room << " POSIX timers at once";
  }
  if (each < 10) {
    printf("%d POSIX timers at most in this process: %d starts per thread\n", room, each);
  }
  std::vector<std::vector<uint32_t>> ids(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, each, &ids] {
      for (int i = 0; i < each; ++i) {
        ids[t].push_back(tarvik_timer_start(Record, 3600));
        // Interleave caller-id starts and stops on the same list.
        const uint32_t own = static_cast<uint32_t>(10 + t);
        EXPECT_TRUE(tarvik_timer_start(own, Record, 3600));
        EXPECT_TRUE(tarvik_timer_stop(own));
      }
    });
  }
  for (auto &thread : threads) thread.join();
  std::set<uint32_t> all;
  for (const auto &v : ids) all.insert(v.begin(), v.end());
  ASSERT_EQ(all.size(), static_cast<size_t>(kThreads * each));
  EXPECT_EQ(*all.begin(), 501u);
  EXPECT_EQ(*all.rbegin(), 500u + kThreads * each);
  EXPECT_EQ(SystemTimers(), kThreads * each);
  for (uint32_t id : all) EXPECT_TRUE(tarvik_timer_stop(id));
  EXPECT_EQ(SystemTimers(), 0);
  EXPECT_EQ(SyslogCount("pthread_mutex_init for g_tarvik_timer_id_mutex, ret = 0"), 1u);
  EXPECT_EQ(SyslogCount("pthread_mutex_init for g_tarvik_timer_callback_list_mutex, ret = 0"), 1u);
}

}  // namespace
