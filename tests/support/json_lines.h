// The tool's --json output read with a real JSON parser: one object per line.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "nlohmann/json.hpp"
#include "test_env.h"

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

// One row of a table of tool runs: the arguments after the table's prefix, the exit status
// wanted, and fields of the one JSON line the run prints (a null value: present, any value).
struct ToolRow {
  std::string args;
  int exit;
  nlohmann::json fields;
};

// Runs `tarvik-qmi PREFIX ROW.args` and checks the exit status, that exactly one JSON object with
// "status" and a "status_name" string was printed, and the row's fields. Returns that object
// (null when there was none).
inline nlohmann::json ExpectToolRow(const std::string &prefix, const ToolRow &row) {
  SCOPED_TRACE(row.args);
  const ToolRun run = RunTool(prefix + row.args);
  EXPECT_EQ(run.status, row.exit) << run.err;
  const std::vector<nlohmann::json> lines = JsonLines(run.out);
  EXPECT_EQ(lines.size(), 1u) << run.out;
  if (lines.size() != 1) return nullptr;
  const nlohmann::json &out = lines[0];
  EXPECT_TRUE(out.contains("status") && out["status_name"].is_string()) << out;
  for (const auto &f : row.fields.items()) {
    EXPECT_TRUE(out.contains(f.key())) << f.key() << " in " << out;
    if (!f.value().is_null() && out.contains(f.key())) {
      EXPECT_EQ(out[f.key()], f.value()) << f.key();
    }
  }
  return out;
}

}  // namespace tarvik_test
