// Control commands of the simulated modem (see modemsim/control.h).
#include "modemsim/control.h"

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "dfs/dfs_service.h"
#include "extend/extend_service.h"
#include "features/feature_modem.h"
#include "tarvik_extend_cmn.h"
#include "uim/uim_service.h"

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

std::string HexBytes(const uint8_t *p, size_t n) {
  std::string text;
  char b[3];
  for (size_t i = 0; i < n; ++i) {
    snprintf(b, sizeof(b), "%02X", p[i]);
    text += b;
  }
  return text;
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

// ---- the feature modem: its state in `status`, its profile and settings in `set` ----

const char *OrderName(uint32_t type) {
  return type == COMMON_MSG_MODEM_SSR ? "restart" : "crash";
}

std::string Quoted(const std::string &text) {
  std::string q = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') {
      q += '\\';
      q += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char esc[8];
      snprintf(esc, sizeof(esc), "\\u%04x", static_cast<unsigned char>(c));
      q += esc;
    } else {
      q += c;
    }
  }
  return q + "\"";
}

void FeatureStatus(const features::FeatureModem &fm, std::string *text, Output &o) {
  std::string json = "{";
  const struct {
    const char *name;
    uint32_t cmd;
  } notes[] = {{"screen", COMMON_CMD_SCREEN_STATUS}, {"sleep", COMMON_CMD_SLEEP_STATUS}};
  for (const auto &n : notes) {
    uint32_t v = 0;
    const bool known = fm.NotifyState(n.cmd, &v);
    *text += std::string("\n") + n.name + " " + (known ? std::to_string(v) : "-");
    json += std::string(json.size() > 1 ? "," : "") + "\"" + n.name +
            "\":" + (known ? std::to_string(v) : "null");
  }
  std::string orders_text, orders_json;
  for (const auto &order : fm.Orders()) {
    char line[64];
    snprintf(line, sizeof(line), " %s 0x%08X", OrderName(order.type), order.flag);
    orders_text += line;
    snprintf(line, sizeof(line), "%s{\"order\":\"%s\",\"flag\":%u}", orders_json.empty() ? "" : ",",
             OrderName(order.type), order.flag);
    orders_json += line;
  }
  *text += "\norders" + (orders_text.empty() ? std::string(" -") : orders_text) +
           " (restart down " + std::to_string(fm.RestartDownMs()) + " ms)";
  *text += "\nmcfg event clients " + std::to_string(fm.McfgEventClients().size()) + ", nv syncs " +
           std::to_string(fm.NvSyncCount());
  json += ",\"orders\":[" + orders_json +
          "],\"restart_down_ms\":" + std::to_string(fm.RestartDownMs()) +
          ",\"mcfg_event_clients\":" + std::to_string(fm.McfgEventClients().size()) +
          ",\"nv_syncs\":" + std::to_string(fm.NvSyncCount()) + "}";
  o.Field("features", json);
}

// profile: the identity words, texts and records the modem answers.
int Profile(Modem &modem, const Words &w, Output &o, std::string *out) {
  features::FeatureModem *fm = features::Of(modem);
  if (w.size() != 1) return Usage(o, out);
  if (fm == nullptr) return o.Refused("no feature modem", 1, out);
  const features::FeatureModem::Profile p = fm->GetProfile();
  std::string text, words = "{", strings = "{", records = "{";
  for (const auto &e : p.words) {
    text += (text.empty() ? "" : "\n") + std::string("word ") + std::to_string(e.first) + " " +
            Hex(e.second);
    words += (words.size() > 1 ? ",\"" : "\"") + std::to_string(e.first) +
             "\":" + std::to_string(e.second);
  }
  for (const auto &e : p.strings) {
    text += "\nstring " + std::to_string(e.first) + " " + e.second;
    strings +=
        (strings.size() > 1 ? ",\"" : "\"") + std::to_string(e.first) + "\":" + Quoted(e.second);
  }
  for (const auto &e : p.records) {
    std::string hex;
    for (uint8_t b : e.second) {
      char two[3];
      snprintf(two, sizeof(two), "%02x", b);
      hex += two;
    }
    text += "\nrecord " + std::to_string(e.first) + " " + hex;
    records += (records.size() > 1 ? ",\"" : "\"") + std::to_string(e.first) + "\":\"" + hex + "\"";
  }
  o.Field("words", words + "}");
  o.Field("strings", strings + "}");
  o.Field("records", records + "}");
  return o.Done(text, out);
}

