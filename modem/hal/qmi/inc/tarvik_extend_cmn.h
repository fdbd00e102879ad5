/*
 * Common requests of the extend service: the request id shared by most small modem commands,
 * the typed-message command, result mapping of channel errors and the one-shot features that
 * build a common request themselves (extend mode, build information, feature control, cell
 * information).
 *
 * Buffers live on the caller's stack; no lock is held here beyond the channel's own, so every
 * function may be called from any thread. Integers in the data buffers are little-endian.
 */
#ifndef TARVIK_EXTEND_CMN_H
#define TARVIK_EXTEND_CMN_H

#include <stdbool.h>
#include <stdint.h>

#include "qmi_client.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Request ids of the generic data request (first argument of tarvik_extend_qmi_send_sync). */
#define REQUEST_ID_NV_ITEM 1u
#define REQUEST_ID_NVEFS 2u
#define REQUEST_ID_COMMON 4u
#define REQUEST_ID_CDC 6u

/* Commands of REQUEST_ID_COMMON (offset 0 of the request). */
#define COMMON_CMD_MSG 2u
#define COMMON_CMD_EXTEND_MODE_GET 5u
#define COMMON_CMD_EXTEND_MODE_SET 6u
#define COMMON_CMD_BUILD_INFORMATION 7u
#define COMMON_CMD_CHIPSET_ID 8u
#define COMMON_CMD_MBN_TXT_PATH_GET 9u
#define COMMON_CMD_MBN_TXT_PATH_SET 10u
#define COMMON_CMD_MBN_TXT_PATH_GET_2 11u
#define COMMON_CMD_MBN_TXT_PATH_SET_2 12u
#define COMMON_CMD_SCREEN_STATUS 17u
#define COMMON_CMD_DSDA_SUPPORT 19u
#define COMMON_CMD_REG_MCFG_EVENT_IND 23u
#define COMMON_CMD_BP_CHIP_ID 26u
#define COMMON_CMD_MBN_LIST_CUST_MAX_NUM 30u
#define COMMON_CMD_HW_ID 32u
#define COMMON_CMD_CDMA_SUPPORT 33u
#define COMMON_CMD_SLEEP_STATUS 34u
#define COMMON_CMD_VENUE_MODE 35u
#define COMMON_CMD_FEATURE_CONTROL 100u

/* Message types of COMMON_CMD_MSG (offset 8 of the request). */
#define COMMON_MSG_MODEM_SSR 31u
#define COMMON_MSG_NV_SYNC 35u
#define COMMON_MSG_MODEM_CRASH 99u
#define COMMON_MSG_MCFG_GET_DISCOVER_TIMER 177u
#define COMMON_MSG_MCFG_SET_DISCOVER_TIMER 178u

/* Feature codes of COMMON_CMD_FEATURE_CONTROL. */
#define COMMON_FEATURE_SATELLITE 7u
#define COMMON_FEATURE_RFFE_DEVICE_CHECK 8u
#define COMMON_FEATURE_MTPL_GPIO 11u

/* Operations of REQUEST_ID_NV_ITEM that are not NV item operations. */
#define NV_ITEM_OP_CELLINFO 256u

/* Status codes of the modem feature functions. A non-zero result of the modem itself is
 * returned unchanged and never collides with these in practice. */
#define TARVIK_FEAT_ERR_INVALID_PARAM (-101) /* the channel's -1 */
#define TARVIK_FEAT_ERR_NO_CLIENT (-102)     /* the channel's -2 */
#define TARVIK_FEAT_ERR_SEND_FAILED (-103)   /* the channel's -3 */
#define TARVIK_FEAT_ERR_SUB_INVALID (-104)
#define TARVIK_FEAT_ERR_PATH_NULL (-105)
#define TARVIK_FEAT_ERR_PATH_LEN (-106)
#define TARVIK_FEAT_ERR_BUF_NULL (-107)
#define TARVIK_FEAT_ERR_LEN_INVALID (-108)
#define TARVIK_FEAT_ERR_NV_ID_RANGE (-109)
#define TARVIK_CMN_ERR_INVALID_ARG 0x0FFFF00Au   /* bad argument of a common request */
#define TARVIK_CMN_ERR_BUF_TOO_SHORT 0x0FFFF00Bu /* caller's output buffer too short */
#define TARVIK_NV_ITEM_ERR_NO_FIT 0x0FFFF001u    /* raw NV payload or buffer does not fit */

