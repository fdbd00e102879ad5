// The QMI client library over both transports, against a simulated modem with the echo service:
// the same cases run in-process and over the Unix socket (an in-test socket server).
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "modemsim/echo_service.h"
#include "modemsim/modem.h"
#include "modemsim/socket_server.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

using modemsim::Fault;
namespace echo = modemsim::echo;
using namespace std::chrono_literals;

// A service without messages that no modem offers.
const qmi_idl_service_object kOtherService = {
    6, 1, 0, 0x0F0F, 0, {0, 0, 0}, {nullptr, nullptr, nullptr}, nullptr, nullptr};

// What the callbacks saw, filled on the client library's thread.
struct Observed {
  std::mutex mu;
  std::condition_variable cv;
  std::vector<uint32_t> seqs;
  std::vector<int> errors;
  std::thread::id thread;

  template <typename Pred>
  bool WaitFor(Pred pred) {
    std::unique_lock<std::mutex> lock(mu);
    return cv.wait_for(lock, 3s, pred);
  }
};

void IndCb(qmi_client_type handle, unsigned msg_id, void *buf, unsigned len, void *data) {
  auto *o = static_cast<Observed *>(data);
  echo::SeqInd ind{};
  const int rc =
      qmi_client_message_decode(handle, QMI_IDL_INDICATION, msg_id, buf, len, &ind, sizeof(ind));
  std::lock_guard<std::mutex> lock(o->mu);
  o->thread = std::this_thread::get_id();
  o->seqs.push_back(rc == QMI_NO_ERR && msg_id == echo::kSeqInd ? ind.seq : 0xDEAD);
  o->cv.notify_all();
}

void ErrCb(qmi_client_type, qmi_client_error_type error, void *data) {
  auto *o = static_cast<Observed *>(data);
  std::lock_guard<std::mutex> lock(o->mu);
  o->thread = std::this_thread::get_id();
  o->errors.push_back(error);
  o->cv.notify_all();
}

class ClientTest : public ::testing::TestWithParam<const char *> {
 protected:
  void SetUp() override {
    echo::AddTo(modem_);
    if (std::string(GetParam()) == "inproc") {
      modem_.ServeInProcess();
      ASSERT_EQ(QMI_NO_ERR, qmi_client_host_select_transport("inproc"));
    } else {
      server_ = std::make_unique<modemsim::SocketServer>(modem_);
      const std::string path = tarvik_test::ScratchDir() + "/modem.sock";
      ASSERT_TRUE(server_->Start(path));
      ASSERT_EQ(QMI_NO_ERR, qmi_client_host_select_transport(("unix:" + path).c_str()));
    }
  }

  void TearDown() override {
    for (auto h : handles_) qmi_client_release(h);
  }

  qmi_client_type Open(Observed *observed = nullptr, uint32_t timeout_ms = 2000) {
    qmi_client_type h = nullptr;
    EXPECT_EQ(QMI_NO_ERR, qmi_client_init_instance(echo::ServiceObject(), QMI_CLIENT_INSTANCE_ANY,
                                                   observed ? IndCb : nullptr, observed, nullptr,
                                                   timeout_ms, &h));
    if (h != nullptr) handles_.push_back(h);
    return h;
  }

  // An echo of `value`; its response lands in `resp` when given.
  static int Echo(qmi_client_type h, uint32_t value, unsigned timeout_ms = 2000,
                  echo::EchoResp *resp = nullptr) {
    echo::EchoReq req{};
    echo::EchoResp scratch{};
    req.value = value;
    return qmi_client_send_msg_sync(h, echo::kEcho, &req, sizeof(req), resp ? resp : &scratch,
                                    sizeof(scratch), timeout_ms);
  }

  // Service events and late responses travel asynchronously: polls `pred` for up to 3 s.
  template <typename Pred>
  static bool Eventually(Pred pred) {
    return tarvik_test::WaitUntil(pred, 3000ms);
  }
  static bool ServersSeen(unsigned count) {
    return Eventually([count] {
      unsigned n = 0;
      qmi_client_get_service_list(echo::ServiceObject(), nullptr, nullptr, &n);
      return n == count;
    });
  }

