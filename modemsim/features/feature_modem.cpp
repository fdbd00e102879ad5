// The modem side of the generic-request features and of the base model messages.
#include "feature_modem.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "modemsim/state_store.h"
#include "tarvik_base_model.h"
#include "tarvik_extend_cdc.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_extend_nvefs.h"

namespace modemsim {
namespace features {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char *kNvNamespace = "nv";
constexpr const char *kEfsNamespace = "efs";
// Settings the modem keeps in its non-volatile store beside NV items and files.
constexpr const char *kSettingsNamespace = "settings";
constexpr const char *kExtendModeKey = "extend_mode";
constexpr const char *kBuildInfoKey = "build_information";
// The modem profile and the configuration service's settings.
constexpr const char *kProfileNamespace = "profile";
constexpr const char *kMcfgNamespace = "mcfg";
constexpr const char *kWordPrefix = "word.";
constexpr const char *kStringPrefix = "string.";
constexpr const char *kRecordPrefix = "record.";
constexpr const char *kPathPrefix = "path.";
constexpr const char *kDiscoverTimerKey = "discover_timer";
constexpr uint32_t kFileMax = 1u << 20;  // the simulated file system's own size limit
constexpr size_t kMaxOpenWrites = 16;    // abandoned writes beyond this are forgotten
constexpr uint32_t kRegularFileMode = 0100644;
constexpr uint32_t kSubCount = 3;  // 0, 1, and 2 for the one item the radio may read there
constexpr uint32_t kBaseModelUnknownEvent = 1;
constexpr uint32_t kReasonInd = 0x12;
constexpr uint32_t kSceneInd = 0x14;

uint32_t GetU32(const uint8_t *at) {
  uint32_t v;
  memcpy(&v, at, sizeof(v));
  return v;
}
void PutU32(Bytes *out, size_t at, uint32_t v) {
  memcpy(out->data() + at, &v, sizeof(v));
}
void PutI32(Bytes *out, size_t at, int32_t v) {
  memcpy(out->data() + at, &v, sizeof(v));
}
void PutU16(Bytes *out, size_t at, uint16_t v) {
  memcpy(out->data() + at, &v, sizeof(v));
}

// Payloads that carry no length of their own (CDC, venue mode) end at their last non-zero byte.
Bytes TrimZeros(const uint8_t *data, size_t len) {
  while (len > 0 && data[len - 1] == 0) {
    --len;
  }
  return Bytes(data, data + len);
}

// A path field: at most `max` bytes, ending at the first terminator.
std::string PathOf(const uint8_t *field, size_t max) {
  size_t n = 0;
  while (n < max && field[n] != 0) {
    ++n;
  }
  return std::string(reinterpret_cast<const char *>(field), n);
}

uint32_t Fnv1a(const Bytes &data) {
  uint32_t h = 2166136261u;
  for (uint8_t b : data) {
    h = (h ^ b) * 16777619u;
  }
  return h;
}

std::string NvKey(uint32_t sub, uint32_t item) {
  return std::to_string(sub) + "/" + std::to_string(item);
}
std::string EfsKey(uint32_t sub, const std::string &path) {
  return std::to_string(sub) + ":" + path;
}

// Response layouts, as offsets into the payload the modem answers with.
constexpr size_t kCmnHeader = offsetof(tarvik_cmn_rsp_t, data);
constexpr size_t kCmnResult = offsetof(tarvik_cmn_rsp_t, result);
constexpr size_t kItemData = offsetof(tarvik_nv_item_rsp_t, data);
constexpr size_t kEfsData = offsetof(tarvik_nvefs_rsp_t, data);
constexpr size_t kCdcData = offsetof(tarvik_cdc_rsp_t, data);

}  // namespace

FeatureModem::FeatureModem(StateStore *store) : store_(store) {
  // What the simulated hardware reports.
  words_ = {{COMMON_CMD_CHIPSET_ID, 0x209}, {COMMON_CMD_DSDA_SUPPORT, 1},
            {COMMON_CMD_BP_CHIP_ID, 0x5A3}, {COMMON_CMD_MBN_LIST_CUST_MAX_NUM, 32},
            {COMMON_CMD_HW_ID, 0x1001},     {COMMON_CMD_CDMA_SUPPORT, 0}};
  features_[COMMON_FEATURE_SATELLITE] = {0, {}};
  features_[COMMON_FEATURE_RFFE_DEVICE_CHECK] = {0, {0x01, 0x01, 0x01, 0x01}};
  features_[COMMON_FEATURE_MTPL_GPIO] = {0, {}};
  // Texts and records by type, as a modem of this family answers them.
  strings_ = {{kProfileVersionType, "MPSS.DE.3.1.1-00215-KAILUA_GEN_PACK-1"},
              {kProfileSerialType, "TV5G-0042-1187"}};
  records_ = {{kProfileRfRecordType, {9, 0x02, 0x55, 0x85, 0x01, 0x00, 0x10, 0x27, 0x03}}};
  mcfg_paths_ = {{COMMON_CMD_MBN_TXT_PATH_GET, "/data/vendor/modem_config/mcfg_sw/mbn_sw.txt"},
                 {COMMON_CMD_MBN_TXT_PATH_GET_2, "/data/vendor/modem_config/mcfg_hw/mbn_hw.txt"}};
  const char cell[] = "rat=LTE;mcc=001;mnc=01;tac=1;pci=22;earfcn=1850";
  cell_info_.assign(cell, cell + sizeof(cell) - 1);
  Load();
}

bool FeatureModem::PutSetting(const char *key, uint8_t value) {
  return store_ == nullptr || store_->Put(kSettingsNamespace, key, &value, 1);
}

bool FeatureModem::PutU32Setting(const char *ns, const std::string &key, uint32_t value) {
  return store_ == nullptr || store_->Put(ns, key, &value, sizeof(value));
}

// Makes the directory entries of the store durable (the values are fsynced as they are
// written): every namespace directory, then the state directory itself.
int32_t FeatureModem::SyncStore() const {
  if (store_ == nullptr) {
    return 0;
  }
  std::vector<std::string> dirs;
  if (DIR *d = opendir(store_->dir().c_str())) {
    while (const dirent *e = readdir(d)) {
      if (e->d_name[0] != '.' && e->d_type == DT_DIR) {
        dirs.push_back(store_->dir() + "/" + e->d_name);
      }
    }
    closedir(d);
  }
  dirs.push_back(store_->dir());
  for (const std::string &dir : dirs) {
    const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
      return kStoreFailed;
    }
    const int rc = fsync(fd);
    close(fd);
    if (rc != 0) {
      return kStoreFailed;
    }
  }
  return 0;
}

