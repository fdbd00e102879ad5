// The vendor channel's generic request against the raw round trip of the QMI client library
// stand-in: the same message 0x02 (the modem's loopback request id, a 64-byte payload) on the
// same in-process transport, sent by 1 and 4 threads. The channel adds its lock, lazy-open
// check, record copies and the watchdog timer start/stop; logging is switched off for both
// (print masks 0, trace flag 0), as a device does with its log properties.
//
// Ratio to report: BM_ChannelSendSync / BM_RawSendMsgSync at the same thread count. The
// watchdog's timer start and stop (a POSIX timer created, armed, disarmed and deleted per
// request) are most of the difference; BM_ChannelSendSyncNoWatchdog shows the rest.
#include <string.h>

#include <memory>

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
  // Load the masks from their properties first, so the zeros below are what stays.
  tarvik_hal_get_logcat_print_flag(0);
  tarvik_hal_get_shell_print_flag(0);
  tarvik_hal_set_logcat_print_mask(0);
  tarvik_hal_set_shell_print_mask(0);
  g_tarvik_extend_debug_flag = 0;
  g_modem = std::make_unique<modemsim::Modem>();
  modemsim::extend::AddTo(*g_modem);
  g_modem->ServeInProcess();
  if (qmi_client_host_select_transport("inproc") != QMI_NO_ERR) {
    return false;
  }
  qmi_service_info info[1];
  unsigned int entries = 1, services = 0;
  if (qmi_client_get_service_list(&tarvik_extend_qmi_idl_service_object_v01, info, &entries,
                                  &services) != QMI_NO_ERR ||
      entries < 1) {
    return false;
  }
  if (qmi_client_init(&info[0], &tarvik_extend_qmi_idl_service_object_v01, nullptr, nullptr,
                      nullptr, &g_raw_client) != QMI_NO_ERR) {
    return false;
  }
  tarvik_extend_qmi_init();
  return true;
}

void BM_RawSendMsgSync(benchmark::State &state) {
  tarvik_extend_qmi_req_msg_v01 req{};
  tarvik_extend_qmi_resp_msg_v01 resp{};
  req.id = modemsim::extend::kLoopbackRequestId;
  req.data_len = kPayload;
  req.data_valid = 1;
  memset(req.data, 0x5A, kPayload);
  for (auto _ : state) {
    const int rc = qmi_client_send_msg_sync(g_raw_client, TARVIK_EXTEND_QMI_GENERIC_MSG_V01, &req,
                                            sizeof(req), &resp, sizeof(resp), 3000);
    if (rc != QMI_NO_ERR || resp.data_len != kPayload) {
      state.SkipWithError("raw round trip failed");
      break;
    }
  }
}

void BM_ChannelSendSync(benchmark::State &state) {
  uint8_t req[kPayload];
  uint8_t resp[TARVIK_EXTEND_QMI_DATA_MAX_V01];
  memset(req, 0x5A, sizeof(req));
  for (auto _ : state) {
    uint32_t len = sizeof(resp);
    const int rc = tarvik_extend_qmi_send_sync(modemsim::extend::kLoopbackRequestId, req,
                                               sizeof(req), resp, &len);
    if (rc != 0 || len != kPayload) {
      state.SkipWithError("channel request failed");
      break;
    }
  }
}

// The same request without the watchdog timer (the long-running variant with a 3000 ms
// time-out): what the channel costs apart from the timer start and stop.
void BM_ChannelSendSyncNoWatchdog(benchmark::State &state) {
  uint8_t req[kPayload];
  uint8_t resp[TARVIK_EXTEND_QMI_DATA_MAX_V01];
  memset(req, 0x5A, sizeof(req));
  for (auto _ : state) {
    uint32_t len = sizeof(resp);
    const int rc = tarvik_extend_qmi_send_sync_long_process(modemsim::extend::kLoopbackRequestId,
                                                            req, sizeof(req), resp, &len, 3000);
    if (rc != 0 || len != kPayload) {
      state.SkipWithError("channel request failed");
      break;
    }
  }
}

BENCHMARK(BM_RawSendMsgSync)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(BM_ChannelSendSync)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(BM_ChannelSendSyncNoWatchdog)->Threads(1)->Threads(4)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (!SetUpModem()) {
    fprintf(stderr, "bench_channel: the simulated modem's extend service is not reachable\n");
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (g_raw_client != nullptr) {
    qmi_client_release(g_raw_client);
  }
  return 0;
}