#define TARVIK_CMN_REQ_SIZE 512u
#define TARVIK_CMN_RSP_SIZE 508u
#define TARVIK_CMN_PAYLOAD_MAX 504u   /* room for the payload of a command */
#define TARVIK_CMN_LEN_LIMIT 500u     /* tarvik_common_qmi_req refuses len >= this */
#define TARVIK_CMN_MSG_LEN_LIMIT 492u /* tarvik_send_common_qmi_msg refuses len >= this */
#define TARVIK_CMN_RSP_DATA_MAX 500u

/* Data buffer of REQUEST_ID_COMMON. */
typedef struct {
  uint32_t cmd;
  uint32_t reserved;
  uint8_t payload[TARVIK_CMN_PAYLOAD_MAX];
} tarvik_cmn_req_t;

/* Response of REQUEST_ID_COMMON; a caller of tarvik_common_qmi_req passes one as `rsp`. */
typedef struct {
  uint32_t unused;
  int32_t result; /* 0: the modem carried the command out; else the modem's failure code */
  uint8_t data[TARVIK_CMN_RSP_DATA_MAX];
} tarvik_cmn_rsp_t;

/* Data buffer and response of REQUEST_ID_NV_ITEM (raw NV items and cell information). */
#define TARVIK_NV_ITEM_REQ_SIZE 428u
#define TARVIK_NV_ITEM_RSP_SIZE 432u
#define TARVIK_NV_ITEM_PAYLOAD_MAX 412u
typedef struct {
  uint32_t op;
  uint32_t arg1;
  uint32_t arg2;
  uint32_t len;
  uint8_t payload[TARVIK_NV_ITEM_PAYLOAD_MAX];
} tarvik_nv_item_req_t;
typedef struct {
  uint32_t unused0;
  int32_t result;
  uint32_t unused8;
  uint32_t unused12;
  uint32_t data_len;
  uint8_t data[TARVIK_NV_ITEM_PAYLOAD_MAX];
} tarvik_nv_item_rsp_t;

/*
 * Sends command `cmd` with `len` payload bytes of `src` and writes the modem's answer into
 * `rsp` (508 bytes, see tarvik_cmn_rsp_t; zeroed first). Returns TARVIK_CMN_ERR_INVALID_ARG for
 * a null `rsp`, `len` >= 500 or a null `src` with a non-zero `len` (nothing is sent), else the
 * channel's status as it stands (0: `rsp` holds the answer; read its result field).
 */
TARVIK_EXPORT uint32_t tarvik_common_qmi_req(uint32_t cmd, uint32_t len, const void *src,
                                             uint32_t *rsp);

/* The same for a typed message (command 2) of type `t`; `len` must be below 492. */
TARVIK_EXPORT uint32_t tarvik_send_common_qmi_msg(uint32_t t, uint32_t len, const void *v,
                                                  uint32_t *rsp);

/* -1, -2, -3 of the channel become -101, -102, -103; any other value is returned as it is. */
TARVIK_EXPORT int tarvik_qmi_result_map(int result);

/* These return the channel's status when non-zero, else the modem's result. */
TARVIK_EXPORT uint32_t tarvik_extend_mode_set(uint8_t mode);
/* Stores the modem's mode byte whenever the exchange succeeded, also with a non-zero result;
 * a null `mode` is refused with TARVIK_CMN_ERR_INVALID_ARG without sending. */
TARVIK_EXPORT uint32_t tarvik_extend_mode_get(uint8_t *mode);
TARVIK_EXPORT uint32_t tarvik_extend_build_information(uint8_t value);
TARVIK_EXPORT uint32_t tarvik_modem_set_satellite(uint8_t value);
/* Prints the outcome and the modem's report bytes on standard output. */
TARVIK_EXPORT uint32_t tarvik_modem_rffe_device_check(uint8_t value);
/* Prints the outcome on standard output. */
TARVIK_EXPORT uint32_t tarvik_modem_mtpl_gpio_control(uint8_t value);

