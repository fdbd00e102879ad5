/*
 * The UIM service (QMI service 0x0B, interface 1.113): message ids and the in-memory records of
 * the messages the library sends, the event registration and the two indications it knows. The
 * library, the simulated modem and the tool share this one description.
 *
 * Records follow the QMI record rules: a response starts with the standard response; an
 * optional TLV is a u8 `_valid` flag and its field; a variable array is a u32 count and the array
 * at its maximum; enums are 4 bytes in the record whatever their wire width. Sizes are pinned in
 * user_identity_module_v01.cpp.
 */
#ifndef USER_IDENTITY_MODULE_V01_H
#define USER_IDENTITY_MODULE_V01_H

#include <stdint.h>

#include "common_v01.h"
#include "qmi_idl_lib.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define UIM_V01_IDL_MAJOR_VERS 0x01u
#define UIM_V01_IDL_MINOR_VERS 0x71u /* 113 */
#define UIM_V01_IDL_TOOL_VERS 0x06u
#define UIM_QMI_SERVICE_ID_V01 0x0Bu

#define QMI_UIM_REGISTER_EVENT_REQ_V01 0x002Eu
#define QMI_UIM_GET_CARD_STATUS_REQ_V01 0x002Fu
#define QMI_UIM_POWER_DOWN_REQ_V01 0x0030u
#define QMI_UIM_POWER_UP_REQ_V01 0x0031u
#define QMI_UIM_STATUS_CHANGE_IND_V01 0x0032u
#define QMI_UIM_SEND_APDU_REQ_V01 0x003Bu
#define QMI_UIM_LOGICAL_CHANNEL_REQ_V01 0x003Fu
#define QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01 0x0042u
#define QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01 0x0061u
#define QMI_UIM_TEMPORARY_ID_PURGE_IND_V01 0x0061u
#define QMI_UIM_GET_EID_REQ_V01 0x0065u
#define QMI_UIM_SET_SIM_TYPE_REQ_V01 0x007Au

#define QMI_UIM_AID_MAX_V01 32u
#define QMI_UIM_APDU_DATA_MAX_V01 1024u
#define QMI_UIM_SELECT_RESPONSE_MAX_V01 255u
#define QMI_UIM_EID_LEN_V01 16u
#define QMI_UIM_SIM_TYPE_MAX_V01 5u
#define QMI_UIM_CARDS_MAX_V01 2u
#define QMI_UIM_EXTENDED_CARDS_MAX_V01 5u
#define QMI_UIM_APPS_MAX_V01 8u

/* Event mask bits of the registration: card status, extended card status, and the outcome of a
 * temporary identity purge. */
#define QMI_UIM_EVENT_CARD_STATUS_BIT_V01 0x01u
#define QMI_UIM_EVENT_EXTENDED_CARD_STATUS_BIT_V01 0x04u
#define QMI_UIM_EVENT_PURGE_BIT_V01 0x100u

typedef enum {
  UIM_SLOT_ENUM_MIN_ENUM_VAL_V01 = -2147483647,
  UIM_SLOT_1_V01 = 0x01,
  UIM_SLOT_2_V01 = 0x02,
  UIM_SLOT_3_V01 = 0x03,
  UIM_SLOT_4_V01 = 0x04,
  UIM_SLOT_5_V01 = 0x05,
  UIM_SLOT_ENUM_MAX_ENUM_VAL_V01 = 2147483647
} uim_slot_enum_v01;

typedef enum {
  UIM_CARD_STATE_ENUM_MIN_ENUM_VAL_V01 = -2147483647,
  UIM_CARD_STATE_ABSENT_V01 = 0x00,
  UIM_CARD_STATE_PRESENT_V01 = 0x01,
  UIM_CARD_STATE_ERROR_V01 = 0x02,
  UIM_CARD_STATE_ENUM_MAX_ENUM_VAL_V01 = 2147483647
} uim_card_state_enum_v01;

