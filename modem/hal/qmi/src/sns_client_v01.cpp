// Tables of the sensor framework's client service (0x190) for the QMI codec.
#include "sns_client_v01.h"

#include <stddef.h>

namespace {

static_assert(sizeof(sns_client_req_msg_v01) == 1008);
static_assert(offsetof(sns_client_req_msg_v01, use_jumbo_report_valid) == 1004);
static_assert(sizeof(sns_client_resp_msg_v01) == 8);

using Req = sns_client_req_msg_v01;
using Resp = sns_client_resp_msg_v01;

constexpr qmi_elem_info req_ei[] = {
    QMI_TLV_VAR(U, 2, SNS_CLIENT_REQ_LEN_MAX_V01, 0x01, Req, payload_len, payload),
    QMI_TLV_OPT(U, 0x10, Req, use_jumbo_report_valid, use_jumbo_report),
    QMI_EI_END,
};

constexpr qmi_elem_info resp_ei[] = {
    QMI_TLV_RESPONSE(Resp, resp),
    QMI_EI_END,
};

constexpr qmi_idl_req_resp_row kPairs[] = {
    {0x0020, "client_request", QMI_MSG(Req, req_ei), QMI_MSG(Resp, resp_ei)},
};

constexpr auto kTables = qmi_idl_tables_of(kPairs);

}  // namespace

extern "C" {

const qmi_idl_service_object SNS_CLIENT_SVC_qmi_idl_service_object_v01 = qmi_idl_service_of(
    kTables, SNS_CLIENT_SVC_V01_IDL_TOOL_VERS, SNS_CLIENT_SVC_V01_IDL_MAJOR_VERS,
    SNS_CLIENT_SVC_V01_IDL_MINOR_VERS, SNS_CLIENT_SVC_SERVICE_ID_V01, "sns_client");

qmi_idl_service_object_type SNS_CLIENT_SVC_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version) {
  return qmi_idl_service_if_version(SNS_CLIENT_SVC_qmi_idl_service_object_v01, idl_maj_version,
                                    idl_min_version, library_version);
}

}  // extern "C"
