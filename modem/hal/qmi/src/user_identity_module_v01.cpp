// Tables of the UIM service (0x0B) for the QMI codec: one line per TLV and one row per message,
// next to the record sizes callers and the modem rely on.
#include "user_identity_module_v01.h"

#include <stddef.h>

namespace {

// Sizes that the requests and the short responses are allocated with. The card status,
// logical channel and APDU responses and the APDU request are what the fields carried here
// make them; the service's own records are larger (fields this library never reads).
static_assert(sizeof(uim_power_down_req_msg_v01) == 4);
static_assert(sizeof(uim_power_up_req_msg_v01) == 12);
static_assert(sizeof(uim_power_up_resp_msg_v01) == 8);
static_assert(sizeof(uim_set_sim_type_req_msg_v01) == 24);
static_assert(sizeof(uim_set_sim_type_resp_msg_v01) == 8);
static_assert(sizeof(uim_get_eid_req_msg_v01) == 4);
static_assert(sizeof(uim_get_eid_resp_msg_v01) == 32);
static_assert(offsetof(uim_get_eid_resp_msg_v01, eid_value) == 16);
static_assert(sizeof(uim_get_card_status_req_msg_v01) == 2);
static_assert(sizeof(uim_card_info_type_v01) == 628);
static_assert(sizeof(uim_get_card_status_resp_msg_v01) == 4460);
static_assert(sizeof(uim_open_logical_channel_req_msg_v01) == 52);
static_assert(sizeof(uim_logical_channel_req_msg_v01) == 56);
static_assert(sizeof(uim_logical_channel_resp_msg_v01) == 276);
static_assert(sizeof(uim_send_apdu_req_msg_v01) == 1040);
static_assert(sizeof(uim_send_apdu_resp_msg_v01) == 1040);
static_assert(sizeof(uim_temporary_id_purge_req_msg_v01) == 44);
static_assert(sizeof(uim_temporary_id_purge_resp_msg_v01) == 8);

using EventReq = uim_event_reg_req_msg_v01;
using EventResp = uim_event_reg_resp_msg_v01;
using StatusReq = uim_get_card_status_req_msg_v01;
using StatusResp = uim_get_card_status_resp_msg_v01;
using StatusInd = uim_status_change_ind_msg_v01;
using Pin = uim_pin_info_type_v01;
using App = uim_app_info_type_v01;
using Card = uim_card_info_type_v01;
using Legacy = uim_card_status_type_v01;
using Extended = uim_extended_card_status_type_v01;
using DownReq = uim_power_down_req_msg_v01;
using DownResp = uim_power_down_resp_msg_v01;
using UpReq = uim_power_up_req_msg_v01;
using UpResp = uim_power_up_resp_msg_v01;
using ApduReq = uim_send_apdu_req_msg_v01;
using ApduResp = uim_send_apdu_resp_msg_v01;
using ChannelReq = uim_logical_channel_req_msg_v01;
using ChannelResp = uim_logical_channel_resp_msg_v01;
using OpenReq = uim_open_logical_channel_req_msg_v01;
using CardResult = uim_card_result_type_v01;
using Session = uim_session_information_type_v01;
using PurgeReq = uim_temporary_id_purge_req_msg_v01;
using PurgeResp = uim_temporary_id_purge_resp_msg_v01;
using PurgeInd = uim_temporary_id_purge_ind_msg_v01;
using EidReq = uim_get_eid_req_msg_v01;
using EidResp = uim_get_eid_resp_msg_v01;
using SimTypeReq = uim_set_sim_type_req_msg_v01;
using SimTypeResp = uim_set_sim_type_resp_msg_v01;

constexpr qmi_elem_info pin_ei[] = {
    QMI_MEMBER_ENUM(1, Pin, pin_state),
    QMI_MEMBER(U, Pin, pin_retries),
    QMI_MEMBER(U, Pin, puk_retries),
    QMI_EI_END,
};

constexpr qmi_elem_info app_ei[] = {
    QMI_MEMBER_ENUM(1, App, app_type),  //
    QMI_MEMBER_ENUM(1, App, app_state),
    QMI_MEMBER_ENUM(1, App, perso_state),
    QMI_MEMBER_ENUM(1, App, perso_feature),
    QMI_MEMBER(U, App, perso_retries),
    QMI_MEMBER(U, App, perso_unblock_retries),
    QMI_MEMBER_VAR(U, 1, QMI_UIM_AID_MAX_V01, App, aid_value_len, aid_value),
    QMI_MEMBER(U, App, univ_pin),
    QMI_MEMBER_STRUCT(App, pin1, pin_ei),
    QMI_MEMBER_STRUCT(App, pin2, pin_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info card_ei[] = {
    QMI_MEMBER_ENUM(1, Card, card_state),
    QMI_MEMBER_STRUCT(Card, upin, pin_ei),
    QMI_MEMBER_ENUM(1, Card, error_code),
    QMI_MEMBER_VAR_STRUCT(1, QMI_UIM_APPS_MAX_V01, Card, app_info_len, app_info, app_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info legacy_ei[] = {
    QMI_MEMBER(U, Legacy, index_gw_pri),  //
    QMI_MEMBER(U, Legacy, index_1x_pri),
    QMI_MEMBER(U, Legacy, index_gw_sec),
    QMI_MEMBER(U, Legacy, index_1x_sec),
    QMI_MEMBER_VAR_STRUCT(1, QMI_UIM_CARDS_MAX_V01, Legacy, card_info_len, card_info, card_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info extended_ei[] = {
    QMI_MEMBER_VAR(U, 1, QMI_UIM_EXTENDED_CARDS_MAX_V01, Extended, index_gw_len, index_gw),
    QMI_MEMBER_VAR(U, 1, QMI_UIM_EXTENDED_CARDS_MAX_V01, Extended, index_1x_len, index_1x),
    QMI_MEMBER_VAR_STRUCT(1, QMI_UIM_EXTENDED_CARDS_MAX_V01, Extended, card_info_len, card_info,
                          card_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info card_result_ei[] = {
    QMI_MEMBER(U, CardResult, sw1),
    QMI_MEMBER(U, CardResult, sw2),
    QMI_EI_END,
};

constexpr qmi_elem_info session_ei[] = {
    QMI_MEMBER_ENUM(1, Session, session_type),
    QMI_MEMBER_VAR(U, 1, QMI_UIM_AID_MAX_V01, Session, aid_len, aid),
    QMI_EI_END,
};

constexpr qmi_elem_info event_req_ei[] = {
    QMI_TLV(U, 0x01, EventReq, event_mask),
    QMI_EI_END,
};
constexpr qmi_elem_info event_resp_ei[] = {
    QMI_TLV_RESPONSE(EventResp, resp),
    QMI_TLV_OPT(U, 0x10, EventResp, event_mask_valid, event_mask),
    QMI_EI_END,
};

constexpr qmi_elem_info status_req_ei[] = {
    QMI_TLV_OPT(U, 0x10, StatusReq, extended_card_status_valid, extended_card_status),
    QMI_EI_END,
};
constexpr qmi_elem_info status_resp_ei[] = {
    QMI_TLV_RESPONSE(StatusResp, resp),
    QMI_TLV_OPT_STRUCT(0x10, StatusResp, card_status_valid, card_status, legacy_ei),
    QMI_TLV_OPT_STRUCT(0x13, StatusResp, extended_card_status_valid, extended_card_status,
                       extended_ei),
    QMI_EI_END,
};
constexpr qmi_elem_info status_ind_ei[] = {
    QMI_TLV_OPT_STRUCT(0x10, StatusInd, card_status_valid, card_status, legacy_ei),
    QMI_TLV_OPT_STRUCT(0x12, StatusInd, extended_card_status_valid, extended_card_status,
                       extended_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info down_req_ei[] = {
    QMI_TLV_ENUM(1, 0x01, DownReq, slot),
    QMI_EI_END,
};
constexpr qmi_elem_info down_resp_ei[] = {
    QMI_TLV_RESPONSE(DownResp, resp),
    QMI_EI_END,
};
constexpr qmi_elem_info up_req_ei[] = {
    QMI_TLV_ENUM(1, 0x01, UpReq, slot),
    QMI_TLV_OPT(U, 0x10, UpReq, ignore_hot_swap_switch_valid, ignore_hot_swap_switch),
    QMI_TLV_OPT(S, 0x11, UpReq, card_mode_valid, card_mode),
    QMI_EI_END,
};
constexpr qmi_elem_info up_resp_ei[] = {
    QMI_TLV_RESPONSE(UpResp, resp),
    QMI_EI_END,
};

constexpr qmi_elem_info apdu_req_ei[] = {
    QMI_TLV_ENUM(1, 0x01, ApduReq, slot),
    QMI_TLV_VAR(U, 2, QMI_UIM_APDU_DATA_MAX_V01, 0x02, ApduReq, apdu_len, apdu),
    QMI_TLV_OPT(U, 0x10, ApduReq, channel_id_valid, channel_id),
    QMI_TLV_OPT_ENUM(1, 0x11, ApduReq, procedure_bytes_valid, procedure_bytes),
    QMI_EI_END,
};
constexpr qmi_elem_info apdu_resp_ei[] = {
    QMI_TLV_RESPONSE(ApduResp, resp),
    QMI_TLV_OPT_VAR(U, 2, QMI_UIM_APDU_DATA_MAX_V01, 0x10, ApduResp, apdu_valid, apdu_len, apdu),
    QMI_EI_END,
};

constexpr qmi_elem_info channel_req_ei[] = {
    QMI_TLV_ENUM(1, 0x01, ChannelReq, slot),
    QMI_TLV_OPT_VAR(U, 1, QMI_UIM_AID_MAX_V01, 0x10, ChannelReq, aid_valid, aid_len, aid),
    QMI_TLV_OPT(U, 0x11, ChannelReq, channel_id_valid, channel_id),
    QMI_TLV_OPT_ENUM(1, 0x12, ChannelReq, file_control_information_valid, file_control_information),
    QMI_TLV_OPT(U, 0x13, ChannelReq, terminate_application_valid, terminate_application),
    QMI_EI_END,
};
constexpr qmi_elem_info channel_resp_ei[] = {
    QMI_TLV_RESPONSE(ChannelResp, resp),
    QMI_TLV_OPT(U, 0x10, ChannelResp, channel_id_valid, channel_id),
    QMI_TLV_OPT_STRUCT(0x11, ChannelResp, card_result_valid, card_result, card_result_ei),
    QMI_TLV_OPT_VAR(U, 1, QMI_UIM_SELECT_RESPONSE_MAX_V01, 0x12, ChannelResp, select_response_valid,
                    select_response_len, select_response),
    QMI_EI_END,
};
constexpr qmi_elem_info open_req_ei[] = {
    QMI_TLV_ENUM(1, 0x01, OpenReq, slot),
    QMI_TLV_OPT_VAR(U, 1, QMI_UIM_AID_MAX_V01, 0x10, OpenReq, aid_valid, aid_len, aid),
    QMI_TLV_OPT_ENUM(1, 0x11, OpenReq, file_control_information_valid, file_control_information),
    QMI_EI_END,
};

constexpr qmi_elem_info purge_req_ei[] = {
    QMI_TLV_STRUCT(0x01, PurgeReq, session_information, session_ei),
    QMI_TLV(U, 0x02, PurgeReq, purge_mask),
    QMI_EI_END,
};
constexpr qmi_elem_info purge_resp_ei[] = {
    QMI_TLV_RESPONSE(PurgeResp, resp),
    QMI_EI_END,
};
constexpr qmi_elem_info purge_ind_ei[] = {
    QMI_TLV_ENUM(1, 0x01, PurgeInd, session_type),
    QMI_TLV(U, 0x02, PurgeInd, purge_mask),
    QMI_TLV_OPT(U, 0x10, PurgeInd, outcome_valid, outcome),
    QMI_EI_END,
};

constexpr qmi_elem_info eid_req_ei[] = {
    QMI_TLV_ENUM(1, 0x01, EidReq, slot),
    QMI_EI_END,
};
constexpr qmi_elem_info eid_resp_ei[] = {
    QMI_TLV_RESPONSE(EidResp, resp),
    QMI_TLV_OPT_VAR(U, 1, QMI_UIM_EID_LEN_V01, 0x10, EidResp, eid_value_valid, eid_value_len,
                    eid_value),
    QMI_EI_END,
};

constexpr qmi_elem_info sim_type_req_ei[] = {
    QMI_TLV_VAR(U, 1, QMI_UIM_SIM_TYPE_MAX_V01, 0x01, SimTypeReq, sim_type_len, sim_type),
    QMI_EI_END,
};
constexpr qmi_elem_info sim_type_resp_ei[] = {
    QMI_TLV_RESPONSE(SimTypeResp, resp),
    QMI_EI_END,
};

constexpr qmi_idl_req_resp_row kPairs[] = {
    {0x002E, "event_reg", QMI_MSG(EventReq, event_req_ei), QMI_MSG(EventResp, event_resp_ei)},  //
    {0x002F, "get_card_status", QMI_MSG(StatusReq, status_req_ei),
     QMI_MSG(StatusResp, status_resp_ei)},
    {0x0030, "power_down", QMI_MSG(DownReq, down_req_ei), QMI_MSG(DownResp, down_resp_ei)},
    {0x0031, "power_up", QMI_MSG(UpReq, up_req_ei), QMI_MSG(UpResp, up_resp_ei)},
    {0x003B, "send_apdu", QMI_MSG(ApduReq, apdu_req_ei), QMI_MSG(ApduResp, apdu_resp_ei)},
    {0x003F, "logical_channel", QMI_MSG(ChannelReq, channel_req_ei),
     QMI_MSG(ChannelResp, channel_resp_ei)},
    {0x0042, "open_logical_channel", QMI_MSG(OpenReq, open_req_ei),
     QMI_MSG(ChannelResp, channel_resp_ei)},
    {0x0061, "temporary_id_purge", QMI_MSG(PurgeReq, purge_req_ei),
     QMI_MSG(PurgeResp, purge_resp_ei)},
    {0x0065, "get_eid", QMI_MSG(EidReq, eid_req_ei), QMI_MSG(EidResp, eid_resp_ei)},
    {0x007A, "set_sim_type", QMI_MSG(SimTypeReq, sim_type_req_ei),
     QMI_MSG(SimTypeResp, sim_type_resp_ei)},
};

constexpr qmi_idl_ind_row kIndications[] = {
    {0x0032, "status_change", QMI_MSG(StatusInd, status_ind_ei)},
    {0x0061, "temporary_id_purge", QMI_MSG(PurgeInd, purge_ind_ei)},
};

constexpr auto kTables = qmi_idl_tables_of(kPairs, kIndications);

}  // namespace

extern "C" {

const qmi_idl_service_object uim_qmi_idl_service_object_v01 =
    qmi_idl_service_of(kTables, UIM_V01_IDL_TOOL_VERS, UIM_V01_IDL_MAJOR_VERS,
                       UIM_V01_IDL_MINOR_VERS, UIM_QMI_SERVICE_ID_V01, "uim");

qmi_idl_service_object_type uim_get_service_object_internal_v01(uint32_t idl_maj_version,
                                                                uint32_t idl_min_version,
                                                                uint32_t library_version) {
  return qmi_idl_service_if_version(uim_qmi_idl_service_object_v01, idl_maj_version,
                                    idl_min_version, library_version);
}

}  // extern "C"
