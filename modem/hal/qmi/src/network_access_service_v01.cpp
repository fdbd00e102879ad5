// Tables of the network access service (0x03) for the QMI codec: one line per TLV, one row per
// message, with the record sizes the callers rely on.
#include "network_access_service_v01.h"

namespace {

static_assert(sizeof(nas_bind_subscription_req_msg_v01) == 4);
static_assert(sizeof(nas_bind_subscription_resp_msg_v01) == 8);
static_assert(sizeof(nas_deprioritize_nr5g_req_msg_v01) == 1);
static_assert(sizeof(nas_set_system_selection_preference_req_msg_v01) == 8);
static_assert(sizeof(nas_get_system_selection_preference_resp_msg_v01) == 16);
static_assert(sizeof(nas_set_endc_config_req_msg_v01) == 1);
static_assert(sizeof(nas_get_endc_config_resp_msg_v01) == 12);

using Bind = nas_bind_subscription_req_msg_v01;
using Resp = nas_bind_subscription_resp_msg_v01;
using SetSysSel = nas_set_system_selection_preference_req_msg_v01;
using GetSysSel = nas_get_system_selection_preference_resp_msg_v01;
using SetEndc = nas_set_endc_config_req_msg_v01;
using GetEndc = nas_get_endc_config_resp_msg_v01;
using Deprioritize = nas_deprioritize_nr5g_req_msg_v01;
using Empty = nas_get_system_selection_preference_req_msg_v01;

constexpr qmi_elem_info bind_req_ei[] = {
    QMI_TLV_ENUM(1, 0x01, Bind, subs_type),
    QMI_EI_END,
};

constexpr qmi_elem_info resp_ei[] = {
    QMI_TLV_RESPONSE(Resp, resp),
    QMI_EI_END,
};

constexpr qmi_elem_info set_sys_sel_req_ei[] = {
    QMI_TLV_OPT(S, 0x2E, SetSysSel, nr5g_disable_mode_valid, nr5g_disable_mode),
    QMI_EI_END,
};

constexpr qmi_elem_info get_sys_sel_resp_ei[] = {
    QMI_TLV_RESPONSE(GetSysSel, resp),
    QMI_TLV_OPT(S, 0x2B, GetSysSel, nr5g_disable_mode_valid, nr5g_disable_mode),
    QMI_EI_END,
};

constexpr qmi_elem_info set_endc_req_ei[] = {
    QMI_TLV(U, 0x01, SetEndc, enable_endc),
    QMI_EI_END,
};

constexpr qmi_elem_info get_endc_resp_ei[] = {
    QMI_TLV_RESPONSE(GetEndc, resp),
    QMI_TLV_OPT(U, 0x10, GetEndc, endc_enabled_valid, endc_enabled),
    QMI_TLV_OPT(U, 0x11, GetEndc, immediate_scg_release_valid, immediate_scg_release),
    QMI_EI_END,
};

constexpr qmi_elem_info deprioritize_req_ei[] = {
    QMI_TLV(U, 0x01, Deprioritize, deprioritize_nr5g),
    QMI_EI_END,
};

constexpr qmi_idl_req_resp_row kPairs[] = {
    {0x0033, "set_system_selection_preference", QMI_MSG(SetSysSel, set_sys_sel_req_ei),
     QMI_MSG(Resp, resp_ei)},  //
    {0x0034, "get_system_selection_preference", QMI_MSG(Empty, nullptr),
     QMI_MSG(GetSysSel, get_sys_sel_resp_ei)},
    {0x0045, "bind_subscription", QMI_MSG(Bind, bind_req_ei), QMI_MSG(Resp, resp_ei)},
    {0x00E7, "set_endc_config", QMI_MSG(SetEndc, set_endc_req_ei), QMI_MSG(Resp, resp_ei)},
    {0x00E8, "get_endc_config", QMI_MSG(Empty, nullptr), QMI_MSG(GetEndc, get_endc_resp_ei)},
    {0x0127, "deprioritize_nr5g", QMI_MSG(Deprioritize, deprioritize_req_ei),
     QMI_MSG(Resp, resp_ei)},
};

constexpr auto kTables = qmi_idl_tables_of(kPairs);

}  // namespace

extern "C" {

const qmi_idl_service_object nas_qmi_idl_service_object_v01 =
    qmi_idl_service_of(kTables, NAS_V01_IDL_TOOL_VERS, NAS_V01_IDL_MAJOR_VERS,
                       NAS_V01_IDL_MINOR_VERS, NAS_QMI_SERVICE_ID_V01, "nas");

qmi_idl_service_object_type nas_get_service_object_internal_v01(uint32_t idl_maj_version,
                                                                uint32_t idl_min_version,
                                                                uint32_t library_version) {
  return qmi_idl_service_if_version(nas_qmi_idl_service_object_v01, idl_maj_version,
                                    idl_min_version, library_version);
}

}  // extern "C"
