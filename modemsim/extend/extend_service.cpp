// The simulated extend service: generic request routing by request id, per-client event
// switches, the pass-through messages and indication injection.
#include "extend_service.h"

#include <string.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <map>
#include <mutex>

#include "modemsim/control.h"
#include "modemsim/text.h"
#include "qmi_client.h"

namespace modemsim {
namespace extend {
namespace {

using GenericReq = tarvik_extend_qmi_req_msg_v01;
using GenericResp = tarvik_extend_qmi_resp_msg_v01;
using Switches = std::array<EventSwitch, kMaxEvents>;

// State of one modem's extend service, kept by the modem (Modem::ModuleState).
struct State {
  std::mutex mu;  // handlers and switches: touched by the worker and by registration calls
  std::map<uint32_t, RequestHandler> handlers;
  std::map<uint32_t, Switches> switches;  // by client
  Tamper tamper;
};

State *StateOf(const Modem &modem) {
  return modem.FindModuleState<State>();
}

uint32_t PayloadLen(const GenericReq &req) {
  return req.data_valid ? std::min(req.data_len, kMaxPayload) : 0;
}

void HandleGeneric(State *state, Call &call) {
  const auto &req = call.Request<GenericReq>();
  auto &resp = call.Response<GenericResp>();
  RequestHandler handler;
  {
    std::lock_guard<std::mutex> lock(state->mu);
    auto it = state->handlers.find(req.id);
    if (it != state->handlers.end()) {
      handler = it->second;
    }
  }
  Tamper tamper;
  {
    std::lock_guard<std::mutex> lock(state->mu);
    tamper = state->tamper;
  }
  if (!handler) {
    resp.result = kResultUnknownId;
    return;
  }
  const Request request{call.modem, call.client, req.id, req.data, PayloadLen(req)};
  Reply reply;
  handler(request, reply);
  if (tamper) {
    tamper(req.id, request.data, request.data_len, &reply.data);
    reply.data_len = static_cast<uint32_t>(reply.data.size());
  }
  call.answer = reply.answer;
  resp.result = reply.result;
  resp.data_len = reply.data_len;
  resp.data_valid = reply.data_valid ? 1 : 0;
  if (reply.data_valid && !reply.data.empty()) {
    memcpy(resp.data, reply.data.data(), std::min<size_t>(reply.data.size(), kMaxPayload));
  }
}

void HandleRegistration(State *state, Call &call) {
  const auto &req = call.Request<GenericReq>();
  auto &resp = call.Response<GenericResp>();
  if (req.id >= kMaxEvents || PayloadLen(req) < 1) {
    resp.result = kResultBadRequest;
    return;
  }
  std::lock_guard<std::mutex> lock(state->mu);
  EventSwitch &sw = state->switches[call.client][req.id];
  sw.on = req.data[0] != 0;
  sw.ind_flag = sw.on && PayloadLen(req) >= 2 && req.data[1] != 0;
  resp.result = kResultOk;
}

void HandleDataOpt(Call &call) {
  const auto &req = call.Request<tarvik_extend_qmi_data_opt_req_msg_v01>();
  auto &resp = call.Response<tarvik_extend_qmi_pair_msg_v01>();
  if (req.data_valid && req.data_len > kMaxPayload) {
    resp.result = kResultBadRequest;
    return;
  }
  resp.value = req.data_valid ? req.data_len : 0;
}

void HandleUpload(Call &call) {
  const auto &req = call.Request<tarvik_extend_qmi_self_study_upload_req_msg_v01>();
  auto &resp = call.Response<tarvik_extend_qmi_pair_msg_v01>();
  const uint32_t capacity = sizeof(req.entries) / sizeof(req.entries[0]);
  if (req.count > capacity) {
    resp.result = kResultBadRequest;
    return;
  }
  resp.value = req.count;
}

uint64_t NowMs() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000 + static_cast<uint64_t>(ts.tv_nsec) / 1000000;
}

void HandleWechat(Call &call) {
  const auto &req = call.Request<tarvik_extend_qmi_wechat_req_msg_v01>();
  auto &resp = call.Response<tarvik_extend_qmi_pair_msg_v01>();
  resp.value = req.value;
  if (req.flag != 0) {
    tarvik_extend_qmi_wechat_ind_msg_v01 ind{};
    ind.type = req.type;
    ind.state = req.flag;
    ind.timestamp = NowMs();
    ind.value = req.value;
    call.modem.PushIndication(kServiceId, TARVIK_EXTEND_QMI_WECHAT_IND_V01, &ind, sizeof(ind),
                              call.client);
  }
}

void Loopback(const Request &request, Reply &reply) {
  reply.SetData(request.data, request.data_len);
}

}  // namespace

void Reply::SetData(const void *bytes, size_t len) {
  const auto *p = static_cast<const uint8_t *>(bytes);
  data.assign(p, p + len);
  data_len = static_cast<uint32_t>(len);
  data_valid = true;
}

Service &AddTo(Modem &modem) {
  if (Service *existing = modem.FindService(kServiceId)) {
    if (StateOf(modem) != nullptr) {
      return *existing;
    }
  }
  Service &service = modem.AddService(&tarvik_extend_qmi_idl_service_object_v01);
  State *state = &modem.ModuleState<State>();
  state->handlers[kLoopbackRequestId] = Loopback;
  service.Handle(TARVIK_EXTEND_QMI_GENERIC_MSG_V01,
                 [state](Call &call) { HandleGeneric(state, call); });
  service.Handle(TARVIK_EXTEND_QMI_EVENT_MSG_V01,
                 [state](Call &call) { HandleRegistration(state, call); });
  service.Handle(TARVIK_EXTEND_QMI_DATA_OPT_MSG_V01, HandleDataOpt);
  service.Handle(TARVIK_EXTEND_QMI_SELF_STUDY_UPLOAD_MSG_V01, HandleUpload);
  service.Handle(TARVIK_EXTEND_QMI_WECHAT_MSG_V01, HandleWechat);
  // Every response of the service starts with its verdict, the u32 `result` (TLV 0x01).
  service.SetFailureWriter([](void *record, uint32_t len, uint16_t error) {
    const uint32_t result = error;
    if (len >= sizeof(result)) {
      memcpy(record, &result, sizeof(result));
    }
  });
  service.OnClientGone([state](uint32_t client) {
    std::lock_guard<std::mutex> lock(state->mu);
    state->switches.erase(client);
  });
  service.OnRestart([state] {
    std::lock_guard<std::mutex> lock(state->mu);
    state->switches.clear();
  });
  return service;
}

bool SetRequestHandler(Modem &modem, uint32_t request_id, RequestHandler handler) {
  State *state = StateOf(modem);
  if (state == nullptr) {
    return false;
  }
  std::lock_guard<std::mutex> lock(state->mu);
  if (handler) {
    state->handlers[request_id] = std::move(handler);
  } else {
    state->handlers.erase(request_id);
  }
  return true;
}

bool SetTamper(Modem &modem, Tamper tamper) {
  State *state = StateOf(modem);
  if (state == nullptr) {
    return false;
  }
  std::lock_guard<std::mutex> lock(state->mu);
  state->tamper = std::move(tamper);
  return true;
}

bool SetMessageHandler(Modem &modem, uint16_t msg_id, Handler handler) {
  Service *service = StateOf(modem) != nullptr ? modem.FindService(kServiceId) : nullptr;
  if (service == nullptr) {
    return false;
  }
  service->Handle(msg_id, std::move(handler));
  return true;
}

EventSwitch GetEventSwitch(Modem &modem, uint32_t client, uint32_t event) {
  State *state = StateOf(modem);
  if (state == nullptr || event >= kMaxEvents) {
    return {};
  }
  std::lock_guard<std::mutex> lock(state->mu);
  auto it = state->switches.find(client);
  return it == state->switches.end() ? EventSwitch{} : it->second[event];
}

int InjectEvent(Modem &modem, uint32_t event, const void *data, uint32_t len, bool data_valid) {
  State *state = StateOf(modem);
  if (state == nullptr) {
    return QMI_SERVICE_ERR;
  }
  if (event >= kMaxEvents || len > kMaxPayload || (len > 0 && data == nullptr)) {
    return QMI_CLIENT_PARAM_ERR;
  }
  std::vector<uint32_t> clients;
  {
    std::lock_guard<std::mutex> lock(state->mu);
    for (const auto &entry : state->switches) {
      if (entry.second[event].on) {
        clients.push_back(entry.first);
      }
    }
  }
  tarvik_extend_qmi_ind_msg_v01 ind{};
  ind.ind = event;
  ind.data_len = len;
  ind.data_valid = data_valid ? 1 : 0;
  if (len > 0) {
    memcpy(ind.data, data, len);
  }
  int reached = 0;
  for (uint32_t client : clients) {
    const int rc = modem.PushIndication(kServiceId, TARVIK_EXTEND_QMI_EVENT_MSG_V01, &ind,
                                        sizeof(ind), client);
    if (rc < 0) {
      return rc;
    }
    reached += rc;
  }
  return reached;
}

int InjectIndication(Modem &modem, uint16_t msg_id, const void *record, uint32_t len) {
  if (StateOf(modem) == nullptr) {
    return QMI_SERVICE_ERR;
  }
  return modem.PushIndication(kServiceId, msg_id, record, len);
}

namespace {
void InitModule(Modem &modem) {
  AddTo(modem);
}

// event EVENT [HEX]: the event indication (payload HEX) to every client that switched it on.
int EventWord(Modem &modem, const Words &w, ControlReply &reply) {
  unsigned long event = 0;
  std::vector<uint8_t> data;
  if (w.size() < 2 || w.size() > 3 || !ParseNumber(w[1], kMaxEvents - 1, &event) ||
      (w.size() == 3 && (!ParseHex(w[2], &data) || data.size() > kMaxPayload))) {
    return reply.Usage();
  }
  reply.Add({"event", "", Value::Number(static_cast<long long>(event))});
  return reply.Sent(
      InjectEvent(modem, static_cast<uint32_t>(event), data.data(), (uint32_t)data.size()));
}
MODEMSIM_CONTROL_WORD("event", "EVENT [HEX]", EventWord);
}  // namespace

MODEMSIM_MODULE("extend", 10, InitModule);

}  // namespace extend
}  // namespace modemsim
