// Base model requests: messages 0x0E to 0x14 of the extend service, records on the caller's
// stack. Every line here is at debug level, the failures included.
#include "tarvik_base_model.h"

#include <string.h>

#include "tarvik_extend_api.h"
#include "tarvik_utils_cmn.h"

namespace {

constexpr uint32_t kNullCfg = 1;
constexpr uint32_t kBadCfgLen = 2;
constexpr uint32_t kNullRsp = 3;
constexpr uint32_t kTooSmall = 4;

// Sends the filled request with a zeroed answer and logs the transport's result under the
// exported function `func`; a failed exchange leaves the answer's result 0, which callers return.
template <typename Req, typename Rsp>
void Exchange(const char *func, uint32_t msg_id, Req *req, Rsp *rsp) {
  memset(rsp, 0, sizeof(*rsp));
  const int qmi_result = tarvik_extend_qmi_base_model_send_sync(static_cast<int>(msg_id), req,
                                                                static_cast<int>(sizeof(Req)), rsp,
                                                                static_cast<int>(sizeof(Rsp)));
  TARVIK_LOGD_FN(func, "%s, qmi_result = %d", func, qmi_result);
}

// Entry of the get function `func`: logs the offered capacity, then checks for a buffer and a
// capacity of at least `need` elements.
uint32_t CheckOutput(const char *func, const uint32_t *data_rsp, const uint32_t *p_rsp_len,
                     uint32_t need) {
  TARVIK_LOGD_FN(func, "%s, p_rsp_len = %d", func, p_rsp_len != nullptr ? *p_rsp_len : 0);
  if (data_rsp == nullptr) {
    TARVIK_LOGD_FN(func, "data_rsp is null");
    return kNullRsp;
  }
  if (p_rsp_len == nullptr || *p_rsp_len < need) {
    TARVIK_LOGD_FN(func, "*p_rsp_len is too small");
    return kTooSmall;
  }
  return 0;
}

// A get function's steps up to the answer: the output checks, then request `msg_id` (a zeroed
// `Req`); returns a refusal or the answer's result, 0 when *rsp holds a good answer.
template <typename Req, typename Rsp>
uint32_t Get(const char *func, const uint32_t *data_rsp, const uint32_t *p_rsp_len, uint32_t need,
             uint32_t msg_id, Rsp *rsp) {
  const uint32_t refused = CheckOutput(func, data_rsp, p_rsp_len, need);
  if (refused != 0) {
    return refused;
  }
  Req req;
  memset(&req, 0, sizeof(req));
  Exchange(func, msg_id, &req, rsp);
  return rsp->result;
}

// Appends one list of the reason answer; false (and the caller returns 4) when its count is
// beyond what the list can hold.
bool AppendList(uint32_t count, const uint32_t (&values)[TARVIK_BASE_MODEL_LIST_MAX],
                uint32_t *data_rsp, uint32_t *p_rsp_len) {
  if (count > TARVIK_BASE_MODEL_LIST_MAX) {
    return false;
  }
  memcpy(data_rsp + *p_rsp_len, values, count * sizeof(uint32_t));
  *p_rsp_len += count;
  return true;
}

}  // namespace

