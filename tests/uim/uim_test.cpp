// The UIM client through the simulated modem's card reader, called as the radio layer calls it.
#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "extend/extend_service.h"
#include "features/nvefs.h"
#include "json_lines.h"
#include "modemsim/modem.h"
#include "qcril_alloc_host.h"
#include "served_modem.h"
#include "syslog_capture.h"
#include "tarvik_extend_cmn.h"
#include "test_env.h"
#include "uim/uim_service.h"
#include "user_identity_module_v01.h"
#include "wait_until.h"

namespace {

namespace uim = modemsim::uim;
using modemsim::Fault;
using modemsim::Received;
constexpr uint32_t kUim = uim::kServiceId;

uint8_t Flag(uint8_t *flag) {
  return __atomic_load_n(flag, __ATOMIC_RELAXED);
}

// The radio layer's side of the purge: a UIM client of its own, registered for the purge
// outcome, that writes PURGE_STATE as the indication says.
void OnIndication(qmi_client_type handle, unsigned int msg_id, void *buf, unsigned int len,
                  void *) {
  if (msg_id != QMI_UIM_TEMPORARY_ID_PURGE_IND_V01) return;
  uim_temporary_id_purge_ind_msg_v01 ind;
  if (qmi_client_message_decode(handle, QMI_IDL_INDICATION, msg_id, buf, len, &ind, sizeof(ind)) ==
          QMI_NO_ERR &&
      ind.outcome_valid) {
    __atomic_store_n(&PURGE_STATE, ind.outcome == 0 ? 1 : 2, __ATOMIC_RELAXED);
  }
}

class Uim : public ::testing::Test {
 protected:
  void SetUp() override {
    modem_ = modemsim::CreateStandardModem("");
    qmux_ = tarvik_test::Serve(*modem_);
  }
  void TearDown() override {
    if (listener_ != nullptr) qmi_client_release(listener_);
    EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
  }

  void ListenForPurge() {
    uim_event_reg_resp_msg_v01 resp{};
    ASSERT_EQ(Ask(QMI_UIM_REGISTER_EVENT_REQ_V01,
                  uim_event_reg_req_msg_v01{QMI_UIM_EVENT_PURGE_BIT_V01}, &resp),
              0);
    modem_->ClearReceived(kUim);
  }

  // The modem's answer to `req` on the test's own UIM client (the radio layer's, or qmicli's):
  // 0, or the QMI error it refused with.
  template <typename Req, typename Resp>
  int Ask(uint16_t msg, Req req, Resp *resp) {
    qmi_client_os_params os{};
    if (listener_ == nullptr) {
      EXPECT_EQ(qmi_client_init_instance(&uim_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY,
                                         OnIndication, nullptr, &os, 1000, &listener_),
                QMI_NO_ERR);
    }
    memset(static_cast<void *>(resp), 0, sizeof(*resp));
    EXPECT_EQ(
        qmi_client_send_msg_sync(listener_, msg, &req, sizeof(req), resp, sizeof(*resp), 1000),
        QMI_NO_ERR);
    return resp->resp.result == 0 ? 0 : resp->resp.error;
  }

  // What the modem received of message `msg` since the last clear.
  std::vector<Received> Got(uint16_t msg) const {
    std::vector<Received> out;
    for (const Received &r : modem_->ReceivedBy(kUim)) {
      if (r.msg_id == msg) out.push_back(r);
    }
    return out;
  }
  size_t UimClients() const { return modem_->Clients(kUim).size(); }
  void FailNext(int msg, int error, int count) {
    modem_->SetFault(kUim, msg, Fault{Fault::kTransportError, error, 0, count});
  }
  void Refuse(int msg, int count = 1) {
    modem_->SetFault(kUim, msg, Fault{Fault::kResult, modemsim::kQmiErrInternal, 0, count});
  }

