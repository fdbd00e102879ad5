// The extend service's common request layer and the modem features built on it (restart and
// crash control, capability queries, MCFG, device name and status), and the library's clients of
// the standard UIM, NAS and RF SAR services. One section per family; log lines carry this file.
#include "tarvik_extend_cmn.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tarvik_extend_api.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_std_client.h"
#include "tarvik_utils_cmn.h"
#include "user_identity_module_v01.h"

/* ---------------------------------------------------------------------------------------------
 * Common request layer and result mapping
 * ------------------------------------------------------------------------------------------- */

static_assert(sizeof(tarvik_cmn_req_t) == TARVIK_CMN_REQ_SIZE, "common request layout");
static_assert(sizeof(tarvik_cmn_rsp_t) == TARVIK_CMN_RSP_SIZE, "common response layout");
static_assert(sizeof(tarvik_nv_item_req_t) == TARVIK_NV_ITEM_REQ_SIZE, "NV item request layout");
static_assert(sizeof(tarvik_nv_item_rsp_t) == TARVIK_NV_ITEM_RSP_SIZE, "NV item response layout");

namespace {

// Values of the feature-control header.
constexpr uint32_t kFeatureHeaderZero = 0;
constexpr uint32_t kFeatureHeaderThree = 3;
constexpr uint32_t kCmnRspHeader = 8;  // bytes before the response data

void PutU32(uint8_t *at, uint32_t value) {
  memcpy(at, &value, sizeof(value));
}

// Sends a filled common request; `rsp` must have been zeroed. On return *rsp_len holds the
// length the channel copied (only meaningful on status 0).
int SendCommon(tarvik_cmn_req_t *req, tarvik_cmn_rsp_t *rsp, uint32_t *rsp_len) {
  *rsp_len = TARVIK_CMN_RSP_SIZE;
  return tarvik_extend_qmi_send_sync(REQUEST_ID_COMMON, req, TARVIK_CMN_REQ_SIZE, rsp, rsp_len);
}

// The two senders' common path: refuses a missing response buffer, a payload of `limit` bytes
// or more and a missing payload, then writes `cmd`, the header words (the typed message's type
// and length) and the payload after them, and sends. The response is zeroed before anything.
// Refusals are logged under the exported sender `func`.
uint32_t SendChecked(const char *func, uint32_t cmd, const uint32_t *header, uint32_t header_words,
                     uint32_t len, uint32_t limit, const void *src, uint32_t *rsp) {
  if (rsp == nullptr) {
    TARVIK_LOGD_FN(func, "rsp is NULL");
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  memset(rsp, 0, TARVIK_CMN_RSP_SIZE);
  if (len >= limit) {
    TARVIK_LOGD_FN(func, "l is out of range");
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  if (len != 0 && src == nullptr) {
    TARVIK_LOGD_FN(func, "v is null");
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  tarvik_cmn_req_t req;
  memset(&req, 0, sizeof(req));
  req.cmd = cmd;
  const uint32_t at = header_words * sizeof(uint32_t);
  for (uint32_t i = 0; i < header_words; ++i) {
    PutU32(req.payload + i * sizeof(uint32_t), header[i]);
  }
  if (len != 0) {
    memcpy(req.payload + at, src, len);
  }
  uint32_t rsp_len = 0;
  return static_cast<uint32_t>(
      SendCommon(&req, reinterpret_cast<tarvik_cmn_rsp_t *>(rsp), &rsp_len));
}

// The extend-mode, build-information and feature-control functions all answer the same way.
uint32_t TransportOrModem(int status, const tarvik_cmn_rsp_t &rsp) {
  return status != 0 ? static_cast<uint32_t>(status) : static_cast<uint32_t>(rsp.result);
}

// Command 100: feature header (0, 3, code) and the argument byte.
int FeatureControl(uint32_t feature, uint8_t value, tarvik_cmn_rsp_t *rsp, uint32_t *rsp_len) {
  tarvik_cmn_req_t req;
  memset(&req, 0, sizeof(req));
  memset(rsp, 0, sizeof(*rsp));
  req.cmd = COMMON_CMD_FEATURE_CONTROL;
  PutU32(req.payload + 0, kFeatureHeaderZero);
  PutU32(req.payload + 4, kFeatureHeaderThree);
  PutU32(req.payload + 8, feature);
  req.payload[12] = value;
  return SendCommon(&req, rsp, rsp_len);
}

// A bare command with an optional one-byte argument.
int ByteCommand(uint32_t cmd, const uint8_t *value, tarvik_cmn_rsp_t *rsp) {
  tarvik_cmn_req_t req;
  memset(&req, 0, sizeof(req));
  memset(rsp, 0, sizeof(*rsp));
  req.cmd = cmd;
  if (value != nullptr) {
    req.payload[0] = *value;
  }
  uint32_t rsp_len = 0;
  return SendCommon(&req, rsp, &rsp_len);
}

}  // namespace

extern "C" {

TARVIK_EXPORT int tarvik_qmi_result_map(int result) {
  int mapped = result;
  switch (result) {
    case -1:
      mapped = TARVIK_FEAT_ERR_INVALID_PARAM;
      break;
    case -2:
      mapped = TARVIK_FEAT_ERR_NO_CLIENT;
      break;
    case -3:
      mapped = TARVIK_FEAT_ERR_SEND_FAILED;
      break;
    default:
      break;
  }
  TARVIK_LOGD("tarvik_qmi_result_map, old_result %d, new_result %d", result, mapped);
  return mapped;
}

TARVIK_EXPORT uint32_t tarvik_common_qmi_req(uint32_t cmd, uint32_t len, const void *src,
                                             uint32_t *rsp) {
  return SendChecked(__func__, cmd, nullptr, 0, len, TARVIK_CMN_LEN_LIMIT, src, rsp);
}

TARVIK_EXPORT uint32_t tarvik_send_common_qmi_msg(uint32_t t, uint32_t len, const void *v,
                                                  uint32_t *rsp) {
  TARVIK_LOGD("t %d", t);
  TARVIK_LOGD("l %d", len);
  const uint32_t header[2] = {t, len};
  return SendChecked(__func__, COMMON_CMD_MSG, header, 2, len, TARVIK_CMN_MSG_LEN_LIMIT, v, rsp);
}

TARVIK_EXPORT uint32_t tarvik_extend_mode_set(uint8_t mode) {
  tarvik_cmn_rsp_t rsp;
  const int status = ByteCommand(COMMON_CMD_EXTEND_MODE_SET, &mode, &rsp);
  return TransportOrModem(status, rsp);
}

TARVIK_EXPORT uint32_t tarvik_extend_mode_get(uint8_t *mode) {
  if (mode == nullptr) {
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  tarvik_cmn_rsp_t rsp;
  const int status = ByteCommand(COMMON_CMD_EXTEND_MODE_GET, nullptr, &rsp);
  if (status == 0) {
    *mode = rsp.data[0];
  }
  return TransportOrModem(status, rsp);
}

TARVIK_EXPORT uint32_t tarvik_extend_build_information(uint8_t value) {
  tarvik_cmn_rsp_t rsp;
  const int status = ByteCommand(COMMON_CMD_BUILD_INFORMATION, &value, &rsp);
  return TransportOrModem(status, rsp);
}

TARVIK_EXPORT uint32_t tarvik_modem_set_satellite(uint8_t value) {
  tarvik_cmn_rsp_t rsp;
  uint32_t rsp_len = 0;
  const int status = FeatureControl(COMMON_FEATURE_SATELLITE, value, &rsp, &rsp_len);
  return TransportOrModem(status, rsp);
}

TARVIK_EXPORT uint32_t tarvik_modem_rffe_device_check(uint8_t value) {
  tarvik_cmn_rsp_t rsp;
  uint32_t rsp_len = 0;
  const int status = FeatureControl(COMMON_FEATURE_RFFE_DEVICE_CHECK, value, &rsp, &rsp_len);
  printf("rffe device check result: %s\n", status == 0 ? "PASS" : "FAIL");
  if (status != 0) {
    return static_cast<uint32_t>(status);
  }
  printf("Return Len: %d\n", static_cast<int>(rsp_len));
  printf("Return data:\n");
  // The report starts at offset 8 of the response; never print past the response record.
  uint32_t shown = rsp_len;
  if (shown > TARVIK_CMN_RSP_SIZE - kCmnRspHeader) {
    shown = TARVIK_CMN_RSP_SIZE - kCmnRspHeader;
  }
  for (uint32_t i = 0; i < shown; ++i) {
    printf("%02X ", rsp.data[i]);
  }
  printf("\n");
  return static_cast<uint32_t>(rsp.result);
}

TARVIK_EXPORT uint32_t tarvik_modem_mtpl_gpio_control(uint8_t value) {
  tarvik_cmn_rsp_t rsp;
  uint32_t rsp_len = 0;
  const int status = FeatureControl(COMMON_FEATURE_MTPL_GPIO, value, &rsp, &rsp_len);
  if (status != 0) {
    printf("MTPL GPIO: QMI send failed, result=%d\n", status);
    return static_cast<uint32_t>(status);
  }
  const uint8_t outcome = rsp.data[1];  // response offset 9
  if (outcome == 0) {
    printf("MTPL GPIO: control(%d) SUCCESS\n", value);
  } else if (outcome == 2) {
    printf("MTPL GPIO: NOT SUPPORTED on this product\n");
  } else {
    printf("MTPL GPIO: control(%d) FAILED, modem_result=%d\n", value, outcome);
  }
  return static_cast<uint32_t>(rsp.result);
}

TARVIK_EXPORT uint32_t tarvik_extend_cellinfo(const uint8_t *src, int len, void *out,
                                              int *out_len) {
  if (len < 0 || static_cast<uint32_t>(len) > TARVIK_NV_ITEM_PAYLOAD_MAX ||
      (len > 0 && src == nullptr) || out == nullptr || out_len == nullptr) {
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  tarvik_nv_item_req_t req;
  tarvik_nv_item_rsp_t rsp;
  memset(&req, 0, sizeof(req));
  memset(&rsp, 0, sizeof(rsp));
  req.op = NV_ITEM_OP_CELLINFO;
  req.len = static_cast<uint32_t>(len);
  if (len > 0) {
    memcpy(req.payload, src, static_cast<size_t>(len));
  }
  uint32_t rsp_len = TARVIK_NV_ITEM_RSP_SIZE;
  const int status =
      tarvik_extend_qmi_send_sync(REQUEST_ID_NV_ITEM, &req, sizeof(req), &rsp, &rsp_len);
  if (status != 0) {
    *out_len = 0;
    printf("command execute error\n");
    return static_cast<uint32_t>(status);
  }
  if (rsp.result != 0) {
    printf("command internal error\n");
    return static_cast<uint32_t>(rsp.result);
  }
  // Never trust the claimed length past the bytes that arrived.
  const uint32_t held = rsp_len > offsetof(tarvik_nv_item_rsp_t, data)
                            ? rsp_len - static_cast<uint32_t>(offsetof(tarvik_nv_item_rsp_t, data))
                            : 0;
  uint32_t data_len = rsp.data_len;
  if (data_len > held) {
    data_len = held;
  }
  if (*out_len < 0 || static_cast<uint32_t>(*out_len) < data_len) {
    printf("rsp buffer is not big enough\n");
    return 0;
  }
  *out_len = static_cast<int>(data_len);
  memcpy(out, rsp.data, data_len);
  return 0;
}

TARVIK_EXPORT void tarvik_qmi_client_common_empty_unsol_ind_cb(qmi_client_type, unsigned int msg_id,
                                                               void *, unsigned int, void *) {
  TARVIK_LOGD("msg_id %d", msg_id);
}

TARVIK_EXPORT void tarvik_qmi_client_unsol_ind_cb(qmi_client_type, unsigned int msg_id, void *,
                                                  unsigned int, void *) {
  TARVIK_LOGD("msg_id %d", msg_id);
}

}  // extern "C"

/* ---------------------------------------------------------------------------------------------
 * Modem restart and crash control
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * Modem capability and identity queries
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * Modem configuration (MCFG) controls
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * Device name and status notifications
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * UIM client
 * One client of the UIM service, created on first use and thrown away after a service error or
 * the third transport failure. Its error callback is also registered on the NAS client, so that
 * a NAS service error marks the restart too.
 * ------------------------------------------------------------------------------------------- */

extern "C" {

TARVIK_EXPORT uint8_t SSR_Detected = 0;
TARVIK_EXPORT uint8_t failed_cnt = 0;
TARVIK_EXPORT uint8_t PURGE_STATE = 0;

TARVIK_EXPORT void error_cb(qmi_client_type, qmi_client_error_type error, void *) {
  TARVIK_LOGD("QMI error callback %d", error);
  if (error == QMI_SERVICE_ERR) {
    TARVIK_LOGD("SSR Detected, set SSR_Detected 1");
    __atomic_store_n(&SSR_Detected, 1, __ATOMIC_RELAXED);
  }
}

}  // extern "C"

namespace {

qmi_client_type uim_qmi_client = nullptr;

const tarvik_std::ClientSlot kUimSlot = {uim_get_service_object_internal_v01,
                                         UIM_V01_IDL_MAJOR_VERS,
                                         UIM_V01_IDL_MINOR_VERS,
                                         UIM_V01_IDL_TOOL_VERS,
                                         4000,
                                         tarvik_qmi_client_common_empty_unsol_ind_cb,
                                         error_cb};

constexpr uint32_t kUimTimeoutMs = 3000;
constexpr char kEsimEnablePath[] = "/nv/item_files/modem/uim/uimdrv/esim_enable";
static_assert(sizeof(kEsimEnablePath) - 1 == 43, "the eSIM enable file's path length");
// The ISD-R of an eUICC.
constexpr uint8_t kIsdrAid[16] = {0xA0, 0x00, 0x00, 0x05, 0x59, 0x10, 0x10, 0xFF,
                                  0xFF, 0xFF, 0xFF, 0x89, 0x00, 0x00, 0x01, 0x00};
constexpr uint8_t kNotReported = 3;
constexpr int kPurgeNoAnswer = -3;
constexpr int kPurgeFailed = -4;

uint8_t LoadFlag(const uint8_t *flag) {
  return __atomic_load_n(flag, __ATOMIC_RELAXED);
}
void StoreFlag(uint8_t *flag, uint8_t value) {
  __atomic_store_n(flag, value, __ATOMIC_RELAXED);
}

// A transport failure of a UIM request: logged and counted towards recovery.
void CountFailure(const char *func, int rc) {
  TARVIK_LOGE_FN(func, "send msg sync client error = %d", rc);
  StoreFlag(&failed_cnt, static_cast<uint8_t>(LoadFlag(&failed_cnt) + 1));
}

bool UimClient(const char *func, const char *name);

// Steps 1 to 4 of every UIM request: entry line, the restart check, a client. False when no
// client could be created (the request then ends with -1 through UimFinish).
bool UimBegin(const char *func, const char *name, bool ssr_check) {
  TARVIK_LOGD_FN(func, "function entry ------------->");
  if (ssr_check && LoadFlag(&SSR_Detected) != 0) {
    TARVIK_LOGD_FN(func, "SSR_Detected, try recovery");
    uim_qmi_client_recovery();
  }
  return UimClient(func, name);
}

// Step 3 and 4: a client, made if there is none.
bool UimClient(const char *func, const char *name) {
  if (uim_qmi_client == nullptr) {
    if (!init_uim_qmi_client()) {
      TARVIK_LOGE_FN(func, "init_uim_qmi_client failed");
      return false;
    }
    TARVIK_LOGD_FN(func, "%s try init_uim_qmi_client %p", name, uim_qmi_client);
  }
  TARVIK_LOGD_FN(func, "%s uim_qmi_client %p", name, uim_qmi_client);
  return true;
}

// True (after recovery) when the result or the failure count asks for a new client.
bool UimRecoverIfNeeded(const char *func, int rc) {
  if (rc != QMI_SERVICE_ERR && LoadFlag(&failed_cnt) < 3) {
    return false;
  }
  TARVIK_LOGE_FN(func, "QMI error, try recovery");
  uim_qmi_client_recovery();
  return true;
}

// Steps 7 and 8.
int UimFinish(const char *func, int rc) {
  UimRecoverIfNeeded(func, rc);
  TARVIK_LOGD_FN(func, "function exit <-------------");
  return rc;
}

// A request of the UIM service whose records the radio allocator holds while it lives.
template <typename Req, typename Resp>
using UimRequest = tarvik_std::Request<Req, Resp>;

// The card power requests, with the eSIM enable value written first when `esim` is given.
int UiccPower(const char *func, uint32_t power, uint32_t slot, uint32_t ignore_hotswap,
              const uint32_t *esim) {
  int rc = -1;
  if (UimBegin(func, "tarvik_uim_request_uicc_power_ex", true)) {
    auto write_esim = [&](const char *failed) {
      if (esim == nullptr || tarvik_efs_write(1, kEsimEnablePath, sizeof(kEsimEnablePath) - 1, esim,
                                              sizeof(*esim)) == 0) {
        return true;
      }
      TARVIK_LOGE_FN(func, "%s", failed);
      return false;
    };
    auto send = [&](auto &request, uint32_t msg_id) {
      rc = request.Send(uim_qmi_client, msg_id, kUimTimeoutMs);
      if (rc != QMI_NO_ERR) {
        StoreFlag(&failed_cnt, static_cast<uint8_t>(LoadFlag(&failed_cnt) + 1));
        TARVIK_LOGE_FN(func, "send msg sync client error = %d, failed_cnt = %d", rc,
                       LoadFlag(&failed_cnt));
      }
    };
    if (power == 0) {
      UimRequest<uim_power_down_req_msg_v01, uim_power_down_resp_msg_v01> request(func, __LINE__);
      if (request.missing() != tarvik_std::Missing::kNone) {
        return -1;
      }
      request.req().slot = static_cast<uim_slot_enum_v01>(slot);
      TARVIK_LOGD_FN(func, "tarvik_uim_request_uicc_power_ex power down sim");
      if (write_esim("Tarvik, power down write esim efs file failed")) {
        send(request, QMI_UIM_POWER_DOWN_REQ_V01);
      }
    } else {
      UimRequest<uim_power_up_req_msg_v01, uim_power_up_resp_msg_v01> request(func, __LINE__);
      if (request.missing() != tarvik_std::Missing::kNone) {
        return -1;
      }
      uim_power_up_req_msg_v01 &req = request.req();
      req.slot = static_cast<uim_slot_enum_v01>(slot);
      req.ignore_hot_swap_switch_valid = 1;
      req.ignore_hot_swap_switch = ignore_hotswap != 0 ? 1 : 0;
      req.card_mode_valid = 1;
      req.card_mode = 0;
      TARVIK_LOGD_FN(func, "tarvik_uim_request_uicc_power_ex power up sim, ignore hotswap = %d ",
                     req.ignore_hot_swap_switch);
      if (write_esim("Tarvik, power up write esim efs file failed")) {
        send(request, QMI_UIM_POWER_UP_REQ_V01);
      }
    }
  }
  TARVIK_LOGD_FN(func, "uicc_power_ex res = %d, failed_cnt = %d", rc, LoadFlag(&failed_cnt));
  return UimFinish(func, rc);
}

}  // namespace

extern "C" {

TARVIK_EXPORT bool init_uim_qmi_client(void) {
  const tarvik_std::OpenResult opened = tarvik_std::Open(kUimSlot, &uim_qmi_client);
  if (opened.init != QMI_NO_ERR) {
    TARVIK_LOGD("qmi_client_init UIM instance failed, qmi_client_error = %d", opened.init);
    return false;
  }
  TARVIK_LOGD("init_uim_qmi_client %p", uim_qmi_client);
  if (opened.register_cb != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_register_error_cb failed");
  }
  StoreFlag(&SSR_Detected, 0);
  StoreFlag(&failed_cnt, 0);
  return true;
}

TARVIK_EXPORT void uim_qmi_client_recovery(void) {
  TARVIK_LOGD("uim_qmi_client_recovery qmi_client_release %p", uim_qmi_client);
  if (tarvik_std::Close(&uim_qmi_client) != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_release failed");
  }
}

TARVIK_EXPORT int tarvik_uim_request_uicc_power_ex(const tarvik_uim_power_req_t *req) {
  if (req == nullptr) {
    TARVIK_LOGE("tarvik_uim_request_uicc_power_ex data error");
    return -1;
  }
  return UiccPower(__func__, req->power, req->slot, req->ignore_hotswap, nullptr);
}

TARVIK_EXPORT int tarvik_esim_request_uicc_power_ex(const tarvik_esim_power_req_t *req) {
  if (req == nullptr) {
    TARVIK_LOGE("tarvik_esim_request_uicc_power_ex data error");
    return -1;
  }
  return UiccPower(__func__, req->power, req->slot, req->ignore_hotswap, &req->esim_enable);
}

TARVIK_EXPORT int tarvik_setSimType(const tarvik_uim_sim_type_req_t *req) {
  TARVIK_LOG_ENTRY();
  if (LoadFlag(&SSR_Detected) != 0) {
    TARVIK_LOGD("SSR_Detected, try recovery");
    uim_qmi_client_recovery();
  }
  // A record of more values than the message holds is refused like a missing one.
  if (req == nullptr || req->count > TARVIK_UIM_SIM_TYPE_MAX) {
    TARVIK_LOGE("tarvik_set_sim_type data error");
    return -2;
  }
  auto *resp = static_cast<uim_set_sim_type_resp_msg_v01 *>(
      qcril_malloc_adv(sizeof(uim_set_sim_type_resp_msg_v01), __func__, __LINE__));
  if (resp == nullptr) {
    TARVIK_LOGE("error allocating memory for get_sim_type_resp_ptr");
    return -1;
  }
  memset(resp, 0, sizeof(*resp));
  int rc = -1;
  bool have_client = uim_qmi_client != nullptr;
  if (!have_client) {
    have_client = init_uim_qmi_client();
    if (have_client) {
      TARVIK_LOGD("tarvik_set_sim_type try init_uim_qmi_client %p", uim_qmi_client);
    } else {
      TARVIK_LOGE("init_uim_qmi_client failed");
    }
  }
  if (have_client) {
    TARVIK_LOGD("tarvik_set_sim_type uim_qmi_client %p", uim_qmi_client);
    uim_set_sim_type_req_msg_v01 request;
    memset(&request, 0, sizeof(request));
    request.sim_type_len = req->count;
    for (uint32_t i = 0; i < req->count; ++i) {
      request.sim_type[i] = req->values[i];
      TARVIK_LOGD("Set_sim_type value is %d", static_cast<int>(req->values[i]));
    }
    rc = qmi_client_send_msg_sync(uim_qmi_client, QMI_UIM_SET_SIM_TYPE_REQ_V01, &request,
                                  sizeof(request), resp, sizeof(*resp), kUimTimeoutMs);
    if (rc != QMI_NO_ERR) {
      TARVIK_LOGE("send msg sync client error = %d", rc);
    }
  }
  qcril_free_adv(resp, __func__, __LINE__);
  TARVIK_LOGD("tarvik_set_sim_type res = %d ", rc);
  TARVIK_LOG_EXIT();
  return rc;
}

TARVIK_EXPORT int tarvik_uim_request_eid(const tarvik_uim_slot_req_t *req, uint8_t *eid) {
  const char *func = __func__;
  if (req == nullptr || eid == nullptr) {
    TARVIK_LOGE("tarvik_uim_request_eid data error");
    return -1;
  }
  if (!UimBegin(func, func, true)) {
    return UimFinish(func, -1);
  }
  UimRequest<uim_get_eid_req_msg_v01, uim_get_eid_resp_msg_v01> request(func, __LINE__);
  if (request.missing() != tarvik_std::Missing::kNone) {
    return -1;
  }
  request.req().slot = static_cast<uim_slot_enum_v01>(req->slot);
  const int rc = request.Send(uim_qmi_client, QMI_UIM_GET_EID_REQ_V01, kUimTimeoutMs);
  if (rc != QMI_NO_ERR) {
    CountFailure(func, rc);
  } else if (request.Succeeded(rc) && request.resp().eid_value_valid) {
    // Always the 16 EID bytes, whatever length the answer states.
    memcpy(eid, request.resp().eid_value, TARVIK_UIM_EID_LEN);
  }
  return UimFinish(func, rc);
}

TARVIK_EXPORT int tarvik_uim_get_card_status(uint16_t *states) {
  const char *func = __func__;
  if (states == nullptr) {
    TARVIK_LOGE("tarvik_uim_get_card_status data error");
    return -1;
  }
  if (!UimBegin(func, func, false)) {
    return UimFinish(func, -1);
  }
  UimRequest<uim_get_card_status_req_msg_v01, uim_get_card_status_resp_msg_v01> request(func,
                                                                                        __LINE__);
  if (request.missing() != tarvik_std::Missing::kNone) {
    return -1;
  }
  uint8_t state[2] = {kNotReported, kNotReported};
  request.req().extended_card_status_valid = 1;
  request.req().extended_card_status = 1;
  const int rc = request.Send(uim_qmi_client, QMI_UIM_GET_CARD_STATUS_REQ_V01, kUimTimeoutMs);
  if (rc != QMI_NO_ERR) {
    CountFailure(func, rc);
  } else {
    if (request.Succeeded(rc)) {
      TARVIK_LOGD("tarvik_uim_get_card_status check response");
      const uim_get_card_status_resp_msg_v01 &resp = request.resp();
      if (resp.extended_card_status_valid == 1 && resp.extended_card_status.card_info_len >= 1) {
        const uint32_t cards = resp.extended_card_status.card_info_len;
        for (uint32_t i = 0; i < cards && i < QMI_UIM_EXTENDED_CARDS_MAX_V01; ++i) {
          const int card_state = resp.extended_card_status.card_info[i].card_state;
          TARVIK_LOGD("SIM[%d] State = %d", static_cast<int>(i), card_state);
          if (i < 2) {
            state[i] = static_cast<uint8_t>(card_state);
          }
        }
      }
    }
    *states = static_cast<uint16_t>(state[0] | (state[1] << 8));
  }
  return UimFinish(func, rc);
}

TARVIK_EXPORT int tarvik_uim_open_channel(const tarvik_uim_open_channel_req_t *req,
                                          uint8_t *channel_id) {
  const char *func = __func__;
  if (req == nullptr || channel_id == nullptr) {
    TARVIK_LOGE("tarvik_uim_open_channel data error");
    return -1;
  }
  if (!UimBegin(func, func, true)) {
    return UimFinish(func, -1);
  }
  UimRequest<uim_open_logical_channel_req_msg_v01, uim_open_logical_channel_resp_msg_v01> request(
      func, __LINE__);
  if (request.missing() != tarvik_std::Missing::kNone) {
    return -1;
  }
  uim_open_logical_channel_req_msg_v01 &r = request.req();
  r.slot = static_cast<uim_slot_enum_v01>(req->slot);
  r.aid_valid = 1;
  r.aid_len = sizeof(kIsdrAid);
  memcpy(r.aid, kIsdrAid, sizeof(kIsdrAid));
  r.file_control_information_valid = 1;
  r.file_control_information = req->file_control_information;
  int rc = request.Send(uim_qmi_client, QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01, kUimTimeoutMs);
  if (rc != QMI_NO_ERR) {
    CountFailure(func, rc);
  } else if (!request.Succeeded(rc)) {
    TARVIK_LOGE("tarvik_uim_open_channel failed");
    rc = -1;
  } else {
    TARVIK_LOGD("tarvik_uim_open_channel successfully");
    if (request.resp().channel_id_valid) {
      *channel_id = request.resp().channel_id;
    }
  }
  return UimFinish(func, rc);
}

TARVIK_EXPORT int tarvik_uim_close_channel(const tarvik_uim_close_channel_req_t *req) {
  const char *func = __func__;
  if (req == nullptr) {
    TARVIK_LOGE("tarvik_uim_close_channel data error");
    return -1;
  }
  if (!UimBegin(func, func, true)) {
    return UimFinish(func, -1);
  }
  UimRequest<uim_logical_channel_req_msg_v01, uim_logical_channel_resp_msg_v01> request(func,
                                                                                        __LINE__);
  if (request.missing() != tarvik_std::Missing::kNone) {
    return -1;
  }
  uim_logical_channel_req_msg_v01 &r = request.req();
  r.slot = static_cast<uim_slot_enum_v01>(req->slot);
  r.channel_id_valid = 1;
  r.channel_id = req->channel_id;
  r.terminate_application_valid = 1;
  r.terminate_application = 0;
  const int rc = request.Send(uim_qmi_client, QMI_UIM_LOGICAL_CHANNEL_REQ_V01, kUimTimeoutMs);
  if (rc != QMI_NO_ERR) {
    CountFailure(func, rc);
  } else if (request.Succeeded(rc)) {
    TARVIK_LOGD("tarvik_uim_close_channel successfully");
  }
  return UimFinish(func, rc);
}

TARVIK_EXPORT int tarvik_uim_send_apdu(const tarvik_uim_apdu_req_t *req, uint8_t *resp) {
  const char *func = __func__;
  if (req == nullptr || resp == nullptr) {
    TARVIK_LOGE("tarvik_uim_send_apdu data error");
    return -1;
  }
  if (!UimBegin(func, func, true)) {
    return UimFinish(func, -1);
  }
  UimRequest<uim_send_apdu_req_msg_v01, uim_send_apdu_resp_msg_v01> request(func, __LINE__);
  if (request.missing() != tarvik_std::Missing::kNone) {
    return -1;
  }
  uim_send_apdu_req_msg_v01 &r = request.req();
  TARVIK_LOGD("tarvik_uim_send_apdu apdu_len = %d", req->apdu_len);
  r.slot = static_cast<uim_slot_enum_v01>(req->slot);
  r.apdu_len = req->apdu_len;
  memcpy(r.apdu, req->apdu, req->apdu_len);
  r.channel_id_valid = 1;
  r.channel_id = req->channel_id;
  r.procedure_bytes_valid = 1;
  r.procedure_bytes = 1;
  int rc = request.Send(uim_qmi_client, QMI_UIM_SEND_APDU_REQ_V01, kUimTimeoutMs);
  if (rc != QMI_NO_ERR) {
    CountFailure(func, rc);
  } else if (!request.Succeeded(rc)) {
    TARVIK_LOGE("tarvik_uim_send_apdu failed");
    rc = -1;
  } else {
    TARVIK_LOGD("tarvik_uim_send_apdu successfully");
    // The decoder holds the length to the record's array, so the copy stays inside the
    // caller's TARVIK_UIM_APDU_RESP_BUF_LEN bytes.
    uint32_t len = request.resp().apdu_len;
    if (len > QMI_UIM_APDU_DATA_MAX_V01) {
      len = QMI_UIM_APDU_DATA_MAX_V01;
    }
    resp[0] = static_cast<uint8_t>(len & 0xFF);
    memcpy(resp + 1, request.resp().apdu, len);
  }
  return UimFinish(func, rc);
}

TARVIK_EXPORT int tarvik_uim_purge_guti(const tarvik_uim_slot_req_t *req) {
  const char *func = __func__;
  if (req == nullptr) {
    TARVIK_LOGE("tarvik_uim_purge_guti data error");
    return -1;
  }
  if (!UimBegin(func, func, true)) {
    return UimRecoverIfNeeded(func, -1) ? QMI_SERVICE_ERR : -1;
  }
  int rc = 0;
  {
    UimRequest<uim_temporary_id_purge_req_msg_v01, uim_temporary_id_purge_resp_msg_v01> request(
        func, __LINE__);
    if (request.missing() != tarvik_std::Missing::kNone) {
      TARVIK_LOGE("tarvik_uim_purge_guti malloc failed");
      return -1;
    }
    TARVIK_LOGD("tarvik_uim_purge_guti slot = %d ", req->slot);
    uim_temporary_id_purge_req_msg_v01 &r = request.req();
    r.session_information.session_type =
        req->slot == 0 ? UIM_SESSION_TYPE_PRIMARY_GW_V01 : UIM_SESSION_TYPE_SECONDARY_GW_V01;
    r.purge_mask = QMI_UIM_PURGE_GUTI_V01;
    rc = request.Send(uim_qmi_client, QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01, kUimTimeoutMs);
    if (rc != QMI_NO_ERR) {
      CountFailure(func, rc);
    } else {
      TARVIK_LOGD("tarvik_uim_purge_guti got qmi response");
      if (!request.Succeeded(rc)) {
        rc = kPurgeFailed;
      } else {
        StoreFlag(&PURGE_STATE, 0);
        for (int i = 0; i < 20 && LoadFlag(&PURGE_STATE) == 0; ++i) {
          usleep(100 * 1000);
        }
        const uint8_t state = LoadFlag(&PURGE_STATE);
        TARVIK_LOGD("tarvik_uim_purge_guti ind message received, UIM_PURGE_STATE = %d", state);
        rc = state == 1 ? 0 : state == 2 ? kPurgeFailed : kPurgeNoAnswer;
      }
    }
  }
  if (UimRecoverIfNeeded(func, rc)) {
    return QMI_SERVICE_ERR;
  }
  TARVIK_LOG_EXIT();
  return rc;
}

}  // extern "C"

/* ---------------------------------------------------------------------------------------------
 * NAS client and 5G network controls
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * RF SAR client
 * ------------------------------------------------------------------------------------------- */
