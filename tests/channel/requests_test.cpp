// Synchronous requests over the vendor channel against the simulated modem: bounds, payload
// copy rules, the service verdict, the retry policy, the lifecycle, serialisation of threads
// and the behaviour behind a hung request.
#include <string.h>

#include <chrono>
#include <future>
#include <numeric>
#include <thread>

#include "channel_env.h"
#include "qmi_client.h"
#include "syslog_capture.h"

namespace channel_test {
namespace {

using modemsim::Fault;
using Clock = std::chrono::steady_clock;
using tarvik_test::SyslogContains;
using tarvik_test::SyslogCount;

constexpr uint32_t kId = 0x42;

std::vector<uint8_t> Pattern(size_t n, uint8_t seed) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(seed + i * 7);
  return v;
}

using RequestsTest = ChannelTest;
// The watchdog's POSIX timer fires in these (label posix_timer, see tests/CMakeLists.txt).
using FiringWatchdog = ChannelTest;

// The next `count` generic requests meet `kind` (a transport error carries `error`).
void FailGeneric(modemsim::Modem &modem, Fault::Kind kind, int count, int error = 0) {
  Fault fault;
  fault.kind = kind;
  fault.error = error;
  fault.count = count;
  modem.SetFault(modemsim::extend::kServiceId, TARVIK_EXTEND_QMI_GENERIC_MSG_V01, fault);
}

TEST_F(RequestsTest, PayloadBoundsAre550ForRequestAndCapacity) {
  Answer(kId, 0, {9});
  struct Row {
    const char *name;
    uint32_t req_len;
    uint32_t capacity;
    int status;
  };
  const Row rows[] = {
      {"request 550, capacity 550", 550, 550, 0},
      {"request 551", 551, 16, -1},
      {"capacity 551", 16, 551, -1},
      {"request 0", 0, 16, 0},
  };
  std::vector<uint8_t> req(600, 0x11);
  size_t sent = 0;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<uint8_t> resp(600, 0);
    uint32_t len = row.capacity;
    EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, req.data(), row.req_len, resp.data(), &len),
              row.status);
    if (row.status == 0) {
      ++sent;
      EXPECT_EQ(len, 1u);
      auto got = Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01);
      ASSERT_EQ(got.size(), sent);
      const auto &rec = got.back().As<tarvik_extend_qmi_req_msg_v01>();
      EXPECT_EQ(rec.id, kId);
      EXPECT_EQ(rec.data_len, row.req_len);
      EXPECT_EQ(rec.data_valid, 1);
      EXPECT_EQ(memcmp(rec.data, req.data(), row.req_len), 0);
    } else {
      EXPECT_EQ(len, row.capacity) << "length written on failure";
      EXPECT_EQ(Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01).size(), sent) << "sent anyway";
    }
  }
  EXPECT_TRUE(SyslogContains("tarvik_extend_qmi_send_sync: put data_len 551 > max 550"));
  EXPECT_TRUE(SyslogContains("put data_len 16 > max 550"));

  uint32_t len = 16;
  uint8_t buf[16];
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, nullptr, 1, buf, &len), -1);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, buf, 1, nullptr, &len), -1);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, buf, 1, buf, nullptr), -1);
  EXPECT_TRUE(SyslogContains(",  put Invalid param"));
  EXPECT_EQ(Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01).size(), sent);
}