void FeatureModem::Load() {
  if (store_ == nullptr) {
    return;
  }
  Bytes setting;
  if (store_->Get(kSettingsNamespace, kExtendModeKey, &setting) && setting.size() == 1) {
    extend_mode_ = setting[0];
  }
  if (store_->Get(kSettingsNamespace, kBuildInfoKey, &setting) && setting.size() == 1) {
    build_info_ = setting[0];
  }
  for (const std::string &key : store_->Keys(kProfileNamespace)) {
    Bytes value;
    unsigned type = 0;
    if (!store_->Get(kProfileNamespace, key, &value)) {
      continue;
    }
    if (sscanf(key.c_str(), "word.%u", &type) == 1 && value.size() == 4) {
      words_[type] = GetU32(value.data());
    } else if (sscanf(key.c_str(), "string.%u", &type) == 1) {
      strings_[type] = std::string(value.begin(), value.end());
    } else if (sscanf(key.c_str(), "record.%u", &type) == 1 && !value.empty()) {
      records_[type] = value;
    }
  }
  for (const std::string &key : store_->Keys(kMcfgNamespace)) {
    Bytes value;
    unsigned cmd = 0;
    if (!store_->Get(kMcfgNamespace, key, &value)) {
      continue;
    }
    if (key == kDiscoverTimerKey && value.size() == 4) {
      discover_timer_ = GetU32(value.data());
    } else if (sscanf(key.c_str(), "path.%u", &cmd) == 1) {
      mcfg_paths_[cmd] = std::string(value.begin(), value.end());
    }
  }
  for (const std::string &key : store_->Keys(kNvNamespace)) {
    unsigned sub = 0, item = 0;
    Bytes value;
    if (sscanf(key.c_str(), "%u/%u", &sub, &item) == 2 && store_->Get(kNvNamespace, key, &value)) {
      nv_[sub][item] = std::move(value);
    }
  }
  for (const std::string &key : store_->Keys(kEfsNamespace)) {
    const size_t colon = key.find(':');
    Bytes value;
    if (colon == std::string::npos || !store_->Get(kEfsNamespace, key, &value)) {
      continue;
    }
    files_[static_cast<uint32_t>(std::stoul(key.substr(0, colon)))][key.substr(colon + 1)] =
        std::move(value);
  }
}

