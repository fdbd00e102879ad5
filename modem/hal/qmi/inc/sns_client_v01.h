/*
 * The sensor framework's client service (QMI service 0x190, interface 1.3): one request that
 * carries an encoded sensor-framework message, as records the carried service object encodes
 * and decodes. The payload's own format belongs to the sensor framework, not to this service.
 */
#ifndef SNS_CLIENT_V01_H
#define SNS_CLIENT_V01_H

#include <stdint.h>

#include "common_v01.h"
#include "qmi_idl_lib.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SNS_CLIENT_SVC_SERVICE_ID_V01 0x190u
#define SNS_CLIENT_SVC_V01_IDL_MAJOR_VERS 0x01u
#define SNS_CLIENT_SVC_V01_IDL_MINOR_VERS 0x03u
#define SNS_CLIENT_SVC_V01_IDL_TOOL_VERS 0x06u

#define SNS_CLIENT_REQ_V01 0x0020u
#define SNS_CLIENT_RESP_V01 0x0020u

#define SNS_CLIENT_REQ_LEN_MAX_V01 1000u

/* 0x0020 (1008 bytes): the payload and an optional one-byte flag. */
typedef struct {
  uint32_t payload_len;
  uint8_t payload[SNS_CLIENT_REQ_LEN_MAX_V01];
  uint8_t use_jumbo_report_valid;
  uint8_t use_jumbo_report;
} sns_client_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
} sns_client_resp_msg_v01;

/* The service description, and its accessor: the object for exactly (1, 3, 6), else NULL. */
TARVIK_EXPORT extern const qmi_idl_service_object SNS_CLIENT_SVC_qmi_idl_service_object_v01;
TARVIK_EXPORT qmi_idl_service_object_type SNS_CLIENT_SVC_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version);
#define SNS_CLIENT_SVC_get_service_object_v01()                                     \
  SNS_CLIENT_SVC_get_service_object_internal_v01(SNS_CLIENT_SVC_V01_IDL_MAJOR_VERS, \
                                                 SNS_CLIENT_SVC_V01_IDL_MINOR_VERS, \
                                                 SNS_CLIENT_SVC_V01_IDL_TOOL_VERS)

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* SNS_CLIENT_V01_H */
