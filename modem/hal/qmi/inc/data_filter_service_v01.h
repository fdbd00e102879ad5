/*
 * The data filter service (DFS, QMI service 0x30, interface 1.16): message ids and the in-memory
 * records of the messages the library and the simulated modem use. One description shared by
 * the library, the simulated modem and the tool.
 *
 * Records follow the standard-service conventions: a response starts with the standard response
 * (TLV 0x02); an optional TLV is a u8 `_valid` flag and its field; a rule list is a u32 count and
 * its entries at their maximum (255; one count byte on the wire). Sizes are checked at compile
 * time in data_filter_service_v01.cpp. Only the TLVs named here are carried: a TLV this
 * description does not know is skipped on decode like any unknown optional TLV.
 */
#ifndef DATA_FILTER_SERVICE_V01_H
#define DATA_FILTER_SERVICE_V01_H

#include <stdint.h>

#include "common_v01.h"
#include "qmi_idl_lib.h"
#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define DFS_V01_IDL_MAJOR_VERS 0x01u
#define DFS_V01_IDL_MINOR_VERS 0x10u
#define DFS_V01_IDL_TOOL_VERS 0x06u
#define DFS_V01_SERVICE_ID 0x30u

/* Entries of every rule list and of the response's handle and error lists. */
#define QMI_DFS_MAX_FILTERS_V01 255u

#define QMI_DFS_INDICATION_REGISTER_REQ_V01 0x0003u
#define QMI_DFS_BIND_CLIENT_REQ_V01 0x0021u
#define QMI_DFS_SET_FILTER_MODE_REQ_V01 0x0029u
#define QMI_DFS_GET_FILTER_MODE_REQ_V01 0x002Au
#define QMI_DFS_FILTER_MODE_IND_V01 0x002Cu
#define QMI_DFS_REMOVE_ALL_FILTERS_REQ_V01 0x002Du
#define QMI_DFS_ADD_FILTERS_REQ_V01 0x003Fu

/* IP family of a client's binding (sent as a 4-byte enum). */
typedef enum {
  DFS_IP_FAMILY_ENUM_MIN_ENUM_VAL_V01 = -2147483647,
  DFS_IP_FAMILY_IPV4_V01 = 0x04,
  DFS_IP_FAMILY_IPV6_V01 = 0x06,
  DFS_IP_FAMILY_ENUM_MAX_ENUM_VAL_V01 = 2147483647
} dfs_ip_family_enum_v01;

/* Indication register (0x0003). TLV 0x10: report filter-mode indications (0x002C). */
typedef struct {
  uint8_t report_filter_mode_valid;
  uint8_t report_filter_mode;
} dfs_indication_register_req_msg_v01;

/* Every response that carries only the standard response (8 bytes). */
typedef struct {
  qmi_response_type_v01 resp;
} dfs_result_resp_msg_v01;

/* Endpoint of a data port: its type and interface id. */
typedef struct {
  uint32_t ep_type;
  uint32_t iface_id;
} dfs_ep_id_type_v01;

/* Bind client (0x0021): every TLV optional. */
typedef struct {
  uint8_t data_port_valid; /* 0x10 */
  uint16_t data_port;
  uint8_t ip_preference_valid; /* 0x11 */
  dfs_ip_family_enum_v01 ip_preference;
  uint8_t ep_id_valid; /* 0x12 */
  dfs_ep_id_type_v01 ep_id;
  uint8_t mux_id_valid; /* 0x13 */
  uint8_t mux_id;
  uint8_t bind_value_valid; /* 0x14: a 32-bit value none of our callers sends */
  uint32_t bind_value;
} dfs_bind_client_req_msg_v01;

/* Set filter mode (0x0029): TLV 0x01, 1 enable / 0 disable. */
typedef struct {
  uint8_t filter_mode;
} dfs_set_filter_mode_req_msg_v01;

/* Messages without request TLVs (get filter mode, remove all filters): a 1-byte record. */
typedef struct {
  uint8_t placeholder;
} dfs_empty_req_msg_v01;

/* Get filter mode response (0x002A, 12 bytes): TLV 0x10, the mode when the modem gives it. */
typedef struct {
  qmi_response_type_v01 resp;
  uint8_t filter_mode_valid;
  uint8_t filter_mode;
} dfs_get_filter_mode_resp_msg_v01;

/* Filter-mode indication (0x002C): TLV 0x01, the modem's mode. */
typedef struct {
  uint8_t filter_mode;
} dfs_filter_mode_ind_msg_v01;

/* Rule entries; each names the filter id it belongs to. */
typedef struct {
  uint16_t filter_id;
  uint32_t addr; /* network byte order as stored in memory */
  uint32_t subnet_mask;
} dfs_ipv4_addr_rule_v01;

