// A modem file of the largest size (102410 bytes) written and read back through the library
// and the simulated modem, against the raw round trips of the QMI client library stand-in that
// carry the same number of generic requests (248, the write's chunk count) with full 544-byte
// payloads on the same in-process transport. The library adds its argument checks, the EFS
// lock, the channel lock and watchdog, record copies, and the modem's file state; logging is
// switched off for both (print masks 0, trace flag 0), as a device does with its properties.
//
// Ratios printed at the end (no target: measured for scale): BM_EfsWrite / BM_Raw248RoundTrips
// (248 requests each), BM_EfsRead / BM_Raw248RoundTrips (242 requests against 248),
// BM_Channel248Requests / BM_Raw248RoundTrips (the same 248 requests through the channel alone)
// and BM_EfsWrite / BM_Channel248Requests (the file layer's own share: argument checks, lock,
// chunking, the modem's file state). Each case also runs raw batches beside each iteration
// (timing paused) and reports its time over theirs as the counter x_raw248, a ratio paired
// iteration by iteration; BM_EfsWriteRead is against two batches.
#include <string.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "bench_modem.h"
#include "bench_ratio.h"
#include "benchmark/benchmark.h"
#include "extend/extend_service.h"
#include "modemsim/modem.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_utils_cmn.h"

namespace {

constexpr uint32_t kFileSize = TARVIK_EFS_FILE_MAX;
constexpr int kRawTrips = 248;
const char kPath[] = "/bench/largest_file";

std::unique_ptr<modemsim::Modem> g_modem;
qmi_client_type g_raw_client = nullptr;
std::vector<uint8_t> g_file;

bool RawTrips() {
  tarvik_extend_qmi_req_msg_v01 req{};
  tarvik_extend_qmi_resp_msg_v01 resp{};
  req.id = modemsim::extend::kLoopbackRequestId;
  req.data_len = TARVIK_NVEFS_REQ_SIZE;
  req.data_valid = 1;
  memset(req.data, 0x5A, TARVIK_NVEFS_REQ_SIZE);
  for (int i = 0; i < kRawTrips; ++i) {
    if (qmi_client_send_msg_sync(g_raw_client, TARVIK_EXTEND_QMI_GENERIC_MSG_V01, &req, sizeof(req),
                                 &resp, sizeof(resp), 3000) != QMI_NO_ERR) {
      return false;
    }
  }
  return true;
}

bool SetUp() {
  tarvik_bench::SilenceLibraryLogging();
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  if (!tarvik_bench::OpenRawClientAndChannel(&g_raw_client)) {
    return false;
  }
  g_file.resize(kFileSize);
  for (size_t i = 0; i < g_file.size(); ++i) {
    g_file[i] = static_cast<uint8_t>(i * 131 + (i >> 9));
  }
  for (int warm = 0; warm < 20; ++warm) {
    RawTrips();
  }
  // The file exists before the read case runs on its own.
  return tarvik_efs_write(0, kPath, sizeof(kPath) - 1, g_file.data(), kFileSize) == 0;
}

// Runs `step` once per iteration, and beside it (timing paused) `batches` batches of the raw
// round trips, so that both see the same machine load; reports the step's time over the raw
// batches' time as the counter x_raw248.
template <typename Step>
void RunAgainstBaseline(benchmark::State &state, int batches, Step step) {
  using Clock = std::chrono::steady_clock;
  Clock::duration stepped{}, raw{};
  for (auto _ : state) {
    const auto t0 = Clock::now();
    const bool ok = step();
    const auto t1 = Clock::now();
    state.PauseTiming();
    bool raw_ok = true;
    for (int b = 0; b < batches; ++b) {
      raw_ok = raw_ok && RawTrips();
    }
    const auto t2 = Clock::now();
    state.ResumeTiming();
    if (!ok || !raw_ok) {
      state.SkipWithError("request failed");
      return;
    }
    stepped += t1 - t0;
    raw += t2 - t1;
  }
  state.counters["x_raw248"] =
      std::chrono::duration<double>(stepped).count() / std::chrono::duration<double>(raw).count();
}

// The channel's generic request alone, 248 times with the same payload: what the file layer
// stands on, to tell its own cost from the channel's.
bool ChannelTrips() {
  uint8_t req[TARVIK_NVEFS_REQ_SIZE];
  uint8_t resp[TARVIK_NVEFS_REQ_SIZE];
  memset(req, 0x5A, sizeof(req));
  for (int i = 0; i < kRawTrips; ++i) {
    uint32_t len = sizeof(resp);
    if (tarvik_extend_qmi_send_sync(modemsim::extend::kLoopbackRequestId, req, sizeof(req), resp,
                                    &len) != 0) {
      return false;
    }
  }
  return true;
}

void BM_Raw248RoundTrips(benchmark::State &state) {
  RunAgainstBaseline(state, 1, RawTrips);
}

void BM_Channel248Requests(benchmark::State &state) {
  RunAgainstBaseline(state, 1, ChannelTrips);
}

bool Write() {
  return tarvik_efs_write(0, kPath, sizeof(kPath) - 1, g_file.data(), kFileSize) == 0;
}

bool Read(std::vector<uint8_t> *buf) {
  uint32_t len = static_cast<uint32_t>(buf->size());
  return tarvik_efs_read(0, kPath, sizeof(kPath) - 1, buf->data(), &len) == 0 && len == kFileSize &&
         std::equal(g_file.begin(), g_file.end(), buf->begin());
}

void BM_EfsWrite(benchmark::State &state) {
  RunAgainstBaseline(state, 1, Write);
}

void BM_EfsRead(benchmark::State &state) {
  std::vector<uint8_t> buf(kFileSize + 1);
  RunAgainstBaseline(state, 1, [&buf] { return Read(&buf); });
}

void BM_EfsWriteRead(benchmark::State &state) {
  std::vector<uint8_t> buf(kFileSize + 1);
  RunAgainstBaseline(state, 2, [&buf] { return Write() && Read(&buf); });
}

BENCHMARK(BM_Raw248RoundTrips)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Channel248Requests)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EfsWrite)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EfsRead)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EfsWriteRead)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
  if (!SetUp()) {
    fprintf(stderr, "bench_efs: the simulated modem's file service is not reachable\n");
    return 1;
  }
  const int rc = tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &r) {
    r.PrintRatio("BM_EfsWrite", "BM_Raw248RoundTrips", 0);
    r.PrintRatio("BM_EfsRead", "BM_Raw248RoundTrips", 0);
    r.PrintRatio("BM_Channel248Requests", "BM_Raw248RoundTrips", 0);
    r.PrintRatio("BM_EfsWrite", "BM_Channel248Requests", 0);
  });
  qmi_client_release(g_raw_client);
  return rc;
}
