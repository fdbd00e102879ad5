// The tool's feature commands, each run a process of its own: what one run writes, the next reads
// back from the state directory; every --json answer is one object of one shape.
#include <fstream>
#include <string>

#include "gtest/gtest.h"
#include "json_lines.h"
#include "test_env.h"

namespace {

using nlohmann::json;
using tarvik_test::RunTool;

// Runs in order against one modem state: every --json output parses as one object with the
// command, its status and status name, and the fields the row names (a null value: present).
TEST(FeatureTool, EveryCommandAnswersOneJsonShapeAndStateOutlivesTheRun) {
  const std::string dir = tarvik_test::ScratchDir();
  const std::string state = "--state " + dir + "/modem --json ";
  std::string content(5000, '\0');
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + 3);
  std::ofstream(dir + "/in.bin", std::ios::binary) << content;
  const struct {
    std::string args;
    int exit;
    json fields;
  } rows[] = {
      {"nv write 1 550 0a0b0c", 0, {{"sub", 1}, {"item", 550}, {"length", 3}}},
      {"nv read 1 550", 0, {{"status", 0}, {"length", 3}, {"data", "0a0b0c"}}},
      {"nv read 2 551", 1, {{"status", -104}, {"status_name", "subscription invalid"}}},
      {"nv read 0 551", 1, {{"status", 5}, {"status_name", "modem: NV item not active"}}},
      {"nv delete 1 550", 0, {{"status", 0}}},
      {"efs write 0 /demo/blob " + dir + "/in.bin", 0, {{"length", 5000}}},
      {"efs read 0 /demo/blob " + dir + "/back.bin", 0, {{"length", 5000}}},
      {"efs exists 1 /demo/blob", 1, {{"status", 0}, {"exists", false}}},
      {"efs exists 0 /demo/blob", 0, {{"exists", true}}},
      {"efs cp 0 /demo/blob 1 /demo/copy", 0, {{"path2", "/demo/copy"}}},
      {"efs cmp 0 /demo/blob 1 /demo/copy", 0, {{"same", true}}},
      {"efs write 1 /demo/copy " + dir + "/back.bin", 0, {}},
      {"nv write 1 550 01", 0, {}},
      {"efs stat 0 /demo/blob", 0, {{"size", 5000}, {"mode", "100644"}}},
      {"efs rm 0 /demo/blob", 0, {{"path", "/demo/blob"}}},
      {"efs cmp 0 /demo/blob 1 /demo/copy",
       3,
       {{"status_name", "modem: no such file or directory"}}},
      {"mode set 7", 0, {{"mode", 7}}},
      {"mode get", 0, {{"mode", 7}}},
      {"cdc 5 0a0b", 0, {{"length", 2}, {"data", "0a0b"}}},
      {"venue-mode 01", 0, {{"data", "01"}}},
      {"base-model cfg 1 2 3", 0, {{"values", {1, 2, 3}}}},
      {"base-model detection on", 0, {{"on", true}}},
      {"base-model event 0x12 off", 0, {{"event", 18}}},
      {"base-model reason", 0, {{"values", nullptr}}},
      {"base-model scene", 0, {{"values", nullptr}}},
      {"base-model dds", 0, {{"values", nullptr}}},
      {"send 255 0102", 0, {{"data", "0102"}, {"cut", false}}},
      {"sim status", 0, {{"services", nullptr}}},
      {"sim fault 0xFFE4 2 result 0x30 1", 0, {{"service", 65508}}},
      {"sim restart 0xFFE4", 0, {{"down_ms", 0}}},
      {"sim absent 0xFFE4", 0, {{"present", false}}},
      {"sim present 0xFFE4", 0, {{"present", true}}},
      {"sim clear 0xFFE4", 0, {}},
      {"sim indicate 0xFFE4 3 -", 0, {{"clients", 0}}},
      {"sim event 3 0a", 0, {{"event", 3}, {"clients", 0}}},
      {"sim absent 0x1234", 1, {{"status_name", "refused"}, {"error", "no service 0x1234"}}},
      {"watch --for 0 2", 0, {{"events", {2}}}},
      {"log debug hello", 0, {{"message", "hello"}}},
      {"prop set persist.tool.x 1", 0, {{"value", "1"}}},
      {"prop get persist.tool.x", 0, {{"value", "1"}}},
      {"prop list", 0, {{"properties", {{"persist.tool.x", "1"}}}}},
      {"prop dir", 0, {{"dir", tarvik_test::PropertyDir()}}},
      {"prop ctl", 0, {{"requests", json::array()}}},
      {"device", 0, {{"single_sim", nullptr}}},
      {"build", 0, {{"build_type_name", nullptr}}},
      {"sim set chipset-id 0x301", 0, {{"set", "chipset-id"}}},
      {"sim set string 40 hello there", 0, {}},
      {"sim profile", 0, {{"strings", {{"40", "hello there"}, {"41", "TV5G-0042-1187"}}}}},
      {"capability ids", 0, {{"chipset_id", 0x301}, {"dsda", true}}},
      {"capability string 40 11", 1, {{"status", 0x0FFFF00B}}},
      {"capability string 40 12", 0, {{"text", "hello there"}, {"len", 11}}},
      {"capability raw 42", 0, {{"len", 9}}},
      {"capability card-mode", 0, {{"card_mode", 3}}},
      {"mcfg path-set 12 /tool/mbn.txt", 0, {}},
      {"mcfg path-get 11", 0, {{"path", "/tool/mbn.txt"}}},
      {"mcfg path-get 10", 1, {{"status", 0x0FFFF00A}}},
      {"mcfg timer-set 12", 0, {}},
      {"mcfg timer-get", 0, {{"timeout", 12}}},
      {"mcfg cust-max", 0, {{"cust_max", 32}}},
      {"mcfg reg-events", 0, {}},
      {"ssr-level set 2", 0, {{"changed", true}, {"level", "ALL_DISABLE"}}},
      {"ssr-level get", 0, {{"type", 0}}},
      {"ssr-level name 8", 0, {{"name", "ALL_DIS"}, {"len", 7}}},
      {"ssr nv-sync", 0, {}},
      {"ssr restart 0x80000001", 0, {{"flag", 0x80000001u}}},
      {"ssr counts 0x80000001", 0, {{"counts", nullptr}}},
      {"device-name match all_product", 0, {{"match", true}}},
      {"device-name read", 0, {{"device_name", ""}}},
      {"notify screen 2", 0, {{"value", 2}}},
      {"notify sleep 1", 0, {{"value", 1}}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.args);
    const tarvik_test::ToolRun run = RunTool(state + row.args);
    EXPECT_EQ(run.status, row.exit) << run.err;
    const auto lines = tarvik_test::JsonLines(run.out);
    ASSERT_FALSE(lines.empty());
    const json &last = lines.back();
    // The command is its first word and a verb after it ("nv read", "send").
    const size_t verb = row.args.find(' ') + 1, end = row.args.find(' ', verb);
    const std::string second = verb > 0 ? row.args.substr(verb, end - verb) : "";
    const bool has_verb =
        !second.empty() && second[0] != '-' &&
        second.find_first_not_of("abcdefghijklmnopqrstuvwxyz-") == std::string::npos;
    EXPECT_EQ(last["command"], row.args.substr(0, has_verb ? end : verb - 1));
    EXPECT_TRUE(last.contains("status")) << last;
    EXPECT_TRUE(last["status_name"].is_string()) << last;
    for (const auto &f : row.fields.items()) {
      ASSERT_TRUE(last.contains(f.key())) << f.key() << " in " << last;
      if (!f.value().is_null()) {
        EXPECT_EQ(last[f.key()], f.value()) << f.key();
      }
    }
  }
  std::ifstream back(dir + "/back.bin", std::ios::binary);
  EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(back), {}) == content);
  // The restart order counted under its whole value only.
  const json counts =
      tarvik_test::JsonLines(RunTool(state + "ssr counts 0x80000001").out).back()["counts"];
  EXPECT_EQ(counts["0x80000001"], 1);
  EXPECT_EQ(counts["0x00000001"], 0);
}

