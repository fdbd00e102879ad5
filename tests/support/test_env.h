// Per-process test environment. Each test case runs in a process of its own (ctest with
// gtest_discover_tests); before main() this gives the process a fresh, empty property store
// directory (TARVIK_PROPERTY_DIR) and a scratch directory, both removed at exit.
#pragma once

#include <string>

namespace tarvik_test {

// The property store directory of this process.
const std::string &PropertyDir();

// A scratch directory of this process, for files a test creates.
const std::string &ScratchDir();

// Directory of the built programs (tarvik-qmi, tarvik-modemd), from TARVIK_BIN_DIR.
std::string BinDir();

struct ToolRun {
  int status;       // exit status, -1 when the tool could not run or did not exit
  std::string out;  // standard output
};

// Runs `tarvik-qmi ARGS` through the shell, as a service engineer would, with its standard
// error dropped. The process inherits this test's property store.
ToolRun RunTool(const std::string &args);

}  // namespace tarvik_test
