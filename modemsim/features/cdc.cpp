// CDC and venue mode (see cdc.h).
#include "cdc.h"

#include <stddef.h>

#include <algorithm>

#include "commands.h"
#include "extend/extend_service.h"
#include "tarvik_extend_cdc.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {
namespace {

Bytes TrimZeros(const uint8_t *data, size_t len) {
  while (len > 0 && data[len - 1] == 0) --len;
  return Bytes(data, data + len);
}

}  // namespace

struct CdcHandlers {
  static void Request(Cdc *cdc, const extend::Request &req, extend::Reply &reply) {
    uint8_t buf[TARVIK_CDC_REQ_SIZE] = {};
    memcpy(buf, req.data, std::min<size_t>(req.data_len, sizeof(buf)));
    const uint32_t event = GetU32(buf);
    Bytes payload = TrimZeros(buf + offsetof(tarvik_cdc_req_t, data), TARVIK_CDC_DATA_MAX);
    std::lock_guard<std::mutex> lock(cdc->mu_);
    if (!payload.empty()) cdc->events_[event] = std::move(payload);
    const Bytes &stored = cdc->events_[event];
    constexpr size_t kData = offsetof(tarvik_cdc_rsp_t, data);
    Bytes out(kData + stored.size(), 0);
    PutU32(&out, offsetof(tarvik_cdc_rsp_t, data_len), static_cast<uint32_t>(stored.size()));
    std::copy(stored.begin(), stored.end(), out.begin() + kData);
    reply.SetData(out.data(), out.size());
  }

  static void VenueMode(Cdc *cdc, Command &c) {
    std::lock_guard<std::mutex> lock(cdc->mu_);
    cdc->venue_ = TrimZeros(c.payload, TARVIK_CMN_PAYLOAD_MAX);
    c.data = cdc->venue_.empty() ? Bytes{0} : cdc->venue_;
  }
};

namespace {

void InitModule(Modem &modem) {
  Cdc *cdc = &modem.ModuleState<Cdc>();
  extend::SetRequestHandler(modem, REQUEST_ID_CDC,
                            [cdc](const extend::Request &req, extend::Reply &reply) {
                              CdcHandlers::Request(cdc, req, reply);
                            });
  HandleCommand(modem, COMMON_CMD_VENUE_MODE,
                [cdc](Command &c) { CdcHandlers::VenueMode(cdc, c); });
}

}  // namespace

std::vector<uint8_t> Cdc::VenueMode() const {
  std::lock_guard<std::mutex> lock(mu_);
  return venue_;
}

Cdc *CdcOf(Modem &modem) {
  return modem.FindModuleState<Cdc>();
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("cdc", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