  std::unique_ptr<modemsim::Modem> modem_;
  std::unique_ptr<modemsim::QmuxServer> qmux_;  // stopped before the modem goes
  qmi_client_type listener_ = nullptr;
};

TEST_F(Uim, CardPowerSendsTheSwitchAndModeAndChangesTheCard) {
  constexpr uint8_t kOut = UIM_CARD_STATE_ABSENT_V01, kIn = UIM_CARD_STATE_PRESENT_V01;
  struct Row {
    const char *name;
    bool esim;
    tarvik_esim_power_req_t req;  // the plain variant takes the first three fields
    bool switch_off;              // the card powered down and its switch set to see no card first
    uint8_t state_after;
  };
  const Row rows[] = {
      {"down", false, {0, 1, 7, 0}, false, kOut},
      {"up, switch field 5", false, {1, 1, 5, 0}, false, kIn},
      {"no card at the switch: refused, 0", false, {1, 1, 0, 0}, true, kOut},
      {"eSIM down, file written", true, {0, 2, 0, 0}, false, kOut},
      {"eSIM up with the file at 0: eUICC stays hidden", true, {1, 2, 0, 0}, false, kOut},
      {"eSIM up with the file at 1", true, {1, 2, 1, 1}, false, kIn},
  };
  for (const Row &row : rows) {
    // The eSIM rows write their enable file through the extend service, which QMUX cannot reach.
    if (row.esim && tarvik_test::OverQmux()) continue;
    SCOPED_TRACE(row.name);
    const tarvik_uim_power_req_t plain{row.req.power, row.req.slot, row.req.ignore_hotswap};
    if (row.switch_off) {
      uim::SetSwitch(*modem_, row.req.slot, false);
      const tarvik_uim_power_req_t down{0, row.req.slot, 0};
      tarvik_uim_request_uicc_power_ex(&down);
    }
    modem_->ClearReceived(kUim);
    EXPECT_EQ(row.esim ? tarvik_esim_request_uicc_power_ex(&row.req)
                       : tarvik_uim_request_uicc_power_ex(&plain),
              0);
    const auto got = Got(row.req.power ? QMI_UIM_POWER_UP_REQ_V01 : QMI_UIM_POWER_DOWN_REQ_V01);
    ASSERT_EQ(got.size(), 1u);
    const uint32_t slot = got[0].As<uim_power_down_req_msg_v01>().slot;
    EXPECT_EQ(slot, row.req.slot);
    if (row.req.power) {
      const auto &req = got[0].As<uim_power_up_req_msg_v01>();
      EXPECT_EQ(req.ignore_hot_swap_switch_valid, 1);
      EXPECT_EQ(req.ignore_hot_swap_switch, row.req.ignore_hotswap != 0);
      EXPECT_EQ(req.card_mode_valid, 1);
      EXPECT_EQ(req.card_mode, 0);
    }
    EXPECT_EQ(uim::Of(*modem_).slots[slot - 1].state, row.state_after);
  }
  if (tarvik_test::OverQmux()) return;
  std::vector<uint8_t> file;
  ASSERT_TRUE(modemsim::features::NvEfsOf(*modem_)->File(
      1, "/nv/item_files/modem/uim/uimdrv/esim_enable", &file));
  EXPECT_EQ(file, (std::vector<uint8_t>{1, 0, 0, 0}));
}

TEST_F(Uim, EsimPowerWhoseFileWriteFailsSendsNothing) {
  TARVIK_SKIP_OVER_QMUX("the eSIM enable file is written through the extend service");
  uint16_t states = 0;
  ASSERT_EQ(tarvik_uim_get_card_status(&states), 0);  // a client exists
  modem_->ClearReceived(kUim);
  modem_->SetFault(modemsim::extend::kServiceId, TARVIK_EXTEND_QMI_GENERIC_MSG_V01,
                   Fault{Fault::kTransportError, QMI_CLIENT_TRANSPORT_ERR, 0, -1});
  for (uint32_t power : {0u, 1u}) {
    SCOPED_TRACE(power);
    tarvik_esim_power_req_t r{power, 2, 0, 1};
    EXPECT_EQ(tarvik_esim_request_uicc_power_ex(&r), -1);
  }
  EXPECT_TRUE(modem_->ReceivedBy(kUim).empty());
  EXPECT_EQ(Flag(&failed_cnt), 0);
}

TEST_F(Uim, ThirdTransportFailureReleasesTheClientAndTheNextCallStartsAgain) {
  TARVIK_SKIP_OVER_QMUX("transport failures injected");
  uint8_t eid[16];
  const tarvik_uim_slot_req_t slot{2};
  FailNext(QMI_UIM_GET_EID_REQ_V01, QMI_TIMEOUT_ERR, 3);
  for (uint8_t n = 1; n <= 3; ++n) {
    SCOPED_TRACE(n);
    EXPECT_EQ(tarvik_uim_request_eid(&slot, eid), QMI_TIMEOUT_ERR);
    EXPECT_EQ(Flag(&failed_cnt), n);
    EXPECT_EQ(UimClients(), n < 3 ? 1u : 0u);
  }
  EXPECT_EQ(tarvik_uim_request_eid(&slot, eid), 0);
  EXPECT_EQ(Flag(&failed_cnt), 0);
  EXPECT_EQ(UimClients(), 1u);
  EXPECT_EQ(memcmp(eid, uim::Of(*modem_).slots[1].eid.data(), 16), 0);

  // The service error releases at once.
  FailNext(QMI_UIM_GET_EID_REQ_V01, QMI_SERVICE_ERR, 1);
  EXPECT_EQ(tarvik_uim_request_eid(&slot, eid), QMI_SERVICE_ERR);
  EXPECT_EQ(UimClients(), 0u);
}

TEST_F(Uim, ModemRestartSetsSsrDetectedAndTheNextCallRecovers) {
  TARVIK_SKIP_OVER_QMI_PROXY("the proxy does not pass on the revocation a restart sends");
  uint16_t states = 0;
  ASSERT_EQ(tarvik_uim_get_card_status(&states), 0);
  ASSERT_EQ(modem_->Restart(kUim), QMI_NO_ERR);
  tarvik_test::WaitUntil([] { return Flag(&SSR_Detected) != 0; }, std::chrono::seconds(3),
                         std::chrono::milliseconds(5));
  ASSERT_EQ(Flag(&SSR_Detected), 1);
  modem_->ClearReceived(kUim);
  uint8_t eid[16];
  const tarvik_uim_slot_req_t slot{2};
  EXPECT_EQ(tarvik_uim_request_eid(&slot, eid), 0);
  EXPECT_EQ(Flag(&SSR_Detected), 0);
  EXPECT_EQ(UimClients(), 1u);
  const auto got = Got(QMI_UIM_GET_EID_REQ_V01);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].As<uim_get_eid_req_msg_v01>().slot, 2);
}

