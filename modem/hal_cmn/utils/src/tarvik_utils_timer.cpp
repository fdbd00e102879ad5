// One-shot timers over POSIX per-process timers that notify by thread. The running timers are
// kept in a doubly linked list, in the order of creation, so that they can be found by id.
// Lock order: the automatic-id mutex, then the list mutex; the list mutex is never held across a
// call that takes the id mutex.
#include "tarvik_utils_timer.h"

#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <time.h>

#include <atomic>
#include <limits>
#include <mutex>

#include "tarvik_utils_cmn.h"

namespace {

// Status codes of the start and stop steps, logged as "ret = %d".
enum TimerStatus : int {
  kTimerOk = 0,
  kTimerActive = 1,
  kTimerNoMemory = 15,
  kTimerNullCallback = 21,
  kTimerSysFailed = 30,
};

struct tcbinfo {
  uint32_t timer_id;
  timer_t sys_timerid;
  unsigned long timeout_s;
  tarvik_timer_callback_t callback;
  tcbinfo *next;
  tcbinfo *prev;
};

tcbinfo *g_tarvik_timer_callback_list = nullptr;
pthread_mutex_t g_tarvik_timer_callback_list_mutex;
pthread_mutex_t g_tarvik_timer_id_mutex;
uint32_t g_tarvik_timer_id = 500;  // last automatic id handed out

// Set once both mutexes are initialised; the guard makes a first use from two threads at once
// initialise them exactly once and lets neither use them before that.
std::atomic<bool> g_timer_mutexes_ready{false};
std::mutex g_timer_mutexes_init_guard;

void tarvik_timer_id_mutex_init() {
  if (g_timer_mutexes_ready.load(std::memory_order_acquire)) {
    return;
  }
  std::lock_guard<std::mutex> hold(g_timer_mutexes_init_guard);
  if (g_timer_mutexes_ready.load(std::memory_order_relaxed)) {
    return;
  }
  int ret = pthread_mutex_init(&g_tarvik_timer_id_mutex, nullptr);
  TARVIK_LOGD("pthread_mutex_init for g_tarvik_timer_id_mutex, ret = %d", ret);
  ret = pthread_mutex_init(&g_tarvik_timer_callback_list_mutex, nullptr);
  TARVIK_LOGD("pthread_mutex_init for g_tarvik_timer_callback_list_mutex, ret = %d", ret);
  g_timer_mutexes_ready.store(true, std::memory_order_release);
}

class ListLock {
 public:
  ListLock() {
    tarvik_timer_id_mutex_init();
    pthread_mutex_lock(&g_tarvik_timer_callback_list_mutex);
  }
  ~ListLock() { pthread_mutex_unlock(&g_tarvik_timer_callback_list_mutex); }
  ListLock(const ListLock &) = delete;
  ListLock &operator=(const ListLock &) = delete;
};

// timer_t is an opaque handle; the log lines show its low 32 bits.
unsigned SysTimerLogId(timer_t timer) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(timer));
}

int tarvik_sys_timer_create(tarvik_timer_callback_t callback, unsigned long timeout_s,
                            uint32_t timer_id, timer_t *out) {
  struct sigevent sev = {};
  sev.sigev_notify = SIGEV_THREAD;
  sev.sigev_value.sival_int = static_cast<int>(timer_id);
  sev.sigev_notify_function = callback;
  sev.sigev_notify_attributes = nullptr;
  timer_t timer;
  if (timer_create(CLOCK_REALTIME, &sev, &timer) != 0) {
    TARVIK_LOGE("fail to timer_create, timer_id = %u, timeout_s = %lu", timer_id, timeout_s);
    return kTimerSysFailed;
  }
  struct itimerspec expiry = {};
  // Seconds beyond what time_t holds (it may be narrower than unsigned long, or wider) are
  // refused by timer_settime like any invalid time.
  const bool fits = static_cast<uintmax_t>(timeout_s) <=
                    static_cast<uintmax_t>(std::numeric_limits<time_t>::max());
  expiry.it_value.tv_sec = fits ? static_cast<time_t>(timeout_s) : -1;
  expiry.it_value.tv_nsec = timeout_s == 0 ? 1 : 0;  // an all-zero expiry would disarm
  if (timer_settime(timer, 0, &expiry, nullptr) != 0) {
    TARVIK_LOGE("fail to timer_settime, sys_timerid = 0x%x, timeout_s = %lu", SysTimerLogId(timer),
                timeout_s);
    timer_delete(timer);  // not kept: nothing could ever stop it
    return kTimerSysFailed;
  }
  *out = timer;
  return kTimerOk;
}

int tarvik_sys_timer_clear(timer_t timer) {
  const struct itimerspec zero = {};
  if (timer_settime(timer, 0, &zero, nullptr) != 0) {
    TARVIK_LOGE("fail to timer_settime, sys_timerid = 0x%x", SysTimerLogId(timer));
  }
  const int ret = timer_delete(timer);
  if (ret < 0) {
    TARVIK_LOGE("fail to timer_delete, sys_timerid = 0x%x", SysTimerLogId(timer));
    return ret;
  }
  return kTimerOk;
}

// The first record with this id; the caller holds the list mutex.
tcbinfo *FindLocked(uint32_t timer_id) {
  for (tcbinfo *node = g_tarvik_timer_callback_list; node != nullptr; node = node->next) {
    if (node->timer_id == timer_id) {
      return node;
    }
  }
  return nullptr;
}

bool tarvik_timer_is_active(uint32_t timer_id) {
  bool is_active;
  {
    ListLock hold;
    is_active = FindLocked(timer_id) != nullptr;
  }
  TARVIK_LOGD("timer_id = %u, is_active = %d", timer_id, is_active ? 1 : 0);
  return is_active;
}