  // An echo on `h` that the modem receives and never answers, still waiting.
  std::future<int> UnansweredEcho(qmi_client_type h) {
    modem_.SetFault(echo::kServiceId, echo::kEcho, Fault{Fault::kNoAnswer, 0, 0, 1});
    auto waiter = std::async(std::launch::async, [h] { return Echo(h, 1, 10000); });
    EXPECT_TRUE(modem_.WaitReceived(echo::kServiceId, 1, 3000));
    return waiter;
  }

  modemsim::Modem modem_;
  std::unique_ptr<modemsim::SocketServer> server_;
  std::vector<qmi_client_type> handles_;
};

TEST_P(ClientTest, EveryElementKindTravelsBothWays) {
  qmi_client_type h = Open();
  ASSERT_NE(nullptr, h);
  echo::EchoReq req;
  memset(&req, 0, sizeof(req));  // padding too: the record is compared byte for byte below
  req.value = 0xA1B2C3D4;
  req.opt_valid = 1;
  req.opt = -123456;
  req.data_valid = 1;
  req.data_len = echo::kMaxData;
  for (uint32_t i = 0; i < req.data_len; ++i) req.data[i] = (uint8_t)(i * 7);
  req.fixed_valid = 1;
  memcpy(req.fixed, "\x01\x02\x03\x04\x05\x06", 6);
  req.name_valid = 1;
  strcpy(req.name, "rmnet_data0");
  req.inner_valid = 1;
  req.inner.tag = 9;  // field by field: copying a temporary would copy its padding too
  req.inner.level = -2;
  req.inner.stamp = 0x0102030405060708ull;
  req.inner.list_len = 3;
  for (uint16_t i = 0; i < 3; ++i) req.inner.list[i] = static_cast<uint16_t>(11 * (i + 1));
  echo::EchoResp resp{};
  ASSERT_EQ(QMI_NO_ERR,
            qmi_client_send_msg_sync(h, echo::kEcho, &req, sizeof(req), &resp, sizeof(resp), 2000));
  EXPECT_EQ(0, resp.resp.result);
  EXPECT_EQ(1, resp.value_valid);
  EXPECT_EQ(req.value, resp.value);
  // The fields after `value` lie alike in both records up to `inner`, padding (zero) included.
  EXPECT_EQ(0,
            memcmp(&req.opt_valid, &resp.opt_valid,
                   offsetof(echo::EchoReq, inner_valid) + 1 - offsetof(echo::EchoReq, opt_valid)));
  EXPECT_EQ(0, memcmp(&req.inner, &resp.inner, sizeof req.inner));

  // What the modem received, decoded with the same table.
  auto got = modem_.ReceivedBy(echo::kServiceId);
  ASSERT_EQ(1u, got.size());
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR, got[0].decode_status);
  EXPECT_EQ(0, memcmp(&req, &got[0].As<echo::EchoReq>(), sizeof(req)));
  EXPECT_NE(0, got[0].txn);
}

TEST_P(ClientTest, TimeOutThenLateResponseIsDroppedAndCounted) {
  qmi_client_type h = Open();
  ASSERT_NE(nullptr, h);
  modem_.SetFault(echo::kServiceId, echo::kEcho, Fault{Fault::kDelay, 0, 300, 1});
  const uint64_t dropped = qmi_client_host_dropped_responses();
  echo::EchoResp resp{};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(QMI_TIMEOUT_ERR, Echo(h, 1, 50, &resp));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 250ms);
  ASSERT_TRUE(Eventually([&] { return qmi_client_host_dropped_responses() > dropped; }))
      << "the late response was not dropped";
  // The next request gets its own answer, not the stale one.
  EXPECT_EQ(QMI_NO_ERR, Echo(h, 2, 2000, &resp));
  EXPECT_EQ(2u, resp.value);
}