TEST_F(RequestsTest, ResponsePayloadIsCutToCapacityOrReportedAsAbsent) {
  const auto forty = Pattern(40, 3);
  Answer(1, 0, forty);
  Answer(2, 0, forty, /*data_valid=*/false);
  struct Row {
    const char *name;
    uint32_t id;
    uint32_t capacity;
    uint32_t want_len;
  };
  const Row rows[] = {
      {"longer than capacity", 1, 16, 16},
      {"shorter than capacity", 1, 100, 40},
      {"exactly the capacity", 1, 40, 40},
      {"no TLV 0x10", 2, 100, 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<uint8_t> resp(200, 0xEE);
    uint32_t len = row.capacity;
    uint8_t req = 1;
    ASSERT_EQ(tarvik_extend_qmi_send_sync(row.id, &req, 1, resp.data(), &len), 0);
    EXPECT_EQ(len, row.want_len);
    EXPECT_EQ(memcmp(resp.data(), forty.data(), row.want_len), 0);
    // Nothing is written past what was copied.
    for (size_t i = row.want_len; i < resp.size(); ++i) {
      ASSERT_EQ(resp[i], 0xEE) << "byte " << i;
    }
  }
}

TEST_F(RequestsTest, ServiceVerdictBecomesMinusThreeAndLeavesBuffersAlone) {
  Answer(kId, 7, Pattern(10, 1));
  uint8_t resp[32];
  memset(resp, 0xEE, sizeof(resp));
  uint32_t len = sizeof(resp);
  uint8_t req = 1;
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), -3);
  EXPECT_EQ(len, sizeof(resp));
  EXPECT_EQ(resp[0], 0xEE);
  EXPECT_TRUE(SyslogContains("7 QMI service framework error. Check client", 3));
  // A request id the modem has no handler for is refused the same way.
  EXPECT_EQ(tarvik_extend_qmi_send_sync(0x77, &req, 1, resp, &len), -3);
  EXPECT_EQ(Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01).size(), 2u);
}

TEST_F(RequestsTest, TimeOutCostsOneAttemptAndNoReconnect) {
  Answer(kId, 0, {1, 2});
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  ASSERT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), 0);
  const auto clients = Clients();
  ASSERT_EQ(clients.size(), 1u);
  ASSERT_EQ(tarvik_extend_qmi_register(2, IndRecorder::Record, 0), 0);

  FailGeneric(*modem_, Fault::kNoAnswer, 1);
  const auto start = Clock::now();
  len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, &req, 1, resp, &len, 300), -3);
  EXPECT_GE(ElapsedMs(start), 290);
  EXPECT_LT(ElapsedMs(start), 2500);
  EXPECT_EQ(len, sizeof(resp));
  EXPECT_EQ(Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01).size(), 2u) << "one attempt only";
  EXPECT_EQ(Clients(), clients) << "reconnected";
  EXPECT_TRUE(SyslogContains("will not reinit tarvik qmi"));
  EXPECT_FALSE(SyslogContains("will reinit this qmi client"));
  // The handler survived: the channel was not closed.
  EXPECT_EQ(tarvik_extend_qmi_register(2, IndRecorder::Record, 0), -4);
}

TEST_F(RequestsTest, OtherFailureReconnectsRetriesOnceWithFullTimeOutAndForgetsHandlers) {
  Answer(kId, 0, {5});
  ASSERT_EQ(tarvik_extend_qmi_register(2, IndRecorder::Record, 1), 0);
  const auto before = Clients();
  ASSERT_EQ(before.size(), 1u);

  FailGeneric(*modem_, Fault::kTransportError, 1, QMI_CLIENT_TRANSPORT_ERR);
  const size_t sends_before = SendTimeouts().size();
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, &req, 1, resp, &len, 200), 0);
  EXPECT_EQ(len, 1u);
  EXPECT_EQ(resp[0], 5);

  // The caller's time-out for the first send, the full 3000 ms for the retry.
  const auto timeouts = SendTimeouts();
  ASSERT_EQ(timeouts.size(), sends_before + 2);
  EXPECT_EQ(timeouts[sends_before], 200u);
  EXPECT_EQ(timeouts[sends_before + 1], 3000u);
  const auto sends = Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01);
  ASSERT_EQ(sends.size(), 2u);
  EXPECT_NE(sends[0].client, sends[1].client) << "the retry went over a new client";
  EXPECT_EQ(sends[1].tlvs, sends[0].tlvs) << "the retry is the same request";
  const auto after = Clients();
  ASSERT_EQ(after.size(), 1u) << "the old client was released";
  EXPECT_NE(after[0], before[0]);
  EXPECT_TRUE(SyslogContains("non QMI_TIMEOUT_ERR, will reinit this qmi client and retry"));
  // The close forgot the event handler: registering again is accepted.
  EXPECT_EQ(tarvik_extend_qmi_register(2, IndRecorder::Record, 1), 0);
}

TEST_F(RequestsTest, FailedRetryReturnsMinusThree) {
  Answer(kId, 0, {5});
  FailGeneric(*modem_, Fault::kTransportError, 2, QMI_CLIENT_TRANSPORT_ERR);
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), -3);
  EXPECT_EQ(Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01).size(), 2u) << "exactly one retry";
  EXPECT_TRUE(SyslogContains("retry to send sync msg failed"));
  // The channel works again afterwards.
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), 0);
}

