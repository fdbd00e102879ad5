/*
 * Venue mode: an opaque payload carried to the modem as a common command and the modem's
 * answer brought back. Blocks until the modem answers; serialised only by the channel lock.
 */
#ifndef TARVIK_VENUE_MODE_H
#define TARVIK_VENUE_MODE_H

#include <stdint.h>

#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Largest venue-mode payload: what the common request has room for. */
#define TARVIK_VENUE_MODE_REQ_MAX 504u

/*
 * Sends `reqDataLen` bytes of `reqData` (at most 504) and copies the modem's answer into
 * `rspData`: *pRspLen is the capacity on entry and the bytes written on success. Results: 0;
 * -1 (a null argument, a payload above 504 bytes, or an answer without data); the channel's
 * -1, -2, -3 unmapped; or the modem's non-zero result.
 */
TARVIK_EXPORT int tarvik_set_venue_mode(const void *reqData, uint32_t reqDataLen, void *rspData,
                                        uint32_t *pRspLen);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_VENUE_MODE_H */
