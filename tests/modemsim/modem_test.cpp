// The simulated modem seen from the server side (a recording sink instead of the client
// library), its state store, control commands and module registry.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "modemsim/control.h"
#include "modemsim/echo_service.h"
#include "modemsim/modem.h"
#include "qmi_client.h"
#include "test_env.h"

namespace {

namespace echo = modemsim::echo;
namespace wire = qmi_host::wire;
using namespace std::chrono_literals;

// Records what the modem sends to one client.
class RecordingSink : public qmi_host::ClientSink {
 public:
  struct Msg {
    wire::QmiHeader hdr;
    std::vector<uint8_t> tlvs;
  };

  void OnServiceUp(uint32_t service, uint32_t) override { Note("up", service); }
  void OnServiceDown(uint32_t service, uint32_t) override { Note("down", service); }
  void OnMessage(uint32_t, const uint8_t *msg, size_t len) override {
    Msg m{};
    ASSERT_TRUE(wire::ParseQmiHeader(msg, len, &m.hdr));
    m.tlvs.assign(msg + wire::kQmiHeaderLen, msg + len);
    std::lock_guard<std::mutex> lock(mu_);
    msgs_.push_back(m);
    cv_.notify_all();
  }
  void OnTxnError(uint32_t, uint16_t txn, int error) override {
    std::lock_guard<std::mutex> lock(mu_);
    txn_errors_.push_back({txn, error});
    cv_.notify_all();
  }

  bool WaitMessages(size_t n) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, 3s, [&] { return msgs_.size() >= n; });
  }
  std::vector<Msg> msgs() {
    std::lock_guard<std::mutex> lock(mu_);
    return msgs_;
  }
  std::vector<std::string> events() {
    std::lock_guard<std::mutex> lock(mu_);
    return events_;
  }

  std::vector<std::pair<uint16_t, int>> txn_errors_;

 private:
  void Note(const char *what, uint32_t service) {
    std::lock_guard<std::mutex> lock(mu_);
    events_.push_back(std::string(what) + " " + std::to_string(service));
  }
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<Msg> msgs_;
  std::vector<std::string> events_;
};

std::vector<uint8_t> Request(uint16_t txn, uint16_t msg_id, std::vector<uint8_t> tlvs) {
  std::vector<uint8_t> msg(wire::kQmiHeaderLen + tlvs.size());
  wire::PutQmiHeader(msg.data(), {wire::kQmiRequest, txn, msg_id, (uint16_t)tlvs.size()});
  std::copy(tlvs.begin(), tlvs.end(), msg.begin() + wire::kQmiHeaderLen);
  return msg;
}

class ModemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    echo::AddTo(modem_);
    modem_.Attach(&sink_);
    ASSERT_EQ(QMI_NO_ERR, modem_.Open(&sink_, echo::kServiceId, QMI_CLIENT_INSTANCE_ANY, &client_));
  }
  void TearDown() override { modem_.Detach(&sink_); }

  // The result TLV (0x02) of a response: {result, error}.
  static std::pair<uint16_t, uint16_t> ResultOf(const RecordingSink::Msg &m) {
    for (size_t pos = 0; pos + 3 <= m.tlvs.size(); pos += 3 + wire::GetU16(&m.tlvs[pos + 1])) {
      if (m.tlvs[pos] == 0x02 && pos + 7 <= m.tlvs.size()) {
        return {wire::GetU16(&m.tlvs[pos + 3]), wire::GetU16(&m.tlvs[pos + 5])};
      }
    }
    return {0xFFFF, 0xFFFF};
  }

  modemsim::Modem modem_;
  RecordingSink sink_;
  uint32_t client_ = 0;
};

