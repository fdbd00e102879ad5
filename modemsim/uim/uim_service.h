// The simulated modem's UIM service (QMI service 0x0B), built on the library's own tables
// (user_identity_module_v01.h): a card reader with slots, cards and logical channels.
//
// Slots are numbered from 1 (two by default, up to five). A slot is empty or holds a plain
// SIM/USIM or an eUICC with a 16-byte EID; its card is present, absent (powered down, or an
// eUICC hidden by the eSIM enable modem file) or in error. Each slot has a hot-swap switch that
// says whether it sees a card.
//
// What it answers:
//   0x002E register events: the mask is kept per client (bits: card status, extended card
//          status, purge outcome); the card status indication 0x0032 goes to every client with
//          a card status bit whenever a card's state changes.
//   0x002F card status: legacy (first two slots) card status, and the extended one (every slot)
//          when the request asks for it.
//   0x0030 power down: the card goes absent. An unknown slot: QMI_ERR_INVALID_ARG; an empty one:
//          QMI_ERR_NO_ENTRY, as power up.
//   0x0031 power up: refused with QMI_ERR_NO_ENTRY for an empty slot, or when the switch sees no
//          card and the request does not ignore it. An eUICC stays hidden (absent) while the
//          eSIM enable file (/nv/item_files/modem/uim/uimdrv/esim_enable, subscription 1, in the
//          extend service's modem files) holds 0; otherwise the card is present.
//   0x0042 open logical channel: the ISD-R AID on a present eUICC opens the lowest free id of
//          1-19 (none free: QMI_ERR_INSUFFICIENT_RESOURCES); any other AID or card:
//          QMI_ERR_INVALID_ARG.
//   0x003F logical channel: closes the given channel id (not open: QMI_ERR_INVALID_ARG).
//   0x003B send APDU: on an open channel (else QMI_ERR_INVALID_ARG) the ISD-R answers STORE DATA
//          GetEID (BF3E) with the EID and GetProfilesInfo (BF2D) with the profile list (300
//          bytes with the status word), and SW 6D00 to any other instruction, 6E00 to another
//          class.
//   0x0061 temporary identity purge: refused with QMI_ERR_DEVICE_NOT_READY when the session's
//          card (primary sessions: slot 1, secondary: slot 2) is not present; otherwise answered
//          at once, and after the purge delay indication 0x0061 with the outcome goes to every
//          client registered for it (no indication in the kSilent mode).
//   0x0065 get EID: the EID of a present eUICC; a present plain card answers without EID; no
//          present card: QMI_ERR_NO_ENTRY.
//   0x007A set SIM type: the values are kept.
// A restart closes every channel, drops the registrations and powers every card up again.
//
// Persisted in the state store (namespace "uim"): slot count, cards, EIDs and switches.
// Thread-safe: the functions below take the service's mutex.
#pragma once

#include <stdint.h>

#include <array>
#include <string>
#include <vector>

#include "modemsim/modem.h"
#include "user_identity_module_v01.h"

namespace modemsim {
namespace uim {

constexpr uint32_t kServiceId = UIM_QMI_SERVICE_ID_V01;
constexpr uint32_t kMaxSlots = QMI_UIM_EXTENDED_CARDS_MAX_V01;
constexpr uint8_t kFirstChannel = 1;
constexpr uint8_t kLastChannel = 19;
constexpr uint32_t kProfilesAnswerLen = 300;

enum class CardKind : uint8_t { kNone, kSim, kEuicc };
enum class PurgeMode : uint8_t { kPurged, kFailed, kSilent };

using Eid = std::array<uint8_t, QMI_UIM_EID_LEN_V01>;

struct SlotView {
  uint32_t slot;  // from 1
  CardKind kind;
  uint8_t state;                  // UIM_CARD_STATE_*
  bool switch_card;               // the hot-swap switch sees a card
  Eid eid;                        // eUICC only
  std::vector<uint8_t> channels;  // open logical channels
};

struct View {
  std::vector<SlotView> slots;
  std::vector<uint32_t> sim_type;  // last set
  PurgeMode purge_mode;
  uint32_t purge_delay_ms;
};

// Errors of the setters.
constexpr int kOk = 0;
constexpr int kNoUim = -1;      // the modem has no UIM service
constexpr int kBadSlot = -2;    // slot outside 1..slot count
constexpr int kNotStored = -3;  // the state store refused the change

// The card reader state of a modem (empty view without the UIM service).
View Of(Modem &modem);

// Puts a card in a slot (kind kNone empties it); a new card is present when the switch sees
// it. Persisted; a state change sends the card status indication.
int SetCard(Modem &modem, uint32_t slot, CardKind kind, const Eid &eid = Eid{});
// The card's state (present, absent, error), as if the card itself changed.
int SetCardState(Modem &modem, uint32_t slot, uint8_t state);
// The hot-swap switch; persisted.
int SetSwitch(Modem &modem, uint32_t slot, bool sees_card);
// Number of slots, 1 to kMaxSlots; new slots are empty. Persisted.
int SetSlotCount(Modem &modem, uint32_t count);
// What the next purges report, and after how long.
int SetPurge(Modem &modem, PurgeMode mode, uint32_t delay_ms);

// The ISD-R's profile list answer (for tests): kProfilesAnswerLen bytes, SW 9000 last.
std::vector<uint8_t> ProfilesAnswer();

const char *KindName(CardKind kind);
const char *StateName(uint8_t state);

// What `status` shows of the card reader: "cards", one line per slot (none without the UIM
// service).
std::vector<Field> CardsStatus(Modem &modem);
constexpr int kCardsStatusOrder = 200;

}  // namespace uim
}  // namespace modemsim
