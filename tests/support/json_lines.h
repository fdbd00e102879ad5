// The tool's --json output read with a real JSON parser: one object per line.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "nlohmann/json.hpp"

namespace tarvik_test {

// Every line of `out` parsed; a line that is not one JSON object throws (the test fails).
inline std::vector<nlohmann::json> JsonLines(const std::string &out) {
  std::vector<nlohmann::json> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(nlohmann::json::parse(line));
    if (!lines.back().is_object()) throw std::runtime_error("not an object: " + line);
  }
  return lines;
}

}  // namespace tarvik_test
