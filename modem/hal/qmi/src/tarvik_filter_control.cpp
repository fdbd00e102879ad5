// Data filter control: the DFS client per IP family (binding, device change and restart
// recovery, callbacks), the filter operations on it, and the five-tuple blacklist commands.
//
// No lock: the callers serialise the two entry points. The QMI callbacks run on the client
// library's thread and touch only the two one-byte atomic flags.
#include "tarvik_filter_control.h"

#include <arpa/inet.h>
#include <endian.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <atomic>

#include "data_filter_service_v01.h"
#include "qmi_client.h"
#include "qmi_platform.h"
#include "tarvik_bytes.h"
#include "tarvik_std_client.h"
#include "tarvik_utils_cmn.h"

namespace {

constexpr uint32_t kTimeoutMs = 3000;
constexpr size_t kDevSize = 80;  // the device name: at most 79 characters and a terminator
constexpr size_t kDevCmp = kDevSize - 1;
constexpr uint32_t kPrefV4 = 4;
constexpr uint32_t kPrefV6 = 6;
constexpr int kRetryAttempts = 3;
constexpr uint32_t kFieldSize = 64;  // a field of a request buffer: at most 63 characters
constexpr uint32_t kMinRequest = 12;

static_assert(sizeof(std::atomic<bool>) == 1 && std::atomic<bool>::is_always_lock_free,
              "the flags the callbacks touch are single-byte atomics");

// The DFS client state, one for the process.
char g_dfs_rmnet_dev[kDevSize];
uint32_t g_dfs_filter_count;
std::atomic<bool> g_dfs_enabled{false};  // read by the indication callback
qmi_client_type g_dfs_client_v4;
qmi_client_type g_dfs_client_v6;
std::atomic<bool> g_dfs_ssr_pending{false};  // set by the error callback

enum FieldIndex { kIpVer, kProto, kSrc, kDst, kSport, kDport };

const char *NameOrNull(const char *s) {
  return s != nullptr ? s : "null";
}

qmi_client_type *SlotOf(uint32_t ip_pref) {
  return ip_pref == kPrefV6 ? &g_dfs_client_v6 : &g_dfs_client_v4;
}

bool DevChanged(const char *dev) {
  return g_dfs_rmnet_dev[0] != '\0' && strncmp(g_dfs_rmnet_dev, dev, kDevCmp) != 0;
}

}  // namespace

/* ---------------------------------------------------------------------------------------------
 * Client binding
 * ------------------------------------------------------------------------------------------- */

static void dfs_qmi_ind_cb(qmi_client_type user_handle, unsigned int msg_id, void *ind_buf,
                           unsigned int ind_buf_len, void * /*ind_cb_data*/) {
  if (msg_id != QMI_DFS_FILTER_MODE_IND_V01) {
    TARVIK_LOGD("dfs_qmi_ind_cb: unhandled msg_id=0x%x", msg_id);
    return;
  }
  dfs_filter_mode_ind_msg_v01 ind;
  memset(&ind, 0, sizeof(ind));
  const int rc = qmi_client_message_decode(user_handle, QMI_IDL_INDICATION, msg_id, ind_buf,
                                           ind_buf_len, &ind, sizeof(ind));
  if (rc != QMI_NO_ERR) {
    TARVIK_LOGE("dfs_qmi_ind_cb decode failed: rc=%d", rc);
    return;
  }
  const bool local = g_dfs_enabled.load();
  TARVIK_LOGD("DFS mode IND: modem_mode=%d (%s), local_enabled=%d", ind.filter_mode,
              ind.filter_mode != 0 ? "enabled" : "disabled", local);
  if ((ind.filter_mode != 0) != local) {
    TARVIK_LOGE("DFS mode mismatch: modem=%d local=%d", ind.filter_mode, local);
  }
}

static void dfs_qmi_error_cb(qmi_client_type /*user_handle*/, qmi_client_error_type error,
                             void * /*err_cb_data*/) {
  TARVIK_LOGE("DFS QMI error_cb: error=%d (likely Modem SSR)", error);
  g_dfs_ssr_pending.store(true);
}

