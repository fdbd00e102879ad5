// Drives the data filter commands with arbitrary answers and indications from the modem: the
// in-process simulated DFS service answers every request with its own record overwritten by the
// next chunk of the input (a length byte, then up to that many bytes over the record's start,
// counts and flags included; a count the table cannot encode gets the modem's internal error),
// and after the commands the rest of the input is pushed as a filter-mode indication's TLV area.
// The commands must return one of their codes whatever the modem says, and never read or write
// out of bounds.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "data_filter_service_v01.h"
#include "dfs/dfs_service.h"
#include "fuzz_check.h"
#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "tarvik_filter_control.h"
#include "tarvik_utils_cmn.h"

namespace {

std::unique_ptr<modemsim::Modem> g_modem;
std::mutex g_mu;
const uint8_t *g_data = nullptr;
size_t g_left = 0;

using tarvik_testing::Check;

void Overwrite(uint16_t, void *record, uint32_t len) {
  std::lock_guard<std::mutex> lock(g_mu);
  if (g_left == 0) return;
  const size_t n = std::min<size_t>({g_data[0], g_left - 1, len});
  memcpy(record, g_data + 1, n);
  g_data += n + 1;
  g_left -= n + 1;
}

bool SetUp() {
  tarvik_testing::SilenceLibraryLogging();
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  modemsim::dfs::SetAnswerHook(*g_modem, Overwrite);
  return qmi_client_host_select_transport("inproc") == QMI_NO_ERR;
}

bool IsResult(int ret) {
  return ret == 0 || ret == 6 || (ret >= 500 && ret <= 505);
}

int Command(const char *dev, std::vector<std::string> fields, int mode) {
  char *ptrs[TARVIK_FILTER_FIELD_COUNT] = {};
  for (size_t i = 0; i < fields.size(); ++i) ptrs[i] = &fields[i][0];
  uint32_t status = 12345;
  const int ret = tarvik_set_fiveTuple_blacklist(dev, fields.empty() ? nullptr : ptrs,
                                                 (int)fields.size(), mode, &status);
  Check(IsResult(ret) && status == (uint32_t)ret);
  return ret;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool ready = SetUp();
  Check(ready);
  {
    std::lock_guard<std::mutex> lock(g_mu);
    g_data = data;
    g_left = size;
  }
  Command("rmnet_data0", {"IPV4", "TCP", "10.0.0.1", "10.0.0.2", "1000", "443"}, 1);
  Command("rmnet_data0", {"ipv6", "udp", "::1", "::2", "53", "53"}, 1);
  Command("rmnet_data0", {}, 0);
  // The mode indication needs open clients: one more enter, then the rest of the input.
  Command("rmnet_data0", {"IPV4", "UDP", "10.0.0.1", "10.0.0.2", "1", "2"}, 1);
  std::vector<uint8_t> rest;
  {
    std::lock_guard<std::mutex> lock(g_mu);
    rest.assign(g_data, g_data + g_left);
    g_left = 0;
  }
  g_modem->PushRawIndication(DFS_V01_SERVICE_ID, QMI_DFS_FILTER_MODE_IND_V01, rest.data(),
                             rest.size());
  Command(nullptr, {}, 0);
  // An input gives back what it took, or libFuzzer scans the whole heap for leaks after it: the
  // mode indications still queued for the library's callback thread are delivered, and the
  // modem forgets what it received.
  Check(qmi_client_host_wait_callbacks(5000) == 1);
  g_modem->ClearReceived(DFS_V01_SERVICE_ID);
  return 0;
}
