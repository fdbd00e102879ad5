// The sensor framework's client service (0x190) of the simulated modem: accepts every encoded
// request, keeps the last few payloads and counts them, with and without their flag.
#include <deque>
#include <vector>

#include "modemsim/modem.h"
#include "modemsim/text.h"
#include "sns_client_v01.h"

namespace modemsim {
namespace {

constexpr size_t kKept = 8;

struct SensorState {
  std::deque<std::vector<uint8_t>> last;  // newest last
  uint64_t requests = 0;
  uint64_t flagged = 0;  // requests whose optional flag was present and non-zero
};

void InitModule(Modem &modem) {
  SensorState *state = &modem.ModuleState<SensorState>();
  Service &sns = modem.AddService(SNS_CLIENT_SVC_get_service_object_v01());
  sns.Handle(SNS_CLIENT_REQ_V01, [state](Call &call) {
    const auto &req = call.Request<sns_client_req_msg_v01>();
    state->last.emplace_back(req.payload, req.payload + req.payload_len);
    if (state->last.size() > kKept) state->last.pop_front();
    ++state->requests;
    state->flagged += req.use_jumbo_report_valid && req.use_jumbo_report ? 1 : 0;
  });
  sns.SetSummary([state] {
    const std::vector<uint8_t> none;
    const std::vector<uint8_t> &last = state->last.empty() ? none : state->last.back();
    return std::vector<Field>{
        {"requests", "requests %s", Value::Number(static_cast<long long>(state->requests))},
        {"flagged", "flagged %s", Value::Number(static_cast<long long>(state->flagged))},
        {"last", "last %s", Value::Text(HexOf(last.data(), last.size(), true))}};
  });
}

}  // namespace
}  // namespace modemsim

MODEMSIM_MODULE("sensor", 20, modemsim::InitModule);