namespace {
// Opened without an error callback: it is registered once the client is bound.
const tarvik_std::ClientSlot kDfsSlot = {dfs_get_service_object_internal_v01,
                                         DFS_V01_IDL_MAJOR_VERS,
                                         DFS_V01_IDL_MINOR_VERS,
                                         DFS_V01_IDL_TOOL_VERS,
                                         kTimeoutMs,
                                         dfs_qmi_ind_cb,
                                         nullptr};
}  // namespace

static void release_dfs_clients_all() {
  tarvik_std::Close(&g_dfs_client_v4);
  tarvik_std::Close(&g_dfs_client_v6);
  g_dfs_enabled.store(false);
  memset(g_dfs_rmnet_dev, 0, sizeof(g_dfs_rmnet_dev));
  g_dfs_filter_count = 0;
  TARVIK_LOGD("release_dfs_clients_all done");
}

static int tk_qmi_client_dfs_init_instance(const char *dev, qmi_client_type *slot) {
  const int rc = tarvik_std::Open(kDfsSlot, slot).init;
  if (rc != QMI_NO_ERR) {
    TARVIK_LOGE("dfs init failed: dev=%s, rc=%d", dev, rc);
  }
  return rc;
}

// 0 when bound (or left unbound for a device without mux id), else the failure code.
static int dfs_bind_client(qmi_client_type client, const char *dev, uint32_t ip_pref, int ep_type,
                           int epid, int mux_id) {
  if (mux_id < 1) {
    TARVIK_LOGD("dfs init warning: mux_id invalid for dev %s, skip bind", dev);
    return 0;
  }
  TARVIK_LOGD("dfs binding: dev=%s, ep_type=%d, epid=%d, mux_id=%d, ip_pref=%d", dev, ep_type, epid,
              mux_id, (int)ip_pref);
  tarvik_std::Request<dfs_bind_client_req_msg_v01, dfs_result_resp_msg_v01> r(__func__, __LINE__);
  if (r.missing() != tarvik_std::Missing::kNone) {  // no record to send: as a transport failure
    TARVIK_LOGE("dfs bind failed: dev=%s, rc=%d, result=%d", dev, -1, 0);
    return -1;
  }
  dfs_bind_client_req_msg_v01 &req = r.req();
  req.ip_preference_valid = 1;
  req.ip_preference = (dfs_ip_family_enum_v01)ip_pref;
  if (epid != -1) {
    req.ep_id_valid = 1;
    req.ep_id.ep_type = (uint32_t)ep_type;
    req.ep_id.iface_id = (uint32_t)epid;
  }
  req.mux_id_valid = 1;
  req.mux_id = (uint8_t)mux_id;
  const int rc = r.Send(client, QMI_DFS_BIND_CLIENT_REQ_V01, kTimeoutMs);
  if (!r.Succeeded(rc)) {
    TARVIK_LOGE("dfs bind failed: dev=%s, rc=%d, result=%d", dev, rc, (int)r.resp().resp.error);
    return rc != QMI_NO_ERR ? rc : QMI_SERVICE_ERR;
  }
  return 0;
}

static int dfs_register_indication(qmi_client_type client) {
  tarvik_std::Request<dfs_indication_register_req_msg_v01, dfs_result_resp_msg_v01> r(__func__,
                                                                                      __LINE__);
  if (r.missing() != tarvik_std::Missing::kNone) {  // no record to send: as a transport failure
    TARVIK_LOGE("dfs_register_indication failed: rc=%d, err=%d", -1, 0);
    return -1;
  }
  r.req().report_filter_mode_valid = 1;
  r.req().report_filter_mode = 1;
  const int rc = r.Send(client, QMI_DFS_INDICATION_REGISTER_REQ_V01, kTimeoutMs);
  if (!r.Succeeded(rc)) {
    TARVIK_LOGE("dfs_register_indication failed: rc=%d, err=%d", rc, (int)r.resp().resp.error);
    return rc != QMI_NO_ERR ? rc : QMI_SERVICE_ERR;
  }
  TARVIK_LOGD("dfs_register_indication success");
  return 0;
}

