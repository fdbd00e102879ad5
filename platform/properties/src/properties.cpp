// The property store: one file holding every property, replaced as a whole under an exclusive
// flock, plus a change counter shared through a memory mapping so that a reader whose cached copy
// is current answers without a system call. Layout of the directory: property_host.h.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "cutils/properties.h"
#include "property_host.h"
#include "store_format.h"

namespace tarvik_props {
namespace {

constexpr const char *kStoreFile = "properties";
constexpr const char *kTempFile = "properties.tmp";
constexpr const char *kLockFile = "lock";
constexpr const char *kControlFile = "control";
constexpr std::string_view kControlPrefix = "ctl.";
constexpr std::string_view kReadOnlyPrefix = "ro.";

int RetryOpen(const std::string &path, int flags, mode_t mode = 0) {
  int fd;
  do {
    fd = open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Reads a whole file; a missing file reads as empty.
bool ReadFile(const std::string &path, std::string *out) {
  out->clear();
  const int fd = RetryOpen(path, O_RDONLY);
  if (fd < 0) {
    return errno == ENOENT;
  }
  char buf[4096];
  bool ok = true;
  for (;;) {
    const ssize_t n = read(fd, buf, sizeof buf);
    if (n > 0) {
      out->append(buf, static_cast<size_t>(n));
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      ok = false;
      break;
    }
  }
  close(fd);
  return ok;
}

bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool FsyncPath(const std::string &path, int flags) {
  const int fd = RetryOpen(path, flags);
  if (fd < 0) {
    return false;
  }
  const bool ok = fsync(fd) == 0;
  return close(fd) == 0 && ok;
}

// Replaces dir/name with `data` so that a crash at any point leaves the old or the new content:
// write a temporary, flush it, rename it over the target, flush the directory entry.
bool ReplaceFile(const std::string &dir, const char *name, std::string_view data) {
  const std::string temp = dir + "/" + kTempFile;
  const int fd = RetryOpen(temp, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) {
    return false;
  }
  bool ok = WriteAll(fd, data) && fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  ok = ok && rename(temp.c_str(), (dir + "/" + name).c_str()) == 0;
  if (!ok) {
    unlink(temp.c_str());
    return false;
  }
  return FsyncPath(dir, O_RDONLY | O_DIRECTORY);
}

// mkdir -p; every component that exists must be a directory.
bool MakeDirs(const std::string &path, mode_t mode) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos != path.size() && path[pos] != '/') {
      continue;
    }
    const std::string part = path.substr(0, pos);
    if (mkdir(part.c_str(), mode) != 0 && errno != EEXIST) {
      return false;
    }
  }
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// A per-user default lives in a shared place (/tmp): accept it only as a real directory of ours.
bool MakePrivateDir(const std::string &path) {
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    return false;
  }
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == getuid();
}

std::string ResolveDir() {
  const char *env = getenv("TARVIK_PROPERTY_DIR");
  if (env != nullptr && *env != '\0') {
    const std::string dir = env;
    return MakeDirs(dir, 0755) ? dir : "";
  }
  const char *runtime = getenv("XDG_RUNTIME_DIR");
  const std::string dir = runtime != nullptr && *runtime == '/'
                              ? std::string(runtime) + "/tarvik-properties"
                              : "/tmp/tarvik-properties-" + std::to_string(getuid());
  return MakePrivateDir(dir) ? dir : "";
}

// Holds the exclusive writer lock of a store directory for its lifetime. The lock file is opened
// anew for each hold: flock belongs to the open file description, which a forked child would
// otherwise share with its parent.
class WriterLock {
 public:
  explicit WriterLock(const std::string &dir) : fd_(RetryOpen(dir + "/" + kLockFile, O_RDWR)) {
    while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) {
        close(fd_);
        fd_ = -1;
      }
    }
  }
  ~WriterLock() {
    if (fd_ >= 0) {
      close(fd_);  // releases the lock
    }
  }
  WriterLock(const WriterLock &) = delete;
  WriterLock &operator=(const WriterLock &) = delete;
  bool held() const { return fd_ >= 0; }

 private:
  int fd_;
};

// The change counter lives in a mapping every process of the store shares: its atomics must be
// lock-free (an emulated one would take a lock of this process only), on 32-bit targets too.
static_assert(__atomic_always_lock_free(sizeof(uint64_t), nullptr),
              "the shared change counter needs lock-free 64-bit atomics");

