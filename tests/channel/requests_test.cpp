// Synchronous requests over the vendor channel against the simulated modem: bounds, payload
// copy rules, the service verdict, the retry policy, the lifecycle, serialisation of threads
// and the behaviour behind a hung request.
#include <algorithm>
#include <future>
#include <thread>

#include "channel_env.h"
#include "wait_until.h"

namespace channel_test {
namespace {

using tarvik_test::SyslogCount;
constexpr uint32_t kId = 0x42;

using RequestsTest = ChannelTest;
// The watchdog's POSIX timer fires in these (label posix_timer, see tests/CMakeLists.txt).
using FiringWatchdog = ChannelTest;

// Each call reaches the modem whole and at most once; the answer is cut to the capacity; a
// failure writes neither the length nor the buffer.
TEST_F(RequestsTest, BoundsCopyRulesAndTheServiceVerdict) {
  const auto forty = Pattern(40, 3);
  Answer(1, 0, forty);
  Answer(2, 0, forty, /*data_valid=*/false);
  Answer(3, 7, forty);
  struct Row {
    const char *name;
    uint32_t id, req_len, capacity;
    int status;
    uint32_t len_after;
  };
  const Row rows[] = {
      {"request 550, capacity 550", 1, 550, 550, 0, 40},
      {"request 0, answer cut to the capacity", 1, 0, 16, 0, 16},
      {"answer exactly the capacity", 1, 1, 40, 0, 40},
      {"no TLV 0x10", 2, 1, 100, 0, 0},
      {"request 551", 1, 551, 16, -1, 16},
      {"capacity 551", 1, 16, 551, -1, 551},
      {"service verdict 7", 3, 1, 32, -3, 32},
      {"id without handler", 0x77, 1, 32, -3, 32},
  };
  auto req = Pattern(600, 0x11);
  size_t sent = 0;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    Bytes resp(600, 0xEE), want(600, 0xEE);
    uint32_t len = row.capacity;
    EXPECT_EQ(tarvik_extend_qmi_send_sync(row.id, req.data(), row.req_len, resp.data(), &len),
              row.status);
    EXPECT_EQ(len, row.len_after);
    std::copy_n(forty.begin(), row.status == 0 ? row.len_after : 0, want.begin());
    EXPECT_EQ(resp, want) << "copied wrong, or written past the copy";
    sent += row.status != -1;
    const auto got = Received(kGeneric);
    ASSERT_EQ(got.size(), sent) << "a refused request was sent, or one was sent twice";
    if (row.status == -1) continue;
    EXPECT_EQ(IdAndData(got.back()),
              std::make_pair(row.id, Bytes(req.begin(), req.begin() + row.req_len)));
    EXPECT_EQ(got.back().As<tarvik_extend_qmi_req_msg_v01>().data_valid, 1);
  }
  EXPECT_TRUE(SyslogContains("tarvik_extend_qmi_send_sync: put data_len 551 > max 550"));
  EXPECT_TRUE(SyslogContains("put data_len 16 > max 550"));
  EXPECT_TRUE(SyslogContains("7 QMI service framework error. Check client", 3));

  uint32_t len = 16;
  uint8_t buf[16];
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, nullptr, 1, buf, &len), -1);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, buf, 1, nullptr, &len), -1);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, buf, 1, buf, nullptr), -1);
  EXPECT_TRUE(SyslogContains(",  put Invalid param"));
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, buf, 1, buf, &len, 0), -1);
  EXPECT_TRUE(SyslogContains("msec can not <= 0"));
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, buf, 1, buf, &len, -5), -1);
  EXPECT_EQ(Received(kGeneric).size(), sent);
}

