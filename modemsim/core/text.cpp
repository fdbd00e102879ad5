// The control language's and the tool's words (see modemsim/text.h).
#include "modemsim/text.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>

namespace modemsim {

bool ParseNumber(const std::string &word, unsigned long max, unsigned long *value) {
  if (word.empty() || word[0] == '-' || isspace(static_cast<unsigned char>(word[0]))) return false;
  errno = 0;
  char *end = nullptr;
  const unsigned long v = strtoul(word.c_str(), &end, 0);
  if (errno != 0 || end == word.c_str() || *end != '\0' || v > max) return false;
  *value = v;
  return true;
}

bool ParseHex(const std::string &word, std::vector<uint8_t> *out, std::string *why) {
  out->clear();
  if (word == "-") return true;
  for (size_t i = 0; i < word.size(); ++i) {
    if (!isxdigit(static_cast<unsigned char>(word[i]))) {
      if (why != nullptr) {
        *why = "'" + word + "' is not hex: '" + word[i] + "' at " + std::to_string(i + 1);
      }
      return false;
    }
  }
  if (word.size() % 2 != 0) {
    if (why != nullptr) {
      *why = "hex '" + word + "' has an odd number of digits (" + std::to_string(word.size()) + ")";
    }
    return false;
  }
  for (size_t i = 0; i < word.size(); i += 2) {
    out->push_back(static_cast<uint8_t>(strtoul(word.substr(i, 2).c_str(), nullptr, 16)));
  }
  return true;
}

}  // namespace modemsim
