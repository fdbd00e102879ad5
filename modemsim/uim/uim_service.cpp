// The simulated modem's UIM service: see uim_service.h.
#include "uim/uim_service.h"

#include <stdio.h>
#include <string.h>

#include <map>
#include <mutex>
#include <sstream>

#include "features/nvefs.h"
#include "modemsim/text.h"

namespace modemsim {
namespace uim {
namespace {

constexpr const char *kNamespace = "uim";
constexpr const char *kSetupKey = "setup";
constexpr const char kEsimEnablePath[] = "/nv/item_files/modem/uim/uimdrv/esim_enable";
constexpr uint32_t kEsimFileSub = 1;
constexpr uint8_t kIsdrAid[16] = {0xA0, 0x00, 0x00, 0x05, 0x59, 0x10, 0x10, 0xFF,
                                  0xFF, 0xFF, 0xFF, 0x89, 0x00, 0x00, 0x01, 0x00};
constexpr uint16_t kErrNoEntry = QMI_ERR_NO_ENTRY_V01;
constexpr uint16_t kErrNoResources = QMI_ERR_INSUFFICIENT_RESOURCES_V01;
constexpr uint16_t kErrNotReady = QMI_ERR_DEVICE_NOT_READY_V01;
constexpr uint32_t kStatusBits =
    QMI_UIM_EVENT_CARD_STATUS_BIT_V01 | QMI_UIM_EVENT_EXTENDED_CARD_STATUS_BIT_V01;
constexpr uint8_t kAppTypeUsim = 2;
constexpr uint8_t kAppStateReady = 7;
constexpr Eid kDefaultEid = {0x89, 0x04, 0x90, 0x32, 0x00, 0x11, 0x22, 0x33,
                             0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0x00, 0x12};

using Bytes = std::vector<uint8_t>;

// Card states as the service reports them.
constexpr uint8_t kAbsent = 0;
constexpr uint8_t kPresent = 1;
constexpr uint8_t kError = 2;

struct Slot {
  CardKind kind = CardKind::kNone;
  uint8_t state = kAbsent;
  bool switch_card = true;
  Eid eid{};
  std::map<uint8_t, bool> channels;  // open ids
};

struct UimState {
  Modem *modem = nullptr;
  Service *service = nullptr;
  std::vector<Slot> slots;
  std::map<uint32_t, uint32_t> events;  // client -> mask
  std::vector<uint32_t> sim_type;
  PurgeMode purge_mode = PurgeMode::kPurged;
  uint32_t purge_delay_ms = 100;

