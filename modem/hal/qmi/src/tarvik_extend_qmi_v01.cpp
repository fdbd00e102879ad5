// Tables of the extend service (0xFFE4) for the QMI codec: one line per TLV and one row per
// message, next to the record checks that pin the in-memory layouts the modem and the callers
// rely on.
#include "tarvik_extend_qmi_v01.h"

#include <stddef.h>

namespace {

// Record sizes and the offsets the wire contract names.
static_assert(sizeof(tarvik_extend_qmi_agg0_v01) == 56);
static_assert(sizeof(tarvik_extend_qmi_agg1_v01) == 24);
static_assert(sizeof(tarvik_extend_qmi_agg2_v01) == 128);
static_assert(offsetof(tarvik_extend_qmi_agg2_v01, list) == 8);
static_assert(sizeof(tarvik_extend_qmi_agg3_v01) == 68);
static_assert(sizeof(tarvik_extend_qmi_req_msg_v01) == 560);
static_assert(offsetof(tarvik_extend_qmi_req_msg_v01, data_valid) == 8);
static_assert(offsetof(tarvik_extend_qmi_req_msg_v01, data) == 9);
static_assert(sizeof(tarvik_extend_qmi_data_opt_req_msg_v01) == 564);
static_assert(offsetof(tarvik_extend_qmi_data_opt_req_msg_v01, opt_valid) == 559);
static_assert(offsetof(tarvik_extend_qmi_data_opt_req_msg_v01, opt) == 560);
static_assert(sizeof(tarvik_extend_qmi_pair_msg_v01) == 8);
static_assert(sizeof(tarvik_extend_qmi_self_study_table_ind_msg_v01) == 1128);
static_assert(sizeof(tarvik_extend_qmi_self_study_group_ind_msg_v01) == 1288);
static_assert(sizeof(tarvik_extend_qmi_self_study_entry_ind_msg_v01) == 32);
static_assert(offsetof(tarvik_extend_qmi_self_study_entry_ind_msg_v01, entry) == 8);
static_assert(sizeof(tarvik_extend_qmi_self_study_history_ind_msg_v01) == 408);
static_assert(sizeof(tarvik_extend_qmi_self_study_upload_req_msg_v01) == 1544);
static_assert(sizeof(tarvik_extend_qmi_self_study_counters_ind_msg_v01) == 20);
static_assert(sizeof(tarvik_extend_qmi_wechat_req_msg_v01) == 12);
static_assert(sizeof(tarvik_extend_qmi_wechat_ind_msg_v01) == 24);
static_assert(offsetof(tarvik_extend_qmi_wechat_ind_msg_v01, value) == 16);
static_assert(sizeof(tarvik_extend_qmi_base_model_set_cfg_req_msg_v01) == 404);
static_assert(sizeof(tarvik_extend_qmi_base_model_result_resp_msg_v01) == 4);
static_assert(sizeof(tarvik_extend_qmi_base_model_set_detection_req_msg_v01) == 1);
static_assert(sizeof(tarvik_extend_qmi_empty_req_msg_v01) == 1);
static_assert(sizeof(tarvik_extend_qmi_base_model_get_dds_info_resp_msg_v01) == 72);
static_assert(sizeof(tarvik_extend_qmi_base_model_get_reason_req_msg_v01) == 4);
static_assert(sizeof(tarvik_extend_qmi_base_model_get_reason_resp_msg_v01) == 116);
static_assert(offsetof(tarvik_extend_qmi_base_model_get_reason_resp_msg_v01, pci_len) == 32);
static_assert(offsetof(tarvik_extend_qmi_base_model_get_reason_resp_msg_v01, reason_bitmask_len) ==
              60);
static_assert(offsetof(tarvik_extend_qmi_base_model_get_reason_resp_msg_v01, reason_bitmask_ext) ==
              92);
static_assert(sizeof(tarvik_extend_qmi_base_model_reason_ind_msg_v01) == 16);
static_assert(sizeof(tarvik_extend_qmi_base_model_set_event_ind_req_msg_v01) == 8);
static_assert(sizeof(tarvik_extend_qmi_base_model_scene_msg_v01) == 12);

// Requests, responses and indications of the generic record share one table: same layout.
static_assert(offsetof(tarvik_extend_qmi_resp_msg_v01, data_len) ==
                  offsetof(tarvik_extend_qmi_req_msg_v01, data_len) &&
              offsetof(tarvik_extend_qmi_resp_msg_v01, data) ==
                  offsetof(tarvik_extend_qmi_req_msg_v01, data) &&
              sizeof(tarvik_extend_qmi_resp_msg_v01) == sizeof(tarvik_extend_qmi_req_msg_v01));
static_assert(offsetof(tarvik_extend_qmi_ind_msg_v01, data) ==
                  offsetof(tarvik_extend_qmi_req_msg_v01, data) &&
              sizeof(tarvik_extend_qmi_ind_msg_v01) == sizeof(tarvik_extend_qmi_req_msg_v01));

using Agg0 = tarvik_extend_qmi_agg0_v01;
using Agg1 = tarvik_extend_qmi_agg1_v01;
using Agg2 = tarvik_extend_qmi_agg2_v01;
using Agg3 = tarvik_extend_qmi_agg3_v01;
using Generic = tarvik_extend_qmi_req_msg_v01;
using DataOpt = tarvik_extend_qmi_data_opt_req_msg_v01;
using Pair = tarvik_extend_qmi_pair_msg_v01;
using StudyTable = tarvik_extend_qmi_self_study_table_ind_msg_v01;
using StudyGroup = tarvik_extend_qmi_self_study_group_ind_msg_v01;
using StudyEntry = tarvik_extend_qmi_self_study_entry_ind_msg_v01;
using StudyHistory = tarvik_extend_qmi_self_study_history_ind_msg_v01;
using StudyUpload = tarvik_extend_qmi_self_study_upload_req_msg_v01;
using StudyCounters = tarvik_extend_qmi_self_study_counters_ind_msg_v01;
using WechatReq = tarvik_extend_qmi_wechat_req_msg_v01;
using WechatInd = tarvik_extend_qmi_wechat_ind_msg_v01;
using SetCfg = tarvik_extend_qmi_base_model_set_cfg_req_msg_v01;
using Result = tarvik_extend_qmi_base_model_result_resp_msg_v01;
using SetDetection = tarvik_extend_qmi_base_model_set_detection_req_msg_v01;
using DdsInfo = tarvik_extend_qmi_base_model_get_dds_info_resp_msg_v01;
using ReasonReq = tarvik_extend_qmi_base_model_get_reason_req_msg_v01;
using ReasonResp = tarvik_extend_qmi_base_model_get_reason_resp_msg_v01;
using ReasonInd = tarvik_extend_qmi_base_model_reason_ind_msg_v01;
using SetEventInd = tarvik_extend_qmi_base_model_set_event_ind_req_msg_v01;
using Scene = tarvik_extend_qmi_base_model_scene_msg_v01;
using Empty = tarvik_extend_qmi_empty_req_msg_v01;

constexpr qmi_elem_info agg0_ei[] = {
    QMI_MEMBER(U, Agg0, key),
    QMI_MEMBER(U, Agg0, values),
    QMI_EI_END,
};
constexpr qmi_elem_info agg1_ei[] = {
    QMI_MEMBER(U, Agg1, key),
    QMI_MEMBER(U, Agg1, values),
    QMI_EI_END,
};
constexpr qmi_elem_info agg2_ei[] = {
    QMI_MEMBER_VAR_STRUCT(1, 5, Agg2, list_len, list, agg1_ei),
    QMI_EI_END,
};
constexpr qmi_elem_info agg3_ei[] = {
    QMI_MEMBER(U, Agg3, values),
    QMI_EI_END,
};

constexpr qmi_elem_info generic_ei[] = {
    QMI_TLV(U, 0x01, Generic, id),
    QMI_TLV(U, 0x02, Generic, data_len),
    QMI_TLV_OPT(U, 0x10, Generic, data_valid, data),
    QMI_EI_END,
};

constexpr qmi_elem_info data_opt_req_ei[] = {
    QMI_TLV(U, 0x01, DataOpt, id),
    QMI_TLV(U, 0x02, DataOpt, data_len),
    QMI_TLV_OPT(U, 0x10, DataOpt, data_valid, data),
    QMI_TLV_OPT(U, 0x11, DataOpt, opt_valid, opt),
    QMI_EI_END,
};

constexpr qmi_elem_info pair_ei[] = {
    QMI_TLV(U, 0x01, Pair, result),
    QMI_TLV(U, 0x02, Pair, value),
    QMI_EI_END,
};

constexpr qmi_elem_info study_table_ind_ei[] = {
    QMI_TLV(U, 0x01, StudyTable, type),
    QMI_TLV(U, 0x02, StudyTable, count),
    QMI_TLV_STRUCT(0x03, StudyTable, table, agg0_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info study_group_ind_ei[] = {
    QMI_TLV(U, 0x01, StudyGroup, type),
    QMI_TLV(U, 0x02, StudyGroup, count),
    QMI_TLV_STRUCT(0x03, StudyGroup, groups, agg2_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info study_entry_ind_ei[] = {
    QMI_TLV(U, 0x01, StudyEntry, type),
    QMI_TLV_STRUCT(0x02, StudyEntry, entry, agg1_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info study_history_ind_ei[] = {
    QMI_TLV(U, 0x01, StudyHistory, type),
    QMI_TLV(U, 0x02, StudyHistory, count),
    QMI_TLV(U, 0x03, StudyHistory, history),
    QMI_EI_END,
};

constexpr qmi_elem_info study_upload_req_ei[] = {
    QMI_TLV(U, 0x01, StudyUpload, type),
    QMI_TLV(U, 0x02, StudyUpload, count),
    QMI_TLV_STRUCT(0x03, StudyUpload, entries, agg1_ei),
    QMI_EI_END,
};

// Each element of the record's array is a TLV of its own.
constexpr qmi_elem_info study_counters_ind_ei[] = {
    QMI_TLV_AT(U, 0x01, StudyCounters, values, 0),  //
    QMI_TLV_AT(U, 0x02, StudyCounters, values, 1),
    QMI_TLV_AT(U, 0x03, StudyCounters, values, 2),
    QMI_TLV_AT(U, 0x04, StudyCounters, values, 3),
    QMI_TLV_AT(U, 0x05, StudyCounters, values, 4),
    QMI_EI_END,
};

constexpr qmi_elem_info wechat_req_ei[] = {
    QMI_TLV(U, 0x01, WechatReq, type),
    QMI_TLV(U, 0x02, WechatReq, value),
    QMI_TLV(U, 0x03, WechatReq, flag),
    QMI_EI_END,
};

constexpr qmi_elem_info wechat_ind_ei[] = {
    QMI_TLV(U, 0x01, WechatInd, type),
    QMI_TLV(U, 0x02, WechatInd, state),
    QMI_TLV(U, 0x03, WechatInd, timestamp),
    QMI_TLV(U, 0x04, WechatInd, value),
    QMI_EI_END,
};

constexpr qmi_elem_info set_cfg_req_ei[] = {
    QMI_TLV_VAR(U, 1, 100, 0x01, SetCfg, cfg_len, cfg),
    QMI_EI_END,
};

constexpr qmi_elem_info result_ei[] = {
    QMI_TLV(U, 0x01, Result, result),
    QMI_EI_END,
};

constexpr qmi_elem_info set_detection_req_ei[] = {
    QMI_TLV(U, 0x01, SetDetection, enabled),
    QMI_EI_END,
};

constexpr qmi_elem_info dds_info_resp_ei[] = {
    QMI_TLV(U, 0x01, DdsInfo, result),
    QMI_TLV_STRUCT(0x02, DdsInfo, info, agg3_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info reason_req_ei[] = {
    QMI_TLV(U, 0x01, ReasonReq, value),
    QMI_EI_END,
};

constexpr qmi_elem_info reason_resp_ei[] = {
    QMI_TLV(U, 0x01, ReasonResp, result),  //
    QMI_TLV_VAR(U, 1, 6, 0x02, ReasonResp, arfcn_len, arfcn),
    QMI_TLV_VAR(U, 1, 6, 0x03, ReasonResp, pci_len, pci),
    QMI_TLV_VAR(U, 1, 6, 0x04, ReasonResp, reason_bitmask_len, reason_bitmask),
    QMI_TLV_VAR(U, 1, 6, 0x05, ReasonResp, reason_bitmask_ext_len, reason_bitmask_ext),
    QMI_EI_END,
};

constexpr qmi_elem_info reason_ind_ei[] = {
    QMI_TLV_AT(U, 0x01, ReasonInd, values, 0),
    QMI_TLV_AT(U, 0x02, ReasonInd, values, 1),
    QMI_TLV_AT(U, 0x03, ReasonInd, values, 2),
    QMI_TLV_AT(U, 0x04, ReasonInd, values, 3),
    QMI_EI_END,
};

constexpr qmi_elem_info set_event_ind_req_ei[] = {
    QMI_TLV(U, 0x01, SetEventInd, event),
    QMI_TLV(U, 0x02, SetEventInd, is_register),
    QMI_EI_END,
};

constexpr qmi_elem_info scene_ei[] = {
    QMI_TLV(U, 0x01, Scene, result),
    QMI_TLV(U, 0x02, Scene, scene_bitmask),
    QMI_TLV(U, 0x03, Scene, scene_bitmask_ext),
    QMI_EI_END,
};

// The messages, one row each: id, name, request, response.
constexpr qmi_idl_req_resp_row kPairs[] = {
    {0x02, "generic", QMI_MSG(Generic, generic_ei), QMI_MSG(Generic, generic_ei)},  //
    {0x03, "event_register", QMI_MSG(Generic, generic_ei), QMI_MSG(Generic, generic_ei)},
    {0x04, "data_opt", QMI_MSG(DataOpt, data_opt_req_ei), QMI_MSG(Pair, pair_ei)},
    {0x0A, "self_study_upload", QMI_MSG(StudyUpload, study_upload_req_ei), QMI_MSG(Pair, pair_ei)},
    {0x0C, "wechat", QMI_MSG(WechatReq, wechat_req_ei), QMI_MSG(Pair, pair_ei)},
    {0x0E, "base_model_set_cfg", QMI_MSG(SetCfg, set_cfg_req_ei), QMI_MSG(Result, result_ei)},
    {0x0F, "base_model_set_detection", QMI_MSG(SetDetection, set_detection_req_ei),
     QMI_MSG(Result, result_ei)},
    {0x10, "base_model_get_dds_info", QMI_MSG(Empty, nullptr), QMI_MSG(DdsInfo, dds_info_resp_ei)},
    {0x11, "base_model_get_reason", QMI_MSG(ReasonReq, reason_req_ei),
     QMI_MSG(ReasonResp, reason_resp_ei)},
    {0x13, "base_model_set_event_ind", QMI_MSG(SetEventInd, set_event_ind_req_ei),
     QMI_MSG(Result, result_ei)},
    {0x14, "base_model_scene", QMI_MSG(Empty, nullptr), QMI_MSG(Scene, scene_ei)},
};

constexpr qmi_idl_ind_row kIndications[] = {
    {0x03, "event", QMI_MSG(Generic, generic_ei)},  //
    {0x05, "self_study_table", QMI_MSG(StudyTable, study_table_ind_ei)},
    {0x06, "self_study_group", QMI_MSG(StudyGroup, study_group_ind_ei)},
    {0x07, "self_study_state", QMI_MSG(Pair, pair_ei)},
    {0x08, "self_study_entry", QMI_MSG(StudyEntry, study_entry_ind_ei)},
    {0x09, "self_study_history", QMI_MSG(StudyHistory, study_history_ind_ei)},
    {0x0B, "self_study_counters", QMI_MSG(StudyCounters, study_counters_ind_ei)},
    {0x0D, "wechat", QMI_MSG(WechatInd, wechat_ind_ei)},
    {0x12, "base_model_reason", QMI_MSG(ReasonInd, reason_ind_ei)},
    {0x14, "base_model_scene", QMI_MSG(Scene, scene_ei)},
};

constexpr auto kTables = qmi_idl_tables_of(kPairs, kIndications);
static_assert(kTables.max_msg_len == TARVIK_EXTEND_QMI_MAX_MSG_LEN_V01,
              "the header's largest message is the one the tables encode to");

}  // namespace

extern "C" {

const qmi_idl_service_object tarvik_extend_qmi_idl_service_object_v01 = qmi_idl_service_of(
    kTables, TARVIK_EXTEND_QMI_IDL_TOOL_VERS_V01, TARVIK_EXTEND_QMI_IDL_MAJOR_V01,
    TARVIK_EXTEND_QMI_IDL_MINOR_V01, TARVIK_EXTEND_QMI_SERVICE_ID_V01, "extend");

qmi_idl_service_object_type tarvik_extend_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version) {
  return qmi_idl_service_if_version(tarvik_extend_qmi_idl_service_object_v01, idl_maj_version,
                                    idl_min_version, library_version);
}

}  // extern "C"
