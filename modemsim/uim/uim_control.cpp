// The card reader's control word (`card`) and its part of `status` (see uim_service.h).
#include <algorithm>
#include <iterator>
#include <utility>

#include "modemsim/control.h"
#include "modemsim/text.h"
#include "uim/uim_service.h"

namespace modemsim {
namespace uim {

std::vector<Field> CardsStatus(Modem &modem) {
  const View cards = Of(modem);
  if (cards.slots.empty()) return {};
  std::vector<std::vector<Field>> rows;
  for (const SlotView &s : cards.slots) {
    const std::string eid =
        s.kind == CardKind::kEuicc ? HexOf(s.eid.data(), s.eid.size(), true) : "";
    rows.push_back(
        {{"slot", "slot %s", Value::Number(s.slot)},
         {"card", "%s", Value::Text(KindName(s.kind))},
         {"state", "%s", Value::Text(StateName(s.state))},
         {"switch", "switch %s", Value::Bool(s.switch_card, "on", "off")},
         {"eid", eid.empty() ? "" : "eid %s", Value::Text(eid)},
         {"channels", "channels %s", Value::Number(static_cast<long long>(s.channels.size()))}});
  }
  return {{"cards", "%s", Value::Records(std::move(rows), true)}};
}

namespace {

// card SLOT none|sim|euicc [EID] | card SLOT present|absent|error | card SLOT switch on|off |
// card slots N | card purge purged|failed|silent [DELAY_MS]
int Card(Modem &modem, const Words &w, ControlReply &reply) {
  if (w.size() < 3) return reply.Usage();
  unsigned long n = 0;
  int rc = kOk;
  if (w[1] == "purge") {
    static const std::pair<const char *, PurgeMode> kModes[] = {{"purged", PurgeMode::kPurged},
                                                                {"failed", PurgeMode::kFailed},
                                                                {"silent", PurgeMode::kSilent}};
    const auto *mode = std::find_if(std::begin(kModes), std::end(kModes),
                                    [&](const auto &m) { return w[2] == m.first; });
    if (mode == std::end(kModes) || w.size() > 4 ||
        (w.size() == 4 && !ParseNumber(w[3], 600000, &n))) {
      return reply.Usage();
    }
    rc = SetPurge(modem, mode->second, w.size() == 4 ? static_cast<uint32_t>(n) : 100);
  } else if (w[1] == "slots") {
    if (w.size() != 3 || !ParseNumber(w[2], kMaxSlots, &n) || n == 0) return reply.Usage();
    rc = SetSlotCount(modem, static_cast<uint32_t>(n));
  } else {
    if (!ParseNumber(w[1], kMaxSlots, &n)) return reply.Usage();
    const uint32_t slot = static_cast<uint32_t>(n);
    const std::string &what = w[2];
    std::vector<uint8_t> eid;
    if (what == "switch" && w.size() == 4 && (w[3] == "on" || w[3] == "off")) {
      rc = SetSwitch(modem, slot, w[3] == "on");
    } else if ((what == "none" || what == "sim") && w.size() == 3) {
      rc = SetCard(modem, slot, what == "sim" ? CardKind::kSim : CardKind::kNone);
    } else if (what == "euicc" && w.size() == 4 && ParseHex(w[3], &eid) &&
               eid.size() == Eid().size()) {
      Eid e;
      std::copy(eid.begin(), eid.end(), e.begin());
      rc = SetCard(modem, slot, CardKind::kEuicc, e);
    } else if ((what == "present" || what == "absent" || what == "error") && w.size() == 3) {
      rc = SetCardState(modem, slot, what == "present" ? 1 : what == "error" ? 2 : 0);
    } else {
      return reply.Usage();
    }
  }
  if (rc == kNoUim) return reply.NoService(kServiceId);
  if (rc == kBadSlot) return reply.Refused("no such slot, or no card in it");
  if (rc != kOk) return reply.Refused("the modem's store refused the change");
  return reply.Done("card set-up changed");
}

MODEMSIM_CONTROL_WORD("card",
                      "SLOT none|sim|euicc EID|present|absent|error|switch on|off | slots N | "
                      "purge purged|failed|silent [DELAY_MS]",
                      Card);

}  // namespace
}  // namespace uim
}  // namespace modemsim