TEST_F(ModemTest, BadRequestsAreRecordedAndAnsweredWithAnError) {
  struct Row {
    const char *name;
    uint16_t msg_id;
    std::vector<uint8_t> tlvs;
    int32_t decode_status;
    uint16_t error;
    bool fault = false;  // a result fault answers the request
  } rows[] = {
      {"mandatory TLV missing", echo::kEcho, {}, QMI_IDL_LIB_MISSING_TLV, 0x0001},
      {"TLV longer than the message",
       echo::kEcho,
       {0x01, 0x09, 0x00, 1, 2, 3, 4},
       QMI_IDL_LIB_LENGTH_INCONSISTENCY,
       0x0001},
      {"message not in the table", 0x0042, {}, QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND, 0x005E},
      {"result fault", echo::kEcho, {0x01, 0x04, 0x00, 1, 2, 3, 4}, 0, 0x0030, true},
  };
  uint16_t txn = 10;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    modem_.ClearReceived(echo::kServiceId);
    const size_t before = sink_.msgs().size();
    if (row.fault) {
      modem_.SetFault(echo::kServiceId, row.msg_id,
                      modemsim::Fault{modemsim::Fault::kResult, row.error, 0, 1});
    }
    auto msg = Request(++txn, row.msg_id, row.tlvs);
    ASSERT_EQ(QMI_NO_ERR, modem_.Deliver(client_, msg.data(), msg.size()));
    ASSERT_TRUE(sink_.WaitMessages(before + 1));
    auto got = modem_.ReceivedBy(echo::kServiceId);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(row.decode_status, got[0].decode_status);
    EXPECT_EQ(row.tlvs, got[0].tlvs);
    const auto reply = sink_.msgs().back();
    EXPECT_EQ(wire::kQmiResponse, reply.hdr.type);
    EXPECT_EQ(txn, reply.hdr.txn);
    EXPECT_EQ(row.msg_id, reply.hdr.msg_id);
    EXPECT_EQ(1, ResultOf(reply).first);
    EXPECT_EQ(row.error, ResultOf(reply).second);
  }
}

TEST_F(ModemTest, DeliverRefusesMalformedHeadersAndUnknownClients) {
  auto msg = Request(1, echo::kEcho, {0x01, 0x04, 0x00, 1, 2, 3, 4});
  EXPECT_EQ(QMI_CLIENT_PARAM_ERR, modem_.Deliver(client_, msg.data(), 6));
  msg[5] = 9;  // length field disagrees with the message
  EXPECT_EQ(QMI_CLIENT_PARAM_ERR, modem_.Deliver(client_, msg.data(), msg.size()));
  msg[5] = 7;
  msg[0] = wire::kQmiIndication;
  EXPECT_EQ(QMI_CLIENT_PARAM_ERR, modem_.Deliver(client_, msg.data(), msg.size()));
  msg[0] = wire::kQmiRequest;
  EXPECT_EQ(QMI_SERVICE_ERR, modem_.Deliver(client_ + 100, msg.data(), msg.size()));
  EXPECT_EQ(QMI_NO_ERR, modem_.Deliver(client_, msg.data(), msg.size()));
}

TEST_F(ModemTest, FaultCountsAreConsumedPerMatchingRequest) {
  modem_.SetFault(echo::kServiceId, modemsim::kAnyMessage,
                  modemsim::Fault{modemsim::Fault::kTransportError, QMI_XPORT_BUSY_ERR, 0, 2});
  auto msg = Request(7, echo::kEcho, {0x01, 0x04, 0x00, 1, 2, 3, 4});
  for (int i = 0; i < 3; ++i)
    ASSERT_EQ(QMI_NO_ERR, modem_.Deliver(client_, msg.data(), msg.size()));
  ASSERT_TRUE(sink_.WaitMessages(1));
  ASSERT_TRUE(modem_.WaitReceived(echo::kServiceId, 3, 3000));
  EXPECT_EQ(
      (std::vector<std::pair<uint16_t, int>>{{7, QMI_XPORT_BUSY_ERR}, {7, QMI_XPORT_BUSY_ERR}}),
      sink_.txn_errors_);
  EXPECT_EQ(1u, sink_.msgs().size());
}