TEST_F(Uim, CardStatusTakesTheFirstTwoCards) {
  struct Row {
    const char *name;
    std::function<void()> setup;
    int rc;
    uint16_t states;
  };
  const Row rows[] = {
      {"one card", [&] { uim::SetSlotCount(*modem_, 1); }, 0, 0x0301},
      {"three cards",
       [&] {
         uim::SetSlotCount(*modem_, 3);
         uim::SetCard(*modem_, 2, uim::CardKind::kEuicc, uim::Eid{1});
         uim::SetCard(*modem_, 3, uim::CardKind::kSim);
         uim::SetCardState(*modem_, 2, UIM_CARD_STATE_ERROR_V01);
         uim::SetCardState(*modem_, 1, UIM_CARD_STATE_ABSENT_V01);
       },
       0, 0x0200},
      {"modem refuses", [&] { Refuse(QMI_UIM_GET_CARD_STATUS_REQ_V01); }, 0, 0x0303},
      {"transport failure leaves the output",
       [&] { FailNext(QMI_UIM_GET_CARD_STATUS_REQ_V01, QMI_TIMEOUT_ERR, 1); }, QMI_TIMEOUT_ERR,
       0xBEEF},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    row.setup();
    modem_->ClearReceived(kUim);
    uint16_t states = 0xBEEF;
    EXPECT_EQ(tarvik_uim_get_card_status(&states), row.rc);
    EXPECT_EQ(states, row.states);
    const auto got = Got(QMI_UIM_GET_CARD_STATUS_REQ_V01);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].As<uim_get_card_status_req_msg_v01>().extended_card_status_valid, 1);
    EXPECT_EQ(got[0].As<uim_get_card_status_req_msg_v01>().extended_card_status, 1);
  }
}

