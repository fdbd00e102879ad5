// Five-tuple blacklist commands, driven as a radio module would, against the simulated modem's
// data filter service: what the caller gets back, what the modem received and what it holds; and
// the service's own rules (binding to data ports only, rule error masks, table capacity).
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <string.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "data_filter_service_v01.h"
#include "dfs/dfs_service.h"
#include "json_lines.h"
#include "modemsim/modem.h"
#include "qcril_alloc_host.h"
#include "qmi_client.h"
#include "qmi_platform_host.h"
#include "served_modem.h"
#include "syslog_capture.h"
#include "tarvik_filter_control.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

namespace dfs = modemsim::dfs;
using Add = dfs_add_filters_req_msg_v01;
using AddResp = dfs_add_filters_resp_msg_v01;
using tarvik_test::SyslogContains;

constexpr uint32_t kDfs = DFS_V01_SERVICE_ID;
const std::string kLongDev(79, 'r');  // a data port whose name takes the whole name buffer

using Tuple = std::vector<std::string>;
// "IPV4 TCP 10.0.0.1 ..." as its fields.
Tuple T(const std::string &words) {
  std::istringstream in(words);
  return Tuple(std::istream_iterator<std::string>(in), std::istream_iterator<std::string>());
}
const Tuple kV4Tcp = T("IPV4 TCP 10.0.0.1 10.0.0.2 1000 443");
// What the simulated modem answers a refused request with.
const modemsim::Fault kRefused{modemsim::Fault::kResult, modemsim::kQmiErrInternal};

// A request buffer: little-endian words, texts without terminator.
class Buffer {
 public:
  Buffer &U32(uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(v >> (8 * i)));
    return *this;
  }
  Buffer &Text(const std::string &s) {
    bytes.insert(bytes.end(), s.begin(), s.end());
    return *this;
  }
  Buffer &Field(const std::string &s) { return U32((uint32_t)s.size()).Text(s); }
  // mode, name, count and the fields of `tuple`.
  static Buffer Command(uint32_t mode, const std::string &dev, const Tuple &tuple) {
    Buffer b;
    b.U32(mode).Field(dev).U32((uint32_t)tuple.size());
    for (const auto &f : tuple) b.Field(f);
    return b;
  }
  std::vector<uint8_t> bytes;
};

// Waits up to a second for `line` (at `priority`, -1: any) in the log.
bool WaitForLog(const char *line, int priority = -1) {
  return tarvik_test::WaitUntil([&] { return SyslogContains(line, priority); },
                                std::chrono::seconds(1), std::chrono::milliseconds(5));
}

class DfsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const qmi_platform_host_device devices[] = {
        {"rmnet_data0", 4, 1, 1},
        {"rmnet_data1", 4, 1, 2},
        {kLongDev.c_str(), 4, 1, 9},
        {"rmnet_nomux", 4, 1, 0},
    };
    ASSERT_EQ(qmi_platform_host_set_devices(devices, 4), 0);
    modem_ = modemsim::CreateStandardModem("");
    qmux_ = tarvik_test::Serve(*modem_);
  }

  void TearDown() override {
    if (raw_ != nullptr) qmi_client_release(raw_);
  }
  // A client of the DFS service of its own, as another radio stack would open one.
  qmi_client_type Raw() {
    qmi_client_os_params os{};
    if (raw_ == nullptr) {
      EXPECT_EQ(qmi_client_init_instance(&dfs_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY,
                                         nullptr, nullptr, &os, 1000, &raw_),
                QMI_NO_ERR);
    }
    return raw_;
  }
  // The modem's verdict on a bind: 0 accepted, else its QMI error.
  // The modem's verdict on message `msg` sent on the raw client (without `req`: an empty
  // request): 0 accepted, else its QMI error.
  template <typename Req, typename Resp>
  int Ask(uint16_t msg, Req *req, Resp *resp) {
    memset(static_cast<void *>(resp), 0, sizeof(*resp));
    EXPECT_EQ(qmi_client_send_msg_sync(Raw(), msg, req, req != nullptr ? sizeof(*req) : 0, resp,
                                       sizeof(*resp), 1000),
              QMI_NO_ERR);
    return resp->resp.result == 0 ? 0 : resp->resp.error;
  }
  template <typename Resp>
  int Ask(uint16_t msg, Resp *resp) {
    return Ask(msg, static_cast<uint8_t *>(nullptr), resp);
  }
  int Bind(int32_t family, int mux, int ep_type = -1, uint32_t iface = 0) {
    dfs_bind_client_req_msg_v01 req{};
    dfs_result_resp_msg_v01 resp;
    req.ip_preference_valid = 1;
    req.ip_preference = (dfs_ip_family_enum_v01)family;
    req.mux_id_valid = mux >= 0;
    req.mux_id = (uint8_t)mux;
    req.ep_id_valid = ep_type >= 0;
    req.ep_id = {(uint32_t)ep_type, iface};
    return Ask(QMI_DFS_BIND_CLIENT_REQ_V01, &req, &resp);
  }
  int AddOne(Add req, AddResp *resp) { return Ask(QMI_DFS_ADD_FILTERS_REQ_V01, &req, resp); }

  int Call(const char *dev, const Tuple &tuple, int mode, uint32_t *status, int count = -2) {
    std::vector<std::string> copy = tuple;
    std::vector<char *> ptrs;
    for (auto &f : copy) ptrs.push_back(&f[0]);
    return tarvik_set_fiveTuple_blacklist(dev, ptrs.empty() ? nullptr : ptrs.data(),
                                          count == -2 ? (int)ptrs.size() : count, mode, status);
  }
  int Enter(const Tuple &tuple = kV4Tcp, const char *dev = "rmnet_data0") {
    uint32_t status = 12345;
    const int ret = Call(dev, tuple, 1, &status);
    EXPECT_EQ((uint32_t)ret, status);
    return ret;
  }
  int Exit(const char *dev = "rmnet_data0") {
    uint32_t status = 12345;
    const int ret = Call(dev, {}, 0, &status);
    EXPECT_EQ((uint32_t)ret, status);
    return ret;
  }

  // Message ids the DFS service received, oldest first.
  std::vector<uint16_t> Received() const {
    std::vector<uint16_t> ids;
    for (const auto &r : modem_->ReceivedBy(kDfs)) ids.push_back(r.msg_id);
    return ids;
  }
  size_t CountOf(uint16_t id) const {
    size_t n = 0;
    for (uint16_t m : Received()) n += m == id;
    return n;
  }
  size_t Held() const { return dfs::FilterCount(*modem_); }

  std::unique_ptr<modemsim::Modem> modem_;
  std::unique_ptr<modemsim::QmuxServer> qmux_;  // stopped before the modem goes
  qmi_client_type raw_ = nullptr;
};

TEST_F(DfsTest, RequestBufferBoundsAndWhatPassesThrough) {
  const std::string f63 = std::string(61, ' ') + "80";  // strtol skips the blanks
  Tuple with63 = kV4Tcp;
  with63[5] = f63;
  struct Row {
    const char *name;
    std::vector<uint8_t> bytes;
    int ret;
    const char *line;  // expected log line
    bool traffic;
  };
  auto cut = [](Buffer b, size_t n) {
    b.bytes.resize(n);
    return b.bytes;
  };
  const Row rows[] = {
      {"11 bytes", std::vector<uint8_t>(11, 0), -1, "invalid param: reqData=", false},
      {"L 80", Buffer().U32(0).U32(80).Text(std::string(80, 'r')).U32(0).bytes, -1,
       "rmnet read failed: offset=8, reqDataLen=92", false},
      {"L top bit", Buffer().U32(0).U32(0x80000004u).Text("abcd").U32(0).bytes, -1,
       "rmnet read failed: offset=8", false},
      {"L past the end", Buffer().U32(0).U32(5).Text("abcd").bytes, -1,
       "rmnet read failed: offset=8, reqDataLen=12", false},
      {"no count word", cut(Buffer::Command(0, "rmnet_data0", {}), 21), -1,
       "ipCount read overflow: offset=19", false},
      {"N 7", Buffer::Command(1, "rmnet_data0", Tuple(7, "x")).bytes, -1,
       "ipCount=7 out of range [0,6]", false},
      {"length word past the end", cut(Buffer::Command(1, "rmnet_data0", kV4Tcp), 25), -1,
       "field[0] read failed: offset=23", false},
      {"F 64", Buffer::Command(1, "rmnet_data0", {std::string(64, 'x')}).bytes, -1,
       "field[0] read failed: offset=27", false},
      {"F top bit", Buffer().U32(1).U32(0).U32(1).U32(0x80000001u).Text("x").bytes, -1,
       "field[0] read failed: offset=16", false},
      {"F past the end", cut(Buffer::Command(1, "rmnet_data0", {"IPV4"}), 30), -1,
       "field[0] read failed: offset=27", false},
      {"L 0 and N 0: null name and array", Buffer::Command(0, "", {}).bytes, 0,
       "rmnet_dev=null, fieldCount=0, mode=0", false},
      {"name begins with a zero byte", Buffer::Command(0, std::string("\0ab", 3), {}).bytes, 0,
       "rmnet empty/null, releasing all clients directly", false},
      {"L 79, F 63, trailing bytes", Buffer::Command(1, kLongDev, with63).U32(7).bytes, 0,
       "filter added, total count=1", true},
      {"N 6 of 5 fields", cut(Buffer::Command(1, "rmnet_data0", kV4Tcp), 50), -1,
       "field[3] read failed: offset=50", false},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    tarvik_test::ClearSyslog();
    modem_->ClearReceived(kDfs);
    uint32_t status = 12345;
    EXPECT_EQ(
        tarvik_filter_control_handle_msg(row.bytes.data(), (uint32_t)row.bytes.size(), &status),
        row.ret);
    EXPECT_EQ(status, row.ret == -1 ? 500u : (uint32_t)row.ret);
    EXPECT_TRUE(SyslogContains(row.line)) << tarvik_test::SyslogDump();
    EXPECT_EQ(!Received().empty(), row.traffic);
  }
  // The long name reached the modem as its own data port; the 63-byte port text as 80.
  ASSERT_EQ(Held(), 1u);
  for (const auto &c : dfs::Clients(*modem_)) {
    EXPECT_EQ(c.mux_id, 9);
    for (const auto &f : c.filters) EXPECT_EQ(f.dport, 80);
  }
  EXPECT_EQ(tarvik_filter_control_handle_msg(nullptr, 40, nullptr), -1);
  // A longer name equal in its first 79 characters is the same device: no new binding.
  modem_->ClearReceived(kDfs);
  EXPECT_EQ(Enter(kV4Tcp, (kLongDev + "-other").c_str()), 0);
  EXPECT_EQ(Received(), std::vector<uint16_t>{QMI_DFS_ADD_FILTERS_REQ_V01});
}

