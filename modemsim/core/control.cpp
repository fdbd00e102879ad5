// Control commands of the simulated modem (see modemsim/control.h).
#include "modemsim/control.h"

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <utility>

#include "dfs/dfs_service.h"
#include "extend/extend_service.h"

namespace modemsim {
namespace {

using Words = std::vector<std::string>;

// Decimal or 0x-hex, the whole word, within [0, max].
bool ParseNumber(const std::string &word, unsigned long max, unsigned long *value) {
  if (word.empty() || word[0] == '-' || isspace(static_cast<unsigned char>(word[0]))) return false;
  errno = 0;
  char *end = nullptr;
  const unsigned long v = strtoul(word.c_str(), &end, 0);
  if (errno != 0 || end == word.c_str() || *end != '\0' || v > max) return false;
  *value = v;
  return true;
}

// Hex digits in pairs, or "-" for nothing.
bool ParseHex(const std::string &word, std::vector<uint8_t> *out) {
  out->clear();
  if (word == "-") return true;
  if (word.size() % 2 != 0) return false;
  for (size_t i = 0; i < word.size(); i += 2) {
    if (!isxdigit(static_cast<unsigned char>(word[i])) ||
        !isxdigit(static_cast<unsigned char>(word[i + 1]))) {
      return false;
    }
    out->push_back(static_cast<uint8_t>(strtoul(word.substr(i, 2).c_str(), nullptr, 16)));
  }
  return true;
}

std::string Hex(uint32_t v) {
  char buf[16];
  snprintf(buf, sizeof(buf), "0x%04X", v);
  return buf;
}

// The outcome of one command: a text line, or JSON members.
class Output {
 public:
  explicit Output(bool json) : json_(json) {}
  void Field(const std::string &key, const std::string &json_value) {
    members_ += (members_.empty() ? "\"" : ",\"") + key + "\":" + json_value;
  }
  int Done(const std::string &line, std::string *out) const {
    *out += json_ ? "{" + members_ + "}\n" : line + "\n";
    return 0;
  }
  int Refused(const std::string &why, int status, std::string *out) const {
    std::string escaped;
    for (char c : why) {
      if (c == '"' || c == '\\') escaped += '\\';
      escaped += c;
    }
    *out += json_ ? "{\"error\":\"" + escaped + "\"}\n" : why + "\n";
    return status;
  }
  bool json() const { return json_; }