TEST_P(ClientTest, RestartWakesWaiterAndFiresErrorCallbackOnce) {
  Observed observed;
  qmi_client_type h = Open();
  ASSERT_NE(nullptr, h);
  ASSERT_EQ(QMI_NO_ERR, qmi_client_register_error_cb(h, ErrCb, &observed));
  auto waiter = UnansweredEcho(h);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(QMI_NO_ERR, modem_.Restart(echo::kServiceId));
  ASSERT_EQ(std::future_status::ready, waiter.wait_for(3s));
  EXPECT_EQ(QMI_SERVICE_ERR, waiter.get());
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  ASSERT_TRUE(observed.WaitFor([&] { return !observed.errors.empty(); }));
  std::this_thread::sleep_for(50ms);
  {
    std::lock_guard<std::mutex> lock(observed.mu);
    EXPECT_EQ(std::vector<int>{QMI_SERVICE_ERR}, observed.errors);
    EXPECT_NE(std::this_thread::get_id(), observed.thread);
  }
  // The handle stays dead although the service is back; a new client works.
  echo::EchoResp resp{};
  EXPECT_EQ(QMI_SERVICE_ERR, Echo(h, 2, 1000));
  EXPECT_EQ(QMI_SERVICE_ERR, qmi_client_register_error_cb(h, ErrCb, &observed));
  qmi_client_type again = Open();
  ASSERT_NE(nullptr, again);
  EXPECT_EQ(QMI_NO_ERR, Echo(again, 3, 2000, &resp));
  EXPECT_EQ(3u, resp.value);
}

// While the service is absent: an instance times out, the list is empty and a notifier's signal
// stays down. When it appears, a waiting instance and a waiting signal wake; once it is gone
// again, the signal falls.
TEST_P(ClientTest, ClientsAndNotifierWaitForAServiceThatAppearsLater) {
  ASSERT_EQ(QMI_NO_ERR, modem_.SetPresent(echo::kServiceId, false));
  ASSERT_TRUE(ServersSeen(0));
  qmi_client_os_params sig;
  memset(&sig, 0, sizeof(sig));
  qmi_client_type notifier = nullptr, h = nullptr;
  ASSERT_EQ(QMI_NO_ERR, qmi_client_notifier_init(echo::ServiceObject(), &sig, &notifier));
  handles_.push_back(notifier);
  EXPECT_EQ(QMI_TIMEOUT_ERR, qmi_cci_os_signal_wait(&sig, 20));
  EXPECT_EQ(1, sig.timed_out);
  EXPECT_EQ(QMI_TIMEOUT_ERR,
            qmi_client_init_instance(echo::ServiceObject(), QMI_CLIENT_INSTANCE_ANY, nullptr,
                                     nullptr, nullptr, 30, &h));
  unsigned num_services = 99, num_entries = 4;
  EXPECT_EQ(QMI_SERVICE_ERR,
            qmi_client_get_service_list(echo::ServiceObject(), nullptr, nullptr, &num_services));
  EXPECT_EQ(0u, num_services);

  auto signalled =
      std::async(std::launch::async, [&] { return qmi_cci_os_signal_wait(&sig, 3000); });
  auto appear = std::async(std::launch::async, [&] {
    std::this_thread::sleep_for(150ms);
    return modem_.SetPresent(echo::kServiceId, true);
  });
  const auto start = std::chrono::steady_clock::now();
  h = Open(nullptr, 5000);
  ASSERT_NE(nullptr, h);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 100ms);
  EXPECT_EQ(QMI_NO_ERR, Echo(h, 5));
  EXPECT_EQ(QMI_NO_ERR, signalled.get());
  EXPECT_EQ(QMI_NO_ERR, appear.get());
  EXPECT_EQ(0, sig.timed_out);
  EXPECT_EQ(1, sig.sig_set);  // set while a server is up; the wait does not clear it

  qmi_service_info infos[4];
  ASSERT_EQ(QMI_NO_ERR,
            qmi_client_get_service_list(echo::ServiceObject(), infos, &num_entries, &num_services));
  EXPECT_EQ(1u, num_services);
  ASSERT_EQ(1u, num_entries);
  qmi_client_type from_info = nullptr;
  ASSERT_EQ(QMI_NO_ERR, qmi_client_init(&infos[0], echo::ServiceObject(), nullptr, nullptr, nullptr,
                                        &from_info));
  handles_.push_back(from_info);
  EXPECT_EQ(QMI_NO_ERR, Echo(from_info, 6));
  // An info of another service is refused.
  qmi_client_type other = nullptr;
  EXPECT_EQ(QMI_CLIENT_PARAM_ERR,
            qmi_client_init(&infos[0], &kOtherService, nullptr, nullptr, nullptr, &other));
  // The last server gone, a wait no longer returns early.
  ASSERT_EQ(QMI_NO_ERR, modem_.SetPresent(echo::kServiceId, false));
  ASSERT_TRUE(ServersSeen(0));
  EXPECT_EQ(QMI_TIMEOUT_ERR, qmi_cci_os_signal_wait(&sig, 20));
}