TEST_F(Uim, EidIsCopiedOnlyWhenTheAnswerHasOne) {
  struct Row {
    uint8_t slot;
    bool refuse;
    bool copied;
  };
  const Row rows[] = {{2, false, true}, {1, false, false}, {2, true, false}};
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << int(row.slot) << " refuse " << row.refuse);
    if (row.refuse) Refuse(QMI_UIM_GET_EID_REQ_V01);
    modem_->ClearReceived(kUim);
    uint8_t eid[16];
    memset(eid, 0xEE, sizeof(eid));
    const tarvik_uim_slot_req_t req{row.slot};
    EXPECT_EQ(tarvik_uim_request_eid(&req, eid), 0);
    std::vector<uint8_t> want(16, 0xEE);
    if (row.copied) {
      const auto e = uim::Of(*modem_).slots[1].eid;
      want.assign(e.begin(), e.end());
    }
    EXPECT_EQ(std::vector<uint8_t>(eid, eid + 16), want);
    ASSERT_EQ(Got(QMI_UIM_GET_EID_REQ_V01).size(), 1u);
    EXPECT_EQ(Got(QMI_UIM_GET_EID_REQ_V01)[0].As<uim_get_eid_req_msg_v01>().slot, row.slot);
  }
}

TEST_F(Uim, ChannelsAndApdusReachTheIsdr) {
  uint8_t channel = 0xFF;
  const tarvik_uim_open_channel_req_t sim{1, 4};
  EXPECT_EQ(tarvik_uim_open_channel(&sim, &channel), -1);  // a plain SIM has no ISD-R
  EXPECT_EQ(channel, 0xFF);
  const tarvik_uim_open_channel_req_t euicc{2, 4};
  ASSERT_EQ(tarvik_uim_open_channel(&euicc, &channel), 0);
  EXPECT_EQ(channel, uim::kFirstChannel);
  const auto opened = Got(QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01);
  ASSERT_EQ(opened.size(), 2u);
  const auto &open = opened.back();
  const auto &oreq = open.As<uim_open_logical_channel_req_msg_v01>();
  const uint8_t isdr[16] = {0xA0, 0x00, 0x00, 0x05, 0x59, 0x10, 0x10, 0xFF,
                            0xFF, 0xFF, 0xFF, 0x89, 0x00, 0x00, 0x01, 0x00};
  EXPECT_EQ(oreq.slot, 2);
  ASSERT_EQ(oreq.aid_len, 16u);
  EXPECT_EQ(memcmp(oreq.aid, isdr, 16), 0);
  EXPECT_EQ(oreq.file_control_information_valid, 1);
  EXPECT_EQ(oreq.file_control_information, 4);

  const auto eid = uim::Of(*modem_).slots[1].eid;
  std::vector<uint8_t> eid_answer = {0xBF, 0x3E, 0x12, 0x5A, 0x10};
  eid_answer.insert(eid_answer.end(), eid.begin(), eid.end());
  eid_answer.insert(eid_answer.end(), {0x90, 0x00});
  struct Row {
    const char *name;
    std::vector<uint8_t> apdu;
    uint8_t channel;
    int rc;
    std::vector<uint8_t> answer;
  };
  const Row rows[] = {
      {"GetEID",
       {0x80, 0xE2, 0x91, 0x00, 0x06, 0xBF, 0x3E, 0x03, 0x5C, 0x01, 0x5A},
       channel,
       0,
       eid_answer},
      {"300-byte answer",
       {0x80, 0xE2, 0x91, 0x00, 0x03, 0xBF, 0x2D, 0x00},
       channel,
       0,
       uim::ProfilesAnswer()},
      {"unknown instruction", {0x80, 0xCA, 0x00, 0x00, 0x00}, channel, 0, {0x6D, 0x00}},
      {"channel not open", {0x80, 0xCA, 0x00, 0x00, 0x00}, 7, -1, {}},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    modem_->ClearReceived(kUim);
    tarvik_uim_apdu_req_t req{};
    req.slot = 2;
    req.channel_id = row.channel;
    req.apdu_len = static_cast<uint8_t>(row.apdu.size());
    memcpy(req.apdu, row.apdu.data(), row.apdu.size());
    std::vector<uint8_t> out(TARVIK_UIM_APDU_RESP_BUF_LEN + 1, 0xEE);
    EXPECT_EQ(tarvik_uim_send_apdu(&req, out.data()), row.rc);
    if (row.rc == 0) {
      EXPECT_EQ(out[0], row.answer.size() & 0xFF);
      EXPECT_EQ(std::vector<uint8_t>(out.begin() + 1, out.begin() + 1 + row.answer.size()),
                row.answer);
    } else {
      EXPECT_EQ(out[0], 0xEE);
    }
    const auto got = Got(QMI_UIM_SEND_APDU_REQ_V01);
    ASSERT_EQ(got.size(), 1u);
    const auto &sent = got[0].As<uim_send_apdu_req_msg_v01>();
    EXPECT_EQ(std::vector<uint8_t>(sent.apdu, sent.apdu + sent.apdu_len), row.apdu);
    EXPECT_EQ(sent.channel_id, row.channel);
    EXPECT_EQ(sent.procedure_bytes_valid, 1);
    EXPECT_EQ(sent.procedure_bytes, 1);
  }
  ASSERT_EQ(uim::ProfilesAnswer().size(), 300u);  // the long answer's length byte is 44

  const tarvik_uim_close_channel_req_t close{2, channel};
  EXPECT_EQ(tarvik_uim_close_channel(&close), 0);
  const auto closed = Got(QMI_UIM_LOGICAL_CHANNEL_REQ_V01);
  ASSERT_EQ(closed.size(), 1u);
  const auto &creq = closed[0].As<uim_logical_channel_req_msg_v01>();
  EXPECT_EQ(creq.aid_valid, 0);
  EXPECT_EQ(creq.channel_id_valid, 1);
  EXPECT_EQ(creq.channel_id, channel);
  EXPECT_EQ(creq.terminate_application_valid, 1);
  EXPECT_EQ(creq.terminate_application, 0);
  EXPECT_TRUE(uim::Of(*modem_).slots[1].channels.empty());
  EXPECT_EQ(tarvik_uim_close_channel(&close), 0);  // refused by the modem: transport result only
}

