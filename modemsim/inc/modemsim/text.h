// The words of the control language and of the service tool: numbers, hex bytes, JSON strings.
// One copy for both (the tool links the simulated modem for its embedded modem).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "typed_fields.h"

namespace modemsim {

// Decimal or 0x-hex, the whole word, within [0, max]; no sign, no leading space.
bool ParseNumber(const std::string &word, unsigned long max, unsigned long *value);

// Hex digits in pairs, or "-" for nothing. On failure *why (when given) says what is wrong.
bool ParseHex(const std::string &word, std::vector<uint8_t> *out, std::string *why = nullptr);

// Hex bytes and JSON strings as the typed fields write them.
using typed_fields::HexOf;
using typed_fields::JsonString;

}  // namespace modemsim
