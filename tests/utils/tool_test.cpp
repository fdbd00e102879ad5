// The service tool's device, build and start-service commands run as a separate process over
// this test's property store, as a service engineer would run them beside the radio process.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <property_host.h>
#include <stdio.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "test_env.h"

namespace {

// Runs the tool with `args`; returns its standard output and stores its exit status.
std::string RunTool(const std::string &args, int *status) {
  tarvik_test::ToolRun run = tarvik_test::RunTool(args);
  *status = run.status;
  return run.out;
}

class ToolTest : public testing::Test {
 protected:
  void SetUp() override {
    if (tarvik_test::BinDir().empty()) {
      GTEST_SKIP() << "TARVIK_BIN_DIR not set";
    }
  }
};

TEST_F(ToolTest, DeviceAndBuildReadTheSharedStore) {
  ASSERT_EQ(property_set("ro.product.device", "marble"), 0);
  ASSERT_EQ(property_set("gsm.sim.state", "ABSENT,LOADED"), 0);
  ASSERT_EQ(property_set("persist.radio.multisim.config", "ssss"), 0);
  ASSERT_EQ(property_set("ro.vendor.radio.manufacturer_id", "1"), 0);
  ASSERT_EQ(property_set("ro.vendor.radio.build_profile", "ravu"), 0);
  ASSERT_EQ(property_set("ro.build.version.incremental", "V1.0.23.0.DEV"), 0);
  ASSERT_EQ(property_set("ro.build.tags", "release-keys"), 0);
  struct Row {
    const char *args;
    std::vector<const char *> fields;
  };
  const Row rows[] = {
      {"--json device",
       {"\"device\":\"marble\"", "\"manufacturer_id\":1", "\"single_sim\":true",
        "\"sim_present_sub0\":false", "\"sim_present_sub1\":true", "\"active_call_sub\":8"}},
      {"--json build",
       {"\"build_type\":6", "\"build_type_name\":\"DEV\"", "\"dev\":true", "\"stable\":false",
        "\"test_build\":false", "\"ravu\":true"}},
      {"build", {"build_type_name: DEV\n", "stable: no\n"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.args);
    int status = 0;
    const std::string out = RunTool(row.args, &status);
    EXPECT_EQ(status, 0);
    for (const char *field : row.fields) {
      EXPECT_NE(out.find(field), std::string::npos) << field << " in " << out;
    }
    EXPECT_EQ(out.find("RIL["), std::string::npos);  // library traces stay out of the output
  }
}

TEST_F(ToolTest, StartServiceIsRecordedByInit) {
  int status = 0;
  RunTool("start-service vendor.radio.test", &status);
  EXPECT_EQ(status, 0);
  RunTool("start-service " + std::string(93, 'x'), &status);
  EXPECT_EQ(status, 1);
  std::vector<std::string> values;
  property_ctl_requests(
      [](const char *name, const char *value, int, void *cookie) {
        if (std::string(name) == "ctl.start") {
          static_cast<std::vector<std::string> *>(cookie)->push_back(value);
        }
      },
      &values);
  EXPECT_EQ(values, std::vector<std::string>{"vendor.radio.test"});
}

}  // namespace
