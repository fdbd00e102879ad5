// Shared set-up of the vendor channel tests: an in-process simulated modem with the extend
// service, helpers to drive the channel and read what the modem received, and a recorder for
// indication callbacks.
#pragma once

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

#include "extend/extend_service.h"
#include "gtest/gtest.h"
#include "modemsim/modem.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "syslog_capture.h"
#include "tarvik_extend_api.h"

namespace channel_test {

namespace ext = modemsim::extend;
using modemsim::Fault;
using tarvik_test::SyslogContains;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;
constexpr uint16_t kGeneric = TARVIK_EXTEND_QMI_GENERIC_MSG_V01;
constexpr uint16_t kEventMsg = TARVIK_EXTEND_QMI_EVENT_MSG_V01;

// Milliseconds that the next qmi_client_send_msg_sync of the library stalls before it goes to
// the client library (the test program interposes that function); 0: no stall.
extern std::atomic<int> g_next_send_stall_ms;
// Time-outs (ms) the library passed to the client library, one per send, in order.
std::vector<unsigned int> SendTimeouts();

struct Ind {
  int id;
  Bytes data;
  bool operator==(const Ind &o) const { return id == o.id && data == o.data; }
};
inline void PrintTo(const Ind &ind, std::ostream *os) {
  *os << "{" << ind.id << ", " << ::testing::PrintToString(ind.data) << "}";
}

// Indication callbacks are plain functions; they all land here.
struct IndRecorder {
  static void Record(int id, void *data, int len);
  // Waits until `n` indications have arrived in total.
  static bool WaitFor(size_t n, int timeout_ms = 2000);
  static std::vector<Ind> Got();
};

// Bytes seed, seed+7, seed+14... (wrapping).
inline Bytes Pattern(size_t n, uint8_t seed) {
  Bytes v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(seed + i * 7);
  return v;
}

inline int64_t ElapsedMs(Clock::time_point since) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count();
}

inline int Register(int event, uint32_t ind_flag = 0) {
  return tarvik_extend_qmi_register(event, IndRecorder::Record, ind_flag);
}

// A one-byte request `id` into an 8-byte buffer of 0xEE (through the long-process sender with
// `msec` when it is nonzero): the status, the length after the call and the first byte.
struct Sent {
  int status;
  uint32_t len;
  int first;
  bool operator==(const Sent &o) const {
    return status == o.status && len == o.len && first == o.first;
  }
};
inline void PrintTo(const Sent &s, std::ostream *os) {
  *os << "{status " << s.status << ", len " << s.len << ", first " << s.first << "}";
}
inline Sent Send(uint32_t id, int msec = 0) {
  uint8_t req = 1, resp[8];
  memset(resp, 0xEE, sizeof(resp));
  uint32_t len = sizeof(resp);
  const int status = msec == 0
                         ? tarvik_extend_qmi_send_sync(id, &req, 1, resp, &len)
                         : tarvik_extend_qmi_send_sync_long_process(id, &req, 1, resp, &len, msec);
  return {status, len, resp[0]};
}

// The id and the meaningful payload of a generic or event request the modem received.
inline std::pair<uint32_t, Bytes> IdAndData(const modemsim::Received &r) {
  const auto &rec = r.As<tarvik_extend_qmi_req_msg_v01>();
  return {rec.id, Bytes(rec.data, rec.data + std::min<uint32_t>(rec.data_len, sizeof(rec.data)))};
}

class ChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    modem_ = std::make_unique<modemsim::Modem>();
    ext::AddTo(*modem_);
    modem_->ServeInProcess();
    ASSERT_EQ(qmi_client_host_select_transport("inproc"), QMI_NO_ERR);
  }
  void TearDown() override { modem_.reset(); }

  // Requests of message `msg_id` that the extend service received, in order.
  std::vector<modemsim::Received> Received(uint16_t msg_id) const {
    auto all = modem_->ReceivedBy(ext::kServiceId);
    all.erase(std::remove_if(all.begin(), all.end(), [&](auto &r) { return r.msg_id != msg_id; }),
              all.end());
    return all;
  }
  std::vector<uint32_t> Clients() const { return modem_->Clients(ext::kServiceId); }
  // The switches of the only client for `event`.
  ext::EventSwitch Switch(uint32_t event) const {
    const auto clients = Clients();
    EXPECT_EQ(clients.size(), 1u);
    return clients.empty() ? ext::EventSwitch{} : ext::GetEventSwitch(*modem_, clients[0], event);
  }

  // Registers a handler for `id` that answers `result` and `data`.
  void Answer(uint32_t id, uint32_t result, Bytes data, bool data_valid = true) {
    ASSERT_TRUE(ext::SetRequestHandler(*modem_, id, [=](const ext::Request &, ext::Reply &r) {
      r.result = result;
      r.SetData(data.data(), data.size());
      r.data_valid = data_valid;
    }));
  }
  // The next `count` messages `msg_id` meet `kind` (a transport error: QMI_CLIENT_TRANSPORT_ERR).
  void Fail(uint16_t msg_id, Fault::Kind kind, int count) {
    Fault fault;
    fault.kind = kind;
    fault.error = kind == Fault::kTransportError ? QMI_CLIENT_TRANSPORT_ERR : 0;
    fault.count = count;
    modem_->SetFault(ext::kServiceId, msg_id, fault);
  }
  // Sends event `event` with `data` to the clients that switched it on: how many.
  int InjectEvent(uint32_t event, const Bytes &data, bool data_valid = true) {
    return ext::InjectEvent(*modem_, event, data.data(), static_cast<uint32_t>(data.size()),
                            data_valid);
  }
  // Pushes the indication of `event` (no payload) to every client, whatever it switched on.
  void PushEvent(uint32_t event) {
    tarvik_extend_qmi_ind_msg_v01 ind{};
    ind.ind = event;
    ASSERT_EQ(modem_->PushIndication(ext::kServiceId, kEventMsg, &ind, sizeof(ind)), 1);
  }
  int Inject(uint16_t msg_id, const void *record, uint32_t len) {
    return ext::InjectIndication(*modem_, msg_id, record, len);
  }

  std::unique_ptr<modemsim::Modem> modem_;
};

}  // namespace channel_test