// set NAME VALUE | set string TYPE TEXT... | set record TYPE HEX
const struct {
  const char *name;
  uint32_t cmd;
} kProfileWords[] = {
    {"chipset-id", COMMON_CMD_CHIPSET_ID}, {"hw-id", COMMON_CMD_HW_ID},
    {"bp-chip-id", COMMON_CMD_BP_CHIP_ID}, {"cdma", COMMON_CMD_CDMA_SUPPORT},
    {"dsda", COMMON_CMD_DSDA_SUPPORT},     {"cust-max", COMMON_CMD_MBN_LIST_CUST_MAX_NUM},
};

int Set(Modem &modem, const Words &w, Output &o, std::string *out) {
  features::FeatureModem *fm = features::Of(modem);
  unsigned long value = 0;
  if (w.size() < 3) return Usage(o, out);
  if (fm == nullptr) return o.Refused("no feature modem", 1, out);
  bool stored = true;
  if (w[1] == "string" || w[1] == "record") {
    std::vector<uint8_t> bytes;
    if (w.size() < 4 || !ParseNumber(w[2], 0xffffffffUL, &value)) return Usage(o, out);
    if (w[1] == "string") {
      std::string text = w[3];
      for (size_t i = 4; i < w.size(); ++i) text += " " + w[i];
      if (text.size() >= TARVIK_CMN_RSP_DATA_MAX) return Usage(o, out);
      stored = fm->SetString((uint32_t)value, text);
    } else {
      // The record's bytes after its length byte, which the modem puts in front.
      if (w.size() != 4 || !ParseHex(w[3], &bytes) || bytes.size() > 254) return Usage(o, out);
      bytes.insert(bytes.begin(), static_cast<uint8_t>(bytes.size() + 1));
      stored = fm->SetRecord((uint32_t)value, bytes);
    }
  } else if (w.size() != 3 || !ParseNumber(w[2], 0xffffffffUL, &value)) {
    return Usage(o, out);
  } else if (w[1] == "restart-down-ms") {
    if (value > 600000) return Usage(o, out);
    fm->SetRestartDownMs((uint32_t)value);
  } else {
    const auto *row = std::find_if(std::begin(kProfileWords), std::end(kProfileWords),
                                   [&](const auto &r) { return w[1] == r.name; });
    if (row == std::end(kProfileWords)) return Usage(o, out);
    stored = fm->SetWord(row->cmd, (uint32_t)value);
  }
  if (!stored) return o.Refused("the state directory refused the change", 1, out);
  o.Field("set", Quoted(w[1]));
  return o.Done(w[1] + " set", out);
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
    if (!s.summary_text.empty()) text += " " + s.summary_text;
    snprintf(line, sizeof(line),
             "%s{\"service\":%u,\"instance\":%u,\"up\":%s,\"clients\":%zu,\"received\":%zu",
             json.size() > 1 ? "," : "", s.id, s.instance, s.up ? "true" : "false", s.clients,
             s.received);
    json += line;
    json += (s.summary_json.empty() ? "" : "," + s.summary_json) + "}";
  }
  o.Field("services", json + "]");
  if (features::FeatureModem *fm = features::Of(modem)) {
    FeatureStatus(*fm, &text, o);
  }
  const uim::View cards = uim::Of(modem);
  if (!cards.slots.empty()) {
    std::string list = "[";
    for (const uim::SlotView &s : cards.slots) {
      const std::string eid =
          s.kind == uim::CardKind::kEuicc ? HexBytes(s.eid.data(), s.eid.size()) : "";
      char line[200];
      snprintf(line, sizeof(line), "\nslot %u %s %s switch %s%s%s channels %zu", s.slot,
               uim::KindName(s.kind), uim::StateName(s.state), s.switch_card ? "on" : "off",
               eid.empty() ? "" : " eid ", eid.c_str(), s.channels.size());
      text += line;
      snprintf(line, sizeof(line),
               "%s{\"slot\":%u,\"card\":\"%s\",\"state\":\"%s\",\"switch\":%s,"
               "\"eid\":\"%s\",\"channels\":%zu}",
               list.size() > 1 ? "," : "", s.slot, uim::KindName(s.kind), uim::StateName(s.state),
               s.switch_card ? "true" : "false", eid.c_str(), s.channels.size());
      list += line;
    }
    o.Field("cards", list + "]");
  }
  // The data filter service's clients: binding, filter mode, filters held.
  const std::string dfs_text = dfs::StatusText(modem);
  if (!dfs_text.empty()) text += (text.empty() ? "" : "\n") + dfs_text;
  o.Field("dfs", dfs::StatusJson(modem));
  return o.Done(text, out);
}

