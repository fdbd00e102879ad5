// Control commands of the simulated modem (see modemsim/control.h).
#include "modemsim/control.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

namespace modemsim {
namespace {

// Decimal or 0x-hex, the whole word, within [0, max].
bool ParseNumber(const std::string &word, unsigned long max, unsigned long *value) {
  if (word.empty() || word[0] == '-') return false;
  errno = 0;
  char *end = nullptr;
  const unsigned long v = strtoul(word.c_str(), &end, 0);
  if (errno != 0 || end == word.c_str() || *end != '\0' || v > max) return false;
  *value = v;
  return true;
}

std::string Hex(uint32_t v) {
  char buf[16];
  snprintf(buf, sizeof(buf), "0x%04X", v);
  return buf;
}

int Refused(uint32_t service, std::string *out) {
  *out += "no service " + Hex(service) + "\n";
  return 1;
}

// fault SERVICE MSG|any KIND [ARG] [COUNT]
int RunFault(Modem &modem, uint32_t service, const std::vector<std::string> &w, std::string *out) {
  if (w.size() < 4) return 2;
  unsigned long msg = 0, arg = 0, count = 0;
  int msg_id = kAnyMessage;
  if (w[2] != "any") {
    if (!ParseNumber(w[2], 0xffff, &msg)) return 2;
    msg_id = (int)msg;
  }
  Fault fault;
  const std::string &kind = w[3];
  size_t next = 4;
  if (kind == "noanswer") {
    fault.kind = Fault::kNoAnswer;
  } else if (kind == "delay" || kind == "result") {
    if (w.size() < 5 || !ParseNumber(w[4], kind == "delay" ? 600000 : 0xffff, &arg)) return 2;
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
    if (w.size() > 4 && w[4][0] == '-') {
      if (!ParseNumber(w[4].substr(1), 100, &arg) || arg == 0) return 2;
      fault.error = -(int)arg;
      next = 5;
    }
  } else {
    return 2;
  }
  if (w.size() > next + 1) return 2;
  if (w.size() == next + 1) {
    if (!ParseNumber(w[next], 1000000, &count) || count == 0) return 2;
    fault.count = (int)count;
  }
  if (modem.FindService(service) == nullptr) return Refused(service, out);
  modem.SetFault(service, msg_id, fault);
  *out += "fault set on " + Hex(service) + "\n";
  return 0;
}

}  // namespace

const char *ControlUsage() {
  return "status | restart SERVICE [DOWN_MS] | absent SERVICE | present SERVICE |\n"
         "fault SERVICE MSG|any noanswer|delay MS|result QMI_ERROR|transport [-ERR] [COUNT] |\n"
         "clear SERVICE";
}

int RunControlCommand(Modem &modem, const std::vector<std::string> &w, std::string *out) {
  if (w.empty()) return 2;
  const std::string &cmd = w[0];
  if (cmd == "status") {
    if (w.size() != 1) return 2;
    for (const auto &s : modem.Status()) {
      char line[128];
      snprintf(line, sizeof(line), "%s instance %u %s clients %zu received %zu\n",
               Hex(s.id).c_str(), s.instance, s.up ? "up" : "down", s.clients, s.received);
      *out += line;
    }
    return 0;
  }
  unsigned long service = 0;
  if (w.size() < 2 || !ParseNumber(w[1], 0xffffffffUL, &service)) return 2;
  const uint32_t id = (uint32_t)service;
  if (cmd == "fault") return RunFault(modem, id, w, out);
  if (cmd == "restart") {
    unsigned long down_ms = 0;
    if (w.size() > 3 || (w.size() == 3 && !ParseNumber(w[2], 600000, &down_ms))) return 2;
    if (modem.Restart(id, (uint32_t)down_ms) != 0) return Refused(id, out);
    *out += "restarted " + Hex(id) + "\n";
    return 0;
  }
  if (w.size() != 2) return 2;
  if (cmd == "absent" || cmd == "present") {
    if (modem.SetPresent(id, cmd == "present") != 0) return Refused(id, out);
    *out += Hex(id) + (cmd == "present" ? " present\n" : " absent\n");
    return 0;
  }
  if (cmd == "clear") {
    if (modem.FindService(id) == nullptr) return Refused(id, out);
    modem.ClearFaults(id);
    *out += "faults cleared on " + Hex(id) + "\n";
    return 0;
  }
  return 2;
}

}  // namespace modemsim
