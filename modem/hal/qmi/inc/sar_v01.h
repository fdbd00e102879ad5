/*
 * The standard RF SAR service (QMI service 0x11, interface 1.15): setting and reading the device
 * state index (DSI), as records the carried service object encodes and decodes.
 *
 * Only the fields the library uses are carried; the other optional fields of the two records
 * stay absent (their TLVs are skipped when decoding).
 */
#ifndef SAR_V01_H
#define SAR_V01_H

#include <stdint.h>

#include "common_v01.h"
#include "qmi_idl_lib.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SAR_QMI_SERVICE_ID_V01 0x11u
#define SAR_V01_IDL_MAJOR_VERS 0x01u
#define SAR_V01_IDL_MINOR_VERS 0x0Fu
#define SAR_V01_IDL_TOOL_VERS 0x06u

#define QMI_SAR_RF_SET_STATE_REQ_MSG_V01 0x0001u
#define QMI_SAR_RF_SET_STATE_RESP_MSG_V01 0x0001u
#define QMI_SAR_RF_GET_STATE_REQ_MSG_V01 0x0002u
#define QMI_SAR_RF_GET_STATE_RESP_MSG_V01 0x0002u

/* Highest device state index; 0 is the default (no back-off). */
#define SAR_RF_STATE_MAX_V01 20u

/* 0x0001: the state, and an optional compatibility key. */
typedef struct {
  uint32_t sar_rf_state;
  uint8_t compatibility_key_valid;
  uint32_t compatibility_key;
} sar_rf_set_state_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
} sar_rf_set_state_resp_msg_v01;

/* 0x0002 carries no request TLV. */
typedef struct {
  char __placeholder;
} sar_rf_get_state_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t sar_rf_state_valid;
  uint32_t sar_rf_state;
} sar_rf_get_state_resp_msg_v01;

/* The service description, and its accessor: the object for exactly (1, 15, 6), else NULL. */
TARVIK_EXPORT extern const qmi_idl_service_object sar_qmi_idl_service_object_v01;
TARVIK_EXPORT qmi_idl_service_object_type sar_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version);
#define sar_get_service_object_v01()                                                  \
  sar_get_service_object_internal_v01(SAR_V01_IDL_MAJOR_VERS, SAR_V01_IDL_MINOR_VERS, \
                                      SAR_V01_IDL_TOOL_VERS)

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* SAR_V01_H */
