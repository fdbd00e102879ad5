// send: one generic request over the vendor channel (request id and payload as given), the
// modem's answer printed as hex. The embedded modem answers request id 255 itself (loopback).
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "command.h"
#include "modem_conn.h"
#include "tarvik_extend_api.h"
#include "tarvik_utils_cmn.h"

namespace tarvik_tool {

// Lower-case hex of `len` bytes; shared with the watch command.
std::string ChannelHex(const void *data, size_t len) {
  static const char kDigits[] = "0123456789abcdef";
  const auto *p = static_cast<const uint8_t *>(data);
  std::string out;
  out.reserve(len * 2);
  for (size_t i = 0; i < len; ++i) {
    out += kDigits[p[i] >> 4];
    out += kDigits[p[i] & 0xF];
  }
  return out;
}

// The library traces every channel step to standard output under the shell print mask; the
// tool's own output must stay readable (and parseable with --json). The system log keeps it.
void QuietChannel() {
  tarvik_hal_get_shell_print_flag(0);
  tarvik_hal_set_shell_print_mask(0);
}

// A number in decimal or 0x-hex that fits `max`.
bool ParseChannelNumber(const std::string &text, unsigned long max, unsigned long *value) {
  if (text.empty() || text[0] == '-') {
    return false;
  }
  errno = 0;
  char *end = nullptr;
  const unsigned long v = strtoul(text.c_str(), &end, 0);
  if (errno != 0 || end == text.c_str() || *end != '\0' || v > max) {
    return false;
  }
  *value = v;
  return true;
}

namespace {

bool ParseHex(const std::string &text, std::vector<uint8_t> *out) {
  if (text == "-") {
    out->clear();
    return true;
  }
  if (text.size() % 2 != 0) {
    return false;
  }
  out->clear();
  for (size_t i = 0; i < text.size(); i += 2) {
    char byte[3] = {text[i], text[i + 1], '\0'};
    char *end = nullptr;
    if (!isxdigit(static_cast<unsigned char>(byte[0])) ||
        !isxdigit(static_cast<unsigned char>(byte[1]))) {
      return false;
    }
    out->push_back(static_cast<uint8_t>(strtoul(byte, &end, 16)));
  }
  return true;
}

const char *StatusText(int status) {
  switch (status) {
    case TARVIK_EXTEND_QMI_EINVAL:
      return "invalid argument";
    case TARVIK_EXTEND_QMI_ENOCLIENT:
      return "no connection to the extend service";
    case TARVIK_EXTEND_QMI_EFAIL:
      return "refused by the modem, timed out, or the retry failed";
    default:
      return "failed";
  }
}

int RunSend(const Options &options, const Args &args) {
  unsigned long id = 0, capacity = TARVIK_EXTEND_QMI_MAX_PAYLOAD;
  std::vector<uint8_t> payload;
  if (args.size() < 2 || args.size() > 3 || !ParseChannelNumber(args[0], UINT32_MAX, &id) ||
      !ParseHex(args[1], &payload) ||
      (args.size() == 3 &&
       !ParseChannelNumber(args[2], TARVIK_EXTEND_QMI_MAX_PAYLOAD, &capacity))) {
    return UsageError("send");
  }
  if (payload.size() > TARVIK_EXTEND_QMI_MAX_PAYLOAD) {
    fprintf(stderr, "tarvik-qmi: the payload is %zu bytes, at most %u fit\n", payload.size(),
            TARVIK_EXTEND_QMI_MAX_PAYLOAD);
    return 2;
  }
  QuietChannel();
  const int ready = PrepareModem(options);
  if (ready != 0) {
    return ready;
  }
  uint8_t request[TARVIK_EXTEND_QMI_MAX_PAYLOAD] = {};
  uint8_t response[TARVIK_EXTEND_QMI_MAX_PAYLOAD] = {};
  if (!payload.empty()) {
    memcpy(request, payload.data(), payload.size());
  }
  uint32_t len = static_cast<uint32_t>(capacity);
  const int status = tarvik_extend_qmi_send_sync(
      static_cast<uint32_t>(id), request, static_cast<uint32_t>(payload.size()), response, &len);
  if (options.json) {
    printf("{\"request_id\":%lu,\"status\":%d", id, status);
    if (status == 0) {
      printf(",\"length\":%u,\"data\":\"%s\"", len, ChannelHex(response, len).c_str());
    }
    printf("}\n");
  } else if (status == 0) {
    printf("request %lu: %u bytes\n%s\n", id, len,
           len > 0 ? ChannelHex(response, len).c_str() : "-");
  } else {
    fprintf(stderr, "tarvik-qmi: request %lu failed with %d (%s)\n", id, status,
            StatusText(status));
  }
  return status == 0 ? 0 : 1;
}

TARVIK_COMMAND("send", "REQUEST_ID HEX|- [CAPACITY]",
               "one generic request over the vendor channel; prints the answer as hex", RunSend);

}  // namespace
}  // namespace tarvik_tool
