// Lines the library writes to the system log, captured by defining vsyslog in the test program
// (the library calls the platform's vsyslog; the program's definition takes its place).
#pragma once

#include <string>
#include <vector>

namespace tarvik_test {

struct SyslogLine {
  int priority;
  std::string text;
};

// Every line written since the start of the process or the last ClearSyslog().
std::vector<SyslogLine> SyslogLines();
void ClearSyslog();

// True when some captured line contains `needle` (at `priority`, unless it is -1).
bool SyslogContains(const std::string &needle, int priority = -1);

// Number of captured lines that contain `needle`.
size_t SyslogCount(const std::string &needle);

// All captured lines, one per row, for assertion messages.
std::string SyslogDump();

}  // namespace tarvik_test
