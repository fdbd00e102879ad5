// Helpers of the utility tests.
#pragma once

#include <functional>
#include <string>

namespace tarvik_test {

// Sets the properties `props` ("name=value name=value ..."; no spaces in values) in order;
// returns the first one the store refused, or "".
std::string SetProps(const std::string &props);

// Runs `body` in a forked child whose property store is a new directory holding `props`
// (as SetProps takes them), for the utilities that keep a value for the life of the process
// and for write-once ro.* properties. Returns what `body` returned, or a text starting with "<"
// when the child failed. The caller must not have used its own property store yet.
std::string RunWithProps(const std::string &props, const std::function<std::string()> &body);

// What `func` logged (at `priority`, unless it is -1) since the last ClearSyslog(): the text
// after "func: " of each line, joined by "; ".
std::string LoggedBy(const std::string &func, int priority = -1);

// `code` and the error lines `func` logged ("-1 src is null"); then forgets the captured lines,
// so that the next call starts from none.
std::string CodeAndErrors(long long code, const std::string &func);

}  // namespace tarvik_test