/*
 * Cell information: sends `len` bytes of `src` (at most 412) and copies the modem's answer into
 * `out`, whose capacity is *out_len; prints its outcome on standard output. A `len` outside 0 to
 * 412, a null `src` with a non-zero `len`, or a null `out`/`out_len` returns
 * TARVIK_CMN_ERR_INVALID_ARG without sending. An answer that claims more data than the response
 * holds is cut to what it holds. A too-small `out` returns 0 and copies nothing.
 */
TARVIK_EXPORT uint32_t tarvik_extend_cellinfo(const uint8_t *src, int len, void *out, int *out_len);

/* Indication callbacks that only log the message id. */
TARVIK_EXPORT void tarvik_qmi_client_common_empty_unsol_ind_cb(qmi_client_type handle,
                                                               unsigned int msg_id, void *ind_buf,
                                                               unsigned int ind_buf_len,
                                                               void *ind_cb_data);
TARVIK_EXPORT void tarvik_qmi_client_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id,
                                                  void *ind_buf, unsigned int ind_buf_len,
                                                  void *ind_cb_data);

/* ---- Restart and crash control, capability queries, MCFG, device name and status ----
 * Each sends one common command or typed message and holds no lock beyond the channel's (the
 * restart counting and the first fill of the device name cache take locks of their own). */

/* Restart counts: "persist.radio.ssr_count_0x%08x" per counted value. A flag with bit 31 set is
 * one value; otherwise each of bits 0-8 and 16-19 that is set counts under its own value. */
TARVIK_EXPORT void tarvik_save_modem_ssr_count(int flag);
TARVIK_EXPORT void tarvik_update_modem_ssr_count(uint32_t type);
/* Counts the restart, then orders it (message 31 with `flag`); the outcome is only logged. */
TARVIK_EXPORT void tarvik_modem_ssr(uint32_t flag);
/* Crash into a subsystem restart: sets the restart level to subsystem restart, waits
 * "persist.radio.ssr_wait_s" before and after the order (both only when the level changed) and
 * restores the level afterwards. A negative wait before stops the order; after, it keeps the
 * changed level. Blocks for the waits. */
TARVIK_EXPORT void tarvik_modem_crash_without_orange_screen(uint32_t flag);
/* Crash into a full dump: sets the dump level (kept), waits once when it changed. */
TARVIK_EXPORT void tarvik_modem_crash_with_orange_screen(uint32_t flag);
/* NV sync (message 35): the channel's status OR the modem's result; 0 only when both are 0. */
TARVIK_EXPORT uint32_t tarvik_modem_nv_sync(void);
/* "persist.radio.legacy_hook_update_mask" when above 0, else the first 4 bytes of the modem
 * file "/oem/cmn/legacy_hook_update_mask" (the property's value when that cannot be read). */
TARVIK_EXPORT int tarvik_get_legacy_hook_update_mask(void);

/* Card modes of tarvik_get_card_mode_flag. */
#define CARD_MODE_FLAG_SS 1u
#define CARD_MODE_FLAG_DSDS 2u
#define CARD_MODE_FLAG_DSDA 3u

/* Number queries: the modem's value, 0 on any failure (indistinguishable from a value 0). */
TARVIK_EXPORT uint32_t tarvik_modem_chipset_id_get(void);
TARVIK_EXPORT uint32_t tarvik_modem_hw_id_get(void);
TARVIK_EXPORT uint32_t tarvik_modem_bp_chip_id_get(void);
/* True only when the modem answers exactly 1. */
TARVIK_EXPORT bool tarvik_modem_cdma_support_status_get(void);
TARVIK_EXPORT bool tarvik_modem_dsda_support_status_get(void);
/* Always 1. */
TARVIK_EXPORT uint32_t tarvik_modem_dsda_default_status_get(void);
/* The text the modem answers to command `type`: *in_out_len is the capacity of `str_info` on
 * entry and the text's length (no terminator counted) on success; it must exceed the length.
 * An answer without terminator is cut to 499 characters. Never copies a partial answer:
 * TARVIK_CMN_ERR_BUF_TOO_SHORT (count 0) when it does not fit. */