TEST_F(Uim, SimTypeSendsTheCallersValuesAndRefusesMoreThanFive) {
  struct Row {
    const char *name;
    bool null;
    tarvik_uim_sim_type_req_t rec;
    int rc;
  };
  const Row rows[] = {
      {"none", false, {0, {9}}, 0},
      {"three", false, {3, {4, 5, 6}}, 0},
      {"five", false, {5, {1, 2, 3, 4, 5}}, 0},
      {"six", false, {6, {1, 2, 3, 4, 5}}, -2},
      {"missing", true, {}, -2},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    modem_->ClearReceived(kUim);
    EXPECT_EQ(tarvik_setSimType(row.null ? nullptr : &row.rec), row.rc);
    const auto got = Got(QMI_UIM_SET_SIM_TYPE_REQ_V01);
    ASSERT_EQ(got.size(), row.rc == 0 ? 1u : 0u);
    if (row.rc != 0) continue;
    const auto &sent = got[0].As<uim_set_sim_type_req_msg_v01>();
    const std::vector<uint32_t> want(row.rec.values, row.rec.values + row.rec.count);
    EXPECT_EQ(std::vector<uint32_t>(sent.sim_type, sent.sim_type + sent.sim_type_len), want);
    EXPECT_EQ(uim::Of(*modem_).sim_type, want);
  }
}