static bool init_dfs_qmi_client(const char *dev, uint32_t ip_pref) {
  if (dev == nullptr) {
    TARVIK_LOGE("init_dfs_qmi_client: dev_str is NULL");
    return false;
  }
  if (g_dfs_ssr_pending.load()) {
    TARVIK_LOGE("SSR detected, recovering DFS clients");
    release_dfs_clients_all();
    g_dfs_ssr_pending.store(false);
  }
  if (DevChanged(dev)) {
    TARVIK_LOGD("rmnet changed [%s] -> [%s], releasing all clients", g_dfs_rmnet_dev, dev);
    release_dfs_clients_all();
  }
  qmi_client_type *slot = SlotOf(ip_pref);
  if (*slot != nullptr) return true;

  int rc = tk_qmi_client_dfs_init_instance(dev, slot);
  if (rc == QMI_NO_ERR) {
    int ep_type = -1, epid = -1, mux_id = -1;
    if (qmi_linux_get_conn_id_by_name_ex(dev, &ep_type, &epid, &mux_id) == -1) {
      TARVIK_LOGE("dfs init failed: dev=%s, dev translation error", dev);
      tarvik_std::Close(slot);
      rc = -1;
    } else {
      rc = dfs_bind_client(*slot, dev, ip_pref, ep_type, epid, mux_id);
      if (rc != 0) tarvik_std::Close(slot);
    }
  }
  if (rc != 0) {
    TARVIK_LOGE("init DFS failed: dev=%s, pref=%d, rc=%d", dev, (int)ip_pref, rc);
    return false;
  }
  TARVIK_LOGD("dfs init success: dev=%s", dev);
  const int reg = qmi_client_register_error_cb(*slot, dfs_qmi_error_cb, nullptr);
  if (reg != QMI_NO_ERR) {
    TARVIK_LOGE("register_error_cb failed: dev=%s, pref=%d, rc=%d", dev, (int)ip_pref, reg);
  }
  const int ind = dfs_register_indication(*slot);
  if (ind != 0) {
    TARVIK_LOGE("register_indication failed: dev=%s, pref=%d, rc=%d", dev, (int)ip_pref, ind);
  }
  strncpy(g_dfs_rmnet_dev, dev, kDevCmp);
  g_dfs_rmnet_dev[kDevCmp] = '\0';
  TARVIK_LOGD("init success: dev=%s, pref=%d, ptr=%p", g_dfs_rmnet_dev, (int)ip_pref,
              static_cast<void *>(*slot));
  return true;
}

/* ---------------------------------------------------------------------------------------------
 * Filter operations
 * ------------------------------------------------------------------------------------------- */

static bool validate_five_tuple_fields(char **fields) {
  if (fields == nullptr) return false;
  for (int i = 0; i < TARVIK_FILTER_FIELD_COUNT; ++i) {
    if (fields[i] == nullptr || fields[i][0] == '\0') {
      TARVIK_LOGE("ipFields[%d] is null or empty", i);
      return false;
    }
  }
  return true;
}

static int tarvik_set_DFS_mode(uint8_t enable, const char *dev, uint32_t ip_pref) {
  if (!init_dfs_qmi_client(dev, ip_pref)) {
    TARVIK_LOGE("set_DFS_mode init failed: dev=%s, pref=%d", NameOrNull(dev), (int)ip_pref);
    return -1;
  }
  tarvik_std::Request<dfs_set_filter_mode_req_msg_v01, dfs_result_resp_msg_v01> r(__func__,
                                                                                  __LINE__);
  if (r.missing() != tarvik_std::Missing::kNone) {
    TARVIK_LOGE("set_DFS_mode malloc failed");
    return -1;
  }
  r.req().filter_mode = enable != 0 ? 1 : 0;
  const int rc = r.Send(*SlotOf(ip_pref), QMI_DFS_SET_FILTER_MODE_REQ_V01, kTimeoutMs);
  if (rc != QMI_NO_ERR) {
    TARVIK_LOGE("set_DFS_mode rc=%d", rc);
    return -2;
  }
  if (r.resp().resp.result != QMI_RESULT_SUCCESS_V01) {
    TARVIK_LOGE("set_DFS_mode failed: rc=0, err=%d", (int)r.resp().resp.error);
    return -2;
  }
  TARVIK_LOGD("set_DFS_mode enable=%d success: dev=%s, pref=%d", enable, dev, (int)ip_pref);
  return 0;
}