// A time-out costs one attempt and keeps the client; any other failure reconnects (forgetting
// the event handlers) and retries once with the full 3000 ms; a failed retry is -3.
TEST_F(RequestsTest, RetryPolicy) {
  Answer(kId, 0, {5});
  ASSERT_EQ(Register(2, 1), 0);
  const auto before = Clients();
  ASSERT_EQ(before.size(), 1u);

  Fail(kGeneric, Fault::kNoAnswer, 1);
  const auto start = Clock::now();
  EXPECT_EQ(Send(kId, 300), (Sent{-3, 8, 0xEE}));
  EXPECT_GE(ElapsedMs(start), 290);
  EXPECT_LT(ElapsedMs(start), 2500);
  EXPECT_EQ(Received(kGeneric).size(), 1u) << "one attempt only";
  EXPECT_EQ(Clients(), before) << "reconnected";
  EXPECT_TRUE(SyslogContains("will not reinit tarvik qmi"));
  EXPECT_FALSE(SyslogContains("will reinit this qmi client"));
  EXPECT_EQ(Register(2), -4) << "handler forgotten";

  Fail(kGeneric, Fault::kTransportError, 1);
  const size_t sends_before = SendTimeouts().size();
  EXPECT_EQ(Send(kId, 200), (Sent{0, 1, 5}));
  // The caller's time-out for the first send, the full 3000 ms for the retry.
  const auto timeouts = SendTimeouts();
  EXPECT_EQ(std::vector<unsigned>(timeouts.begin() + sends_before, timeouts.end()),
            (std::vector<unsigned>{200, 3000}));
  const auto sends = Received(kGeneric);
  ASSERT_EQ(sends.size(), 3u);
  EXPECT_NE(sends[1].client, sends[2].client) << "the retry went over a new client";
  EXPECT_EQ(sends[2].tlvs, sends[1].tlvs) << "the retry is the same request";
  EXPECT_EQ(Clients().size(), 1u) << "the old client was released";
  EXPECT_NE(Clients(), before);
  EXPECT_TRUE(SyslogContains("non QMI_TIMEOUT_ERR, will reinit this qmi client and retry"));
  EXPECT_EQ(Register(2, 1), 0) << "handler kept";

  Fail(kGeneric, Fault::kTransportError, 2);
  EXPECT_EQ(Send(kId).status, -3);
  EXPECT_EQ(Received(kGeneric).size(), 5u) << "exactly one retry";
  EXPECT_TRUE(SyslogContains("retry to send sync msg failed"));
  EXPECT_EQ(Send(kId).status, 0) << "the channel works again";
}

// An absent service costs about a second of discovery per attempt to open; every call that
// needs the client reports it missing, and the next one after the service is back opens it.
TEST_F(RequestsTest, AbsentServiceCostsAboutOneSecondOfDiscoveryAndReportsNoClient) {
  ASSERT_EQ(modem_->SetPresent(ext::kServiceId, false), 0);
  const auto start = Clock::now();
  EXPECT_EQ(Send(kId).status, -2);
  EXPECT_GE(ElapsedMs(start), 900);
  EXPECT_EQ(SyslogCount("qmi_client_get_service_list() returned"), 50u);
  EXPECT_TRUE(SyslogContains("QMI client init failed"));
  EXPECT_TRUE(SyslogContains("client_handle is NULL"));

  // The long-process sender checks its buffers before the client, the plain one after.
  uint8_t resp[8];
  uint32_t len = sizeof(resp);
  EXPECT_EQ(tarvik_extend_qmi_send_sync_long_process(kId, nullptr, 1, resp, &len, 100), -1);
  EXPECT_EQ(Send(kId, 100).status, -2);
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, nullptr, 1, resp, &len), -2);
  EXPECT_EQ(tarvik_extend_qmi_deregister(1), -5);
  // Register stores the handler even without a client.
  EXPECT_EQ(Register(1), -2);
  EXPECT_EQ(Register(1), -4);

  ASSERT_EQ(modem_->SetPresent(ext::kServiceId, true), 0);
  Answer(kId, 0, {4});
  EXPECT_EQ(Send(kId), (Sent{0, 1, 4}));
}

// init opens once; init_force closes (forgetting the handlers) and opens; trace lines follow
// the debug flag, error lines do not.
TEST_F(RequestsTest, OpenOnceForceReopensAndTracesFollowTheDebugFlag) {
  tarvik_extend_qmi_init_force();
  EXPECT_TRUE(SyslogContains("tarvik_extend_qmi_deinit_do: no init, do nothing"));
  const auto first = Clients();
  ASSERT_EQ(first.size(), 1u);
  tarvik_extend_qmi_init();
  EXPECT_EQ(Clients(), first);
  EXPECT_EQ(SyslogCount("QMI client inited"), 1u);
  EXPECT_TRUE(SyslogContains("tarvik_extend_qmi_init_do: done, do nothing"));
  ASSERT_EQ(Register(3), 0);

  g_tarvik_extend_debug_flag = 0;
  tarvik_test::ClearSyslog();
  tarvik_extend_qmi_init_force();
  EXPECT_EQ(Clients().size(), 1u);
  EXPECT_NE(Clients(), first);
  EXPECT_EQ(Register(3), 0) << "handler survived";
  tarvik_extend_qmi_init();
  EXPECT_FALSE(SyslogContains("done, do nothing"));
  EXPECT_FALSE(SyslogContains("QMI client inited"));
  uint32_t len = 1;
  EXPECT_EQ(tarvik_extend_qmi_send_sync(kId, nullptr, 1, nullptr, &len), -1);
  EXPECT_TRUE(SyslogContains("put Invalid param"));
  g_tarvik_extend_debug_flag = 1;
  tarvik_extend_qmi_init();
  EXPECT_TRUE(SyslogContains("done, do nothing"));
}

