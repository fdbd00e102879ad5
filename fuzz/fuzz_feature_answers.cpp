// Drives the modem-feature functions with arbitrary answers from the modem: the first byte picks
// the function and the caller's buffer size, the rest is the payload the in-process simulated
// modem answers every request with (NV items, file chunks, CDC, venue mode, cell information,
// common commands). The functions must never read or write past the answer or the caller's
// buffer, whatever lengths the answer claims; the buffers here are exactly the claimed
// capacity, so the sanitizers see any overrun.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>
#include <vector>

#include "extend/extend_service.h"
#include "features/feature_modem.h"
#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_cdc.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_utils_cmn.h"
#include "tarvik_venue_mode.h"

namespace {

std::unique_ptr<modemsim::Modem> g_modem;
modemsim::features::FeatureModem *g_features = nullptr;
std::vector<uint8_t> g_answer;

void Check(bool ok) {
  if (!ok) abort();
}

bool SetUp() {
  tarvik_hal_get_logcat_print_flag(0);
  tarvik_hal_get_shell_print_flag(0);
  tarvik_hal_set_logcat_print_mask(0);
  tarvik_hal_set_shell_print_mask(0);
  g_tarvik_extend_debug_flag = 0;
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  if (qmi_client_host_select_transport("inproc") != QMI_NO_ERR) {
    return false;
  }
  g_features = modemsim::features::Of(*g_modem);
  if (g_features == nullptr) {
    return false;
  }
  g_features->SetStoreDelays(0, 0, 0);
  g_features->SetTamper([](uint32_t, const uint8_t *, uint32_t, std::vector<uint8_t> *answer) {
    *answer = g_answer;
  });
  tarvik_extend_qmi_init();
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool ready = SetUp();
  Check(ready);
  if (size < 1) {
    return 0;
  }
  // The modem records what it receives; keep that from growing over a long run.
  g_modem->ClearReceived(modemsim::extend::kServiceId);
  const uint8_t pick = data[0];
  g_answer.assign(data + 1, data + size);
  // Capacities from 1 to 32 and the full sizes, so that short buffers are exercised.
  const uint32_t cap = (pick >> 3) == 31 ? 0 : (pick >> 3) + 1;
  switch (pick & 7) {
    case 0: {
      std::vector<uint8_t> buf(cap == 0 ? TARVIK_NVEFS_DATA_MAX : cap);
      uint32_t len = static_cast<uint32_t>(buf.size());
      if (tarvik_nv_read(0, 550, buf.data(), &len) == 0) {
        Check(len <= buf.size());
      }
      break;
    }
    case 1: {
      std::vector<uint8_t> buf(cap == 0 ? 4096 : cap);
      uint32_t len = static_cast<uint32_t>(buf.size());
      tarvik_efs_read(1, "/fuzz", 5, buf.data(), &len);
      Check(len <= buf.size());
      break;
    }
    case 2: {
      std::vector<uint8_t> buf(cap == 0 ? TARVIK_CDC_DATA_MAX : cap);
      uint32_t len = static_cast<uint32_t>(buf.size());
      if (tarvik_cdc_request(7, "req", 3, buf.data(), &len) == 0) {
        Check(len <= buf.size());
      }
      break;
    }
    case 3: {
      std::vector<uint8_t> buf(cap == 0 ? TARVIK_CMN_RSP_DATA_MAX : cap);
      uint32_t len = static_cast<uint32_t>(buf.size());
      if (tarvik_set_venue_mode("v", 1, buf.data(), &len) == 0) {
        Check(len <= buf.size());
      }
      break;
    }
    case 4: {
      std::vector<uint8_t> buf(cap == 0 ? TARVIK_NV_ITEM_PAYLOAD_MAX : cap);
      int len = static_cast<int>(buf.size());
      tarvik_extend_cellinfo(nullptr, 0, buf.data(), &len);
      Check(len >= 0 && static_cast<size_t>(len) <= buf.size());
      break;
    }
    case 5: {
      std::vector<uint8_t> buf(cap == 0 ? TARVIK_NV_ITEM_PAYLOAD_MAX : cap);
      int len = static_cast<int>(buf.size());
      tarvik_extend_nv_read_item(1, 0, buf.data(), &len);
      Check(len >= 0 && static_cast<size_t>(len) <= buf.size());
      break;
    }
    case 6: {
      uint8_t mode = 0;
      tarvik_extend_mode_get(&mode);
      uint8_t record[TARVIK_EFS_STAT_SIZE];
      tarvik_efs_stat("/fuzz", record);
      break;
    }
    default: {
      const uint8_t chunk[3] = {1, 2, 3};
      tarvik_efs_write(0, "/fuzz", 5, chunk, sizeof(chunk));
      tarvik_nvefs_sync();
      break;
    }
  }
  return 0;
}