TEST_F(Uim, PurgeWaitsForTheOutcomeTheRadioLayerWrites) {
  ListenForPurge();
  struct Row {
    const char *name;
    uint8_t slot;
    uim::PurgeMode mode;
    bool refuse;
    int rc;
    uint8_t state;
  };
  const Row rows[] = {
      {"purged, first slot", 0, uim::PurgeMode::kPurged, false, 0, 1},
      {"failed, second slot", 1, uim::PurgeMode::kFailed, false, -4, 2},
      {"refused", 5, uim::PurgeMode::kPurged, true, -4, 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    uim::SetPurge(*modem_, row.mode, 50);
    if (row.refuse) Refuse(QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01);
    __atomic_store_n(&PURGE_STATE, 0, __ATOMIC_RELAXED);
    modem_->ClearReceived(kUim);
    const tarvik_uim_slot_req_t req{row.slot};
    EXPECT_EQ(tarvik_uim_purge_guti(&req), row.rc);
    EXPECT_EQ(Flag(&PURGE_STATE), row.state);
    const auto got = Got(QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01);
    ASSERT_EQ(got.size(), 1u);
    const auto &sent = got[0].As<uim_temporary_id_purge_req_msg_v01>();
    EXPECT_EQ(sent.session_information.session_type, row.slot == 0 ? 0 : 2);
    EXPECT_EQ(sent.session_information.aid_len, 0u);
    EXPECT_EQ(sent.purge_mask, 1u);
  }
}

TEST_F(Uim, PurgeWithoutAnIndicationGivesUpAfterTwoSeconds) {
  ListenForPurge();
  uim::SetPurge(*modem_, uim::PurgeMode::kSilent, 0);
  const tarvik_uim_slot_req_t req{0};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(tarvik_uim_purge_guti(&req), -3);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, std::chrono::milliseconds(1900));
  EXPECT_LT(took, std::chrono::milliseconds(3000));
}

TEST_F(Uim, PurgeOnTheThirdTransportFailureReleasesTheClient) {
  uint8_t eid[16];
  const tarvik_uim_slot_req_t slot{2};
  FailNext(modemsim::kAnyMessage, QMI_TIMEOUT_ERR, 3);
  EXPECT_EQ(tarvik_uim_request_eid(&slot, eid), QMI_TIMEOUT_ERR);
  EXPECT_EQ(tarvik_uim_request_eid(&slot, eid), QMI_TIMEOUT_ERR);
  EXPECT_EQ(tarvik_uim_purge_guti(&slot), QMI_SERVICE_ERR);
  EXPECT_EQ(UimClients(), 0u);
  EXPECT_EQ(Got(QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01).size(), 1u);
}

// What the card reader answers where the library does not look at the answer.
TEST_F(Uim, ReaderAnswersWhatWasAskedAndRefusesWhatNeedsAMissingCard) {
  uim_get_card_status_resp_msg_v01 status;
  ASSERT_EQ(Ask(QMI_UIM_GET_CARD_STATUS_REQ_V01, uim_get_card_status_req_msg_v01{}, &status), 0);
  EXPECT_EQ(status.card_status_valid, 1);
  EXPECT_EQ(status.extended_card_status_valid, 0) << "the extended status was not asked for";
  ASSERT_EQ(Ask(QMI_UIM_GET_CARD_STATUS_REQ_V01, uim_get_card_status_req_msg_v01{1, 1}, &status),
            0);
  EXPECT_EQ(status.extended_card_status_valid, 1);
  EXPECT_EQ(status.extended_card_status.card_info_len, 2u);

  ASSERT_EQ(uim::SetCard(*modem_, 1, uim::CardKind::kNone), uim::kOk);
  uim_power_down_resp_msg_v01 power;
  uim_temporary_id_purge_resp_msg_v01 purge;
  auto purge_session = [](uim_session_type_enum_v01 session) {
    uim_temporary_id_purge_req_msg_v01 req{};
    req.session_information.session_type = session;
    req.purge_mask = QMI_UIM_PURGE_GUTI_V01;
    return req;
  };
  const struct {
    const char *name;
    std::function<int()> ask;
    int error;
  } rows[] = {
      {"power down an empty slot",
       [&] {
         return Ask(QMI_UIM_POWER_DOWN_REQ_V01, uim_power_down_req_msg_v01{UIM_SLOT_1_V01}, &power);
       },
       QMI_ERR_NO_ENTRY_V01},
      {"purge on a session without a card",
       [&] {
         return Ask(QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01,
                    purge_session(UIM_SESSION_TYPE_PRIMARY_GW_V01), &purge);
       },
       QMI_ERR_DEVICE_NOT_READY_V01},
      {"purge on the second slot's card",
       [&] {
         return Ask(QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01,
                    purge_session(UIM_SESSION_TYPE_SECONDARY_GW_V01), &purge);
       },
       0},
      {"power down that card",
       [&] {
         return Ask(QMI_UIM_POWER_DOWN_REQ_V01, uim_power_down_req_msg_v01{UIM_SLOT_2_V01}, &power);
       },
       0},
      {"purge on a session whose card is off",
       [&] {
         return Ask(QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01,
                    purge_session(UIM_SESSION_TYPE_SECONDARY_GW_V01), &purge);
       },
       QMI_ERR_DEVICE_NOT_READY_V01},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.ask(), row.error);
  }
  // The library hears of the refused purge as a failed one, and waits for no outcome.
  const tarvik_uim_slot_req_t first{0};
  EXPECT_EQ(tarvik_uim_purge_guti(&first), -4);
}