// The pass-through senders hand the caller's records over as they are; the modem's verdict is
// the caller's business. A WeChat request with a flag is answered with an indication too.
TEST_F(RequestsTest, PassThroughSendersExchangeCallerRecords) {
  ASSERT_EQ(tarvik_extend_qmi_wechat_register(IndRecorder::Record), 1);
  tarvik_extend_qmi_pair_msg_v01 resp{};
  auto answer = [&resp] { return std::make_pair(resp.result, resp.value); };
  tarvik_extend_qmi_data_opt_req_msg_v01 req{};
  req.id = 9;
  req.data_len = 3;
  req.data_valid = 1;
  req.opt_valid = 1;
  req.opt = 0x5C;
  EXPECT_EQ(tarvik_extend_qmi_self_study_send_sync(TARVIK_EXTEND_QMI_DATA_OPT_MSG_V01, &req,
                                                   sizeof(req), &resp, sizeof(resp)),
            0);
  EXPECT_EQ(answer(), std::make_pair(0u, 3u));
  auto got = Received(TARVIK_EXTEND_QMI_DATA_OPT_MSG_V01);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].As<tarvik_extend_qmi_data_opt_req_msg_v01>().opt, 0x5C);

  tarvik_extend_qmi_self_study_upload_req_msg_v01 up{};
  auto upload = [&](uint32_t count) {
    up.count = count;
    return tarvik_extend_qmi_self_study_send_sync(TARVIK_EXTEND_QMI_SELF_STUDY_UPLOAD_MSG_V01, &up,
                                                  sizeof(up), &resp, sizeof(resp));
  };
  EXPECT_EQ(upload(64), 0);
  EXPECT_EQ(answer(), std::make_pair(0u, 64u));
  EXPECT_EQ(upload(65), 0);
  EXPECT_EQ(resp.result, ext::kResultBadRequest);

  tarvik_extend_qmi_wechat_req_msg_v01 wx{};
  wx.type = 4;
  wx.value = 1234;
  wx.flag = 2;
  EXPECT_EQ(tarvik_extend_qmi_wechat_send_sync(TARVIK_EXTEND_QMI_WECHAT_MSG_V01, &wx, sizeof(wx),
                                               &resp, sizeof(resp)),
            0);
  EXPECT_EQ(answer(), std::make_pair(0u, 1234u));
  ASSERT_TRUE(IndRecorder::WaitFor(1));
  const Ind ind = IndRecorder::Got()[0];
  EXPECT_EQ(ind.id, 0x0D);
  tarvik_extend_qmi_wechat_ind_msg_v01 rec;
  ASSERT_EQ(ind.data.size(), sizeof(rec));
  memcpy(&rec, ind.data.data(), sizeof(rec));
  EXPECT_EQ(std::make_tuple(rec.type, rec.state, rec.value), std::make_tuple(4u, 2u, 1234u));
  EXPECT_NE(rec.timestamp, 0u);

  EXPECT_EQ(tarvik_extend_qmi_base_model_send_sync(0x11, nullptr, 4, &resp, 8), -1);
  EXPECT_TRUE(SyslogContains("req_msg is NULL"));
  EXPECT_EQ(tarvik_extend_qmi_base_model_send_sync(0x11, &wx, 0, &resp, 8), -1);
  EXPECT_TRUE(SyslogContains("req_len can not <= 0"));
  EXPECT_EQ(tarvik_extend_qmi_wechat_send_sync(0x0C, &wx, sizeof(wx), &resp, 0), -1);
  EXPECT_TRUE(SyslogContains("rsp_len can not <= 0"));
  EXPECT_EQ(Received(TARVIK_EXTEND_QMI_WECHAT_MSG_V01).size(), 1u);
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
  ASSERT_TRUE(ext::SetRequestHandler(*modem_, kId, [](const ext::Request &r, ext::Reply &reply) {
    Bytes out(r.data, r.data + r.data_len);
    for (auto &b : out) b = static_cast<uint8_t>(~b);
    reply.SetData(out.data(), out.size());
  }));
  auto payload = [](int t, int i) {
    Bytes p = Pattern(8 + (t * 37 + i * 13) % 500, static_cast<uint8_t>(t * 31 + i));
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
        Bytes resp(550, 0);
        uint32_t len = 550;
        bad += tarvik_extend_qmi_send_sync(kId, req.data(), static_cast<uint32_t>(req.size()),
                                           resp.data(), &len) != 0 ||
               len != req.size() ||
               !std::equal(req.begin(), req.end(), resp.begin(),
                           [](uint8_t a, uint8_t b) { return b == static_cast<uint8_t>(~a); });
      }
      return bad;
    }));
  }
  for (auto &f : failures) EXPECT_EQ(f.get(), 0);

  const auto got = Received(kGeneric);
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
    auto want = payload(t, i);
    ASSERT_EQ(rec.data_len, want.size()) << "length of another request";
    want.resize(TARVIK_EXTEND_QMI_DATA_MAX_V01, 0);
    ASSERT_EQ(Bytes(rec.data, rec.data + want.size()), want)
        << "payload mixed, or left-over bytes of an earlier request";
  }
  EXPECT_EQ(Clients().size(), 1u);
}

