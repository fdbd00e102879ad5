/*
 * The extend service (QMI service 0xFFE4): message ids and the in-memory records that the
 * service object's tables encode and decode. The library, the simulated modem and the tool share
 * this one description.
 *
 * Record layouts are fixed: sizes and offsets below are part of the wire contract with the modem
 * and are checked at compile time in tarvik_extend_qmi_v01.cpp. Count fields of variable arrays
 * are u32 in the record and one byte on the wire. Optional TLVs have a u8 `_valid` flag.
 */
#ifndef TARVIK_EXTEND_QMI_V01_H
#define TARVIK_EXTEND_QMI_V01_H

#include <stdint.h>

#include "qmi_idl_lib.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TARVIK_EXTEND_QMI_SERVICE_ID_V01 0xFFE4u
#define TARVIK_EXTEND_QMI_IDL_MAJOR_V01 1u
#define TARVIK_EXTEND_QMI_IDL_MINOR_V01 1u
#define TARVIK_EXTEND_QMI_IDL_TOOL_VERS_V01 6u
#define TARVIK_EXTEND_QMI_MAX_MSG_LEN_V01 1553u

/* Bytes of the opaque payload of the generic data record. */
#define TARVIK_EXTEND_QMI_DATA_MAX_V01 550u

/* Message ids. */
#define TARVIK_EXTEND_QMI_GENERIC_MSG_V01 0x02u             /* req/resp: generic data request */
#define TARVIK_EXTEND_QMI_EVENT_MSG_V01 0x03u               /* req/resp: event registration; ind */
#define TARVIK_EXTEND_QMI_DATA_OPT_MSG_V01 0x04u            /* req/resp: data with an option byte */
#define TARVIK_EXTEND_QMI_SELF_STUDY_TABLE_IND_V01 0x05u    /* ind: 20 x aggregate 0 */
#define TARVIK_EXTEND_QMI_SELF_STUDY_GROUP_IND_V01 0x06u    /* ind: 10 x aggregate 2 */
#define TARVIK_EXTEND_QMI_SELF_STUDY_STATE_IND_V01 0x07u    /* ind: two u32 */
#define TARVIK_EXTEND_QMI_SELF_STUDY_ENTRY_IND_V01 0x08u    /* ind: u32 and aggregate 1 */
#define TARVIK_EXTEND_QMI_SELF_STUDY_HISTORY_IND_V01 0x09u  /* ind: 50 x u64 */
#define TARVIK_EXTEND_QMI_SELF_STUDY_UPLOAD_MSG_V01 0x0Au   /* req/resp: 64 x aggregate 1 */
#define TARVIK_EXTEND_QMI_SELF_STUDY_COUNTERS_IND_V01 0x0Bu /* ind: five u32 */
#define TARVIK_EXTEND_QMI_WECHAT_MSG_V01 0x0Cu              /* req/resp */
#define TARVIK_EXTEND_QMI_WECHAT_IND_V01 0x0Du              /* ind */
#define TARVIK_EXTEND_QMI_BASE_MODEL_SET_CFG_MSG_V01 0x0Eu
#define TARVIK_EXTEND_QMI_BASE_MODEL_SET_DETECTION_MSG_V01 0x0Fu
#define TARVIK_EXTEND_QMI_BASE_MODEL_GET_DDS_INFO_MSG_V01 0x10u
#define TARVIK_EXTEND_QMI_BASE_MODEL_GET_REASON_MSG_V01 0x11u
#define TARVIK_EXTEND_QMI_BASE_MODEL_REASON_IND_V01 0x12u
#define TARVIK_EXTEND_QMI_BASE_MODEL_SET_EVENT_IND_MSG_V01 0x13u
#define TARVIK_EXTEND_QMI_BASE_MODEL_SCENE_MSG_V01 0x14u /* req/resp and ind */

/* Aggregate 0: u64 then 12 x u32 (56 bytes). */
typedef struct {
  uint64_t key;
  uint32_t values[12];
} tarvik_extend_qmi_agg0_v01;

/* Aggregate 1: u64 then 4 x u32 (24 bytes). */
typedef struct {
  uint64_t key;
  uint32_t values[4];
} tarvik_extend_qmi_agg1_v01;

/* Aggregate 2: at most 5 x aggregate 1 (128 bytes; elements from offset 8). */
typedef struct {
  uint32_t list_len;
  tarvik_extend_qmi_agg1_v01 list[5];
} tarvik_extend_qmi_agg2_v01;

/* Aggregate 3: 17 x u32 (68 bytes). */
typedef struct {
  uint32_t values[17];
} tarvik_extend_qmi_agg3_v01;

/*
 * The generic data record (560 bytes) of requests and responses 0x02 and 0x03 and of indication
 * 0x03. The first field is the request id or event number in a request, the service's verdict in
 * a response (0: success) and the event number in an indication. `data` is always 550 bytes on
 * the wire when `data_valid` is set; `data_len` says how many of them are meaningful.
 */
typedef struct {
  uint32_t id;
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[TARVIK_EXTEND_QMI_DATA_MAX_V01];
} tarvik_extend_qmi_req_msg_v01;