TEST_F(RequestsTest, LongProcessChecksArgumentsBeforeTheClient) {
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, &req, 1, resp, &len, 0), -1);
  EXPECT_TRUE(SyslogContains("msec can not <= 0"));
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, &req, 1, resp, &len, -5), -1);
  EXPECT_EQ(Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01).size(), 0u);

  // Service absent: no client; null buffers are reported before that.
  ASSERT_EQ(modem_->SetPresent(modemsim::extend::kServiceId, false), 0);
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, nullptr, 1, resp, &len, 100), -1);
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, &req, 1, resp, &len, 100), -2);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, nullptr, 1, resp, &len), -2);
}

TEST_F(RequestsTest, OpenHappensOnce) {
  tarvik_extend_qmi_init();
  tarvik_extend_qmi_init();
  EXPECT_EQ(Clients().size(), 1u);
  EXPECT_EQ(SyslogCount("QMI client inited"), 1u);
  EXPECT_TRUE(SyslogContains("tarvik_extend_qmi_init_do: done, do nothing"));
}

TEST_F(RequestsTest, ForceOnClosedChannelOpensAndForceOnOpenOneReconnects) {
  tarvik_extend_qmi_init_force();
  EXPECT_TRUE(SyslogContains("tarvik_extend_qmi_deinit_do: no init, do nothing"));
  const auto first = Clients();
  ASSERT_EQ(first.size(), 1u);
  ASSERT_EQ(tarvik_extend_qmi_register(3, IndRecorder::Record, 0), 0);
  tarvik_extend_qmi_init_force();
  const auto second = Clients();
  ASSERT_EQ(second.size(), 1u);
  EXPECT_NE(first[0], second[0]);
  EXPECT_EQ(tarvik_extend_qmi_register(3, IndRecorder::Record, 0), 0) << "handler survived";
}

TEST_F(RequestsTest, AbsentServiceCostsAboutOneSecondOfDiscoveryAndReportsNoClient) {
  ASSERT_EQ(modem_->SetPresent(modemsim::extend::kServiceId, false), 0);
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  const auto start = Clock::now();
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), -2);
  EXPECT_GE(ElapsedMs(start), 900);
  EXPECT_EQ(SyslogCount("qmi_client_get_service_list() returned"), 50u);
  EXPECT_TRUE(SyslogContains("QMI client init failed"));
  EXPECT_TRUE(SyslogContains("client_handle is NULL"));

  // The next request tries the whole open again and succeeds once the service is back.
  ASSERT_EQ(modem_->SetPresent(modemsim::extend::kServiceId, true), 0);
  Answer(kId, 0, {4});
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), 0);
  EXPECT_EQ(resp[0], 4);
}

TEST_F(RequestsTest, TraceLinesFollowTheDebugFlag) {
  g_tarvik_extend_debug_flag = 0;
  tarvik_extend_qmi_init();
  tarvik_extend_qmi_init();
  EXPECT_FALSE(SyslogContains("done, do nothing"));
  EXPECT_FALSE(SyslogContains("QMI client inited"));
  // Error lines are not traced.
  uint32_t len = 1;
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, nullptr, 1, nullptr, &len), -1);
  EXPECT_TRUE(SyslogContains("put Invalid param"));
  g_tarvik_extend_debug_flag = 1;
  tarvik_extend_qmi_init();
  EXPECT_TRUE(SyslogContains("done, do nothing"));
}

