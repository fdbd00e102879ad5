// The sensor framework's client: one process-wide client state, the request it sends and the
// mutex around the send path. Log lines carry this file.
#include "tarvik_sensor_api.h"

#include <stdio.h>
#include <string.h>

#include "sns_client_v01.h"
#include "tarvik_std_client.h"
#include "tarvik_utils_cmn.h"

namespace {

constexpr uint32_t kSendTimeoutMs = 2000;
constexpr int kServiceWaits = 10;
constexpr uint32_t kServiceWaitMs = 20;

struct SensorClient {
  sns_client_req_msg_v01 req;
  sns_client_resp_msg_v01 resp;
  qmi_cci_os_signal_type os_params;
  qmi_idl_service_object_type service_object;
  qmi_client_type client;
  uint32_t inited;
  qmi_client_type notifier;
  uint8_t initialised;
};

SensorClient g_sensor;

bool Debug() {
  return g_tarvik_sensor_debug_flag != 0;
}

// Creates the notifier and the client of the first server listed; leaves g_sensor.client null
// on failure. A notifier that led to no client is given back, so that the next attempt starts
// with a fresh one.
void CreateClient() {
  qmi_idl_service_object_type obj = g_sensor.service_object;
  int rc = QMI_INTERNAL_ERR;
  if (obj != nullptr &&
      qmi_client_notifier_init(obj, &g_sensor.os_params, &g_sensor.notifier) == QMI_NO_ERR) {
    unsigned int num_services =
        tarvik_std::AwaitService(obj, &g_sensor.os_params, kServiceWaits + 1, kServiceWaits,
                                 kServiceWaitMs, [](qmi_client_error_type, unsigned int, int) {});
    qmi_service_info info;
    unsigned int num_entries = 1;
    rc = tarvik_std::ListServices(obj, &info, 1, &num_entries, &num_services);
    if (rc == QMI_NO_ERR) {
      rc = num_entries > 0 ? qmi_client_init(&info, obj, tarvik_sensor_qmi_ind_cb, nullptr, nullptr,
                                             &g_sensor.client)
                           : QMI_SERVICE_ERR;
    }
  }
  if (Debug()) {
    printf("qmi_client_init, err = %d, handle = %d, client_handle = %d\n", rc,
           static_cast<int>(reinterpret_cast<intptr_t>(g_sensor.notifier)),
           static_cast<int>(reinterpret_cast<intptr_t>(g_sensor.client)));
  }
  if (rc != QMI_NO_ERR) {
    printf("%d QMI client init failed\n", rc);
    g_sensor.client = nullptr;
    if (g_sensor.notifier != nullptr) {
      qmi_client_release(g_sensor.notifier);
      g_sensor.notifier = nullptr;
    }
    return;
  }
  if (Debug()) {
    printf("QMI client inited\n");
  }
  g_sensor.inited = 1;
}

}  // namespace

extern "C" {

TARVIK_EXPORT pthread_mutex_t tarvik_sensor_qmi_client_crit_sect = PTHREAD_MUTEX_INITIALIZER;
TARVIK_EXPORT int32_t g_tarvik_sensor_debug_flag = 1;

TARVIK_EXPORT void tarvik_sensor_qmi_client_init(void) {
  // A notifier still registered would keep raising the signal object that is zeroed below.
  if (g_sensor.notifier != nullptr) {
    qmi_client_release(g_sensor.notifier);
  }
  memset(static_cast<void *>(&g_sensor), 0, sizeof(g_sensor));
  pthread_mutex_lock(&tarvik_sensor_qmi_client_crit_sect);
  g_sensor.service_object = SNS_CLIENT_SVC_get_service_object_internal_v01(
      SNS_CLIENT_SVC_V01_IDL_MAJOR_VERS, SNS_CLIENT_SVC_V01_IDL_MINOR_VERS,
      SNS_CLIENT_SVC_V01_IDL_TOOL_VERS);
  if (g_sensor.service_object == nullptr) {
    printf("QMI get service obj failed. Check .c and .h\n");
  }
  pthread_mutex_unlock(&tarvik_sensor_qmi_client_crit_sect);
  g_sensor.initialised = 1;
}

TARVIK_EXPORT int tarvik_sensor_qmi_send_sync(const uint8_t *payload, uint32_t len, void *ctx,
                                              void *, uint8_t flag) {
  if (g_sensor.initialised == 0) {
    tarvik_sensor_qmi_client_init();
  }
  if (payload == nullptr || ctx == nullptr || len > SNS_CLIENT_REQ_LEN_MAX_V01) {
    if (Debug()) {
      TARVIK_LOGD("tarvik_sensor_qmi_send_sync %x,  put Invalid param",
                  static_cast<uint32_t>(reinterpret_cast<uintptr_t>(payload)));
    }
    return -1;
  }
  pthread_mutex_lock(&tarvik_sensor_qmi_client_crit_sect);
  if (g_sensor.client == nullptr) {
    CreateClient();
    if (g_sensor.client == nullptr) {
      if (Debug()) {
        TARVIK_LOGD("tarvik_sensor_qmi_handle_req_cb result:%d", -2);
      }
      pthread_mutex_unlock(&tarvik_sensor_qmi_client_crit_sect);
      return -2;
    }
  }
  memset(&g_sensor.req, 0, sizeof(g_sensor.req));
  memset(&g_sensor.resp, 0, sizeof(g_sensor.resp));
  g_sensor.req.payload_len = len;
  memcpy(g_sensor.req.payload, payload, len);
  g_sensor.req.use_jumbo_report_valid = flag;
  g_sensor.req.use_jumbo_report = flag;
  const int rc = qmi_client_send_msg_sync(g_sensor.client, SNS_CLIENT_REQ_V01, &g_sensor.req,
                                          sizeof(g_sensor.req), &g_sensor.resp,
                                          sizeof(g_sensor.resp), kSendTimeoutMs);
  int result = 0;
  if (rc == QMI_NO_ERR) {
    if (Debug()) TARVIK_LOGD("tarvik_sensor_qmi_send_sync succ");
  } else {
    if (Debug()) TARVIK_LOGD("send msg sync failed:%d", rc);
    result = -3;
  }
  pthread_mutex_unlock(&tarvik_sensor_qmi_client_crit_sect);
  return result;
}

TARVIK_EXPORT void tarvik_sensor_qmi_ind_cb(qmi_client_type, unsigned int, void *, unsigned int,
                                            void *) {}

TARVIK_EXPORT void tarvik_qmi_client_close(void) {
  if (g_sensor.initialised != 1) {
    return;
  }
  if (g_sensor.client != nullptr) {
    qmi_client_release(g_sensor.client);
  }
  if (g_sensor.notifier != nullptr) {
    qmi_client_release(g_sensor.notifier);
  }
  g_sensor.inited = 0;
  g_sensor.client = nullptr;
  g_sensor.notifier = nullptr;
  g_sensor.initialised = 0;
}

}  // extern "C"