// card SLOT none|sim|euicc [EID] | card SLOT present|absent|error | card SLOT switch on|off |
// card slots N | card purge purged|failed|silent [DELAY_MS]
int Card(Modem &modem, const Words &w, Output &o, std::string *out) {
  if (w.size() < 3) return Usage(o, out);
  unsigned long n = 0;
  int rc = uim::kOk;
  if (w[1] == "purge") {
    static const std::pair<const char *, uim::PurgeMode> kModes[] = {
        {"purged", uim::PurgeMode::kPurged},
        {"failed", uim::PurgeMode::kFailed},
        {"silent", uim::PurgeMode::kSilent}};
    const auto *mode = std::find_if(std::begin(kModes), std::end(kModes),
                                    [&](const auto &m) { return w[2] == m.first; });
    if (mode == std::end(kModes) || w.size() > 4 ||
        (w.size() == 4 && !ParseNumber(w[3], 600000, &n))) {
      return Usage(o, out);
    }
    rc = uim::SetPurge(modem, mode->second, w.size() == 4 ? (uint32_t)n : 100);
  } else if (w[1] == "slots") {
    if (w.size() != 3 || !ParseNumber(w[2], uim::kMaxSlots, &n) || n == 0) return Usage(o, out);
    rc = uim::SetSlotCount(modem, (uint32_t)n);
  } else {
    if (!ParseNumber(w[1], uim::kMaxSlots, &n)) return Usage(o, out);
    const uint32_t slot = (uint32_t)n;
    const std::string &what = w[2];
    std::vector<uint8_t> eid;
    if (what == "switch" && w.size() == 4 && (w[3] == "on" || w[3] == "off")) {
      rc = uim::SetSwitch(modem, slot, w[3] == "on");
    } else if ((what == "none" || what == "sim") && w.size() == 3) {
      rc = uim::SetCard(modem, slot, what == "sim" ? uim::CardKind::kSim : uim::CardKind::kNone);
    } else if (what == "euicc" && w.size() == 4 && ParseHex(w[3], &eid) &&
               eid.size() == uim::Eid().size()) {
      uim::Eid e;
      std::copy(eid.begin(), eid.end(), e.begin());
      rc = uim::SetCard(modem, slot, uim::CardKind::kEuicc, e);
    } else if ((what == "present" || what == "absent" || what == "error") && w.size() == 3) {
      rc = uim::SetCardState(modem, slot, what == "present" ? 1 : what == "error" ? 2 : 0);
    } else {
      return Usage(o, out);
    }
  }
  if (rc == uim::kNoUim) return NoService(o, uim::kServiceId, out);
  if (rc == uim::kBadSlot) return o.Refused("no such slot, or no card in it", 1, out);
  if (rc != uim::kOk) return o.Refused("the modem's store refused the change", 1, out);
  return o.Done("card set-up changed", out);
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

// mcfg-event [HEX]: the configuration service reports an event to the clients that asked.
int McfgEvent(Modem &modem, const Words &w, Output &o, std::string *out) {
  std::vector<uint8_t> data;
  if (w.size() > 2 ||
      (w.size() == 2 && (!ParseHex(w[1], &data) || data.size() > extend::kMaxPayload))) {
    return Usage(o, out);
  }
  return Sent(features::ReportMcfgEvent(modem, data), o, out);
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
         "clear SERVICE | indicate SERVICE MSG HEX|- | event EVENT [HEX] | profile |\n"
         "set chipset-id|hw-id|bp-chip-id|cdma|dsda|cust-max|restart-down-ms N |\n"
         "set string TYPE TEXT | set record TYPE HEX | mcfg-event [HEX] |\n"
         "card SLOT none|sim|euicc EID|present|absent|error|switch on|off | card slots N |\n"
         "card purge purged|failed|silent [DELAY_MS]";
}

int RunControlCommand(Modem &modem, const std::vector<std::string> &words, std::string *out) {
  const bool json = !words.empty() && words[0] == "--json";
  const Words w(words.begin() + (json ? 1 : 0), words.end());
  Output o(json);
  if (w.empty()) return Usage(o, out);
  if (w[0] == "status") return Status(modem, w, o, out);
  if (w[0] == "event") return Event(modem, w, o, out);
  if (w[0] == "set") return Set(modem, w, o, out);
  if (w[0] == "profile") return Profile(modem, w, o, out);
  if (w[0] == "mcfg-event") return McfgEvent(modem, w, o, out);
  if (w[0] == "card") return Card(modem, w, o, out);
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