TEST_F(Uim, PurgeWithoutAClientEndsWithTheExitLine) {
  ASSERT_EQ(modem_->SetPresent(kUim, false), QMI_NO_ERR);
  tarvik_test::ClearSyslog();
  const tarvik_uim_slot_req_t slot{0};
  EXPECT_EQ(tarvik_uim_purge_guti(&slot), -1);
  EXPECT_TRUE(tarvik_test::SyslogContains("init_uim_qmi_client failed"));
  EXPECT_EQ(tarvik_test::SyslogCount("function exit <-------------"), 1u)
      << tarvik_test::SyslogDump();
  EXPECT_TRUE(modem_->ReceivedBy(kUim).empty());
}

TEST_F(Uim, AnAllocationFailureSendsNothingAndLeaksNothing) {
  const tarvik_uim_power_req_t power{1, 1, 0};
  const tarvik_esim_power_req_t esim{1, 2, 0, 1};
  const tarvik_uim_sim_type_req_t sim_type{1, {2}};
  const tarvik_uim_slot_req_t slot{2};
  const tarvik_uim_open_channel_req_t open{2, 0};
  const tarvik_uim_close_channel_req_t close{2, 1};
  tarvik_uim_apdu_req_t apdu{};
  apdu.slot = 2;
  apdu.channel_id = 1;
  apdu.apdu_len = 4;
  uint8_t out[TARVIK_UIM_APDU_RESP_BUF_LEN];
  uint16_t states = 0;
  struct Row {
    const char *name;
    uint32_t allocations;
    std::function<int()> call;
  };
  const Row rows[] = {
      {"power", 2, [&] { return tarvik_uim_request_uicc_power_ex(&power); }},
      {"esim power", 2, [&] { return tarvik_esim_request_uicc_power_ex(&esim); }},
      {"sim type", 1, [&] { return tarvik_setSimType(&sim_type); }},
      {"eid", 2, [&] { return tarvik_uim_request_eid(&slot, out); }},
      {"card status", 2, [&] { return tarvik_uim_get_card_status(&states); }},
      {"open", 2, [&] { return tarvik_uim_open_channel(&open, out); }},
      {"close", 2, [&] { return tarvik_uim_close_channel(&close); }},
      {"apdu", 2, [&] { return tarvik_uim_send_apdu(&apdu, out); }},
      {"purge", 2, [&] { return tarvik_uim_purge_guti(&slot); }},
  };
  ASSERT_EQ(tarvik_uim_get_card_status(&states), 0);  // the client exists
  for (const Row &row : rows) {
    for (uint32_t n = 1; n <= row.allocations; ++n) {
      SCOPED_TRACE(::testing::Message() << row.name << " allocation " << n);
      modem_->ClearReceived(kUim);
      qcril_alloc_host_fail_nth(n);
      EXPECT_EQ(row.call(), -1);
      qcril_alloc_host_fail_nth(0);
      EXPECT_TRUE(modem_->ReceivedBy(kUim).empty());
      EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
    }
  }
}