static void tarvik_get_DFS_filter_mode(const char *dev, uint32_t ip_pref) {
  if (!init_dfs_qmi_client(dev, ip_pref)) {
    TARVIK_LOGE("get_DFS_filter_mode init failed dev=%s pref=%d", NameOrNull(dev), (int)ip_pref);
    return;
  }
  tarvik_std::Request<dfs_empty_req_msg_v01, dfs_get_filter_mode_resp_msg_v01> r(__func__,
                                                                                 __LINE__);
  if (r.missing() != tarvik_std::Missing::kNone) {
    TARVIK_LOGE("get_DFS_filter_mode malloc failed");
    return;
  }
  const int rc = r.Send(*SlotOf(ip_pref), QMI_DFS_GET_FILTER_MODE_REQ_V01, kTimeoutMs);
  if (!r.Succeeded(rc)) {
    TARVIK_LOGE("get_DFS_filter_mode failed pref=%d rc=%d qmi_err=%d", (int)ip_pref, rc,
                (int)r.resp().resp.error);
    return;
  }
  if (!r.resp().filter_mode_valid) {
    TARVIK_LOGD("get_DFS_filter_mode pref=%d success but mode TLV absent", (int)ip_pref);
    return;
  }
  const int mode = r.resp().filter_mode;
  const bool local = g_dfs_enabled.load();
  TARVIK_LOGD("get_DFS_filter_mode pref=%d modem_mode=%d (%s) local_enabled=%d", (int)ip_pref, mode,
              mode != 0 ? "enabled" : "disabled", local);
  if ((mode != 0) != local) {
    TARVIK_LOGE("DFS mode mismatch: modem=%d local=%d", mode, local);
  }
}

static bool fill_ipv4_addr_rules(char **fields, dfs_add_filters_req_msg_v01 *req) {
  uint32_t src = 0, dst = 0;
  if (inet_pton(AF_INET, fields[kSrc], &src) != 1) {
    TARVIK_LOGE("invalid IPv4 src addr: %s", fields[kSrc]);
    return false;
  }
  req->ipv4_src_valid = 1;
  req->ipv4_src_len = 1;
  req->ipv4_src[0] = {1, src, 0xFFFFFFFFu};
  if (inet_pton(AF_INET, fields[kDst], &dst) != 1) {
    TARVIK_LOGE("invalid IPv4 dst addr: %s", fields[kDst]);
    return false;
  }
  req->ipv4_dst_valid = 1;
  req->ipv4_dst_len = 1;
  req->ipv4_dst[0] = {1, dst, 0xFFFFFFFFu};
  return true;
}

static bool fill_ipv6_addr_rules(char **fields, dfs_add_filters_req_msg_v01 *req) {
  dfs_ipv6_addr_rule_v01 &src = req->ipv6_src[0];
  if (inet_pton(AF_INET6, fields[kSrc], src.addr) != 1) {
    TARVIK_LOGE("invalid IPv6 src addr: %s", fields[kSrc]);
    return false;
  }
  src.filter_id = 1;
  src.prefix_len = 128;
  req->ipv6_src_valid = 1;
  req->ipv6_src_len = 1;
  dfs_ipv6_addr_rule_v01 &dst = req->ipv6_dst[0];
  if (inet_pton(AF_INET6, fields[kDst], dst.addr) != 1) {
    TARVIK_LOGE("invalid IPv6 dst addr: %s", fields[kDst]);
    return false;
  }
  dst.filter_id = 1;
  dst.prefix_len = 128;
  req->ipv6_dst_valid = 1;
  req->ipv6_dst_len = 1;
  return true;
}

