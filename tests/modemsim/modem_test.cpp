// The simulated modem seen from the server side (a recording sink instead of the client
// library), its state store, control commands and module registry.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "modemsim/control.h"
#include "modemsim/echo_service.h"
#include "modemsim/modem.h"
#include "modemsim/trace.h"
#include "qmi_client.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

namespace echo = modemsim::echo;
namespace wire = qmi_host::wire;
using namespace std::chrono_literals;

// Records what the modem sends to one client: its messages, and a log of services going up and
// down and of transaction errors.
class RecordingSink : public qmi_host::ClientSink {
 public:
  void OnServiceUp(uint32_t service, uint32_t) override { Note("up " + std::to_string(service)); }
  void OnServiceDown(uint32_t service, uint32_t) override {
    Note("down " + std::to_string(service));
  }
  void OnMessage(uint32_t, const uint8_t *msg, size_t len) override {
    std::lock_guard<std::mutex> lock(mu_);
    msgs_.emplace_back(msg, msg + len);
    cv_.notify_all();
  }
  void OnTxnError(uint32_t, uint16_t txn, int error) override {
    Note("txn " + std::to_string(txn) + " error " + std::to_string(error));
  }

  // The messages so far, once there are `n` of them (or after 3 s).
  std::vector<std::vector<uint8_t>> WaitMessages(size_t n) {
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait_for(lock, 3s, [&] { return msgs_.size() >= n; });
    return msgs_;
  }
  std::vector<std::string> log() {
    std::lock_guard<std::mutex> lock(mu_);
    return log_;
  }

 private:
  void Note(std::string line) {
    std::lock_guard<std::mutex> lock(mu_);
    log_.push_back(std::move(line));
  }
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<std::vector<uint8_t>> msgs_;
  std::vector<std::string> log_;
};

std::vector<uint8_t> Request(uint16_t txn, uint16_t msg_id, std::vector<uint8_t> tlvs) {
  std::vector<uint8_t> msg(wire::kQmiHeaderLen + tlvs.size());
  wire::PutQmiHeader(msg.data(), {wire::kQmiRequest, txn, msg_id, (uint16_t)tlvs.size()});
  std::copy(tlvs.begin(), tlvs.end(), msg.begin() + wire::kQmiHeaderLen);
  return msg;
}

// The result TLV (0x02) of a response: {result, error}.
std::pair<int, int> ResultOf(const std::vector<uint8_t> &m) {
  for (size_t pos = wire::kQmiHeaderLen; pos + 3 <= m.size();
       pos += 3 + wire::GetU16(&m[pos + 1])) {
    if (m[pos] == 0x02 && pos + 7 <= m.size())
      return {wire::GetU16(&m[pos + 3]), wire::GetU16(&m[pos + 5])};
  }
  return {-1, -1};
}

class ModemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    echo::AddTo(modem_);
    modem_.Attach(&sink_);
    ASSERT_EQ(QMI_NO_ERR, modem_.Open(&sink_, echo::kServiceId, QMI_CLIENT_INSTANCE_ANY, &client_));
  }
  void TearDown() override { modem_.Detach(&sink_); }

  int Deliver(uint32_t client, const std::vector<uint8_t> &msg, size_t len = SIZE_MAX) {
    return modem_.Deliver(client, msg.data(), std::min(len, msg.size()));
  }

  const std::string id_ = std::to_string(echo::kServiceId);
  const std::vector<uint8_t> echo_ = Request(7, echo::kEcho, {0x01, 0x04, 0x00, 1, 2, 3, 4});
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
      {"mandatory TLV missing", echo::kEcho, {}, QMI_IDL_LIB_MISSING_TLV, 1},
      {"TLV past the end", echo::kEcho, {1, 9, 0, 1, 2, 3, 4}, QMI_IDL_LIB_LENGTH_INCONSISTENCY, 1},
      {"message not in the table", 0x0042, {}, QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND, 0x005E},
      {"result fault", echo::kEcho, {1, 4, 0, 1, 2, 3, 4}, 0, 0x0030, true},
  };
  uint16_t txn = 10;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    modem_.ClearReceived(echo::kServiceId);
    if (row.fault) {
      modem_.SetFault(echo::kServiceId, row.msg_id,
                      modemsim::Fault{modemsim::Fault::kResult, row.error, 0, 1});
    }
    ASSERT_EQ(QMI_NO_ERR, Deliver(client_, Request(++txn, row.msg_id, row.tlvs)));
    const auto msgs = sink_.WaitMessages(txn - 10);
    ASSERT_EQ(size_t(txn - 10), msgs.size());
    auto got = modem_.ReceivedBy(echo::kServiceId);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(row.decode_status, got[0].decode_status);
    EXPECT_EQ(row.tlvs, got[0].tlvs);
    // The answer: a response to this transaction with result 1 and the row's error.
    wire::QmiHeader hdr{};
    ASSERT_TRUE(wire::ParseQmiHeader(msgs.back().data(), msgs.back().size(), &hdr));
    EXPECT_EQ(wire::kQmiResponse, hdr.type);
    EXPECT_EQ(txn, hdr.txn);
    EXPECT_EQ(row.msg_id, hdr.msg_id);
    EXPECT_EQ(std::make_pair(1, int(row.error)), ResultOf(msgs.back()));
  }
}

TEST_F(ModemTest, DeliverRefusesMalformedHeadersAndUnknownClients) {
  auto msg = echo_;
  EXPECT_EQ(QMI_CLIENT_PARAM_ERR, Deliver(client_, msg, 6));
  msg[5] = 9;  // length field disagrees with the message
  EXPECT_EQ(QMI_CLIENT_PARAM_ERR, Deliver(client_, msg));
  msg[5] = 7;
  msg[0] = wire::kQmiIndication;
  EXPECT_EQ(QMI_CLIENT_PARAM_ERR, Deliver(client_, msg));
  EXPECT_EQ(QMI_SERVICE_ERR, Deliver(client_ + 100, echo_));
  EXPECT_EQ(QMI_NO_ERR, Deliver(client_, echo_));
}

TEST_F(ModemTest, FaultCountsAreConsumedPerMatchingRequest) {
  modem_.SetFault(echo::kServiceId, modemsim::kAnyMessage,
                  modemsim::Fault{modemsim::Fault::kTransportError, QMI_XPORT_BUSY_ERR, 0, 2});
  for (int i = 0; i < 3; ++i) ASSERT_EQ(QMI_NO_ERR, Deliver(client_, echo_));
  ASSERT_TRUE(modem_.WaitReceived(echo::kServiceId, 3, 3000));
  const std::string busy = "txn 7 error " + std::to_string(QMI_XPORT_BUSY_ERR);
  EXPECT_EQ((std::vector<std::string>{"up " + id_, busy, busy}), sink_.log());
  EXPECT_EQ(1u, sink_.WaitMessages(1).size());
}

// A trace reader that never reads keeps what fits and counts the rest; the modem answers on.
TEST_F(ModemTest, ASlowTraceReaderLosesEntriesNotTheModem) {
  modemsim::TraceReader reader({}, 2);
  modem_.AddTraceReader(&reader);
  for (int i = 0; i < 10; ++i) ASSERT_EQ(QMI_NO_ERR, Deliver(client_, echo_));
  EXPECT_EQ(10u, sink_.WaitMessages(10).size());
  std::vector<qmi_trace::Entry> got;
  uint64_t dropped = 0;
  reader.Take(&got, &dropped, 0ms);
  modem_.RemoveTraceReader(&reader);
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(18u, dropped);
  EXPECT_TRUE(got[0].received && got[0].type == QMI_IDL_REQUEST);
  EXPECT_TRUE(!got[1].received && got[1].type == QMI_IDL_RESPONSE && got[1].txn == 7);
}