GenericReply FeatureModem::Generic(uint32_t request_id, const uint8_t *data, uint32_t len,
                                   uint32_t client) {
  // Requests shorter than their layout read as zero-filled; longer ones are cut.
  uint8_t req[TARVIK_NVEFS_REQ_SIZE];
  memset(req, 0, sizeof(req));
  memcpy(req, data, std::min<size_t>(len, sizeof(req)));

  if (request_id == REQUEST_ID_NV_ITEM) {
    // Whole-store operations take the modem a while; other state stays reachable meanwhile.
    const uint32_t op = GetU32(req);
    uint32_t delay = 0;
    {
      std::lock_guard<std::mutex> lock(mu_);
      delay = op == NV_ITEM_OP_BACKUP       ? backup_ms_
              : op == NV_ITEM_OP_RESTORE    ? restore_ms_
              : op == NV_ITEM_OP_GOLDENCOPY ? golden_ms_
                                            : 0;
    }
    if (delay > 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    }
  }

  std::lock_guard<std::mutex> lock(mu_);
  GenericReply reply;
  switch (request_id) {
    case REQUEST_ID_NV_ITEM:
      reply.data = NvItemRaw(req, len);
      break;
    case REQUEST_ID_NVEFS:
      reply.data = Nvefs(req, len);
      break;
    case REQUEST_ID_COMMON:
      client_ = client;
      reply.data = Common(req, len);
      break;
    case REQUEST_ID_CDC:
      reply.data = Cdc(req, len);
      break;
    default:
      reply.verdict = kCmnNotSupported;
      return reply;
  }
  if (tamper_) {
    tamper_(request_id, data, len, &reply.data);
  }
  return reply;
}

// ---------------------------------------------------------------------------------------------
// Common commands
// ---------------------------------------------------------------------------------------------

Bytes FeatureModem::Common(const uint8_t *req, uint32_t) {
  const uint32_t cmd = GetU32(req);
  const uint8_t *payload = req + offsetof(tarvik_cmn_req_t, payload);
  int32_t result = 0;
  Bytes data;
  switch (cmd) {
    case COMMON_CMD_MSG:
      data = TypedMessage(payload, TARVIK_CMN_PAYLOAD_MAX, &result);
      break;
    case COMMON_CMD_EXTEND_MODE_GET:
      data = {extend_mode_};
      break;
    case COMMON_CMD_EXTEND_MODE_SET:
      if (!PutSetting(kExtendModeKey, payload[0])) {
        result = kStoreFailed;
        break;
      }
      extend_mode_ = payload[0];
      break;
    case COMMON_CMD_BUILD_INFORMATION:
      if (!PutSetting(kBuildInfoKey, payload[0])) {
        result = kStoreFailed;
        break;
      }
      build_info_ = payload[0];
      break;
    case COMMON_CMD_MBN_TXT_PATH_GET:
    case COMMON_CMD_MBN_TXT_PATH_GET_2:
    case COMMON_CMD_MBN_TXT_PATH_SET:
    case COMMON_CMD_MBN_TXT_PATH_SET_2:
    case COMMON_CMD_REG_MCFG_EVENT_IND:
      data = McfgCommand(cmd, payload, client_, &result);
      break;
    case COMMON_CMD_SCREEN_STATUS:
    case COMMON_CMD_SLEEP_STATUS:
      notify_[cmd] = GetU32(payload);
      break;
    case COMMON_CMD_VENUE_MODE:
      venue_ = TrimZeros(payload, TARVIK_CMN_PAYLOAD_MAX);
      // The modem answers with the venue configuration now in force ("off": one zero byte).
      data = venue_.empty() ? Bytes{0} : venue_;
      break;
    case COMMON_CMD_FEATURE_CONTROL: {
      const uint32_t code = GetU32(payload + 8);
      auto it = features_.find(code);
      if (GetU32(payload) != 0 || GetU32(payload + 4) != 3 || it == features_.end()) {
        result = kCmnNotSupported;
        break;
      }
      // Argument echoed, then the feature's outcome byte and its report.
      data = {payload[12], it->second.first};
      data.insert(data.end(), it->second.second.begin(), it->second.second.end());
      break;
    }
    default: {
      if (auto w = words_.find(cmd); w != words_.end()) {
        data.resize(4);
        PutU32(&data, 0, w->second);
      } else if (auto s = strings_.find(cmd); s != strings_.end()) {
        data.assign(s->second.begin(), s->second.end());
        data.push_back(0);
      } else if (auto r = records_.find(cmd); r != records_.end()) {
        data = r->second;
      } else {
        result = kCmnNotSupported;
      }
      break;
    }
  }
  data.resize(std::min<size_t>(data.size(), TARVIK_CMN_RSP_DATA_MAX));
  Bytes out(kCmnHeader + data.size(), 0);
  PutI32(&out, kCmnResult, result);
  std::copy(data.begin(), data.end(), out.begin() + kCmnHeader);
  return out;
}

