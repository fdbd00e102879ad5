#include "channel_env.h"

#include <dlfcn.h>
#include <string.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "qmi_client.h"

namespace channel_test {

std::atomic<int> g_next_send_stall_ms{0};

namespace {
std::mutex g_sends_mu;
std::vector<unsigned int> g_send_timeouts;
}  // namespace

std::vector<unsigned int> SendTimeouts() {
  std::lock_guard<std::mutex> lock(g_sends_mu);
  return g_send_timeouts;
}

void RecordSendTimeout(unsigned int ms) {
  std::lock_guard<std::mutex> lock(g_sends_mu);
  g_send_timeouts.push_back(ms);
}

namespace {
std::mutex g_ind_mu;
std::condition_variable g_ind_cv;
std::vector<Ind> g_inds;
}  // namespace

void IndRecorder::Record(int id, void *data, int len) {
  std::lock_guard<std::mutex> lock(g_ind_mu);
  const auto *p = static_cast<const uint8_t *>(data);
  g_inds.push_back({id, std::vector<uint8_t>(p, p + (len > 0 ? len : 0))});
  g_ind_cv.notify_all();
}

bool IndRecorder::WaitFor(size_t n, int timeout_ms) {
  std::unique_lock<std::mutex> lock(g_ind_mu);
  return g_ind_cv.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                           [n] { return g_inds.size() >= n; });
}

std::vector<Ind> IndRecorder::Got() {
  std::lock_guard<std::mutex> lock(g_ind_mu);
  return g_inds;
}

std::vector<uint8_t> Pattern(size_t n, uint8_t seed) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(seed + i * 7);
  return v;
}

void ChannelTest::SetUp() {
  modem_ = std::make_unique<modemsim::Modem>();
  modemsim::extend::AddTo(*modem_);
  modem_->ServeInProcess();
  ASSERT_EQ(qmi_client_host_select_transport("inproc"), QMI_NO_ERR);
}

void ChannelTest::TearDown() {
  modem_.reset();
}

std::vector<modemsim::Received> ChannelTest::Received(uint16_t msg_id) const {
  std::vector<modemsim::Received> out;
  for (auto &r : modem_->ReceivedBy(modemsim::extend::kServiceId)) {
    if (r.msg_id == msg_id) {
      out.push_back(std::move(r));
    }
  }
  return out;
}

std::vector<uint32_t> ChannelTest::Clients() const {
  return modem_->Clients(modemsim::extend::kServiceId);
}

void ChannelTest::Answer(uint32_t id, uint32_t result, std::vector<uint8_t> data, bool data_valid) {
  ASSERT_TRUE(modemsim::extend::SetRequestHandler(
      *modem_, id,
      [result, data, data_valid](const modemsim::extend::Request &, modemsim::extend::Reply &r) {
        r.result = result;
        r.SetData(data.data(), data.size());
        r.data_valid = data_valid;
      }));
}

void ChannelTest::Fail(uint16_t msg_id, modemsim::Fault::Kind kind, int count) {
  modemsim::Fault fault;
  fault.kind = kind;
  fault.error = kind == modemsim::Fault::kTransportError ? QMI_CLIENT_TRANSPORT_ERR : 0;
  fault.count = count;
  modem_->SetFault(modemsim::extend::kServiceId, msg_id, fault);
}

void ChannelTest::PushEvent(uint32_t event) {
  tarvik_extend_qmi_ind_msg_v01 ind{};
  ind.ind = event;
  ASSERT_EQ(modem_->PushIndication(modemsim::extend::kServiceId, TARVIK_EXTEND_QMI_EVENT_MSG_V01,
                                   &ind, sizeof(ind)),
            1);
}

ChannelTest::Sent ChannelTest::Send(uint32_t id, int msec) {
  uint8_t req = 1, resp[8];
  memset(resp, 0xEE, sizeof(resp));
  uint32_t len = sizeof(resp);
  const int status = msec == 0
                         ? tarvik_extend_qmi_send_sync(id, &req, 1, resp, &len)
                         : tarvik_extend_qmi_send_sync_long_process(id, &req, 1, resp, &len, msec);
  return {status, len, resp[0]};
}

int64_t ChannelTest::ElapsedMs(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               since)
      .count();
}

}  // namespace channel_test

// The library's sends come here first (the program's definition takes the place of the client
// library's), so that a test can stall one the way a hung transport would.
extern "C" qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type user_handle,
                                                          unsigned int msg_id, void *req_c_struct,
                                                          unsigned int req_c_struct_len,
                                                          void *resp_c_struct,
                                                          unsigned int resp_c_struct_len,
                                                          unsigned int timeout_msecs) {
  using Fn = qmi_client_error_type (*)(qmi_client_type, unsigned int, void *, unsigned int, void *,
                                       unsigned int, unsigned int);
  static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "qmi_client_send_msg_sync"));
  channel_test::RecordSendTimeout(timeout_msecs);
  const int stall = channel_test::g_next_send_stall_ms.exchange(0);
  if (stall > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(stall));
  }
  return real(user_handle, msg_id, req_c_struct, req_c_struct_len, resp_c_struct, resp_c_struct_len,
              timeout_msecs);
}