uint64_t LoadCounter(const uint64_t *counter) {
  return __atomic_load_n(counter, __ATOMIC_ACQUIRE);
}
void StoreCounter(uint64_t *counter, uint64_t value) {
  __atomic_store_n(counter, value, __ATOMIC_RELEASE);
}

class Store;
Store &TheStore();

class Store {
 public:
  // A fork while another thread holds the cache lock would leave the child's copy locked for
  // good: hold it across fork so that both sides start with it free.
  Store() {
    pthread_atfork([] { TheStore().mu_.lock(); }, [] { TheStore().mu_.unlock(); },
                   [] { TheStore().mu_.unlock(); });
  }

  int Get(const char *key, char *value, const char *default_value) {
    if (value == nullptr) {
      return -1;
    }
    const char *found = nullptr;
    std::lock_guard<std::mutex> hold(mu_);
    if (key != nullptr && Refresh()) {
      const auto it = index_.find(std::string_view(key));
      if (it != index_.end() && !entries_[it->second].second.empty()) {
        found = entries_[it->second].second.c_str();
      }
    }
    const char *src = found != nullptr ? found : default_value != nullptr ? default_value : "";
    const size_t len = strnlen(src, PROPERTY_VALUE_MAX);
    memcpy(value, src, len);
    value[len] = '\0';
    return static_cast<int>(len);
  }

  int Set(const char *key, const char *value) {
    const std::string_view name = key != nullptr ? std::string_view(key) : std::string_view();
    const std::string_view text = value != nullptr ? std::string_view(value) : std::string_view();
    if (!IsLegalName(name) || text.size() > PROPERTY_VALUE_MAX) {
      return -1;
    }
    std::string dir;
    uint64_t *counter;
    {
      std::lock_guard<std::mutex> hold(mu_);
      if (!Open()) {
        return -1;
      }
      dir = dir_;
      counter = counter_;
    }
    WriterLock lock(dir);
    if (!lock.held()) {
      return -1;
    }
    if (name.substr(0, kControlPrefix.size()) == kControlPrefix) {
      return RecordControl(dir, name, text) ? 0 : -1;
    }
    std::string old_text;
    if (!ReadFile(dir + "/" + kStoreFile, &old_text)) {
      return -1;  // never replace a store we could not read
    }
    Entries entries = ParseStore(old_text);
    auto it = std::lower_bound(entries.begin(), entries.end(), name,
                               [](const auto &e, std::string_view n) { return e.first < n; });
    const bool exists = it != entries.end() && it->first == name;
    if (exists && name.substr(0, kReadOnlyPrefix.size()) == kReadOnlyPrefix) {
      return -1;
    }
    if (exists && it->second == text) {
      return 0;
    }
    if (exists) {
      it->second.assign(text);
    } else {
      entries.emplace(it, std::string(name), std::string(text));
    }
    // Odd while the file may be changing: readers do not cache what they read then. An odd value
    // found here was left by a writer that died; step past it.
    uint64_t gen = LoadCounter(counter);
    gen += (gen & 1u) + 1u;
    StoreCounter(counter, gen);
    const bool ok = ReplaceFile(dir, kStoreFile, SerializeStore(entries));
    StoreCounter(counter, gen + 1u);
    return ok ? 0 : -1;
  }

  Entries List() {
    std::lock_guard<std::mutex> hold(mu_);
    return Refresh() ? entries_ : Entries();
  }

  std::string Dir() {
    std::lock_guard<std::mutex> hold(mu_);
    Open();
    return dir_;
  }

 private:
  // Decides the directory (once) and maps the change counter (retried until it works).
  bool Open() {
    if (!resolved_) {
      dir_ = ResolveDir();
      resolved_ = true;
    }
    if (dir_.empty()) {
      return false;
    }
    if (counter_ != nullptr) {
      return true;
    }
    const std::string path = dir_ + "/" + kLockFile;
    const int fd = RetryOpen(path, O_RDWR | O_CREAT, 0644);
    if (fd < 0) {
      return false;
    }
    struct stat st;
    bool ok = fstat(fd, &st) == 0;
    if (ok && st.st_size < static_cast<off_t>(sizeof(uint64_t))) {
      // Grow under the lock so that two first users do not race over the counter's bytes.
      ok = flock(fd, LOCK_EX) == 0 && fstat(fd, &st) == 0 &&
           (st.st_size >= static_cast<off_t>(sizeof(uint64_t)) ||
            ftruncate(fd, sizeof(uint64_t)) == 0);
      flock(fd, LOCK_UN);
    }
    void *map = ok ? mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                   : MAP_FAILED;
    close(fd);
    if (map == MAP_FAILED) {
      return false;
    }
    counter_ = static_cast<uint64_t *>(map);
    return true;
  }

