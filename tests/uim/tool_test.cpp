// The tool's uim command and the sim card words, each run a process of its own against one
// tarvik-modemd, whose card reader keeps its state between the runs.
#include <string>

#include "gtest/gtest.h"
#include "json_lines.h"
#include "test_env.h"

namespace {

using nlohmann::json;

TEST(UimTool, CommandsReachTheCardReaderAndAnswerOneJsonShape) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  const std::string isdr_eid = "80E2910006BF3E035C015A";
  struct Row {
    std::string args;
    int exit;
    json fields;
  };
  const Row rows[] = {
      {"uim status", 0, {{"card1", {{"state", 1}, {"name", "present"}}}, {"card2", nullptr}}},
      {"uim power 1 down", 0, {{"power", "down"}, {"ignore_hotswap", false}}},
      {"sim card 1 switch off", 0, {}},
      {"uim power 1 up", 0, {}},  // refused by the modem: only the transport is reported
      {"uim status", 0, {{"card1", {{"state", 0}, {"name", "absent"}}}}},
      {"uim power 1 up ignore-hotswap", 0, {{"ignore_hotswap", true}}},
      {"uim status", 0, {{"card1", {{"state", 1}, {"name", "present"}}}}},
      {"sim card 2 euicc 00112233445566778899AABBCCDDEEFF", 0, {}},
      {"uim eid 2", 0, {{"eid", "00112233445566778899aabbccddeeff"}}},
      {"uim eid 1", 0, {{"eid", ""}}},
      {"uim open 1", 1, {{"status", -1}}},
      {"uim open 2", 0, {{"channel", 1}}},
      {"uim apdu 2 1 " + isdr_eid,
       0,
       {{"response", "bf3e125a1000112233445566778899aabbccddeeff9000"}, {"sw", "9000"}}},
      {"uim apdu 2 1 80E2910003BF2D00", 0, {{"sw", "9000"}}},
      {"uim apdu 2 1 " + std::string(512, 'A'), 2, {}},
      {"uim close 2 1", 0, {}},
      {"uim apdu 2 1 " + isdr_eid, 1, {{"status", -1}}},
      {"uim sim-type 3 4", 0, {{"values", {3, 4}}}},
      {"uim purge 0", 0, {{"purge_state", 1}}},
      {"sim card purge failed 10", 0, {}},
      {"uim purge 1", 1, {{"status", -4}, {"purge_state", 2}}},
      {"sim card 9 sim", 2, {}},
      {"sim status", 0, {{"cards", nullptr}}},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.args);
    const tarvik_test::ToolRun run = tarvik_test::RunTool(daemon.modem() + " --json " + row.args);
    EXPECT_EQ(run.status, row.exit) << run.err;
    const auto lines = tarvik_test::JsonLines(run.out);
    ASSERT_EQ(lines.size(), 1u);
    const json &last = lines.back();
    EXPECT_TRUE(last.contains("status") && last["status_name"].is_string()) << last;
    for (const auto &f : row.fields.items()) {
      ASSERT_TRUE(last.contains(f.key())) << f.key() << " in " << last;
      if (!f.value().is_null()) {
        EXPECT_EQ(last[f.key()], f.value()) << f.key();
      }
    }
    if (row.args == "uim apdu 2 1 80E2910003BF2D00") {
      EXPECT_EQ(last["response"].get<std::string>().size(), 600u);  // 300 bytes
    }
  }
}

}  // namespace
