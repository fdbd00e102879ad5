// Control commands as tarvik-modemd takes them from its socket: words separated by NUL bytes,
// run against a standard simulated modem. Whatever the words, the command answers with a status
// of 0, 1 or 2 and, with --json first, one JSON object line.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>
#include <string>
#include <vector>

#include "modemsim/control.h"
#include "modemsim/modem.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static std::unique_ptr<modemsim::Modem> modem = modemsim::CreateStandardModem("");
  std::vector<std::string> words(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == '\0') {
      words.emplace_back();
    } else {
      words.back() += static_cast<char>(data[i]);
    }
  }
  std::string out;
  const int status = modemsim::RunControlCommand(*modem, words, &out);
  if (status < 0 || status > 2) abort();
  if (!words.empty() && words[0] == "--json" && (status != 2 || !out.empty()) &&
      (out.empty() || out.front() != '{' || out.back() != '\n')) {
    abort();
  }
  return 0;
}
