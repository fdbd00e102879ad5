// cdc and venue-mode: opaque payloads carried to the modem, its answers printed as hex.
#include <string>
#include <vector>

#include "tarvik_extend_cdc.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_venue_mode.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

// Lets `call` fill an answer buffer of `capacity` bytes and reports the answer as hex.
template <typename Call>
int Exchange(Report &report, uint32_t capacity, Call call) {
  if (const int ready = Connect(report)) return ready;
  std::vector<uint8_t> out(capacity);
  uint32_t len = capacity;
  const int status = call(out.data(), &len);
  if (status != 0) return report.Failed(Family::kFeature, status);
  return report.Add({Num("length", len), Hex("data", out.data(), len)}).Ok();
}

int Cdc(Report &report, const Args &args) {
  unsigned long event = 0;
  std::vector<uint8_t> data;
  std::string why;
  if (!ParseNumber(args[0], UINT32_MAX, &event)) {
    return report.Refuse("event id '" + args[0] + "' is not a number");
  }
  if (args.size() == 2 && !ParseHex(args[1], &data, &why)) return report.Refuse(why);
  report.Add(Num("event_id", static_cast<long long>(event)));
  return Exchange(report, TARVIK_CDC_DATA_MAX, [&](uint8_t *out, uint32_t *len) {
    return tarvik_cdc_request(static_cast<uint32_t>(event), data.data(),
                              static_cast<uint32_t>(data.size()), out, len);
  });
}

int VenueMode(Report &report, const Args &args) {
  std::vector<uint8_t> data;
  std::string why;
  if (!ParseHex(args[0], &data, &why)) return report.Refuse(why);
  return Exchange(report, TARVIK_CMN_RSP_DATA_MAX, [&](uint8_t *out, uint32_t *len) {
    return tarvik_set_venue_mode(data.data(), static_cast<uint32_t>(data.size()), out, len);
  });
}

const Verb kCdc[] = {{"", "EVENT_ID [HEX]", 1, 2, Cdc}};
const Verb kVenue[] = {{"", "HEX", 1, 1, VenueMode}};
TARVIK_COMMAND("cdc", "a CDC request (payload cut to 500 bytes); prints the modem's answer", kCdc);
TARVIK_COMMAND("venue-mode", "sets the venue mode (at most 504 bytes); prints the answer", kVenue);

}  // namespace
}  // namespace tarvik_tool
