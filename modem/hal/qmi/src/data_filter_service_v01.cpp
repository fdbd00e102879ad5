// The data filter service's tables: one row per message, one line per TLV.
#include "data_filter_service_v01.h"

#include <stddef.h>

namespace {

using IndReg = dfs_indication_register_req_msg_v01;
using Result = dfs_result_resp_msg_v01;
using EpId = dfs_ep_id_type_v01;
using Bind = dfs_bind_client_req_msg_v01;
using SetMode = dfs_set_filter_mode_req_msg_v01;
using Empty = dfs_empty_req_msg_v01;
using GetMode = dfs_get_filter_mode_resp_msg_v01;
using ModeInd = dfs_filter_mode_ind_msg_v01;
using V4Rule = dfs_ipv4_addr_rule_v01;
using V6Rule = dfs_ipv6_addr_rule_v01;
using PortRule = dfs_port_rule_v01;
using Add = dfs_add_filters_req_msg_v01;
using Handle = dfs_filter_handle_v01;
using RuleError = dfs_filter_rule_error_v01;
using AddResp = dfs_add_filters_resp_msg_v01;

static_assert(sizeof(IndReg) == 2);
static_assert(sizeof(Result) == 8);
static_assert(sizeof(Bind) == 32);
static_assert(sizeof(SetMode) == 1 && sizeof(Empty) == 1 && sizeof(ModeInd) == 1);
static_assert(sizeof(GetMode) == 12);
static_assert(sizeof(V4Rule) == 12 && sizeof(V6Rule) == 20 && sizeof(PortRule) == 6);
static_assert(sizeof(Handle) == 8 && sizeof(RuleError) == 16);
static_assert(sizeof(AddResp) == 6144);
// The add-filters request carries only the lists named in its header; the service's full
// request record (33272 bytes) also holds rule lists we never send.
static_assert(sizeof(Add) == 23016);
static_assert(offsetof(Add, filter_option) == 23012);

constexpr qmi_elem_info ep_id_ei[] = {
    QMI_MEMBER(U, EpId, ep_type),
    QMI_MEMBER(U, EpId, iface_id),
    QMI_EI_END,
};
constexpr qmi_elem_info v4_rule_ei[] = {
    QMI_MEMBER(U, V4Rule, filter_id),
    QMI_MEMBER(U, V4Rule, addr),
    QMI_MEMBER(U, V4Rule, subnet_mask),
    QMI_EI_END,
};
constexpr qmi_elem_info v6_rule_ei[] = {
    QMI_MEMBER(U, V6Rule, filter_id),
    QMI_MEMBER(U, V6Rule, addr),
    QMI_MEMBER(U, V6Rule, prefix_len),
    QMI_EI_END,
};
constexpr qmi_elem_info port_rule_ei[] = {
    QMI_MEMBER(U, PortRule, filter_id),
    QMI_MEMBER(U, PortRule, port),
    QMI_MEMBER(U, PortRule, range),
    QMI_EI_END,
};
constexpr qmi_elem_info handle_ei[] = {
    QMI_MEMBER(U, Handle, filter_id),
    QMI_MEMBER(U, Handle, filter_handle),
    QMI_EI_END,
};
constexpr qmi_elem_info rule_error_ei[] = {
    QMI_MEMBER(U, RuleError, filter_id),
    QMI_MEMBER(U, RuleError, rule_error_mask),
    QMI_EI_END,
};

constexpr qmi_elem_info ind_reg_req_ei[] = {
    QMI_TLV_OPT(U, 0x10, IndReg, report_filter_mode_valid, report_filter_mode),
    QMI_EI_END,
};
constexpr qmi_elem_info result_resp_ei[] = {
    QMI_TLV_RESPONSE(Result, resp),
    QMI_EI_END,
};
constexpr qmi_elem_info bind_req_ei[] = {
    QMI_TLV_OPT(U, 0x10, Bind, data_port_valid, data_port),
    QMI_TLV_OPT(S, 0x11, Bind, ip_preference_valid, ip_preference),
    QMI_TLV_OPT_STRUCT(0x12, Bind, ep_id_valid, ep_id, ep_id_ei),
    QMI_TLV_OPT(U, 0x13, Bind, mux_id_valid, mux_id),
    QMI_TLV_OPT(U, 0x14, Bind, bind_value_valid, bind_value),
    QMI_EI_END,
};
constexpr qmi_elem_info set_mode_req_ei[] = {
    QMI_TLV(U, 0x01, SetMode, filter_mode),
    QMI_EI_END,
};
constexpr qmi_elem_info get_mode_resp_ei[] = {
    QMI_TLV_RESPONSE(GetMode, resp),
    QMI_TLV_OPT(U, 0x10, GetMode, filter_mode_valid, filter_mode),
    QMI_EI_END,
};
constexpr qmi_elem_info mode_ind_ei[] = {
    QMI_TLV(U, 0x01, ModeInd, filter_mode),
    QMI_EI_END,
};
constexpr qmi_elem_info add_req_ei[] = {
    QMI_TLV_VAR(U, 1, 255, 0x01, Add, filter_id_len, filter_id),  //
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x10, Add, ipv4_src_valid, ipv4_src_len, ipv4_src, v4_rule_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x11, Add, ipv4_dst_valid, ipv4_dst_len, ipv4_dst, v4_rule_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x13, Add, ipv6_src_valid, ipv6_src_len, ipv6_src, v6_rule_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x14, Add, ipv6_dst_valid, ipv6_dst_len, ipv6_dst, v6_rule_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x17, Add, udp_src_valid, udp_src_len, udp_src, port_rule_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x18, Add, udp_dst_valid, udp_dst_len, udp_dst, port_rule_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x19, Add, tcp_src_valid, tcp_src_len, tcp_src, port_rule_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x1A, Add, tcp_dst_valid, tcp_dst_len, tcp_dst, port_rule_ei),
    QMI_TLV_OPT(U, 0x1F, Add, filter_option_valid, filter_option),
    QMI_EI_END,
};
constexpr qmi_elem_info add_resp_ei[] = {
    QMI_TLV_RESPONSE(AddResp, resp),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x10, AddResp, filter_handles_valid, filter_handles_len,
                           filter_handles, handle_ei),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x11, AddResp, rule_errors_valid, rule_errors_len, rule_errors,
                           rule_error_ei),
    QMI_EI_END,
};