TEST(UimCardReader, CardSetUpOutlivesTheModem) {
  const std::string dir = tarvik_test::ScratchDir() + "/modem";
  const uim::Eid eid = {0xAB, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xCD};
  {
    auto modem = modemsim::CreateStandardModem(dir);
    ASSERT_EQ(uim::SetSlotCount(*modem, 3), uim::kOk);
    ASSERT_EQ(uim::SetCard(*modem, 1, uim::CardKind::kNone), uim::kOk);
    ASSERT_EQ(uim::SetCard(*modem, 3, uim::CardKind::kEuicc, eid), uim::kOk);
    ASSERT_EQ(uim::SetSwitch(*modem, 2, false), uim::kOk);
  }
  auto modem = modemsim::CreateStandardModem(dir);
  const uim::View v = uim::Of(*modem);
  ASSERT_EQ(v.slots.size(), 3u);
  EXPECT_EQ(v.slots[0].kind, uim::CardKind::kNone);
  EXPECT_EQ(v.slots[1].kind, uim::CardKind::kEuicc);
  EXPECT_FALSE(v.slots[1].switch_card);
  EXPECT_EQ(v.slots[1].state, UIM_CARD_STATE_ABSENT_V01);  // the switch sees no card
  EXPECT_EQ(v.slots[2].kind, uim::CardKind::kEuicc);
  EXPECT_EQ(v.slots[2].eid, eid);
  EXPECT_EQ(v.slots[2].state, UIM_CARD_STATE_PRESENT_V01);
}

// The tool's uim command and the sim card words, each run a process of its own against one
// tarvik-modemd, whose card reader keeps its state between the runs.
TEST(UimTool, CommandsReachTheCardReaderAndAnswerOneJsonShape) {
  using nlohmann::json;
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  const std::string isdr_eid = "80E2910006BF3E035C015A";
  const tarvik_test::ToolRow rows[] = {
      {"uim status", 0, {{"card1", {{"state", 1}, {"name", "present"}}}, {"card2", nullptr}}},
      {"uim power 1 down", 0, {{"power", "down"}, {"ignore_hotswap", false}}},
      {"sim card 1 switch off", 0, {}},
      {"uim power 1 up", 0, {}},  // refused by the modem: only the transport is reported
      {"uim status", 0, {{"card1", {{"state", 0}, {"name", "absent"}}}}},
      {"uim power 1 up ignore-hotswap", 0, {{"ignore_hotswap", true}}},
      {"uim status", 0, {{"card1", {{"state", 1}, {"name", "present"}}}}},
      {"sim card 2 euicc 00112233445566778899AABBCCDDEEFF", 0, {}},
      {"uim eid 2", 0, {{"eid", "00112233445566778899aabbccddeeff"}}},
      {"uim eid 1", 0, {{"eid", ""}}},
      {"uim open 1", 1, {{"status", -1}}},
      {"uim open 2", 0, {{"channel", 1}}},
      {"uim apdu 2 1 " + isdr_eid,
       0,
       {{"response", "bf3e125a1000112233445566778899aabbccddeeff9000"}, {"sw", "9000"}}},
      {"uim apdu 2 1 80E2910003BF2D00", 0, {{"sw", "9000"}}},
      {"uim apdu 2 1 " + std::string(512, 'A'), 2, {}},
      {"uim close 2 1", 0, {}},
      {"uim apdu 2 1 " + isdr_eid, 1, {{"status", -1}}},
      {"uim sim-type 3 4", 0, {{"values", {3, 4}}}},
      {"uim purge 0", 0, {{"purge_state", 1}}},
      {"sim card purge failed 10", 0, {}},
      {"uim purge 1", 1, {{"status", -4}, {"purge_state", 2}}},
      {"sim card 9 sim", 2, {}},
      {"sim status", 0, {{"cards", nullptr}}},
  };
  for (const auto &row : rows) {
    const json out = tarvik_test::ExpectToolRow(daemon.modem() + " --json ", row);
    if (row.args == "uim apdu 2 1 80E2910003BF2D00" && out.is_object()) {
      EXPECT_EQ(out.value("response", "").size(), 600u);  // 300 bytes
    }
  }
}

}  // namespace
