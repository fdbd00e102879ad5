// Key-value state of the simulated modem, in memory or in a state directory.
#include "modemsim/state_store.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctype.h>

#include <algorithm>

#include "modemsim/text.h"

namespace modemsim {
namespace {

// Keys may be paths ("/nv/item_files/..."): every byte outside [A-Za-z0-9._-] becomes %XX, so a
// key is one file name and cannot climb out of its namespace directory.
std::string Escape(const std::string &key) {
  std::string out;
  for (unsigned char c : key) {
    if (isalnum(c) || c == '_' || c == '-' || (c == '.' && !out.empty())) {
      out += (char)c;
    } else {
      out += '%' + HexOf(&c, 1, true);
    }
  }
  return out.empty() ? "%" : out;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Unescape(const std::string &name) {
  std::string out;
  for (size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '%' && i + 2 < name.size() && HexValue(name[i + 1]) >= 0 &&
        HexValue(name[i + 2]) >= 0) {
      out += (char)(HexValue(name[i + 1]) * 16 + HexValue(name[i + 2]));
      i += 2;
    } else if (name[i] != '%') {
      out += name[i];
    }
  }
  return out;
}

bool WriteAll(int fd, const void *data, size_t len) {
  const char *p = static_cast<const char *>(data);
  while (len > 0) {
    const ssize_t n = write(fd, p, len);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    len -= (size_t)n;
  }
  return true;
}

}  // namespace

StateStore::StateStore(std::string dir) : dir_(std::move(dir)) {}

std::string StateStore::PathOf(const std::string &ns, const std::string &key) const {
  return dir_ + "/" + Escape(ns) + "/" + Escape(key);
}

bool StateStore::Get(const std::string &ns, const std::string &key,
                     std::vector<uint8_t> *value) const {
  std::lock_guard<std::mutex> lock(mu_);
  if (!persistent()) {
    auto n = memory_.find(ns);
    if (n == memory_.end()) return false;
    auto k = n->second.find(key);
    if (k == n->second.end()) return false;
    *value = k->second;
    return true;
  }
  FILE *f = fopen(PathOf(ns, key).c_str(), "rbe");
  if (f == nullptr) return false;
  value->clear();
  uint8_t buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), f)) > 0) value->insert(value->end(), buf, buf + n);
  const bool ok = ferror(f) == 0;
  fclose(f);
  return ok;
}

bool StateStore::Put(const std::string &ns, const std::string &key, const void *data, size_t len) {
  std::lock_guard<std::mutex> lock(mu_);
  if (!persistent()) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
    memory_[ns][key].assign(p, p + len);
    return true;
  }
  const std::string dir = dir_ + "/" + Escape(ns);
  if (mkdir(dir_.c_str(), 0700) != 0 && errno != EEXIST) return false;
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return false;
  const std::string path = PathOf(ns, key);
  // Escaped keys never start with '.', so the temporary name cannot be a key.
  const std::string tmp = dir + "/." + Escape(key) + "." + std::to_string(getpid());
  const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  bool ok = (len == 0 || WriteAll(fd, data, len)) && fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  if (ok && rename(tmp.c_str(), path.c_str()) == 0) return true;
  unlink(tmp.c_str());
  return false;
}

bool StateStore::Erase(const std::string &ns, const std::string &key) {
  std::lock_guard<std::mutex> lock(mu_);
  if (!persistent()) {
    auto n = memory_.find(ns);
    return n != memory_.end() && n->second.erase(key) > 0;
  }
  return unlink(PathOf(ns, key).c_str()) == 0;
}

std::vector<std::string> StateStore::Keys(const std::string &ns) const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<std::string> keys;
  if (!persistent()) {
    auto n = memory_.find(ns);
    if (n != memory_.end()) {
      for (auto &k : n->second) keys.push_back(k.first);
    }
    return keys;
  }
  DIR *d = opendir((dir_ + "/" + Escape(ns)).c_str());
  if (d == nullptr) return keys;
  while (dirent *e = readdir(d)) {
    const std::string name = e->d_name;
    if (name.empty() || name[0] == '.') continue;
    keys.push_back(Unescape(name));
  }
  closedir(d);
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace modemsim