TEST_F(DfsTest, ModeChecksComeBeforeAnyRequest) {
  struct Row {
    const char *name;
    const char *dev;
    Tuple tuple;
    int mode;
    int count;  // -2: the tuple's size
    int ret;
    const char *line;
  };
  const Row rows[] = {
      {"mode 1, 5 fields", "rmnet_data0", T("IPV4 TCP 10.0.0.1 10.0.0.2 1000"), 1, -2, 500,
       "mode=1 invalid params: rmnet=rmnet_data0, ipFields="},
      {"mode 1, no device", nullptr, kV4Tcp, 1, -2, 500, "mode=1 invalid params: rmnet=null"},
      {"mode 1, an empty field",
       "rmnet_data0",
       {"IPV4", "TCP", "10.0.0.1", "", "1", "2"},
       1,
       -2,
       500,
       "ipFields[3] is null or empty"},
      {"mode 0, count 1",
       "rmnet_data0",
       {},
       0,
       1,
       500,
       "mode=0 invalid params: fieldCount=1 should be 0"},
      {"mode 0, count -1",
       nullptr,
       {},
       0,
       -1,
       0,
       "rmnet empty/null, releasing all clients directly"},
      {"mode 2", "rmnet_data0", kV4Tcp, 2, -2, 6, "mode=2 (delete specific filter) not supported"},
      {"mode 3", "rmnet_data0", kV4Tcp, 3, -2, 500, "invalid mode=3"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    tarvik_test::ClearSyslog();
    uint32_t status = 12345;
    EXPECT_EQ(Call(row.dev, row.tuple, row.mode, &status, row.count), row.ret);
    EXPECT_EQ(status, (uint32_t)row.ret);
    EXPECT_TRUE(SyslogContains(row.line)) << tarvik_test::SyslogDump();
  }
  EXPECT_TRUE(Received().empty());
  EXPECT_TRUE(dfs::Clients(*modem_).empty());
}

TEST_F(DfsTest, AddressAndPortRulesAndTheAddRequest) {
  struct Row {
    const char *name;
    Tuple tuple;
    int ret;
    const char *line;  // for a rejection
  };
  const Row rows[] = {
      {"ipv6 lower case", T("ipv6 udp 2001:db8::1 2001:db8::2 53 5353"), 0, ""},
      {"IPv7", T("IPv7 TCP 10.0.0.1 10.0.0.2 1 2"), 500, "unsupported ip_ver: IPv7"},
      {"sport 0", T("IPV4 TCP 10.0.0.1 10.0.0.2 0 2"), 500, "invalid src port: 0"},
      {"dport 65536", T("IPV4 TCP 10.0.0.1 10.0.0.2 1 65536"), 500, "invalid dst port: 65536"},
      {"sport 80x", T("IPV4 TCP 10.0.0.1 10.0.0.2 80x 2"), 500, "invalid src port: 80x"},
      {"sport -1", T("IPV4 TCP 10.0.0.1 10.0.0.2 -1 2"), 500, "invalid src port: -1"},
      {"IPv4 address as IPv6", T("IPV6 TCP 10.0.0.1 ::1 1 2"), 500,
       "invalid IPv6 src addr: 10.0.0.1"},
      {"IPv4 dst garbage", T("IPV4 TCP 10.0.0.1 10.0.0 1 2"), 500, "invalid IPv4 dst addr: 10.0.0"},
      {"icmp after both ports", T("IPV4 icmp 10.0.0.1 10.0.0.2 1 65535"), 500,
       "unsupported proto: icmp"},
      {"ports 1, 65535 and ' 80'", {"IPV4", "tcp", "10.0.0.1", "10.0.0.2", " 80", "65535"}, 0, ""},
  };
  size_t added = 0;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    tarvik_test::ClearSyslog();
    const size_t adds = CountOf(QMI_DFS_ADD_FILTERS_REQ_V01);
    EXPECT_EQ(Enter(row.tuple), row.ret);
    added += row.ret == 0;
    EXPECT_EQ(CountOf(QMI_DFS_ADD_FILTERS_REQ_V01), adds + (row.ret == 0));
    EXPECT_EQ(Held(), added);
    if (row.ret != 0) {
      EXPECT_TRUE(SyslogContains(row.line, 3)) << tarvik_test::SyslogDump();
      EXPECT_TRUE(SyslogContains("Add_DFS_Filter rejected invalid five-tuple fields"));
      EXPECT_FALSE(row.name == std::string("icmp after both ports") && SyslogContains("port:"));
    }
  }
  EXPECT_TRUE(SyslogContains("filter added, total count=2"));

  // The last add as the modem received it: one filter, id 1, TCP on IPv4.
  Add add{};
  for (const auto &r : modem_->ReceivedBy(kDfs)) {
    if (r.msg_id == QMI_DFS_ADD_FILTERS_REQ_V01) add = r.As<Add>();
  }
  EXPECT_EQ(add.filter_id_len, 1u);
  EXPECT_EQ(add.filter_id[0], 1);
  ASSERT_TRUE(add.ipv4_src_valid && add.ipv4_dst_valid && add.tcp_src_valid && add.tcp_dst_valid);
  EXPECT_FALSE(add.ipv6_src_valid || add.udp_src_valid || add.udp_dst_valid);
  EXPECT_EQ(add.ipv4_src[0].addr, inet_addr("10.0.0.1"));
  EXPECT_EQ(add.ipv4_dst[0].subnet_mask, 0xFFFFFFFFu);
  EXPECT_EQ(add.tcp_src[0].port, 80);
  EXPECT_EQ(add.tcp_dst[0].port, 65535);
  EXPECT_EQ(add.filter_option, 2u);

  // Each family has its own client, bound as its preference says; the IPv6 filter is on it.
  for (const auto &c : dfs::Clients(*modem_)) {
    SCOPED_TRACE(c.client);
    EXPECT_TRUE(c.bound);
    EXPECT_EQ(c.mux_id, 1);
    EXPECT_EQ(c.mode, 1);
    ASSERT_EQ(c.filters.size(), 1u);
    EXPECT_EQ(c.filters[0].ipv6, c.ip_pref == 6);
    EXPECT_EQ(c.filters[0].proto, c.ip_pref == 6 ? "udp" : "tcp");
    EXPECT_EQ(c.filters[0].src, c.ip_pref == 6 ? "2001:db8::1" : "10.0.0.1");
  }
  EXPECT_EQ(dfs::Clients(*modem_).size(), 2u);
}