constexpr qmi_idl_req_resp_row kPairs[] = {
    {0x0003, "indication_register", QMI_MSG(IndReg, ind_reg_req_ei),
     QMI_MSG(Result, result_resp_ei)},  //
    {0x0021, "bind_client", QMI_MSG(Bind, bind_req_ei), QMI_MSG(Result, result_resp_ei)},
    {0x0029, "set_filter_mode", QMI_MSG(SetMode, set_mode_req_ei), QMI_MSG(Result, result_resp_ei)},
    {0x002A, "get_filter_mode", QMI_MSG(Empty, nullptr), QMI_MSG(GetMode, get_mode_resp_ei)},
    {0x002D, "remove_all_filters", QMI_MSG(Empty, nullptr), QMI_MSG(Result, result_resp_ei)},
    {0x003F, "add_filters", QMI_MSG(Add, add_req_ei), QMI_MSG(AddResp, add_resp_ei)},
};

constexpr qmi_idl_ind_row kIndications[] = {
    {0x002C, "filter_mode", QMI_MSG(ModeInd, mode_ind_ei)},
};

constexpr auto kTables = qmi_idl_tables_of(kPairs, kIndications);

}  // namespace

extern "C" {

const qmi_idl_service_object dfs_qmi_idl_service_object_v01 =
    qmi_idl_service_of(kTables, DFS_V01_IDL_TOOL_VERS, DFS_V01_IDL_MAJOR_VERS,
                       DFS_V01_IDL_MINOR_VERS, DFS_V01_SERVICE_ID, "dfs");

qmi_idl_service_object_type dfs_get_service_object_internal_v01(uint32_t idl_maj_version,
                                                                uint32_t idl_min_version,
                                                                uint32_t library_version) {
  return qmi_idl_service_if_version(dfs_qmi_idl_service_object_v01, idl_maj_version,
                                    idl_min_version, library_version);
}

}  // extern "C"