TEST_F(RequestsTest, PassThroughSendersExchangeCallerRecords) {
  tarvik_extend_qmi_data_opt_req_msg_v01 req{};
  req.id = 9;
  req.data_len = 3;
  req.data_valid = 1;
  req.opt_valid = 1;
  req.opt = 0x5C;
  tarvik_extend_qmi_pair_msg_v01 resp{};
  EXPECT_EQ(tarvik_extend_qmi_self_study_send_sync(TARVIK_EXTEND_QMI_DATA_OPT_MSG_V01, &req,
                                                   sizeof(req), &resp, sizeof(resp)),
            0);
  EXPECT_EQ(resp.result, 0u);
  EXPECT_EQ(resp.value, 3u);
  auto got = Received(TARVIK_EXTEND_QMI_DATA_OPT_MSG_V01);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].As<tarvik_extend_qmi_data_opt_req_msg_v01>().opt, 0x5C);

  tarvik_extend_qmi_self_study_upload_req_msg_v01 up{};
  up.count = 64;
  EXPECT_EQ(tarvik_extend_qmi_self_study_send_sync(TARVIK_EXTEND_QMI_SELF_STUDY_UPLOAD_MSG_V01, &up,
                                                   sizeof(up), &resp, sizeof(resp)),
            0);
  EXPECT_EQ(resp.value, 64u);

  tarvik_extend_qmi_wechat_req_msg_v01 wx{};
  wx.type = 2;
  wx.value = 77;
  EXPECT_EQ(tarvik_extend_qmi_wechat_send_sync(TARVIK_EXTEND_QMI_WECHAT_MSG_V01, &wx, sizeof(wx),
                                               &resp, sizeof(resp)),
            0);
  EXPECT_EQ(resp.value, 77u);

  // The contents are the caller's business: a modem verdict is not a failure here.
  up.count = 65;
  EXPECT_EQ(tarvik_extend_qmi_self_study_send_sync(TARVIK_EXTEND_QMI_SELF_STUDY_UPLOAD_MSG_V01, &up,
                                                   sizeof(up), &resp, sizeof(resp)),
            0);
  EXPECT_EQ(resp.result, modemsim::extend::kResultBadRequest);

  EXPECT_EQ(tarvik_extend_qmi_base_model_send_sync(0x11, nullptr, 4, &resp, 8), -1);
  EXPECT_TRUE(SyslogContains("req_msg is NULL"));
  EXPECT_EQ(tarvik_extend_qmi_base_model_send_sync(0x11, &wx, 0, &resp, 8), -1);
  EXPECT_TRUE(SyslogContains("req_len can not <= 0"));
  EXPECT_EQ(tarvik_extend_qmi_wechat_send_sync(0x0C, &wx, sizeof(wx), &resp, 0), -1);
  EXPECT_TRUE(SyslogContains("rsp_len can not <= 0"));
  // The shared sender's lines carry the name of the sender that was called.
  EXPECT_TRUE(
      SyslogContains("tarvik_extend_qmi_wechat_send_sync: tarvik_qmi_send_msg_sync failed"));
  EXPECT_TRUE(SyslogContains(
      "tarvik_extend_qmi_base_model_send_sync: TARVIK_EXTEND_QMI_CLIENT_CRIT_SECT_UNLOCK_DONE"));
}

// Many threads at once: each request reaches the modem whole (its id, length and payload belong
// together), every request arrives exactly once and in its thread's order, and every caller gets
// its own answer back.
TEST_F(RequestsTest, ConcurrentCallersNeverInterleaveOnTheChannel) {
  constexpr int kThreads = 8;
  constexpr int kPerThread = 40;
  ASSERT_TRUE(modemsim::extend::SetRequestHandler(
      *modem_, kId, [](const modemsim::extend::Request &r, modemsim::extend::Reply &reply) {
        std::vector<uint8_t> out(r.data, r.data + r.data_len);
        for (auto &b : out) b = static_cast<uint8_t>(~b);
        reply.SetData(out.data(), out.size());
      }));
  auto payload = [](int t, int i) {
    std::vector<uint8_t> p = Pattern(8 + (t * 37 + i * 13) % 500, static_cast<uint8_t>(t * 31 + i));
    p[0] = static_cast<uint8_t>(t);
    p[1] = static_cast<uint8_t>(i);
    return p;
  };
  std::vector<std::future<int>> failures;
  for (int t = 0; t < kThreads; ++t) {
    failures.push_back(std::async(std::launch::async, [t, &payload] {
      int bad = 0;
      for (int i = 0; i < kPerThread; ++i) {
        auto req = payload(t, i);
        std::vector<uint8_t> resp(550, 0);
        uint32_t len = 550;
        if (tarvik_extend_qmi_send_sync(kId, req.data(), static_cast<uint32_t>(req.size()),
                                        resp.data(), &len) != 0 ||
            len != req.size()) {
          ++bad;
          continue;
        }
        for (size_t k = 0; k < req.size(); ++k) {
          if (resp[k] != static_cast<uint8_t>(~req[k])) {
            ++bad;
            break;
          }
        }
      }
      return bad;
    }));
  }
  for (auto &f : failures) EXPECT_EQ(f.get(), 0);

  const auto got = Received(TARVIK_EXTEND_QMI_GENERIC_MSG_V01);
  ASSERT_EQ(got.size(), static_cast<size_t>(kThreads * kPerThread));
  std::vector<int> next(kThreads, 0);
  for (const auto &r : got) {
    ASSERT_EQ(r.decode_status, 0);
    const auto &rec = r.As<tarvik_extend_qmi_req_msg_v01>();
    ASSERT_EQ(rec.id, kId);
    const int t = rec.data[0], i = rec.data[1];
    ASSERT_LT(t, kThreads);
    ASSERT_EQ(i, next[t]) << "thread " << t << " out of order or duplicated";
    ++next[t];
    const auto want = payload(t, i);
    ASSERT_EQ(rec.data_len, want.size()) << "length of another request";
    ASSERT_EQ(memcmp(rec.data, want.data(), want.size()), 0) << "payload mixed";
    for (size_t k = want.size(); k < TARVIK_EXTEND_QMI_DATA_MAX_V01; ++k) {
      ASSERT_EQ(rec.data[k], 0) << "left-over bytes of an earlier request";
    }
  }
  EXPECT_EQ(std::accumulate(next.begin(), next.end(), 0), kThreads * kPerThread);
  EXPECT_EQ(Clients().size(), 1u);
}

