// Drives the UIM client functions with arbitrary answers from the modem: the first byte picks
// the function, the rest is the TLV area that a stand-in UIM service answers every request with
// (any TLVs, any lengths). The functions must never read past the answer nor write past the
// caller's buffers, which here have exactly their documented sizes, so the sanitizers see any
// overrun.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <thread>
#include <vector>

#include "fuzz_check.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"
#include "user_identity_module_v01.h"

namespace {

namespace wire = qmi_host::wire;

std::vector<uint8_t> g_answer;

// A UIM service that answers every request with g_answer, on the caller's thread.
class AnswerServer : public qmi_host::Server {
 public:
  void Attach(qmi_host::ClientSink *sink) override {
    sink_ = sink;
    sink->OnServiceUp(UIM_QMI_SERVICE_ID_V01, 0);
  }
  void Detach(qmi_host::ClientSink *) override { sink_ = nullptr; }
  int Open(qmi_host::ClientSink *, uint32_t service_id, uint32_t, uint32_t *client) override {
    if (service_id != UIM_QMI_SERVICE_ID_V01) return QMI_SERVICE_ERR;
    *client = ++next_client_;
    return QMI_NO_ERR;
  }
  void Close(uint32_t) override {}
  int Deliver(uint32_t client, const uint8_t *msg, size_t len) override {
    wire::QmiHeader req{};
    if (!wire::ParseQmiHeader(msg, len, &req)) return QMI_CLIENT_PARAM_ERR;
    const size_t n = g_answer.size() > 0xFFFF ? 0xFFFF : g_answer.size();
    std::vector<uint8_t> out(wire::kQmiHeaderLen + n);
    wire::PutQmiHeader(out.data(),
                       {wire::kQmiResponse, req.txn, req.msg_id, static_cast<uint16_t>(n)});
    if (n > 0) memcpy(out.data() + wire::kQmiHeaderLen, g_answer.data(), n);
    if (sink_ != nullptr) sink_->OnMessage(client, out.data(), out.size());
    return QMI_NO_ERR;
  }

 private:
  qmi_host::ClientSink *sink_ = nullptr;
  uint32_t next_client_ = 0;
};

using tarvik_testing::Check;

// The radio layer's part of the purge: the outcome arrives at once, so a purge that waits
// returns after its first look.
void AnswerPurges() {
  for (;;) {
    __atomic_store_n(&PURGE_STATE, 1, __ATOMIC_RELAXED);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

bool SetUp() {
  tarvik_testing::SilenceLibraryLogging();
  static AnswerServer server;
  qmi_host::RegisterInprocServer(&server);
  std::thread(AnswerPurges).detach();
  return qmi_client_host_select_transport("inproc") == QMI_NO_ERR;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool ready = SetUp();
  Check(ready);
  if (size < 1) return 0;
  g_answer.assign(data + 1, data + size);
  const tarvik_uim_slot_req_t slot{2};
  switch (data[0] % 8) {
    case 0: {
      std::vector<uint8_t> eid(TARVIK_UIM_EID_LEN, 0xEE);
      tarvik_uim_request_eid(&slot, eid.data());
      break;
    }
    case 1: {
      uint16_t states = 0xBEEF;
      tarvik_uim_get_card_status(&states);
      break;
    }
    case 2: {
      const tarvik_uim_open_channel_req_t req{2, 4};
      uint8_t channel = 0;
      tarvik_uim_open_channel(&req, &channel);
      break;
    }
    case 3: {
      const tarvik_uim_close_channel_req_t req{2, 1};
      tarvik_uim_close_channel(&req);
      break;
    }
    case 4: {
      tarvik_uim_apdu_req_t req{};
      req.slot = 2;
      req.channel_id = 1;
      req.apdu_len = TARVIK_UIM_APDU_MAX;
      std::vector<uint8_t> out(TARVIK_UIM_APDU_RESP_BUF_LEN);
      tarvik_uim_send_apdu(&req, out.data());
      break;
    }
    case 5: {
      const tarvik_uim_power_req_t req{data[0] & 0x10u, 1, 1};
      tarvik_uim_request_uicc_power_ex(&req);
      break;
    }
    case 6: {
      const tarvik_uim_sim_type_req_t req{5, {1, 2, 3, 4, 5}};
      tarvik_setSimType(&req);
      break;
    }
    default: {
      tarvik_uim_purge_guti(&slot);
      break;
    }
  }
  return 0;
}