TEST_F(DfsTest, LimitOf400ThenExitOrADeviceChangeStartsAgain) {
  for (int i = 0; i < 400; ++i) ASSERT_EQ(Enter(), 0) << i;
  EXPECT_EQ(Held(), 400u);
  const size_t before = Received().size();
  tarvik_test::ClearSyslog();
  EXPECT_EQ(Enter(), 505);
  EXPECT_TRUE(SyslogContains("filter count 400 >= limit 400, returning OVER_LIMIT"));
  EXPECT_EQ(Received().size(), before);

  EXPECT_EQ(Exit(), 0);
  EXPECT_EQ(Held(), 0u);
  EXPECT_TRUE(dfs::Clients(*modem_).empty());  // released after the removal
  tarvik_test::ClearSyslog();
  EXPECT_EQ(Enter(), 0);
  EXPECT_TRUE(SyslogContains("filter added, total count=1"));
  EXPECT_EQ(Held(), 1u);

  // A device change releases both families' clients and starts the count again.
  ASSERT_EQ(Enter(T("IPV6 TCP ::1 ::2 1 2")), 0);
  ASSERT_EQ(dfs::Clients(*modem_).size(), 2u);
  modem_->ClearReceived(kDfs);
  tarvik_test::ClearSyslog();
  EXPECT_EQ(Enter(kV4Tcp, "rmnet_data1"), 0);
  EXPECT_TRUE(SyslogContains("rmnet changed [rmnet_data0]->[rmnet_data1], resetting"));
  EXPECT_TRUE(SyslogContains("filter added, total count=1"));
  // Enabled again on the new device: both families opened there, then one add.
  const auto clients = dfs::Clients(*modem_);
  ASSERT_EQ(clients.size(), 2u);
  size_t on_new = 0;
  for (const auto &c : clients) {
    EXPECT_EQ(c.mux_id, 2);
    on_new += c.filters.size();
  }
  EXPECT_EQ(on_new, 1u);
  EXPECT_EQ(CountOf(QMI_DFS_SET_FILTER_MODE_REQ_V01), 2u);
  EXPECT_EQ(CountOf(QMI_DFS_BIND_CLIENT_REQ_V01), 2u);
  EXPECT_EQ(Held(), 1u);  // the released clients of the old device took their two with them
}

