// The vendor channel: the one client of the extend service, its lock, lazy open, close and
// forced reconnect; synchronous requests with their retry policy and watchdog; event
// registration and the routing of indications.
#include "tarvik_extend_api.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <string.h>
#include <time.h>

#include <atomic>
#include <vector>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TARVIK_TSAN 1
#endif
#elif defined(__SANITIZE_THREAD__)
#define TARVIK_TSAN 1
#endif
#ifdef TARVIK_TSAN
#include <sanitizer/tsan_interface.h>
#endif

#include "qmi_client.h"
#include "tarvik_extend_qmi_v01.h"
#include "tarvik_std_client.h"
#include "tarvik_utils_cmn.h"
#include "tarvik_utils_timer.h"

// The channel lock. Plain default mutex: the open and close steps never take it themselves.
pthread_mutex_t tarvik_extend_qmi_client_crit_sect = PTHREAD_MUTEX_INITIALIZER;
// Set outside the lock by whichever thread comes first, hence atomic.
std::atomic<bool> g_tarvik_qmi_lock_init{false};

extern "C" {
uint32_t g_tarvik_extend_debug_flag = 1;
}

namespace {

constexpr uint32_t kDefaultTimeoutMs = 3000;
// The retry after a reconnect waits this long, whatever the first send waited.
constexpr uint32_t kRetryTimeoutMs = kDefaultTimeoutMs;
constexpr uint32_t kWatchdogTimerId = 1;
constexpr unsigned long kWatchdogSeconds = 5;
constexpr int kDiscoveryAttempts = 50;
constexpr unsigned int kDiscoveryWaitMs = 20;
constexpr unsigned int kServiceEntries = 4;
constexpr int kEventSlots = 8;

// What the client library may take to create the client once a server is listed.
constexpr int64_t kClientCreateMs = 1000;
// Longest the open step may legitimately take: every discovery attempt waits, then the client
// is created.
constexpr int64_t kOpenBudgetMs = int64_t{kDiscoveryAttempts} * kDiscoveryWaitMs + kClientCreateMs;
// Worst-case hold of the lock by a request whose first send waits `msec`: an open, the send, the
// close and reopen after a failure other than a time-out, and the retry.
constexpr int64_t HoldBudgetMs(int64_t msec) {
  return 2 * kOpenBudgetMs + msec + kRetryTimeoutMs;
}
static_assert(HoldBudgetMs(kDefaultTimeoutMs) > 2 * int64_t{kDiscoveryAttempts} * kDiscoveryWaitMs +
                                                    kDefaultTimeoutMs + kRetryTimeoutMs,
              "a request's budget outlasts its two discovery loops and its two sends");
// How long a waiter keeps waiting after the holder's budget is spent before it gives up.
constexpr int64_t kHoldGraceMs = 1000;

// Everything the channel keeps, in one place; touched only with the channel lock held (the
// indication thread reads none of it).
struct Channel {
  bool inited = false;
  qmi_client_type client_handle = nullptr;
  qmi_client_type notifier = nullptr;
  qmi_cci_os_signal_type os_params;
  qmi_idl_service_object_type service_object = nullptr;
  // Records of the generic request (0x02) and of the registration request (0x03); the open
  // step zeroes them.
  tarvik_extend_qmi_req_msg_v01 req;
  tarvik_extend_qmi_resp_msg_v01 resp;
  tarvik_extend_qmi_req_msg_v01 reg_req;
  tarvik_extend_qmi_resp_msg_v01 reg_resp;
  // The request a retry sends, copied before the reopen zeroes the records above: a retry never
  // sends from a record the reopen cleared, whichever record the caller's request was.
  std::vector<uint8_t> retry_req;
};
Channel g_channel;

// Read by the indication thread without the channel lock, hence atomic.
std::atomic<tarvik_extend_qmi_ind_handler_t> g_event_handlers[kEventSlots];
std::atomic<tarvik_extend_qmi_ind_handler_t> g_self_study_cb{nullptr};
std::atomic<tarvik_extend_qmi_ind_handler_t> g_wechat_cb{nullptr};
std::atomic<tarvik_extend_qmi_ind_handler_t> g_base_model_cb{nullptr};

// Monotonic deadline (ns) by which the current holder of the channel lock will have released
// it; 0 while the lock is free or its new holder has not published yet.
std::atomic<int64_t> g_hold_deadline_ns{0};

bool TraceOn() {
  return __atomic_load_n(&g_tarvik_extend_debug_flag, __ATOMIC_RELAXED) != 0;
}

int64_t NowNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

timespec ToTimespec(int64_t ns) {
  timespec ts;
  ts.tv_sec = static_cast<time_t>(ns / 1000000000);
  ts.tv_nsec = static_cast<long>(ns % 1000000000);
  return ts;
}

// Waits for the channel lock until `abs` on the monotonic clock. ThreadSanitizer does not see
// pthread_mutex_clocklock (clang 14), so a build with it is told about the lock by hand; without
// that it would take the lock for free and flag its unlock.
int ClockLockUntil(const timespec &abs) {
#ifdef TARVIK_TSAN
  __tsan_mutex_pre_lock(&tarvik_extend_qmi_client_crit_sect, __tsan_mutex_try_lock);
#endif
  const int rc =
      pthread_mutex_clocklock(&tarvik_extend_qmi_client_crit_sect, CLOCK_MONOTONIC, &abs);
#ifdef TARVIK_TSAN
  __tsan_mutex_post_lock(
      &tarvik_extend_qmi_client_crit_sect,
      rc == 0 ? __tsan_mutex_try_lock : __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed, 0);
#endif
  return rc;
}

// Takes the channel lock. Waits as long as the holder is within its published budget (plus a
// grace period), however many holders come and go; gives up only when one holder overstays,
// so no caller waits forever behind a hung request. On success publishes this caller's budget.
bool ChannelLock(int64_t budget_ms) {
  int rc = pthread_mutex_trylock(&tarvik_extend_qmi_client_crit_sect);
  while (rc != 0) {
    const int64_t holder_deadline = g_hold_deadline_ns.load(std::memory_order_acquire);
    // Unknown deadline: the holder is between taking the lock and publishing; look again soon.
    const int64_t wait_until =
        (holder_deadline == 0 ? NowNs() : holder_deadline) + kHoldGraceMs * 1000000;
    const timespec abs = ToTimespec(wait_until);
    rc = ClockLockUntil(abs);
    if (rc == ETIMEDOUT && holder_deadline != 0 &&
        g_hold_deadline_ns.load(std::memory_order_acquire) == holder_deadline) {
      return false;
    }
  }
  g_hold_deadline_ns.store(NowNs() + budget_ms * 1000000, std::memory_order_release);
  return true;
}

void ChannelUnlock() {
  g_hold_deadline_ns.store(0, std::memory_order_release);
  pthread_mutex_unlock(&tarvik_extend_qmi_client_crit_sect);
}

}  // namespace

