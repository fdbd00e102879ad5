/*
 * The standard network access service (NAS, QMI service 0x03, interface 1.409): the messages the
 * library sends and the two it reads back with, as records the carried service object encodes
 * and decodes. Shared by the library, the simulated modem and the tool.
 *
 * Only the fields the library uses are carried: the other optional fields of the system
 * selection preference records stay absent (their TLVs are skipped when decoding).
 */
#ifndef NETWORK_ACCESS_SERVICE_V01_H
#define NETWORK_ACCESS_SERVICE_V01_H

#include <stdint.h>

#include "common_v01.h"
#include "qmi_idl_lib.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define NAS_QMI_SERVICE_ID_V01 0x03u
#define NAS_V01_IDL_MAJOR_VERS 0x01u
#define NAS_V01_IDL_MINOR_VERS 0x199u /* 409 */
#define NAS_V01_IDL_TOOL_VERS 0x06u

#define QMI_NAS_SET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01 0x0033u
#define QMI_NAS_SET_SYSTEM_SELECTION_PREFERENCE_RESP_MSG_V01 0x0033u
#define QMI_NAS_GET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01 0x0034u
#define QMI_NAS_GET_SYSTEM_SELECTION_PREFERENCE_RESP_MSG_V01 0x0034u
#define QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01 0x0045u
#define QMI_NAS_BIND_SUBSCRIPTION_RESP_MSG_V01 0x0045u
#define QMI_NAS_SET_ENDC_CONFIG_REQ_MSG_V01 0x00E7u
#define QMI_NAS_SET_ENDC_CONFIG_RESP_MSG_V01 0x00E7u
#define QMI_NAS_GET_ENDC_CONFIG_REQ_MSG_V01 0x00E8u
#define QMI_NAS_GET_ENDC_CONFIG_RESP_MSG_V01 0x00E8u
#define QMI_NAS_DEPRIORITIZE_NR5G_REQ_MSG_V01 0x0127u
#define QMI_NAS_DEPRIORITIZE_NR5G_RESP_MSG_V01 0x0127u

/* Subscription a client binds to; one byte on the wire. */
typedef enum {
  NAS_SUBS_TYPE_ENUM_MIN_ENUM_VAL_V01 = -2147483647,
  NAS_PRIMARY_SUBSCRIPTION_V01 = 0x00,
  NAS_SECONDARY_SUBSCRIPTION_V01 = 0x01,
  NAS_SUBS_TYPE_ENUM_MAX_ENUM_VAL_V01 = 2147483647
} nas_subs_type_enum_v01;

/* Which 5G mode the modem keeps off; four bytes on the wire. */
typedef enum {
  NAS_NR5G_DISABLE_MODE_ENUM_MIN_ENUM_VAL_V01 = -2147483647,
  NAS_NR5G_DISABLE_MODE_NONE_V01 = 0x00,
  NAS_NR5G_DISABLE_MODE_SA_V01 = 0x01,
  NAS_NR5G_DISABLE_MODE_NSA_V01 = 0x02,
  NAS_NR5G_DISABLE_MODE_ENUM_MAX_ENUM_VAL_V01 = 2147483647
} nas_nr5g_disable_mode_enum_v01;

/* 0x0045: bind the client to a subscription (4 bytes). */
typedef struct {
  nas_subs_type_enum_v01 subs_type;
} nas_bind_subscription_req_msg_v01;

/* Every response of this service that carries nothing else (8 bytes). */
typedef struct {
  qmi_response_type_v01 resp;
} nas_bind_subscription_resp_msg_v01;
typedef nas_bind_subscription_resp_msg_v01 nas_set_system_selection_preference_resp_msg_v01;
typedef nas_bind_subscription_resp_msg_v01 nas_set_endc_config_resp_msg_v01;
typedef nas_bind_subscription_resp_msg_v01 nas_deprioritize_nr5g_resp_msg_v01;

/* 0x0033: every field optional; the library sets only the NR5G disable mode. */
typedef struct {
  uint8_t nr5g_disable_mode_valid;
  nas_nr5g_disable_mode_enum_v01 nr5g_disable_mode;
} nas_set_system_selection_preference_req_msg_v01;

/* 0x0034 and 0x00E8 carry no request TLV. */
typedef struct {
  char __placeholder;
} nas_get_system_selection_preference_req_msg_v01;
typedef nas_get_system_selection_preference_req_msg_v01 nas_get_endc_config_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t nr5g_disable_mode_valid;
  nas_nr5g_disable_mode_enum_v01 nr5g_disable_mode;
} nas_get_system_selection_preference_resp_msg_v01;

/* 0x00E7: enable EN-DC (1 = on). */
typedef struct {
  uint8_t enable_endc;
} nas_set_endc_config_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t endc_enabled_valid;
  uint8_t endc_enabled;
  uint8_t immediate_scg_release_valid;
  uint8_t immediate_scg_release;
} nas_get_endc_config_resp_msg_v01;

/* 0x0127: deprioritise 5G standalone (1 byte). */
typedef struct {
  uint8_t deprioritize_nr5g;
} nas_deprioritize_nr5g_req_msg_v01;

/* The service description, and its accessor: the object for exactly (1, 409, 6), else NULL. */
TARVIK_EXPORT extern const qmi_idl_service_object nas_qmi_idl_service_object_v01;
TARVIK_EXPORT qmi_idl_service_object_type nas_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version);
#define nas_get_service_object_v01()                                                  \
  nas_get_service_object_internal_v01(NAS_V01_IDL_MAJOR_VERS, NAS_V01_IDL_MINOR_VERS, \
                                      NAS_V01_IDL_TOOL_VERS)

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* NETWORK_ACCESS_SERVICE_V01_H */
