// The extend service's common request layer and the modem features built on it (restart and
// crash control, capability queries, MCFG, device name and status), and the library's clients of
// the standard UIM, NAS and RF SAR services. One section per family; log lines carry this file.
#include "tarvik_extend_cmn.h"

#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "network_access_service_v01.h"
#include "sar_v01.h"
#include "tarvik_bytes.h"
#include "tarvik_cmn_request.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_std_client.h"
#include "tarvik_utils_cmn.h"
#include "tarvik_utils_cust.h"
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
constexpr const char *kCommonSender = "tarvik_common_qmi_req";
constexpr const char *kMessageSender = "tarvik_send_common_qmi_msg";

// Fills a zeroed request with `cmd`, the header words from offset 8 (a typed message's type and
// length) and the payload after them, and sends it into `rsp` (zeroed here). *length: what the
// channel reported (the capacity, 508, unless it copied an answer).
int Exchange(uint32_t cmd, const uint32_t *header, uint32_t header_words, const void *payload,
             uint32_t len, tarvik_cmn_rsp_t *rsp, uint32_t *length) {
  tarvik_cmn_req_t req;
  memset(&req, 0, sizeof(req));
  memset(rsp, 0, sizeof(*rsp));
  req.cmd = cmd;
  const uint32_t at = header_words * sizeof(uint32_t);
  for (uint32_t i = 0; i < header_words; ++i) {
    tarvik_bytes::StoreU32(req.payload + i * sizeof(uint32_t), header[i]);
  }
  if (len != 0) {
    memcpy(req.payload + at, payload, len);
  }
  *length = TARVIK_CMN_RSP_SIZE;
  return tarvik_extend_qmi_send_sync(REQUEST_ID_COMMON, &req, TARVIK_CMN_REQ_SIZE, rsp, length);
}

