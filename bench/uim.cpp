// The UIM client's APDU against the raw round trip of the same message: a 255-byte APDU on an
// open channel to the simulated eUICC's ISD-R (answered with SW 6D00), logging off.
//
// BM_RawApdu is the floor every call must pay: the radio allocator's request and response
// records, zeroed, filled, sent with qmi_client_send_msg_sync on an open client and freed.
// BM_UimSendApdu is tarvik_uim_send_apdu: the same plus its client checks, counters and the copy
// of the answer into the caller's buffer.
//
// Ratio printed at the end: BM_UimSendApdu / BM_RawApdu (target <= 1.2).
#include <string.h>

#include <memory>

#include "bench_modem.h"
#include "bench_ratio.h"
#include "benchmark/benchmark.h"
#include "modemsim/modem.h"
#include "qcril_memory_management.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "tarvik_extend_cmn.h"
#include "user_identity_module_v01.h"

namespace {

constexpr uint8_t kSlot = 2;

std::unique_ptr<modemsim::Modem> g_modem;
qmi_client_type g_raw_client = nullptr;
uint8_t g_channel = 0;

bool SetUp() {
  if (g_modem != nullptr) return true;
  tarvik_bench::SilenceLibraryLogging();
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  qmi_client_os_params os;
  memset(&os, 0, sizeof(os));
  const tarvik_uim_open_channel_req_t open{kSlot, 0};
  return qmi_client_host_select_transport("inproc") == QMI_NO_ERR &&
         qmi_client_init_instance(&uim_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY, nullptr,
                                  nullptr, &os, 1000, &g_raw_client) == QMI_NO_ERR &&
         tarvik_uim_open_channel(&open, &g_channel) == 0;
}

void FillApdu(uint8_t *apdu) {
  apdu[0] = 0x80;
  apdu[1] = 0xCA;
  memset(apdu + 2, 0x5A, TARVIK_UIM_APDU_MAX - 2);
}

void BM_RawApdu(benchmark::State &state) {
  if (!SetUp()) return state.SkipWithError("set-up failed");
  for (auto _ : state) {
    auto *req = static_cast<uim_send_apdu_req_msg_v01 *>(
        qcril_malloc_adv(sizeof(uim_send_apdu_req_msg_v01), __func__, __LINE__));
    auto *resp = static_cast<uim_send_apdu_resp_msg_v01 *>(
        qcril_malloc_adv(sizeof(uim_send_apdu_resp_msg_v01), __func__, __LINE__));
    memset(req, 0, sizeof(*req));
    memset(resp, 0, sizeof(*resp));
    req->slot = static_cast<uim_slot_enum_v01>(kSlot);
    req->apdu_len = TARVIK_UIM_APDU_MAX;
    FillApdu(req->apdu);
    req->channel_id_valid = 1;
    req->channel_id = g_channel;
    req->procedure_bytes_valid = 1;
    req->procedure_bytes = 1;
    const int rc = qmi_client_send_msg_sync(g_raw_client, QMI_UIM_SEND_APDU_REQ_V01, req,
                                            sizeof(*req), resp, sizeof(*resp), 3000);
    const bool ok = rc == QMI_NO_ERR && resp->resp.result == 0 && resp->apdu_len == 2;
    qcril_free_adv(resp, __func__, __LINE__);
    qcril_free_adv(req, __func__, __LINE__);
    if (!ok) return state.SkipWithError("raw APDU failed");
  }
}

void BM_UimSendApdu(benchmark::State &state) {
  if (!SetUp()) return state.SkipWithError("set-up failed");
  tarvik_uim_apdu_req_t req{};
  req.slot = kSlot;
  req.channel_id = g_channel;
  req.apdu_len = TARVIK_UIM_APDU_MAX;
  FillApdu(req.apdu);
  uint8_t out[TARVIK_UIM_APDU_RESP_BUF_LEN];
  for (auto _ : state) {
    if (tarvik_uim_send_apdu(&req, out) != 0 || out[0] != 2) {
      return state.SkipWithError("tarvik_uim_send_apdu failed");
    }
  }
}

BENCHMARK(BM_RawApdu)->UseRealTime();
BENCHMARK(BM_UimSendApdu)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
  return tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &reporter) {
    reporter.PrintRatio("BM_UimSendApdu", "BM_RawApdu", 1.2);
  });
}