Bytes FeatureModem::McfgCommand(uint32_t cmd, const uint8_t *payload, uint32_t client,
                                int32_t *result) {
  if (cmd == COMMON_CMD_REG_MCFG_EVENT_IND) {
    mcfg_event_clients_.insert(client);
    return {};
  }
  if (cmd == COMMON_CMD_MBN_TXT_PATH_GET || cmd == COMMON_CMD_MBN_TXT_PATH_GET_2) {
    const std::string &path = mcfg_paths_[cmd];
    Bytes field(TARVIK_MCFG_PATH_SIZE, 0);
    std::copy(path.begin(), path.begin() + std::min<size_t>(path.size(), field.size() - 1),
              field.begin());
    return field;
  }
  // The set command of each path kind is one above its get command. The modem takes at most
  // what its 180-byte field holds with a terminator.
  const std::string path = PathOf(payload, TARVIK_CMN_PAYLOAD_MAX);
  if (path.size() >= TARVIK_MCFG_PATH_SIZE) {
    *result = kNvBadParam;
    return {};
  }
  if (store_ != nullptr && !store_->Put(kMcfgNamespace, kPathPrefix + std::to_string(cmd - 1),
                                        path.data(), path.size())) {
    *result = kStoreFailed;
    return {};
  }
  mcfg_paths_[cmd - 1] = path;
  return {};
}

Bytes FeatureModem::TypedMessage(const uint8_t *payload, uint32_t, int32_t *result) {
  const uint32_t type = GetU32(payload);
  const uint32_t len = GetU32(payload + 4);
  const uint8_t *value = payload + 8;
  Bytes answer;
  if (len >= TARVIK_CMN_MSG_LEN_LIMIT) {
    *result = kNvBadParam;
    return {};
  }
  switch (type) {
    case COMMON_MSG_NV_SYNC:
      // Items and files are written through to the store as they change; a sync makes their
      // directory entries durable before it is answered.
      *result = SyncStore();
      if (*result != 0) {
        return {};
      }
      ++nv_syncs_;
      break;
    case COMMON_MSG_MODEM_SSR:
    case COMMON_MSG_MODEM_CRASH:
      if (len < 4) {
        *result = kNvBadParam;
        return {};
      }
      orders_.push_back({type, GetU32(value)});
      if (orders_.size() > kMaxOrders) {
        orders_.erase(orders_.begin());
      }
      ++restarts_due_;
      break;
    case COMMON_MSG_MCFG_GET_DISCOVER_TIMER:
      answer.resize(4);
      PutU32(&answer, 0, discover_timer_);
      break;
    case COMMON_MSG_MCFG_SET_DISCOVER_TIMER:
      if (len < 4) {
        *result = kNvBadParam;
        return {};
      }
      if (!PutU32Setting(kMcfgNamespace, kDiscoverTimerKey, GetU32(value))) {
        *result = kStoreFailed;
        return {};
      }
      discover_timer_ = GetU32(value);
      break;
    default:
      *result = kCmnNotSupported;
      return {};
  }
  Bytes out(8, 0);
  PutU32(&out, 0, type);
  PutU32(&out, 4, static_cast<uint32_t>(answer.size()));
  out.insert(out.end(), answer.begin(), answer.end());
  return out;
}

// ---------------------------------------------------------------------------------------------
// NV items
// ---------------------------------------------------------------------------------------------

int32_t FeatureModem::NvRead(uint32_t sub, uint32_t item, Bytes *out) const {
  if (sub >= kSubCount || item > TARVIK_NV_ID_MAX) {
    return kNvBadParam;
  }
  auto s = nv_.find(sub);
  if (s == nv_.end()) {
    return kNvNotActive;
  }
  auto it = s->second.find(item);
  if (it == s->second.end()) {
    return kNvNotActive;
  }
  *out = it->second;
  return 0;
}