extern "C" {

TARVIK_EXPORT uint32_t tarvik_base_model_set_modem_cfg(const uint32_t *cfg, uint32_t cfg_len) {
  TARVIK_LOGD("tarvik_base_model_set_modem_cfg, cfg_len = %d", cfg_len);
  if (cfg == nullptr) {
    TARVIK_LOGD("cfg is null");
    return kNullCfg;
  }
  if (cfg_len == 0 || cfg_len > TARVIK_BASE_MODEL_CFG_MAX) {
    TARVIK_LOGD("cfg_len is invalid");
    return kBadCfgLen;
  }
  tarvik_extend_qmi_base_model_set_cfg_req_msg_v01 req;
  tarvik_extend_qmi_base_model_result_resp_msg_v01 rsp;
  memset(&req, 0, sizeof(req));
  req.cfg_len = cfg_len;
  memcpy(req.cfg, cfg, cfg_len * sizeof(uint32_t));
  Exchange(__func__, TARVIK_EXTEND_QMI_BASE_MODEL_SET_CFG_MSG_V01, &req, &rsp);
  return rsp.result;
}

TARVIK_EXPORT uint32_t tarvik_base_model_set_modem_model_detection_switch(uint8_t enabled) {
  TARVIK_LOGD("tarvik_base_model_set_modem_model_detection_switch, enabled = %d", enabled);
  tarvik_extend_qmi_base_model_set_detection_req_msg_v01 req;
  tarvik_extend_qmi_base_model_result_resp_msg_v01 rsp;
  memset(&req, 0, sizeof(req));
  req.enabled = enabled;
  Exchange(__func__, TARVIK_EXTEND_QMI_BASE_MODEL_SET_DETECTION_MSG_V01, &req, &rsp);
  return rsp.result;
}

TARVIK_EXPORT uint32_t tarvik_base_model_set_modem_event_ind_switch(uint32_t event,
                                                                    uint8_t is_register) {
  TARVIK_LOGD("tarvik_base_model_set_modem_event_ind_switch, event = %d, is_register = %d", event,
              is_register);
  tarvik_extend_qmi_base_model_set_event_ind_req_msg_v01 req;
  tarvik_extend_qmi_base_model_result_resp_msg_v01 rsp;
  memset(&req, 0, sizeof(req));
  req.event = event;
  req.is_register = is_register;
  Exchange(__func__, TARVIK_EXTEND_QMI_BASE_MODEL_SET_EVENT_IND_MSG_V01, &req, &rsp);
  return rsp.result;
}

TARVIK_EXPORT uint32_t tarvik_base_model_get_modem_reason(uint32_t *data_rsp, uint32_t *p_rsp_len) {
  tarvik_extend_qmi_base_model_get_reason_resp_msg_v01 rsp;
  const uint32_t status = Get<tarvik_extend_qmi_base_model_get_reason_req_msg_v01>(
      __func__, data_rsp, p_rsp_len, TARVIK_BASE_MODEL_REASON_CAPACITY,
      TARVIK_EXTEND_QMI_BASE_MODEL_GET_REASON_MSG_V01, &rsp);
  if (status != 0) {
    return status;
  }
  // The lists in answer order; the first entry of the first two is logged.
  struct List {
    uint32_t count;
    const uint32_t (&values)[TARVIK_BASE_MODEL_LIST_MAX];
    const char *name;
    bool shown;
  };
  const List lists[] = {
      {rsp.arfcn_len, rsp.arfcn, "arfcn", true},
      {rsp.pci_len, rsp.pci, "pci", true},
      {rsp.reason_bitmask_len, rsp.reason_bitmask, "reason_bitmask", false},
      {rsp.reason_bitmask_ext_len, rsp.reason_bitmask_ext, "reason_bitmask_ext", false}};
  *p_rsp_len = 0;
  for (const List &list : lists) {
    if (!AppendList(list.count, list.values, data_rsp, p_rsp_len)) {
      TARVIK_LOGD("rsp.%s_len is too large", list.name);
      return kTooSmall;
    }
    if (list.shown) {
      TARVIK_LOGD("rsp.%s[0] = %d", list.name, list.values[0]);
    }
  }
  return 0;
}

TARVIK_EXPORT uint32_t tarvik_base_model_get_modem_scene(uint32_t *data_rsp, uint32_t *p_rsp_len) {
  tarvik_extend_qmi_base_model_scene_msg_v01 rsp;
  const uint32_t status = Get<tarvik_extend_qmi_empty_req_msg_v01>(
      __func__, data_rsp, p_rsp_len, TARVIK_BASE_MODEL_SCENE_CAPACITY,
      TARVIK_EXTEND_QMI_BASE_MODEL_SCENE_MSG_V01, &rsp);
  if (status != 0) {
    return status;
  }
  data_rsp[0] = rsp.scene_bitmask;
  data_rsp[1] = rsp.scene_bitmask_ext;
  *p_rsp_len = 2;
  TARVIK_LOGD("rsp.scene_bitmask = %d, rsp.scene_bitmask_ext = %d, p_rsp_len = %d",
              rsp.scene_bitmask, rsp.scene_bitmask_ext, *p_rsp_len);
  return 0;
}

TARVIK_EXPORT uint32_t tarvik_base_model_get_dds_assistant_info(uint32_t *data_rsp,
                                                                uint32_t *p_rsp_len) {
  tarvik_extend_qmi_base_model_get_dds_info_resp_msg_v01 rsp;
  const uint32_t status = Get<tarvik_extend_qmi_empty_req_msg_v01>(
      __func__, data_rsp, p_rsp_len, TARVIK_BASE_MODEL_DDS_CAPACITY,
      TARVIK_EXTEND_QMI_BASE_MODEL_GET_DDS_INFO_MSG_V01, &rsp);
  if (status != 0) {
    return status;
  }
  static_assert(sizeof(rsp.info) == TARVIK_BASE_MODEL_DDS_WORDS * sizeof(uint32_t),
                "DDS assistant record");
  memcpy(data_rsp, &rsp.info, sizeof(rsp.info));
  *p_rsp_len = TARVIK_BASE_MODEL_DDS_WORDS;
  return 0;
}

}  // extern "C"
