// Drives the modem-feature functions with arbitrary answers from the modem: the first byte picks
// the function and the caller's buffer size, the rest is the payload the in-process simulated
// modem answers every request with (NV items, file chunks, CDC, venue mode, cell information,
// common commands, identity queries, texts and records by type, MCFG, status notifications). The
// functions must never read or write past the answer or the caller's buffer, whatever lengths the
// answer claims; the buffers here are exactly the claimed capacity, so the sanitizers see any
// overrun.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

#include "extend/extend_service.h"
#include "features/nvefs.h"
#include "fuzz_check.h"
#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_cdc.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_utils_cmn.h"
#include "tarvik_venue_mode.h"

namespace {

std::unique_ptr<modemsim::Modem> g_modem;
std::vector<uint8_t> g_answer;

using tarvik_testing::Check;

bool SetUp() {
  tarvik_testing::SilenceLibraryLogging();
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  if (qmi_client_host_select_transport("inproc") != QMI_NO_ERR) {
    return false;
  }
  modemsim::features::NvEfs *files = modemsim::features::NvEfsOf(*g_modem);
  if (files == nullptr) {
    return false;
  }
  files->SetStoreDelays(0, 0, 0);
  modemsim::extend::SetTamper(*g_modem, [](uint32_t, const uint8_t *, uint32_t,
                                           std::vector<uint8_t> *answer) { *answer = g_answer; });
  tarvik_extend_qmi_init();
  return true;
}

// The queries whose answers the library reads (identity, texts and records by type, MCFG,
// status notifications); `sub` 0 is the file write and sync. Texts and records are read into
// buffers of exactly the capacity given, 1 to 482 bytes.
void AnswerQueries(uint32_t sub) {
  if (sub == 0) {
    const uint8_t chunk[3] = {1, 2, 3};
    tarvik_efs_write(0, "/fuzz", 5, chunk, sizeof(chunk));
    tarvik_nvefs_sync();
  } else if (sub == 1) {
    tarvik_modem_chipset_id_get();
    tarvik_modem_bp_chip_id_get();
    tarvik_modem_cdma_support_status_get();
    tarvik_mbn_list_cust_max_num_get();
    tarvik_get_card_mode_flag();
  } else if (sub < 30) {
    const bool text = sub < 16;
    std::vector<uint8_t> buf(((sub - 2) % 14) * 37 + 1);
    uint32_t len = static_cast<uint32_t>(buf.size());
    const uint32_t status =
        text ? tarvik_modem_string_info_get(40, reinterpret_cast<char *>(buf.data()), &len)
             : tarvik_modem_raw_content_get(42, buf.data(), &len);
    if (status == 0) {
      Check(len < buf.size());
      Check(!text || buf[len] == 0);
    }
  } else if (sub == 30) {
    char path[TARVIK_MCFG_PATH_SIZE];
    if (tarvik_mcfg_mbn_txt_path_get(path, COMMON_CMD_MBN_TXT_PATH_GET) == 0) {
      Check(memchr(path, 0, sizeof(path)) != nullptr);
    }
    tarvik_mcfg_mbn_txt_path_set("/fuzz.txt", COMMON_CMD_MBN_TXT_PATH_SET);
    tarvik_mcfg_ext_get_discover_timer_timeout();
    tarvik_mcfg_ext_set_discover_timer_timeout(5);
    tarvik_reg_mcfg_event_ind();
  } else {
    tarvik_modem_nv_sync();
    tarvik_qcril_screen_status_notify_to_modem(1);
    tarvik_qcril_sleep_status_notify_to_modem(0);
    tarvik_get_legacy_hook_update_mask();
  }
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
    default:
      AnswerQueries(pick >> 3);
      break;
  }
  return 0;
}