TEST_F(DfsTest, EnterFailuresKeepTheCount) {
  struct Row {
    const char *name;
    const char *dev;
    int fail_msg;  // answered with a modem error, -1: none
    size_t capacity;
    int ret;
    const char *line;
  };
  const Row rows[] = {
      {"bind refused", "rmnet_data0", QMI_DFS_BIND_CLIENT_REQ_V01, 512, 501, "dfs bind failed"},
      {"unknown device", "rmnet_none", -1, 512, 501, "dev translation error"},
      {"enable refused", "rmnet_data0", QMI_DFS_SET_FILTER_MODE_REQ_V01, 512, 501,
       "set DFS mode failed: ipv4=-2 ipv6=-2"},
      {"table full", "rmnet_data0", -1, 0, 502, "Add_DFS_Filter failed: rc=0, err=68"},
      {"no mux id: unbound client", "rmnet_nomux", -1, 512, 0, "mux_id invalid"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    tarvik_test::ClearSyslog();
    dfs::SetCapacity(*modem_, row.capacity);
    if (row.fail_msg >= 0) modem_->SetFault(kDfs, row.fail_msg, kRefused);
    EXPECT_EQ(Enter(kV4Tcp, row.dev), row.ret);
    EXPECT_TRUE(SyslogContains(row.line)) << tarvik_test::SyslogDump();
    EXPECT_FALSE(SyslogContains("filter added") && row.ret != 0);
    modem_->ClearFaults(kDfs);
    EXPECT_EQ(Exit(""), 0);
  }
}

TEST_F(DfsTest, AddAnswersWithoutHandlesOrWithRuleErrors) {
  struct Row {
    const char *name;
    std::function<void(dfs_add_filters_resp_msg_v01 *)> answer;
    int ret;
    const char *line;
    uint16_t last;  // the last request: the diagnostic read-back after a failed add
  };
  const Row rows[] = {
      {"no handle list", [](dfs_add_filters_resp_msg_v01 *r) { r->filter_handles_valid = 0; }, 0,
       "Add_DFS_Filter success but no handles returned", QMI_DFS_ADD_FILTERS_REQ_V01},
      {"a rule error",
       [](dfs_add_filters_resp_msg_v01 *r) {
         *r = {};
         r->resp = {QMI_RESULT_FAILURE_V01, QMI_ERR_INVALID_ARG_V01};
         r->rule_errors_valid = 1;
         r->rule_errors_len = 1;
         r->rule_errors[0] = {1, DFS_RULE_ERR_TCP_DST_V01};
       },
       502, "filter rule error mask: 1024", QMI_DFS_GET_FILTER_MODE_REQ_V01},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    tarvik_test::ClearSyslog();
    dfs::SetAnswerHook(*modem_, [&row](uint16_t msg_id, void *record, uint32_t) {
      if (msg_id == QMI_DFS_ADD_FILTERS_REQ_V01) {
        row.answer(static_cast<dfs_add_filters_resp_msg_v01 *>(record));
      }
    });
    EXPECT_EQ(Enter(), row.ret);
    EXPECT_TRUE(SyslogContains(row.line)) << tarvik_test::SyslogDump();
    EXPECT_EQ(Received().back(), row.last);
  }
  dfs::SetAnswerHook(*modem_, nullptr);
  EXPECT_EQ(Enter(), 0);
  EXPECT_TRUE(SyslogContains("filter added, total count=2"));  // the failed add did not count
}

TEST_F(DfsTest, RemoveAndDisableRetriesThreeTimes) {
  struct Row {
    const char *name;
    bool fail_remove;
    uint32_t ret;
  };
  const Row rows[] = {{"only the mode step fails", false, 503}, {"removal fails too", true, 504}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_EQ(Enter(), 0);
    ASSERT_EQ(Held(), 1u);
    modem_->SetFault(kDfs, QMI_DFS_SET_FILTER_MODE_REQ_V01, kRefused);
    if (row.fail_remove) modem_->SetFault(kDfs, QMI_DFS_REMOVE_ALL_FILTERS_REQ_V01, kRefused);
    modem_->ClearReceived(kDfs);
    tarvik_test::ClearSyslog();
    EXPECT_EQ((uint32_t)Exit(), row.ret);
    EXPECT_EQ(CountOf(QMI_DFS_REMOVE_ALL_FILTERS_REQ_V01), 6u);
    EXPECT_EQ(CountOf(QMI_DFS_SET_FILTER_MODE_REQ_V01), 6u);
    EXPECT_TRUE(SyslogContains("retry_del_close: attempt 3/3 fail"));
    // Released whatever the result, and a released client's filters go with it.
    EXPECT_TRUE(dfs::Clients(*modem_).empty());
    EXPECT_EQ(Held(), 0u);
    modem_->ClearFaults(kDfs);
  }
  modem_->ClearReceived(kDfs);
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Exit(), 0);
  EXPECT_TRUE(SyslogContains("retry_del_close: all success on attempt 1/3"));
  EXPECT_EQ(Received().back(), QMI_DFS_SET_FILTER_MODE_REQ_V01);
}

