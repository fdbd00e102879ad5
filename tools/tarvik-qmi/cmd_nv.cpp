// nv: NV items of the modem, by subscription and item number, on the validated path.
//   nv read SUB ITEM            prints the item as hex
//   nv write SUB ITEM HEX       writes 1 to 424 bytes
//   nv delete SUB ITEM
// Also the helpers the other modem-feature commands share (declared where they are used).
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "command.h"
#include "modem_conn.h"
#include "tarvik_extend_nvefs.h"

namespace tarvik_tool {

std::string ChannelHex(const void *data, size_t len);
void QuietChannel();
bool ParseChannelNumber(const std::string &text, unsigned long max, unsigned long *value);

// Hex text (even length, or "-" for nothing) into bytes.
bool FeatureParseHex(const std::string &text, std::vector<uint8_t> *out) {
  out->clear();
  if (text == "-") {
    return true;
  }
  if (text.size() % 2 != 0) {
    return false;
  }
  for (size_t i = 0; i < text.size(); i += 2) {
    if (!isxdigit(static_cast<unsigned char>(text[i])) ||
        !isxdigit(static_cast<unsigned char>(text[i + 1]))) {
      return false;
    }
    out->push_back(static_cast<uint8_t>(strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
  }
  return true;
}

// Quiets the library's standard-output trace and reaches the modem; 0 when ready.
int FeatureConnect(const Options &options) {
  QuietChannel();
  return PrepareModem(options);
}

// Reports a status that is not 0 (stderr, or a JSON object) and returns the exit status.
int FeatureFailed(const Options &options, const char *what, long status) {
  if (options.json) {
    printf("{\"command\":\"%s\",\"status\":%ld}\n", what, status);
  } else {
    // The modem's own codes are often flags: show the positive ones in hex as well.
    if (status > 0) {
      fprintf(stderr, "tarvik-qmi: %s failed with %ld (0x%lx)\n", what, status,
              static_cast<unsigned long>(status));
    } else {
      fprintf(stderr, "tarvik-qmi: %s failed with %ld\n", what, status);
    }
  }
  return 1;
}

namespace {

int RunNv(const Options &options, const Args &args) {
  unsigned long sub = 0, item = 0;
  if (args.size() < 3 || !ParseChannelNumber(args[1], 255, &sub) ||
      !ParseChannelNumber(args[2], 0xFFFF, &item)) {
    return UsageError("nv");
  }
  const std::string &verb = args[0];
  std::vector<uint8_t> data;
  if ((verb == "write" && (args.size() != 4 || !FeatureParseHex(args[3], &data))) ||
      ((verb == "read" || verb == "delete") && args.size() != 3) ||
      (verb != "read" && verb != "write" && verb != "delete")) {
    return UsageError("nv");
  }
  const int ready = FeatureConnect(options);
  if (ready != 0) {
    return ready;
  }
  const auto s = static_cast<uint32_t>(sub);
  const auto n = static_cast<uint32_t>(item);
  const std::string what = "nv " + verb;
  if (verb == "read") {
    uint8_t buf[TARVIK_NVEFS_DATA_MAX];
    uint32_t len = sizeof(buf);
    const int status = tarvik_nv_read(s, n, buf, &len);
    if (status != 0) {
      return FeatureFailed(options, what.c_str(), status);
    }
    const std::string hex = ChannelHex(buf, len);
    if (options.json) {
      printf("{\"sub\":%u,\"item\":%u,\"length\":%u,\"data\":\"%s\"}\n", s, n, len, hex.c_str());
    } else {
      printf("sub %u item %u: %u bytes\n%s\n", s, n, len, hex.c_str());
    }
    return 0;
  }
  const int status = verb == "write"
                         ? tarvik_nv_write_ex(s, n, data.data(), static_cast<uint32_t>(data.size()))
                         : tarvik_nv_delete(s, n);
  if (status != 0) {
    return FeatureFailed(options, what.c_str(), status);
  }
  if (options.json) {
    printf("{\"sub\":%u,\"item\":%u,\"status\":0}\n", s, n);
  } else {
    printf("sub %u item %u: %s\n", s, n, verb == "write" ? "written" : "deleted");
  }
  return 0;
}

TARVIK_COMMAND("nv", "read|write|delete SUB ITEM [HEX]",
               "reads, writes (hex) or deletes an NV item of a subscription", RunNv);

}  // namespace
}  // namespace tarvik_tool