// Exit 1 is an answer (absent, different); exit 3 is no answer: a transport failure must not
// pass for "absent" or "different". Against the daemon, so that faults outlive a run.
TEST(FeatureTool, ExistsAndCompareTellAnAnswerFromAFailure) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  const std::string modem = daemon.modem() + " ";
  const std::string local = tarvik_test::ScratchDir() + "/one.bin";
  std::ofstream(local) << "one";
  ASSERT_EQ(RunTool(modem + "efs write 0 /a " + local).status, 0);
  std::ofstream(local) << "two";
  ASSERT_EQ(RunTool(modem + "efs write 0 /b " + local).status, 0);
  const struct {
    const char *args;
    int exit;
    const char *err;  // in standard error
  } rows[] = {
      {"efs exists 0 /a", 0, ""},
      {"efs exists 0 /none", 1, ""},
      {"efs cmp 0 /a 0 /a", 0, ""},
      {"efs cmp 0 /a 0 /b", 1, ""},
      {"efs cmp 0 /a 0 /none", 3, "efs cmp failed: modem: no such file or directory (-2)"},
      {"sim fault 0xFFE4 2 transport", 0, ""},
      {"efs exists 0 /a", 3, "efs exists failed: channel: refused by the modem"},
      {"efs exists 0 /none", 3, "(-103)"},
      {"efs cmp 0 /a 0 /b", 3, "(-103)"},
      {"sim clear 0xFFE4", 0, ""},
      {"efs exists 0 /a", 0, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.args);
    const tarvik_test::ToolRun run = RunTool(modem + row.args);
    EXPECT_EQ(run.status, row.exit) << run.out << run.err;
    EXPECT_NE(run.err.find(row.err), std::string::npos) << run.err;
  }
}

