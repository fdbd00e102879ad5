// The dfs commands of the tool against tarvik-modemd, one run per command: the library's filter
// count ends with each run, the modem's filter tables stay with the daemon.
#include <string>

#include "gtest/gtest.h"
#include "json_lines.h"
#include "test_env.h"

namespace {

using nlohmann::json;

TEST(DfsTool, RunsShareTheDaemonsTablesAndAnswerOneJsonShape) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  const std::string tool = daemon.modem() + " --json ";
  const json paths = {{{"mux_id", 1}, {"ip_pref", 4}, {"mode", 1}, {"filters", 2}},
                      {{"mux_id", 1}, {"ip_pref", 6}, {"mode", 1}, {"filters", 0}}};
  struct Row {
    std::string args;
    int exit;
    json fields;
  };
  const Row rows[] = {
      {"dfs enter rmnet_data0 IPV4 TCP 10.0.0.1 10.0.0.2 1000 443 ipv4 udp 10.0.0.1 10.0.0.3 53 53",
       0,
       {{"added", 2}, {"result", 0}}},
      {"sim status", 0, {{"dfs", {{"clients", json::array()}, {"paths", paths}}}}},
      {"dfs mode rmnet_data0 4", 0, {{"mode", 1}, {"mux_id", 1}}},
      {"dfs enter rmnet_data0 IPV4 TCP 10.0.0.1 10.0.0.2 0 443",
       1,
       {{"status", 500}, {"status_name", "invalid parameters"}, {"added", 0}}},
      {"dfs msg 00000000", 1, {{"status", -1}, {"result", 500}, {"length", 4}}},
      {"dfs msg 00000000000000000000000000", 0, {{"status", 0}, {"result", 0}}},
      {"dfs exit rmnet_data0", 0, {{"result", 0}}},
      {"dfs mode rmnet_data0 4", 0, {{"mode", 0}}},
      {"dfs mode rmnet_data0 5", 2, {{"status", nullptr}}},
      {"dfs enter rmnet_data0 IPV4 TCP", 2, {{"error", nullptr}}},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.args);
    const tarvik_test::ToolRun run = tarvik_test::RunTool(tool + row.args);
    EXPECT_EQ(run.status, row.exit) << run.err;
    const auto lines = tarvik_test::JsonLines(run.out);
    ASSERT_EQ(lines.size(), 1u) << run.out;
    for (const auto &f : row.fields.items()) {
      ASSERT_TRUE(lines[0].contains(f.key())) << f.key() << " in " << lines[0];
      if (!f.value().is_null()) {
        EXPECT_EQ(lines[0][f.key()], f.value()) << f.key();
      }
    }
  }
  // After the exit the modem holds nothing on the path and has the mode off.
  const auto status = tarvik_test::JsonLines(tarvik_test::RunTool(tool + "sim status").out);
  ASSERT_EQ(status.size(), 1u);
  EXPECT_EQ(status[0]["dfs"]["paths"][0]["filters"], 0);
  EXPECT_EQ(status[0]["dfs"]["paths"][0]["mode"], 0);
}

}  // namespace
