// The profile: identity words, texts and records (see identity.h).
#include "identity.h"

#include <stdio.h>

#include <algorithm>
#include <iterator>

#include "commands.h"
#include "modemsim/control.h"
#include "modemsim/text.h"
#include "tarvik_extend_cmn.h"

namespace modemsim {
namespace features {
namespace {

constexpr const char *kNamespace = "profile";

std::string Key(const char *kind, uint32_t cmd) {
  return std::string(kind) + "." + std::to_string(cmd);
}

void InitModule(Modem &modem) {
  Identity *id =
      &modem.ModuleState<Identity>(modem.state().persistent() ? &modem.state() : nullptr);
  HandleOtherCommands(modem, [id](Command &c) {
    if (!id->Answer(c.cmd, &c.data)) c.result = kCmnNotSupported;
  });
}

// profile: the identity words, texts and records the modem answers.
int ProfileWord(Modem &modem, const Words &w, ControlReply &reply) {
  Identity *id = IdentityOf(modem);
  if (w.size() != 1) return reply.Usage();
  if (id == nullptr) return reply.Refused("no feature modem");
  const Identity::Profile p = id->Get();
  std::vector<Field> words, strings, records;
  for (const auto &e : p.words) {
    const std::string n = std::to_string(e.first);
    words.push_back({n, "word " + n + " %s", Value::Hex(e.second, 4), true});
  }
  for (const auto &e : p.strings) {
    const std::string n = std::to_string(e.first);
    strings.push_back({n, "string " + n + " %s", Value::Text(e.second), true});
  }
  for (const auto &e : p.records) {
    const std::string n = std::to_string(e.first);
    records.push_back(
        {n, "record " + n + " %s", Value::Text(HexOf(e.second.data(), e.second.size())), true});
  }
  reply.Add({"words", "%s", Value::Record(std::move(words))});
  reply.Add({"strings", "%s", Value::Record(std::move(strings))});
  reply.Add({"records", "%s", Value::Record(std::move(records))});
  return reply.Show();
}

const struct {
  const char *name;
  uint32_t cmd;
} kWords[] = {
    {"chipset-id", COMMON_CMD_CHIPSET_ID}, {"hw-id", COMMON_CMD_HW_ID},
    {"bp-chip-id", COMMON_CMD_BP_CHIP_ID}, {"cdma", COMMON_CMD_CDMA_SUPPORT},
    {"dsda", COMMON_CMD_DSDA_SUPPORT},     {"cust-max", COMMON_CMD_MBN_LIST_CUST_MAX_NUM},
};

int Stored(bool stored, const Words &w, ControlReply &reply) {
  if (!stored) return reply.Refused("the state directory refused the change");
  reply.Add({"set", "", Value::Text(w[1])});
  return reply.Done(w[1] + " set");
}

// set NAME N | set string TYPE TEXT... | set record TYPE HEX
int SetWord(Modem &modem, const Words &w, ControlReply &reply) {
  Identity *id = IdentityOf(modem);
  unsigned long value = 0;
  if (w.size() < 3) return reply.Usage();
  if (id == nullptr) return reply.Refused("no feature modem");
  if (w[1] == "string" || w[1] == "record") {
    if (w.size() < 4 || !ParseNumber(w[2], 0xffffffffUL, &value)) return reply.Usage();
    const uint32_t cmd = static_cast<uint32_t>(value);
    if (w[1] == "string") {
      std::string text = w[3];
      for (size_t i = 4; i < w.size(); ++i) text += " " + w[i];
      if (text.size() >= TARVIK_CMN_RSP_DATA_MAX) return reply.Usage();
      return Stored(id->SetString(cmd, text), w, reply);
    }
    // The record's bytes after its length byte, which the modem puts in front.
    std::vector<uint8_t> bytes;
    if (w.size() != 4 || !ParseHex(w[3], &bytes) || bytes.size() > 254) return reply.Usage();
    bytes.insert(bytes.begin(), static_cast<uint8_t>(bytes.size() + 1));
    return Stored(id->SetRecord(cmd, bytes), w, reply);
  }
  const auto *row = std::find_if(std::begin(kWords), std::end(kWords),
                                 [&](const auto &r) { return w[1] == r.name; });
  if (row == std::end(kWords) || w.size() != 3 || !ParseNumber(w[2], 0xffffffffUL, &value)) {
    return reply.Usage();
  }
  return Stored(id->SetWord(row->cmd, static_cast<uint32_t>(value)), w, reply);
}

MODEMSIM_CONTROL_WORD("profile", "", ProfileWord);
MODEMSIM_CONTROL_WORD("set",
                      "chipset-id|hw-id|bp-chip-id|cdma|dsda|cust-max N | string TYPE TEXT | "
                      "record TYPE HEX",
                      SetWord);

}  // namespace

Identity::Identity(StateStore *store) : store_(store) {
  // What the simulated hardware reports.
  profile_.words = {{COMMON_CMD_CHIPSET_ID, 0x209}, {COMMON_CMD_DSDA_SUPPORT, 1},
                    {COMMON_CMD_BP_CHIP_ID, 0x5A3}, {COMMON_CMD_MBN_LIST_CUST_MAX_NUM, 32},
                    {COMMON_CMD_HW_ID, 0x1001},     {COMMON_CMD_CDMA_SUPPORT, 0}};
  // Texts and records by type, as a modem of this family answers them.
  profile_.strings = {{kProfileVersionType, "MPSS.DE.3.1.1-00215-KAILUA_GEN_PACK-1"},
                      {kProfileSerialType, "TV5G-0042-1187"}};
  profile_.records = {{kProfileRfRecordType, {9, 0x02, 0x55, 0x85, 0x01, 0x00, 0x10, 0x27, 0x03}}};
  if (store_ == nullptr) return;
  for (const std::string &key : store_->Keys(kNamespace)) {
    std::vector<uint8_t> value;
    unsigned type = 0;
    if (!store_->Get(kNamespace, key, &value)) continue;
    if (sscanf(key.c_str(), "word.%u", &type) == 1 && value.size() == 4) {
      profile_.words[type] = GetU32(value.data());
    } else if (sscanf(key.c_str(), "string.%u", &type) == 1) {
      profile_.strings[type] = std::string(value.begin(), value.end());
    } else if (sscanf(key.c_str(), "record.%u", &type) == 1 && !value.empty()) {
      profile_.records[type] = value;
    }
  }
}

bool Identity::SetWord(uint32_t cmd, uint32_t value) {
  std::lock_guard<std::mutex> lock(mu_);
  if (store_ != nullptr && !store_->Put(kNamespace, Key("word", cmd), &value, sizeof(value))) {
    return false;
  }
  profile_.words[cmd] = value;
  return true;
}

bool Identity::SetString(uint32_t cmd, const std::string &text) {
  std::lock_guard<std::mutex> lock(mu_);
  if (store_ != nullptr && !store_->Put(kNamespace, Key("string", cmd), text.data(), text.size())) {
    return false;
  }
  profile_.strings[cmd] = text;
  return true;
}

bool Identity::SetRecord(uint32_t cmd, const std::vector<uint8_t> &record) {
  std::lock_guard<std::mutex> lock(mu_);
  if (store_ != nullptr &&
      !store_->Put(kNamespace, Key("record", cmd), record.data(), record.size())) {
    return false;
  }
  profile_.records[cmd] = record;
  return true;
}

Identity::Profile Identity::Get() const {
  std::lock_guard<std::mutex> lock(mu_);
  return profile_;
}

bool Identity::Answer(uint32_t cmd, std::vector<uint8_t> *data) const {
  std::lock_guard<std::mutex> lock(mu_);
  if (auto w = profile_.words.find(cmd); w != profile_.words.end()) {
    data->resize(4);
    PutU32(data, 0, w->second);
  } else if (auto s = profile_.strings.find(cmd); s != profile_.strings.end()) {
    data->assign(s->second.begin(), s->second.end());
    data->push_back(0);
  } else if (auto r = profile_.records.find(cmd); r != profile_.records.end()) {
    *data = r->second;
  } else {
    return false;
  }
  return true;
}

Identity *IdentityOf(Modem &modem) {
  return modem.FindModuleState<Identity>();
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("identity", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