typedef struct {
  uint32_t result;
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[TARVIK_EXTEND_QMI_DATA_MAX_V01];
} tarvik_extend_qmi_resp_msg_v01;

typedef struct {
  uint32_t ind;
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[TARVIK_EXTEND_QMI_DATA_MAX_V01];
} tarvik_extend_qmi_ind_msg_v01;

/* Request 0x04 (564 bytes): the generic record plus an optional option byte. */
typedef struct {
  uint32_t id;
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[TARVIK_EXTEND_QMI_DATA_MAX_V01];
  uint8_t opt_valid;
  uint8_t opt;
} tarvik_extend_qmi_data_opt_req_msg_v01;

/* Responses 0x04, 0x0A, 0x0C and indication 0x07 (8 bytes): verdict or state, and a value. */
typedef struct {
  uint32_t result;
  uint32_t value;
} tarvik_extend_qmi_pair_msg_v01;

/* Indication 0x05 (1128 bytes). */
typedef struct {
  uint32_t type;
  uint32_t count;
  tarvik_extend_qmi_agg0_v01 table[20];
} tarvik_extend_qmi_self_study_table_ind_msg_v01;

/* Indication 0x06 (1288 bytes). */
typedef struct {
  uint32_t type;
  uint32_t count;
  tarvik_extend_qmi_agg2_v01 groups[10];
} tarvik_extend_qmi_self_study_group_ind_msg_v01;

/* Indication 0x08 (32 bytes). */
typedef struct {
  uint32_t type;
  tarvik_extend_qmi_agg1_v01 entry;
} tarvik_extend_qmi_self_study_entry_ind_msg_v01;

/* Indication 0x09 (408 bytes). */
typedef struct {
  uint32_t type;
  uint32_t count;
  uint64_t history[50];
} tarvik_extend_qmi_self_study_history_ind_msg_v01;

/* Request 0x0A (1544 bytes). */
typedef struct {
  uint32_t type;
  uint32_t count;
  tarvik_extend_qmi_agg1_v01 entries[64];
} tarvik_extend_qmi_self_study_upload_req_msg_v01;

/* Indication 0x0B (20 bytes). */
typedef struct {
  uint32_t values[5];
} tarvik_extend_qmi_self_study_counters_ind_msg_v01;

/* Request 0x0C (12 bytes). */
typedef struct {
  uint32_t type;
  uint32_t value;
  uint8_t flag;
} tarvik_extend_qmi_wechat_req_msg_v01;

/* Indication 0x0D (24 bytes). */
typedef struct {
  uint32_t type;
  uint32_t state;
  uint64_t timestamp;
  uint32_t value;
} tarvik_extend_qmi_wechat_ind_msg_v01;

/* Request 0x0E (404 bytes): the model configuration vector. */
typedef struct {
  uint32_t cfg_len;
  uint32_t cfg[100];
} tarvik_extend_qmi_base_model_set_cfg_req_msg_v01;

/* Responses 0x0E, 0x0F, 0x13 (4 bytes). */
typedef struct {
  uint32_t result;
} tarvik_extend_qmi_base_model_result_resp_msg_v01;

/* Request 0x0F (1 byte). */
typedef struct {
  uint8_t enabled;
} tarvik_extend_qmi_base_model_set_detection_req_msg_v01;

/* Requests 0x10 and 0x14 carry no TLV; their record is one unused byte. */
typedef struct {
  uint8_t unused;
} tarvik_extend_qmi_empty_req_msg_v01;

/* Response 0x10 (72 bytes). */
typedef struct {
  uint32_t result;
  tarvik_extend_qmi_agg3_v01 info;
} tarvik_extend_qmi_base_model_get_dds_info_resp_msg_v01;

/* Request 0x11 (4 bytes). */
typedef struct {
  uint32_t value;
} tarvik_extend_qmi_base_model_get_reason_req_msg_v01;

/* Response 0x11 (116 bytes): four lists of at most 6 values each. */
typedef struct {
  uint32_t result;
  uint32_t arfcn_len;
  uint32_t arfcn[6];
  uint32_t pci_len;
  uint32_t pci[6];
  uint32_t reason_bitmask_len;
  uint32_t reason_bitmask[6];
  uint32_t reason_bitmask_ext_len;
  uint32_t reason_bitmask_ext[6];
} tarvik_extend_qmi_base_model_get_reason_resp_msg_v01;

/* Indication 0x12 (16 bytes). */
typedef struct {
  uint32_t values[4];
} tarvik_extend_qmi_base_model_reason_ind_msg_v01;

/* Request 0x13 (8 bytes). */
typedef struct {
  uint32_t event;
  uint8_t is_register;
} tarvik_extend_qmi_base_model_set_event_ind_req_msg_v01;

/* Response and indication 0x14 (12 bytes). */
typedef struct {
  uint32_t result;
  uint32_t scene_bitmask;
  uint32_t scene_bitmask_ext;
} tarvik_extend_qmi_base_model_scene_msg_v01;

/* The service description, and its accessor: the object for exactly (1, 1, 6), else NULL. */
TARVIK_EXPORT extern const qmi_idl_service_object tarvik_extend_qmi_idl_service_object_v01;
TARVIK_EXPORT qmi_idl_service_object_type tarvik_extend_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_EXTEND_QMI_V01_H */