typedef enum {
  UIM_SESSION_TYPE_ENUM_MIN_ENUM_VAL_V01 = -2147483647,
  UIM_SESSION_TYPE_PRIMARY_GW_V01 = 0,
  UIM_SESSION_TYPE_PRIMARY_1X_V01 = 1,
  UIM_SESSION_TYPE_SECONDARY_GW_V01 = 2,
  UIM_SESSION_TYPE_SECONDARY_1X_V01 = 3,
  UIM_SESSION_TYPE_ENUM_MAX_ENUM_VAL_V01 = 2147483647
} uim_session_type_enum_v01;

/* A small enum kept in 4 record bytes and sent in one (card mode, file control information,
 * procedure bytes, PIN and application states, error codes). */
typedef int32_t uim_byte_enum_v01;

/* ---- 0x002E register events ---- */
typedef struct {
  uint32_t event_mask;
} uim_event_reg_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t event_mask_valid;
  uint32_t event_mask;
} uim_event_reg_resp_msg_v01;

/* ---- 0x002F get card status, 0x0032 its indication ---- */
typedef struct {
  uint8_t extended_card_status_valid;
  uint8_t extended_card_status;
} uim_get_card_status_req_msg_v01;

typedef struct {
  uim_byte_enum_v01 pin_state;
  uint8_t pin_retries;
  uint8_t puk_retries;
} uim_pin_info_type_v01;

typedef struct {
  uim_byte_enum_v01 app_type;  /* 1 SIM, 2 USIM, ... */
  uim_byte_enum_v01 app_state; /* 7 ready */
  uim_byte_enum_v01 perso_state;
  uim_byte_enum_v01 perso_feature;
  uint8_t perso_retries;
  uint8_t perso_unblock_retries;
  uint32_t aid_value_len;
  uint8_t aid_value[QMI_UIM_AID_MAX_V01];
  uint8_t univ_pin;
  uim_pin_info_type_v01 pin1;
  uim_pin_info_type_v01 pin2;
} uim_app_info_type_v01;

typedef struct {
  uim_card_state_enum_v01 card_state;
  uim_pin_info_type_v01 upin;
  uim_byte_enum_v01 error_code; /* 0 unknown, 1 power down, 2 poll error, 3 no ATR, ... */
  uint32_t app_info_len;
  uim_app_info_type_v01 app_info[QMI_UIM_APPS_MAX_V01];
} uim_card_info_type_v01;

/* The legacy card status: provisioning indexes (0xFFFF none) and up to two cards. */
typedef struct {
  uint16_t index_gw_pri;
  uint16_t index_1x_pri;
  uint16_t index_gw_sec;
  uint16_t index_1x_sec;
  uint32_t card_info_len;
  uim_card_info_type_v01 card_info[QMI_UIM_CARDS_MAX_V01];
} uim_card_status_type_v01;

/* The extended card status: the legacy layout with an index list per kind and up to five cards. */
typedef struct {
  uint32_t index_gw_len;
  uint16_t index_gw[QMI_UIM_EXTENDED_CARDS_MAX_V01];
  uint32_t index_1x_len;
  uint16_t index_1x[QMI_UIM_EXTENDED_CARDS_MAX_V01];
  uint32_t card_info_len;
  uim_card_info_type_v01 card_info[QMI_UIM_EXTENDED_CARDS_MAX_V01];
} uim_extended_card_status_type_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t card_status_valid;
  uim_card_status_type_v01 card_status;
  uint8_t extended_card_status_valid;
  uim_extended_card_status_type_v01 extended_card_status;
} uim_get_card_status_resp_msg_v01;

typedef struct {
  uint8_t card_status_valid;
  uim_card_status_type_v01 card_status;
  uint8_t extended_card_status_valid;
  uim_extended_card_status_type_v01 extended_card_status;
} uim_status_change_ind_msg_v01;

/* ---- 0x0030 power down, 0x0031 power up ---- */
typedef struct {
  uim_slot_enum_v01 slot;
} uim_power_down_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
} uim_power_down_resp_msg_v01;

typedef struct {
  uim_slot_enum_v01 slot;
  uint8_t ignore_hot_swap_switch_valid;
  uint8_t ignore_hot_swap_switch;
  uint8_t card_mode_valid;
  uim_byte_enum_v01 card_mode; /* 0 telecom */
} uim_power_up_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
} uim_power_up_resp_msg_v01;

