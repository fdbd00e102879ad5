// The extend service's common request layer and the modem features built on it (restart and
// crash control, capability queries, MCFG, device name and status), and the library's clients of
// the standard UIM, NAS and RF SAR services. One section per family; log lines carry this file.
#include "tarvik_extend_cmn.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "network_access_service_v01.h"
#include "sar_v01.h"
#include "tarvik_extend_api.h"
#include "tarvik_std_client.h"
#include "tarvik_utils_cmn.h"

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

/* ---------------------------------------------------------------------------------------------
 * NAS client and 5G network controls
 * ------------------------------------------------------------------------------------------- */

namespace {

constexpr uint32_t kNasBindAttempts = 10;
constexpr useconds_t kNasBindRetryUs = 500 * 1000;
constexpr uint32_t kNasControlTimeoutMs = 3000;

// Long-lived client of the controls; the pass-through's client of one request.
qmi_client_type nas_qmi_client = nullptr;
qmi_client_type qmi_client_ptr = nullptr;

qmi_idl_service_object_type NasObject(uint32_t major, uint32_t minor, uint32_t library) {
  return nas_get_service_object_internal_v01(major, minor, library);
}

const tarvik_std::ClientSlot kNasControlSlot = {NasObject,
                                                NAS_V01_IDL_MAJOR_VERS,
                                                NAS_V01_IDL_MINOR_VERS,
                                                NAS_V01_IDL_TOOL_VERS,
                                                4000,
                                                tarvik_qmi_client_common_empty_unsol_ind_cb,
                                                nullptr};

const tarvik_std::ClientSlot kNasPassThroughSlot = {
    NasObject, NAS_V01_IDL_MAJOR_VERS,         NAS_V01_IDL_MINOR_VERS,    NAS_V01_IDL_TOOL_VERS,
    5000,      tarvik_qmi_client_unsol_ind_cb, tarvik_qmi_client_error_cb};

// Binds `client` to the process instance id: true when the modem accepted one of the attempts.
bool nas_qmi_binding(qmi_client_type client) {
  const uint32_t instance = tarvik_get_ril_process_instance_id();
  TARVIK_LOGD("nas_qmi_binding instanceId:%d", instance);
  if (instance > NAS_SECONDARY_SUBSCRIPTION_V01) {
    return false;
  }
  for (uint32_t attempt = 0; attempt < kNasBindAttempts; ++attempt) {
    nas_bind_subscription_req_msg_v01 req;
    nas_bind_subscription_resp_msg_v01 resp;
    memset(&req, 0, sizeof(req));
    memset(&resp, 0, sizeof(resp));
    req.subs_type = static_cast<nas_subs_type_enum_v01>(instance);
    const int rc = qmi_client_send_msg_sync(client, QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01, &req,
                                            sizeof(req), &resp, sizeof(resp), kNasControlTimeoutMs);
    if (rc == QMI_NO_ERR && resp.resp.result == QMI_RESULT_SUCCESS_V01) {
      return true;
    }
    if (rc == QMI_SERVICE_ERR) {
      return false;
    }
    usleep(kNasBindRetryUs);
  }
  return false;
}

// What tells the three controls apart: their exported name, log texts and message.
struct NasControl {
  const char *func;
  const char *init_prefix;  // before "try init_nas_qmi_client %p"
  const char *init_failed;
  const char *req_name;
  const char *resp_name;
  const char *field;  // the request field whose value is logged
  uint32_t msg_id;
};

template <typename Req>
int SendNasControl(const NasControl &c, void (*fill)(Req &, uint8_t), uint8_t value, int line) {
  TARVIK_LOGD_FN(c.func, "function entry ------------->");
  if (nas_qmi_client == nullptr) {
    if (!init_nas_qmi_client()) {
      TARVIK_LOGE_FN(c.func, "%s", c.init_failed);
      return -1;
    }
    TARVIK_LOGD_FN(c.func, "%stry init_nas_qmi_client %p", c.init_prefix,
                   static_cast<void *>(nas_qmi_client));
  }
  tarvik_std::Request<Req, nas_bind_subscription_resp_msg_v01> request(c.func, line);
  if (request.missing() != tarvik_std::Missing::kNone) {
    TARVIK_LOGE_FN(c.func, "qcril_malloc %s fail",
                   request.missing() == tarvik_std::Missing::kRequest ? c.req_name : c.resp_name);
    return -1;
  }
  fill(request.req(), value);
  TARVIK_LOGD_FN(c.func, "%s is %d", c.field, value);
  const int rc = request.Send(nas_qmi_client, c.msg_id, kNasControlTimeoutMs);
  TARVIK_LOGD_FN(c.func, "result=%d", rc);
  TARVIK_LOGD_FN(c.func, "function exit <-------------");
  return rc;
}

// The pass-through's client of one request.
void tarvik_qmi_client_init() {
  const tarvik_std::OpenResult opened = tarvik_std::Open(kNasPassThroughSlot, &qmi_client_ptr);
  if (opened.init != QMI_NO_ERR) {
    TARVIK_LOGE("tarvik_qmi_client_init instance failed, qmi_client_error = %d", opened.init);
  } else if (opened.register_cb != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_register_error_cb failed");
    tarvik_std::Close(&qmi_client_ptr);
  }
}

void tarvik_qmi_client_recovery() {
  TARVIK_LOGD("tarvik_qmi_client_recovery, qmi_client_ptr %p", static_cast<void *>(qmi_client_ptr));
  if (qmi_client_ptr == nullptr) {
    TARVIK_LOGD("qmi_client_ptr is NULL");
    return;
  }
  if (tarvik_std::Close(&qmi_client_ptr) != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_release failed");
  }
}

}  // namespace

