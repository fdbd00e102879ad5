// Drives the NAS, SAR and sensor clients with arbitrary answers from the modem: the first byte
// picks the function, the rest is the TLV area a raw in-process server answers that function's
// request with (the NAS binding alone is always accepted, so that the controls get as far as
// their own request). The clients and the codec must survive any answer: no read or write past
// a record, no leak of a client or a record.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <mutex>
#include <vector>

#include "fuzz_check.h"
#include "network_access_service_v01.h"
#include "qcril_alloc_host.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "sar_v01.h"
#include "sns_client_v01.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_sensor_api.h"
#include "tarvik_utils_cmn.h"

namespace {

namespace wire = qmi_host::wire;

using tarvik_testing::Check;

// Answers every request with the current input, at once, on the caller's thread.
class RawServer : public qmi_host::Server {
 public:
  void SetAnswer(const uint8_t *data, size_t len) {
    std::lock_guard<std::mutex> lock(mu_);
    answer_.assign(data, data + len);
  }
  size_t OpenClients() {
    std::lock_guard<std::mutex> lock(mu_);
    return clients_.size();
  }
  void Attach(qmi_host::ClientSink *sink) override {
    for (uint32_t id : kServices) sink->OnServiceUp(id, 0);
  }
  void Detach(qmi_host::ClientSink *) override {}
  int Open(qmi_host::ClientSink *sink, uint32_t service_id, uint32_t, uint32_t *client) override {
    std::lock_guard<std::mutex> lock(mu_);
    for (uint32_t id : kServices) {
      if (id == service_id) {
        *client = ++next_;
        clients_.push_back({*client, sink});
        return QMI_NO_ERR;
      }
    }
    return QMI_SERVICE_ERR;
  }
  void Close(uint32_t client) override {
    std::lock_guard<std::mutex> lock(mu_);
    for (size_t i = 0; i < clients_.size(); ++i) {
      if (clients_[i].id == client) {
        clients_.erase(clients_.begin() + static_cast<long>(i));
        break;
      }
    }
  }
  int Deliver(uint32_t client, const uint8_t *msg, size_t len) override {
    wire::QmiHeader h;
    if (!wire::ParseQmiHeader(msg, len, &h)) return QMI_CLIENT_PARAM_ERR;
    qmi_host::ClientSink *sink = nullptr;
    std::vector<uint8_t> out(wire::kQmiHeaderLen);
    {
      std::lock_guard<std::mutex> lock(mu_);
      for (const auto &c : clients_) sink = c.id == client ? c.sink : sink;
      if (sink == nullptr) return QMI_SERVICE_ERR;
      if (h.msg_id == QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01) {
        const uint8_t ok[] = {0x02, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00};
        out.insert(out.end(), ok, ok + sizeof(ok));
      } else {
        out.insert(out.end(), answer_.begin(), answer_.end());
      }
    }
    wire::PutQmiHeader(out.data(), {wire::kQmiResponse, h.txn, h.msg_id,
                                    static_cast<uint16_t>(out.size() - wire::kQmiHeaderLen)});
    sink->OnMessage(client, out.data(), out.size());
    return QMI_NO_ERR;
  }

 private:
  static constexpr uint32_t kServices[] = {NAS_QMI_SERVICE_ID_V01, SAR_QMI_SERVICE_ID_V01,
                                           SNS_CLIENT_SVC_SERVICE_ID_V01};
  struct Client {
    uint32_t id;
    qmi_host::ClientSink *sink;
  };
  std::mutex mu_;
  std::vector<uint8_t> answer_;
  std::vector<Client> clients_;
  uint32_t next_ = 0;
};

RawServer *g_server = nullptr;

bool SetUp() {
  tarvik_testing::SilenceLibraryLogging();
  g_tarvik_sensor_debug_flag = 0;
  tarvik_set_ril_process_instance_id(0);
  g_server = new RawServer();
  qmi_host::RegisterInprocServer(g_server);
  return qmi_client_host_select_transport("inproc") == QMI_NO_ERR;
}

// The pass-through into a response record of exactly its size.
template <typename Resp>
void PassThrough(uint32_t msg_id) {
  nas_get_system_selection_preference_req_msg_v01 req{};
  std::vector<uint8_t> resp(sizeof(Resp));
  tarvik_send_nas_qmi_req_msg(msg_id, &req, sizeof(req), resp.data(),
                              static_cast<uint32_t>(resp.size()), 1000);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool ready = SetUp();
  Check(ready);
  if (size < 1 || size > 0xFFFF) return 0;
  g_server->SetAnswer(data + 1, size - 1);
  switch (data[0] % 8) {
    case 0:
      tarvik_set_nr_mode(data[0] >> 3);
      break;
    case 1:
      tarvik_enable_endc(data[0] >> 3);
      break;
    case 2:
      tarvik_deprioritize_sa(data[0] >> 3);
      break;
    case 3:
      PassThrough<nas_get_system_selection_preference_resp_msg_v01>(
          QMI_NAS_GET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01);
      break;
    case 4:
      PassThrough<nas_get_endc_config_resp_msg_v01>(QMI_NAS_GET_ENDC_CONFIG_REQ_MSG_V01);
      break;
    case 5:
      tarvik_get_sar_dsi();
      break;
    case 6:
      tarvik_set_sar_dsi(data[0] >> 3);
      break;
    default: {
      int context = 0;
      Check(tarvik_sensor_qmi_send_sync(data, static_cast<uint32_t>(size > 1000 ? 1000 : size),
                                        &context, nullptr, data[0] >> 7) != -2);
      break;
    }
  }
  // Every record went back; the long-lived NAS, SAR and sensor clients are all that stays open.
  Check(qcril_alloc_host_outstanding() == 0);
  Check(g_server->OpenClients() <= 3);
  return 0;
}
