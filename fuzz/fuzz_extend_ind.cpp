// Drives the vendor channel's indication routing with arbitrary bytes from the modem: the first
// byte is the indication's message id, the rest its TLV area, pushed by the in-process simulated
// modem to the library's open channel. Every handler and callback is installed; each checks
// that what it is handed is within the record the routing table names, and reads all of it.
// A sentinel event after each input keeps the inputs apart.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <condition_variable>
#include <memory>
#include <mutex>

#include "extend/extend_service.h"
#include "fuzz_check.h"
#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "tarvik_extend_api.h"
#include "tarvik_utils_cmn.h"

namespace {

constexpr int kSentinelEvent = 6;
constexpr uint8_t kSentinelByte = 0xE7;

std::mutex g_mu;
std::condition_variable g_cv;
bool g_sentinel_seen = false;
volatile uint32_t g_sink = 0;

using tarvik_testing::Check;

void ReadAll(const void *data, int len) {
  const auto *p = static_cast<const uint8_t *>(data);
  uint32_t sum = 0;
  for (int i = 0; i < len; ++i) sum += p[i];
  g_sink = g_sink + sum;
}

void OnEvent(int id, void *data, int len) {
  Check(id >= 0 && id <= TARVIK_EXTEND_QMI_MAX_EVENT);
  Check(len >= 0 && len <= static_cast<int>(TARVIK_EXTEND_QMI_MAX_PAYLOAD));
  Check(len == 0 || data != nullptr);
  ReadAll(data, len);
  if (id == kSentinelEvent && len == 1 && static_cast<uint8_t *>(data)[0] == kSentinelByte) {
    std::lock_guard<std::mutex> lock(g_mu);
    g_sentinel_seen = true;
    g_cv.notify_all();
  }
}

// Record sizes of the routing table by message id.
int RecordSize(int id) {
  switch (id) {
    case 0x05:
      return 1128;
    case 0x06:
      return 1288;
    case 0x07:
      return 8;
    case 0x08:
      return 32;
    case 0x09:
      return 408;
    case 0x0B:
      return 20;
    case 0x0D:
      return 24;
    case 0x12:
      return 16;
    case 0x14:
      return 12;
    default:
      return -1;
  }
}

void OnIndication(int id, void *data, int len) {
  Check(RecordSize(id) == len);
  Check(data != nullptr);
  ReadAll(data, len);
}

modemsim::Modem *Modem() {
  static modemsim::Modem *modem = [] {
    tarvik_testing::SilenceLibraryLogging();
    auto *m = new modemsim::Modem();
    modemsim::extend::AddTo(*m);
    m->ServeInProcess();
    Check(qmi_client_host_select_transport("inproc") == QMI_NO_ERR);
    for (int event = 0; event <= TARVIK_EXTEND_QMI_MAX_EVENT; ++event) {
      Check(tarvik_extend_qmi_register(event, OnEvent, 1) == 0);
    }
    tarvik_extend_qmi_self_study_register(OnIndication);
    tarvik_extend_qmi_wechat_register(OnIndication);
    tarvik_extend_qmi_base_model_register(OnIndication);
    return m;
  }();
  return modem;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0 || size > 0xFFFF) return 0;
  modemsim::Modem *modem = Modem();
  {
    std::lock_guard<std::mutex> lock(g_mu);
    g_sentinel_seen = false;
  }
  Check(modem->PushRawIndication(modemsim::extend::kServiceId, data[0], data + 1, size - 1) == 1);
  const uint8_t sentinel = kSentinelByte;
  Check(modemsim::extend::InjectEvent(*modem, kSentinelEvent, &sentinel, 1) == 1);
  std::unique_lock<std::mutex> lock(g_mu);
  Check(g_cv.wait_for(lock, std::chrono::seconds(5), [] { return g_sentinel_seen; }));
  return 0;
}
