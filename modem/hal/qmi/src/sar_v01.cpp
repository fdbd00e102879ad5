// Tables of the RF SAR service (0x11) for the QMI codec: one line per TLV, one row per message,
// with the record sizes the callers rely on.
#include "sar_v01.h"

namespace {

static_assert(sizeof(sar_rf_set_state_req_msg_v01) == 12);
static_assert(sizeof(sar_rf_set_state_resp_msg_v01) == 8);
static_assert(sizeof(sar_rf_get_state_resp_msg_v01) == 16);

using SetReq = sar_rf_set_state_req_msg_v01;
using SetResp = sar_rf_set_state_resp_msg_v01;
using GetReq = sar_rf_get_state_req_msg_v01;
using GetResp = sar_rf_get_state_resp_msg_v01;

constexpr qmi_elem_info set_req_ei[] = {
    QMI_TLV(U, 0x01, SetReq, sar_rf_state),
    QMI_TLV_OPT(U, 0x10, SetReq, compatibility_key_valid, compatibility_key),
    QMI_EI_END,
};

constexpr qmi_elem_info set_resp_ei[] = {
    QMI_TLV_RESPONSE(SetResp, resp),
    QMI_EI_END,
};

constexpr qmi_elem_info get_resp_ei[] = {
    QMI_TLV_RESPONSE(GetResp, resp),
    QMI_TLV_OPT(U, 0x10, GetResp, sar_rf_state_valid, sar_rf_state),
    QMI_EI_END,
};

constexpr qmi_idl_req_resp_row kPairs[] = {
    {0x0001, "rf_set_state", QMI_MSG(SetReq, set_req_ei), QMI_MSG(SetResp, set_resp_ei)},
    {0x0002, "rf_get_state", QMI_MSG(GetReq, nullptr), QMI_MSG(GetResp, get_resp_ei)},
};

constexpr auto kTables = qmi_idl_tables_of(kPairs);

}  // namespace

extern "C" {

const qmi_idl_service_object sar_qmi_idl_service_object_v01 =
    qmi_idl_service_of(kTables, SAR_V01_IDL_TOOL_VERS, SAR_V01_IDL_MAJOR_VERS,
                       SAR_V01_IDL_MINOR_VERS, SAR_QMI_SERVICE_ID_V01, "sar");

qmi_idl_service_object_type sar_get_service_object_internal_v01(uint32_t idl_maj_version,
                                                                uint32_t idl_min_version,
                                                                uint32_t library_version) {
  return qmi_idl_service_if_version(sar_qmi_idl_service_object_v01, idl_maj_version,
                                    idl_min_version, library_version);
}

}  // extern "C"