static bool fill_ip_addr_rules(char **fields, dfs_add_filters_req_msg_v01 *req) {
  if (strcasecmp(fields[kIpVer], "IPV4") == 0) return fill_ipv4_addr_rules(fields, req);
  if (strcasecmp(fields[kIpVer], "IPV6") == 0) return fill_ipv6_addr_rules(fields, req);
  TARVIK_LOGE("unsupported ip_ver: %s", fields[kIpVer]);
  return false;
}

// A port text as strtol reads it in base 10: something consumed, nothing after, 1-65535.
bool ParsePort(const char *text, uint16_t *port) {
  if (text[0] == '\0') return false;
  errno = 0;
  char *end = nullptr;
  const long v = strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < 1 || v > 65535) return false;
  *port = (uint16_t)v;
  return true;
}

static bool fill_port_rules(char **fields, dfs_add_filters_req_msg_v01 *req) {
  uint16_t sport = 0, dport = 0;
  if (!ParsePort(fields[kSport], &sport)) {
    TARVIK_LOGE("invalid src port: %s", fields[kSport]);
    return false;
  }
  if (!ParsePort(fields[kDport], &dport)) {
    TARVIK_LOGE("invalid dst port: %s", fields[kDport]);
    return false;
  }
  const dfs_port_rule_v01 src = {1, sport, 0}, dst = {1, dport, 0};
  if (strcasecmp(fields[kProto], "TCP") == 0) {
    req->tcp_src_valid = req->tcp_dst_valid = 1;
    req->tcp_src_len = req->tcp_dst_len = 1;
    req->tcp_src[0] = src;
    req->tcp_dst[0] = dst;
  } else if (strcasecmp(fields[kProto], "UDP") == 0) {
    req->udp_src_valid = req->udp_dst_valid = 1;
    req->udp_src_len = req->udp_dst_len = 1;
    req->udp_src[0] = src;
    req->udp_dst[0] = dst;
  } else {
    TARVIK_LOGE("unsupported proto: %s", fields[kProto]);
    return false;
  }
  return true;
}

static int tarvik_Add_DFS_Filter(char **fields, const char *dev, uint32_t ip_pref,
                                 uint32_t *status) {
  if (!validate_five_tuple_fields(fields)) {
    if (status != nullptr) *status = TARVIK_FILTER_INVALID_PARAM;
    return (int)TARVIK_FILTER_INVALID_PARAM;
  }
  if (!init_dfs_qmi_client(dev, ip_pref)) {
    TARVIK_LOGE("Add_DFS_Filter init failed");
    return -1;
  }
  tarvik_std::Request<dfs_add_filters_req_msg_v01, dfs_add_filters_resp_msg_v01> r(__func__,
                                                                                   __LINE__);
  if (r.missing() != tarvik_std::Missing::kNone) {
    TARVIK_LOGE("Add_DFS_Filter malloc failed");
    return -1;
  }
  dfs_add_filters_req_msg_v01 &req = r.req();
  req.filter_id_len = 1;
  req.filter_id[0] = 1;
  req.filter_option_valid = 1;
  req.filter_option = 2;
  if (!fill_ip_addr_rules(fields, &req) || !fill_port_rules(fields, &req)) {
    if (status != nullptr) *status = TARVIK_FILTER_INVALID_PARAM;
    return (int)TARVIK_FILTER_INVALID_PARAM;
  }
  const int rc = r.Send(*SlotOf(ip_pref), QMI_DFS_ADD_FILTERS_REQ_V01, kTimeoutMs);
  const dfs_add_filters_resp_msg_v01 &resp = r.resp();
  if (!r.Succeeded(rc)) {
    TARVIK_LOGE("Add_DFS_Filter failed: rc=%d, err=%d", rc, (int)resp.resp.error);
    if (resp.rule_errors_valid && resp.rule_errors_len > 0) {
      TARVIK_LOGE("filter rule error mask: %d", (int)resp.rule_errors[0].rule_error_mask);
    }
    tarvik_get_DFS_filter_mode(dev, ip_pref);
    return -2;
  }
  if (resp.filter_handles_valid && resp.filter_handles_len > 0) {
    TARVIK_LOGD("Add_DFS_Filter success: handle=0x%x, filter_id=%d",
                resp.filter_handles[0].filter_handle, resp.filter_handles[0].filter_id);
  } else {
    TARVIK_LOGD("Add_DFS_Filter success but no handles returned");
  }
  return 0;
}

