// The RF SAR service (0x11) of the simulated modem: the device state index, read back by get.
// A state above the highest index is refused and changes nothing; a restart brings the modem
// back to the default state 0.
#include <stdio.h>

#include "modemsim/modem.h"
#include "sar_v01.h"

namespace modemsim {
namespace {

struct SarState {
  uint32_t dsi = 0;
};

void InitModule(Modem &modem) {
  SarState *state = &modem.ModuleState<SarState>();
  Service &sar = modem.AddService(sar_get_service_object_v01());
  sar.Handle(QMI_SAR_RF_SET_STATE_REQ_MSG_V01, [state](Call &call) {
    const uint32_t dsi = call.Request<sar_rf_set_state_req_msg_v01>().sar_rf_state;
    if (dsi > SAR_RF_STATE_MAX_V01) {
      call.SetResult(1, kQmiErrInvalidArg);
      return;
    }
    state->dsi = dsi;
  });
  sar.Handle(QMI_SAR_RF_GET_STATE_REQ_MSG_V01, [state](Call &call) {
    auto &resp = call.Response<sar_rf_get_state_resp_msg_v01>();
    resp.sar_rf_state_valid = 1;
    resp.sar_rf_state = state->dsi;
  });
  sar.OnRestart([state] { state->dsi = 0; });
  sar.SetSummary([state] {
    return std::vector<Field>{{"dsi", "dsi %s", Value::Number(state->dsi)}};
  });
}

}  // namespace
}  // namespace modemsim

MODEMSIM_MODULE("sar", 20, modemsim::InitModule);