extern "C" {

TARVIK_EXPORT bool init_nas_qmi_client(void) {
  qmi_client_type client = nullptr;
  const tarvik_std::OpenResult opened = tarvik_std::Open(kNasControlSlot, &client);
  if (opened.init != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_init NAS instance failed, qmi_client_error = %d", opened.init);
    return false;
  }
  TARVIK_LOGD("init_nas_qmi_client %p", static_cast<void *>(client));
  if (qmi_client_register_error_cb(client, error_cb, nullptr) != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_register_error_cb failed");
  }
  if (!nas_qmi_binding(client)) {
    TARVIK_LOGE("nas_qmi_binding failed");
    // An unbound client is of no use to anybody: giving it back keeps repeated attempts from
    // piling up handles.
    tarvik_std::Close(&client);
    return false;
  }
  TARVIK_LOGD("Nas qmi binding succeeds. instanceId:%d", tarvik_get_ril_process_instance_id());
  nas_qmi_client = client;
  return true;
}

TARVIK_EXPORT int tarvik_deprioritize_sa(uint32_t value) {
  static const NasControl kControl = {__func__,
                                      "",
                                      "init failed",
                                      "nas_deprioritize_nr5g_req_msg_v01",
                                      "nas_deprioritize_nr5g_resp_msg_v01",
                                      "deprioritize_nr5g",
                                      QMI_NAS_DEPRIORITIZE_NR5G_REQ_MSG_V01};
  return SendNasControl<nas_deprioritize_nr5g_req_msg_v01>(
      kControl, [](nas_deprioritize_nr5g_req_msg_v01 &r, uint8_t v) { r.deprioritize_nr5g = v; },
      (value & 0xFFu) != 0 ? 1 : 0, __LINE__);
}

TARVIK_EXPORT int tarvik_set_nr_mode(uint32_t mode) {
  static const NasControl kControl = {__func__,
                                      "",
                                      "init failed",
                                      "nas_set_system_selection_preference_req_msg_v01",
                                      "nas_set_system_selection_preference_resp_msg_v01",
                                      "nr5g_disable_mode",
                                      QMI_NAS_SET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01};
  const uint8_t disable =
      mode == NAS_NR5G_DISABLE_MODE_SA_V01 || mode == NAS_NR5G_DISABLE_MODE_NSA_V01
          ? static_cast<uint8_t>(mode)
          : 0;
  return SendNasControl<nas_set_system_selection_preference_req_msg_v01>(
      kControl,
      [](nas_set_system_selection_preference_req_msg_v01 &r, uint8_t v) {
        r.nr5g_disable_mode_valid = 1;
        r.nr5g_disable_mode = static_cast<nas_nr5g_disable_mode_enum_v01>(v);
      },
      disable, __LINE__);
}

TARVIK_EXPORT int tarvik_enable_endc(uint32_t value) {
  static const NasControl kControl = {__func__,
                                      "tarvik_set_fiveG_network_mode ",
                                      "tarvik_set_fiveG_network_mode failed",
                                      "nas_set_endc_config_req_msg_v01",
                                      "nas_set_endc_config_resp_msg_v01",
                                      "enable_endc",
                                      QMI_NAS_SET_ENDC_CONFIG_REQ_MSG_V01};
  return SendNasControl<nas_set_endc_config_req_msg_v01>(
      kControl, [](nas_set_endc_config_req_msg_v01 &r, uint8_t v) { r.enable_endc = v; },
      (value & 0xFFu) != 0 ? 1 : 0, __LINE__);
}

TARVIK_EXPORT int tarvik_send_nas_qmi_req_msg(uint32_t msg_id, void *qmi_request, uint32_t req_len,
                                              void *qmi_response, uint32_t resp_len,
                                              uint32_t time_out_ms) {
  TARVIK_LOG_ENTRY();
  TARVIK_LOGD("tarvik_send_nas_qmi_req_msg, msg_id = %d, time_out_ms = %d, qmi_client_ptr = 0x%08x",
              msg_id, time_out_ms,
              static_cast<unsigned>(reinterpret_cast<uintptr_t>(qmi_client_ptr)));
  int rc = -1;
  if (qmi_request == nullptr) {
    TARVIK_LOGD("qmi_request is NULL");
  } else if (qmi_response == nullptr) {
    TARVIK_LOGD("qmi_response is NULL");
  } else {
    if (qmi_client_ptr == nullptr) {
      TARVIK_LOGD("init qmi_client");
      tarvik_qmi_client_init();
    }
    if (qmi_client_ptr == nullptr) {
      TARVIK_LOGD("qmi_client_ptr is NULL");
    } else {
      rc = qmi_client_send_msg_sync(qmi_client_ptr, msg_id, qmi_request, req_len, qmi_response,
                                    resp_len, time_out_ms);
      if (rc != QMI_NO_ERR) {
        TARVIK_LOGD("qmi_client_send_msg_sync fail, qmi_client_error = %d", rc);
      }
    }
  }
  tarvik_qmi_client_recovery();
  TARVIK_LOG_EXIT();
  return rc;
}

TARVIK_EXPORT void tarvik_qmi_client_error_cb(qmi_client_type, qmi_client_error_type error,
                                              void *) {
  TARVIK_LOGD("QMI error callback %d", error);
}

}  // extern "C"

