// Drives the simulated modem with arbitrary requests and control commands, as another process
// may send them to tarvik-modemd: the input is a sequence of records, each a 2-byte length and a
// body whose first byte picks what it is (0: a QMI message for the echo client, 1: the same for
// the extend client, 2: control command words separated by NUL, 3: a QMI message for the data
// filter client). Whatever comes in, the modem
// must not read or write out of bounds, and everything it sends back must carry a well-formed
// QMI header answering the request's message id. A trace follows it all: every entry renders,
// as text and as one JSON object, whatever the bytes were. What one input can ask of the modem is
// bounded (the echo service refuses more than kMaxNotify indications, the store operations do not
// wait), so the target runs thousands of inputs a second; CI replays the corpus with a per-input
// time limit, so a stall fails.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <chrono>
#include <string>
#include <vector>

#include "data_filter_service_v01.h"
#include "features/nvefs.h"
#include "fuzz_check.h"
#include "modemsim/control.h"
#include "modemsim/echo_service.h"
#include "modemsim/modem.h"
#include "modemsim/trace.h"
#include "qmi_client.h"
#include "qmi_client_host.h"
#include "tarvik_extend_qmi_v01.h"

namespace {

namespace wire = qmi_host::wire;

using tarvik_testing::Check;

// Checks every message the modem sends back.
class CheckingSink : public qmi_host::ClientSink {
 public:
  void OnServiceUp(uint32_t, uint32_t) override {}
  void OnServiceDown(uint32_t, uint32_t) override {}
  void OnMessage(uint32_t, const uint8_t *msg, size_t len) override {
    wire::QmiHeader h{};
    Check(wire::ParseQmiHeader(msg, len, &h));
    Check(h.type == wire::kQmiResponse || h.type == wire::kQmiIndication);
  }
  void OnTxnError(uint32_t, uint16_t, int error) override { Check(error < 0); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  auto modem = modemsim::CreateStandardModem("");
  modemsim::echo::AddTo(*modem);
  // The whole-store NV operations take a modem a while; here they answer at once.
  modemsim::features::NvEfsOf(*modem)->SetStoreDelays(0, 0, 0);
  CheckingSink sink;
  modem->Attach(&sink);
  modemsim::TraceReader reader({});
  modem->AddTraceReader(&reader);
  uint32_t clients[4] = {0, 0, 0, 0};
  modem->Open(&sink, modemsim::echo::kServiceId, QMI_CLIENT_INSTANCE_ANY, &clients[0]);
  modem->Open(&sink, TARVIK_EXTEND_QMI_SERVICE_ID_V01, QMI_CLIENT_INSTANCE_ANY, &clients[1]);
  modem->Open(&sink, DFS_V01_SERVICE_ID, QMI_CLIENT_INSTANCE_ANY, &clients[3]);
  size_t pos = 0;
  while (pos + 3 <= size) {
    const size_t len = wire::GetU16(data + pos);
    pos += 2;
    if (len == 0 || len > size - pos) break;
    const uint8_t kind = data[pos] % 4;
    const uint8_t *body = data + pos + 1;
    const size_t body_len = len - 1;
    pos += len;
    if (kind != 2) {
      modem->Deliver(clients[kind], body, body_len);
    } else {
      std::vector<std::string> words(1);
      for (size_t i = 0; i < body_len; ++i) {
        if (body[i] == 0) {
          words.emplace_back();
        } else {
          words.back() += (char)body[i];
        }
      }
      // Delayed requests and restarts wait in the modem's queue and go with it.
      std::string out;
      modemsim::RunControlCommand(*modem, words, &out);
    }
  }
  modem->Detach(&sink);
  modem->RemoveTraceReader(&reader);
  std::vector<qmi_trace::Entry> entries;
  uint64_t dropped = 0;
  reader.Take(&entries, &dropped, std::chrono::milliseconds(0));
  for (const qmi_trace::Entry &e : entries) {
    const std::string json = qmi_trace::Json(e);
    Check(json.front() == '{' && json.back() == '}' && json.find('\n') == std::string::npos);
    Check(!qmi_trace::Text(e).empty());
  }
  return 0;
}