TARVIK_EXPORT uint32_t tarvik_modem_string_info_get(uint32_t type, char *str_info,
                                                    uint32_t *in_out_len);
/* The length-prefixed record (first byte: its length L, itself included) the modem answers to
 * command `type`; the capacity must exceed L. On success the count is L. */
TARVIK_EXPORT uint32_t tarvik_modem_raw_content_get(uint32_t type, void *raw_content,
                                                    uint32_t *in_out_len);
/* 1 single SIM (the modem is not asked), 2 DSDS, 3 DSDA ("persist.vendor.radio.dsda_cap",
 * default 1, on a modem that supports it). */
TARVIK_EXPORT uint32_t tarvik_get_card_mode_flag(void);

/* MBN list text file paths: kinds 9/11 read (`path_val` holds 180 bytes, always terminated),
 * 10/12 set (at most 179 characters). Another kind, or a null path, is refused with
 * TARVIK_CMN_ERR_INVALID_ARG without traffic. */
#define TARVIK_MCFG_PATH_SIZE 180u
TARVIK_EXPORT uint32_t tarvik_mcfg_mbn_txt_path_get(char *path_val, uint32_t mbn_msg_type);
TARVIK_EXPORT uint32_t tarvik_mcfg_mbn_txt_path_set(const char *path_val, uint32_t mbn_msg_type);
/* Customer entries an MBN list may hold; 0 on failure. */
TARVIK_EXPORT uint32_t tarvik_mbn_list_cust_max_num_get(void);
/* The discovery timer's time-out in the modem's unit; -1 on failure. */
TARVIK_EXPORT int tarvik_mcfg_ext_get_discover_timer_timeout(void);
/* 1 on success, 0 on failure. */
TARVIK_EXPORT uint32_t tarvik_mcfg_ext_set_discover_timer_timeout(uint32_t timeout);
/* Asks the modem for configuration event indications: the channel's status, else the modem's
 * result. */
TARVIK_EXPORT uint32_t tarvik_reg_mcfg_event_ind(void);

/* Device name file on subscription 0; written from tarvik_device_name_get only when it cannot
 * be read. */
#define TARVIK_DEVICE_NAME_FILE "/oem/cmn/device_name"
TARVIK_EXPORT void tarvik_device_name_save_to_efs(void);
/* The name as the file holds it, read once per process (also when the read fails: then empty);
 * static storage, never freed. A first call from two threads at once reads the file once. */
TARVIK_EXPORT const char *tarvik_device_name_read_from_efs(void);
/* True when `list` (`len` entries) holds "all_product" or an entry found in the file's name. */
TARVIK_EXPORT bool tarvik_device_name_list_contain_ex(char **list, uint32_t len);
/* Screen status 0 or 1 (2 and above: 0 returned, nothing sent); sleep status as given. Return 0,
 * the mapped channel status or the modem's result. */
TARVIK_EXPORT uint32_t tarvik_qcril_screen_status_notify_to_modem(uint32_t status);
TARVIK_EXPORT uint32_t tarvik_qcril_sleep_status_notify_to_modem(uint32_t status);

/* ---- UIM client ----
 * The flags are single bytes written from the QMI client library's callback thread (and, for
 * PURGE_STATE, by the radio layer's indication handling) while a request polls them: access
 * them with relaxed atomic operations (__atomic_load_n / __atomic_store_n). */

/* 1 after the UIM (or NAS) service went away; cleared by the next successful UIM client
 * creation. */
TARVIK_EXPORT extern uint8_t SSR_Detected;
/* Transport failures of UIM requests since the UIM client was created. */
TARVIK_EXPORT extern uint8_t failed_cnt;
/* Outcome of the GUTI purge: 0 no answer yet, 1 purged, 2 failed. */
TARVIK_EXPORT extern uint8_t PURGE_STATE;

/* Error callback of the UIM and NAS clients: logs, and sets SSR_Detected on QMI_SERVICE_ERR. */
TARVIK_EXPORT void error_cb(qmi_client_type handle, qmi_client_error_type error, void *cb_data);

