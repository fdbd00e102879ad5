// Event registration and the routing of indications, against the simulated modem: what the
// modem was asked to switch, and what reached which callback with which arguments.
#include "channel_env.h"

namespace channel_test {
namespace {

using IndicationsTest = ChannelTest;

// Register switches the event on at the modem (once per event), deregister switches it off and
// frees the slot; invalid events never reach the modem.
TEST_F(IndicationsTest, RegisterAndDeregisterSwitchTheEventAtTheModem) {
  struct Row {
    int event;
    uint32_t ind_flag;
    int status;
  };
  const Row rows[] = {{0, 0, 0}, {6, 5, 0}, {7, 0xFFFFFFFFu, -1}, {-1, 0, -1}, {6, 0, -4}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.event);
    EXPECT_EQ(Register(row.event, row.ind_flag), row.status);
  }
  EXPECT_TRUE(SyslogContains("event is invalid, event = 7", 3));
  EXPECT_TRUE(Switch(6).on);
  EXPECT_TRUE(Switch(6).ind_flag);
  EXPECT_TRUE(Switch(0).on);
  EXPECT_FALSE(Switch(0).ind_flag);
  auto regs = Received(kEventMsg);
  ASSERT_EQ(regs.size(), 2u) << "invalid or second registrations are sent";
  EXPECT_EQ(IdAndData(regs[1]), std::make_pair(6u, Bytes{1, 1})) << "ind_flag travels as 0 or 1";

