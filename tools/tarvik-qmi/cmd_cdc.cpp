// cdc and venue-mode: opaque payloads carried to the modem and its answers printed as hex.
//   cdc EVENT_ID [HEX]
//   venue-mode HEX
#include <stdio.h>

#include <string>
#include <vector>

#include "command.h"
#include "tarvik_extend_cdc.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_venue_mode.h"

namespace tarvik_tool {

std::string ChannelHex(const void *data, size_t len);
bool ParseChannelNumber(const std::string &text, unsigned long max, unsigned long *value);
bool FeatureParseHex(const std::string &text, std::vector<uint8_t> *out);
int FeatureConnect(const Options &options);
int FeatureFailed(const Options &options, const char *what, long status);

namespace {

// Connects, lets `call` fill an answer buffer of `capacity` bytes and prints the answer as hex.
template <typename Call>
int Exchange(const Options &options, const char *what, uint32_t capacity, Call call) {
  const int ready = FeatureConnect(options);
  if (ready != 0) {
    return ready;
  }
  std::vector<uint8_t> out(capacity);
  uint32_t len = capacity;
  const int status = call(out.data(), &len);
  if (status != 0) {
    return FeatureFailed(options, what, status);
  }
  const std::string hex = ChannelHex(out.data(), len);
  if (options.json) {
    printf("{\"command\":\"%s\",\"status\":0,\"length\":%u,\"data\":\"%s\"}\n", what, len,
           hex.c_str());
  } else {
    printf("%s: %u bytes\n%s\n", what, len, hex.c_str());
  }
  return 0;
}

int RunCdc(const Options &options, const Args &args) {
  unsigned long event = 0;
  std::vector<uint8_t> data;
  if (args.empty() || args.size() > 2 || !ParseChannelNumber(args[0], UINT32_MAX, &event) ||
      (args.size() == 2 && !FeatureParseHex(args[1], &data))) {
    return UsageError("cdc");
  }
  return Exchange(options, "cdc", TARVIK_CDC_DATA_MAX, [&](uint8_t *out, uint32_t *len) {
    return tarvik_cdc_request(static_cast<uint32_t>(event), data.data(),
                              static_cast<uint32_t>(data.size()), out, len);
  });
}

int RunVenueMode(const Options &options, const Args &args) {
  std::vector<uint8_t> data;
  if (args.size() != 1 || !FeatureParseHex(args[0], &data)) {
    return UsageError("venue-mode");
  }
  return Exchange(options, "venue-mode", TARVIK_CMN_RSP_DATA_MAX, [&](uint8_t *out, uint32_t *len) {
    return tarvik_set_venue_mode(data.data(), static_cast<uint32_t>(data.size()), out, len);
  });
}

TARVIK_COMMAND("cdc", "EVENT_ID [HEX]", "a CDC request; prints the modem's answer as hex", RunCdc);
TARVIK_COMMAND("venue-mode", "HEX", "sets the venue mode (at most 504 bytes); prints the answer",
               RunVenueMode);

}  // namespace
}  // namespace tarvik_tool
