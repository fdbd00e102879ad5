// Runs a piece of test code in a child process with a property store of its own, for the
// utilities that keep a property value for the life of the process (and for write-once ro.*
// properties that a table of rows needs to set to several values).
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tarvik_test {

using Props = std::vector<std::pair<const char *, const char *>>;

// Forks; the child points TARVIK_PROPERTY_DIR at a new directory, sets `props` and exits with
// `body`'s result (0..255). Returns that exit status, or -1 when the child did not exit
// normally (254: a property could not be set). The calling process must not have used the
// property store yet, since the store directory is chosen at the first use.
int RunWithProps(const Props &props, const std::function<int()> &body);

}  // namespace tarvik_test
