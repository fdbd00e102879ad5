// The extend service's common request layer and the modem features built on it (restart and
// crash control, capability queries, MCFG, device name and status), and the library's clients of
// the standard UIM, NAS and RF SAR services. One section per family; log lines carry this file.
#include "tarvik_extend_cmn.h"

#include <stdio.h>
#include <string.h>

#include "tarvik_extend_api.h"
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

/* ---------------------------------------------------------------------------------------------
 * RF SAR client
 * ------------------------------------------------------------------------------------------- */