// Lines written only while g_tarvik_extend_debug_flag is set; the _FN form for a step shared by
// several exported functions names the one `func` it runs for.
#define TARVIK_EXTEND_TRACE(fmt, ...)  \
  do {                                 \
    if (TraceOn()) {                   \
      TARVIK_LOGD(fmt, ##__VA_ARGS__); \
    }                                  \
  } while (0)
#define TARVIK_EXTEND_TRACE_FN(func, fmt, ...)  \
  do {                                          \
    if (TraceOn()) {                            \
      TARVIK_LOGD_FN(func, fmt, ##__VA_ARGS__); \
    }                                           \
  } while (0)

namespace {

// Lock and unlock with the lines every channel function writes around its work, under the name
// of the exported function `func`. False when the caller gives up behind an overstaying holder.
bool LockFor(const char *func, int budget_ms) {
  TARVIK_LOGD_FN(func, "TARVIK_EXTEND_QMI_CLIENT_CRIT_SECT_LOCK_WAIT...");
  if (!ChannelLock(budget_ms)) {
    TARVIK_LOGE_FN(func, "channel held by a request past its deadline, not waiting behind it");
    return false;
  }
  TARVIK_LOGD_FN(func, "TARVIK_EXTEND_QMI_CLIENT_CRIT_SECT_LOCK_DONE");
  return true;
}

void UnlockFor(const char *func) {
  ChannelUnlock();
  TARVIK_LOGD_FN(func, "TARVIK_EXTEND_QMI_CLIENT_CRIT_SECT_UNLOCK_DONE");
}

}  // namespace

// A caller that gives up behind an overstaying holder returns `on_give_up`.
#define TARVIK_EXTEND_LOCK_OR_RETURN(budget_ms, on_give_up) \
  do {                                                      \
    if (!LockFor(__func__, (budget_ms))) {                  \
      return on_give_up;                                    \
    }                                                       \
  } while (0)

#define TARVIK_EXTEND_UNLOCK() UnlockFor(__func__)

extern "C" void tarvik_extend_qmi_ind_cb(qmi_client_type user_handle, unsigned int msg_id,
                                         void *ind_buf, unsigned int ind_buf_len,
                                         void *ind_cb_data);

// ---------------------------------------------------------------------------------------------
// Lifecycle
// ---------------------------------------------------------------------------------------------

static void tarvik_qmi_lock_init() {
  if (g_tarvik_qmi_lock_init.exchange(true)) {
    TARVIK_EXTEND_TRACE("done, do nothing");
    return;
  }
  TARVIK_EXTEND_TRACE("start, tarvik_extend_qmi_client_crit_sect = %d, g_tarvik_qmi_lock_init = %d",
                      0, 0);
  TARVIK_EXTEND_TRACE("end, tarvik_extend_qmi_client_crit_sect = %d", 0);
}

// The open step; the caller holds the channel lock.
static void tarvik_extend_qmi_init_do() {
  if (g_channel.inited) {
    TARVIK_EXTEND_TRACE("done, do nothing");
    return;
  }
  TARVIK_EXTEND_TRACE("start, inited = %d", g_channel.inited);
  memset(&g_channel.req, 0, sizeof(g_channel.req));
  memset(&g_channel.resp, 0, sizeof(g_channel.resp));
  memset(&g_channel.reg_req, 0, sizeof(g_channel.reg_req));
  memset(&g_channel.reg_resp, 0, sizeof(g_channel.reg_resp));
  // The previous notifier (if any) was released by the close step, so the signal may be reset.
  memset(&g_channel.os_params, 0, sizeof(g_channel.os_params));
  g_channel.service_object = nullptr;
  g_channel.client_handle = nullptr;
  g_channel.notifier = nullptr;

  g_channel.service_object = tarvik_extend_get_service_object_internal_v01(
      TARVIK_EXTEND_QMI_IDL_MAJOR_V01, TARVIK_EXTEND_QMI_IDL_MINOR_V01,
      TARVIK_EXTEND_QMI_IDL_TOOL_VERS_V01);
  if (g_channel.service_object == nullptr) {
    TARVIK_LOGE("QMI get service obj failed. Check .c and .h");
  }
  qmi_client_notifier_init(g_channel.service_object, &g_channel.os_params, &g_channel.notifier);

  const char *func = __func__;
  unsigned int num_services = tarvik_std::AwaitService(
      g_channel.service_object, &g_channel.os_params, kDiscoveryAttempts, kDiscoveryAttempts,
      kDiscoveryWaitMs, [func](qmi_client_error_type rc, unsigned int services, int retry_count) {
        TARVIK_EXTEND_TRACE_FN(func,
                               "qmi_client_get_service_list() returned %d num_services = %d "
                               "retry_count = %d",
                               rc, services, retry_count);
      });

  qmi_service_info entries[kServiceEntries];
  unsigned int num_entries = num_services;
  const qmi_client_error_type list_err = tarvik_std::ListServices(
      g_channel.service_object, entries, kServiceEntries, &num_entries, &num_services);
  TARVIK_EXTEND_TRACE("qmi_client_get_service_list, err = %d, num_entries = %d, num_services = %d",
                      list_err, num_entries, num_services);

  qmi_client_type handle = nullptr;
  const qmi_client_error_type init_err = qmi_client_init(
      &entries[0], g_channel.service_object, tarvik_extend_qmi_ind_cb, nullptr, nullptr, &handle);
  TARVIK_EXTEND_TRACE("qmi_client_init, err = %d, handle = %d, client_handle = %d", init_err,
                      handle != nullptr, g_channel.client_handle != nullptr);
  if (init_err != QMI_NO_ERR) {
    handle = nullptr;
    TARVIK_LOGE("%d QMI client init failed", init_err);
  } else {
    TARVIK_EXTEND_TRACE("QMI client inited");
  }

  g_channel.client_handle = handle;
  if (g_channel.client_handle == nullptr) {
    if (TraceOn()) {
      TARVIK_LOGE("tarvik_extend_qmi_client_open failed");
    }
    // Keep no notifier of a failed open: the next request starts over with a fresh one.
    if (g_channel.notifier != nullptr) {
      qmi_client_release(g_channel.notifier);
      g_channel.notifier = nullptr;
    }
    return;
  }
  g_channel.inited = true;
  TARVIK_EXTEND_TRACE("end, inited = %d", g_channel.inited);
}

// The close step; the caller holds the channel lock. Clears every event slot but `kept_slot`,
// the one a registration in progress has just filled (-1: none).
static void tarvik_extend_qmi_deinit_do(int kept_slot = -1) {
  if (!g_channel.inited) {
    TARVIK_EXTEND_TRACE("no init, do nothing");
    return;
  }
  TARVIK_EXTEND_TRACE("start, inited = %d", g_channel.inited);
  for (int slot = 0; slot < kEventSlots; ++slot) {
    if (slot != kept_slot) {
      g_event_handlers[slot].store(nullptr, std::memory_order_release);
    }
  }
  const qmi_client_error_type client_err = qmi_client_release(g_channel.client_handle);
  TARVIK_EXTEND_TRACE("qmi_client_release client_handle, err = %d", client_err);
  const qmi_client_error_type notifier_err = qmi_client_release(g_channel.notifier);
  TARVIK_EXTEND_TRACE("qmi_client_release notifier, err = %d", notifier_err);
  g_channel.client_handle = nullptr;
  g_channel.notifier = nullptr;
  g_channel.inited = false;
  TARVIK_EXTEND_TRACE("end, inited = %d", g_channel.inited);
}

extern "C" {

void tarvik_extend_qmi_init(void) {
  tarvik_qmi_lock_init();
  TARVIK_EXTEND_LOCK_OR_RETURN(kOpenBudgetMs, );
  tarvik_extend_qmi_init_do();
  TARVIK_EXTEND_UNLOCK();
}

void tarvik_extend_qmi_init_force(void) {
  tarvik_qmi_lock_init();
  TARVIK_EXTEND_LOCK_OR_RETURN(kOpenBudgetMs, );
  tarvik_extend_qmi_deinit_do();
  tarvik_extend_qmi_init_do();
  TARVIK_EXTEND_UNLOCK();
}

}  // extern "C"

// ---------------------------------------------------------------------------------------------
// Synchronous requests
// ---------------------------------------------------------------------------------------------

// The common send step; the caller holds the channel lock. At most two sends: a time-out is
// final, any other failure reconnects (forgetting the event handlers but `kept_slot`) and
// retries once.
static int tarvik_qmi_send_msg_sync(int msg_id, void *req, int req_len, void *resp, int resp_len,
                                    uint32_t msec, int kept_slot = -1) {
  // The argument checks in order; the first that fails is logged.
  const struct {
    bool bad;
    const char *text;
  } checks[] = {{req == nullptr, "req_msg is NULL"},
                {req_len < 1, "req_len can not <= 0"},
                {resp == nullptr, "rsp_msg is NULL"},
                {resp_len < 1, "rsp_len can not <= 0"},
                {msec == 0, "msec can not <= 0"}};
  for (const auto &check : checks) {
    if (check.bad) {
      TARVIK_LOGE("%s", check.text);
      return TARVIK_EXTEND_QMI_EINVAL;
    }
  }
  if (g_channel.client_handle == nullptr) {
    TARVIK_LOGE("client_handle is NULL");
    return TARVIK_EXTEND_QMI_ENOCLIENT;
  }
  qmi_client_error_type qmi_ret = qmi_client_send_msg_sync(
      g_channel.client_handle, static_cast<unsigned int>(msg_id), req,
      static_cast<unsigned int>(req_len), resp, static_cast<unsigned int>(resp_len), msec);
  TARVIK_LOGD("qmi_client_send_msg_sync, msg_id = %d, qmi_ret = %d", msg_id, qmi_ret);
  if (qmi_ret == QMI_NO_ERR) {
    return TARVIK_EXTEND_QMI_OK;
  }
  TARVIK_LOGE("send sync msg failed");
  TARVIK_LOGE("TARVIK_QMI_REQ_TIMEOUT_WITHOUT_REINIT is defined");
  TARVIK_LOGE("TARVIK_QMI_REQ_RETRY_FOR_NON_TIMEOUT_ERR is defined");
  if (qmi_ret == QMI_TIMEOUT_ERR) {
    TARVIK_LOGE(
        "TARVIK_QMI_REQ_RETRY_FOR_NON_TIMEOUT_ERR is not defined, will not reinit tarvik "
        "qmi");
    return TARVIK_EXTEND_QMI_EFAIL;
  }
  TARVIK_LOGE("non QMI_TIMEOUT_ERR, will reinit this qmi client and retry this qmi req");
  // The reopen zeroes the channel's static records, which `req` may be one of: the retry sends
  // a copy of the request taken before it.
  const auto *req_bytes = static_cast<const uint8_t *>(req);
  g_channel.retry_req.assign(req_bytes, req_bytes + req_len);
  tarvik_extend_qmi_deinit_do(kept_slot);
  tarvik_extend_qmi_init_do();
  if (g_channel.client_handle == nullptr) {
    TARVIK_LOGE("reinit client_handle is NULL");
    return TARVIK_EXTEND_QMI_ENOCLIENT;
  }
  qmi_ret = qmi_client_send_msg_sync(g_channel.client_handle, static_cast<unsigned int>(msg_id),
                                     g_channel.retry_req.data(), static_cast<unsigned int>(req_len),
                                     resp, static_cast<unsigned int>(resp_len), kDefaultTimeoutMs);
  TARVIK_LOGD("retry qmi_client_send_msg_sync, msg_id = %d, qmi_ret = %d", msg_id, qmi_ret);
  if (qmi_ret == QMI_NO_ERR) {
    return TARVIK_EXTEND_QMI_OK;
  }
  TARVIK_LOGE("retry to send sync msg failed");
  return TARVIK_EXTEND_QMI_EFAIL;
}

extern "C" void tarvik_qmi_timer_cb(union sigval sv) {
  const uint32_t timer_id = static_cast<uint32_t>(sv.sival_int);
  TARVIK_LOGE("The timer expired with ID %u", timer_id);
  tarvik_timer_stop(timer_id);
  TARVIK_LOGE("TARVIK_QMI_REQ_TIMEOUT_WITHOUT_REINIT is defined, will not reinit tarvik qmi");
}

// Argument checks of the generic request `func`: null buffers, then the 550-byte bounds.
static int tarvik_extend_qmi_check_data_args(const char *func, void *req_data, uint32_t req_len,
                                             const void *resp_data, const uint32_t *resp_len) {
  if (req_data == nullptr || resp_data == nullptr || resp_len == nullptr) {
    TARVIK_LOGE_FN(func, "%x,  put Invalid param",
                   static_cast<unsigned int>(reinterpret_cast<uintptr_t>(req_data)));
    return TARVIK_EXTEND_QMI_EINVAL;
  }
  if (req_len > TARVIK_EXTEND_QMI_MAX_PAYLOAD || *resp_len > TARVIK_EXTEND_QMI_MAX_PAYLOAD) {
    TARVIK_LOGE_FN(func, "put data_len %d > max %d", static_cast<int>(req_len),
                   static_cast<int>(TARVIK_EXTEND_QMI_MAX_PAYLOAD));
    return TARVIK_EXTEND_QMI_EINVAL;
  }
  return TARVIK_EXTEND_QMI_OK;
}

// The service's verdict on an exchanged request of the exported function `func`: a failed send
// keeps its status, a non-zero result field is -3.
static int tarvik_extend_qmi_verdict(const char *func, int sent, uint32_t result) {
  if (sent != TARVIK_EXTEND_QMI_OK) {
    TARVIK_LOGE_FN(func, "tarvik_qmi_send_msg_sync failed");
    return sent;
  }
  if (result != 0) {
    TARVIK_LOGE_FN(func, "%d QMI service framework error. Check client", static_cast<int>(result));
    return TARVIK_EXTEND_QMI_EFAIL;
  }
  return TARVIK_EXTEND_QMI_OK;
}

// Sends the event switch (message 0x03) for `event` with `len` data bytes; returns the send's
// status, the answer in the channel's registration response. A reconnect on the way keeps the slot
// `kept_slot`.
static int tarvik_extend_qmi_event_switch(uint32_t event, const uint8_t *data, uint32_t len,
                                          int kept_slot) {
  memset(&g_channel.reg_req, 0, sizeof(g_channel.reg_req));
  memset(&g_channel.reg_resp, 0, sizeof(g_channel.reg_resp));
  g_channel.reg_req.id = event;
  g_channel.reg_req.data_len = len;
  g_channel.reg_req.data_valid = 1;
  memcpy(g_channel.reg_req.data, data, len);
  return tarvik_qmi_send_msg_sync(TARVIK_EXTEND_QMI_EVENT_MSG_V01, &g_channel.reg_req,
                                  sizeof(g_channel.reg_req), &g_channel.reg_resp,
                                  sizeof(g_channel.reg_resp), kDefaultTimeoutMs, kept_slot);
}

// Exchanges message 0x02 with the checked arguments (lock held, client open) and copies the
// response payload out: at most the capacity, nothing when the response has no payload. Lines
// carry the name of the exported request function `func`.
static int tarvik_extend_qmi_exchange_data(const char *func, uint32_t id, const void *req_data,
                                           uint32_t req_len, void *resp_data, uint32_t *resp_len,
                                           uint32_t msec, bool watchdog) {
  memset(&g_channel.req, 0, sizeof(g_channel.req));
  memset(&g_channel.resp, 0, sizeof(g_channel.resp));
  g_channel.req.id = id;
  g_channel.req.data_len = req_len;
  g_channel.req.data_valid = 1;
  if (req_len > 0) {
    memcpy(g_channel.req.data, req_data, req_len);
  }
  if (watchdog) {
    tarvik_timer_start(kWatchdogTimerId, tarvik_qmi_timer_cb, kWatchdogSeconds);
  }
  const int sent = tarvik_qmi_send_msg_sync(TARVIK_EXTEND_QMI_GENERIC_MSG_V01, &g_channel.req,
                                            sizeof(g_channel.req), &g_channel.resp,
                                            sizeof(g_channel.resp), msec);
  TARVIK_LOGD_FN(func, "tarvik_qmi_send_msg_sync, id = %d, length = %d, result = %d",
                 static_cast<int>(id), static_cast<int>(req_len), sent);
  if (watchdog) {
    tarvik_timer_stop(kWatchdogTimerId);
  }
  const int verdict = tarvik_extend_qmi_verdict(func, sent, g_channel.resp.result);
  if (verdict != TARVIK_EXTEND_QMI_OK) {
    return verdict;
  }
  if (*resp_len >= g_channel.resp.data_len) {
    *resp_len = g_channel.resp.data_len;
  }
  if (g_channel.resp.data_valid) {
    memcpy(resp_data, g_channel.resp.data, *resp_len);
  } else {
    *resp_len = 0;
  }
  TARVIK_EXTEND_TRACE_FN(func, "resp_len:%d", static_cast<int>(*resp_len));
  return TARVIK_EXTEND_QMI_OK;
}

extern "C" {

int tarvik_extend_qmi_send_sync(uint32_t id, void *req_data, uint32_t req_len, void *resp_data,
                                uint32_t *resp_len) {
  TARVIK_EXTEND_LOCK_OR_RETURN(HoldBudgetMs(kDefaultTimeoutMs), TARVIK_EXTEND_QMI_EFAIL);
  tarvik_extend_qmi_init_do();
  int status;
  if (g_channel.client_handle == nullptr) {
    TARVIK_LOGE("client_handle is NULL");
    status = TARVIK_EXTEND_QMI_ENOCLIENT;
  } else {
    status = tarvik_extend_qmi_check_data_args(__func__, req_data, req_len, resp_data, resp_len);
    if (status == TARVIK_EXTEND_QMI_OK) {
      status = tarvik_extend_qmi_exchange_data(__func__, id, req_data, req_len, resp_data, resp_len,
                                               kDefaultTimeoutMs, true);
    }
  }
  TARVIK_EXTEND_TRACE("result: %d, id: %d", status, static_cast<int>(id));
  TARVIK_EXTEND_UNLOCK();
  return status;
}

int tarvik_extend_qmi_send_sync_long_process(uint32_t id, void *req_data, uint32_t req_len,
                                             void *resp_data, uint32_t *resp_len, int msec) {
  TARVIK_EXTEND_LOCK_OR_RETURN(HoldBudgetMs(msec > 0 ? msec : 0), TARVIK_EXTEND_QMI_EFAIL);
  tarvik_extend_qmi_init_do();
  int status = tarvik_extend_qmi_check_data_args(__func__, req_data, req_len, resp_data, resp_len);
  if (status == TARVIK_EXTEND_QMI_OK && g_channel.client_handle == nullptr) {
    TARVIK_LOGE("client_handle is NULL");
    status = TARVIK_EXTEND_QMI_ENOCLIENT;
  }
  if (status == TARVIK_EXTEND_QMI_OK) {
    // A negative time-out is refused by the send step like a zero one.
    status = tarvik_extend_qmi_exchange_data(__func__, id, req_data, req_len, resp_data, resp_len,
                                             msec > 0 ? static_cast<uint32_t>(msec) : 0, false);
  }
  TARVIK_EXTEND_TRACE("result: %d, id: %d", status, static_cast<int>(id));
  TARVIK_EXTEND_UNLOCK();
  return status;
}

}  // extern "C"

// The pass-through senders differ only in the function name `func` their lines carry.
static int tarvik_extend_qmi_passthrough(const char *func, int msg_id, void *req, int req_len,
                                         void *resp, int resp_len) {
  if (!LockFor(func, HoldBudgetMs(kDefaultTimeoutMs))) {
    return TARVIK_EXTEND_QMI_EFAIL;
  }
  tarvik_extend_qmi_init_do();
  int status;
  if (g_channel.client_handle == nullptr) {
    TARVIK_LOGE_FN(func, "client_handle is NULL");
    status = TARVIK_EXTEND_QMI_ENOCLIENT;
  } else {
    status = tarvik_qmi_send_msg_sync(msg_id, req, req_len, resp, resp_len, kDefaultTimeoutMs);
    TARVIK_LOGD_FN(func,
                   "tarvik_qmi_send_msg_sync, msg_id = %d, length = %d, res_len = %d, result = %d",
                   msg_id, req_len, resp_len, status);
    if (status != TARVIK_EXTEND_QMI_OK) {
      TARVIK_LOGE_FN(func, "tarvik_qmi_send_msg_sync failed");
    }
  }
  TARVIK_EXTEND_TRACE_FN(func, "result: %d, msg_id: %d", status, msg_id);
  UnlockFor(func);
  return status;
}

extern "C" {

int tarvik_extend_qmi_self_study_send_sync(uint32_t msg_id, void *req, uint32_t req_len, void *resp,
                                           uint32_t resp_len) {
  return tarvik_extend_qmi_passthrough(__func__, static_cast<int>(msg_id), req,
                                       static_cast<int>(req_len), resp, static_cast<int>(resp_len));
}

int tarvik_extend_qmi_wechat_send_sync(uint32_t msg_id, void *req, uint32_t req_len, void *resp,
                                       uint32_t resp_len) {
  return tarvik_extend_qmi_passthrough(__func__, static_cast<int>(msg_id), req,
                                       static_cast<int>(req_len), resp, static_cast<int>(resp_len));
}

int tarvik_extend_qmi_base_model_send_sync(int msg_id, void *req, int req_len, void *resp,
                                           int resp_len) {
  return tarvik_extend_qmi_passthrough(__func__, msg_id, req, req_len, resp, resp_len);
}

// ---------------------------------------------------------------------------------------------
// Registration and indications
// ---------------------------------------------------------------------------------------------

int tarvik_extend_qmi_register(int event, tarvik_extend_qmi_ind_handler_t handler,
                               uint32_t ind_flag) {
  TARVIK_EXTEND_LOCK_OR_RETURN(HoldBudgetMs(kDefaultTimeoutMs), TARVIK_EXTEND_QMI_EFAIL);
  tarvik_extend_qmi_init_do();
  int status = TARVIK_EXTEND_QMI_OK;
  if (event < 0 || event > TARVIK_EXTEND_QMI_MAX_EVENT) {
    TARVIK_LOGE("event is invalid, event = %d", event);
    status = TARVIK_EXTEND_QMI_EINVAL;
  } else if (g_event_handlers[event].load(std::memory_order_acquire) != nullptr) {
    status = TARVIK_EXTEND_QMI_EREGISTERED;
  } else {
    // Installed before asking the modem, and kept whatever the modem says: also through the
    // reconnect of a retried send, whose close clears only the other slots.
    g_event_handlers[event].store(handler, std::memory_order_release);
    if (g_channel.client_handle == nullptr) {
      TARVIK_LOGE("client_handle is NULL");
      status = TARVIK_EXTEND_QMI_ENOCLIENT;
    } else {
      const uint8_t on[] = {1, static_cast<uint8_t>(ind_flag != 0 ? 1 : 0)};
      const int sent = tarvik_extend_qmi_event_switch(static_cast<uint32_t>(event), on, 2, event);
      TARVIK_LOGD("tarvik_qmi_send_msg_sync, event = %d, ind_flag = %d, result = %d", event,
                  static_cast<int>(ind_flag), sent);
      status = tarvik_extend_qmi_verdict(__func__, sent, g_channel.reg_resp.result);
    }
  }
  TARVIK_EXTEND_TRACE("result: %d, event: %d, ind_flag: %d", status, event,
                      static_cast<int>(ind_flag));
  TARVIK_EXTEND_UNLOCK();
  return status;
}

int tarvik_extend_qmi_deregister(uint32_t event) {
  TARVIK_EXTEND_LOCK_OR_RETURN(HoldBudgetMs(kDefaultTimeoutMs), TARVIK_EXTEND_QMI_EFAIL);
  tarvik_extend_qmi_init_do();
  int status = TARVIK_EXTEND_QMI_OK;
  if (!g_channel.inited) {
    TARVIK_EXTEND_TRACE("no init, do nothing");
    status = TARVIK_EXTEND_QMI_ENOTOPEN;
  } else if (event > static_cast<uint32_t>(TARVIK_EXTEND_QMI_MAX_EVENT)) {
    TARVIK_LOGE("event is invalid, event = %d", static_cast<int>(event));
    status = TARVIK_EXTEND_QMI_EINVAL;
  } else if (g_channel.client_handle == nullptr) {
    TARVIK_LOGE("client_handle is NULL");
    status = TARVIK_EXTEND_QMI_ENOCLIENT;
  } else {
    const uint8_t off[] = {0};
    const int sent = tarvik_extend_qmi_event_switch(event, off, 1, -1);
    TARVIK_LOGD("tarvik_qmi_send_msg_sync, event = %d, result = %d", static_cast<int>(event), sent);
    status = tarvik_extend_qmi_verdict(__func__, sent, g_channel.reg_resp.result);
    if (status == TARVIK_EXTEND_QMI_OK) {
      g_event_handlers[event].store(nullptr, std::memory_order_release);
    }
  }
  TARVIK_EXTEND_TRACE("result: %d, event: %d", status, static_cast<int>(event));
  TARVIK_EXTEND_UNLOCK();
  return status;
}

int tarvik_extend_qmi_self_study_register(tarvik_extend_qmi_ind_handler_t cb) {
  g_self_study_cb.store(cb, std::memory_order_release);
  return 1;
}

int tarvik_extend_qmi_wechat_register(tarvik_extend_qmi_ind_handler_t cb) {
  g_wechat_cb.store(cb, std::memory_order_release);
  return cb != nullptr;
}

bool tarvik_extend_qmi_base_model_register(tarvik_extend_qmi_ind_handler_t cb) {
  g_base_model_cb.store(cb, std::memory_order_release);
  return cb != nullptr;
}

}  // extern "C"

namespace {

// Where each indication other than the generic event goes, and the size of its record.
struct IndRoute {
  unsigned int msg_id;
  unsigned int record_size;
  std::atomic<tarvik_extend_qmi_ind_handler_t> *callback;
};

const IndRoute kIndRoutes[] = {
    {TARVIK_EXTEND_QMI_SELF_STUDY_TABLE_IND_V01,
     sizeof(tarvik_extend_qmi_self_study_table_ind_msg_v01), &g_self_study_cb},
    {TARVIK_EXTEND_QMI_SELF_STUDY_GROUP_IND_V01,
     sizeof(tarvik_extend_qmi_self_study_group_ind_msg_v01), &g_self_study_cb},
    {TARVIK_EXTEND_QMI_SELF_STUDY_STATE_IND_V01, sizeof(tarvik_extend_qmi_pair_msg_v01),
     &g_self_study_cb},
    {TARVIK_EXTEND_QMI_SELF_STUDY_ENTRY_IND_V01,
     sizeof(tarvik_extend_qmi_self_study_entry_ind_msg_v01), &g_self_study_cb},
    {TARVIK_EXTEND_QMI_SELF_STUDY_HISTORY_IND_V01,
     sizeof(tarvik_extend_qmi_self_study_history_ind_msg_v01), &g_self_study_cb},
    {TARVIK_EXTEND_QMI_SELF_STUDY_COUNTERS_IND_V01,
     sizeof(tarvik_extend_qmi_self_study_counters_ind_msg_v01), &g_self_study_cb},
    {TARVIK_EXTEND_QMI_WECHAT_IND_V01, sizeof(tarvik_extend_qmi_wechat_ind_msg_v01), &g_wechat_cb},
    {TARVIK_EXTEND_QMI_BASE_MODEL_REASON_IND_V01,
     sizeof(tarvik_extend_qmi_base_model_reason_ind_msg_v01), &g_base_model_cb},
    {TARVIK_EXTEND_QMI_BASE_MODEL_SCENE_MSG_V01, sizeof(tarvik_extend_qmi_base_model_scene_msg_v01),
     &g_base_model_cb},
};

// Big enough and aligned for every indication record.
union IndRecord {
  tarvik_extend_qmi_ind_msg_v01 event;
  tarvik_extend_qmi_self_study_table_ind_msg_v01 table;
  tarvik_extend_qmi_self_study_group_ind_msg_v01 group;
  tarvik_extend_qmi_self_study_history_ind_msg_v01 history;
};

}  // namespace

extern "C" void tarvik_extend_qmi_ind_cb(qmi_client_type user_handle, unsigned int msg_id,
                                         void *ind_buf, unsigned int ind_buf_len,
                                         void * /*ind_cb_data*/) {
  IndRecord record;
  if (msg_id == TARVIK_EXTEND_QMI_EVENT_MSG_V01) {
    memset(&record.event, 0, sizeof(record.event));
    if (qmi_client_message_decode(user_handle, QMI_IDL_INDICATION, msg_id, ind_buf, ind_buf_len,
                                  &record.event, sizeof(record.event)) != QMI_NO_ERR) {
      return;
    }
    const uint32_t ind = record.event.ind;
    TARVIK_EXTEND_TRACE("msg_id: 0x%x, buf_len: %d, ind.ind: %d", msg_id,
                        static_cast<int>(ind_buf_len), static_cast<int>(ind));
    if (ind >= static_cast<uint32_t>(kEventSlots)) {
      TARVIK_EXTEND_TRACE("Indicaion: %d greater than maximum known indication.",
                          static_cast<int>(ind));
      return;
    }
    const tarvik_extend_qmi_ind_handler_t handler =
        g_event_handlers[ind].load(std::memory_order_acquire);
    if (handler == nullptr) {
      TARVIK_EXTEND_TRACE("No function defined to handle indication: %d", static_cast<int>(ind));
      return;
    }
    // The decoder never sets data_len beyond what the sender claimed; bound it by the array.
    const uint32_t len = record.event.data_valid ? record.event.data_len : 0;
    handler(static_cast<int>(ind), record.event.data,
            static_cast<int>(
                len < TARVIK_EXTEND_QMI_DATA_MAX_V01 ? len : TARVIK_EXTEND_QMI_DATA_MAX_V01));
    return;
  }
  for (const IndRoute &route : kIndRoutes) {
    if (route.msg_id != msg_id) {
      continue;
    }
    memset(&record, 0, route.record_size);
    if (qmi_client_message_decode(user_handle, QMI_IDL_INDICATION, msg_id, ind_buf, ind_buf_len,
                                  &record, route.record_size) != QMI_NO_ERR) {
      return;
    }
    const tarvik_extend_qmi_ind_handler_t cb = route.callback->load(std::memory_order_acquire);
    if (cb != nullptr) {
      cb(static_cast<int>(msg_id), &record, static_cast<int>(route.record_size));
    }
    return;
  }
}