/* ---------------------------------------------------------------------------------------------
 * RF SAR client
 * ------------------------------------------------------------------------------------------- */

namespace {

constexpr uint32_t kSarTimeoutMs = 30000;

qmi_client_type sar_qmi_client = nullptr;

qmi_idl_service_object_type SarObject(uint32_t major, uint32_t minor, uint32_t library) {
  return sar_get_service_object_internal_v01(major, minor, library);
}

// 4 ms: the SAR service is either there at once or not asked for.
const tarvik_std::ClientSlot kSarSlot = {SarObject,
                                         SAR_V01_IDL_MAJOR_VERS,
                                         SAR_V01_IDL_MINOR_VERS,
                                         SAR_V01_IDL_TOOL_VERS,
                                         4,
                                         tarvik_qmi_client_common_empty_unsol_ind_cb,
                                         nullptr};

// Sends `request` on the SAR client, re-creating the client and sending once more after any
// failure but a time-out. False when no client could be had at first; else true with *rc the
// transport result of the last send made (or of the first, when re-creation failed).
template <typename Req, typename Resp>
bool SarSendWithRetry(const char *func, tarvik_std::Request<Req, Resp> &request, uint32_t msg_id,
                      int *rc) {
  if (tarvik_check_and_init_qmi_client_rf_sar() == 0) {
    TARVIK_LOGE_FN(func, "tarvik_check_and_init_qmi_client_rf_sar FAIL");
    return false;
  }
  *rc = request.Send(sar_qmi_client, msg_id, kSarTimeoutMs);
  if (*rc == QMI_NO_ERR) {
    return true;
  }
  TARVIK_LOGE_FN(func, "qmi_client_send_msg_sync failed, qmi_client_error = %d", *rc);
  if (*rc == QMI_TIMEOUT_ERR) {
    TARVIK_LOGE_FN(func, "QMI_TIMEOUT_ERR");
    return true;
  }
  TARVIK_LOGE_FN(func, "non QMI_TIMEOUT_ERR, will reinit this qmi client and retry this qmi req");
  if (tarvik_force_init_qmi_client_rf_sar() == 0) {
    TARVIK_LOGE_FN(func, "tarvik_force_init_qmi_client_rf_sar FAIL");
    return true;
  }
  *rc = request.Send(sar_qmi_client, msg_id, kSarTimeoutMs);
  if (*rc != QMI_NO_ERR) {
    TARVIK_LOGE_FN(func, "retry qmi_client_send_msg_sync failed, qmi_client_error = %d", *rc);
  }
  return true;
}

}  // namespace