  Slot *Find(uint32_t slot) {
    return slot >= 1 && slot <= slots.size() ? &slots[slot - 1] : nullptr;
  }
};

UimState *StateOf(Modem &modem) {
  return modem.FindModuleState<UimState>();
}

// --- persistence ---

bool EidOf(const std::string &hex, Eid *eid) {
  if (hex.size() != 2 * eid->size()) return false;
  for (size_t i = 0; i < eid->size(); ++i) {
    unsigned v = 0;
    if (sscanf(hex.c_str() + 2 * i, "%2x", &v) != 1) return false;
    (*eid)[i] = static_cast<uint8_t>(v);
  }
  return true;
}

// One line per slot: kind, switch, EID.
bool Save(UimState &st) {
  std::string text;
  for (const Slot &s : st.slots) {
    text += std::to_string(static_cast<int>(s.kind)) + " " + (s.switch_card ? "1 " : "0 ") +
            HexOf(s.eid.data(), s.eid.size(), true) + "\n";
  }
  return st.modem->state().Put(kNamespace, kSetupKey, text.data(), text.size());
}

void Load(UimState &st) {
  st.slots.assign(2, Slot{});
  st.slots[0].kind = CardKind::kSim;
  st.slots[1].kind = CardKind::kEuicc;
  st.slots[1].eid = kDefaultEid;
  Bytes raw;
  if (!st.modem->state().Get(kNamespace, kSetupKey, &raw)) return;
  std::istringstream in(std::string(raw.begin(), raw.end()));
  std::vector<Slot> loaded;
  int kind = 0, sw = 0;
  std::string eid;
  while (loaded.size() < kMaxSlots && in >> kind >> sw >> eid) {
    Slot s;
    if (kind < 0 || kind > 2 || !EidOf(eid, &s.eid)) return;  // damaged: keep the defaults
    s.kind = static_cast<CardKind>(kind);
    s.switch_card = sw != 0;
    loaded.push_back(s);
  }
  if (!loaded.empty()) st.slots = loaded;
}

// --- card state and indications ---

bool EsimHidden(UimState &st) {
  features::NvEfs *files = features::NvEfsOf(*st.modem);
  Bytes content;
  if (files == nullptr || !files->File(kEsimFileSub, kEsimEnablePath, &content) ||
      content.empty()) {
    return false;
  }
  for (uint8_t b : content) {
    if (b != 0) return false;
  }
  return true;
}

// The state a card takes when powered up.
uint8_t PoweredState(UimState &st, const Slot &s) {
  if (s.kind == CardKind::kNone) return kAbsent;
  if (s.kind == CardKind::kEuicc && EsimHidden(st)) return kAbsent;
  return kPresent;
}

void FillCard(const Slot &s, uim_card_info_type_v01 *card) {
  card->card_state = static_cast<uim_card_state_enum_v01>(s.state);
  if (s.state != kPresent) return;
  card->upin.pin_retries = 3;
  card->upin.puk_retries = 10;
  card->app_info_len = 1;
  uim_app_info_type_v01 &app = card->app_info[0];
  app.app_type = kAppTypeUsim;
  app.app_state = kAppStateReady;
  app.pin1.pin_retries = 3;
  app.pin1.puk_retries = 10;
  app.pin2.pin_retries = 3;
  app.pin2.puk_retries = 10;
}

template <typename Rec>
void FillStatus(const UimState &st, Rec *rec) {
  rec->card_status_valid = 1;
  uim_card_status_type_v01 &legacy = rec->card_status;
  legacy.index_gw_pri = legacy.index_1x_pri = legacy.index_gw_sec = legacy.index_1x_sec = 0xFFFF;
  rec->extended_card_status_valid = 1;
  uim_extended_card_status_type_v01 &ext = rec->extended_card_status;
  for (size_t i = 0; i < st.slots.size() && i < kMaxSlots; ++i) {
    const Slot &s = st.slots[i];
    const bool ready = s.state == kPresent;
    if (i < QMI_UIM_CARDS_MAX_V01) {
      FillCard(s, &legacy.card_info[legacy.card_info_len++]);
      if (ready && i == 0) legacy.index_gw_pri = 0;
      if (ready && i == 1) legacy.index_gw_sec = 0x0100;
    }
    FillCard(s, &ext.card_info[ext.card_info_len++]);
    ext.index_gw[ext.index_gw_len++] = ready ? static_cast<uint16_t>(i << 8) : 0xFFFF;
    ext.index_1x[ext.index_1x_len++] = 0xFFFF;
  }
}

// To every client registered for card status. Service mutex held.
void NotifyStatus(UimState &st) {
  uim_status_change_ind_msg_v01 ind;
  memset(&ind, 0, sizeof(ind));
  FillStatus(st, &ind);
  for (const auto &reg : st.events) {
    if ((reg.second & kStatusBits) != 0) {
      st.modem->PushIndication(kServiceId, QMI_UIM_STATUS_CHANGE_IND_V01, &ind, sizeof(ind),
                               reg.first);
    }
  }
}

// Changes a card's state; the indication goes out when it changed. Service mutex held.
void ChangeState(UimState &st, Slot &s, uint8_t state) {
  if (state != kPresent) s.channels.clear();
  if (s.state == state) return;
  s.state = state;
  NotifyStatus(st);
}

// --- the ISD-R ---

void Append(Bytes *out, std::initializer_list<uint8_t> bytes) {
  out->insert(out->end(), bytes);
}

// A BER-TLV of a two-byte tag whose length takes the long form from 128 on.
Bytes Tlv(std::initializer_list<uint8_t> tag, const Bytes &value) {
  Bytes out(tag);
  const size_t n = value.size();
  if (n < 0x80) {
    out.push_back(static_cast<uint8_t>(n));
  } else if (n < 0x100) {
    Append(&out, {0x81, static_cast<uint8_t>(n)});
  } else {
    Append(&out, {0x82, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)});
  }
  out.insert(out.end(), value.begin(), value.end());
  return out;
}

Bytes Profiles() {
  static const char *const kNames[] = {
      "Tarvik Mobile test profile 1 (5G data)", "Tarvik Mobile test profile 2 (5G data)",
      "Tarvik Mobile test profile 3 (5G data)", "Tarvik Mobile test profile 4 (5G data)",
      "Tarvik Mobile test profile 5 (5G SMS)"};
  Bytes list;
  uint8_t n = 0;
  for (const char *name : kNames) {
    Bytes entry = Tlv({0x5A}, {0x98, 0x94, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, ++n});
    const Bytes text(name, name + strlen(name));
    const Bytes name_tlv = Tlv({0x91}, text);
    const Bytes state = Tlv({0x9F, 0x70}, {static_cast<uint8_t>(n == 1 ? 1 : 0)});
    entry.insert(entry.end(), name_tlv.begin(), name_tlv.end());
    entry.insert(entry.end(), state.begin(), state.end());
    const Bytes e3 = Tlv({0xE3}, entry);
    list.insert(list.end(), e3.begin(), e3.end());
  }
  Bytes out = Tlv({0xBF, 0x2D}, Tlv({0xA0}, list));
  Append(&out, {0x90, 0x00});
  return out;
}

// One command APDU to the ISD-R of `s`.
Bytes IsdrAnswer(const Slot &s, const uint8_t *apdu, uint32_t len) {
  if (len < 4) return {0x67, 0x00};
  if ((apdu[0] & 0xF0) != 0x80) return {0x6E, 0x00};
  if (apdu[1] != 0xE2) return {0x6D, 0x00};
  const uint32_t lc = len > 4 ? apdu[4] : 0;
  if (len < 5 + lc) return {0x67, 0x00};
  const uint8_t *data = apdu + 5;
  static const uint8_t kGetEid[] = {0xBF, 0x3E, 0x03, 0x5C, 0x01, 0x5A};
  if (lc == sizeof(kGetEid) && memcmp(data, kGetEid, lc) == 0) {
    Bytes out = Tlv({0xBF, 0x3E}, Tlv({0x5A}, Bytes(s.eid.begin(), s.eid.end())));
    Append(&out, {0x90, 0x00});
    return out;
  }
  if (lc >= 2 && data[0] == 0xBF && data[1] == 0x2D) return Profiles();
  return {0x6A, 0x80};  // a STORE DATA it cannot parse: incorrect data
}

// --- handlers (service mutex held) ---

void Handlers(UimState *st, Service &svc) {
  svc.Handle(QMI_UIM_REGISTER_EVENT_REQ_V01, [st](Call &call) {
    const uint32_t mask = call.Request<uim_event_reg_req_msg_v01>().event_mask;
    st->events[call.client] = mask;
    auto &resp = call.Response<uim_event_reg_resp_msg_v01>();
    resp.event_mask_valid = 1;
    resp.event_mask = mask;
  });
  svc.Handle(QMI_UIM_GET_CARD_STATUS_REQ_V01, [st](Call &call) {
    const auto &req = call.Request<uim_get_card_status_req_msg_v01>();
    auto &resp = call.Response<uim_get_card_status_resp_msg_v01>();
    FillStatus(*st, &resp);
    if (!req.extended_card_status_valid || req.extended_card_status == 0) {
      resp.extended_card_status_valid = 0;  // only asked for the legacy status
      resp.extended_card_status = {};
    }
  });
  svc.Handle(QMI_UIM_POWER_DOWN_REQ_V01, [st](Call &call) {
    Slot *s = st->Find(call.Request<uim_power_down_req_msg_v01>().slot);
    if (s == nullptr) return call.SetResult(1, kQmiErrInvalidArg);
    if (s->kind == CardKind::kNone) return call.SetResult(1, kErrNoEntry);
    ChangeState(*st, *s, kAbsent);
  });
  svc.Handle(QMI_UIM_POWER_UP_REQ_V01, [st](Call &call) {
    const auto &req = call.Request<uim_power_up_req_msg_v01>();
    Slot *s = st->Find(req.slot);
    if (s == nullptr) return call.SetResult(1, kQmiErrInvalidArg);
    const bool ignore = req.ignore_hot_swap_switch_valid && req.ignore_hot_swap_switch != 0;
    if (s->kind == CardKind::kNone || (!s->switch_card && !ignore)) {
      return call.SetResult(1, kErrNoEntry);
    }
    ChangeState(*st, *s, PoweredState(*st, *s));
  });
  svc.Handle(QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01, [st](Call &call) {
    const auto &req = call.Request<uim_open_logical_channel_req_msg_v01>();
    Slot *s = st->Find(req.slot);
    if (s == nullptr || s->kind != CardKind::kEuicc || s->state != kPresent || !req.aid_valid ||
        req.aid_len != sizeof(kIsdrAid) || memcmp(req.aid, kIsdrAid, sizeof(kIsdrAid)) != 0) {
      return call.SetResult(1, kQmiErrInvalidArg);
    }
    uint8_t id = kFirstChannel;
    while (id <= kLastChannel && s->channels.count(id) != 0) ++id;
    if (id > kLastChannel) return call.SetResult(1, kErrNoResources);
    s->channels[id] = true;
    auto &resp = call.Response<uim_logical_channel_resp_msg_v01>();
    resp.channel_id_valid = 1;
    resp.channel_id = id;
    resp.card_result_valid = 1;
    resp.card_result = {0x90, 0x00};
    if (req.file_control_information_valid) {  // an FCI template naming the application
      const Bytes fci = Tlv({0x6F}, Tlv({0x84}, Bytes(kIsdrAid, kIsdrAid + sizeof(kIsdrAid))));
      resp.select_response_valid = 1;
      resp.select_response_len = static_cast<uint32_t>(fci.size());
      memcpy(resp.select_response, fci.data(), fci.size());
    }
  });
  svc.Handle(QMI_UIM_LOGICAL_CHANNEL_REQ_V01, [st](Call &call) {
    const auto &req = call.Request<uim_logical_channel_req_msg_v01>();
    Slot *s = st->Find(req.slot);
    if (s == nullptr || !req.channel_id_valid || s->channels.erase(req.channel_id) == 0) {
      return call.SetResult(1, kQmiErrInvalidArg);
    }
    auto &resp = call.Response<uim_logical_channel_resp_msg_v01>();
    resp.card_result_valid = 1;
    resp.card_result = {0x90, 0x00};
  });
  svc.Handle(QMI_UIM_SEND_APDU_REQ_V01, [st](Call &call) {
    const auto &req = call.Request<uim_send_apdu_req_msg_v01>();
    Slot *s = st->Find(req.slot);
    if (s == nullptr || !req.channel_id_valid || s->channels.count(req.channel_id) == 0) {
      return call.SetResult(1, kQmiErrInvalidArg);
    }
    const Bytes answer = IsdrAnswer(*s, req.apdu, req.apdu_len);
    auto &resp = call.Response<uim_send_apdu_resp_msg_v01>();
    resp.apdu_valid = 1;
    resp.apdu_len = static_cast<uint32_t>(answer.size());
    memcpy(resp.apdu, answer.data(), answer.size());
  });
  svc.Handle(QMI_UIM_TEMPORARY_ID_PURGE_REQ_V01, [st](Call &call) {
    const auto &req = call.Request<uim_temporary_id_purge_req_msg_v01>();
    const int32_t session = req.session_information.session_type;
    if (session < UIM_SESSION_TYPE_PRIMARY_GW_V01 || session > UIM_SESSION_TYPE_SECONDARY_1X_V01 ||
        (req.purge_mask & QMI_UIM_PURGE_GUTI_V01) == 0) {
      return call.SetResult(1, kQmiErrInvalidArg);
    }
    // A primary session is the first slot's card, a secondary one the second's.
    const Slot *card = st->Find(session <= UIM_SESSION_TYPE_PRIMARY_1X_V01 ? 1 : 2);
    if (card == nullptr || card->state != kPresent) return call.SetResult(1, kErrNotReady);
    if (st->purge_mode == PurgeMode::kSilent) return;
    uim_temporary_id_purge_ind_msg_v01 ind;
    memset(&ind, 0, sizeof(ind));
    ind.session_type = static_cast<uim_session_type_enum_v01>(session);
    ind.purge_mask = req.purge_mask;
    ind.outcome_valid = 1;
    ind.outcome = st->purge_mode == PurgeMode::kPurged ? 0 : 1;
    st->modem->Schedule(st->purge_delay_ms, [st, ind] {
      std::lock_guard<std::mutex> lock(st->service->mutex());
      for (const auto &reg : st->events) {
        if ((reg.second & QMI_UIM_EVENT_PURGE_BIT_V01) != 0) {
          st->modem->PushIndication(kServiceId, QMI_UIM_TEMPORARY_ID_PURGE_IND_V01, &ind,
                                    sizeof(ind), reg.first);
        }
      }
    });
  });
  svc.Handle(QMI_UIM_GET_EID_REQ_V01, [st](Call &call) {
    Slot *s = st->Find(call.Request<uim_get_eid_req_msg_v01>().slot);
    if (s == nullptr) return call.SetResult(1, kQmiErrInvalidArg);
    if (s->state != kPresent) return call.SetResult(1, kErrNoEntry);
    if (s->kind != CardKind::kEuicc) return;
    auto &resp = call.Response<uim_get_eid_resp_msg_v01>();
    resp.eid_value_valid = 1;
    resp.eid_value_len = QMI_UIM_EID_LEN_V01;
    memcpy(resp.eid_value, s->eid.data(), s->eid.size());
  });
  svc.Handle(QMI_UIM_SET_SIM_TYPE_REQ_V01, [st](Call &call) {
    const auto &req = call.Request<uim_set_sim_type_req_msg_v01>();
    st->sim_type.assign(req.sim_type, req.sim_type + req.sim_type_len);
  });
  svc.OnRestart([st] {
    st->events.clear();
    for (Slot &s : st->slots) {
      s.channels.clear();
      s.state = s.switch_card ? PoweredState(*st, s) : kAbsent;
    }
  });
  svc.OnClientGone([st](uint32_t client) { st->events.erase(client); });
}

void InitModule(Modem &modem) {
  UimState *st = &modem.ModuleState<UimState>();
  st->modem = &modem;
  st->service = &modem.AddService(&uim_qmi_idl_service_object_v01, 0);
  Load(*st);
  for (Slot &s : st->slots) {
    s.state = s.kind != CardKind::kNone && s.switch_card ? kPresent : kAbsent;
  }
  Handlers(st, *st->service);
  modem.AddStatus(kCardsStatusOrder, [&modem] { return CardsStatus(modem); });
}

// Runs `change` on the state of `slot` with the service mutex held.
template <typename Change>
int OnSlot(Modem &modem, uint32_t slot, Change change) {
  UimState *st = StateOf(modem);
  if (st == nullptr) return kNoUim;
  std::lock_guard<std::mutex> lock(st->service->mutex());
  Slot *s = st->Find(slot);
  if (s == nullptr) return kBadSlot;
  return change(*st, *s);
}

}  // namespace

View Of(Modem &modem) {
  View v{};
  UimState *st = StateOf(modem);
  if (st == nullptr) return v;
  std::lock_guard<std::mutex> lock(st->service->mutex());
  for (size_t i = 0; i < st->slots.size(); ++i) {
    const Slot &s = st->slots[i];
    SlotView sv{static_cast<uint32_t>(i + 1), s.kind, s.state, s.switch_card, s.eid, {}};
    for (const auto &c : s.channels) sv.channels.push_back(c.first);
    v.slots.push_back(sv);
  }
  v.sim_type = st->sim_type;
  v.purge_mode = st->purge_mode;
  v.purge_delay_ms = st->purge_delay_ms;
  return v;
}

int SetCard(Modem &modem, uint32_t slot, CardKind kind, const Eid &eid) {
  return OnSlot(modem, slot, [&](UimState &st, Slot &s) {
    const Slot before = s;
    s.kind = kind;
    s.eid = kind == CardKind::kEuicc ? eid : Eid{};
    if (!Save(st)) {
      s = before;
      return kNotStored;
    }
    s.channels.clear();
    ChangeState(st, s, kind != CardKind::kNone && s.switch_card ? PoweredState(st, s) : kAbsent);
    return kOk;
  });
}

int SetCardState(Modem &modem, uint32_t slot, uint8_t state) {
  return OnSlot(modem, slot, [&](UimState &st, Slot &s) {
    if (state > kError || (s.kind == CardKind::kNone && state != kAbsent)) {
      return kBadSlot;
    }
    ChangeState(st, s, state);
    return kOk;
  });
}

int SetSwitch(Modem &modem, uint32_t slot, bool sees_card) {
  return OnSlot(modem, slot, [&](UimState &st, Slot &s) {
    const bool before = s.switch_card;
    s.switch_card = sees_card;
    if (!Save(st)) {
      s.switch_card = before;
      return kNotStored;
    }
    return kOk;
  });
}

int SetSlotCount(Modem &modem, uint32_t count) {
  UimState *st = StateOf(modem);
  if (st == nullptr) return kNoUim;
  if (count < 1 || count > kMaxSlots) return kBadSlot;
  std::lock_guard<std::mutex> lock(st->service->mutex());
  const std::vector<Slot> before = st->slots;
  st->slots.resize(count);
  if (!Save(*st)) {
    st->slots = before;
    return kNotStored;
  }
  if (count < before.size()) NotifyStatus(*st);
  return kOk;
}

int SetPurge(Modem &modem, PurgeMode mode, uint32_t delay_ms) {
  UimState *st = StateOf(modem);
  if (st == nullptr) return kNoUim;
  std::lock_guard<std::mutex> lock(st->service->mutex());
  st->purge_mode = mode;
  st->purge_delay_ms = delay_ms;
  return kOk;
}

std::vector<uint8_t> ProfilesAnswer() {
  return Profiles();
}

const char *KindName(CardKind kind) {
  switch (kind) {
    case CardKind::kSim:
      return "sim";
    case CardKind::kEuicc:
      return "euicc";
    default:
      return "none";
  }
}

const char *StateName(uint8_t state) {
  switch (state) {
    case kPresent:
      return "present";
    case kError:
      return "error";
    default:
      return "absent";
  }
}

}  // namespace uim
}  // namespace modemsim

MODEMSIM_MODULE("uim", 20, modemsim::uim::InitModule);
