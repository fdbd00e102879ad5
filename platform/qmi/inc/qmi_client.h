/*
 * QMI client library (common client interface), host stand-in.
 *
 * Same API as the device's client library. Messages are encoded and decoded with the service
 * object's tables (qmi_idl_lib.h). Indication and error callbacks run on the client library's
 * own thread, never on the caller's. Which transport carries the messages (an in-process
 * simulated modem or a Unix socket to tarvik-modemd) is chosen by the host program, see
 * qmi_client_host.h; library code never chooses.
 */
#ifndef TARVIK_PLATFORM_QMI_CLIENT_H
#define TARVIK_PLATFORM_QMI_CLIENT_H

#include <pthread.h>
#include <stdint.h>
#include <time.h>

#include "qmi_idl_lib.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int qmi_client_error_type;

#define QMI_NO_ERR 0
#define QMI_INTERNAL_ERR (-1)
#define QMI_SERVICE_ERR (-2)
#define QMI_TIMEOUT_ERR (-3)
#define QMI_EXTENDED_ERR (-4)
#define QMI_PORT_NOT_OPEN_ERR (-5)
#define QMI_MEMCOPY_ERROR (-13)
#define QMI_INVALID_TXN (-14)
#define QMI_CLIENT_ALLOC_FAILURE (-15)
#define QMI_CLIENT_TRANSPORT_ERR (-16)
#define QMI_CLIENT_PARAM_ERR (-17)
#define QMI_CLIENT_INVALID_CLNT (-18)
#define QMI_CLIENT_FW_NOT_UP (-19)
#define QMI_CLIENT_INVALID_SIG (-20)
#define QMI_XPORT_BUSY_ERR (-21)

typedef struct qmi_client_struct *qmi_client_type;

/* Opaque description of one server of a service, filled by qmi_client_get_service_list. */
typedef struct {
  uint8_t info[20];
} qmi_service_info;

typedef unsigned int qmi_service_instance;
#define QMI_CLIENT_INSTANCE_ANY 0xffff

/*
 * OS signal the notifier raises when a server of its service appears. A zeroed object is valid
 * input to qmi_client_notifier_init, which initialises it; it must stay alive (and not move)
 * until the notifier is released.
 */
typedef struct {
  int sig_set;
  int timed_out;
  int clock;
  pthread_cond_t cond;
  pthread_condattr_t attr;
  pthread_mutex_t mutex;
} qmi_cci_os_signal_type;

typedef qmi_cci_os_signal_type qmi_client_os_params;

/* `ind_buf` is the undecoded TLV area; it lives only during the call. */
typedef void (*qmi_client_ind_cb)(qmi_client_type user_handle, unsigned int msg_id, void *ind_buf,
                                  unsigned int ind_buf_len, void *ind_cb_data);

/* Called once when the service goes away, with QMI_SERVICE_ERR. */
typedef void (*qmi_client_error_cb)(qmi_client_type user_handle, qmi_client_error_type error,
                                    void *err_cb_data);

/* A notifier handle whose signal is raised whenever a server of the service appears and lowered
 * when the last one goes away. */
qmi_client_error_type qmi_client_notifier_init(qmi_idl_service_object_type service_obj,
                                               qmi_client_os_params *os_params,
                                               qmi_client_type *user_handle);

/*
 * Lists the servers of a service. *num_entries is the capacity of service_info_array on input
 * and the number filled on output; both may be NULL to ask only for the count. Returns
 * QMI_SERVICE_ERR (with *num_services 0) while no server is up.
 */
qmi_client_error_type qmi_client_get_service_list(qmi_idl_service_object_type service_obj,
                                                  qmi_service_info *service_info_array,
                                                  unsigned int *num_entries,
                                                  unsigned int *num_services);

/* Waits for the signal; timeout_ms 0 waits forever. Returns QMI_NO_ERR once `sig_set`, or
 * QMI_TIMEOUT_ERR with `timed_out` set; QMI_CLIENT_INVALID_SIG for NULL. Does not clear
 * `sig_set`: a notifier's signal is set while a server of its service is up (and listed by
 * qmi_client_get_service_list) and falls when the last one goes, so a wait returns at once
 * exactly when a server is there to be opened. */
qmi_client_error_type qmi_cci_os_signal_wait(qmi_cci_os_signal_type *os_params,
                                             unsigned int timeout_ms);

/* Creates a client of the server described by service_info (from qmi_client_get_service_list
 * of the same service, else QMI_CLIENT_PARAM_ERR). QMI_SERVICE_ERR when that server is no
 * longer up. os_params may be NULL. */
qmi_client_error_type qmi_client_init(qmi_service_info *service_info,
                                      qmi_idl_service_object_type service_obj,
                                      qmi_client_ind_cb ind_cb, void *ind_cb_data,
                                      qmi_client_os_params *os_params,
                                      qmi_client_type *user_handle);

/* Looks the service up, waits up to timeout_ms (0: forever) for a server of the instance
 * (QMI_CLIENT_INSTANCE_ANY: any) and creates a client; QMI_TIMEOUT_ERR when none appears. */
qmi_client_error_type qmi_client_init_instance(qmi_idl_service_object_type service_obj,
                                               qmi_service_instance instance_id,
                                               qmi_client_ind_cb ind_cb, void *ind_cb_data,
                                               qmi_client_os_params *os_params, uint32_t timeout_ms,
                                               qmi_client_type *user_handle);

/* QMI_SERVICE_ERR when the service has already gone away (the callback would never run),
 * QMI_CLIENT_INVALID_CLNT for a released or notifier handle. */
qmi_client_error_type qmi_client_register_error_cb(qmi_client_type user_handle,
                                                   qmi_client_error_cb err_cb, void *err_cb_data);

/*
 * Encodes the request with the service table, sends it, waits up to timeout_msecs (0: forever)
 * and decodes the response into resp_c_struct. QMI_NO_ERR when transport and decode succeed; the
 * modem's own result stays in the response record for the caller to read. QMI_TIMEOUT_ERR when
 * no response came in time (a later response is dropped and counted); QMI_SERVICE_ERR when the
 * service goes away meanwhile or has gone; the codec's QMI_IDL_LIB_* code when the request
 * cannot be encoded or the response decoded; QMI_CLIENT_PARAM_ERR for records shorter than the
 * message's (req_c_struct may be NULL for an empty request). Blocks the calling thread only.
 */
qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type user_handle, unsigned int msg_id,
                                               void *req_c_struct, unsigned int req_c_struct_len,
                                               void *resp_c_struct, unsigned int resp_c_struct_len,
                                               unsigned int timeout_msecs);

qmi_client_error_type qmi_client_message_decode(qmi_client_type user_handle,
                                                qmi_idl_type_of_message_type req_resp_ind,
                                                unsigned int message_id, const void *buf,
                                                unsigned int buf_len, void *c_struct,
                                                unsigned int c_struct_len);

/* Releases a client or notifier handle. No callback of it runs after this returns; a callback
 * of the handle running on another thread is waited for, except when release is called from
 * inside a callback (then the rest of the queue of that handle is dropped). Sends of the handle
 * still waiting on other threads return QMI_CLIENT_INVALID_CLNT. */
qmi_client_error_type qmi_client_release(qmi_client_type user_handle);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_PLATFORM_QMI_CLIENT_H */
