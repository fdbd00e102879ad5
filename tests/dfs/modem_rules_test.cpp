// The simulated DFS service's own rules, through a raw client as another radio stack would
// reach it: binding to data ports only, rule checks with their error masks, table capacity.
#include <gtest/gtest.h>
#include <string.h>

#include <memory>

#include "data_filter_service_v01.h"
#include "dfs/dfs_service.h"
#include "modemsim/modem.h"
#include "qmi_client.h"
#include "qmi_client_host.h"

namespace {

namespace dfs = modemsim::dfs;
using Add = dfs_add_filters_req_msg_v01;
using AddResp = dfs_add_filters_resp_msg_v01;

class DfsModem : public ::testing::Test {
 protected:
  void SetUp() override {
    modem_ = modemsim::CreateStandardModem("");
    modem_->ServeInProcess();
    ASSERT_EQ(qmi_client_host_select_transport("inproc"), QMI_NO_ERR);
    qmi_client_os_params os;
    memset(&os, 0, sizeof(os));
    ASSERT_EQ(qmi_client_init_instance(&dfs_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY,
                                       nullptr, nullptr, &os, 1000, &client_),
              QMI_NO_ERR);
  }
  void TearDown() override { qmi_client_release(client_); }

  // The modem's verdict on a bind: 0 accepted, else its QMI error.
  int Bind(int32_t family, int mux, int ep_type = -1, uint32_t iface = 0) {
    dfs_bind_client_req_msg_v01 req{};
    dfs_result_resp_msg_v01 resp{};
    req.ip_preference_valid = 1;
    req.ip_preference = (dfs_ip_family_enum_v01)family;
    req.mux_id_valid = mux >= 0;
    req.mux_id = (uint8_t)mux;
    req.ep_id_valid = ep_type >= 0;
    req.ep_id = {(uint32_t)ep_type, iface};
    EXPECT_EQ(qmi_client_send_msg_sync(client_, QMI_DFS_BIND_CLIENT_REQ_V01, &req, sizeof(req),
                                       &resp, sizeof(resp), 1000),
              QMI_NO_ERR);
    return resp.resp.result == 0 ? 0 : resp.resp.error;
  }
  int AddOne(Add req, AddResp *resp) {
    memset(resp, 0, sizeof(*resp));
    EXPECT_EQ(qmi_client_send_msg_sync(client_, QMI_DFS_ADD_FILTERS_REQ_V01, &req, sizeof(req),
                                       resp, sizeof(*resp), 1000),
              QMI_NO_ERR);
    return resp->resp.result == 0 ? 0 : resp->resp.error;
  }

  std::unique_ptr<modemsim::Modem> modem_;
  qmi_client_type client_ = nullptr;
};

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

TEST_F(DfsModem, BindsOnlyToItsDataPorts) {
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
      {"rmnet_data2 with its endpoint", 6, 3, 4, 1, 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Bind(row.family, row.mux, row.ep_type, row.iface), row.error);
  }
  const auto clients = dfs::Clients(*modem_);
  ASSERT_EQ(clients.size(), 1u);
  EXPECT_TRUE(clients[0].bound);
  EXPECT_EQ(clients[0].mux_id, 3);
  EXPECT_EQ(clients[0].ip_pref, 6);
}

TEST_F(DfsModem, RefusesBadRulesWithTheirMasksAndAFullTable) {
  ASSERT_EQ(Bind(DFS_IP_FAMILY_IPV6_V01, 1), 0);
  Add unlisted = V4Tcp(80);
  unlisted.tcp_dst[0].filter_id = 2;
  struct Row {
    const char *name;
    Add req;
    int error;
    uint16_t filter_id;  // of the first rule error
    uint64_t mask;
  };
  const Row rows[] = {
      {"IPv4 rule on an IPv6 binding", V4Tcp(80), 0x30, 1, DFS_RULE_ERR_IPV4_SRC_V01},
      {"filter id not listed", unlisted, 0x30, 1, DFS_RULE_ERR_IPV4_SRC_V01},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    AddResp resp;
    EXPECT_EQ(AddOne(row.req, &resp), row.error);
    ASSERT_TRUE(resp.rule_errors_valid);
    EXPECT_EQ(resp.rule_errors[0].filter_id, row.filter_id);
    EXPECT_EQ(resp.rule_errors[0].rule_error_mask, row.mask);
  }
  // The unlisted id gets its own entry for the port rule.
  AddResp resp;
  AddOne(unlisted, &resp);
  ASSERT_EQ(resp.rule_errors_len, 2u);
  EXPECT_EQ(resp.rule_errors[1].filter_id, 2);
  EXPECT_EQ(resp.rule_errors[1].rule_error_mask,
            DFS_RULE_ERR_TCP_DST_V01 | DFS_RULE_ERR_FILTER_ID_V01);

  ASSERT_EQ(Bind(DFS_IP_FAMILY_IPV4_V01, 1), 0);
  EXPECT_EQ(AddOne(V4Tcp(0), &resp), 0x30);
  EXPECT_EQ(resp.rule_errors[0].rule_error_mask, DFS_RULE_ERR_TCP_DST_V01);
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

}  // namespace
