// NV items, modem files, whole-store operations and cell information (see nvefs.h).
#include "nvefs.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "commands.h"
#include "extend/extend_service.h"
#include "modemsim/state_store.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_extend_nvefs.h"

namespace modemsim {
namespace features {
namespace {

constexpr const char *kNvNamespace = "nv";
constexpr const char *kEfsNamespace = "efs";
constexpr uint32_t kFileMax = 1u << 20;  // the simulated file system's own size limit
constexpr size_t kMaxOpenWrites = 16;    // abandoned writes beyond this are forgotten
constexpr uint32_t kRegularFileMode = 0100644;
constexpr uint32_t kSubCount = 3;  // 0, 1, and 2 for the one item the radio may read there
constexpr size_t kItemData = offsetof(tarvik_nv_item_rsp_t, data);
constexpr size_t kEfsData = offsetof(tarvik_nvefs_rsp_t, data);

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

}  // namespace

struct NvEfsHandlers {
  // Requests shorter than their layout read as zero-filled; longer ones are cut. Whole-store
  // operations take the modem a while; other state stays reachable meanwhile.
  static void Request(NvEfs *nv, const extend::Request &req, extend::Reply &reply) {
    uint8_t buf[TARVIK_NVEFS_REQ_SIZE] = {};
    memcpy(buf, req.data, std::min<size_t>(req.data_len, sizeof(buf)));
    Bytes out;
    if (req.request_id == REQUEST_ID_NV_ITEM) {
      const uint32_t delay = nv->DelayOf(GetU32(buf));
      if (delay > 0) std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      std::lock_guard<std::mutex> lock(nv->mu_);
      out = nv->RawItem(buf);
    } else {
      std::lock_guard<std::mutex> lock(nv->mu_);
      out = nv->Nvefs(buf);
    }
    reply.SetData(out.data(), out.size());
  }
};

namespace {

void InitModule(Modem &modem) {
  NvEfs *nv = &modem.ModuleState<NvEfs>(modem.state().persistent() ? &modem.state() : nullptr);
  for (uint32_t id : {REQUEST_ID_NV_ITEM, REQUEST_ID_NVEFS}) {
    extend::SetRequestHandler(modem, id, [nv](const extend::Request &req, extend::Reply &reply) {
      NvEfsHandlers::Request(nv, req, reply);
    });
  }
}

}  // namespace

NvEfs::NvEfs(StateStore *store) : store_(store) {
  const char cell[] = "rat=LTE;mcc=001;mnc=01;tac=1;pci=22;earfcn=1850";
  cell_info_.assign(cell, cell + sizeof(cell) - 1);
  if (store_ == nullptr) return;
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

uint32_t NvEfs::DelayOf(uint32_t op) const {
  std::lock_guard<std::mutex> lock(mu_);
  return op == NV_ITEM_OP_BACKUP       ? backup_ms_
         : op == NV_ITEM_OP_RESTORE    ? restore_ms_
         : op == NV_ITEM_OP_GOLDENCOPY ? golden_ms_
                                       : 0;
}

const NvEfs::Bytes *NvEfs::FindFile(uint32_t sub, const std::string &path) const {
  auto fs = files_.find(sub);
  if (fs == files_.end()) {
    return nullptr;
  }
  auto f = fs->second.find(path);
  return f == fs->second.end() ? nullptr : &f->second;
}

int32_t NvEfs::NvRead(uint32_t sub, uint32_t item, Bytes *out) const {
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

int32_t NvEfs::NvWrite(uint32_t sub, uint32_t item, const uint8_t *data, uint32_t len) {
  if (sub >= kSubCount || item > TARVIK_NV_ID_MAX || len == 0 || len > TARVIK_NVEFS_DATA_MAX) {
    return kNvBadParam;
  }
  if (store_ != nullptr && !store_->Put(kNvNamespace, NvKey(sub, item), data, len)) {
    return kStoreFailed;
  }
  nv_[sub][item].assign(data, data + len);
  return 0;
}

int32_t NvEfs::NvDelete(uint32_t sub, uint32_t item) {
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

Bytes NvEfs::RawItem(const uint8_t *req) {
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
  PutU32(&out, offsetof(tarvik_nv_item_rsp_t, result), static_cast<uint32_t>(result));
  PutU32(&out, offsetof(tarvik_nv_item_rsp_t, data_len), static_cast<uint32_t>(data.size()));
  std::copy(data.begin(), data.end(), out.begin() + kItemData);
  return out;
}

int32_t NvEfs::PutFile(uint32_t sub, const std::string &path, Bytes content) {
  if (store_ != nullptr &&
      !store_->Put(kEfsNamespace, EfsKey(sub, path), content.data(), content.size())) {
    return kEfsIo;
  }
  files_[sub][path] = std::move(content);
  return 0;
}

int32_t NvEfs::EraseFile(uint32_t sub, const std::string &path) {
  if (store_ != nullptr && !store_->Erase(kEfsNamespace, EfsKey(sub, path))) {
    return kEfsIo;
  }
  files_[sub].erase(path);
  return 0;
}

int32_t NvEfs::EfsWriteChunk(const uint8_t *req, uint16_t *ins_id) {
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

Bytes NvEfs::Nvefs(const uint8_t *req) {
  tarvik_nvefs_req_t r;
  memcpy(&r, req, sizeof(r));
  const std::string path = PathOf(req + offsetof(tarvik_nvefs_req_t, path),
                                  r.op == NVEFS_OP_EFS_STAT ? TARVIK_EFS_PATH_MAX : r.path_len);
  const uint32_t sub = r.op == NVEFS_OP_EFS_STAT ? 0 : r.sub;
  int32_t result = 0;
  uint16_t ins_id = 0;
  uint32_t all = 0;
  Bytes data;
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
      const Bytes *f = FindFile(sub, path);
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
      if (FindFile(sub, path) == nullptr) {
        result = kEfsNoEntry;
      } else if (r.op == NVEFS_OP_EFS_DELETE) {
        result = EraseFile(sub, path);
      }
      break;
    case NVEFS_OP_EFS_COMPARE:
    case NVEFS_OP_EFS_COPY: {
      const Bytes *src = FindFile(sub, path);
      const Bytes *tgt = FindFile(r.len_send, second);
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
      const Bytes *f = FindFile(sub, path);
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
  memcpy(out.data() + offsetof(tarvik_nvefs_rsp_t, ins_id), &ins_id, sizeof(ins_id));
  PutU32(&out, offsetof(tarvik_nvefs_rsp_t, data_len_all), all);
  PutU32(&out, offsetof(tarvik_nvefs_rsp_t, data_len_send), static_cast<uint32_t>(data.size()));
  PutU32(&out, offsetof(tarvik_nvefs_rsp_t, result), static_cast<uint32_t>(result));
  std::copy(data.begin(), data.end(), out.begin() + kEfsData);
  return out;
}

bool NvEfs::NvItem(uint32_t sub, uint32_t item, Bytes *value) const {
  std::lock_guard<std::mutex> lock(mu_);
  return NvRead(sub, item, value) == 0;
}

bool NvEfs::File(uint32_t sub, const std::string &path, Bytes *content) const {
  std::lock_guard<std::mutex> lock(mu_);
  const Bytes *f = FindFile(sub, path);
  if (f == nullptr) {
    return false;
  }
  *content = *f;
  return true;
}

size_t NvEfs::OpenWrites() const {
  std::lock_guard<std::mutex> lock(mu_);
  return writes_.size();
}

void NvEfs::SetCellInfo(const Bytes &info) {
  std::lock_guard<std::mutex> lock(mu_);
  cell_info_ = info;
}

void NvEfs::SetStoreDelays(uint32_t backup_ms, uint32_t restore_ms, uint32_t golden_ms) {
  std::lock_guard<std::mutex> lock(mu_);
  backup_ms_ = backup_ms;
  restore_ms_ = restore_ms;
  golden_ms_ = golden_ms;
}

NvEfs *NvEfsOf(Modem &modem) {
  return modem.FindModuleState<NvEfs>();
}

}  // namespace features
}  // namespace modemsim

MODEMSIM_MODULE("nvefs", modemsim::features::kFeatureOrder, modemsim::features::InitModule);
