// The tool's feature commands, each run a process of its own against the embedded modem:
// what one run writes, the next reads back from the state directory.
#include <stdio.h>
#include <sys/wait.h>

#include <fstream>
#include <string>
#include <utility>

#include "gtest/gtest.h"
#include "test_env.h"

namespace {

// Runs the tool against the modem state in `state`; returns its exit status, its output in *out.
int Tool(const std::string &state, const std::string &args, std::string *out) {
  tarvik_test::ToolRun run = tarvik_test::RunTool("--state " + state + " " + args);
  *out = std::move(run.out);
  return run.status;
}

TEST(ToolTest, NvItemAndFilePersistBetweenRuns) {
  const std::string state = tarvik_test::ScratchDir() + "/modem";
  const std::string in = tarvik_test::ScratchDir() + "/in.bin";
  const std::string back = tarvik_test::ScratchDir() + "/back.bin";
  std::string content(5000, '\0');
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + 3);
  std::ofstream(in, std::ios::binary) << content;

  std::string out;
  ASSERT_EQ(Tool(state, "nv write 1 550 0a0b0c", &out), 0);
  ASSERT_EQ(Tool(state, "--json nv read 1 550", &out), 0);
  EXPECT_EQ(out, "{\"sub\":1,\"item\":550,\"length\":3,\"data\":\"0a0b0c\"}\n");
  EXPECT_EQ(Tool(state, "nv read 1 7233", &out), 1) << "the library refuses the item";
  EXPECT_EQ(Tool(state, "nv read 1", &out), 2) << "usage error";

  ASSERT_EQ(Tool(state, "--json efs write 0 /demo/blob " + in, &out), 0);
  EXPECT_NE(out.find("\"length\":5000"), std::string::npos) << out;
  ASSERT_EQ(Tool(state, "efs read 0 /demo/blob " + back, &out), 0);
  std::ifstream got(back, std::ios::binary);
  const std::string read_back((std::istreambuf_iterator<char>(got)),
                              std::istreambuf_iterator<char>());
  EXPECT_TRUE(read_back == content);
  EXPECT_EQ(Tool(state, "efs exists 1 /demo/blob", &out), 1);
  ASSERT_EQ(Tool(state, "efs cp 0 /demo/blob 1 /demo/copy", &out), 0);
  EXPECT_EQ(Tool(state, "efs cmp 0 /demo/blob 1 /demo/copy", &out), 0);
  ASSERT_EQ(Tool(state, "--json efs stat /demo/blob", &out), 0);
  EXPECT_NE(out.find("\"size\":5000"), std::string::npos) << out;
  ASSERT_EQ(Tool(state, "efs rm 0 /demo/blob", &out), 0);
  EXPECT_EQ(Tool(state, "efs exists 0 /demo/blob", &out), 1);

  ASSERT_EQ(Tool(state, "mode set 7", &out), 0);
  ASSERT_EQ(Tool(state, "--json mode get", &out), 0);
  EXPECT_EQ(out, "{\"mode\":7}\n");

  // Opaque requests print the modem's answer as hex.
  ASSERT_EQ(Tool(state, "cdc 5 0a0b", &out), 0);
  EXPECT_EQ(out, "cdc: 2 bytes\n0a0b\n");
  ASSERT_EQ(Tool(state, "--json venue-mode 01", &out), 0);
  EXPECT_EQ(out, "{\"command\":\"venue-mode\",\"status\":0,\"length\":1,\"data\":\"01\"}\n");
}

}  // namespace