int32_t FeatureModem::NvWrite(uint32_t sub, uint32_t item, const uint8_t *data, uint32_t len) {
  if (sub >= kSubCount || item > TARVIK_NV_ID_MAX || len == 0 || len > TARVIK_NVEFS_DATA_MAX) {
    return kNvBadParam;
  }
  if (store_ != nullptr && !store_->Put(kNvNamespace, NvKey(sub, item), data, len)) {
    return kStoreFailed;
  }
  nv_[sub][item].assign(data, data + len);
  return 0;
}

int32_t FeatureModem::NvDelete(uint32_t sub, uint32_t item) {
  if (sub >= kSubCount || item > TARVIK_NV_ID_MAX) {
    return kNvBadParam;
  }
  if (nv_[sub].count(item) == 0) {
    return kNvNotActive;
  }
  // Every item held is in the store too: an erase that finds nothing to remove failed.
  if (store_ != nullptr && !store_->Erase(kNvNamespace, NvKey(sub, item))) {
    return kStoreFailed;
  }
  nv_[sub].erase(item);
  return 0;
}

Bytes FeatureModem::NvItemRaw(const uint8_t *req, uint32_t) {
  tarvik_nv_item_req_t r;
  memcpy(&r, req, sizeof(r));
  int32_t result = 0;
  Bytes data;
  switch (r.op) {
    case NV_ITEM_OP_READ:
      result = NvRead(r.arg2, r.arg1, &data);
      break;
    case NV_ITEM_OP_WRITE:
      result = r.len > TARVIK_NV_ITEM_PAYLOAD_MAX ? kNvBadParam
                                                  : NvWrite(r.arg2, r.arg1, r.payload, r.len);
      break;
    case NV_ITEM_OP_DELETE:
      result = NvDelete(r.arg2, r.arg1);
      break;
    case NV_ITEM_OP_BACKUP:
      if (r.arg1 >= kSubCount) {
        result = kNvBadParam;
      } else {
        nv_backup_[r.arg1] = nv_[r.arg1];
      }
      break;
    case NV_ITEM_OP_RESTORE: {
      auto b = nv_backup_.find(r.arg1);
      if (r.arg1 >= kSubCount || b == nv_backup_.end()) {
        result = kNvNotActive;
        break;
      }
      std::vector<uint32_t> held;
      for (const auto &item : nv_[r.arg1]) {
        held.push_back(item.first);
      }
      for (uint32_t item : held) {
        if (b->second.count(item) == 0 && result == 0) {
          result = NvDelete(r.arg1, item);
        }
      }
      for (const auto &item : b->second) {
        if (result == 0) {
          result = NvWrite(r.arg1, item.first, item.second.data(),
                           static_cast<uint32_t>(item.second.size()));
        }
      }
      break;
    }
    case NV_ITEM_OP_GOLDENCOPY:
      nv_golden_ = nv_;
      break;
    case NV_ITEM_OP_CELLINFO:
      if (r.len > TARVIK_NV_ITEM_PAYLOAD_MAX) {
        result = kNvBadParam;
      } else {
        data = cell_info_;
      }
      break;
    default:
      result = kCmnNotSupported;
      break;
  }
  data.resize(std::min<size_t>(data.size(), TARVIK_NV_ITEM_PAYLOAD_MAX));
  Bytes out(kItemData + data.size(), 0);
  PutI32(&out, offsetof(tarvik_nv_item_rsp_t, result), result);
  PutU32(&out, offsetof(tarvik_nv_item_rsp_t, data_len), static_cast<uint32_t>(data.size()));
  std::copy(data.begin(), data.end(), out.begin() + kItemData);
  return out;
}

// ---------------------------------------------------------------------------------------------
// NV items and modem files on the validated path
// ---------------------------------------------------------------------------------------------

int32_t FeatureModem::PutFile(uint32_t sub, const std::string &path, Bytes content) {
  if (store_ != nullptr &&
      !store_->Put(kEfsNamespace, EfsKey(sub, path), content.data(), content.size())) {
    return kEfsIo;
  }
  files_[sub][path] = std::move(content);
  return 0;
}

int32_t FeatureModem::EraseFile(uint32_t sub, const std::string &path) {
  if (store_ != nullptr && !store_->Erase(kEfsNamespace, EfsKey(sub, path))) {
    return kEfsIo;
  }
  files_[sub].erase(path);
  return 0;
}