static int tarvik_del_DFS_filter(const char *dev, uint32_t ip_pref) {
  if (!init_dfs_qmi_client(dev, ip_pref)) {
    TARVIK_LOGE("del_DFS_filter init failed");
    return -1;
  }
  tarvik_std::Request<dfs_empty_req_msg_v01, dfs_result_resp_msg_v01> r(__func__, __LINE__);
  if (r.missing() != tarvik_std::Missing::kNone) {
    TARVIK_LOGE("del_DFS_filter malloc failed");
    return -1;
  }
  const int rc = r.Send(*SlotOf(ip_pref), QMI_DFS_REMOVE_ALL_FILTERS_REQ_V01, kTimeoutMs);
  if (rc != QMI_NO_ERR) {
    TARVIK_LOGE("del_DFS_filter rc=%d", rc);
    return -2;
  }
  if (r.resp().resp.result != QMI_RESULT_SUCCESS_V01) {
    TARVIK_LOGE("del_DFS_filter failed: rc=0, err=%d", (int)r.resp().resp.error);
    return -2;
  }
  TARVIK_LOGD("del_DFS_filter success: pref=%d", (int)ip_pref);
  return 0;
}

static uint32_t tarvik_retry_del_and_close(const char *dev, uint32_t *status) {
  uint32_t result = 0;
  for (int attempt = 1; attempt <= kRetryAttempts; ++attempt) {
    const int del4 = tarvik_del_DFS_filter(dev, kPrefV4);
    const int del6 = tarvik_del_DFS_filter(dev, kPrefV6);
    const int mode4 = tarvik_set_DFS_mode(0, dev, kPrefV4);
    const int mode6 = tarvik_set_DFS_mode(0, dev, kPrefV6);
    if (del4 == 0 && del6 == 0 && mode4 == 0 && mode6 == 0) {
      TARVIK_LOGD("retry_del_close: all success on attempt %d/%d", attempt, kRetryAttempts);
      result = TARVIK_FILTER_OK;
      break;
    }
    TARVIK_LOGD("retry_del_close: attempt %d/%d fail del4=%d del6=%d mode4=%d mode6=%d", attempt,
                kRetryAttempts, del4, del6, mode4, mode6);
    result = del4 != 0 || del6 != 0 ? TARVIK_FILTER_REMOVE_FAILED : TARVIK_FILTER_DISABLE_FAILED;
  }
  if (status != nullptr) *status = result;
  return result;
}

/* ---------------------------------------------------------------------------------------------
 * Five-tuple blacklist commands
 * ------------------------------------------------------------------------------------------- */

static bool validate_mode1_params(const char *dev, char **fields, int count) {
  if (dev == nullptr || dev[0] == '\0' || fields == nullptr || count != TARVIK_FILTER_FIELD_COUNT) {
    TARVIK_LOGE("mode=1 invalid params: rmnet=%s, ipFields=%p, fieldCount=%d(expect %d)",
                NameOrNull(dev), static_cast<void *>(fields), count, TARVIK_FILTER_FIELD_COUNT);
    return false;
  }
  return true;
}

static bool validate_mode0_params(int count) {
  if (count >= 1) {
    TARVIK_LOGE("mode=0 invalid params: fieldCount=%d should be 0", count);
    return false;
  }
  return true;
}

static bool validate_input_params(const char *dev, char **fields, int count, int mode) {
  switch (mode) {
    case TARVIK_FILTER_MODE_ENTER:
      return validate_mode1_params(dev, fields, count);
    case TARVIK_FILTER_MODE_EXIT:
      return validate_mode0_params(count);
    case TARVIK_FILTER_MODE_DELETE:
      return true;
    default:
      TARVIK_LOGE("invalid mode=%d", mode);
      return false;
  }
}

