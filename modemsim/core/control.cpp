// Control commands of the simulated modem (see modemsim/control.h): the registry of words, the
// rendering of their answers, and the core's own words.
#include "modemsim/control.h"

#include <stdio.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "modemsim/text.h"

namespace modemsim {
namespace {

std::map<std::string, ControlWord> &Registry() {
  static auto *words = new std::map<std::string, ControlWord>();
  return *words;
}

const ControlWord *Find(const Words &w) {
  const auto &registry = Registry();
  if (w.size() >= 2) {
    auto two = registry.find(w[0] + " " + w[1]);
    if (two != registry.end()) return &two->second;
  }
  auto one = registry.find(w[0]);
  return one == registry.end() ? nullptr : &one->second;
}

// status: every service on its line, then what the modules add.
int Status(Modem &modem, const Words &w, ControlReply &reply) {
  if (w.size() != 1) return reply.Usage();
  std::vector<std::vector<Field>> rows;
  for (auto &s : modem.Status()) {
    std::vector<Field> row = {
        {"service", "%s", Value::Hex(s.id, 4)},
        {"instance", "instance %s", Value::Number(s.instance)},
        {"up", "%s", Value::Bool(s.up, "up", "down")},
        {"clients", "clients %s", Value::Number(static_cast<long long>(s.clients))},
        {"received", "received %s", Value::Number(static_cast<long long>(s.received))}};
    for (Field &f : s.summary) row.push_back(std::move(f));
    rows.push_back(std::move(row));
  }
  reply.Add({"services", "%s", Value::Records(std::move(rows), true)});
  for (Field &f : modem.ModuleStatus()) reply.Add(std::move(f));
  return reply.Show();
}

// A word naming a service: `run` gets its id.
template <int (*run)(Modem &, uint32_t, const Words &, ControlReply &)>
int OnService(Modem &modem, const Words &w, ControlReply &reply) {
  unsigned long service = 0;
  if (w.size() < 2 || !ParseNumber(w[1], 0xffffffffUL, &service)) return reply.Usage();
  reply.Add({"service", "", Value::Number(static_cast<long long>(service))});
  return run(modem, static_cast<uint32_t>(service), w, reply);
}

// fault SERVICE MSG|any KIND [ARG] [COUNT]
int RunFault(Modem &modem, uint32_t service, const Words &w, ControlReply &reply) {
  if (w.size() < 4) return reply.Usage();
  unsigned long msg = 0, arg = 0, count = 0;
  int msg_id = kAnyMessage;
  if (w[2] != "any") {
    if (!ParseNumber(w[2], 0xffff, &msg)) return reply.Usage();
    msg_id = static_cast<int>(msg);
  }
  Fault fault;
  const std::string &kind = w[3];
  size_t next = 4;
  if (kind == "noanswer") {
    fault.kind = Fault::kNoAnswer;
  } else if (kind == "delay" || kind == "result") {
    if (w.size() < 5 || !ParseNumber(w[4], kind == "delay" ? 600000 : 0xffff, &arg)) {
      return reply.Usage();
    }
    fault.kind = kind == "delay" ? Fault::kDelay : Fault::kResult;
    if (kind == "delay") {
      fault.delay_ms = static_cast<uint32_t>(arg);
    } else {
      fault.error = static_cast<int>(arg);
    }
    next = 5;
  } else if (kind == "transport") {
    fault.kind = Fault::kTransportError;
    fault.error = QMI_CLIENT_TRANSPORT_ERR;
    // An optional negative client error code, e.g. -21 (busy).
    if (w.size() > 4 && !w[4].empty() && w[4][0] == '-') {
      if (!ParseNumber(w[4].substr(1), 100, &arg) || arg == 0) return reply.Usage();
      fault.error = -static_cast<int>(arg);
      next = 5;
    }
  } else {
    return reply.Usage();
  }
  if (w.size() > next + 1) return reply.Usage();
  if (w.size() == next + 1) {
    if (!ParseNumber(w[next], 1000000, &count) || count == 0) return reply.Usage();
    fault.count = static_cast<int>(count);
  }
  if (modem.FindService(service) == nullptr) return reply.NoService(service);
  modem.SetFault(service, msg_id, fault);
  reply.Add({"fault", "", Value::Text(kind)});
  return reply.Done("fault set on " + ServiceName(service));
}

int Restart(Modem &modem, uint32_t id, const Words &w, ControlReply &reply) {
  unsigned long down_ms = 0;
  if (w.size() > 3 || (w.size() == 3 && !ParseNumber(w[2], 600000, &down_ms))) {
    return reply.Usage();
  }
  if (modem.Restart(id, static_cast<uint32_t>(down_ms)) != 0) return reply.NoService(id);
  reply.Add({"down_ms", "", Value::Number(static_cast<long long>(down_ms))});
  return reply.Done("restarted " + ServiceName(id));
}

int Presence(Modem &modem, uint32_t id, const Words &w, ControlReply &reply) {
  if (w.size() != 2) return reply.Usage();
  const bool present = w[0] == "present";
  if (modem.SetPresent(id, present) != 0) return reply.NoService(id);
  reply.Add({"present", "", Value::Bool(present)});
  return reply.Done(ServiceName(id) + (present ? " present" : " absent"));
}

int Clear(Modem &modem, uint32_t id, const Words &w, ControlReply &reply) {
  if (w.size() != 2) return reply.Usage();
  if (modem.FindService(id) == nullptr) return reply.NoService(id);
  modem.ClearFaults(id);
  return reply.Done("faults cleared on " + ServiceName(id));
}

int Indicate(Modem &modem, uint32_t id, const Words &w, ControlReply &reply) {
  unsigned long msg = 0;
  std::vector<uint8_t> tlvs;
  if (w.size() != 4 || !ParseNumber(w[2], 0xffff, &msg) || !ParseHex(w[3], &tlvs)) {
    return reply.Usage();
  }
  if (modem.FindService(id) == nullptr) return reply.NoService(id);
  return reply.Sent(
      modem.PushRawIndication(id, static_cast<uint16_t>(msg), tlvs.data(), tlvs.size()));
}

MODEMSIM_CONTROL_WORD("status", "", Status);
MODEMSIM_CONTROL_WORD("restart", "SERVICE [DOWN_MS]", OnService<Restart>);
MODEMSIM_CONTROL_WORD("absent", "SERVICE", OnService<Presence>);
MODEMSIM_CONTROL_WORD("present", "SERVICE", OnService<Presence>);
MODEMSIM_CONTROL_WORD("fault",
                      "SERVICE MSG|any noanswer|delay MS|result QMI_ERROR|transport [-ERR] [COUNT]",
                      OnService<RunFault>);
MODEMSIM_CONTROL_WORD("clear", "SERVICE", OnService<Clear>);
MODEMSIM_CONTROL_WORD("indicate", "SERVICE MSG HEX|-", OnService<Indicate>);

}  // namespace

void ControlReply::Add(Field field) {
  fields_.push_back(std::move(field));
}

int ControlReply::Done(const std::string &line) {
  out_ += json_ ? "{" + RenderJsonMembers(fields_) + "}\n" : line + "\n";
  return 0;
}

int ControlReply::Show() {
  out_ += json_ ? "{" + RenderJsonMembers(fields_) + "}\n" : RenderText(fields_) + "\n";
  return 0;
}

int ControlReply::Refused(const std::string &why, int status) {
  out_ += json_ ? "{\"error\":" + JsonString(why) + "}\n" : why + "\n";
  return status;
}

int ControlReply::Usage() {
  return json_ ? Refused("bad arguments (see the usage of sim)", 2) : 2;
}

int ControlReply::NoService(uint32_t service) {
  return Refused("no service " + ServiceName(service), 1);
}

int ControlReply::Sent(int reached) {
  if (reached < 0) {
    return Refused("the indication could not be sent (" + std::to_string(reached) + ")", 1);
  }
  Add({"clients", "", Value::Number(reached)});
  return Done("indication sent to " + std::to_string(reached) + " client(s)");
}

ControlWordRegistrar::ControlWordRegistrar(const ControlWord &word) {
  Registry()[word.word] = word;
}

std::vector<ControlWord> ControlWords() {
  std::vector<ControlWord> out;
  for (const auto &entry : Registry()) out.push_back(entry.second);
  return out;
}

namespace {
std::string UsageOf(const ControlWord &w) {
  return std::string(w.word) + (*w.usage ? " " : "") + w.usage;
}
}  // namespace

std::string ControlUsage() {
  std::string out;
  for (const ControlWord &w : ControlWords()) out += (out.empty() ? "" : "\n") + UsageOf(w);
  return out;
}

std::string ControlUsage(const std::vector<std::string> &words) {
  const bool json = !words.empty() && words[0] == "--json";
  const Words w(words.begin() + (json ? 1 : 0), words.end());
  const ControlWord *word = w.empty() ? nullptr : Find(w);
  return word == nullptr ? ControlUsage() : UsageOf(*word);
}

std::string ServiceName(uint32_t service) {
  char buf[16];
  snprintf(buf, sizeof(buf), "0x%04X", service);
  return buf;
}

int RunControlCommand(Modem &modem, const std::vector<std::string> &words, std::string *out) {
  const bool json = !words.empty() && words[0] == "--json";
  const Words w(words.begin() + (json ? 1 : 0), words.end());
  ControlReply reply(json);
  const ControlWord *word = w.empty() ? nullptr : Find(w);
  const int status = word == nullptr ? reply.Usage() : word->run(modem, w, reply);
  *out += reply.out();
  return status;
}

}  // namespace modemsim
