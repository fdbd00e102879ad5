#include "syslog_capture.h"

#include <stdarg.h>
#include <stdio.h>

#include <mutex>

namespace tarvik_test {
namespace {
std::mutex g_mutex;
std::vector<SyslogLine> &Lines() {
  static auto *lines = new std::vector<SyslogLine>();
  return *lines;
}
}  // namespace

std::vector<SyslogLine> SyslogLines() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return Lines();
}

void ClearSyslog() {
  std::lock_guard<std::mutex> lock(g_mutex);
  Lines().clear();
}

bool SyslogContains(const std::string &needle, int priority) {
  std::lock_guard<std::mutex> lock(g_mutex);
  for (const auto &line : Lines()) {
    if ((priority < 0 || line.priority == priority) &&
        line.text.find(needle) != std::string::npos) {
      return true;
    }
  }
  return false;
}

size_t SyslogCount(const std::string &needle) {
  std::lock_guard<std::mutex> lock(g_mutex);
  size_t n = 0;
  for (const auto &line : Lines()) {
    n += line.text.find(needle) != std::string::npos ? 1 : 0;
  }
  return n;
}

std::string SyslogDump() {
  std::lock_guard<std::mutex> lock(g_mutex);
  std::string out;
  for (const auto &line : Lines()) {
    out += "<" + std::to_string(line.priority) + "> " + line.text + "\n";
  }
  return out;
}

}  // namespace tarvik_test

// Takes the place of the C library's vsyslog for the whole process.
extern "C" __attribute__((visibility("default"))) void vsyslog(int priority, const char *fmt,
                                                               va_list ap) {
  char buf[4096];
  vsnprintf(buf, sizeof(buf), fmt, ap);
  std::lock_guard<std::mutex> lock(tarvik_test::g_mutex);
  tarvik_test::Lines().push_back({priority, buf});
}
