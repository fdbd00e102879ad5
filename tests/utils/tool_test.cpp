// The service tool's device, build and start-service commands run as a separate process over
// this test's property store, as a service engineer would run them beside the radio process.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <property_host.h>

#include <string>
#include <vector>

#include "test_env.h"

namespace {

TEST(Tool, DeviceBuildAndStartServiceOverTheSharedStore) {
  if (tarvik_test::BinDir().empty()) {
    GTEST_SKIP() << "TARVIK_BIN_DIR not set";
  }
  ASSERT_EQ(property_set("ro.product.device", "marble"), 0);
  ASSERT_EQ(property_set("gsm.sim.state", "ABSENT,LOADED"), 0);
  ASSERT_EQ(property_set("persist.radio.multisim.config", "ssss"), 0);
  ASSERT_EQ(property_set("ro.vendor.radio.manufacturer_id", "1"), 0);
  ASSERT_EQ(property_set("ro.vendor.radio.build_profile", "ravu"), 0);
  ASSERT_EQ(property_set("ro.build.version.incremental", "V1.0.23.0.DEV"), 0);
  ASSERT_EQ(property_set("ro.build.tags", "release-keys"), 0);
  const struct {
    int status;
    std::string args;
    std::vector<const char *> fields;
  } rows[] = {
      {0,
       "--json device",
       {"\"device\":\"marble\"", "\"manufacturer_id\":1", "\"single_sim\":true",
        "\"sim_present_sub0\":false", "\"sim_present_sub1\":true", "\"active_call_sub\":8"}},
      {0,
       "--json build",
       {"\"build_type\":6", "\"build_type_name\":\"DEV\"", "\"dev\":true", "\"stable\":false",
        "\"test_build\":false", "\"ravu\":true"}},
      {0, "build", {"build_type_name: DEV\n", "stable: no\n"}},
      {0, "start-service vendor.radio.test", {}},
      {1, "start-service " + std::string(93, 'x'), {}},  // too long a name: nothing started
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.args);
    const tarvik_test::ToolRun run = tarvik_test::RunTool(row.args);
    EXPECT_EQ(run.status, row.status);
    for (const char *field : row.fields) {
      EXPECT_NE(run.out.find(field), std::string::npos) << field << " in " << run.out;
    }
    EXPECT_EQ(run.out.find("RIL["), std::string::npos);  // library traces stay out of the output
  }
  std::vector<std::string> values;  // what init was asked to start
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
