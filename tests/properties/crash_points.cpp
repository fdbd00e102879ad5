#include "crash_points.h"

#include <dlfcn.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

namespace tarvik_test {
namespace {

CrashPoint g_point = CrashPoint::kNone;

template <typename Fn>
Fn Next(const char *name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

bool IsStoreTemp(int fd) {
  char link[64];
  char target[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  const ssize_t n = readlink(link, target, sizeof target - 1);
  if (n <= 0) {
    return false;
  }
  const std::string path(target, static_cast<size_t>(n));
  const std::string suffix = "/properties.tmp";
  return path.size() > suffix.size() &&
         path.compare(path.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void Die() {
  raise(SIGKILL);
}

}  // namespace

void ArmCrashPoint(CrashPoint point) {
  g_point = point;
}

}  // namespace tarvik_test

using tarvik_test::CrashPoint;

extern "C" int fsync(int fd) {
  static const auto real = tarvik_test::Next<int (*)(int)>("fsync");
  if (tarvik_test::g_point == CrashPoint::kBeforeTempSync && tarvik_test::IsStoreTemp(fd)) {
    tarvik_test::Die();
  }
  return real(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept {
  static const auto real = tarvik_test::Next<int (*)(const char *, const char *)>("rename");
  if (tarvik_test::g_point == CrashPoint::kBeforeRename) {
    tarvik_test::Die();
  }
  const int ret = real(from, to);
  if (tarvik_test::g_point == CrashPoint::kAfterRename) {
    tarvik_test::Die();
  }
  return ret;
}