TEST_F(DfsTest, ModeIndicationOnlyReportsAMismatchAndARestartRecoversOnTheNextEnter) {
  ASSERT_EQ(Enter(), 0);
  const dfs_filter_mode_ind_msg_v01 off = {0};
  ASSERT_GT(modem_->PushIndication(kDfs, QMI_DFS_FILTER_MODE_IND_V01, &off, sizeof(off)), 0);
  EXPECT_TRUE(WaitForLog("DFS mode mismatch: modem=0 local=1", 3));
  EXPECT_TRUE(SyslogContains("DFS mode IND: modem_mode=0 (disabled), local_enabled=1"));
  // The local flag is unchanged: the next enter does not enable again.
  modem_->ClearReceived(kDfs);
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Received(), std::vector<uint16_t>{QMI_DFS_ADD_FILTERS_REQ_V01});

  TARVIK_SKIP_OVER_QMI_PROXY("the proxy does not pass on the revocation a restart sends");
  ASSERT_EQ(modem_->Restart(kDfs), 0);
  ASSERT_TRUE(WaitForLog("DFS QMI error_cb: error=-2 (likely Modem SSR)"));
  modem_->ClearReceived(kDfs);
  tarvik_test::ClearSyslog();
  // Enabling is skipped (the flag is still set); the add's set-up releases and reopens.
  EXPECT_EQ(Enter(), 0);
  EXPECT_TRUE(SyslogContains("SSR detected, recovering DFS clients"));
  EXPECT_EQ(Received(),
            (std::vector<uint16_t>{QMI_DFS_BIND_CLIENT_REQ_V01, QMI_DFS_INDICATION_REGISTER_REQ_V01,
                                   QMI_DFS_ADD_FILTERS_REQ_V01}));
  EXPECT_EQ(Held(), 1u);
  // Not enabled any more: the next enter enables the mode again; the count started again.
  modem_->ClearReceived(kDfs);
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(CountOf(QMI_DFS_SET_FILTER_MODE_REQ_V01), 2u);
  EXPECT_TRUE(SyslogContains("filter added, total count=2"));
}

// One filter (id 1) with an IPv4 source and a TCP destination port.
Add V4Tcp(uint16_t port) {
  Add req{};
  req.filter_id_len = 1;
  req.filter_id[0] = 1;
  req.ipv4_src_valid = 1;
  req.ipv4_src_len = 1;
  req.ipv4_src[0] = {1, 0x0100000Au, 0xFFFFFFFFu};
  req.tcp_dst_valid = 1;
  req.tcp_dst_len = 1;
  req.tcp_dst[0] = {1, port, 0};
  return req;
}