/* Creates the UIM client (waiting up to 4000 ms for the service); true when one was created,
 * which also clears SSR_Detected and failed_cnt. */
TARVIK_EXPORT bool init_uim_qmi_client(void);
/* Releases the UIM client if there is one; the next operation creates a new one. */
TARVIK_EXPORT void uim_qmi_client_recovery(void);

/* Card power. `power` 0 powers the card in `slot` (a UIM slot number, sent as given) down, any
 * other value up; `ignore_hotswap` non-zero asks the modem to ignore the hot-swap switch at
 * power-up. */
typedef struct {
  uint32_t power;
  uint32_t slot;
  uint32_t ignore_hotswap;
} tarvik_uim_power_req_t;

/* The eSIM variant: `esim_enable` is written to the modem's eSIM enable file (subscription 1)
 * before the request; when that write fails nothing is sent and the result is -1. */
typedef struct {
  uint32_t power;
  uint32_t slot;
  uint32_t ignore_hotswap;
  uint32_t esim_enable;
} tarvik_esim_power_req_t;

/* SIM type: `count` (0 to 5) values. */
#define TARVIK_UIM_SIM_TYPE_MAX 5u
typedef struct {
  uint32_t count;
  uint32_t values[TARVIK_UIM_SIM_TYPE_MAX];
} tarvik_uim_sim_type_req_t;

/* Results of the UIM operations: 0 success, a negative QMI client error of the transport
 * (QMI_SERVICE_ERR releases the client at once, three transport failures since its creation
 * too), -1 when no client could be had, memory ran out or the record is null; the modem's own
 * verdict only where stated. The caller runs one UIM operation at a time. */

/* The transport result only: a power request the modem refuses still returns 0. */
TARVIK_EXPORT int tarvik_uim_request_uicc_power_ex(const tarvik_uim_power_req_t *req);
TARVIK_EXPORT int tarvik_esim_request_uicc_power_ex(const tarvik_esim_power_req_t *req);
/* -2 for a null record or a count above 5 (nothing sent). Failures are not counted. */
TARVIK_EXPORT int tarvik_setSimType(const tarvik_uim_sim_type_req_t *req);

/* Caller records of the card queries: byte-packed. Slots are UIM slot numbers. */
typedef struct __attribute__((packed)) {
  uint8_t slot;
} tarvik_uim_slot_req_t;

typedef struct __attribute__((packed)) {
  uint8_t slot;
  uint8_t file_control_information;
} tarvik_uim_open_channel_req_t;

typedef struct __attribute__((packed)) {
  uint8_t slot;
  uint8_t channel_id;
} tarvik_uim_close_channel_req_t;

#define TARVIK_UIM_APDU_MAX 255u
typedef struct __attribute__((packed)) {
  uint8_t slot;
  uint8_t channel_id;
  uint8_t apdu_len;
  uint8_t apdu[TARVIK_UIM_APDU_MAX];
} tarvik_uim_apdu_req_t;

#define TARVIK_UIM_EID_LEN 16u
/* Size the output of tarvik_uim_send_apdu must have: one length byte and the longest response
 * APDU the service returns (1024 bytes). */
#define TARVIK_UIM_APDU_RESP_BUF_LEN 1025u

/* The 16 EID bytes of the card in `slot` into `eid`; left untouched when the modem has no EID
 * to give (the result is then still 0). */
TARVIK_EXPORT int tarvik_uim_request_eid(const tarvik_uim_slot_req_t *req, uint8_t *eid);
/* Card states (0 absent, 1 present, 2 error, 3 not reported): first card in the low byte,
 * second in the high byte. 3, 3 when the modem refuses; untouched on a transport failure. */
TARVIK_EXPORT int tarvik_uim_get_card_status(uint16_t *states);
/* Opens a channel to the eUICC's ISD-R; -1 when the modem refuses. */
TARVIK_EXPORT int tarvik_uim_open_channel(const tarvik_uim_open_channel_req_t *req,
                                          uint8_t *channel_id);
