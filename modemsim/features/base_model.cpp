// The base model messages (see base_model.h).
#include "base_model.h"

#include <string.h>

#include <algorithm>

#include "commands.h"
#include "extend/extend_service.h"
#include "tarvik_base_model.h"

namespace modemsim {
namespace features {

struct BaseModelHandlers {
  static constexpr uint32_t kUnknownEvent = 1;
  static constexpr uint32_t kReasonInd = 0x12;
  static constexpr uint32_t kSceneInd = 0x14;

  // Copies a list of the state into a response array of at most 6 values.
  static void PutList(const std::vector<uint32_t> &list, uint32_t *len, uint32_t (&values)[6]) {
    *len = static_cast<uint32_t>(std::min<size_t>(list.size(), 6));
    std::copy(list.begin(), list.begin() + *len, values);
  }

  static void Install(Modem &modem, BaseModel *bm) {
    using Result = tarvik_extend_qmi_base_model_result_resp_msg_v01;
    extend::SetMessageHandler(
        modem, TARVIK_EXTEND_QMI_BASE_MODEL_SET_CFG_MSG_V01, [bm](Call &call) {
          const auto &req = call.Request<tarvik_extend_qmi_base_model_set_cfg_req_msg_v01>();
          std::lock_guard<std::mutex> lock(bm->mu_);
          bm->state_.cfg.assign(
              req.cfg, req.cfg + std::min<uint32_t>(req.cfg_len, TARVIK_BASE_MODEL_CFG_MAX));
          call.Response<Result>().result = 0;
        });
    extend::SetMessageHandler(
        modem, TARVIK_EXTEND_QMI_BASE_MODEL_SET_DETECTION_MSG_V01, [bm](Call &call) {
          const auto &req = call.Request<tarvik_extend_qmi_base_model_set_detection_req_msg_v01>();
          std::lock_guard<std::mutex> lock(bm->mu_);
          bm->state_.detection = req.enabled;
          call.Response<Result>().result = 0;
        });
    extend::SetMessageHandler(
        modem, TARVIK_EXTEND_QMI_BASE_MODEL_SET_EVENT_IND_MSG_V01, [bm](Call &call) {
          const auto &req = call.Request<tarvik_extend_qmi_base_model_set_event_ind_req_msg_v01>();
          std::lock_guard<std::mutex> lock(bm->mu_);
          if (req.event != kReasonInd && req.event != kSceneInd) {
            call.Response<Result>().result = kUnknownEvent;
          } else if (req.is_register != 0) {
            bm->state_.events.insert(req.event);
          } else {
            bm->state_.events.erase(req.event);
          }
        });
    extend::SetMessageHandler(
        modem, TARVIK_EXTEND_QMI_BASE_MODEL_GET_REASON_MSG_V01, [bm](Call &call) {
          const BaseModelState st = bm->State();
          auto &rsp = call.Response<tarvik_extend_qmi_base_model_get_reason_resp_msg_v01>();
          PutList(st.reason[0], &rsp.arfcn_len, rsp.arfcn);
          PutList(st.reason[1], &rsp.pci_len, rsp.pci);
          PutList(st.reason[2], &rsp.reason_bitmask_len, rsp.reason_bitmask);
          PutList(st.reason[3], &rsp.reason_bitmask_ext_len, rsp.reason_bitmask_ext);
        });
    extend::SetMessageHandler(modem, TARVIK_EXTEND_QMI_BASE_MODEL_SCENE_MSG_V01, [bm](Call &call) {
      const BaseModelState st = bm->State();
      auto &rsp = call.Response<tarvik_extend_qmi_base_model_scene_msg_v01>();
      rsp.scene_bitmask = st.scene;
      rsp.scene_bitmask_ext = st.scene_ext;
    });
    extend::SetMessageHandler(
        modem, TARVIK_EXTEND_QMI_BASE_MODEL_GET_DDS_INFO_MSG_V01, [bm](Call &call) {
          const BaseModelState st = bm->State();
          auto &rsp = call.Response<tarvik_extend_qmi_base_model_get_dds_info_resp_msg_v01>();
          static_assert(sizeof(rsp.info) == sizeof(st.dds), "DDS assistant record");
          memcpy(&rsp.info, st.dds.data(), sizeof(rsp.info));
        });
  }

  // Updates the state; true when the indication `ind` is due (detection and the event on).
  template <typename Update>
  static bool Detect(BaseModel *bm, uint32_t ind, Update update) {
    std::lock_guard<std::mutex> lock(bm->mu_);
    update(bm->state_);
    return bm->state_.detection != 0 && bm->state_.events.count(ind) != 0;
  }
};

namespace {
void InitModule(Modem &modem) {
  BaseModelHandlers::Install(modem, &modem.ModuleState<BaseModel>());
}
}  // namespace

BaseModelState BaseModel::State() const {
  std::lock_guard<std::mutex> lock(mu_);
  return state_;
}

void BaseModel::SetDdsInfo(const std::array<uint32_t, 17> &info) {
  std::lock_guard<std::mutex> lock(mu_);
  state_.dds = info;
}

BaseModel *BaseModelOf(Modem &modem) {
  return modem.FindModuleState<BaseModel>();
}

int DetectReason(Modem &modem, const std::array<std::vector<uint32_t>, 4> &lists,
                 const std::array<uint32_t, 4> &ind) {
  BaseModel *bm = BaseModelOf(modem);
  if (bm == nullptr) {
    return -1;
  }
  if (!BaseModelHandlers::Detect(bm, BaseModelHandlers::kReasonInd,
                                 [&](BaseModelState &st) { st.reason = lists; })) {
    return 0;
  }
  tarvik_extend_qmi_base_model_reason_ind_msg_v01 record;
  std::copy(ind.begin(), ind.end(), record.values);
  return extend::InjectIndication(modem, TARVIK_EXTEND_QMI_BASE_MODEL_REASON_IND_V01, &record,
                                  sizeof(record));
}

int DetectScene(Modem &modem, uint32_t scene, uint32_t scene_ext) {
  BaseModel *bm = BaseModelOf(modem);
  if (bm == nullptr) {
    return -1;
  }
  if (!BaseModelHandlers::Detect(bm, BaseModelHandlers::kSceneInd, [&](BaseModelState &st) {
        st.scene = scene;
        st.scene_ext = scene_ext;
      })) {
    return 0;
  }
  tarvik_extend_qmi_base_model_scene_msg_v01 record{0, scene, scene_ext};
  return extend::InjectIndication(modem, TARVIK_EXTEND_QMI_BASE_MODEL_SCENE_MSG_V01, &record,
                                  sizeof(record));
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("base-model", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
