// Key-value state of the simulated modem, in namespaces (one per kind of data: NV items, modem
// files...). Without a directory it lives in memory; with one, every value is a file
// DIR/<namespace>/<escaped key>, written atomically (temporary file, fsync, rename), so a value
// written by one run of the tool is read by the next. Thread-safe.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace modemsim {

class StateStore {
 public:
  explicit StateStore(std::string dir = "");

  const std::string &dir() const { return dir_; }
  bool persistent() const { return !dir_.empty(); }

  // False when the key has no value (or its file cannot be read).
  [[nodiscard]] bool Get(const std::string &ns, const std::string &key,
                         std::vector<uint8_t> *value) const;
  // False when the value could not be stored (file system error).
  [[nodiscard]] bool Put(const std::string &ns, const std::string &key, const void *data,
                         size_t len);
  // True when a value existed and is gone.
  [[nodiscard]] bool Erase(const std::string &ns, const std::string &key);
  // Keys of a namespace, sorted.
  std::vector<std::string> Keys(const std::string &ns) const;

 private:
  std::string PathOf(const std::string &ns, const std::string &key) const;

  std::string dir_;
  mutable std::mutex mu_;
  std::map<std::string, std::map<std::string, std::vector<uint8_t>>> memory_;
};

}  // namespace modemsim
