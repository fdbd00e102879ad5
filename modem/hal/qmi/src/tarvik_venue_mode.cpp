// Venue mode: command 35 of the common request.
#include "tarvik_venue_mode.h"

#include <string.h>

#include "tarvik_cmn_request.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"

namespace {

using tarvik_cmn::kRspHeader;

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
    const tarvik_cmn::Answer a = tarvik_cmn::Whole(COMMON_CMD_VENUE_MODE, reqData, reqDataLen);
    TARVIK_LOGD("qmi_result=%d, rsp.result=%d, rsp_all_len=%d", a.status, a.result(), a.length);
    result =
        a.Check(TARVIK_CMN_SITE, tarvik_cmn::ChannelLine::kQmiFailed, "venue mode response fail");
    if (result != 0) {
      break;
    }
    result = venue_mode_handle_response(a.rsp, a.length, rspData, pRspLen);
  } while (0);
  TARVIK_LOGD("function exit, result=%d <-------------", result);
  return result;
}