/* ---- 0x003B send APDU ---- */
typedef struct {
  uim_slot_enum_v01 slot;
  uint32_t apdu_len;
  uint8_t apdu[QMI_UIM_APDU_DATA_MAX_V01];
  uint8_t channel_id_valid;
  uint8_t channel_id;
  uint8_t procedure_bytes_valid;
  uim_byte_enum_v01 procedure_bytes; /* 1 skip */
} uim_send_apdu_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t apdu_valid;
  uint32_t apdu_len;
  uint8_t apdu[QMI_UIM_APDU_DATA_MAX_V01]; /* SW1 SW2 last */
} uim_send_apdu_resp_msg_v01;

/* ---- 0x003F logical channel (close), 0x0042 open logical channel ---- */
typedef struct {
  uint8_t sw1;
  uint8_t sw2;
} uim_card_result_type_v01;

typedef struct {
  uim_slot_enum_v01 slot;
  uint8_t aid_valid;
  uint32_t aid_len;
  uint8_t aid[QMI_UIM_AID_MAX_V01];
  uint8_t channel_id_valid;
  uint8_t channel_id;
  uint8_t file_control_information_valid;
  uim_byte_enum_v01 file_control_information;
  uint8_t terminate_application_valid;
  uint8_t terminate_application;
} uim_logical_channel_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t channel_id_valid;
  uint8_t channel_id;
  uint8_t card_result_valid;
  uim_card_result_type_v01 card_result;
  uint8_t select_response_valid;
  uint32_t select_response_len;
  uint8_t select_response[QMI_UIM_SELECT_RESPONSE_MAX_V01];
} uim_logical_channel_resp_msg_v01;

typedef struct {
  uim_slot_enum_v01 slot;
  uint8_t aid_valid;
  uint32_t aid_len;
  uint8_t aid[QMI_UIM_AID_MAX_V01];
  uint8_t file_control_information_valid;
  uim_byte_enum_v01 file_control_information;
} uim_open_logical_channel_req_msg_v01;

typedef uim_logical_channel_resp_msg_v01 uim_open_logical_channel_resp_msg_v01;

/* ---- 0x0061 temporary identity purge, request and indication ---- */
typedef struct {
  uim_session_type_enum_v01 session_type;
  uint32_t aid_len;
  uint8_t aid[QMI_UIM_AID_MAX_V01];
} uim_session_information_type_v01;

#define QMI_UIM_PURGE_GUTI_V01 0x01u

typedef struct {
  uim_session_information_type_v01 session_information;
  uint32_t purge_mask;
} uim_temporary_id_purge_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
} uim_temporary_id_purge_resp_msg_v01;

/* Outcome of a purge: 0 purged, 1 failed. */
typedef struct {
  uim_session_type_enum_v01 session_type;
  uint32_t purge_mask;
  uint8_t outcome_valid;
  uint8_t outcome;
} uim_temporary_id_purge_ind_msg_v01;

/* ---- 0x0065 get EID ---- */
typedef struct {
  uim_slot_enum_v01 slot;
} uim_get_eid_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
  uint8_t eid_value_valid;
  uint32_t eid_value_len;
  uint8_t eid_value[QMI_UIM_EID_LEN_V01];
} uim_get_eid_resp_msg_v01;

/* ---- 0x007A set SIM type ---- */
typedef struct {
  uint32_t sim_type_len;
  uint32_t sim_type[QMI_UIM_SIM_TYPE_MAX_V01];
} uim_set_sim_type_req_msg_v01;

typedef struct {
  qmi_response_type_v01 resp;
} uim_set_sim_type_resp_msg_v01;

/* The service description, and its accessor: the object for exactly (1, 113, 6), else NULL. */
TARVIK_EXPORT extern const qmi_idl_service_object uim_qmi_idl_service_object_v01;
TARVIK_EXPORT qmi_idl_service_object_type uim_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* USER_IDENTITY_MODULE_V01_H */
