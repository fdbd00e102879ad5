// Venue mode: command 35 of the common request.
#include "tarvik_venue_mode.h"

#include <string.h>

#include "tarvik_extend_api.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"

namespace {

constexpr uint32_t kRspHeader = 8;  // bytes of the answer before its data

// Checks the answer's length and copies its data; the caller owns the buffers.
int venue_mode_handle_response(const tarvik_cmn_rsp_t &rsp, uint32_t rsp_all_len, void *rspData,
                               uint32_t *pRspLen) {
  if (rsp_all_len <= kRspHeader || rsp_all_len > TARVIK_CMN_RSP_SIZE) {
    TARVIK_LOGD("rsp_data_len is invalid");
    return -1;
  }
  const uint32_t data_len = rsp_all_len - kRspHeader;
  if (*pRspLen > data_len) {
    *pRspLen = data_len;
  }
  memcpy(rspData, rsp.data, *pRspLen);
  TARVIK_LOGD("*pRspLen=%d", *pRspLen);
  return 0;
}

}  // namespace

extern "C" TARVIK_EXPORT int tarvik_set_venue_mode(const void *reqData, uint32_t reqDataLen,
                                                   void *rspData, uint32_t *pRspLen) {
  TARVIK_LOGD("reqDataLen=%d", reqDataLen);
  TARVIK_LOG_ENTRY();
  int result = 0;
  do {
    if (reqData == nullptr || rspData == nullptr || pRspLen == nullptr) {
      TARVIK_LOGD("invalid param: reqData=%p, rspData=%p, pRspLen=%p", reqData, rspData,
                  static_cast<void *>(pRspLen));
      result = -1;
      break;
    }
    // The common request has room for 504 bytes of payload; a longer one is refused whole
    // rather than cut, since the modem could not tell a cut payload from a complete one.
    if (reqDataLen > TARVIK_VENUE_MODE_REQ_MAX) {
      TARVIK_LOGD("reqDataLen is out of range(%d), max %d", reqDataLen, TARVIK_VENUE_MODE_REQ_MAX);
      result = -1;
      break;
    }
    tarvik_cmn_req_t req;
    tarvik_cmn_rsp_t rsp;
    memset(&req, 0, sizeof(req));
    memset(&rsp, 0, sizeof(rsp));
    req.cmd = COMMON_CMD_VENUE_MODE;
    memcpy(req.payload, reqData, reqDataLen);
    uint32_t rsp_all_len = TARVIK_CMN_RSP_SIZE;
    const int qmi_result = tarvik_extend_qmi_send_sync(REQUEST_ID_COMMON, &req, TARVIK_CMN_REQ_SIZE,
                                                       &rsp, &rsp_all_len);
    TARVIK_LOGD("qmi_result=%d, rsp.result=%d, rsp_all_len=%d", qmi_result, rsp.result,
                rsp_all_len);
    if (qmi_result != 0) {
      TARVIK_LOGD("qmi failed: qmi_result=%d", qmi_result);
      result = qmi_result;
      break;
    }
    if (rsp.result != 0) {
      TARVIK_LOGD("venue mode response fail");
      result = rsp.result;
      break;
    }
    result = venue_mode_handle_response(rsp, rsp_all_len, rspData, pRspLen);
  } while (0);
  TARVIK_LOGD("function exit, result=%d <-------------", result);
  return result;
}