// The two senders' checks: a missing response buffer, a payload of `limit` bytes or more, a
// missing payload; refusals logged under the exported sender `func`. The response is zeroed
// before anything is checked.
uint32_t SendChecked(const char *func, uint32_t cmd, const uint32_t *header, uint32_t header_words,
                     uint32_t len, uint32_t limit, const void *src, tarvik_cmn_rsp_t *rsp,
                     uint32_t *length) {
  if (rsp == nullptr) {
    TARVIK_LOGD_FN(func, "rsp is NULL");
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  memset(rsp, 0, sizeof(*rsp));
  if (len >= limit) {
    TARVIK_LOGD_FN(func, "l is out of range");
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  if (len != 0 && src == nullptr) {
    TARVIK_LOGD_FN(func, "v is null");
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  return static_cast<uint32_t>(Exchange(cmd, header, header_words, src, len, rsp, length));
}

uint32_t SendCommand(uint32_t cmd, uint32_t len, const void *src, tarvik_cmn_rsp_t *rsp,
                     uint32_t *length) {
  return SendChecked(kCommonSender, cmd, nullptr, 0, len, TARVIK_CMN_LEN_LIMIT, src, rsp, length);
}

uint32_t SendMessage(uint32_t t, uint32_t len, const void *v, tarvik_cmn_rsp_t *rsp,
                     uint32_t *length) {
  TARVIK_LOGD_FN(kMessageSender, "t %d", t);
  TARVIK_LOGD_FN(kMessageSender, "l %d", len);
  const uint32_t header[2] = {t, len};
  return SendChecked(kMessageSender, COMMON_CMD_MSG, header, 2, len, TARVIK_CMN_MSG_LEN_LIMIT, v,
                     rsp, length);
}

// Command 100: feature header (0, 3, code) and the argument byte.
tarvik_cmn::Answer FeatureControl(uint32_t feature, uint8_t value) {
  uint8_t payload[13];
  tarvik_bytes::StoreU32(payload + 0, kFeatureHeaderZero);
  tarvik_bytes::StoreU32(payload + 4, kFeatureHeaderThree);
  tarvik_bytes::StoreU32(payload + 8, feature);
  payload[12] = value;
  return tarvik_cmn::Command(COMMON_CMD_FEATURE_CONTROL, payload, sizeof(payload));
}

}  // namespace

namespace tarvik_cmn {

uint32_t Answer::Word(size_t at) const {
  return at + sizeof(uint32_t) <= sizeof(rsp.data) ? tarvik_bytes::LoadU32(rsp.data + at) : 0;
}

void Answer::Map() {
  status = tarvik_qmi_result_map(status);
}

int Answer::Check(const Site &site, ChannelLine channel, const char *modem_line) const {
  if (status != 0) {
    switch (channel) {
      case ChannelLine::kNone:
        break;
      case ChannelLine::kCommonReq:
        TARVIK_CMN_LOGD(site, "tarvik_common_qmi_req fail, REQUEST_ID_COMMON");
        break;
      case ChannelLine::kExtendSend:
        TARVIK_CMN_LOGD(site, "tarvik_extend_qmi_send_sync fail, REQUEST_ID_COMMON");
        break;
      case ChannelLine::kQmiFailed:
        TARVIK_CMN_LOGD(site, "qmi failed: qmi_result=%d", status);
        break;
    }
    return status;
  }
  if (rsp.result != 0) {
    TARVIK_CMN_LOGD(site, "%s", modem_line);
  }
  return rsp.result;
}

Answer Command(uint32_t cmd, const void *payload, uint32_t len) {
  Answer a;
  a.status = static_cast<int>(SendCommand(cmd, len, payload, &a.rsp, &a.length));
  return a;
}

Answer Message(uint32_t type, const void *payload, uint32_t len) {
  Answer a;
  a.status = static_cast<int>(SendMessage(type, len, payload, &a.rsp, &a.length));
  return a;
}

Answer Whole(uint32_t cmd, const void *payload, uint32_t len) {
  Answer a;
  a.status = Exchange(cmd, nullptr, 0, payload, len, &a.rsp, &a.length);
  return a;
}

}  // namespace tarvik_cmn

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
  uint32_t length = 0;
  return SendCommand(cmd, len, src, reinterpret_cast<tarvik_cmn_rsp_t *>(rsp), &length);
}

TARVIK_EXPORT uint32_t tarvik_send_common_qmi_msg(uint32_t t, uint32_t len, const void *v,
                                                  uint32_t *rsp) {
  uint32_t length = 0;
  return SendMessage(t, len, v, reinterpret_cast<tarvik_cmn_rsp_t *>(rsp), &length);
}

TARVIK_EXPORT uint32_t tarvik_extend_mode_set(uint8_t mode) {
  return static_cast<uint32_t>(
      tarvik_cmn::Command(COMMON_CMD_EXTEND_MODE_SET, &mode, sizeof(mode)).Outcome());
}

TARVIK_EXPORT uint32_t tarvik_extend_mode_get(uint8_t *mode) {
  if (mode == nullptr) {
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  const tarvik_cmn::Answer a = tarvik_cmn::Command(COMMON_CMD_EXTEND_MODE_GET);
  if (a.status == 0) {
    *mode = a.rsp.data[0];
  }
  return static_cast<uint32_t>(a.Outcome());
}

TARVIK_EXPORT uint32_t tarvik_extend_build_information(uint8_t value) {
  return static_cast<uint32_t>(
      tarvik_cmn::Command(COMMON_CMD_BUILD_INFORMATION, &value, sizeof(value)).Outcome());
}

TARVIK_EXPORT uint32_t tarvik_modem_set_satellite(uint8_t value) {
  return static_cast<uint32_t>(FeatureControl(COMMON_FEATURE_SATELLITE, value).Outcome());
}

TARVIK_EXPORT uint32_t tarvik_modem_rffe_device_check(uint8_t value) {
  const tarvik_cmn::Answer a = FeatureControl(COMMON_FEATURE_RFFE_DEVICE_CHECK, value);
  printf("rffe device check result: %s\n", a.status == 0 ? "PASS" : "FAIL");
  if (a.status != 0) {
    return static_cast<uint32_t>(a.status);
  }
  printf("Return Len: %d\n", static_cast<int>(a.length));
  printf("Return data:\n");
  // The report starts at offset 8 of the response; never print past the response record.
  uint32_t shown = a.length;
  if (shown > TARVIK_CMN_RSP_SIZE - tarvik_cmn::kRspHeader) {
    shown = TARVIK_CMN_RSP_SIZE - tarvik_cmn::kRspHeader;
  }
  for (uint32_t i = 0; i < shown; ++i) {
    printf("%02X ", a.rsp.data[i]);
  }
  printf("\n");
  return static_cast<uint32_t>(a.result());
}

TARVIK_EXPORT uint32_t tarvik_modem_mtpl_gpio_control(uint8_t value) {
  const tarvik_cmn::Answer a = FeatureControl(COMMON_FEATURE_MTPL_GPIO, value);
  if (a.status != 0) {
    printf("MTPL GPIO: QMI send failed, result=%d\n", a.status);
    return static_cast<uint32_t>(a.status);
  }
  const uint8_t outcome = a.rsp.data[1];  // response offset 9
  if (outcome == 0) {
    printf("MTPL GPIO: control(%d) SUCCESS\n", value);
  } else if (outcome == 2) {
    printf("MTPL GPIO: NOT SUPPORTED on this product\n");
  } else {
    printf("MTPL GPIO: control(%d) FAILED, modem_result=%d\n", value, outcome);
  }
  return static_cast<uint32_t>(a.result());
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

namespace {

constexpr const char *kSsrCountPrefix = "persist.radio.ssr_count_";
constexpr const char *kLegacyMaskProp = "persist.radio.legacy_hook_update_mask";
constexpr const char *kLegacyMaskFile = "/oem/cmn/legacy_hook_update_mask";
constexpr uint32_t kSsrNonMask = 0x80000000u;
// Bits of a restart flag that count on their own: 0-8 and 16-19.
constexpr uint32_t kSsrCountedBits = 0x000F01FFu;
constexpr uint32_t kLegacyMaskFileLen = 32;

// The count's property name is built in this one buffer; the lock keeps two counting threads
// from building names over each other and from losing an increment between read and write.
char g_ssr_count_name[256];
pthread_mutex_t g_ssr_count_lock = PTHREAD_MUTEX_INITIALIZER;

// Typed message with a 4-byte flag; the channel's status mapped and logged at `site`.
tarvik_cmn::Answer SendFlagMessage(const tarvik_cmn::Site &site, uint32_t type, uint32_t flag) {
  tarvik_cmn::Answer a = tarvik_cmn::Message(type, &flag, sizeof(flag));
  a.Map();
  TARVIK_CMN_LOGD(site, "result = %d, rsp.result = %d", a.status, a.result());
  return a;
}

// The crash order and what it logs; neither failure stops the caller's next step.
void SendCrash(const tarvik_cmn::Site &site, uint32_t flag) {
  tarvik_save_modem_ssr_count(static_cast<int>(flag));
  (void)SendFlagMessage(site, COMMON_MSG_MODEM_CRASH, flag)
      .Check(site, tarvik_cmn::ChannelLine::kExtendSend);
}

// The wait around a crash; false (logged) when the configured wait is negative.
bool CrashWait(const char *func) {
  if (static_cast<int>(tarvik_modem_ssr_wait_s(-1)) < 0) {
    TARVIK_LOGE_FN(func, "wait_s < 0, ssr is stoped");
    return false;
  }
  return true;
}

}  // namespace

extern "C" {

TARVIK_EXPORT void tarvik_update_modem_ssr_count(uint32_t type) {
  pthread_mutex_lock(&g_ssr_count_lock);
  snprintf(g_ssr_count_name, sizeof(g_ssr_count_name), "%s0x%08x", kSsrCountPrefix, type);
  int32_t old_count = 0;
  tarvik_get_property_value_from_int(g_ssr_count_name, &old_count, 0);
  TARVIK_LOGD("ssr_type = 0x%08X, ssr_count_old = %d", type, old_count);
  tarvik_set_property_value_to_int(g_ssr_count_name, old_count + 1);
  pthread_mutex_unlock(&g_ssr_count_lock);
}

TARVIK_EXPORT void tarvik_save_modem_ssr_count(int flag) {
  const uint32_t bits = static_cast<uint32_t>(flag);
  if ((bits & kSsrNonMask) != 0) {
    TARVIK_LOGD("non-mask ssr type, flag = 0x%08X", bits);
    tarvik_update_modem_ssr_count(bits);
    return;
  }
  for (uint32_t bit = 0; bit < 32; ++bit) {
    const uint32_t value = 1u << bit;
    if ((bits & kSsrCountedBits & value) != 0) {
      tarvik_update_modem_ssr_count(value);
    }
  }
}

TARVIK_EXPORT void tarvik_modem_ssr(uint32_t flag) {
  TARVIK_LOGD("flag = 0x%08X", flag);
  tarvik_save_modem_ssr_count(static_cast<int>(flag));
  (void)SendFlagMessage(TARVIK_CMN_SITE, COMMON_MSG_MODEM_SSR, flag);
}

TARVIK_EXPORT void tarvik_modem_crash_without_orange_screen(uint32_t flag) {
  TARVIK_LOGD("flag = 0x%08X", flag);
  const uint32_t before = tarvik_get_modem_ssr_type();
  TARVIK_LOGD("before ssr, type: %d", before);
  const bool changed = tarvik_set_modem_ssr_type(MODEM_RESTART_LEVEL_ID_SSR) != 0;
  if (changed) {
    TARVIK_LOGD("ssr type is changed, need to wait before ssr");
    if (!CrashWait(__func__)) {
      return;
    }
  } else {
    TARVIK_LOGE("ssr type is not changed, wont wait before ssr");
  }
  SendCrash(TARVIK_CMN_SITE, flag);
  if (!changed) {
    TARVIK_LOGD("ssr type is not changed, wont wait after ssr");
    return;
  }
  TARVIK_LOGD("ssr type is changed, need to wait after ssr");
  if (CrashWait(__func__)) {
    tarvik_set_modem_ssr_type(before);
  }
}

TARVIK_EXPORT void tarvik_modem_crash_with_orange_screen(uint32_t flag) {
  TARVIK_LOGD("flag = 0x%08X", flag);
  if (tarvik_set_modem_ssr_type(MODEM_RESTART_LEVEL_ID_DUMP) != 0) {
    TARVIK_LOGD("ssr type is changed, need to wait before dump");
    if (!CrashWait(__func__)) {
      return;
    }
  }
  SendCrash(TARVIK_CMN_SITE, flag);
}

TARVIK_EXPORT uint32_t tarvik_modem_nv_sync(void) {
  const tarvik_cmn::Answer a = tarvik_cmn::Message(COMMON_MSG_NV_SYNC);
  TARVIK_LOGD("tarvik_send_common_qmi_msg, ret_sync: %d, rsp.result: %d", a.status, a.result());
  return static_cast<uint32_t>(a.status) | static_cast<uint32_t>(a.result());
}

TARVIK_EXPORT int tarvik_get_legacy_hook_update_mask(void) {
  int32_t mask = 0;
  tarvik_get_property_value_from_int(kLegacyMaskProp, &mask, 0);
  TARVIK_LOGD("The cust_mask from prop: %d", mask);
  if (mask > 0) {
    return mask;
  }
  TARVIK_LOGD("The cust_mask from prop is not cfged, will read it from efs");
  uint32_t len = sizeof(mask);
  const int ret = tarvik_efs_read(TARVIK_SUB_0, kLegacyMaskFile, kLegacyMaskFileLen, &mask, &len);
  TARVIK_LOGD("The cust_mask from efs: %d, ret = %d", mask, ret);
  return mask;
}

}  // extern "C"

/* ---------------------------------------------------------------------------------------------
 * Modem capability and identity queries
 * ------------------------------------------------------------------------------------------- */

namespace {

constexpr const char *kDsdaCapProp = "persist.vendor.radio.dsda_cap";
constexpr uint32_t kDsdaDefaultStatus = 1;

// A bare command answered with a u32 at response offset 8; its lines at `site`. `short_log`
// picks the shorter "result = ..." line some queries log. False on any failure.
bool NumberQuery(const tarvik_cmn::Site &site, uint32_t cmd, bool short_log, uint32_t *value) {
  const tarvik_cmn::Answer a = tarvik_cmn::Command(cmd);
  if (short_log) {
    TARVIK_CMN_LOGD(site, "result = %d, rsp.result = %d", a.status, a.result());
  } else {
    TARVIK_CMN_LOGD(site, "get result = %d, rsp.result = %d", a.status, a.result());
  }
  if (a.Check(site, tarvik_cmn::ChannelLine::kCommonReq) != 0) {
    return false;
  }
  *value = a.Word(0);
  return true;
}

// The text and record queries share their steps up to the answer: the argument checks, then
// the request. Returns 0 with the answer in *a, or the status to return (the count then set as
// the caller's contract says).
uint32_t AnswerQuery(const tarvik_cmn::Site &site, uint32_t type, const void *out,
                     const char *null_line, uint32_t *in_out_len, tarvik_cmn::Answer *a) {
  if (in_out_len == nullptr) {
    TARVIK_CMN_LOGD(site, "p_in_out_len is null");
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  if (out == nullptr) {
    TARVIK_CMN_LOGD(site, "%s", null_line);
    *in_out_len = 0;
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  *a = tarvik_cmn::Command(type);
  TARVIK_CMN_LOGD(site, "get result = %d, rsp.result = %d, type = %d, in_len = %d", a->status,
                  a->result(), static_cast<int>(type), static_cast<int>(*in_out_len));
  const int verdict = a->Check(site, tarvik_cmn::ChannelLine::kCommonReq);
  if (verdict != 0) {
    *in_out_len = 0;
  }
  return static_cast<uint32_t>(verdict);
}

// The answer of `n` bytes does not fit a capacity of *in_out_len (it must exceed n).
bool RefuseShort(const char *func, uint32_t n, uint32_t *in_out_len) {
  if (*in_out_len > n) {
    return false;
  }
  TARVIK_LOGD_FN(func, "in_len(%d) is too short, need to > %d", static_cast<int>(*in_out_len),
                 static_cast<int>(n));
  *in_out_len = 0;
  return true;
}

}  // namespace

extern "C" {

TARVIK_EXPORT uint32_t tarvik_modem_chipset_id_get(void) {
  uint32_t value = 0;
  if (NumberQuery(TARVIK_CMN_SITE, COMMON_CMD_CHIPSET_ID, false, &value)) {
    TARVIK_LOGD("The current chipset_id: %d", static_cast<int>(value));
  }
  return value;
}

TARVIK_EXPORT uint32_t tarvik_modem_hw_id_get(void) {
  uint32_t value = 0;
  if (NumberQuery(TARVIK_CMN_SITE, COMMON_CMD_HW_ID, false, &value)) {
    TARVIK_LOGD("The current hw_id: %d", static_cast<int>(value));
  }
  return value;
}

TARVIK_EXPORT uint32_t tarvik_modem_bp_chip_id_get(void) {
  uint32_t value = 0;
  if (NumberQuery(TARVIK_CMN_SITE, COMMON_CMD_BP_CHIP_ID, true, &value)) {
    TARVIK_LOGD("The current modem_bp_chip_id: %d", static_cast<int>(value));
  }
  return value;
}

TARVIK_EXPORT bool tarvik_modem_cdma_support_status_get(void) {
  uint32_t value = 0;
  if (NumberQuery(TARVIK_CMN_SITE, COMMON_CMD_CDMA_SUPPORT, true, &value)) {
    TARVIK_LOGD("The current cdma_support_status: %d", static_cast<int>(value));
  }
  return value == 1;
}

TARVIK_EXPORT bool tarvik_modem_dsda_support_status_get(void) {
  uint32_t value = 0;
  if (NumberQuery(TARVIK_CMN_SITE, COMMON_CMD_DSDA_SUPPORT, true, &value)) {
    TARVIK_LOGD("The current dsda_support_status: %d", static_cast<int>(value));
  }
  return value == 1;
}

TARVIK_EXPORT uint32_t tarvik_modem_dsda_default_status_get(void) {
  TARVIK_LOGD("The dsda default status is on");
  TARVIK_LOGD("default_status: %d", static_cast<int>(kDsdaDefaultStatus));
  return kDsdaDefaultStatus;
}

TARVIK_EXPORT uint32_t tarvik_modem_string_info_get(uint32_t type, char *str_info,
                                                    uint32_t *in_out_len) {
  tarvik_cmn::Answer a;
  const uint32_t status =
      AnswerQuery(TARVIK_CMN_SITE, type, str_info, "str_info is null", in_out_len, &a);
  if (status != 0) {
    return status;
  }
  const tarvik_cmn_rsp_t &rsp = a.rsp;
  // An answer that fills the data area without a terminator is cut to its first 499 bytes.
  const uint32_t n = static_cast<uint32_t>(
      strnlen(reinterpret_cast<const char *>(rsp.data), TARVIK_CMN_RSP_DATA_MAX - 1));
  if (RefuseShort(__func__, n, in_out_len)) {
    return TARVIK_CMN_ERR_BUF_TOO_SHORT;
  }
  memcpy(str_info, rsp.data, n);
  str_info[n] = '\0';
  *in_out_len = n;
  TARVIK_LOGD("String info from modem: %s, len: %d", str_info, static_cast<int>(n));
  return 0;
}

TARVIK_EXPORT uint32_t tarvik_modem_raw_content_get(uint32_t type, void *raw_content,
                                                    uint32_t *in_out_len) {
  tarvik_cmn::Answer a;
  const uint32_t status =
      AnswerQuery(TARVIK_CMN_SITE, type, raw_content, "raw_content is null", in_out_len, &a);
  if (status != 0) {
    return status;
  }
  const tarvik_cmn_rsp_t &rsp = a.rsp;
  const uint32_t record_len = rsp.data[0];
  if (RefuseShort(__func__, record_len, in_out_len)) {
    return TARVIK_CMN_ERR_BUF_TOO_SHORT;
  }
  memcpy(raw_content, rsp.data, record_len);
  *in_out_len = record_len;
  TARVIK_LOGD("raw_content from modem: len: %d", static_cast<int>(record_len));
  return 0;
}

TARVIK_EXPORT uint32_t tarvik_get_card_mode_flag(void) {
  uint32_t mode = CARD_MODE_FLAG_DSDS;
  if (tarvik_get_single_sim_flag()) {
    TARVIK_LOGD("RAVU_SINGLESIM_ON, CARD_MODE_FLAG_SS");
    mode = CARD_MODE_FLAG_SS;
  } else if (!tarvik_modem_dsda_support_status_get()) {
    TARVIK_LOGD("The dsda of modem is not supported, CARD_MODE_FLAG_DSDS");
  } else {
    const int32_t dsda_cap_def = static_cast<int32_t>(tarvik_modem_dsda_default_status_get());
    TARVIK_LOGD("dsda default flag is TRUE, dsda_cap_def %d", dsda_cap_def);
    int32_t dsda_cap = 0;
    tarvik_get_property_value_from_int(kDsdaCapProp, &dsda_cap, dsda_cap_def);
    TARVIK_LOGD("dsda_cap %d", dsda_cap);
    if (dsda_cap != 0) {
      TARVIK_LOGD(
          "The sim is mult type, dsda is supported and dsda_prop is on, CARD_MODE_FLAG_DSDA");
      mode = CARD_MODE_FLAG_DSDA;
    } else {
      TARVIK_LOGD(
          "The sim is mult type, dsda is supported and dsda_prop is off, CARD_MODE_FLAG_DSDS");
    }
  }
  TARVIK_LOGD("function exit, card_mode_flag = %d <-------------", static_cast<int>(mode));
  return mode;
}

}  // extern "C"

/* ---------------------------------------------------------------------------------------------
 * Modem configuration (MCFG) controls
 * ------------------------------------------------------------------------------------------- */

namespace {

// The typed-message answer header: the type answered and its payload's length, then the
// payload.
constexpr size_t kTypedRspType = 0;
constexpr size_t kTypedRspLen = 4;
constexpr size_t kTypedRspValue = 8;

// Typed message `type` of the discovery timer, its lines at `site`; true when the modem carried
// it out and answered that type (*a then holds the answer).
bool DiscoverTimerMessage(const tarvik_cmn::Site &site, uint32_t type, uint32_t len,
                          const void *value, tarvik_cmn::Answer *a) {
  *a = tarvik_cmn::Message(type, value, len);
  a->Map();
  TARVIK_CMN_LOGD(site, "result = %d, rsp.result = %d", a->status, a->result());
  if (a->Check(site, tarvik_cmn::ChannelLine::kNone) != 0) {
    return false;
  }
  const uint32_t t_rsp = a->Word(kTypedRspType);
  TARVIK_CMN_LOGD(site, "t_rsp %d", static_cast<int>(t_rsp));
  if (t_rsp != type) {
    TARVIK_CMN_LOGD(site, "t_rsp != t");
    return false;
  }
  TARVIK_CMN_LOGD(site, "l_rsp %d", static_cast<int>(a->Word(kTypedRspLen)));
  return true;
}

// A path kind must be `first` or `first + 2` (the two kinds); logged under `func`.
bool PathKindValid(const char *func, uint32_t kind, uint32_t first, const void *path) {
  TARVIK_LOGD_FN(func, "mbn_msg_type = %d", static_cast<int>(kind));
  if (kind != first && kind != first + 2) {
    TARVIK_LOGD_FN(func, "mbn_msg_type is invalid");
    return false;
  }
  if (path == nullptr) {
    TARVIK_LOGD_FN(func, "path_val is null");
    return false;
  }
  return true;
}

// Sends a path command, its lines at `site`; the status to return (0: *a holds the answer).
uint32_t PathRequest(const tarvik_cmn::Site &site, uint32_t kind, uint32_t len, const void *payload,
                     tarvik_cmn::Answer *a) {
  *a = tarvik_cmn::Command(kind, payload, len);
  TARVIK_CMN_LOGD(site, "get result = %d, rsp.result = %d", a->status, a->result());
  return static_cast<uint32_t>(a->Check(site, tarvik_cmn::ChannelLine::kCommonReq));
}

}  // namespace

extern "C" {

TARVIK_EXPORT uint32_t tarvik_mcfg_mbn_txt_path_get(char *path_val, uint32_t mbn_msg_type) {
  if (!PathKindValid(__func__, mbn_msg_type, COMMON_CMD_MBN_TXT_PATH_GET, path_val)) {
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  tarvik_cmn::Answer a;
  const uint32_t status = PathRequest(TARVIK_CMN_SITE, mbn_msg_type, 0, nullptr, &a);
  if (status != 0) {
    return status;
  }
  memcpy(path_val, a.rsp.data, TARVIK_MCFG_PATH_SIZE);
  path_val[TARVIK_MCFG_PATH_SIZE - 1] = '\0';
  TARVIK_LOGD("path_val: %s", path_val);
  return 0;
}

TARVIK_EXPORT uint32_t tarvik_mcfg_mbn_txt_path_set(const char *path_val, uint32_t mbn_msg_type) {
  if (!PathKindValid(__func__, mbn_msg_type, COMMON_CMD_MBN_TXT_PATH_SET, path_val)) {
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  const size_t len = strnlen(path_val, TARVIK_MCFG_PATH_SIZE);
  if (len >= TARVIK_MCFG_PATH_SIZE) {
    TARVIK_LOGD("path_val len can not >= %d", static_cast<int>(TARVIK_MCFG_PATH_SIZE));
    return TARVIK_CMN_ERR_INVALID_ARG;
  }
  TARVIK_LOGD("path_val = %s", path_val);
  tarvik_cmn::Answer a;
  return PathRequest(TARVIK_CMN_SITE, mbn_msg_type, static_cast<uint32_t>(len), path_val, &a);
}

TARVIK_EXPORT uint32_t tarvik_mbn_list_cust_max_num_get(void) {
  uint32_t value = 0;
  if (NumberQuery(TARVIK_CMN_SITE, COMMON_CMD_MBN_LIST_CUST_MAX_NUM, false, &value)) {
    TARVIK_LOGD("The current mbn_list_cust_max_num: %d", static_cast<int>(value));
  }
  return value;
}

TARVIK_EXPORT int tarvik_mcfg_ext_get_discover_timer_timeout(void) {
  tarvik_cmn::Answer a;
  if (!DiscoverTimerMessage(TARVIK_CMN_SITE, COMMON_MSG_MCFG_GET_DISCOVER_TIMER, 0, nullptr, &a)) {
    return -1;
  }
  const int timeout = static_cast<int>(a.Word(kTypedRspValue));
  TARVIK_LOGD("discover_timer_timeout %d", timeout);
  return timeout;
}

TARVIK_EXPORT uint32_t tarvik_mcfg_ext_set_discover_timer_timeout(uint32_t timeout) {
  TARVIK_LOGD("discover_timer_timeout %d", static_cast<int>(timeout));
  tarvik_cmn::Answer a;
  const uint32_t ret = DiscoverTimerMessage(TARVIK_CMN_SITE, COMMON_MSG_MCFG_SET_DISCOVER_TIMER,
                                            sizeof(timeout), &timeout, &a)
                           ? 1
                           : 0;
  TARVIK_LOGD("function exit, ret = %d <-------------", static_cast<int>(ret));
  return ret;
}

TARVIK_EXPORT uint32_t tarvik_reg_mcfg_event_ind(void) {
  const tarvik_cmn::Answer a = tarvik_cmn::Command(COMMON_CMD_REG_MCFG_EVENT_IND);
  TARVIK_LOGD("result = %d, rsp.result = %d", a.status, a.result());
  return static_cast<uint32_t>(a.Check(TARVIK_CMN_SITE, tarvik_cmn::ChannelLine::kNone));
}

}  // extern "C"

/* ---------------------------------------------------------------------------------------------
 * Device name and status notifications
 * ------------------------------------------------------------------------------------------- */

namespace {

constexpr uint32_t kDeviceNamePathLen = 20;
constexpr uint32_t kDeviceNameMax = 256;
constexpr uint32_t kScreenStatusLimit = 2;

// Filled once; the lock makes a first read from two threads read the file once, and the flag
// (set under the lock, read without it) lets every later call return at once.
char g_device_name[kDeviceNameMax];
bool g_device_name_read = false;
pthread_mutex_t g_device_name_lock = PTHREAD_MUTEX_INITIALIZER;

// Command `cmd` with a 4-byte status; the outcome logged at `site`.
uint32_t NotifyStatus(const tarvik_cmn::Site &site, uint32_t cmd, uint32_t status) {
  tarvik_cmn::Answer a = tarvik_cmn::Command(cmd, &status, sizeof(status));
  a.Map();
  TARVIK_CMN_LOGD(site, "result = %d, rsp.result = %d", a.status, a.result());
  return static_cast<uint32_t>(a.Check(site, tarvik_cmn::ChannelLine::kExtendSend));
}

}  // namespace

extern "C" {

TARVIK_EXPORT void tarvik_device_name_save_to_efs(void) {
  char device_name[kDeviceNameMax];
  memset(device_name, 0, sizeof(device_name));
  uint32_t len = sizeof(device_name);
  const int ret =
      tarvik_efs_read(TARVIK_SUB_0, TARVIK_DEVICE_NAME_FILE, kDeviceNamePathLen, device_name, &len);
  device_name[kDeviceNameMax - 1] = '\0';
  TARVIK_LOGD("tarvik_efs_read, device_name: %s, ret = %d, device_name_max_len = %d", device_name,
              ret, static_cast<int>(kDeviceNameMax));
  if (ret == 0) {
    TARVIK_LOGD("The device_name has been saved to efs, do nothing");
    return;
  }
  const char *name = tarvik_device_name_get();
  tarvik_efs_write(TARVIK_SUB_0, TARVIK_DEVICE_NAME_FILE, kDeviceNamePathLen, name,
                   static_cast<uint32_t>(strlen(name)));
}

TARVIK_EXPORT const char *tarvik_device_name_read_from_efs(void) {
  if (__atomic_load_n(&g_device_name_read, __ATOMIC_ACQUIRE)) {
    return g_device_name;
  }
  pthread_mutex_lock(&g_device_name_lock);
  if (!g_device_name_read) {
    tarvik_device_name_save_to_efs();
    uint32_t len = kDeviceNameMax;
    const int ret = tarvik_efs_read(TARVIK_SUB_0, TARVIK_DEVICE_NAME_FILE, kDeviceNamePathLen,
                                    g_device_name, &len);
    g_device_name[kDeviceNameMax - 1] = '\0';
    TARVIK_LOGD("tarvik_efs_read, device_name: %s, ret = %d, device_name_max_len = %d",
                g_device_name, ret, static_cast<int>(kDeviceNameMax));
    TARVIK_LOGD("device_name: %s", g_device_name);
    __atomic_store_n(&g_device_name_read, true, __ATOMIC_RELEASE);
  }
  pthread_mutex_unlock(&g_device_name_lock);
  return g_device_name;
}

TARVIK_EXPORT bool tarvik_device_name_list_contain_ex(char **list, uint32_t len) {
  const char *const *entries = list;
  if (tarvik_string_list_contain(entries, len, "all_product")) {
    return true;
  }
  // The name is read (and the file written when it cannot be) whatever the list holds.
  const char *name = tarvik_device_name_read_from_efs();
  return tarvik_string_list_contain(entries, len, name);
}

TARVIK_EXPORT uint32_t tarvik_qcril_screen_status_notify_to_modem(uint32_t status) {
  if (status >= kScreenStatusLimit) {
    TARVIK_LOGE("status is out of range");
    return 0;
  }
  return NotifyStatus(TARVIK_CMN_SITE, COMMON_CMD_SCREEN_STATUS, status);
}

TARVIK_EXPORT uint32_t tarvik_qcril_sleep_status_notify_to_modem(uint32_t status) {
  return NotifyStatus(TARVIK_CMN_SITE, COMMON_CMD_SLEEP_STATUS, status);
}

}  // extern "C"

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
  if (UimClient(__func__, "tarvik_set_sim_type")) {
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
  int rc = -1;  // when no client could be created
  if (UimBegin(func, func, true)) {
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