/* Transport result only. */
TARVIK_EXPORT int tarvik_uim_close_channel(const tarvik_uim_close_channel_req_t *req);
/* Sends `apdu_len` bytes on a channel; `resp` (TARVIK_UIM_APDU_RESP_BUF_LEN bytes) gets the
 * response length's low 8 bits, then the whole response APDU (SW1 SW2 last). -1 when the modem
 * refuses. */
TARVIK_EXPORT int tarvik_uim_send_apdu(const tarvik_uim_apdu_req_t *req, uint8_t *resp);
/* Asks the modem to purge the 5G GUTI of the first (slot 0) or second (other values)
 * subscription and blocks up to 2 s for PURGE_STATE to be set by the radio layer: 0 purged, -4
 * failed or refused, -3 no answer, -2 when the request released the client. */
TARVIK_EXPORT int tarvik_uim_purge_guti(const tarvik_uim_slot_req_t *req);

/* ---- NAS client and 5G network controls ----
 * One long-lived NAS client bound to the process instance id (0 or 1; any other id is never
 * bound), created by the first control that needs it and kept for the life of the process. The
 * controls and the pass-through are unlocked: call them from one thread at a time. Results are
 * the transport's (0, or a negative QMI client error such as QMI_SERVICE_ERR or
 * QMI_TIMEOUT_ERR); -1 when there is no client or no memory. The modem's own verdict on a
 * control is not examined. */

/* Creates and binds the long-lived client: true when bound. A binding the modem refuses is tried
 * 10 times, 500 ms apart (about 5 s); a service error ends it at once. A client whose binding
 * failed is released. */
TARVIK_EXPORT bool init_nas_qmi_client(void);
/* Deprioritise 5G standalone when the low 8 bits of `value` are non-zero. */
TARVIK_EXPORT int tarvik_deprioritize_sa(uint32_t value);
/* `mode` 1 disables NR5G standalone, 2 non-standalone; any other value disables nothing. */
TARVIK_EXPORT int tarvik_set_nr_mode(uint32_t mode);
/* Enables EN-DC when the low 8 bits of `value` are non-zero. */
TARVIK_EXPORT int tarvik_enable_endc(uint32_t value);
/*
 * Sends NAS message `msg_id` from the caller's encoded request record (`req_len` bytes) and
 * decodes the answer into `qmi_response` (`resp_len` bytes), on a client created for this one
 * request and released before the return. -1 for a missing record or when no client can be
 * created; else the transport result (a message the carried NAS description lacks fails in the
 * encoder and reaches no modem). The response's standard result is the caller's to read.
 */
TARVIK_EXPORT int tarvik_send_nas_qmi_req_msg(uint32_t msg_id, void *qmi_request, uint32_t req_len,
                                              void *qmi_response, uint32_t resp_len,
                                              uint32_t time_out_ms);
/* Error callback of the pass-through client: logs only. */
TARVIK_EXPORT void tarvik_qmi_client_error_cb(qmi_client_type handle, qmi_client_error_type error,
                                              void *cb_data);

/* ---- RF SAR client ----
 * One SAR client, created on demand and re-created once after any failed request but a
 * time-out. Unlocked: one thread at a time. A request may block for 30 s (60 s with the
 * retry). */

TARVIK_EXPORT void tarvik_init_qmi_client_rf_sar(void);
TARVIK_EXPORT void tarvik_release_qmi_client_rf_sar(void);
/* 1 when a client exists (created here if needed), else 0. */
TARVIK_EXPORT int tarvik_check_and_init_qmi_client_rf_sar(void);
/* Releases the client, then as tarvik_check_and_init_qmi_client_rf_sar. */
TARVIK_EXPORT int tarvik_force_init_qmi_client_rf_sar(void);
/* The DSI the modem reports (0 when its answer has none), or -1 on any failure. */
TARVIK_EXPORT int tarvik_get_sar_dsi(void);
/* Sends `dsi` when it is 1 to 20, else 0. 0 on success; -1 when no client can be had; else the
 * transport result of the last send made. */
TARVIK_EXPORT int tarvik_set_sar_dsi(uint32_t dsi);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_EXTEND_CMN_H */