TEST_F(ModemTest, RestartReportsDownThenUpAndDropsClients) {
  std::vector<uint32_t> gone;
  int restarts = 0;
  modemsim::Service *service = modem_.FindService(echo::kServiceId);
  ASSERT_NE(nullptr, service);
  service->OnClientGone([&](uint32_t c) { gone.push_back(c); });
  service->OnRestart([&] { ++restarts; });
  ASSERT_EQ(QMI_NO_ERR, modem_.Restart(echo::kServiceId));
  EXPECT_EQ((std::vector<std::string>{"up " + id_, "down " + id_, "up " + id_}), sink_.log());
  EXPECT_EQ(std::vector<uint32_t>{client_}, gone);
  EXPECT_EQ(1, restarts);
  EXPECT_TRUE(modem_.Clients(echo::kServiceId).empty());
  EXPECT_EQ(QMI_SERVICE_ERR, Deliver(client_, echo_));
  EXPECT_EQ(QMI_SERVICE_ERR, modem_.Restart(0x4242));
}

// With a down time the service comes back later; meanwhile it opens no client.
TEST_F(ModemTest, RestartWithDownTimeComesBackLater) {
  ASSERT_EQ(QMI_NO_ERR, modem_.Restart(echo::kServiceId, 100));
  uint32_t c = 0;
  EXPECT_EQ(QMI_SERVICE_ERR, modem_.Open(&sink_, echo::kServiceId, QMI_CLIENT_INSTANCE_ANY, &c));
  tarvik_test::WaitUntil([&] { return modem_.Open(&sink_, echo::kServiceId, 0, &c) == QMI_NO_ERR; },
                         1000ms);
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

// The same key in two namespaces, a key that looks like a path, empty values; with a directory,
// what one instance put a later one reads.
TEST(StateStoreTest, KeepsNamespacesApartAndPersistsWithADirectory) {
  const std::string dir = tarvik_test::ScratchDir() + "/state";
  const std::string path_key = "/nv/item_files/modem/../../etc/x";
  for (bool persistent : {false, true}) {
    SCOPED_TRACE(persistent ? "directory" : "memory");
    auto store = std::make_unique<modemsim::StateStore>(persistent ? dir : "");
    EXPECT_EQ(persistent, store->persistent());
    ASSERT_TRUE(store->Put("efs", path_key, "abc", 3));
    ASSERT_TRUE(store->Put("nv", "550", "\x00\x01", 2));
    ASSERT_TRUE(store->Put("nv", "empty", "", 0));
    ASSERT_TRUE(store->Put("a", "550", "1", 1));
    if (persistent) store = std::make_unique<modemsim::StateStore>(dir);
    std::vector<uint8_t> value;
    ASSERT_TRUE(store->Get("efs", path_key, &value));
    EXPECT_EQ((std::vector<uint8_t>{'a', 'b', 'c'}), value);
    ASSERT_TRUE(store->Get("nv", "550", &value));
    EXPECT_EQ((std::vector<uint8_t>{0, 1}), value);
    ASSERT_TRUE(store->Get("a", "550", &value));
    EXPECT_EQ((std::vector<uint8_t>{'1'}), value);
    ASSERT_TRUE(store->Get("nv", "empty", &value));
    EXPECT_TRUE(value.empty());
    EXPECT_FALSE(store->Get("c", "550", &value));
    EXPECT_EQ((std::vector<std::string>{path_key}), store->Keys("efs"));
    EXPECT_EQ((std::vector<std::string>{"550", "empty"}), store->Keys("nv"));
    EXPECT_TRUE(store->Erase("nv", "550"));
    EXPECT_FALSE(store->Get("nv", "550", &value));
    EXPECT_FALSE(store->Erase("nv", "550"));
  }
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
      {{"present", "0xF0E"}, 0},
      {{"restart", "0xF0E", "5"}, 0},
      {{"absent", "0xF0E"}, 0},  // outlasts the restart: status below says down
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
