// watch: registers events of the vendor channel (every event when none is named) and prints
// every indication as it arrives (events, and the self-study, WeChat and base-model indications)
// for a bounded time. A loss of the extend service (a modem restart, the daemon going away) is
// reported, and once the service is back the events are registered again and that is reported
// too. With --json every line is one object; the last one carries the status.
#include <stdio.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "extend/extend_service.h"
#include "qmi_client.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_qmi_v01.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

constexpr unsigned long kDefaultSeconds = 10;
constexpr unsigned long kMaxSeconds = 24 * 3600;
constexpr unsigned kProbeTimeoutMs = 200;

std::mutex g_print_mu;
bool g_json = false;
std::atomic<bool> g_lost{false};

// One line, printed whole and flushed at once (callbacks run on the client library's thread).
void PrintLine(const std::vector<Field> &fields, const std::string &text) {
  std::lock_guard<std::mutex> lock(g_print_mu);
  if (g_json) {
    std::string out = "{\"command\":\"watch\"";
    for (const Field &f : fields) out += "," + JsonString(f.key) + ":" + f.json;
    printf("%s}\n", out.c_str());
  } else {
    printf("%s\n", text.c_str());
  }
  fflush(stdout);
}

void Print(const char *kind, int id, const void *data, int len) {
  const size_t n = len > 0 ? static_cast<size_t>(len) : 0;
  const Field hex = Hex("data", data, n);
  PrintLine({Str("kind", kind), Num("id", id), Num("length", len), hex},
            std::string(kind) + " " + std::to_string(id) + ": " + std::to_string(len) + " bytes " +
                hex.text);
}

void OnEvent(int id, void *data, int len) {
  Print("event", id, data, len);
}
void OnIndication(int id, void *data, int len) {
  Print("indication", id, data, len);
}

void OnServiceError(qmi_client_type, qmi_client_error_type, void *) {
  g_lost = true;
}

// A client of the extend service of our own, whose only job is to hear the service go away.
qmi_client_type OpenWatcher() {
  qmi_client_type handle = nullptr;
  if (qmi_client_init_instance(&tarvik_extend_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY,
                               nullptr, nullptr, nullptr, kProbeTimeoutMs, &handle) != QMI_NO_ERR) {
    return nullptr;
  }
  qmi_client_register_error_cb(handle, OnServiceError, nullptr);
  return handle;
}

struct Injection {
  unsigned long event;
  std::vector<uint8_t> data;
};

// EVENT:HEX (or EVENT alone: no payload).
bool ParseInjection(const std::string &text, Injection *out, std::string *why) {
  const size_t colon = text.find(':');
  if (!ParseNumber(text.substr(0, colon), TARVIK_EXTEND_QMI_MAX_EVENT, &out->event)) {
    *why = "--inject '" + text + "': the event is not 0 to 6";
    return false;
  }
  return colon == std::string::npos || ParseHex(text.substr(colon + 1), &out->data, why);
}

// Registers `events`; the ones the channel took are in *registered. The last failure's status.
int RegisterAll(const std::vector<int> &events, bool ind_flag, std::vector<uint32_t> *registered) {
  registered->clear();
  int failure = 0;
  for (int event : events) {
    const int status = tarvik_extend_qmi_register(event, OnEvent, ind_flag ? 1 : 0);
    if (status == 0) {
      registered->push_back(static_cast<uint32_t>(event));
      continue;
    }
    failure = status;
    PrintLine({Str("kind", "error"), Num("event", event), Num("status", status),
               Str("status_name", StatusName(Family::kChannel, status))},
              "event " + std::to_string(event) +
                  ": registration failed: " + StatusText(Family::kChannel, status));
  }
  return failure;
}

