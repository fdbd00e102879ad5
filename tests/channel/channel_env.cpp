#include "channel_env.h"

#include <dlfcn.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace channel_test {

std::atomic<int> g_next_send_stall_ms{0};

namespace {
std::mutex g_mu;  // guards the two records below
std::condition_variable g_ind_cv;
std::vector<unsigned int> g_send_timeouts;
std::vector<Ind> g_inds;
}  // namespace

std::vector<unsigned int> SendTimeouts() {
  std::lock_guard<std::mutex> lock(g_mu);
  return g_send_timeouts;
}

void IndRecorder::Record(int id, void *data, int len) {
  std::lock_guard<std::mutex> lock(g_mu);
  const auto *p = static_cast<const uint8_t *>(data);
  g_inds.push_back({id, std::vector<uint8_t>(p, p + (len > 0 ? len : 0))});
  g_ind_cv.notify_all();
}

bool IndRecorder::WaitFor(size_t n, int timeout_ms) {
  std::unique_lock<std::mutex> lock(g_mu);
  return g_ind_cv.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                           [n] { return g_inds.size() >= n; });
}

std::vector<Ind> IndRecorder::Got() {
  std::lock_guard<std::mutex> lock(g_mu);
  return g_inds;
}

std::vector<uint8_t> Pattern(size_t n, uint8_t seed) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(seed + i * 7);
  return v;
}

Sent Send(uint32_t id, int msec) {
  uint8_t req = 1, resp[8];
  memset(resp, 0xEE, sizeof(resp));
  uint32_t len = sizeof(resp);
  const int status = msec == 0
                         ? tarvik_extend_qmi_send_sync(id, &req, 1, resp, &len)
                         : tarvik_extend_qmi_send_sync_long_process(id, &req, 1, resp, &len, msec);
  return {status, len, resp[0]};
}

void ChannelTest::SetUp() {
  modem_ = std::make_unique<modemsim::Modem>();
  ext::AddTo(*modem_);
  modem_->ServeInProcess();
  ASSERT_EQ(qmi_client_host_select_transport("inproc"), QMI_NO_ERR);
}

std::vector<modemsim::Received> ChannelTest::Received(uint16_t msg_id) const {
  auto all = modem_->ReceivedBy(ext::kServiceId);
  all.erase(std::remove_if(all.begin(), all.end(), [&](auto &r) { return r.msg_id != msg_id; }),
            all.end());
  return all;
}

ext::EventSwitch ChannelTest::Switch(uint32_t event) const {
  const auto clients = Clients();
  EXPECT_EQ(clients.size(), 1u);
  return clients.empty() ? ext::EventSwitch{} : ext::GetEventSwitch(*modem_, clients[0], event);
}

void ChannelTest::Answer(uint32_t id, uint32_t result, std::vector<uint8_t> data, bool data_valid) {
  ASSERT_TRUE(ext::SetRequestHandler(
      *modem_, id, [result, data, data_valid](const ext::Request &, ext::Reply &r) {
        r.result = result;
        r.SetData(data.data(), data.size());
        r.data_valid = data_valid;
      }));
}

void ChannelTest::Fail(uint16_t msg_id, Fault::Kind kind, int count) {
  Fault fault;
  fault.kind = kind;
  fault.error = kind == Fault::kTransportError ? QMI_CLIENT_TRANSPORT_ERR : 0;
  fault.count = count;
  modem_->SetFault(ext::kServiceId, msg_id, fault);
}

void ChannelTest::PushEvent(uint32_t event) {
  tarvik_extend_qmi_ind_msg_v01 ind{};
  ind.ind = event;
  ASSERT_EQ(modem_->PushIndication(ext::kServiceId, kEventMsg, &ind, sizeof(ind)), 1);
}

}  // namespace channel_test

// The library's sends come here first (the program's definition takes the place of the client
// library's), so that a test can stall one the way a hung transport would.
extern "C" qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type handle,
                                                          unsigned int msg_id, void *req,
                                                          unsigned int req_len, void *resp,
                                                          unsigned int resp_len,
                                                          unsigned int timeout_msecs) {
  using Fn = qmi_client_error_type (*)(qmi_client_type, unsigned int, void *, unsigned int, void *,
                                       unsigned int, unsigned int);
  static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "qmi_client_send_msg_sync"));
  {
    std::lock_guard<std::mutex> lock(channel_test::g_mu);
    channel_test::g_send_timeouts.push_back(timeout_msecs);
  }
  const int stall = channel_test::g_next_send_stall_ms.exchange(0);
  std::this_thread::sleep_for(std::chrono::milliseconds(stall));
  return real(handle, msg_id, req, req_len, resp, resp_len, timeout_msecs);
}