// Makes the system timer and files the record at the list's tail in one hold of the list mutex:
// a timer that fires at once runs a callback whose stop of its own id then waits for the record
// instead of missing it. With `unique`, a record of the same id filed by another thread since
// the caller's look-up makes the start fail as a running timer.
int MakeTimer(tcbinfo *record, uint32_t timer_id, tarvik_timer_callback_t callback,
              unsigned long timeout_s, bool unique) {
  ListLock hold;
  if (unique && FindLocked(timer_id) != nullptr) {
    return kTimerActive;
  }
  const int ret = tarvik_sys_timer_create(callback, timeout_s, timer_id, &record->sys_timerid);
  if (ret != kTimerOk) {
    return ret;
  }
  record->timer_id = timer_id;
  record->timeout_s = timeout_s;
  record->callback = callback;
  tcbinfo **link = &g_tarvik_timer_callback_list;
  while (*link != nullptr) {
    record->prev = *link;
    link = &(*link)->next;
  }
  *link = record;
  return kTimerOk;
}

int tarvik_timer_start_do(uint32_t timer_id, tarvik_timer_callback_t callback,
                          unsigned long timeout_s) {
  if (callback == nullptr) {
    TARVIK_LOGE("callback is NULL, timer_id = %d, timeout_s = %lu", static_cast<int>(timer_id),
                timeout_s);
    return kTimerNullCallback;
  }
  if (tarvik_timer_is_active(timer_id)) {
    TARVIK_LOGE("This timer is active, pls stop it before start it, timer_id = %d",
                static_cast<int>(timer_id));
    return kTimerActive;
  }
  auto *record = static_cast<tcbinfo *>(calloc(1, sizeof(tcbinfo)));
  if (record == nullptr) {
    TARVIK_LOGE("Failed to allocate memory for tcbinfo, timer_id = %d, timeout_s = %lu",
                static_cast<int>(timer_id), timeout_s);
    return kTimerNoMemory;
  }
  const int ret = MakeTimer(record, timer_id, callback, timeout_s, true);
  if (ret == kTimerActive) {
    TARVIK_LOGE("This timer is active, pls stop it before start it, timer_id = %d",
                static_cast<int>(timer_id));
  } else if (ret != kTimerOk) {
    TARVIK_LOGE("tarvik_sys_timer_create failed, timer_id = %d, timeout_s = %lu",
                static_cast<int>(timer_id), timeout_s);
  }
  if (ret != kTimerOk) {
    free(record);
  }
  return ret;
}

}  // namespace

TARVIK_EXPORT bool tarvik_timer_start(uint32_t timer_id, tarvik_timer_callback_t callback,
                                      unsigned long timeout_s) {
  const int ret = tarvik_timer_start_do(timer_id, callback, timeout_s);
  TARVIK_LOGD("ret = %d, timeout_s = %lu, timer_id = %d", ret, timeout_s,
              static_cast<int>(timer_id));
  return ret == kTimerOk;
}

TARVIK_EXPORT uint32_t tarvik_timer_start(tarvik_timer_callback_t callback,
                                          unsigned long timeout_s) {
  tarvik_timer_id_mutex_init();
  pthread_mutex_lock(&g_tarvik_timer_id_mutex);
  int ret = kTimerOk;
  uint32_t timer_id = 0;
  if (callback == nullptr) {
    TARVIK_LOGE("callback is NULL, timeout_s = %lu", timeout_s);
    ret = kTimerNullCallback;
  } else if (auto *record = static_cast<tcbinfo *>(calloc(1, sizeof(tcbinfo))); record == nullptr) {
    TARVIK_LOGE("Failed to allocate memory for tcbinfo, timeout_s = %lu", timeout_s);
    ret = kTimerNoMemory;
  } else {
    const uint32_t next_id = ++g_tarvik_timer_id;
    ret = MakeTimer(record, next_id, callback, timeout_s, false);
    if (ret == kTimerOk) {
      timer_id = next_id;
    } else {
      TARVIK_LOGE("tarvik_sys_timer_create failed");
      free(record);
    }
  }
  pthread_mutex_unlock(&g_tarvik_timer_id_mutex);
  TARVIK_LOGD("ret = %d, timeout_s = %lu, timer_id = %d", ret, timeout_s,
              static_cast<int>(timer_id));
  return timer_id;
}

extern "C" {

TARVIK_EXPORT bool tarvik_timer_stop(uint32_t timer_id) {
  tcbinfo *record = nullptr;
  {
    ListLock hold;
    record = FindLocked(timer_id);
    if (record != nullptr) {
      (record->prev != nullptr ? record->prev->next : g_tarvik_timer_callback_list) = record->next;
      if (record->next != nullptr) {
        record->next->prev = record->prev;
      }
      record->next = nullptr;
      record->prev = nullptr;
    }
  }
  if (record == nullptr) {
    TARVIK_LOGE("Not find the timer_callback, timer_id = %u", timer_id);
    return false;
  }
  const int ret = tarvik_sys_timer_clear(record->sys_timerid);
  TARVIK_LOGD("ret = %d, timeout_s = %lu, timer_id = %d", ret, record->timeout_s,
              static_cast<int>(record->timer_id));
  free(record);
  return true;
}

// Forgotten timers are disarmed and deleted as well as freed: one that fired later would run
// its callback for an owner that has already let go of it.
TARVIK_EXPORT void tarvik_timer_clear_callback_list(void) {
  tcbinfo *list;
  {
    ListLock hold;
    list = g_tarvik_timer_callback_list;
    g_tarvik_timer_callback_list = nullptr;
  }
  while (list != nullptr) {
    tcbinfo *next = list->next;
    tarvik_sys_timer_clear(list->sys_timerid);
    free(list);
    list = next;
  }
}

}  // extern "C"
