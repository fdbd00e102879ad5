/*
 * Five-tuple blacklist filters on a mobile data device, through the modem's data filter service
 * (DFS).
 *
 * While the optimization scenario is on for a device, every enter command adds one filter
 * (filter mode enabled on both IP families first); exit removes every filter of both families,
 * disables the mode and forgets the clients. The filter count (limit 400) lives in this process:
 * it counts the filters added since the last exit or device change.
 *
 * Not thread-safe: the two entry points share unlocked state and must not be called
 * concurrently. They block on the modem for up to 3 s per request.
 */
#ifndef TARVIK_FILTER_CONTROL_H
#define TARVIK_FILTER_CONTROL_H

#include <stdint.h>

#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Commands (the mode argument and the first word of a request buffer). */
#define TARVIK_FILTER_MODE_EXIT 0
#define TARVIK_FILTER_MODE_ENTER 1
#define TARVIK_FILTER_MODE_DELETE 2

/* Fields of a five-tuple, in the order of the field array. */
#define TARVIK_FILTER_FIELD_COUNT 6

/* Result codes of both entry points. */
#define TARVIK_FILTER_OK 0u
#define TARVIK_FILTER_NOT_SUPPORTED 6u
#define TARVIK_FILTER_INVALID_PARAM 500u
#define TARVIK_FILTER_ENABLE_FAILED 501u
#define TARVIK_FILTER_ADD_FAILED 502u
#define TARVIK_FILTER_DISABLE_FAILED 503u
#define TARVIK_FILTER_REMOVE_FAILED 504u
#define TARVIK_FILTER_OVER_LIMIT 505u

/* Filters one process may add before an exit. */
#define TARVIK_FILTER_LIMIT 400u

/*
 * One command. `rmnet_dev` names the data device (null or empty: none); `ip_fields` holds the
 * six texts ip_ver ("IPV4"/"IPV6", any case), proto ("TCP"/"UDP"), src, dst, sport, dport
 * (decimal 1-65535). Mode 1 needs a device and exactly 6 fields; mode 0 needs a count below 1
 * (the array is ignored) and removes everything when a device is named, else only forgets the
 * local state; mode 2 answers 6; any other mode 500. Returns a result code, also written to
 * *status when given (0 on entry).
 */
TARVIK_EXPORT int tarvik_set_fiveTuple_blacklist(const char *rmnet_dev, char **ip_fields,
                                                 int field_count, int mode, uint32_t *status);

/*
 * The same command as one request buffer of `req_len` bytes (little-endian u32 words, strings
 * without terminator): mode; name length L (<= 79) and the name; field count N (0-6); N times
 * a length F (<= 63) and the text. Bytes after the last field are ignored. Any length and content
 * is safe: a malformed buffer returns -1 with *status 500; otherwise the result of
 * tarvik_set_fiveTuple_blacklist (a null name for L = 0, a null array for N = 0).
 */
TARVIK_EXPORT int tarvik_filter_control_handle_msg(const uint8_t *req_data, uint32_t req_len,
                                                   uint32_t *status);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_FILTER_CONTROL_H */
