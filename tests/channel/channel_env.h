// Shared set-up of the vendor channel tests: an in-process simulated modem with the extend
// service, helpers to drive the channel and read what the modem received, and a recorder for
// indication callbacks.
#pragma once

#include <stdint.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <memory>
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
  std::vector<uint8_t> data;
};

// Indication callbacks are plain functions; they all land here.
struct IndRecorder {
  static void Record(int id, void *data, int len);
  // Waits until `n` indications have arrived in total.
  static bool WaitFor(size_t n, int timeout_ms = 2000);
  static std::vector<Ind> Got();
};

// Bytes seed, seed+7, seed+14... (wrapping).
std::vector<uint8_t> Pattern(size_t n, uint8_t seed);

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
  uint8_t first;
};
Sent Send(uint32_t id, int msec = 0);

class ChannelTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override { modem_.reset(); }

  // Requests of message `msg_id` that the extend service received, in order.
  std::vector<modemsim::Received> Received(uint16_t msg_id) const;
  std::vector<uint32_t> Clients() const { return modem_->Clients(ext::kServiceId); }
  // The switches of the only client for `event`.
  ext::EventSwitch Switch(uint32_t event) const;

  // Registers a handler for `id` that answers `result` and `data`.
  void Answer(uint32_t id, uint32_t result, std::vector<uint8_t> data, bool data_valid = true);
  // The next `count` messages `msg_id` meet `kind` (a transport error: QMI_CLIENT_TRANSPORT_ERR).
  void Fail(uint16_t msg_id, Fault::Kind kind, int count);
  // Pushes the indication of `event` to every client, whatever the client switched on.
  void PushEvent(uint32_t event);
  int Inject(uint16_t msg_id, const void *record, uint32_t len) {
    return ext::InjectIndication(*modem_, msg_id, record, len);
  }

  std::unique_ptr<modemsim::Modem> modem_;
};

}  // namespace channel_test
