// watch: registers events of the vendor channel and prints every indication as it arrives
// (events, and the self-study, WeChat and base-model indications), for a bounded time.
#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "command.h"
#include "extend/extend_service.h"
#include "modem_conn.h"
#include "tarvik_extend_api.h"

namespace tarvik_tool {

// From cmd_send.cpp.
std::string ChannelHex(const void *data, size_t len);
void QuietChannel();
bool ParseChannelNumber(const std::string &text, unsigned long max, unsigned long *value);

namespace {

constexpr unsigned long kDefaultSeconds = 10;
constexpr unsigned long kMaxSeconds = 24 * 3600;

std::mutex g_print_mu;
bool g_json = false;

// Callbacks run on the client library's thread; lines are printed whole and flushed at once.
void Print(const char *kind, int id, const void *data, int len) {
  std::lock_guard<std::mutex> lock(g_print_mu);
  const std::string hex = ChannelHex(data, len > 0 ? static_cast<size_t>(len) : 0);
  if (g_json) {
    printf("{\"kind\":\"%s\",\"id\":%d,\"length\":%d,\"data\":\"%s\"}\n", kind, id, len,
           hex.c_str());
  } else {
    printf("%s %d: %d bytes %s\n", kind, id, len, len > 0 ? hex.c_str() : "-");
  }
  fflush(stdout);
}

void OnEvent(int id, void *data, int len) {
  Print("event", id, data, len);
}
void OnIndication(int id, void *data, int len) {
  Print("indication", id, data, len);
}

struct Injection {
  unsigned long event;
  std::vector<uint8_t> data;
};

// EVENT:HEX (or EVENT alone: no payload).
bool ParseInjection(const std::string &text, Injection *out) {
  const size_t colon = text.find(':');
  if (!ParseChannelNumber(text.substr(0, colon), TARVIK_EXTEND_QMI_MAX_EVENT, &out->event)) {
    return false;
  }
  out->data.clear();
  if (colon == std::string::npos) {
    return true;
  }
  const std::string hex = text.substr(colon + 1);
  if (hex.size() % 2 != 0 || hex.size() / 2 > TARVIK_EXTEND_QMI_MAX_PAYLOAD) {
    return false;
  }
  for (size_t i = 0; i < hex.size(); i += 2) {
    unsigned long byte = 0;
    if (!isxdigit(static_cast<unsigned char>(hex[i])) ||
        !ParseChannelNumber("0x" + hex.substr(i, 2), 0xFF, &byte)) {
      return false;
    }
    out->data.push_back(static_cast<uint8_t>(byte));
  }
  return true;
}

int RunWatch(const Options &options, const Args &args) {
  unsigned long seconds = kDefaultSeconds;
  bool ind_flag = false;
  std::vector<int> events;
  std::vector<Injection> injections;
  for (size_t i = 0; i < args.size(); ++i) {
    unsigned long event = 0;
    Injection injection;
    if (args[i] == "--for" && i + 1 < args.size() &&
        ParseChannelNumber(args[i + 1], kMaxSeconds, &seconds)) {
      ++i;
    } else if (args[i] == "--flag") {
      ind_flag = true;
    } else if (args[i] == "--inject" && i + 1 < args.size() &&
               ParseInjection(args[i + 1], &injection)) {
      injections.push_back(injection);
      ++i;
    } else if (ParseChannelNumber(args[i], TARVIK_EXTEND_QMI_MAX_EVENT, &event)) {
      events.push_back(static_cast<int>(event));
    } else {
      return UsageError("watch");
    }
  }
  if (events.empty()) {
    return UsageError("watch");
  }
  g_json = options.json;
  QuietChannel();
  const int ready = PrepareModem(options);
  if (ready != 0) {
    return ready;
  }
  if (!injections.empty() && EmbeddedModem() == nullptr) {
    fprintf(stderr, "tarvik-qmi: --inject needs the embedded modem\n");
    return 2;
  }
  tarvik_extend_qmi_self_study_register(OnIndication);
  tarvik_extend_qmi_wechat_register(OnIndication);
  tarvik_extend_qmi_base_model_register(OnIndication);
  std::vector<int> registered;
  for (int event : events) {
    const int status = tarvik_extend_qmi_register(event, OnEvent, ind_flag ? 1 : 0);
    if (status != 0) {
      fprintf(stderr, "tarvik-qmi: event %d: registration failed with %d\n", event, status);
      continue;
    }
    registered.push_back(event);
  }
  if (registered.empty()) {
    return 1;
  }
  {
    std::lock_guard<std::mutex> lock(g_print_mu);
    if (!g_json) {
      printf("watching %zu event(s) for %lu s\n", registered.size(), seconds);
      fflush(stdout);
    }
  }
  for (const Injection &inj : injections) {
    modemsim::extend::InjectEvent(*EmbeddedModem(), static_cast<uint32_t>(inj.event),
                                  inj.data.data(), static_cast<uint32_t>(inj.data.size()));
  }
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  int result = 0;
  for (int event : registered) {
    if (tarvik_extend_qmi_deregister(static_cast<uint32_t>(event)) != 0) {
      result = 1;
    }
  }
  // No callback may print after this command has returned.
  tarvik_extend_qmi_self_study_register(nullptr);
  tarvik_extend_qmi_wechat_register(nullptr);
  tarvik_extend_qmi_base_model_register(nullptr);
  return result;
}

TARVIK_COMMAND("watch", "[--for SECONDS] [--flag] [--inject EVENT[:HEX]]... EVENT...",
               "registers events (0-6) and prints indications as they arrive", RunWatch);

}  // namespace
}  // namespace tarvik_tool