// The simulated service's own rules, through a raw client as another radio stack would reach it.
TEST_F(DfsTest, ModemBindsOnlyToItsDataPorts) {
  struct Row {
    const char *name;
    int32_t family;
    int mux;
    int ep_type;
    uint32_t iface;
    int error;
  };
  const Row rows[] = {
      {"mux without a port", 4, 99, -1, 0, 0x30},
      {"endpoint of no port", 4, 1, 4, 7, 0x30},
      {"no mux id", 4, -1, -1, 0, 0x11},
      {"family 5", 5, 1, -1, 0, 0x30},
      {"rmnet_data1 with its endpoint", 6, 2, 4, 1, 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Bind(row.family, row.mux, row.ep_type, row.iface), row.error);
  }
  const auto clients = dfs::Clients(*modem_);
  ASSERT_EQ(clients.size(), 1u);
  EXPECT_TRUE(clients[0].bound);
  EXPECT_EQ(clients[0].mux_id, 2);
  EXPECT_EQ(clients[0].ip_pref, 6);
}

TEST_F(DfsTest, ModemRefusesBadRulesWithTheirMasksAndAFullTable) {
  Add unlisted = V4Tcp(80);
  unlisted.tcp_dst[0].filter_id = 2;
  using Errors = std::vector<std::pair<uint16_t, uint64_t>>;  // filter id, mask
  struct Row {
    const char *name;
    int32_t family;  // of the binding
    Add req;
    Errors errors;
  };
  const Row rows[] = {
      {"IPv4 rule on an IPv6 binding", 6, V4Tcp(80), {{1, DFS_RULE_ERR_IPV4_SRC_V01}}},
      {"filter id not listed: its own entry",
       6,
       unlisted,
       {{1, DFS_RULE_ERR_IPV4_SRC_V01},
        {2, DFS_RULE_ERR_TCP_DST_V01 | DFS_RULE_ERR_FILTER_ID_V01}}},
      {"port 0", 4, V4Tcp(0), {{1, DFS_RULE_ERR_TCP_DST_V01}}},
  };
  AddResp resp;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_EQ(Bind(row.family, 1), 0);
    EXPECT_EQ(AddOne(row.req, &resp), 0x30);
    ASSERT_TRUE(resp.rule_errors_valid);
    Errors got;
    for (uint32_t i = 0; i < resp.rule_errors_len; ++i) {
      got.emplace_back(resp.rule_errors[i].filter_id, resp.rule_errors[i].rule_error_mask);
    }
    EXPECT_EQ(got, row.errors);
  }
  dfs::SetCapacity(*modem_, 2);
  for (uint16_t port : {80, 81}) {
    ASSERT_EQ(AddOne(V4Tcp(port), &resp), 0);
    EXPECT_FALSE(resp.rule_errors_valid);
    ASSERT_EQ(resp.filter_handles_len, 1u);
  }
  EXPECT_EQ(AddOne(V4Tcp(82), &resp), 0x44);
  EXPECT_EQ(dfs::FilterCount(*modem_), 2u);
  const auto filters = dfs::Clients(*modem_)[0].filters;
  EXPECT_NE(filters[0].handle, filters[1].handle);
  EXPECT_EQ(filters[1].src, "10.0.0.1");
  EXPECT_EQ(filters[1].dport, 81);
  ASSERT_EQ(modem_->Restart(DFS_V01_SERVICE_ID), 0);
  EXPECT_EQ(dfs::FilterCount(*modem_), 0u);
}

// Two clients on one data path: each removes only what it added, and a client that goes takes
// its filters with it. Clients that never bound share the default path (no mux id, IPv4).
TEST_F(DfsTest, FiltersBelongToTheirClientAndUnboundClientsShareTheDefaultPath) {
  ASSERT_EQ(Enter(), 0);  // the library's client on rmnet_data0: mux 1, IPv4
  ASSERT_EQ(Bind(4, 1), 0);
  AddResp added;
  ASSERT_EQ(AddOne(V4Tcp(80), &added), 0);
  ASSERT_EQ(Held(), 2u);
  dfs_result_resp_msg_v01 removed;
  EXPECT_EQ(Ask(QMI_DFS_REMOVE_ALL_FILTERS_REQ_V01, &removed), 0);
  EXPECT_EQ(Held(), 1u) << "the library's filter stays";
  ASSERT_EQ(AddOne(V4Tcp(81), &added), 0);
  qmi_client_release(raw_);
  raw_ = nullptr;
  EXPECT_EQ(Held(), 1u) << "the released client's filter went with it";

  // The library's client on a port without mux id stays unbound, and so does a new raw client.
  ASSERT_EQ(Enter(kV4Tcp, "rmnet_nomux"), 0);
  dfs_get_filter_mode_resp_msg_v01 mode;
  ASSERT_EQ(Ask(QMI_DFS_GET_FILTER_MODE_REQ_V01, &mode), 0);
  EXPECT_EQ(mode.filter_mode, 1) << "enabled by the library on the shared default path";
  bool listed = false;
  for (const auto &p : dfs::Paths(*modem_)) {
    if (p.mux_id != 0) continue;
    listed = true;
    EXPECT_EQ(p.ip_pref, 4);
    EXPECT_EQ(p.filters, 1u);
  }
  EXPECT_TRUE(listed);
}