// The library's own refusals are named; what the tool can see itself is refused before anything
// is sent (exit 2), naming what is wrong rather than printing the usage.
TEST(FeatureTool, ErrorsAreNamed) {
  const struct {
    std::string args;
    int exit;
    const char *err;
  } rows[] = {
      {"nv read 2 551", 1, "nv read failed: subscription invalid (-104)\n"},
      {"nv read 0 7233", 2, "nv read: item '7233' is not a number from 0 to 7232\n"},
      {"nv read 3 5", 2, "nv read: subscription '3' is not 0, 1 or 2\n"},
      {"nv write 0 5 abc", 2, "nv write: hex 'abc' has an odd number of digits (3)\n"},
      {"nv write 0 5 0g", 2, "nv write: '0g' is not hex: 'g' at 2\n"},
      {"efs rm 0 /" + std::string(99, 'p'), 2, "efs rm: path is 100 characters, 1 to 99 fit\n"},
      {"efs write 0 /x /nonexistent/file", 1, "efs write: cannot read /nonexistent/file\n"},
      {"mode set 256", 2, "mode set: mode '256' is not a number from 0 to 255\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.args);
    const tarvik_test::ToolRun run = RunTool(row.args);
    EXPECT_EQ(run.status, row.exit);
    EXPECT_EQ(run.err, std::string("tarvik-qmi: ") + row.err);
    EXPECT_EQ(run.out, "");
  }
}

// Off a terminal the progress of a transfer is whole lines, never carriage returns.
TEST(FeatureTool, ProgressIsPlainLinesOffATerminal) {
  const std::string local = tarvik_test::ScratchDir() + "/big.bin";
  std::ofstream(local) << std::string(20000, 'x');
  const tarvik_test::ToolRun run = RunTool("efs write 0 /big " + local);
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.err.find("efs write: 49/49 chunks (100%)"), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find('\r'), std::string::npos);
}

}  // namespace