TEST_F(ModemTest, RestartReportsDownThenUpAndDropsClients) {
  std::vector<uint32_t> gone;
  int restarts = 0;
  modemsim::Service *service = modem_.FindService(echo::kServiceId);
  ASSERT_NE(nullptr, service);
  service->OnClientGone([&](uint32_t c) { gone.push_back(c); });
  service->OnRestart([&] { ++restarts; });
  ASSERT_EQ(QMI_NO_ERR, modem_.Restart(echo::kServiceId));
  const std::string id = std::to_string(echo::kServiceId);
  EXPECT_EQ((std::vector<std::string>{"up " + id, "down " + id, "up " + id}), sink_.events());
  EXPECT_EQ(std::vector<uint32_t>{client_}, gone);
  EXPECT_EQ(1, restarts);
  EXPECT_TRUE(modem_.Clients(echo::kServiceId).empty());
  auto msg = Request(1, echo::kEcho, {0x01, 0x04, 0x00, 1, 2, 3, 4});
  EXPECT_EQ(QMI_SERVICE_ERR, modem_.Deliver(client_, msg.data(), msg.size()));
  EXPECT_EQ(QMI_SERVICE_ERR, modem_.Restart(0x4242));
}

TEST_F(ModemTest, RestartWithDownTimeComesBackLater) {
  ASSERT_EQ(QMI_NO_ERR, modem_.Restart(echo::kServiceId, 100));
  uint32_t c = 0;
  EXPECT_EQ(QMI_SERVICE_ERR, modem_.Open(&sink_, echo::kServiceId, QMI_CLIENT_INSTANCE_ANY, &c));
  for (int i = 0; i < 100 && modem_.Open(&sink_, echo::kServiceId, 0, &c) != QMI_NO_ERR; ++i) {
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_NE(0u, c);
  EXPECT_EQ(QMI_SERVICE_ERR, modem_.Open(&sink_, echo::kServiceId, 3, &c));  // other instance
}

// A service made absent stays absent: a restart queued before (by Restart with a down time, or
// scheduled by a handler) does not bring it back.
TEST_F(ModemTest, AbsentOutlastsARestartQueuedBeforeIt) {
  const struct {
    const char *name;
    std::function<void()> queue;
  } rows[] = {
      {"restart with down time", [&] { ASSERT_EQ(0, modem_.Restart(echo::kServiceId, 20)); }},
      {"scheduled restart", [&] { modem_.ScheduleRestart(echo::kServiceId, 20, 0); }},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    row.queue();
    ASSERT_EQ(QMI_NO_ERR, modem_.SetPresent(echo::kServiceId, false));
    std::this_thread::sleep_for(100ms);  // past the queued bring-up
    ASSERT_EQ(1u, modem_.Status().size());
    EXPECT_FALSE(modem_.Status()[0].up);
    ASSERT_EQ(QMI_NO_ERR, modem_.SetPresent(echo::kServiceId, true));
    EXPECT_TRUE(modem_.Status()[0].up);
  }
}

TEST(StateStoreTest, PersistsAcrossInstancesWithADirectory) {
  const std::string dir = tarvik_test::ScratchDir() + "/state";
  const std::string path_key = "/nv/item_files/modem/../../etc/x";
  {
    modemsim::StateStore store(dir);
    ASSERT_TRUE(store.Put("efs", path_key, "abc", 3));
    ASSERT_TRUE(store.Put("nv", "550", "\x00\x01", 2));
    ASSERT_TRUE(store.Put("nv", "empty", "", 0));
  }
  modemsim::StateStore store(dir);
  std::vector<uint8_t> value;
  ASSERT_TRUE(store.Get("efs", path_key, &value));
  EXPECT_EQ((std::vector<uint8_t>{'a', 'b', 'c'}), value);
  ASSERT_TRUE(store.Get("nv", "550", &value));
  EXPECT_EQ((std::vector<uint8_t>{0, 1}), value);
  ASSERT_TRUE(store.Get("nv", "empty", &value));
  EXPECT_TRUE(value.empty());
  EXPECT_EQ((std::vector<std::string>{path_key}), store.Keys("efs"));
  EXPECT_EQ((std::vector<std::string>{"550", "empty"}), store.Keys("nv"));
  EXPECT_TRUE(store.Erase("nv", "550"));
  EXPECT_FALSE(store.Get("nv", "550", &value));
  EXPECT_FALSE(store.Erase("nv", "550"));
}

TEST(StateStoreTest, MemoryStoreKeepsNamespacesApart) {
  modemsim::StateStore store;
  EXPECT_FALSE(store.persistent());
  ASSERT_TRUE(store.Put("a", "k", "1", 1));
  ASSERT_TRUE(store.Put("b", "k", "22", 2));
  std::vector<uint8_t> value;
  ASSERT_TRUE(store.Get("a", "k", &value));
  EXPECT_EQ(1u, value.size());
  ASSERT_TRUE(store.Get("b", "k", &value));
  EXPECT_EQ(2u, value.size());
  EXPECT_FALSE(store.Get("c", "k", &value));
}

TEST(ControlTest, CommandsParseAndAct) {
  modemsim::Modem modem;
  echo::AddTo(modem);
  struct Row {
    std::vector<std::string> words;
    int status;
  } rows[] = {
      {{"status"}, 0},
      {{"fault", "0x0F0E", "1", "noanswer"}, 0},
      {{"fault", "3854", "any", "delay", "20", "2"}, 0},
      {{"fault", "0xF0E", "1", "result", "0x30"}, 0},
      {{"fault", "0xF0E", "1", "transport", "-21", "1"}, 0},
      {{"fault", "0xF0E", "1", "transport"}, 0},
      {{"fault", "0xF0E", "1", "delay"}, 2},
      {{"fault", "0xF0E", "0x10000", "noanswer"}, 2},
      {{"fault", "0xF0E", "1", "noanswer", "0"}, 2},
      {{"fault", "0xF0E", "1", "sometimes"}, 2},
      {{"fault", "0x1234", "1", "noanswer"}, 1},
      {{"clear", "0xF0E"}, 0},
      {{"absent", "0xF0E"}, 0},
      {{"present", "0xF0E"}, 0},
      {{"restart", "0xF0E", "5"}, 0},
      {{"restart", "0xF0E", "-5"}, 2},
      {{"restart", "0x1234"}, 1},
      {{"restart"}, 2},
      {{"status", "extra"}, 2},
      {{"reboot"}, 2},
      {{}, 2},
  };
  for (const Row &row : rows) {
    std::string trace;
    for (auto &w : row.words) trace += w + " ";
    SCOPED_TRACE(trace);
    std::string out;
    EXPECT_EQ(row.status, modemsim::RunControlCommand(modem, row.words, &out));
  }
  std::string out;
  ASSERT_EQ(0, modemsim::RunControlCommand(modem, {"absent", "0xF0E"}, &out));
  out.clear();
  ASSERT_EQ(0, modemsim::RunControlCommand(modem, {"status"}, &out));
  EXPECT_EQ("0x0F0E instance 0 down clients 0 received 0\n", out);
}

int g_module_runs = 0;
void TestModule(modemsim::Modem &modem) {
  ++g_module_runs;
  // Runs after every module of lower order: any service they added is there.
  EXPECT_EQ(nullptr, modem.FindService(echo::kServiceId));
  echo::AddTo(modem);
}
MODEMSIM_MODULE("zz-test-module", 1000, TestModule);

TEST(ModuleTest, StandardModemRunsEveryRegisteredModuleInOrder) {
  const auto names = modemsim::RegisteredModules();
  ASSERT_FALSE(names.empty());
  EXPECT_EQ("zz-test-module", names.back());
  auto modem = modemsim::CreateStandardModem("");
  EXPECT_EQ(1, g_module_runs);
  EXPECT_NE(nullptr, modem->FindService(echo::kServiceId));
}

}  // namespace