 private:
  bool json_;
  std::string members_;
};

// As text the caller adds the usage; as JSON the error says where to look.
int Usage(const Output &o, std::string *out) {
  return o.json() ? o.Refused("bad arguments (see the usage of sim)", 2, out) : 2;
}

int NoService(const Output &o, uint32_t service, std::string *out) {
  return o.Refused("no service " + Hex(service), 1, out);
}

int Status(Modem &modem, const Words &w, Output &o, std::string *out) {
  if (w.size() != 1) return Usage(o, out);
  std::string text, json = "[";
  for (const auto &s : modem.Status()) {
    char line[160];
    snprintf(line, sizeof(line), "%s%s instance %u %s clients %zu received %zu",
             text.empty() ? "" : "\n", Hex(s.id).c_str(), s.instance, s.up ? "up" : "down",
             s.clients, s.received);
    text += line;
    snprintf(line, sizeof(line),
             "%s{\"service\":%u,\"instance\":%u,\"up\":%s,\"clients\":%zu,\"received\":%zu}",
             json.size() > 1 ? "," : "", s.id, s.instance, s.up ? "true" : "false", s.clients,
             s.received);
    json += line;
  }
  o.Field("services", json + "]");
  // The data filter service's clients: binding, filter mode, filters held.
  const std::string dfs_text = dfs::StatusText(modem);
  if (!dfs_text.empty()) text += (text.empty() ? "" : "\n") + dfs_text;
  o.Field("dfs", dfs::StatusJson(modem));
  return o.Done(text, out);
}

// fault SERVICE MSG|any KIND [ARG] [COUNT]
int RunFault(Modem &modem, uint32_t service, const Words &w, Output &o, std::string *out) {
  if (w.size() < 4) return Usage(o, out);
  unsigned long msg = 0, arg = 0, count = 0;
  int msg_id = kAnyMessage;
  if (w[2] != "any") {
    if (!ParseNumber(w[2], 0xffff, &msg)) return Usage(o, out);
    msg_id = (int)msg;
  }
  Fault fault;
  const std::string &kind = w[3];
  size_t next = 4;
  if (kind == "noanswer") {
    fault.kind = Fault::kNoAnswer;
  } else if (kind == "delay" || kind == "result") {
    if (w.size() < 5 || !ParseNumber(w[4], kind == "delay" ? 600000 : 0xffff, &arg)) {
      return Usage(o, out);
    }
    fault.kind = kind == "delay" ? Fault::kDelay : Fault::kResult;
    if (kind == "delay") {
      fault.delay_ms = (uint32_t)arg;
    } else {
      fault.error = (int)arg;
    }
    next = 5;
  } else if (kind == "transport") {
    fault.kind = Fault::kTransportError;
    fault.error = QMI_CLIENT_TRANSPORT_ERR;
    // An optional negative client error code, e.g. -21 (busy).
    if (w.size() > 4 && !w[4].empty() && w[4][0] == '-') {
      if (!ParseNumber(w[4].substr(1), 100, &arg) || arg == 0) return Usage(o, out);
      fault.error = -(int)arg;
      next = 5;
    }
  } else {
    return Usage(o, out);
  }
  if (w.size() > next + 1) return Usage(o, out);
  if (w.size() == next + 1) {
    if (!ParseNumber(w[next], 1000000, &count) || count == 0) return Usage(o, out);
    fault.count = (int)count;
  }
  if (modem.FindService(service) == nullptr) return NoService(o, service, out);
  modem.SetFault(service, msg_id, fault);
  o.Field("fault", "\"" + kind + "\"");
  return o.Done("fault set on " + Hex(service), out);
}

int Restart(Modem &modem, uint32_t id, const Words &w, Output &o, std::string *out) {
  unsigned long down_ms = 0;
  if (w.size() > 3 || (w.size() == 3 && !ParseNumber(w[2], 600000, &down_ms))) {
    return Usage(o, out);
  }
  if (modem.Restart(id, (uint32_t)down_ms) != 0) return NoService(o, id, out);
  o.Field("down_ms", std::to_string(down_ms));
  return o.Done("restarted " + Hex(id), out);
}

int Presence(Modem &modem, uint32_t id, const Words &w, Output &o, std::string *out) {
  if (w.size() != 2) return Usage(o, out);
  const bool present = w[0] == "present";
  if (modem.SetPresent(id, present) != 0) return NoService(o, id, out);
  o.Field("present", present ? "true" : "false");
  return o.Done(Hex(id) + (present ? " present" : " absent"), out);
}

int Clear(Modem &modem, uint32_t id, const Words &w, Output &o, std::string *out) {
  if (w.size() != 2) return Usage(o, out);
  if (modem.FindService(id) == nullptr) return NoService(o, id, out);
  modem.ClearFaults(id);
  return o.Done("faults cleared on " + Hex(id), out);
}

// How many clients an indication reached, or why none could be.
int Sent(int reached, Output &o, std::string *out) {
  if (reached < 0) {
    return o.Refused("the indication could not be sent (" + std::to_string(reached) + ")", 1, out);
  }
  o.Field("clients", std::to_string(reached));
  return o.Done("indication sent to " + std::to_string(reached) + " client(s)", out);
}

int Indicate(Modem &modem, uint32_t id, const Words &w, Output &o, std::string *out) {
  unsigned long msg = 0;
  std::vector<uint8_t> tlvs;
  if (w.size() != 4 || !ParseNumber(w[2], 0xffff, &msg) || !ParseHex(w[3], &tlvs)) {
    return Usage(o, out);
  }
  if (modem.FindService(id) == nullptr) return NoService(o, id, out);
  return Sent(modem.PushRawIndication(id, (uint16_t)msg, tlvs.data(), tlvs.size()), o, out);
}

// event EVENT [HEX]: no SERVICE word, the extend service is implied.
int Event(Modem &modem, const Words &w, Output &o, std::string *out) {
  unsigned long event = 0;
  std::vector<uint8_t> data;
  if (w.size() < 2 || w.size() > 3 || !ParseNumber(w[1], extend::kMaxEvents - 1, &event) ||
      (w.size() == 3 && (!ParseHex(w[2], &data) || data.size() > extend::kMaxPayload))) {
    return Usage(o, out);
  }
  o.Field("event", std::to_string(event));
  return Sent(extend::InjectEvent(modem, (uint32_t)event, data.data(), (uint32_t)data.size()), o,
              out);
}

using ServiceCommand = int (*)(Modem &, uint32_t, const Words &, Output &, std::string *);

const struct {
  const char *name;
  ServiceCommand run;
} kServiceCommands[] = {
    {"fault", RunFault},   {"restart", Restart}, {"absent", Presence},
    {"present", Presence}, {"clear", Clear},     {"indicate", Indicate},
};

}  // namespace

const char *ControlUsage() {
  return "status | restart SERVICE [DOWN_MS] | absent SERVICE | present SERVICE |\n"
         "fault SERVICE MSG|any noanswer|delay MS|result QMI_ERROR|transport [-ERR] [COUNT] |\n"
         "clear SERVICE | indicate SERVICE MSG HEX|- | event EVENT [HEX]";
}

int RunControlCommand(Modem &modem, const std::vector<std::string> &words, std::string *out) {
  const bool json = !words.empty() && words[0] == "--json";
  const Words w(words.begin() + (json ? 1 : 0), words.end());
  Output o(json);
  if (w.empty()) return Usage(o, out);
  if (w[0] == "status") return Status(modem, w, o, out);
  if (w[0] == "event") return Event(modem, w, o, out);
  for (const auto &c : kServiceCommands) {
    if (w[0] != c.name) continue;
    unsigned long service = 0;
    if (w.size() < 2 || !ParseNumber(w[1], 0xffffffffUL, &service)) return Usage(o, out);
    o.Field("service", std::to_string(service));
    return c.run(modem, (uint32_t)service, w, o, out);
  }
  return Usage(o, out);
}

}  // namespace modemsim
