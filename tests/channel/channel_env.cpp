#include "channel_env.h"

#include <dlfcn.h>

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
  g_inds.push_back({id, Bytes(p, p + (len > 0 ? len : 0))});
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
