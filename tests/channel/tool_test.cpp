// The tool's send, watch and help, run as separate processes against the embedded modem or
// against tarvik-modemd, whose request counts show what reached the modem.
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "gtest/gtest.h"
#include "json_lines.h"
#include "test_env.h"
#include "wait_until.h"

namespace {

using nlohmann::json;
using tarvik_test::RunTool;

// The requests the daemon's extend service has received, once they are `at_least` (or after
// 10 s of waiting for that).
long ExtendReceived(const tarvik_test::ModemDaemon &daemon, long at_least = 0) {
  long n = -1;
  tarvik_test::WaitUntil(
      [&] {
        const auto lines =
            tarvik_test::JsonLines(RunTool(daemon.modem() + " --json sim status").out);
        n = -1;
        for (const json &s : lines.at(0).at("services")) {
          if (s.at("service") == 0xFFE4) n = s.at("received").get<long>();
        }
        return n >= at_least;
      },
      std::chrono::seconds(10));
  return n;
}

// Against the daemon, whose request count shows what reached the modem. Help in every form
// prints and exits 0 without sending anything or starting a service; send shows the cut and the
// modem's verdict (an error never passes for an empty answer) and sends only what it accepts.
TEST(ChannelTool, HelpSendsNothingAndSendShowsTheCutAndTheModemsVerdict) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  const std::string modem = daemon.modem() + " ";
  for (const char *args :
       {"--help", "-h", "help", "help send", "send --help", "start-service --help", "log --help",
        "nv read -h", "--version", "watch 3 --help"}) {
    SCOPED_TRACE(args);
    const tarvik_test::ToolRun run = RunTool(modem + args);
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out, "");
    EXPECT_EQ(run.out.find("RIL["), std::string::npos) << "nothing was logged";
  }
  EXPECT_EQ(ExtendReceived(daemon), 0);
  EXPECT_EQ(RunTool("--json prop ctl").out.find("ctl.start"), std::string::npos);

  const json absent = "(absent)";
  struct Row {
    const char *args;
    int exit;
    json fields;
    const char *before = nullptr;  // a command run first
  };
  const Row rows[] = {
      {"send 255 68656c6c6f", 0, {{"length", 5}, {"data", "68656c6c6f"}, {"cut", false}}},
      {"send 0xff 0102030405 2",
       0,
       {{"length", 2}, {"answer_length", 5}, {"cut", true}, {"data", "0102"}}},
      {"send 255 -", 0, {{"length", 0}, {"data", ""}}},
      {"send 77 00", 1, {{"status", 0x5E}, {"status_name", "not supported"}}},
      {"send 255 01", 1, {{"status", 0x30}, {"data", absent}}, "sim fault 0xFFE4 2 result 0x30 1"},
      {"send 255 01", 0, {{"status", 0}, {"data", "01"}}},  // the fault was once
      {"send 255 0",
       2,
       {{"status", nullptr}, {"error", "hex '0' has an odd number of digits (1)"}}},
      {"send 255 zz", 2, {{"status", nullptr}}},
      {"send 255 00 551", 2, {{"status", nullptr}}},
      {"send -1 00", 2, {{"status", nullptr}}},
  };
  long sent = 0;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.args);
    if (row.before != nullptr) {
      ASSERT_EQ(RunTool(modem + row.before).status, 0);
    }
    const tarvik_test::ToolRun run = RunTool(modem + "--json " + row.args);
    EXPECT_EQ(run.status, row.exit);
    const auto lines = tarvik_test::JsonLines(run.out);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["command"], "send");
    for (const auto &f : row.fields.items()) {
      EXPECT_EQ(lines[0].value(f.key(), absent), f.value()) << f.key();
    }
    sent += row.exit != 2;
    EXPECT_EQ(ExtendReceived(daemon), sent) << "a refused request was sent, or a good one not";
  }
  // Global options after the command, as before it.
  EXPECT_EQ(RunTool("send 255 01 --json " + daemon.modem()).out.find("{\"command\":\"send\""), 0u);
  EXPECT_EQ(ExtendReceived(daemon), sent + 1);
}

// watch takes every event when none is named, shows events the daemon is told to send, and
// reports the service going away and coming back (with its events registered again). Each step
// waits for the modem to have the registrations the next one needs.
TEST(ChannelTool, WatchReportsEventsLossAndReconnect) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  // Destroyed before the daemon: waits for the tool even when an assertion returns early.
  auto watch = std::async(std::launch::async,
                          [&] { return RunTool(daemon.modem() + " --json watch --for 5"); });
  // All seven events registered (the switch of event 3 was answered before the 5th was sent).
  ASSERT_GE(ExtendReceived(daemon, 7), 7);
  EXPECT_EQ(RunTool(daemon.modem() + " sim event 3 0a0b").status, 0);
  EXPECT_EQ(RunTool(daemon.modem() + " sim restart 0xFFE4 200").status, 0);
  // Registered again, 14 requests in all: the switch of event 5 was answered before event 6's
  // request was sent (the modem counts a request before it handles it).
  ASSERT_GE(ExtendReceived(daemon, 14), 14);
  EXPECT_EQ(RunTool(daemon.modem() + " sim event 5 01").status, 0);
  const tarvik_test::ToolRun run = watch.get();
  EXPECT_EQ(run.status, 0) << run.err;
  const auto lines = tarvik_test::JsonLines(run.out);
  const json all = {0, 1, 2, 3, 4, 5, 6};
  const json expected[] = {
      {{"kind", "watching"}, {"events", all}},
      {{"kind", "event"}, {"id", 3}, {"data", "0a0b"}},
      {{"kind", "service"}, {"state", "lost"}},
      {{"kind", "service"}, {"state", "back"}, {"events", all}},
      {{"kind", "event"}, {"id", 5}, {"data", "01"}},
      {{"status", 0}, {"status_name", "ok"}},
  };
  ASSERT_EQ(lines.size(), std::size(expected)) << run.out;
  for (size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE(lines[i].dump());
    EXPECT_EQ(lines[i]["command"], "watch");
    for (const auto &f : expected[i].items()) EXPECT_EQ(lines[i][f.key()], f.value());
  }
}

TEST(ChannelTool, WatchShowsOnlyRegisteredEventsOfTheEmbeddedModem) {
  const tarvik_test::ToolRun run = RunTool("watch --for 1 --inject 3:0a0b --inject 4:01 3");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "watching events 3 for 1 s\nevent 3: 2 bytes 0a0b\n");
  EXPECT_EQ(RunTool("watch 7").status, 2);
  EXPECT_EQ(RunTool("watch --inject 3:0 3").status, 2);
}

}  // namespace
