/*
 * The vendor channel: one QMI client per process to the extend service (0xFFE4), opened lazily
 * by the first request and kept open; synchronous requests; event registration and indications.
 *
 * Every request function takes the channel lock, opens the channel when it is closed, exchanges
 * one message and releases the lock, so requests from any number of threads are serialised.
 * A transport failure other than a time-out closes and reopens the channel and retries once;
 * that close forgets every registered event handler.
 *
 * No caller waits forever for the channel. Each holder of the channel lock has a time budget:
 * two opens (2 s each, about 1 s of which is service discovery), its first send's time-out and
 * a 3000 ms retry. A caller waits behind a holder until that budget plus 1 s has passed; a
 * holder still there then (a hung transport) is left alone and the caller gets
 * TARVIK_EXTEND_QMI_EFAIL without sending. Waiting behind a sequence of holders that each keep
 * within their budget is not cut short.
 */
#ifndef TARVIK_EXTEND_API_H
#define TARVIK_EXTEND_API_H

#include <stdbool.h>
#include <stdint.h>

#include "tarvik_common.h"
#include "tarvik_extend_qmi_v01.h"

/* Status codes of the request and registration functions. */
#define TARVIK_EXTEND_QMI_OK 0
#define TARVIK_EXTEND_QMI_EINVAL (-1)      /* null buffer, length out of range, zero time-out */
#define TARVIK_EXTEND_QMI_ENOCLIENT (-2)   /* the channel has no client handle */
#define TARVIK_EXTEND_QMI_EFAIL (-3)       /* refused by the service, timed out, retry failed */
#define TARVIK_EXTEND_QMI_EREGISTERED (-4) /* register: the event already has a handler */
#define TARVIK_EXTEND_QMI_ENOTOPEN (-5)    /* deregister: the channel could not be opened */

/* Largest payload of a generic request or response. */
#define TARVIK_EXTEND_QMI_MAX_PAYLOAD 550u

/* Event numbers a handler may be registered for: 0 to TARVIK_EXTEND_QMI_MAX_EVENT. */
#define TARVIK_EXTEND_QMI_MAX_EVENT 6

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Indication handler: (event number or message id, decoded data, its length in bytes). Runs on
 * the QMI client library's thread; the data lives only during the call. A handler must not wait
 * for another indication while it runs.
 */
typedef void (*tarvik_extend_qmi_ind_handler_t)(int id, void *data, int len);

/* When 0, the channel's trace lines are skipped. Starts at 1. */
TARVIK_EXPORT extern uint32_t g_tarvik_extend_debug_flag;

/* Opens the channel unless it is open. */
TARVIK_EXPORT void tarvik_extend_qmi_init(void);

/* Closes the channel (forgetting the event handlers) and opens it again. */
TARVIK_EXPORT void tarvik_extend_qmi_init_force(void);

/*
 * Generic request: sends `req_data`[0..req_len) under request id `id` and copies the response
 * payload into `resp_data`. On entry *resp_len is the capacity of `resp_data`; on success it is
 * the number of bytes copied: the response's length, or the capacity when the response is
 * longer (the payload is cut), or 0 when the response carries no payload. Both `req_len` and the
 * capacity must be at most 550. Time-out 3000 ms; a watchdog logs when the request outlives
 * 5 s. *resp_len and `resp_data` are left alone on failure. Blocks the caller.
 */
TARVIK_EXPORT int tarvik_extend_qmi_send_sync(uint32_t id, void *req_data, uint32_t req_len,
                                              void *resp_data, uint32_t *resp_len);

/* The same with the caller's time-out `msec` (at least 1) and no watchdog. */
TARVIK_EXPORT int tarvik_extend_qmi_send_sync_long_process(uint32_t id, void *req_data,
                                                           uint32_t req_len, void *resp_data,
                                                           uint32_t *resp_len, int msec);

/*
 * Pass-through senders: send message `msg_id` with the caller's request record of `req_len`
 * bytes and decode the response into the caller's record of `resp_len` bytes (the records of
 * tarvik_extend_qmi_v01.h), time-out 3000 ms. The response's contents are not looked at.
 */
TARVIK_EXPORT int tarvik_extend_qmi_self_study_send_sync(uint32_t msg_id, void *req,
                                                         uint32_t req_len, void *resp,
                                                         uint32_t resp_len);
TARVIK_EXPORT int tarvik_extend_qmi_wechat_send_sync(uint32_t msg_id, void *req, uint32_t req_len,
                                                     void *resp, uint32_t resp_len);
TARVIK_EXPORT int tarvik_extend_qmi_base_model_send_sync(int msg_id, void *req, int req_len,
                                                         void *resp, int resp_len);

/*
 * Installs `handler` for `event` (0 to 6) and asks the modem to send that event's indications
 * (`ind_flag` nonzero sets the second switch). The handler stays installed even when the modem
 * refuses, so registering the event again gives TARVIK_EXTEND_QMI_EREGISTERED until it is
 * deregistered. Handlers are forgotten whenever the channel is closed and reopened; the modem-side
 * registrations are not renewed then. The reconnect of this call's own retried send is the
 * exception for `handler`: it stays, so a successful register always leaves it installed.
 */
TARVIK_EXPORT int tarvik_extend_qmi_register(int event, tarvik_extend_qmi_ind_handler_t handler,
                                             uint32_t ind_flag);

/* Asks the modem to stop `event`; on success removes its handler. */
TARVIK_EXPORT int tarvik_extend_qmi_deregister(uint32_t event);

/*
 * Callbacks of the other indications (no lock, nothing sent to the modem; NULL uninstalls; a
 * later call replaces). Self-study: 0x05-0x09, 0x0B; WeChat: 0x0D; base model: 0x12, 0x14.
 * The first always returns 1, the others whether the callback is non-null.
 */
TARVIK_EXPORT int tarvik_extend_qmi_self_study_register(tarvik_extend_qmi_ind_handler_t cb);
TARVIK_EXPORT int tarvik_extend_qmi_wechat_register(tarvik_extend_qmi_ind_handler_t cb);
TARVIK_EXPORT bool tarvik_extend_qmi_base_model_register(tarvik_extend_qmi_ind_handler_t cb);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_EXTEND_API_H */