int32_t FeatureModem::EfsWriteChunk(const uint8_t *req, uint16_t *ins_id) {
  tarvik_nvefs_req_t r;
  memcpy(&r, req, sizeof(r));
  const std::string path = PathOf(req + offsetof(tarvik_nvefs_req_t, path), r.path_len);
  if (path.empty() || r.sub >= kSubCount || r.len_all == 0 || r.len_all > kFileMax ||
      r.len_send == 0 || r.len_send > TARVIK_NVEFS_DATA_MAX ||
      static_cast<uint64_t>(r.len_cur) + r.len_send > r.len_all) {
    return kEfsInvalid;
  }
  uint16_t id = r.item;
  if (id == TARVIK_EFS_FIRST_INS_ID) {
    if (r.len_cur != 0) {
      return kEfsInvalid;
    }
    if (writes_.size() >= kMaxOpenWrites) {
      writes_.erase(writes_.begin());
    }
    // Instance numbers run 1 to 254; 255 asks for a new one.
    do {
      id = next_ins_id_;
      next_ins_id_ = static_cast<uint16_t>(next_ins_id_ % (TARVIK_EFS_FIRST_INS_ID - 1) + 1);
    } while (writes_.count(id) != 0);
    writes_[id] = PendingWrite{r.sub, path, r.len_all, {}};
  }
  auto it = writes_.find(id);
  if (it == writes_.end() || it->second.sub != r.sub || it->second.path != path ||
      it->second.total != r.len_all) {
    return kEfsBadInstance;
  }
  PendingWrite &w = it->second;
  if (r.len_cur != w.data.size()) {
    writes_.erase(it);
    return kEfsInvalid;
  }
  w.data.insert(w.data.end(), r.data, r.data + r.len_send);
  *ins_id = id;
  if (w.data.size() == w.total) {
    const int32_t stored = PutFile(w.sub, w.path, std::move(w.data));
    writes_.erase(it);
    return stored;
  }
  return 0;
}

Bytes FeatureModem::Nvefs(const uint8_t *req, uint32_t) {
  tarvik_nvefs_req_t r;
  memcpy(&r, req, sizeof(r));
  const std::string path = PathOf(req + offsetof(tarvik_nvefs_req_t, path),
                                  r.op == NVEFS_OP_EFS_STAT ? TARVIK_EFS_PATH_MAX : r.path_len);
  const uint32_t sub = r.op == NVEFS_OP_EFS_STAT ? 0 : r.sub;
  int32_t result = 0;
  uint16_t ins_id = 0;
  uint32_t all = 0;
  Bytes data;
  auto file = [&](uint32_t s, const std::string &p) -> const Bytes * {
    auto fs = files_.find(s);
    if (fs == files_.end()) {
      return nullptr;
    }
    auto f = fs->second.find(p);
    return f == fs->second.end() ? nullptr : &f->second;
  };
  const std::string second = PathOf(r.data, std::min<uint32_t>(r.len_all, TARVIK_NVEFS_DATA_MAX));
  switch (r.op) {
    case NVEFS_OP_NV_READ:
      result = NvRead(r.sub, r.item, &data);
      all = static_cast<uint32_t>(data.size());
      break;
    case NVEFS_OP_NV_WRITE:
      result = NvWrite(r.sub, r.item, r.data, r.len_all);
      break;
    case NVEFS_OP_NV_DELETE:
      result = NvDelete(r.sub, r.item);
      break;
    case NVEFS_OP_EFS_READ: {
      const Bytes *f = file(sub, path);
      if (f == nullptr) {
        result = kEfsNoEntry;
      } else if (r.len_cur > f->size()) {
        result = kEfsInvalid;
      } else {
        const size_t n = std::min<size_t>(f->size() - r.len_cur, TARVIK_NVEFS_DATA_MAX);
        data.assign(f->begin() + r.len_cur, f->begin() + r.len_cur + n);
        all = static_cast<uint32_t>(f->size());
      }
      break;
    }
    case NVEFS_OP_EFS_WRITE:
      result = EfsWriteChunk(req, &ins_id);
      break;
    case NVEFS_OP_EFS_DELETE:
    case NVEFS_OP_EFS_EXIST:
      if (file(sub, path) == nullptr) {
        result = kEfsNoEntry;
      } else if (r.op == NVEFS_OP_EFS_DELETE) {
        result = EraseFile(sub, path);
      }
      break;
    case NVEFS_OP_EFS_COMPARE:
    case NVEFS_OP_EFS_COPY: {
      const Bytes *src = file(sub, path);
      const Bytes *tgt = file(r.len_send, second);
      if (src == nullptr || second.empty() || r.len_send >= kSubCount) {
        result = src == nullptr ? kEfsNoEntry : kEfsInvalid;
      } else if (r.op == NVEFS_OP_EFS_COPY) {
        result = PutFile(r.len_send, second, *src);
      } else {
        result = tgt == nullptr ? kEfsNoEntry : (*src == *tgt ? 0 : kFilesDiffer);
      }
      break;
    }
    case NVEFS_OP_EFS_STAT: {
      const Bytes *f = file(sub, path);
      if (f == nullptr) {
        result = kEfsNoEntry;
        break;
      }
      const FileStat st{kRegularFileMode, static_cast<uint32_t>(f->size()), 1, Fnv1a(*f)};
      data.resize(sizeof(st));
      memcpy(data.data(), &st, sizeof(st));
      break;
    }
    default:
      result = kCmnNotSupported;
      break;
  }
  Bytes out(kEfsData + data.size(), 0);
  PutU16(&out, offsetof(tarvik_nvefs_rsp_t, ins_id), ins_id);
  PutU32(&out, offsetof(tarvik_nvefs_rsp_t, data_len_all), all);
  PutU32(&out, offsetof(tarvik_nvefs_rsp_t, data_len_send), static_cast<uint32_t>(data.size()));
  PutI32(&out, offsetof(tarvik_nvefs_rsp_t, result), result);
  std::copy(data.begin(), data.end(), out.begin() + kEfsData);
  return out;
}