// A request stuck in the transport beyond its own time budget does not hold the others
// forever: a caller waiting behind it gives up with -3; once it returns, the channel works.
TEST_F(RequestsTest, CallerGivesUpBehindARequestThatOutlivesItsBudget) {
  Answer(kId, 0, {6});
  tarvik_extend_qmi_init();
  g_next_send_stall_ms = 9000;
  const size_t sends = SendTimeouts().size();
  auto hung = std::async(std::launch::async, [] { return Send(kId, 50).status; });
  // The hung request is in the transport once its send has begun.
  tarvik_test::WaitUntil([&] { return SendTimeouts().size() != sends; }, std::chrono::seconds(5));
  ASSERT_EQ(SendTimeouts().size(), sends + 1);
  const auto start = Clock::now();
  EXPECT_EQ(Send(kId).status, -3);
  const int64_t waited = ElapsedMs(start);
  // The stalled call's budget: two opens (2 s each), its 50 ms, a 3000 ms retry; plus 1 s grace.
  EXPECT_GE(waited, 7000 - 300);
  EXPECT_LT(waited, 8800);
  EXPECT_TRUE(SyslogContains("not waiting behind it"));
  EXPECT_EQ(hung.get(), 0) << "the stalled request itself completes";
  EXPECT_EQ(Send(kId).status, 0);
}

// A caller behind a slow but legitimate request waits for it rather than giving up.
TEST_F(RequestsTest, CallerWaitsBehindASlowRequestWithinItsBudget) {
  Answer(kId, 0, {6});
  Fail(kGeneric, Fault::kNoAnswer, 1);
  auto slow = std::async(std::launch::async, [] { return Send(kId, 1500).status; });
  ASSERT_TRUE(modem_->WaitReceived(ext::kServiceId, 1, 3000));
  const auto start = Clock::now();
  EXPECT_EQ(Send(kId).status, 0);
  EXPECT_GE(ElapsedMs(start), 1000) << "did not wait for the slow request";
  EXPECT_EQ(slow.get(), -3);
}

// The watchdog only logs: a request outliving 5 s still completes normally.
TEST_F(FiringWatchdog, LogsARequestThatOutlivesFiveSeconds) {
  Answer(kId, 0, {8});
  tarvik_extend_qmi_init();
  g_next_send_stall_ms = 5600;
  EXPECT_EQ(Send(kId), (Sent{0, 1, 8}));
  EXPECT_TRUE(SyslogContains("The timer expired with ID 1", 3));
  EXPECT_TRUE(SyslogContains("Not find the timer_callback, timer_id = 1"));
  EXPECT_EQ(Clients().size(), 1u);
}

}  // namespace
}  // namespace channel_test
