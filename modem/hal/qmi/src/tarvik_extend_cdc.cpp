// CDC requests over REQUEST_ID_CDC.
#include "tarvik_extend_cdc.h"

#include <pthread.h>
#include <stddef.h>
#include <string.h>

#include "tarvik_extend_api.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"

static_assert(sizeof(tarvik_cdc_req_t) == TARVIK_CDC_REQ_SIZE, "CDC request layout");
static_assert(sizeof(tarvik_cdc_rsp_t) == TARVIK_CDC_RSP_SIZE, "CDC response layout");

namespace {
pthread_mutex_t g_cdc_lock = PTHREAD_MUTEX_INITIALIZER;
constexpr uint32_t kCdcRspHeader = offsetof(tarvik_cdc_rsp_t, data);
// The CDC request reuses the feature codes with meanings of its own.
constexpr int kErrRspLen = TARVIK_FEAT_ERR_PATH_LEN;      // -106: no length, zero capacity, no data
constexpr int kErrReqNull = TARVIK_FEAT_ERR_BUF_NULL;     // -107: request data missing
constexpr int kErrRspNull = TARVIK_FEAT_ERR_LEN_INVALID;  // -108: response buffer missing
}  // namespace

extern "C" TARVIK_EXPORT int tarvik_cdc_request(uint32_t event_id, const void *data_req,
                                                uint32_t req_len, void *data_rsp,
                                                uint32_t *p_rsp_len) {
  TARVIK_LOG_ENTRY();
  pthread_mutex_lock(&g_cdc_lock);
  TARVIK_LOGD("event_id %d, req_len: %d", event_id, req_len);
  int result = 0;
  do {
    if (req_len > TARVIK_CDC_DATA_MAX) {
      TARVIK_LOGD("req_len is out range(%d), will force to %d", req_len, TARVIK_CDC_DATA_MAX);
      req_len = TARVIK_CDC_DATA_MAX;
    }
    if (data_req == nullptr && req_len != 0) {
      TARVIK_LOGD("req_len > 0, but data_req is null");
      result = kErrReqNull;
      break;
    }
    if (data_rsp == nullptr) {
      TARVIK_LOGD("data_rsp is null");
      result = kErrRspNull;
      break;
    }
    if (p_rsp_len == nullptr) {
      TARVIK_LOGD("p_rsp_len is null");
      result = kErrRspLen;
      break;
    }
    const uint32_t capacity = *p_rsp_len;
    TARVIK_LOGD("rsp_len: %d", capacity);
    if (capacity == 0) {
      TARVIK_LOGD("rsp_len is invalid");
      result = kErrRspLen;
      break;
    }
    tarvik_cdc_req_t req;
    tarvik_cdc_rsp_t rsp;
    memset(&req, 0, sizeof(req));
    memset(&rsp, 0, sizeof(rsp));
    req.event_id = event_id;
    if (data_req != nullptr && req_len != 0) {
      TARVIK_LOGD("pk data_req, req_len: %d", req_len);
      memcpy(req.data, data_req, req_len);
    }
    uint32_t rsp_all_len = TARVIK_CDC_RSP_SIZE;
    const int mapped = tarvik_qmi_result_map(
        tarvik_extend_qmi_send_sync(REQUEST_ID_CDC, &req, TARVIK_CDC_REQ_SIZE, &rsp, &rsp_all_len));
    TARVIK_LOGD("result = %d, rsp.result = %d, rsp_all_len = %d", mapped, rsp.result, rsp_all_len);
    if (mapped != 0) {
      TARVIK_LOGD("tarvik_extend_qmi_send_sync for REQUEST_ID_CDC fail");
      result = mapped;
      break;
    }
    if (rsp.result != 0) {
      TARVIK_LOGD("qmi response for REQUEST_ID_CDC fail");
      result = rsp.result;
      break;
    }
    TARVIK_LOGD("rsp.data_len = %d", rsp.data_len);
    // Copy no more than arrived: the claim is cut to the bytes after the header, and a claim
    // with nothing after the header is an empty answer like a claim of 0.
    const uint32_t held = rsp_all_len > kCdcRspHeader ? rsp_all_len - kCdcRspHeader : 0;
    if (rsp.data_len == 0 || held == 0) {
      TARVIK_LOGD("rsp.data_len is invalid");
      result = kErrRspLen;
      break;
    }
    uint32_t n = rsp.data_len;
    if (n > held) {
      n = held;
    }
    if (n > capacity) {
      n = capacity;
    }
    memcpy(data_rsp, rsp.data, n);
    *p_rsp_len = n;
    TARVIK_LOGD("*p_rsp_len = %d", n);
  } while (0);
  pthread_mutex_unlock(&g_cdc_lock);
  TARVIK_LOGD("function exit, result = %d <-------------", result);
  return result;
}
