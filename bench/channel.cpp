// The vendor channel's generic request against the raw round trip of the QMI client library
// stand-in: the same message 0x02 (the modem's loopback request id, a 64-byte payload) on the
// same in-process transport, sent by 1 and 4 threads. The channel adds its lock, lazy-open
// check, record copies and the watchdog timer start/stop; logging is switched off for both
// (print masks 0, trace flag 0), as a device does with its log properties.
//
// Ratios printed at the end, per thread count (medians when run with repetitions):
// - BM_ChannelSendSync / BM_RawSendWithRawTimer (target <= 1.3): the channel against its floor,
//   the cheapest request that still does what every request of the channel must: a POSIX
//   thread-notifying timer around the round trip (timer_create, timer_settime, a disarming
//   timer_settime and timer_delete, called directly: what the watchdog costs), all under one
//   lock, since the channel lets one request through at a time. With 4 threads the floor is
//   serialised as the channel is; no library code can go below it.
// - BM_ChannelSendSync / BM_RawSendMsgSync: what the channel costs over the bare round trip
//   (which 4 threads run in parallel), for scale.
// - BM_ChannelSendSyncNoWatchdog / BM_RawSendMsgSync: the channel without its watchdog.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bench_modem.h"
#include "bench_ratio.h"
#include "benchmark/benchmark.h"
#include "extend/extend_service.h"
#include "modemsim/modem.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "tarvik_extend_api.h"
#include "tarvik_utils_cmn.h"

namespace {

constexpr uint32_t kPayload = 64;

std::unique_ptr<modemsim::Modem> g_modem;
qmi_client_type g_raw_client = nullptr;

bool SetUpModem() {
  tarvik_bench::SilenceLibraryLogging();
  g_modem = std::make_unique<modemsim::Modem>();
  modemsim::extend::AddTo(*g_modem);
  g_modem->ServeInProcess();
  return tarvik_bench::OpenRawClientAndChannel(&g_raw_client);
}

// The raw side's request record: the loopback request id and the payload, as the channel fills
// its own record.
tarvik_extend_qmi_req_msg_v01 LoopbackRecord() {
  tarvik_extend_qmi_req_msg_v01 req{};
  req.id = modemsim::extend::kLoopbackRequestId;
  req.data_len = kPayload;
  req.data_valid = 1;
  memset(req.data, 0x5A, kPayload);
  return req;
}

bool RawRoundTrip(tarvik_extend_qmi_req_msg_v01 *req, tarvik_extend_qmi_resp_msg_v01 *resp) {
  return qmi_client_send_msg_sync(g_raw_client, TARVIK_EXTEND_QMI_GENERIC_MSG_V01, req,
                                  sizeof(*req), resp, sizeof(*resp), 3000) == QMI_NO_ERR &&
         resp->data_len == kPayload;
}

void BM_RawSendMsgSync(benchmark::State &state) {
  tarvik_extend_qmi_req_msg_v01 req = LoopbackRecord();
  tarvik_extend_qmi_resp_msg_v01 resp{};
  for (auto _ : state) {
    if (!RawRoundTrip(&req, &resp)) {
      state.SkipWithError("raw round trip failed");
      break;
    }
  }
}

void WatchdogNever(union sigval) {}

// One request at a time, as the channel's lock lets them through.
std::mutex g_floor_lock;

// The raw round trip inside a raw POSIX timer's life, as the watchdog lays it out (created and
// armed for 5 s before the send, disarmed and deleted after it), under one lock as the channel
// holds its own around the same steps.
void BM_RawSendWithRawTimer(benchmark::State &state) {
  tarvik_extend_qmi_req_msg_v01 req = LoopbackRecord();
  tarvik_extend_qmi_resp_msg_v01 resp{};
  struct sigevent sev = {};
  sev.sigev_notify = SIGEV_THREAD;
  sev.sigev_value.sival_int = 1;
  sev.sigev_notify_function = WatchdogNever;
  struct itimerspec arm = {};
  arm.it_value.tv_sec = 5;
  const struct itimerspec disarm = {};
  for (auto _ : state) {
    std::lock_guard<std::mutex> serial(g_floor_lock);
    timer_t timer;
    if (timer_create(CLOCK_REALTIME, &sev, &timer) != 0 ||
        timer_settime(timer, 0, &arm, nullptr) != 0) {
      state.SkipWithError("timer_create or timer_settime failed");
      break;
    }
    const bool ok = RawRoundTrip(&req, &resp);
    timer_settime(timer, 0, &disarm, nullptr);
    timer_delete(timer);
    if (!ok) {
      state.SkipWithError("raw round trip failed");
      break;
    }
  }
}

// Sends the loopback payload through one of the channel's generic senders until the state ends.
template <typename Send>
void ChannelRequests(benchmark::State &state, Send send) {
  uint8_t req[kPayload];
  uint8_t resp[TARVIK_EXTEND_QMI_DATA_MAX_V01];
  memset(req, 0x5A, sizeof(req));
  for (auto _ : state) {
    uint32_t len = sizeof(resp);
    if (send(req, resp, &len) != 0 || len != kPayload) {
      state.SkipWithError("channel request failed");
      break;
    }
  }
}

void BM_ChannelSendSync(benchmark::State &state) {
  ChannelRequests(state, [](uint8_t *req, uint8_t *resp, uint32_t *len) {
    return tarvik_extend_qmi_send_sync(modemsim::extend::kLoopbackRequestId, req, kPayload, resp,
                                       len);
  });
}

// The same request without the watchdog timer (the long-running variant with a 3000 ms
// time-out): what the channel costs apart from the timer start and stop.
void BM_ChannelSendSyncNoWatchdog(benchmark::State &state) {
  ChannelRequests(state, [](uint8_t *req, uint8_t *resp, uint32_t *len) {
    return tarvik_extend_qmi_send_sync_long_process(modemsim::extend::kLoopbackRequestId, req,
                                                    kPayload, resp, len, 3000);
  });
}

BENCHMARK(BM_RawSendMsgSync)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(BM_RawSendWithRawTimer)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(BM_ChannelSendSync)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(BM_ChannelSendSyncNoWatchdog)->Threads(1)->Threads(4)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (!SetUpModem()) {
    fprintf(stderr, "bench_channel: the simulated modem's extend service is not reachable\n");
    return 1;
  }
  tarvik_bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (int64_t threads : {1, 4}) {
    reporter.PrintRatio("BM_ChannelSendSync", "BM_RawSendWithRawTimer", 1.3, threads);
    reporter.PrintRatio("BM_ChannelSendSync", "BM_RawSendMsgSync", 0, threads);
    reporter.PrintRatio("BM_ChannelSendSyncNoWatchdog", "BM_RawSendMsgSync", 0, threads);
  }
  benchmark::Shutdown();
  if (g_raw_client != nullptr) {
    qmi_client_release(g_raw_client);
  }
  return 0;
}