// ---------------------------------------------------------------------------------------------
// CDC
// ---------------------------------------------------------------------------------------------

Bytes FeatureModem::Cdc(const uint8_t *req, uint32_t) {
  const uint32_t event = GetU32(req);
  Bytes payload = TrimZeros(req + offsetof(tarvik_cdc_req_t, data), TARVIK_CDC_DATA_MAX);
  // An event with data stores it; every event answers with what is stored for it.
  if (!payload.empty()) {
    cdc_[event] = std::move(payload);
  }
  const Bytes &stored = cdc_[event];
  Bytes out(kCdcData + stored.size(), 0);
  PutU32(&out, offsetof(tarvik_cdc_rsp_t, data_len), static_cast<uint32_t>(stored.size()));
  std::copy(stored.begin(), stored.end(), out.begin() + kCdcData);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Base model
// ---------------------------------------------------------------------------------------------

uint32_t FeatureModem::SetModelCfg(const uint32_t *cfg, uint32_t count) {
  std::lock_guard<std::mutex> lock(mu_);
  base_.cfg.assign(cfg, cfg + std::min<uint32_t>(count, TARVIK_BASE_MODEL_CFG_MAX));
  return 0;
}

uint32_t FeatureModem::SetDetection(uint8_t enabled) {
  std::lock_guard<std::mutex> lock(mu_);
  base_.detection = enabled;
  return 0;
}

uint32_t FeatureModem::SetEventSwitch(uint32_t event, uint8_t on) {
  std::lock_guard<std::mutex> lock(mu_);
  if (event != kReasonInd && event != kSceneInd) {
    return kBaseModelUnknownEvent;
  }
  if (on != 0) {
    base_.events.insert(event);
  } else {
    base_.events.erase(event);
  }
  return 0;
}

BaseModelState FeatureModem::BaseModel() const {
  std::lock_guard<std::mutex> lock(mu_);
  return base_;
}

bool FeatureModem::ReportReason(const std::array<std::vector<uint32_t>, 4> &lists) {
  std::lock_guard<std::mutex> lock(mu_);
  base_.reason = lists;
  return base_.detection != 0 && base_.events.count(kReasonInd) != 0;
}

bool FeatureModem::ReportScene(uint32_t scene, uint32_t scene_ext) {
  std::lock_guard<std::mutex> lock(mu_);
  base_.scene = scene;
  base_.scene_ext = scene_ext;
  return base_.detection != 0 && base_.events.count(kSceneInd) != 0;
}

void FeatureModem::SetDdsInfo(const std::array<uint32_t, 17> &info) {
  std::lock_guard<std::mutex> lock(mu_);
  base_.dds = info;
}

// ---------------------------------------------------------------------------------------------
// Tables and views
// ---------------------------------------------------------------------------------------------

bool FeatureModem::SetWord(uint32_t cmd, uint32_t value) {
  std::lock_guard<std::mutex> lock(mu_);
  if (!PutU32Setting(kProfileNamespace, kWordPrefix + std::to_string(cmd), value)) {
    return false;
  }
  words_[cmd] = value;
  return true;
}

bool FeatureModem::SetString(uint32_t cmd, const std::string &text) {
  std::lock_guard<std::mutex> lock(mu_);
  if (store_ != nullptr && !store_->Put(kProfileNamespace, kStringPrefix + std::to_string(cmd),
                                        text.data(), text.size())) {
    return false;
  }
  strings_[cmd] = text;
  return true;
}

bool FeatureModem::SetRecord(uint32_t cmd, const std::vector<uint8_t> &record) {
  std::lock_guard<std::mutex> lock(mu_);
  if (store_ != nullptr && !store_->Put(kProfileNamespace, kRecordPrefix + std::to_string(cmd),
                                        record.data(), record.size())) {
    return false;
  }
  records_[cmd] = record;
  return true;
}

FeatureModem::Profile FeatureModem::GetProfile() const {
  std::lock_guard<std::mutex> lock(mu_);
  return Profile{words_, strings_, records_};
}

std::vector<FeatureModem::Order> FeatureModem::Orders() const {
  std::lock_guard<std::mutex> lock(mu_);
  return orders_;
}

void FeatureModem::SetRestartDownMs(uint32_t ms) {
  std::lock_guard<std::mutex> lock(mu_);
  restart_down_ms_ = ms;
}

uint32_t FeatureModem::RestartDownMs() const {
  std::lock_guard<std::mutex> lock(mu_);
  return restart_down_ms_;
}

bool FeatureModem::TakeRestartDue() {
  std::lock_guard<std::mutex> lock(mu_);
  if (restarts_due_ == 0) {
    return false;
  }
  --restarts_due_;
  return true;
}

std::string FeatureModem::McfgPath(uint32_t get_cmd) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = mcfg_paths_.find(get_cmd);
  return it == mcfg_paths_.end() ? std::string() : it->second;
}

