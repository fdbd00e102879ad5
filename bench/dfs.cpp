// One five-tuple blacklist enter through the request-buffer entry point (filter mode already
// enabled, so one add-filters request per command) against its floor: the raw add-filters round
// trip of the same filter on a client bound to the same data path, plus what every enter must do
// besides (take the 33272-byte request and 6144-byte response records from the radio allocator
// and zero them). Logging is off for both, as a device does with its log properties.
//
// Ratio printed at the end: BM_BlacklistEnter / BM_RawAddFilterFloor (target <= 1.2). Both sides
// empty their data path's table now and then outside the timing: the library's filter limit (400)
// and the modem's table capacity would otherwise end the run.
#include <arpa/inet.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_modem.h"
#include "bench_ratio.h"
#include "benchmark/benchmark.h"
#include "data_filter_service_v01.h"
#include "modemsim/modem.h"
#include "qcril_memory_management.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "tarvik_filter_control.h"

namespace {

constexpr uint32_t kTimeoutMs = 3000;
constexpr size_t kRequestRecord = 33272;
constexpr size_t kResponseRecord = 6144;
constexpr int kRefill = 390;  // enters between two exits, below the library's limit

std::unique_ptr<modemsim::Modem> g_modem;

std::vector<uint8_t> Command(uint32_t mode, const std::vector<std::string> &fields) {
  return tarvik_bench::BlacklistCommand(mode, "rmnet_data0", fields);
}

const std::vector<std::string> kTuple = {"IPV4", "TCP", "10.0.0.1", "10.0.0.2", "1000", "443"};

bool SetUp() {
  tarvik_bench::SilenceLibraryLogging();
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  return qmi_client_host_select_transport("inproc") == QMI_NO_ERR;
}

int Run(const std::vector<uint8_t> &cmd) {
  uint32_t status = 0;
  return tarvik_filter_control_handle_msg(cmd.data(), static_cast<uint32_t>(cmd.size()), &status);
}

void BM_BlacklistEnter(benchmark::State &state) {
  const std::vector<uint8_t> enter = Command(1, kTuple), exit = Command(0, {});
  // Enabled, one filter added: the state every timed enter starts from.
  if (Run(exit) != 0 || Run(enter) != 0) {
    state.SkipWithError("set-up failed");
    return;
  }
  int added = 1;
  for (auto _ : state) {
    if (added == kRefill) {
      state.PauseTiming();
      const bool ok = Run(exit) == 0 && Run(enter) == 0;
      added = 1;
      state.ResumeTiming();
      if (!ok) {
        state.SkipWithError("refill failed");
        break;
      }
    }
    if (Run(enter) != 0) {
      state.SkipWithError("enter failed");
      break;
    }
    ++added;
  }
  Run(exit);
}

// A raw client bound as the library binds its IPv4 client.
qmi_client_type OpenBoundClient() {
  qmi_client_os_params os;
  memset(&os, 0, sizeof(os));
  qmi_client_type client = nullptr;
  if (qmi_client_init_instance(&dfs_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY, nullptr,
                               nullptr, &os, kTimeoutMs, &client) != QMI_NO_ERR) {
    return nullptr;
  }
  dfs_bind_client_req_msg_v01 bind{};
  dfs_result_resp_msg_v01 resp{};
  bind.ip_preference_valid = 1;
  bind.ip_preference = DFS_IP_FAMILY_IPV4_V01;
  bind.mux_id_valid = 1;
  bind.mux_id = 1;
  if (qmi_client_send_msg_sync(client, QMI_DFS_BIND_CLIENT_REQ_V01, &bind, sizeof(bind), &resp,
                               sizeof(resp), kTimeoutMs) != QMI_NO_ERR ||
      resp.resp.result != 0) {
    qmi_client_release(client);
    return nullptr;
  }
  return client;
}

bool RemoveAll(qmi_client_type client) {
  dfs_empty_req_msg_v01 req{};
  dfs_result_resp_msg_v01 resp{};
  return qmi_client_send_msg_sync(client, QMI_DFS_REMOVE_ALL_FILTERS_REQ_V01, &req, sizeof(req),
                                  &resp, sizeof(resp), kTimeoutMs) == QMI_NO_ERR &&
         resp.resp.result == 0;
}

void BM_RawAddFilterFloor(benchmark::State &state) {
  qmi_client_type client = OpenBoundClient();
  if (client == nullptr || !RemoveAll(client)) {
    state.SkipWithError("raw client failed");
    return;
  }
  uint32_t src = 0, dst = 0;
  inet_pton(AF_INET, "10.0.0.1", &src);
  inet_pton(AF_INET, "10.0.0.2", &dst);
  int added = 0;
  for (auto _ : state) {
    if (added == kRefill) {
      state.PauseTiming();
      const bool ok = RemoveAll(client);
      added = 0;
      state.ResumeTiming();
      if (!ok) {
        state.SkipWithError("remove failed");
        break;
      }
    }
    void *req_mem = qcril_malloc_adv(kRequestRecord, __func__, __LINE__);
    void *resp_mem = qcril_malloc_adv(kResponseRecord, __func__, __LINE__);
    memset(req_mem, 0, kRequestRecord);
    memset(resp_mem, 0, kResponseRecord);
    auto *req = static_cast<dfs_add_filters_req_msg_v01 *>(req_mem);
    auto *resp = static_cast<dfs_add_filters_resp_msg_v01 *>(resp_mem);
    req->filter_id_len = 1;
    req->filter_id[0] = 1;
    req->ipv4_src_valid = req->ipv4_dst_valid = 1;
    req->ipv4_src_len = req->ipv4_dst_len = 1;
    req->ipv4_src[0] = {1, src, 0xFFFFFFFFu};
    req->ipv4_dst[0] = {1, dst, 0xFFFFFFFFu};
    req->tcp_src_valid = req->tcp_dst_valid = 1;
    req->tcp_src_len = req->tcp_dst_len = 1;
    req->tcp_src[0] = {1, 1000, 0};
    req->tcp_dst[0] = {1, 443, 0};
    req->filter_option_valid = 1;
    req->filter_option = 2;
    const bool ok = qmi_client_send_msg_sync(client, QMI_DFS_ADD_FILTERS_REQ_V01, req, sizeof(*req),
                                             resp, sizeof(*resp), kTimeoutMs) == QMI_NO_ERR &&
                    resp->resp.result == 0;
    qcril_free_adv(resp_mem, __func__, __LINE__);
    qcril_free_adv(req_mem, __func__, __LINE__);
    if (!ok) {
      state.SkipWithError("raw add failed");
      break;
    }
    ++added;
  }
  RemoveAll(client);
  qmi_client_release(client);
}

BENCHMARK(BM_RawAddFilterFloor)->UseRealTime();
BENCHMARK(BM_BlacklistEnter)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
  if (!SetUp()) return 1;
  return tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &r) {
    r.PrintRatio("BM_BlacklistEnter", "BM_RawAddFilterFloor", 1.2);
  });
}