// A malformed indication still reaches the callback (whose decode fails), then the ones a
// request asks for, in order, on the library's thread.
TEST_P(ClientTest, IndicationsArriveInOrderOnTheLibraryThread) {
  Observed observed;
  qmi_client_type h = Open(&observed);
  ASSERT_NE(nullptr, h);
  const uint8_t bad[] = {0x01, 0x10, 0x00, 0x01};  // TLV claims 16 bytes, 1 present
  ASSERT_EQ(1, modem_.PushRawIndication(echo::kServiceId, echo::kSeqInd, bad, sizeof(bad)));
  ASSERT_TRUE(observed.WaitFor([&] { return !observed.seqs.empty(); }));
  echo::NotifyReq req{5};
  echo::NotifyResp resp{};
  ASSERT_EQ(QMI_NO_ERR, qmi_client_send_msg_sync(h, echo::kNotify, &req, sizeof(req), &resp,
                                                 sizeof(resp), 2000));
  ASSERT_TRUE(observed.WaitFor([&] { return observed.seqs.size() >= 6; }));
  std::lock_guard<std::mutex> lock(observed.mu);
  EXPECT_EQ((std::vector<uint32_t>{0xDEAD, 0, 1, 2, 3, 4}), observed.seqs);
  EXPECT_NE(std::this_thread::get_id(), observed.thread);
}

TEST_P(ClientTest, FaultsReachTheCallerAsTransportErrorOrModemResult) {
  qmi_client_type h = Open();
  ASSERT_NE(nullptr, h);
  echo::EchoResp resp{};
  modem_.SetFault(echo::kServiceId, echo::kEcho,
                  Fault{Fault::kTransportError, QMI_CLIENT_TRANSPORT_ERR, 0, 1});
  EXPECT_EQ(QMI_CLIENT_TRANSPORT_ERR, Echo(h, 1));
  modem_.SetFault(echo::kServiceId, echo::kEcho, Fault{Fault::kResult, 0x0030, 0, 1});
  ASSERT_EQ(QMI_NO_ERR, Echo(h, 2, 2000, &resp));
  EXPECT_EQ(1, resp.resp.result);
  EXPECT_EQ(0x0030, resp.resp.error);
  EXPECT_EQ(0, resp.value_valid);  // the handler did not run
  // Both faults were one-shot.
  ASSERT_EQ(QMI_NO_ERR, Echo(h, 3, 2000, &resp));
  EXPECT_EQ(0, resp.resp.result);
  EXPECT_EQ(3u, resp.value);
}

TEST_P(ClientTest, ReleaseStopsCallbacksAndMayRunInsideOne) {
  struct Ctx {
    std::atomic<int> after_release{0};
    std::atomic<bool> released{false};
    std::promise<void> go;  // the first callback holds the queue until the send is back
    std::promise<int> rc;
  } ctx;
  qmi_client_type h = nullptr;
  ASSERT_EQ(QMI_NO_ERR,
            qmi_client_init_instance(
                echo::ServiceObject(), QMI_CLIENT_INSTANCE_ANY,
                [](qmi_client_type self, unsigned, void *, unsigned, void *data) {
                  auto *c = static_cast<Ctx *>(data);
                  if (c->released) {
                    ++c->after_release;
                    return;
                  }
                  c->go.get_future().wait();
                  c->released = true;
                  c->rc.set_value(qmi_client_release(self));  // from the library's thread
                },
                &ctx, nullptr, 2000, &h));
  echo::NotifyReq req{50};
  echo::NotifyResp resp{};
  ASSERT_EQ(QMI_NO_ERR, qmi_client_send_msg_sync(h, echo::kNotify, &req, sizeof(req), &resp,
                                                 sizeof(resp), 2000));
  ctx.go.set_value();
  auto rc = ctx.rc.get_future();
  ASSERT_EQ(std::future_status::ready, rc.wait_for(3s)) << "release inside a callback hung";
  EXPECT_EQ(QMI_NO_ERR, rc.get());
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(0, ctx.after_release.load());  // 49 indications were queued behind the release
  EXPECT_EQ(QMI_CLIENT_INVALID_CLNT, Echo(h, 1, 100));
}