static uint32_t add_one_five_tuple_filter(char **fields, const char *dev, uint32_t *status) {
  TARVIK_LOGD("five_tuple: ip_ver=%s proto=%s src=%s dst=%s sport=%s dport=%s", fields[kIpVer],
              fields[kProto], fields[kSrc], fields[kDst], fields[kSport], fields[kDport]);
  const uint32_t pref = strcasecmp(fields[kIpVer], "IPV6") == 0 ? kPrefV6 : kPrefV4;
  const int ret = tarvik_Add_DFS_Filter(fields, dev, pref, status);
  if (ret == 0) {
    ++g_dfs_filter_count;
    TARVIK_LOGD("filter added, total count=%d", (int)g_dfs_filter_count);
    return TARVIK_FILTER_OK;
  }
  if (ret == (int)TARVIK_FILTER_INVALID_PARAM) {
    TARVIK_LOGE("Add_DFS_Filter rejected invalid five-tuple fields");
    return TARVIK_FILTER_INVALID_PARAM;
  }
  TARVIK_LOGE("Add_DFS_Filter failed: ret=%d", ret);
  return TARVIK_FILTER_ADD_FAILED;
}

static uint32_t handle_mode_enter(const char *dev, char **fields, bool changed, uint32_t *status) {
  TARVIK_LOGD("mode=1: enter optimization scenario");
  if (!validate_five_tuple_fields(fields)) {
    TARVIK_LOGE("mode=1: invalid five-tuple fields");
    return TARVIK_FILTER_INVALID_PARAM;
  }
  if (changed) {
    TARVIK_LOGD("rmnet changed [%s]->[%s], resetting", g_dfs_rmnet_dev, dev);
    release_dfs_clients_all();
  }
  if (g_dfs_filter_count >= TARVIK_FILTER_LIMIT) {
    TARVIK_LOGE("filter count %d >= limit %d, returning OVER_LIMIT", (int)g_dfs_filter_count,
                (int)TARVIK_FILTER_LIMIT);
    return TARVIK_FILTER_OVER_LIMIT;
  }
  if (!g_dfs_enabled.load()) {
    TARVIK_LOGD("enabling DFS mode on %s", dev);
    const int v4 = tarvik_set_DFS_mode(1, dev, kPrefV4);
    const int v6 = tarvik_set_DFS_mode(1, dev, kPrefV6);
    if (v4 != 0 || v6 != 0) {
      TARVIK_LOGE("set DFS mode failed: ipv4=%d ipv6=%d", v4, v6);
      return TARVIK_FILTER_ENABLE_FAILED;
    }
    g_dfs_enabled.store(true);
    tarvik_get_DFS_filter_mode(dev, kPrefV4);
    tarvik_get_DFS_filter_mode(dev, kPrefV6);
  }
  return add_one_five_tuple_filter(fields, dev, status);
}

static uint32_t handle_mode_exit(const char *dev, uint32_t *status) {
  TARVIK_LOGD("mode=0: exit optimization scenario");
  if (dev == nullptr || dev[0] == '\0') {
    TARVIK_LOGD("rmnet empty/null, releasing all clients directly");
    release_dfs_clients_all();
    return TARVIK_FILTER_OK;
  }
  const uint32_t result = tarvik_retry_del_and_close(dev, status);
  release_dfs_clients_all();
  TARVIK_LOGD("DFS disabled on %s, result=%d", dev, (int)result);
  return result;
}

static uint32_t handle_mode_delete_specific() {
  TARVIK_LOGE("mode=2 (delete specific filter) not supported");
  return TARVIK_FILTER_NOT_SUPPORTED;
}

