/*
 * CDC requests: an opaque payload carried to the modem under REQUEST_ID_CDC and the modem's
 * answer brought back. Requests are serialised by a mutex of their own, taken before the
 * channel lock; the call blocks until the modem answers.
 */
#ifndef TARVIK_EXTEND_CDC_H
#define TARVIK_EXTEND_CDC_H

#include <stdint.h>

#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TARVIK_CDC_REQ_SIZE 504u
#define TARVIK_CDC_RSP_SIZE 512u
#define TARVIK_CDC_DATA_MAX 500u

typedef struct {
  uint32_t event_id;
  uint8_t data[TARVIK_CDC_DATA_MAX];
} tarvik_cdc_req_t;

typedef struct {
  uint32_t unused;
  int32_t result; /* 0: accepted, else the modem's failure code */
  uint32_t data_len;
  uint8_t data[TARVIK_CDC_DATA_MAX];
} tarvik_cdc_rsp_t;

/*
 * Sends `event_id` with `req_len` bytes of `data_req` (cut to 500 bytes; `data_req` may be null
 * when `req_len` is 0). *p_rsp_len is the capacity of `data_rsp` on entry and the number of bytes
 * written on success; an answer longer than the capacity is cut, and one that claims more than
 * the response holds is cut to what it holds. Results: 0; -106 (`p_rsp_len` null, zero capacity
 * or an empty answer: no data claimed, or none carried past the header); -107 (`data_req` null with
 * a non-zero `req_len`); -108 (`data_rsp` null); -101, -102, -103 (channel failures); or the
 * modem's non-zero result.
 */
TARVIK_EXPORT int tarvik_cdc_request(uint32_t event_id, const void *data_req, uint32_t req_len,
                                     void *data_rsp, uint32_t *p_rsp_len);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_EXTEND_CDC_H */