// A request stuck in the transport beyond its own time budget does not hold the others
// forever: a caller waiting behind it gives up with -3; once it returns, the channel works.
TEST_F(RequestsTest, CallerGivesUpBehindARequestThatOutlivesItsBudget) {
  Answer(kId, 0, {6});
  tarvik_extend_qmi_init();
  g_next_send_stall_ms = 9000;
  auto hung = std::async(std::launch::async, [] {
    uint8_t req = 1, resp[8];
    uint32_t len = sizeof(resp);
    return tarvik_extend_qmi_send_sync_long_process(kId, &req, 1, resp, &len, 50);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const auto start = Clock::now();
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), -3);
  const int64_t waited = ElapsedMs(start);
  // The stalled call's budget: two opens (2 s each), its 50 ms, a 3000 ms retry; plus 1 s grace.
  EXPECT_GE(waited, 7000 - 300);
  EXPECT_LT(waited, 8800);
  EXPECT_TRUE(SyslogContains("not waiting behind it"));
  EXPECT_EQ(hung.get(), 0) << "the stalled request itself completes";
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), 0);
}

// A caller behind a slow but legitimate request waits for it rather than giving up.
TEST_F(RequestsTest, CallerWaitsBehindASlowRequestWithinItsBudget) {
  Answer(kId, 0, {6});
  FailGeneric(*modem_, Fault::kNoAnswer, 1);
  auto slow = std::async(std::launch::async, [] {
    uint8_t req = 1, resp[8];
    uint32_t len = sizeof(resp);
    return tarvik_extend_qmi_send_sync_long_process(kId, &req, 1, resp, &len, 1500);
  });
  ASSERT_TRUE(modem_->WaitReceived(modemsim::extend::kServiceId, 1, 3000));
  const auto start = Clock::now();
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), 0);
  EXPECT_GE(ElapsedMs(start), 1000) << "did not wait for the slow request";
  EXPECT_EQ(slow.get(), -3);
}

// The watchdog only logs: a request outliving 5 s still completes normally.
TEST_F(FiringWatchdog, LogsARequestThatOutlivesFiveSeconds) {
  Answer(kId, 0, {8});
  tarvik_extend_qmi_init();
  g_next_send_stall_ms = 5600;
  uint8_t req = 1, resp[8];
  uint32_t len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, &req, 1, resp, &len), 0);
  EXPECT_EQ(resp[0], 8);
  EXPECT_TRUE(SyslogContains("The timer expired with ID 1", 3));
  EXPECT_TRUE(SyslogContains("Not find the timer_callback, timer_id = 1"));
  EXPECT_EQ(Clients().size(), 1u);
}

}  // namespace
}  // namespace channel_test
