// Text format of the property store and of the control record, and the name rules. Internal to
// the property stand-in.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvik_props {

// Android's legal names: letters, digits, '_', '-', '.', '@', ':'; not empty, no leading,
// trailing or doubled '.', at most PROPERTY_NAME_MAX_HOST characters.
bool IsLegalName(std::string_view name);

// One line per property: name TAB escaped-value LF. Values escape '\\', LF and TAB so that any
// byte but NUL round-trips.
std::string EscapeValue(std::string_view value);
// False when `text` is not a well-formed escaped value.
bool UnescapeValue(std::string_view text, std::string *out);

using Entries = std::vector<std::pair<std::string, std::string>>;

// Sorted by name, one entry per name.
std::string SerializeStore(const Entries &entries);
// Lines that are not complete, well-formed records (a bad name, an over-long value, a missing
// newline) are skipped: the store is our own file, but a hand edit must not break readers.
// The result is sorted by name; a repeated name keeps its last value.
Entries ParseStore(std::string_view text);

struct CtlRequest {
  int pid;
  std::string name;
  std::string value;
};
std::string SerializeCtl(const CtlRequest &request);
std::vector<CtlRequest> ParseCtl(std::string_view text);

}  // namespace tarvik_props
