/*
 * Client of the sensor framework's QMI service: delivers an already encoded sensor request
 * (at most 1000 bytes) with one synchronous request. Indications are accepted and ignored.
 *
 * Sends run one at a time under tarvik_sensor_qmi_client_crit_sect. tarvik_sensor_qmi_client_init
 * and tarvik_qmi_client_close change the state without it: do not call them while another
 * thread sends.
 */
#ifndef TARVIK_SENSOR_API_H
#define TARVIK_SENSOR_API_H

#include <pthread.h>
#include <stdint.h>

#include "qmi_client.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Guards the send path (a default, non-recursive mutex). */
TARVIK_EXPORT extern pthread_mutex_t tarvik_sensor_qmi_client_crit_sect;
/* Non-zero (the default, 1) turns the client's log and console lines on. */
TARVIK_EXPORT extern int32_t g_tarvik_sensor_debug_flag;

/* Resets the whole client state (an existing client is dropped, not released) and fetches the
 * carried service description. */
TARVIK_EXPORT void tarvik_sensor_qmi_client_init(void);

/*
 * Sends `len` bytes of `payload`; `flag` goes into the optional one-byte field, present exactly
 * when `flag` is non-zero. `ctx` must be non-null; `unused` is ignored. Creates the client on
 * first use, waiting about 200 ms for the service. 0 sent; -1 a null `payload` or `ctx` or more
 * than 1000 bytes (refused before the mutex); -2 no client; -3 the request failed (the client
 * stays). The modem's answer is not examined. Blocks for up to 2 s.
 */
TARVIK_EXPORT int tarvik_sensor_qmi_send_sync(const uint8_t *payload, uint32_t len, void *ctx,
                                              void *unused, uint8_t flag);

/* The client's indication callback: does nothing. */
TARVIK_EXPORT void tarvik_sensor_qmi_ind_cb(qmi_client_type handle, unsigned int msg_id,
                                            void *ind_buf, unsigned int ind_buf_len,
                                            void *ind_cb_data);

/* Releases the client and its notifier when the state was initialised; the next send starts
 * afresh. */
TARVIK_EXPORT void tarvik_qmi_client_close(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_SENSOR_API_H */