extern "C" {

TARVIK_EXPORT void tarvik_init_qmi_client_rf_sar(void) {
  const tarvik_std::OpenResult opened = tarvik_std::Open(kSarSlot, &sar_qmi_client);
  if (opened.init != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_init_instance failed, qmi_client_error = %d", opened.init);
  }
}

TARVIK_EXPORT void tarvik_release_qmi_client_rf_sar(void) {
  if (tarvik_std::Close(&sar_qmi_client) != QMI_NO_ERR) {
    TARVIK_LOGE("qmi_client_release failed");
  }
}

TARVIK_EXPORT int tarvik_check_and_init_qmi_client_rf_sar(void) {
  TARVIK_LOG_ENTRY();
  if (sar_qmi_client == nullptr) {
    tarvik_init_qmi_client_rf_sar();
  }
  int ret = 1;
  if (sar_qmi_client == nullptr) {
    TARVIK_LOGE("qmi_client_error is NULL");
    ret = 0;
  }
  TARVIK_LOGD("function exit, ret = %d <-------------", ret);
  return ret;
}

TARVIK_EXPORT int tarvik_force_init_qmi_client_rf_sar(void) {
  tarvik_release_qmi_client_rf_sar();
  return tarvik_check_and_init_qmi_client_rf_sar();
}

TARVIK_EXPORT int tarvik_get_sar_dsi(void) {
  TARVIK_LOG_ENTRY();
  tarvik_std::Request<tarvik_std::NoRecord, sar_rf_get_state_resp_msg_v01> request(__func__,
                                                                                   __LINE__);
  int rc = -1;
  int dsi = -1;
  if (request.missing() != tarvik_std::Missing::kNone) {
    TARVIK_LOGE("qcril_malloc sar_rf_get_state_resp_msg_v01 fail");
  } else if (SarSendWithRetry(__func__, request, QMI_SAR_RF_GET_STATE_REQ_MSG_V01, &rc) &&
             rc == QMI_NO_ERR) {
    const sar_rf_get_state_resp_msg_v01 &resp = request.resp();
    TARVIK_LOGD("dsi vailid = %d , dsi value = %d", resp.sar_rf_state_valid, resp.sar_rf_state);
    dsi = static_cast<int>(resp.sar_rf_state);
  }
  TARVIK_LOG_EXIT();
  return dsi;
}

TARVIK_EXPORT int tarvik_set_sar_dsi(uint32_t dsi) {
  TARVIK_LOG_ENTRY();
  tarvik_std::Request<sar_rf_set_state_req_msg_v01, sar_rf_set_state_resp_msg_v01> request(
      __func__, __LINE__);
  int rc = -1;
  if (request.missing() != tarvik_std::Missing::kNone) {
    TARVIK_LOGE("qcril_malloc sar_rf_set_state_req_msg_v01 fail");
  } else {
    request.req().sar_rf_state = dsi >= 1 && dsi <= SAR_RF_STATE_MAX_V01 ? dsi : 0;
    if (!SarSendWithRetry(__func__, request, QMI_SAR_RF_SET_STATE_REQ_MSG_V01, &rc)) {
      rc = -1;
    }
  }
  TARVIK_LOGD("function exit, qmi_client_error = %d <-------------", rc);
  return rc;
}

}  // extern "C"
