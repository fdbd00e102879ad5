// Plugs the feature state into the simulated extend service: the generic request ids of the
// features and the base model messages.
#include <string.h>

#include <algorithm>

#include "extend/extend_service.h"
#include "feature_modem.h"
#include "modemsim/modem.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {
namespace {

constexpr uint32_t kRequestIds[] = {REQUEST_ID_NV_ITEM, REQUEST_ID_NVEFS, REQUEST_ID_COMMON,
                                    REQUEST_ID_CDC};

// Copies a list of the base model state into a response array of at most 6 values.
void PutList(const std::vector<uint32_t> &list, uint32_t *len, uint32_t (&values)[6]) {
  *len = static_cast<uint32_t>(std::min<size_t>(list.size(), 6));
  std::copy(list.begin(), list.begin() + *len, values);
}

void InstallBaseModel(Modem &modem, FeatureModem *fm) {
  using Result = tarvik_extend_qmi_base_model_result_resp_msg_v01;
  extend::SetMessageHandler(modem, TARVIK_EXTEND_QMI_BASE_MODEL_SET_CFG_MSG_V01, [fm](Call &call) {
    const auto &req = call.Request<tarvik_extend_qmi_base_model_set_cfg_req_msg_v01>();
    call.Response<Result>().result = fm->SetModelCfg(req.cfg, req.cfg_len);
  });
  extend::SetMessageHandler(
      modem, TARVIK_EXTEND_QMI_BASE_MODEL_SET_DETECTION_MSG_V01, [fm](Call &call) {
        const auto &req = call.Request<tarvik_extend_qmi_base_model_set_detection_req_msg_v01>();
        call.Response<Result>().result = fm->SetDetection(req.enabled);
      });
  extend::SetMessageHandler(
      modem, TARVIK_EXTEND_QMI_BASE_MODEL_SET_EVENT_IND_MSG_V01, [fm](Call &call) {
        const auto &req = call.Request<tarvik_extend_qmi_base_model_set_event_ind_req_msg_v01>();
        call.Response<Result>().result = fm->SetEventSwitch(req.event, req.is_register);
      });
  extend::SetMessageHandler(
      modem, TARVIK_EXTEND_QMI_BASE_MODEL_GET_REASON_MSG_V01, [fm](Call &call) {
        const BaseModelState st = fm->BaseModel();
        auto &rsp = call.Response<tarvik_extend_qmi_base_model_get_reason_resp_msg_v01>();
        PutList(st.reason[0], &rsp.arfcn_len, rsp.arfcn);
        PutList(st.reason[1], &rsp.pci_len, rsp.pci);
        PutList(st.reason[2], &rsp.reason_bitmask_len, rsp.reason_bitmask);
        PutList(st.reason[3], &rsp.reason_bitmask_ext_len, rsp.reason_bitmask_ext);
      });
  extend::SetMessageHandler(modem, TARVIK_EXTEND_QMI_BASE_MODEL_SCENE_MSG_V01, [fm](Call &call) {
    const BaseModelState st = fm->BaseModel();
    auto &rsp = call.Response<tarvik_extend_qmi_base_model_scene_msg_v01>();
    rsp.scene_bitmask = st.scene;
    rsp.scene_bitmask_ext = st.scene_ext;
  });
  extend::SetMessageHandler(
      modem, TARVIK_EXTEND_QMI_BASE_MODEL_GET_DDS_INFO_MSG_V01, [fm](Call &call) {
        const BaseModelState st = fm->BaseModel();
        auto &rsp = call.Response<tarvik_extend_qmi_base_model_get_dds_info_resp_msg_v01>();
        static_assert(sizeof(rsp.info) == sizeof(st.dds), "DDS assistant record");
        memcpy(&rsp.info, st.dds.data(), sizeof(rsp.info));
      });
}

// A restart or crash order: once the answer is out, every service goes down for `down_ms` and
// comes back, as after a subsystem restart (clients get their error callbacks).
constexpr uint32_t kRestartAfterAnswerMs = 20;
void RestartEveryService(Modem &modem, uint32_t down_ms) {
  for (const uint32_t id : modem.ServiceIds()) {
    modem.ScheduleRestart(id, kRestartAfterAnswerMs, down_ms);
  }
}

void InitModule(Modem &modem) {
  Install(modem);
}

}  // namespace

FeatureModem *Of(Modem &modem) {
  return modem.FindModuleState<FeatureModem>();
}

FeatureModem &Install(Modem &modem) {
  if (FeatureModem *existing = Of(modem)) {
    return *existing;
  }
  FeatureModem *fm =
      &modem.ModuleState<FeatureModem>(modem.state().persistent() ? &modem.state() : nullptr);
  for (uint32_t id : kRequestIds) {
    extend::SetRequestHandler(modem, id, [fm](const extend::Request &req, extend::Reply &reply) {
      GenericReply answer = fm->Generic(req.request_id, req.data, req.data_len, req.client);
      reply.result = answer.verdict;
      reply.SetData(answer.data.data(), answer.data.size());
      if (fm->TakeRestartDue()) {
        RestartEveryService(req.modem, fm->RestartDownMs());
      }
    });
  }
  if (Service *service = modem.FindService(extend::kServiceId)) {
    service->OnClientGone([fm](uint32_t client) { fm->ClientGone(client); });
  }
  InstallBaseModel(modem, fm);
  return *fm;
}

int DetectReason(Modem &modem, const std::array<std::vector<uint32_t>, 4> &lists,
                 const std::array<uint32_t, 4> &ind) {
  FeatureModem *fm = Of(modem);
  if (fm == nullptr) {
    return -1;
  }
  if (!fm->ReportReason(lists)) {
    return 0;
  }
  tarvik_extend_qmi_base_model_reason_ind_msg_v01 record;
  std::copy(ind.begin(), ind.end(), record.values);
  return extend::InjectIndication(modem, TARVIK_EXTEND_QMI_BASE_MODEL_REASON_IND_V01, &record,
                                  sizeof(record));
}

int DetectScene(Modem &modem, uint32_t scene, uint32_t scene_ext) {
  FeatureModem *fm = Of(modem);
  if (fm == nullptr) {
    return -1;
  }
  if (!fm->ReportScene(scene, scene_ext)) {
    return 0;
  }
  tarvik_extend_qmi_base_model_scene_msg_v01 record{0, scene, scene_ext};
  return extend::InjectIndication(modem, TARVIK_EXTEND_QMI_BASE_MODEL_SCENE_MSG_V01, &record,
                                  sizeof(record));
}

int ReportMcfgEvent(Modem &modem, const std::vector<uint8_t> &data) {
  FeatureModem *fm = Of(modem);
  if (fm == nullptr) {
    return -1;
  }
  tarvik_extend_qmi_ind_msg_v01 ind{};
  if (data.size() > sizeof(ind.data)) {
    return QMI_CLIENT_PARAM_ERR;
  }
  ind.ind = kMcfgEvent;
  ind.data_valid = 1;
  ind.data_len = static_cast<uint32_t>(data.size());
  std::copy(data.begin(), data.end(), ind.data);
  int reached = 0;
  for (uint32_t client : fm->McfgEventClients()) {
    const int rc = modem.PushIndication(extend::kServiceId, TARVIK_EXTEND_QMI_EVENT_MSG_V01, &ind,
                                        sizeof(ind), client);
    if (rc < 0) {
      return rc;
    }
    reached += rc;
  }
  return reached;
}

}  // namespace features
}  // namespace modemsim

// After the extend service's own module, whose service these handlers plug into.
MODEMSIM_MODULE("features", 50, modemsim::features::InitModule);