// The dfs commands of the tool against tarvik-modemd, one run per command: the library's filter
// count ends with each run, and so do the run's filters (its clients go); the filter modes of
// the data paths stay with the daemon.
TEST(DfsTool, RunsShareTheDaemonsTablesAndAnswerOneJsonShape) {
  using nlohmann::json;
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  const std::string tool = daemon.modem() + " --json ";
  const json paths = {{{"mux_id", 1}, {"ip_pref", 4}, {"mode", 1}, {"filters", 0}},
                      {{"mux_id", 1}, {"ip_pref", 6}, {"mode", 1}, {"filters", 0}}};
  const tarvik_test::ToolRow rows[] = {
      {"dfs enter rmnet_data0 IPV4 TCP 10.0.0.1 10.0.0.2 1000 443 ipv4 udp 10.0.0.1 10.0.0.3 53 53",
       0,
       {{"added", 2}, {"result", 0}}},
      {"sim status", 0, {{"dfs", {{"clients", json::array()}, {"paths", paths}}}}},
      {"dfs mode rmnet_data0 4", 0, {{"mode", 1}, {"mux_id", 1}}},
      {"dfs enter rmnet_data0 IPV4 TCP 10.0.0.1 10.0.0.2 0 443",
       1,
       {{"status", 500}, {"status_name", "invalid parameters"}, {"added", 0}}},
      {"dfs msg 00000000", 1, {{"status", -1}, {"result", 500}, {"length", 4}}},
      {"dfs msg 00000000000000000000000000", 0, {{"status", 0}, {"result", 0}}},
      {"dfs exit rmnet_data0", 0, {{"result", 0}}},
      {"dfs mode rmnet_data0 4", 0, {{"mode", 0}}},
      {"dfs mode rmnet_data0 5", 2, {{"status", nullptr}}},
      {"dfs enter rmnet_data0 IPV4 TCP", 2, {{"error", nullptr}}},
  };
  for (const auto &row : rows) tarvik_test::ExpectToolRow(tool, row);
  // After the exit the modem holds nothing on the path and has the mode off.
  const auto status = tarvik_test::JsonLines(tarvik_test::RunTool(tool + "sim status").out);
  ASSERT_EQ(status.size(), 1u);
  EXPECT_EQ(status[0]["dfs"]["paths"][0]["filters"], 0);
  EXPECT_EQ(status[0]["dfs"]["paths"][0]["mode"], 0);
}

// The bind and registration records come from the radio allocator like every other: when it has
// none the request is not sent, and nothing is freed that was not allocated.
TEST_F(DfsTest, BindAndRegistrationRecordsComeFromTheRadioAllocator) {
  struct Row {
    const char *dev;    // a new device each row: its clients are bound and registered again
    uint32_t fail_nth;  // the allocation that fails: 1 the first bind's request, 3 its
                        // registration's request
    const char *logged;
    size_t binds, registrations;  // received by the modem, for both IP families
  };
  const Row rows[] = {
      // The IPv4 client is not bound (nor registered); the IPv6 one is.
      {"rmnet_data0", 1, "dfs bind failed: dev=rmnet_data0, rc=-1, result=0", 1, 1},
      {"rmnet_data1", 3, "dfs_register_indication failed: rc=-1, err=0", 2, 1},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.dev);
    modem_->ClearReceived(kDfs);
    const uint64_t null_frees = qcril_alloc_host_null_frees();
    qcril_alloc_host_fail_nth(row.fail_nth);
    Enter(kV4Tcp, row.dev);
    qcril_alloc_host_fail_nth(0);
    EXPECT_TRUE(SyslogContains(row.logged));
    EXPECT_EQ(CountOf(QMI_DFS_BIND_CLIENT_REQ_V01), row.binds);
    EXPECT_EQ(CountOf(QMI_DFS_INDICATION_REGISTER_REQ_V01), row.registrations);
    EXPECT_EQ(qcril_alloc_host_null_frees(), null_frees);
  }
}

}  // namespace