int Watch(Report &report, const Args &args) {
  unsigned long seconds = kDefaultSeconds;
  bool ind_flag = false;
  std::vector<int> events;
  std::vector<Injection> injections;
  std::string why;
  for (size_t i = 0; i < args.size(); ++i) {
    unsigned long event = 0;
    Injection injection;
    if (args[i] == "--for") {
      if (i + 1 >= args.size() || !ParseNumber(args[i + 1], kMaxSeconds, &seconds)) {
        return report.Refuse("--for takes 0 to " + std::to_string(kMaxSeconds) + " seconds");
      }
      ++i;
    } else if (args[i] == "--flag") {
      ind_flag = true;
    } else if (args[i] == "--inject") {
      if (i + 1 >= args.size()) return report.Refuse("--inject takes EVENT[:HEX]");
      if (!ParseInjection(args[++i], &injection, &why)) return report.Refuse(why);
      injections.push_back(injection);
    } else if (ParseNumber(args[i], TARVIK_EXTEND_QMI_MAX_EVENT, &event)) {
      events.push_back(static_cast<int>(event));
    } else {
      return report.Refuse("'" + args[i] + "' is not an event from 0 to 6");
    }
  }
  if (events.empty()) {
    for (int e = 0; e <= TARVIK_EXTEND_QMI_MAX_EVENT; ++e) events.push_back(e);
  }
  g_json = report.options().json;
  if (const int ready = Connect(report)) return ready;
  if (!injections.empty() && EmbeddedModem() == nullptr) {
    return report.Refuse("--inject needs the embedded modem (against a daemon: sim event)");
  }
  qmi_client_type watcher = OpenWatcher();
  tarvik_extend_qmi_self_study_register(OnIndication);
  tarvik_extend_qmi_wechat_register(OnIndication);
  tarvik_extend_qmi_base_model_register(OnIndication);
  std::vector<uint32_t> registered;
  const int failure = RegisterAll(events, ind_flag, &registered);
  if (registered.empty()) return report.Failed(Family::kChannel, failure);
  const Field watched = Nums("events", registered);
  PrintLine({Str("kind", "watching"), watched, Num("seconds", static_cast<long long>(seconds))},
            "watching events " + watched.text + " for " + std::to_string(seconds) + " s");
  for (const Injection &inj : injections) {
    modemsim::extend::InjectEvent(*EmbeddedModem(), static_cast<uint32_t>(inj.event),
                                  inj.data.data(), static_cast<uint32_t>(inj.data.size()));
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  bool down = false;
  while (std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (g_lost.exchange(false) || (watcher == nullptr && !down)) {
      PrintLine({Str("kind", "service"), Str("state", "lost")},
                "service lost: the extend service went away");
      down = true;
      if (watcher != nullptr) qmi_client_release(watcher);
      watcher = nullptr;
    }
    if (down && (watcher = OpenWatcher()) != nullptr) {
      down = false;
      tarvik_extend_qmi_init_force();  // the old handles died with the service
      RegisterAll(events, ind_flag, &registered);
      const Field again = Nums("events", registered);
      PrintLine({Str("kind", "service"), Str("state", "back"), again},
                "service back: events " + again.text + " registered again");
    }
  }
  int status = 0;
  // Registrations die with the service: nothing to undo while it is away.
  for (uint32_t event : down ? std::vector<uint32_t>() : registered) {
    const int s = tarvik_extend_qmi_deregister(event);
    status = s != 0 ? s : status;
  }
  if (watcher != nullptr) qmi_client_release(watcher);
  // No callback may print after this command has returned.
  tarvik_extend_qmi_self_study_register(nullptr);
  tarvik_extend_qmi_wechat_register(nullptr);
  tarvik_extend_qmi_base_model_register(nullptr);
  std::lock_guard<std::mutex> lock(g_print_mu);
  if (status != 0) return report.Failed(Family::kChannel, status);
  return g_json ? report.Add(watched).Ok() : kExitOk;
}

const Verb kVerbs[] = {
    {"", "[--for SECONDS] [--flag] [--inject EVENT[:HEX]]... [EVENT...]", 0, SIZE_MAX, Watch}};
TARVIK_COMMAND("watch",
               "registers events 0-6 (all when none is named) and prints indications as they "
               "arrive",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