  // Brings the cached copy up to date; true when entries_/index_ reflect the store.
  bool Refresh() {
    if (cache_valid_ && LoadCounter(counter_) == cached_gen_) {
      return true;  // the common case: not a single system call
    }
    // Without the counter (a store this process may not write) read every time, never cache.
    const bool counted = Open();
    if (dir_.empty()) {
      return false;
    }
    const uint64_t before = counted ? LoadCounter(counter_) : 1u;
    std::string text;
    if (!ReadFile(dir_ + "/" + kStoreFile, &text)) {
      cache_valid_ = false;
      return false;
    }
    entries_ = ParseStore(text);
    index_.clear();
    index_.reserve(entries_.size());
    for (size_t i = 0; i < entries_.size(); ++i) {
      index_.emplace(entries_[i].first, i);
    }
    // Cache only what was read while no write was under way, start to end.
    cache_valid_ = (before & 1u) == 0 && counted && LoadCounter(counter_) == before;
    cached_gen_ = before;
    return true;
  }

  bool RecordControl(const std::string &dir, std::string_view name, std::string_view value) {
    const std::string path = dir + "/" + kControlFile;
    const int fd = RetryOpen(path, O_RDWR | O_CREAT | O_APPEND, 0644);
    if (fd < 0) {
      return false;
    }
    // A writer that died mid-line would otherwise glue its piece onto this record.
    std::string line;
    struct stat st;
    char last = '\n';
    bool ok = fstat(fd, &st) == 0 && (st.st_size == 0 || pread(fd, &last, 1, st.st_size - 1) == 1);
    if (last != '\n') {
      line = "\n";
    }
    line += SerializeCtl({static_cast<int>(getpid()), std::string(name), std::string(value)});
    ok = ok && WriteAll(fd, line) && fsync(fd) == 0;
    return close(fd) == 0 && ok;
  }

  std::mutex mu_;
  bool resolved_ = false;
  std::string dir_;
  uint64_t *counter_ = nullptr;  // shared mapping of the lock file's first 8 bytes
  bool cache_valid_ = false;
  uint64_t cached_gen_ = 0;
  Entries entries_;
  std::unordered_map<std::string_view, size_t> index_;  // views into entries_' names
};

Store &TheStore() {
  static Store *store = new Store();  // never destroyed: calls may come during exit
  return *store;
}

}  // namespace
}  // namespace tarvik_props

extern "C" {

int property_get(const char *key, char *value, const char *default_value) {
  return tarvik_props::TheStore().Get(key, value, default_value);
}

int property_set(const char *key, const char *value) {
  return tarvik_props::TheStore().Set(key, value);
}

int property_list(void (*fn)(const char *key, const char *value, void *cookie), void *cookie) {
  if (fn == nullptr) {
    return -1;
  }
  for (const auto &[name, value] : tarvik_props::TheStore().List()) {
    fn(name.c_str(), value.c_str(), cookie);
  }
  return 0;
}

const char *property_store_dir(void) {
  static const std::string *dir = new std::string(tarvik_props::TheStore().Dir());
  return dir->c_str();
}

int property_ctl_requests(void (*fn)(const char *name, const char *value, int pid, void *cookie),
                          void *cookie) {
  if (fn == nullptr) {
    return -1;
  }
  std::string text;
  const std::string dir = property_store_dir();
  if (dir.empty() || !tarvik_props::ReadFile(dir + "/control", &text)) {
    return 0;
  }
  const auto requests = tarvik_props::ParseCtl(text);
  for (const auto &r : requests) {
    fn(r.name.c_str(), r.value.c_str(), r.pid, cookie);
  }
  return static_cast<int>(requests.size());
}

}  // extern "C"
