// The step every feature of the common request (REQUEST_ID_COMMON) takes: a command and its
// payload in; the channel's status, the modem's result and the answer's data out.
//
// A feature sends with Command (a bare command: the checks and limit of tarvik_common_qmi_req),
// Message (a typed message of command 2: those of tarvik_send_common_qmi_msg, with its "t"/"l"
// lines) or Whole (payload up to the buffer's 504 bytes, checked by the caller: venue mode), then
// judges the answer with Answer::Check: the channel's status first, then the modem's result,
// and only when both are 0 may the feature read the data. The exported senders are this step
// with the caller's response buffer.
//
// Log lines stay the feature's: Check writes its lines at the call site the feature passes
// (TARVIK_CMN_SITE: the exported function's source file, line and name); the senders' refusals
// are logged under the sender's name, as the senders log them. Nothing here locks or keeps
// state: the channel serialises the requests, the buffers live on the caller's stack.
#ifndef TARVIK_CMN_REQUEST_H
#define TARVIK_CMN_REQUEST_H

#include <stddef.h>
#include <stdint.h>

#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"

namespace tarvik_cmn {

// Where a line of the step is written from.
struct Site {
  const char *file;
  int line;
  const char *func;
};
#define TARVIK_CMN_SITE (::tarvik_cmn::Site{__FILE_NAME__, __LINE__, __func__})
// A debug line written at `site`.
#define TARVIK_CMN_LOGD(site, fmt, ...)                                                        \
  TARVIK_LOG_WHERE(TARVIK_LOG_MASK_DEBUG, TARVIK_LOG_PRIO_DEBUG, TARVIK_SUB_NONE, (site).file, \
                   (site).line, (site).func, fmt, ##__VA_ARGS__)

// Bytes of a common response before its data.
constexpr uint32_t kRspHeader = offsetof(tarvik_cmn_rsp_t, data);

// The line a feature writes when the channel failed.
enum class ChannelLine {
  kNone,
  kCommonReq,   // "tarvik_common_qmi_req fail, REQUEST_ID_COMMON"
  kExtendSend,  // "tarvik_extend_qmi_send_sync fail, REQUEST_ID_COMMON"
  kQmiFailed,   // "qmi failed: qmi_result=%d"
};

// The line a feature writes when the modem refused.
constexpr const char *kResponseFail = "qmi response fail";

// What one common request gave back.
struct Answer {
  int status = 0;        // the channel's status (after Map(): its feature code), or a refusal
  tarvik_cmn_rsp_t rsp;  // zeroed before the send; rsp.result is the modem's verdict
  uint32_t length = 0;   // what the channel reported: header and data bytes copied on status 0

  int32_t result() const { return rsp.result; }
  // The u32 at byte `at` of the answer's data (response offset 8 + at).
  uint32_t Word(size_t at) const;
  // Passes `status` through tarvik_qmi_result_map (which logs the mapping).
  void Map();
  // The first failure: a non-zero status, else the modem's result; 0 when the data may be read.
  int Outcome() const { return status != 0 ? status : rsp.result; }
  // Outcome(), writing at `site` the channel's line when the status is not 0, else `modem_line`
  // when the modem refused.
  int Check(const Site &site, ChannelLine channel, const char *modem_line = kResponseFail) const;
};

// Sends command `cmd` with `len` bytes of `payload` at offset 8, refusing (status
// TARVIK_CMN_ERR_INVALID_ARG, nothing sent) what tarvik_common_qmi_req refuses.
[[nodiscard]] Answer Command(uint32_t cmd, const void *payload = nullptr, uint32_t len = 0);
// Sends typed message `type` (command 2) with `len` bytes of `payload`, as
// tarvik_send_common_qmi_msg does.
[[nodiscard]] Answer Message(uint32_t type, const void *payload = nullptr, uint32_t len = 0);
// Sends command `cmd` with `len` (at most TARVIK_CMN_PAYLOAD_MAX, checked by the caller) bytes
// of `payload`, without the senders' checks.
[[nodiscard]] Answer Whole(uint32_t cmd, const void *payload, uint32_t len);

}  // namespace tarvik_cmn

#endif  // TARVIK_CMN_REQUEST_H
