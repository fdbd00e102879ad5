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

}  // namespace tarvik_test
