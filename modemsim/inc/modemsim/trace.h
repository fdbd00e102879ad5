// The simulated modem's trace: every message it receives and sends, for every client of every
// process, its services going down and up, and (with a QMUX server) the device's control
// traffic, as qmi_trace entries (qmi_trace.h). tarvik-modemd streams them to `tarvik-qmi sim
// trace` over its socket.
//
// A reader takes what its filter lets through into a queue of its own, bounded: what does not
// fit is dropped and counted, so that a reader that is slow never slows or blocks the modem.
// Several readers may follow one modem at once.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <vector>

#include "modemsim/control.h"
#include "qmi_trace.h"

namespace modemsim {

class TraceReader {
 public:
  static constexpr size_t kDefaultCapacity = 4096;

  // The entries of `services` (empty: of every service), at most `capacity` waiting.
  explicit TraceReader(std::set<uint32_t> services, size_t capacity = kDefaultCapacity);

  // Called by the modem, from any of its threads: queues a copy when the filter takes it, or
  // counts it dropped when the queue is full. Never blocks on the reader.
  void Offer(const qmi_trace::Entry &entry);
  // Waits up to `timeout` for entries, then moves every queued one to *out; *dropped gets the
  // number dropped since the last call.
  void Take(std::vector<qmi_trace::Entry> *out, uint64_t *dropped,
            std::chrono::milliseconds timeout);

 private:
  const std::set<uint32_t> services_;
  const size_t capacity_;
  std::mutex mu_;
  std::condition_variable cv_;
  std::deque<qmi_trace::Entry> queue_;
  uint64_t dropped_ = 0;
};

// The words of a trace, "trace [SERVICE...]": every SERVICE is one the modem hosts, or 0 (the
// QMUX control service). 0 with *services filled (none named: empty, every service), or the
// refusal as the control words give it (1 an unknown service, 2 bad words). The reply says what
// is traced.
int TraceRequest(Modem &modem, const Words &words, ControlReply &reply,
                 std::set<uint32_t> *services);

}  // namespace modemsim