typedef struct {
  uint16_t filter_id;
  uint8_t addr[16];
  uint8_t prefix_len;
} dfs_ipv6_addr_rule_v01;

typedef struct {
  uint16_t filter_id;
  uint16_t port;
  uint16_t range;
} dfs_port_rule_v01;

/* Add filters (0x003F). TLV 0x01 lists the filter ids; the rule lists refer to them. */
typedef struct {
  uint32_t filter_id_len; /* 0x01 */
  uint16_t filter_id[QMI_DFS_MAX_FILTERS_V01];
  uint8_t ipv4_src_valid; /* 0x10 */
  uint32_t ipv4_src_len;
  dfs_ipv4_addr_rule_v01 ipv4_src[QMI_DFS_MAX_FILTERS_V01];
  uint8_t ipv4_dst_valid; /* 0x11 */
  uint32_t ipv4_dst_len;
  dfs_ipv4_addr_rule_v01 ipv4_dst[QMI_DFS_MAX_FILTERS_V01];
  uint8_t ipv6_src_valid; /* 0x13 */
  uint32_t ipv6_src_len;
  dfs_ipv6_addr_rule_v01 ipv6_src[QMI_DFS_MAX_FILTERS_V01];
  uint8_t ipv6_dst_valid; /* 0x14 */
  uint32_t ipv6_dst_len;
  dfs_ipv6_addr_rule_v01 ipv6_dst[QMI_DFS_MAX_FILTERS_V01];
  uint8_t udp_src_valid; /* 0x17 */
  uint32_t udp_src_len;
  dfs_port_rule_v01 udp_src[QMI_DFS_MAX_FILTERS_V01];
  uint8_t udp_dst_valid; /* 0x18 */
  uint32_t udp_dst_len;
  dfs_port_rule_v01 udp_dst[QMI_DFS_MAX_FILTERS_V01];
  uint8_t tcp_src_valid; /* 0x19 */
  uint32_t tcp_src_len;
  dfs_port_rule_v01 tcp_src[QMI_DFS_MAX_FILTERS_V01];
  uint8_t tcp_dst_valid; /* 0x1A */
  uint32_t tcp_dst_len;
  dfs_port_rule_v01 tcp_dst[QMI_DFS_MAX_FILTERS_V01];
  uint8_t filter_option_valid; /* 0x1F */
  uint32_t filter_option;
} dfs_add_filters_req_msg_v01;

typedef struct {
  uint16_t filter_id;
  uint32_t filter_handle;
} dfs_filter_handle_v01;

/* Bits of a rule error mask (which rule of the filter the modem refused). */
#define DFS_RULE_ERR_IPV4_SRC_V01 (1ull << 0)
#define DFS_RULE_ERR_IPV4_DST_V01 (1ull << 1)
#define DFS_RULE_ERR_IPV6_SRC_V01 (1ull << 3)
#define DFS_RULE_ERR_IPV6_DST_V01 (1ull << 4)
#define DFS_RULE_ERR_UDP_SRC_V01 (1ull << 7)
#define DFS_RULE_ERR_UDP_DST_V01 (1ull << 8)
#define DFS_RULE_ERR_TCP_SRC_V01 (1ull << 9)
#define DFS_RULE_ERR_TCP_DST_V01 (1ull << 10)
#define DFS_RULE_ERR_FILTER_ID_V01 (1ull << 63)

typedef struct {
  uint16_t filter_id;
  uint64_t rule_error_mask;
} dfs_filter_rule_error_v01;

/* Add filters response (6144 bytes): the handles of added filters, the errors of refused ones. */
typedef struct {
  qmi_response_type_v01 resp;
  uint8_t filter_handles_valid; /* 0x10 */
  uint32_t filter_handles_len;
  dfs_filter_handle_v01 filter_handles[QMI_DFS_MAX_FILTERS_V01];
  uint8_t rule_errors_valid; /* 0x11 */
  uint32_t rule_errors_len;
  dfs_filter_rule_error_v01 rule_errors[QMI_DFS_MAX_FILTERS_V01];
} dfs_add_filters_resp_msg_v01;

/* The service object, and the accessor that returns it for major 1, minor 16, tool version 6
 * only (null for any other triple). */
TARVIK_EXPORT extern const qmi_idl_service_object dfs_qmi_idl_service_object_v01;
TARVIK_EXPORT qmi_idl_service_object_type dfs_get_service_object_internal_v01(
    uint32_t idl_maj_version, uint32_t idl_min_version, uint32_t library_version);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* DATA_FILTER_SERVICE_V01_H */