TEST_P(ClientTest, ReleaseFromAnotherThreadWakesAWaitingSend) {
  qmi_client_type h = Open();
  ASSERT_NE(nullptr, h);
  handles_.clear();  // released below
  auto waiter = UnansweredEcho(h);
  EXPECT_EQ(QMI_NO_ERR, qmi_client_release(h));
  ASSERT_EQ(std::future_status::ready, waiter.wait_for(3s));
  EXPECT_EQ(QMI_CLIENT_INVALID_CLNT, waiter.get());
}

TEST_P(ClientTest, ModemMayAnswerFromItsOwnThread) {
  qmi_client_type h = Open();
  ASSERT_NE(nullptr, h);
  std::thread::id handler_thread;
  modem_.FindService(echo::kServiceId)->Handle(echo::kEcho, [&](modemsim::Call &call) {
    handler_thread = std::this_thread::get_id();
    call.Response<echo::EchoResp>().value_valid = 1;
    call.Response<echo::EchoResp>().value = call.Request<echo::EchoReq>().value + 1;
  });
  echo::EchoResp resp{};
  for (bool on_worker : {false, true}) {
    SCOPED_TRACE(on_worker ? "on the modem's thread" : "on the delivering thread");
    modem_.SetAnswerOnWorker(on_worker);
    ASSERT_EQ(QMI_NO_ERR, Echo(h, 41, 2000, &resp));
    EXPECT_EQ(42u, resp.value);
    std::lock_guard<std::mutex> lock(modem_.FindService(echo::kServiceId)->mutex());
    // In-process without the worker the caller's own thread runs the handler.
    const bool on_caller = handler_thread == std::this_thread::get_id();
    EXPECT_EQ(!on_worker && std::string(GetParam()) == "inproc", on_caller);
  }
}

TEST_P(ClientTest, BadArgumentsAreRefusedWithoutSending) {
  qmi_client_type h = Open();
  ASSERT_NE(nullptr, h);
  echo::EchoReq req{};
  echo::EchoResp resp{};
  struct Row {
    const char *name;
    unsigned msg_id;
    unsigned req_len;
    void *resp;
    unsigned resp_len;
    int expected;
  } rows[] = {
      {"unknown message", 0x0077, sizeof(req), &resp, sizeof(resp),
       QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND},
      {"short request record", echo::kEcho, 4, &resp, sizeof(resp), QMI_CLIENT_PARAM_ERR},
      {"short response record", echo::kEcho, sizeof(req), &resp, 8, QMI_CLIENT_PARAM_ERR},
      {"no response record", echo::kEcho, sizeof(req), nullptr, sizeof(resp), QMI_CLIENT_PARAM_ERR},
      {"message id beyond 16 bits", 0x10001, sizeof(req), &resp, sizeof(resp),
       QMI_CLIENT_PARAM_ERR},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.expected, qmi_client_send_msg_sync(h, row.msg_id, &req, row.req_len, row.resp,
                                                     row.resp_len, 100));
  }
  req.data_valid = 1;
  req.data_len = echo::kMaxData + 1;
  EXPECT_EQ(QMI_IDL_LIB_ARRAY_TOO_BIG,
            qmi_client_send_msg_sync(h, echo::kEcho, &req, sizeof(req), &resp, sizeof(resp), 100));
  EXPECT_TRUE(modem_.ReceivedBy(echo::kServiceId).empty());
  EXPECT_EQ(QMI_CLIENT_INVALID_CLNT, qmi_client_release(nullptr));
  EXPECT_EQ(QMI_CLIENT_INVALID_CLNT, qmi_client_register_error_cb(nullptr, ErrCb, nullptr));
}

INSTANTIATE_TEST_SUITE_P(Transports, ClientTest, ::testing::Values("inproc", "unix"),
                         [](const ::testing::TestParamInfo<const char *> &info) {
                           return std::string(info.param);
                         });

}  // namespace