  EXPECT_EQ(tarvik_extend_qmi_deregister(7), -1);
  EXPECT_EQ(tarvik_extend_qmi_deregister(6), 0);
  EXPECT_FALSE(Switch(6).on);
  regs = Received(kEventMsg);
  ASSERT_EQ(regs.size(), 3u);
  EXPECT_EQ(IdAndData(regs[2]), std::make_pair(6u, Bytes{0}));
  EXPECT_EQ(Register(6), 0);
}

TEST_F(IndicationsTest, RefusedRegistrationKeepsTheHandlerUntilDeregistered) {
  // The modem refuses every registration.
  ASSERT_TRUE(ext::SetMessageHandler(*modem_, kEventMsg, [](modemsim::Call &call) {
    call.Response<tarvik_extend_qmi_resp_msg_v01>().result = 9;
  }));
  EXPECT_EQ(Register(4), -3);
  EXPECT_TRUE(SyslogContains("9 QMI service framework error. Check client"));
  EXPECT_EQ(Register(4), -4);
  EXPECT_EQ(Received(kEventMsg).size(), 1u);
  // A refused deregistration keeps it too.
  EXPECT_EQ(tarvik_extend_qmi_deregister(4), -3);
  EXPECT_EQ(Register(4), -4);
  // The handler is live: an event 4 reaches it.
  PushEvent(4);
  ASSERT_TRUE(IndRecorder::WaitFor(1));
  EXPECT_EQ(IndRecorder::Got(), (std::vector<Ind>{{4, {}}}));
}

TEST_F(IndicationsTest, RegistrationRetriedOverANewClientKeepsItsHandlerOnly) {
  ASSERT_EQ(Register(1), 0);
  Fail(kEventMsg, Fault::kTransportError, 1);
  ASSERT_EQ(Register(3, 1), 0);
  const auto regs = Received(kEventMsg);
  ASSERT_EQ(regs.size(), 3u);
  EXPECT_NE(regs[2].client, regs[1].client) << "retried over a new client";
  EXPECT_EQ(regs[2].tlvs, regs[1].tlvs);
  EXPECT_TRUE(Switch(3).on);

  ASSERT_EQ(InjectEvent(3, {7, 8, 9}), 1);
  ASSERT_TRUE(IndRecorder::WaitFor(1)) << "the event's handler was dropped";
  EXPECT_EQ(IndRecorder::Got(), (std::vector<Ind>{{3, {7, 8, 9}}}));
  // The reconnect still cleared the other slot.
  EXPECT_EQ(Register(1), 0);
}

// An event reaches its handler with its payload (none without TLV 0x10); events not switched
// on, without a handler or out of range go nowhere, the last two with a trace.
TEST_F(IndicationsTest, EventsReachTheirHandlerOthersAreDroppedWithATrace) {
  ASSERT_EQ(Register(3), 0);
  const Bytes data = {1, 2, 3, 4, 5};
  EXPECT_EQ(InjectEvent(3, data), 1);
  EXPECT_EQ(InjectEvent(3, data, /*data_valid=*/false), 1) << "no TLV 0x10: length 0";
  EXPECT_EQ(InjectEvent(5, data), 0) << "not switched on";
  PushEvent(7);
  PushEvent(9);
  PushEvent(3);
  // Indications arrive in order: once the last event 3 is in, 7 and 9 were handled.
  ASSERT_TRUE(IndRecorder::WaitFor(3));
  EXPECT_EQ(IndRecorder::Got(), (std::vector<Ind>{{3, data}, {3, {}}, {3, {}}}));
  EXPECT_TRUE(SyslogContains("No function defined to handle indication: 7"));
  EXPECT_TRUE(SyslogContains("Indicaion: 9 greater than maximum known indication."));
}

// Every other indication reaches the callback of the routing table with its id and whole record;
// one without a callback, of an unknown message id or whose bytes do not decode is dropped
// without a line.
TEST_F(IndicationsTest, OtherIndicationsFollowTheRoutingTable) {
  ASSERT_TRUE(tarvik_extend_qmi_base_model_register(IndRecorder::Record));
  EXPECT_EQ(tarvik_extend_qmi_wechat_register(nullptr), 0);
  EXPECT_EQ(tarvik_extend_qmi_self_study_register(nullptr), 1);
  tarvik_extend_qmi_init();
  tarvik_test::ClearSyslog();
  tarvik_extend_qmi_wechat_ind_msg_v01 wechat{};
  wechat.value = 1;
  ASSERT_EQ(Inject(0x0D, &wechat, sizeof(wechat)), 1);
  tarvik_extend_qmi_pair_msg_v01 state{};
  ASSERT_EQ(Inject(0x07, &state, sizeof(state)), 1);
  const uint8_t tlv[] = {0x01, 0x04, 0x00, 1, 0, 0, 0};
  ASSERT_EQ(modem_->PushRawIndication(ext::kServiceId, 0x30, tlv, sizeof(tlv)), 1);
  ASSERT_EQ(modem_->PushRawIndication(ext::kServiceId, 0x12, tlv, 2), 1);
  tarvik_extend_qmi_base_model_scene_msg_v01 scene{};
  scene.scene_bitmask = 3;
  ASSERT_EQ(Inject(0x14, &scene, sizeof(scene)), 1);
  // Indications arrive in order: once 0x14 is in, the others were handled.
  ASSERT_TRUE(IndRecorder::WaitFor(1));
  ASSERT_EQ(IndRecorder::Got().size(), 1u);
  EXPECT_EQ(IndRecorder::Got()[0].id, 0x14);
  for (const auto &line : tarvik_test::SyslogLines()) {
    EXPECT_EQ(line.text.find("tarvik_extend_qmi_ind_cb"), std::string::npos) << line.text;
  }

  ASSERT_EQ(tarvik_extend_qmi_self_study_register(IndRecorder::Record), 1);
  ASSERT_EQ(tarvik_extend_qmi_wechat_register(IndRecorder::Record), 1);
  struct Row {
    uint16_t msg_id;
    uint32_t size;
    uint32_t pad_at;  // alignment padding of the record, zero after decoding (0: none)
  };
  const Row rows[] = {{0x05, 1128, 0}, {0x06, 1288, 0}, {0x07, 8, 0},
                      {0x08, 32, 4},   {0x09, 408, 0},  {0x0B, 20, 0},
                      {0x0D, 24, 20},  {0x12, 16, 0},   {0x14, 12, 0}};
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << "indication 0x" << std::hex << row.msg_id);
    // A record whose every u32 is nonzero and distinct (counted arrays kept in range).
    Bytes record(row.size, 0);
    for (uint32_t off = 0; off + 4 <= row.size; off += 4) {
      const uint32_t v = row.msg_id * 1000 + off;
      memcpy(&record[off], &v, 4);
    }
    if (row.pad_at != 0) memset(&record[row.pad_at], 0, 4);
    if (row.msg_id == 0x06) {
      auto *ind = reinterpret_cast<tarvik_extend_qmi_self_study_group_ind_msg_v01 *>(record.data());
      for (auto &g : ind->groups) {
        g.list_len = 5;
        memset(reinterpret_cast<uint8_t *>(&g) + 4, 0, 4);  // padding stays zero
      }
    }
    ASSERT_EQ(Inject(row.msg_id, record.data(), row.size), 1);
    ASSERT_TRUE(IndRecorder::WaitFor(&row - rows + 2));
    EXPECT_EQ(IndRecorder::Got().back(), (Ind{row.msg_id, record}));
  }
}

}  // namespace
}  // namespace channel_test
