// Shared set-up of the vendor channel tests: an in-process simulated modem with the extend
// service, helpers to read what it received, and a recorder for indication callbacks.
#pragma once

#include <stdint.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "extend/extend_service.h"
#include "gtest/gtest.h"
#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "tarvik_extend_api.h"

namespace channel_test {

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
class IndRecorder {
 public:
  static void Record(int id, void *data, int len);
  // Waits until `n` indications have arrived in total.
  static bool WaitFor(size_t n, int timeout_ms = 2000);
  static std::vector<Ind> Got();
};

// Bytes seed, seed+7, seed+14... (wrapping).
std::vector<uint8_t> Pattern(size_t n, uint8_t seed);

class ChannelTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Requests of message `msg_id` that the extend service received, in order.
  std::vector<modemsim::Received> Received(uint16_t msg_id) const;
  std::vector<uint32_t> Clients() const;

  // Registers a handler for `id` that answers `result` and `data`.
  void Answer(uint32_t id, uint32_t result, std::vector<uint8_t> data, bool data_valid = true);

  // The next `count` messages `msg_id` meet `kind` (a transport error: QMI_CLIENT_TRANSPORT_ERR).
  void Fail(uint16_t msg_id, modemsim::Fault::Kind kind, int count);

  // Pushes the indication of `event` to every client, whatever the client switched on.
  void PushEvent(uint32_t event);

  // A one-byte request `id` into an 8-byte buffer of 0xEE (through the long-process sender
  // with `msec` when it is nonzero): the status, the length after the call, the first byte.
  struct Sent {
    int status;
    uint32_t len;
    uint8_t first;
  };
  static Sent Send(uint32_t id, int msec = 0);

  static int64_t ElapsedMs(std::chrono::steady_clock::time_point since);

  std::unique_ptr<modemsim::Modem> modem_;
};

}  // namespace channel_test
