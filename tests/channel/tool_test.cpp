// The tool's send and watch commands against its embedded modem, run as a separate process.
#include <stdio.h>
#include <sys/wait.h>

#include <string>

#include "gtest/gtest.h"
#include "test_env.h"

namespace {

using tarvik_test::RunTool;

TEST(ChannelTool, SendPrintsTheModemsAnswer) {
  struct Row {
    const char *args;
    int status;
    const char *out;
  };
  const Row rows[] = {
      {"--json send 255 68656c6c6f", 0,
       "{\"request_id\":255,\"status\":0,\"length\":5,\"data\":\"68656c6c6f\"}\n"},
      {"--json send 0xff 0102030405 2", 0,
       "{\"request_id\":255,\"status\":0,\"length\":2,\"data\":\"0102\"}\n"},
      {"--json send 255 -", 0, "{\"request_id\":255,\"status\":0,\"length\":0,\"data\":\"\"}\n"},
      {"--json send 77 00", 1, "{\"request_id\":77,\"status\":-3}\n"},
      {"send 255 0", 2, ""},
      {"send 255 zz", 2, ""},
      {"send 255 00 551", 2, ""},
      {"send -1 00", 2, ""},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.args);
    const tarvik_test::ToolRun run = RunTool(row.args);
    EXPECT_EQ(run.status, row.status);
    EXPECT_EQ(run.out, row.out);
  }
}

TEST(ChannelTool, WatchPrintsInjectedEventsOfRegisteredEventsOnly) {
  const tarvik_test::ToolRun run = RunTool("--json watch --for 1 --inject 3:0a0b --inject 4:01 3");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "{\"kind\":\"event\",\"id\":3,\"length\":2,\"data\":\"0a0b\"}\n");
  EXPECT_EQ(RunTool("watch 7").status, 2);
  EXPECT_EQ(RunTool("watch --for 1").status, 2);
}

}  // namespace