extern "C" {

int tarvik_set_fiveTuple_blacklist(const char *rmnet_dev, char **ip_fields, int field_count,
                                   int mode, uint32_t *status) {
  TARVIK_LOGD("rmnet_dev=%s, fieldCount=%d, mode=%d", NameOrNull(rmnet_dev), field_count, mode);
  if (status != nullptr) *status = 0;
  if (!validate_input_params(rmnet_dev, ip_fields, field_count, mode)) {
    if (status != nullptr) *status = TARVIK_FILTER_INVALID_PARAM;
    return (int)TARVIK_FILTER_INVALID_PARAM;
  }
  const bool changed = rmnet_dev != nullptr && DevChanged(rmnet_dev);
  TARVIK_LOGD("fivetuple: rmnet=%s mode=%d rmnet_changed=%d count=%d", NameOrNull(rmnet_dev), mode,
              changed, (int)g_dfs_filter_count);
  uint32_t result;
  switch (mode) {
    case TARVIK_FILTER_MODE_ENTER:
      result = handle_mode_enter(rmnet_dev, ip_fields, changed, status);
      break;
    case TARVIK_FILTER_MODE_EXIT:
      result = handle_mode_exit(rmnet_dev, status);
      break;
    case TARVIK_FILTER_MODE_DELETE:
      result = handle_mode_delete_specific();
      break;
    default:
      TARVIK_LOGE("unreachable: mode=%d", mode);
      result = TARVIK_FILTER_INVALID_PARAM;
      break;
  }
  if (result != 0 && status != nullptr) *status = result;
  TARVIK_LOG_EXIT();
  return (int)result;
}

namespace {
uint32_t ReadU32(const uint8_t *at) {
  return le32toh(tarvik_bytes::LoadU32(at));
}
}  // namespace

int tarvik_filter_control_handle_msg(const uint8_t *req_data, uint32_t req_len, uint32_t *status) {
  TARVIK_LOGD("reqDataLen=%u", req_len);
  if (status != nullptr) *status = 0;
  const auto malformed = [status] {
    if (status != nullptr) *status = TARVIK_FILTER_INVALID_PARAM;
    return -1;
  };
  if (req_data == nullptr || req_len < kMinRequest) {
    TARVIK_LOGE("invalid param: reqData=%p, reqDataLen=%u", static_cast<const void *>(req_data),
                req_len);
    return malformed();
  }
  const int mode = (int)ReadU32(req_data);
  const uint32_t name_len = ReadU32(req_data + 4);
  uint32_t offset = 8;
  if ((name_len & 0x80000000u) != 0 || name_len > req_len - offset || name_len > kDevCmp) {
    TARVIK_LOGE("rmnet read failed: offset=%u, reqDataLen=%u", offset, req_len);
    return malformed();
  }
  char name[kDevSize];
  memcpy(name, req_data + offset, name_len);
  name[name_len] = '\0';
  offset += name_len;
  if (req_len - offset < 4) {
    TARVIK_LOGE("ipCount read overflow: offset=%u", offset);
    return malformed();
  }
  const uint32_t count = ReadU32(req_data + offset);
  offset += 4;
  if (count > TARVIK_FILTER_FIELD_COUNT) {
    TARVIK_LOGE("ipCount=%d out of range [0,%d]", (int)count, TARVIK_FILTER_FIELD_COUNT);
    return malformed();
  }
  char fields[TARVIK_FILTER_FIELD_COUNT][kFieldSize];
  char *field_ptrs[TARVIK_FILTER_FIELD_COUNT] = {};
  for (uint32_t i = 0; i < count; ++i) {
    if (req_len - offset < 4) {
      TARVIK_LOGE("field[%d] read failed: offset=%u", (int)i, offset);
      return malformed();
    }
    const uint32_t len = ReadU32(req_data + offset);
    offset += 4;
    if ((len & 0x80000000u) != 0 || len > req_len - offset || len > kFieldSize - 1) {
      TARVIK_LOGE("field[%d] read failed: offset=%u", (int)i, offset);
      return malformed();
    }
    memcpy(fields[i], req_data + offset, len);
    fields[i][len] = '\0';
    field_ptrs[i] = fields[i];
    offset += len;
  }
  const char *dev = name[0] != '\0' ? name : nullptr;
  TARVIK_LOGD("mode=%d, rmnet=%s, fieldCount=%d", mode, NameOrNull(dev), (int)count);
  return tarvik_set_fiveTuple_blacklist(dev, count > 0 ? field_ptrs : nullptr, (int)count, mode,
                                        status);
}

}  // extern "C"