uint32_t FeatureModem::DiscoverTimer() const {
  std::lock_guard<std::mutex> lock(mu_);
  return discover_timer_;
}

std::set<uint32_t> FeatureModem::McfgEventClients() const {
  std::lock_guard<std::mutex> lock(mu_);
  return mcfg_event_clients_;
}

void FeatureModem::ClientGone(uint32_t client) {
  std::lock_guard<std::mutex> lock(mu_);
  mcfg_event_clients_.erase(client);
}

bool FeatureModem::NotifyState(uint32_t cmd, uint32_t *value) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = notify_.find(cmd);
  if (it == notify_.end()) {
    return false;
  }
  *value = it->second;
  return true;
}

void FeatureModem::SetFeatureOutcome(uint32_t feature, uint8_t outcome,
                                     const std::vector<uint8_t> &report) {
  std::lock_guard<std::mutex> lock(mu_);
  features_[feature] = {outcome, report};
}

void FeatureModem::SetCellInfo(const std::vector<uint8_t> &info) {
  std::lock_guard<std::mutex> lock(mu_);
  cell_info_ = info;
}

void FeatureModem::SetStoreDelays(uint32_t backup_ms, uint32_t restore_ms, uint32_t golden_ms) {
  std::lock_guard<std::mutex> lock(mu_);
  backup_ms_ = backup_ms;
  restore_ms_ = restore_ms;
  golden_ms_ = golden_ms;
}

void FeatureModem::SetTamper(Tamper tamper) {
  std::lock_guard<std::mutex> lock(mu_);
  tamper_ = std::move(tamper);
}

uint8_t FeatureModem::ExtendMode() const {
  std::lock_guard<std::mutex> lock(mu_);
  return extend_mode_;
}

uint8_t FeatureModem::BuildInformation() const {
  std::lock_guard<std::mutex> lock(mu_);
  return build_info_;
}

uint32_t FeatureModem::NvSyncCount() const {
  std::lock_guard<std::mutex> lock(mu_);
  return nv_syncs_;
}

std::vector<uint8_t> FeatureModem::VenueMode() const {
  std::lock_guard<std::mutex> lock(mu_);
  return venue_;
}

bool FeatureModem::NvItem(uint32_t sub, uint32_t item, std::vector<uint8_t> *value) const {
  std::lock_guard<std::mutex> lock(mu_);
  return NvRead(sub, item, value) == 0;
}

bool FeatureModem::File(uint32_t sub, const std::string &path,
                        std::vector<uint8_t> *content) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto s = files_.find(sub);
  if (s == files_.end()) {
    return false;
  }
  auto f = s->second.find(path);
  if (f == s->second.end()) {
    return false;
  }
  *content = f->second;
  return true;
}

size_t FeatureModem::OpenWrites() const {
  std::lock_guard<std::mutex> lock(mu_);
  return writes_.size();
}

}  // namespace features
}  // namespace modemsim
