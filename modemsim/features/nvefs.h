// NV items and modem files (request ids 1 and 2 of the generic request): items per
// subscription (0, 1, and 2 for the one item the radio may read there), files per subscription
// written in chunks under an instance number, the whole-store operations (backup, restore,
// golden copy, which take the modem a while), and the cell information (operation 256 of
// request id 1). Items and files persist in the state directory (namespaces "nv" and "efs").
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {
namespace features {

// Status record of a modem file (what `efs stat` returns, 16 bytes).
struct FileStat {
  uint32_t mode;  // 0100644 for a regular file
  uint32_t size;
  uint32_t nlink;  // 1
  uint32_t mtime;  // modification counter of the modem's store
};

class NvEfs {
 public:
  using Bytes = std::vector<uint8_t>;
  explicit NvEfs(StateStore *store);

  bool NvItem(uint32_t sub, uint32_t item, Bytes *value) const;
  bool File(uint32_t sub, const std::string &path, Bytes *content) const;
  size_t OpenWrites() const;
  void SetCellInfo(const Bytes &info);
  // Delays of the whole-store NV operations (backup, restore, golden copy), in ms.
  void SetStoreDelays(uint32_t backup_ms, uint32_t restore_ms, uint32_t golden_ms);

 private:
  friend struct NvEfsHandlers;
  struct PendingWrite {
    uint32_t sub;
    std::string path;
    uint32_t total;
    Bytes data;
  };

  int32_t NvRead(uint32_t sub, uint32_t item, Bytes *out) const;
  int32_t NvWrite(uint32_t sub, uint32_t item, const uint8_t *data, uint32_t len);
  int32_t NvDelete(uint32_t sub, uint32_t item);
  int32_t EfsWriteChunk(const uint8_t *req, uint16_t *ins_id);
  // 0, or kEfsIo when the store could not be changed (the file is then as it was).
  int32_t PutFile(uint32_t sub, const std::string &path, Bytes content);
  int32_t EraseFile(uint32_t sub, const std::string &path);
  const Bytes *FindFile(uint32_t sub, const std::string &path) const;
  Bytes RawItem(const uint8_t *req);
  Bytes Nvefs(const uint8_t *req);
  uint32_t DelayOf(uint32_t op) const;

  mutable std::mutex mu_;
  StateStore *store_;
  std::map<uint32_t, std::map<uint32_t, Bytes>> nv_;
  std::map<uint32_t, std::map<std::string, Bytes>> files_;
  std::map<uint32_t, std::map<uint32_t, Bytes>> nv_backup_;
  std::map<uint32_t, std::map<uint32_t, Bytes>> nv_golden_;
  std::map<uint16_t, PendingWrite> writes_;
  uint16_t next_ins_id_ = 1;
  Bytes cell_info_;
  uint32_t backup_ms_ = 200, restore_ms_ = 400, golden_ms_ = 200;
};

NvEfs *NvEfsOf(Modem &modem);

}  // namespace features
}  // namespace modemsim
