// Build and version classification. The checks keep their property values for the life of the
// process, so each combination of properties is judged in a child process of its own with a
// fresh property store.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include "child_props.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"

namespace {

using tarvik_test::Props;
using tarvik_test::RunWithProps;

struct BuildRow {
  const char *name;
  Props props;
  uint32_t type;
};

TEST(BuildType, DecisionTable) {
  const BuildRow rows[] = {
      {"nothing set: native without the OS", {}, TARVIK_BUILD_TYPE_NATIVE},
      {"certification wins over everything",
       {{"ro.cust.test", "ctx"}, {"ro.vendor.radio.build_profile", "factory"}},
       TARVIK_BUILD_TYPE_CERT},
      {"factory profile",
       {{"ro.vendor.radio.build_profile", "factory"}},
       TARVIK_BUILD_TYPE_FACTORY},
      {"factory boot flag", {{"ro.boot.factorybuild", "1"}}, TARVIK_BUILD_TYPE_FACTORY},
      {"native profile", {{"ro.vendor.radio.build_profile", "native"}}, TARVIK_BUILD_TYPE_NATIVE},
      {"OS version PRE",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "OS2.0.1.0.PRE"}},
       TARVIK_BUILD_TYPE_PRE},
      {"OS version DEV",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "OS2.0.1.0.DEV"}},
       TARVIK_BUILD_TYPE_DEV},
      {"OS version BETA",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "OS2.0.1.0.BETA"}},
       TARVIK_BUILD_TYPE_BETA},
      {"PRE is tested before DEV",
       {{"ro.vendor.radio.build_profile", "ravu"}, {"ro.build.version.incremental", "OS2.DEV.PRE"}},
       TARVIK_BUILD_TYPE_PRE},
      {"OS version without marker, no OS version: pre",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "OS2.0.101.0.ABCDEFG"}},
       TARVIK_BUILD_TYPE_PRE},
      {"OS version without marker falls to the OS version",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "OS2.0.101.0.ABCDEFG"},
        {"ro.qz.os.version.incremental", "OS2.0.101.0.BETA"}},
       TARVIK_BUILD_TYPE_BETA},
      {"V version stable",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "V1.0.23.0.ABCDEFG"}},
       TARVIK_BUILD_TYPE_STABLE},
      {"V version dev",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "V1.0.23.0.DEV"}},
       TARVIK_BUILD_TYPE_DEV},
      {"V version ignores the OS version",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "V1.0.PRE"},
        {"ro.qz.os.version.incremental", "OS1.0.5.0.DEV"}},
       TARVIK_BUILD_TYPE_STABLE},
      {"empty version, OS version dev",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.qz.os.version.incremental", "OS1.0.5.0.DEV"}},
       TARVIK_BUILD_TYPE_DEV},
      {"empty version, OS version without marker: stable",
       {{"ro.vendor.radio.build_profile", "ravu"}, {"ro.qz.os.version.incremental", "OS1.0.5.0"}},
       TARVIK_BUILD_TYPE_STABLE},
      {"empty version, OS version not O: pre",
       {{"ro.vendor.radio.build_profile", "ravu"}, {"ro.qz.os.version.incremental", "X1.DEV"}},
       TARVIK_BUILD_TYPE_PRE},
      {"lower-case markers do not count",
       {{"ro.vendor.radio.build_profile", "ravu"},
        {"ro.build.version.incremental", "OS2.0.dev"},
        {"ro.qz.os.version.incremental", "OS2.0.beta"}},
       TARVIK_BUILD_TYPE_STABLE},
      {"native_cn counts as the OS",
       {{"ro.vendor.radio.build_profile", "native_cn"},
        {"ro.build.version.incremental", "V1.0.23.0.DEV"}},
       TARVIK_BUILD_TYPE_DEV},
      {"factory_x: the OS build whose profile also says factory",
       {{"ro.vendor.radio.build_profile", "factory_x"}, {"ro.build.version.incremental", "V2.0"}},
       TARVIK_BUILD_TYPE_STABLE},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(RunWithProps(row.props, [] { return static_cast<int>(tarvik_build_type_get()); }),
              static_cast<int>(row.type));
  }
}

// True when some captured line ends with `tail` (the function name and message of a log line).
bool LineEndsWith(const std::string &tail) {
  for (const auto &line : tarvik_test::SyslogLines()) {
    if (line.text.size() >= tail.size() &&
        line.text.compare(line.text.size() - tail.size(), tail.size(), tail) == 0) {
      return true;
    }
  }
  return false;
}

TEST(BuildType, LogLineNamesTheDecision) {
  const Props ravu = {{"ro.vendor.radio.build_profile", "ravu"}};
  struct Row {
    Props props;
    const char *line;
  };
  const Row rows[] = {
      {{}, "tarvik_build_type_get: TARVIK_BUILD_TYPE_NATIVE(5), BUILD_PROFILE(NULL), non-RAVU"},
      {{{"ro.vendor.radio.build_profile", "native"}},
       "tarvik_build_type_get: TARVIK_BUILD_TYPE_NATIVE(5), BUILD_PROFILE(native)"},
      {{{"ro.cust.test", "cu"}},
       "tarvik_build_type_get: TARVIK_BUILD_TYPE_CERT(3), BUILD_PROFILE(NULL)"},
      {{{"ro.vendor.radio.build_profile", "factory"}},
       "tarvik_build_type_get: TARVIK_BUILD_TYPE_FACTORY(2), BUILD_PROFILE(factory)"},
      {{ravu[0], {"ro.build.version.incremental", "OS1.BETA"}},
       "tarvik_build_type_get: OS*: TARVIK_BUILD_TYPE_BETA(7), BUILD_PROFILE(ravu)"},
      {{ravu[0], {"ro.build.version.incremental", "V1.DEV"}},
       "tarvik_build_type_get: TARVIK_BUILD_TYPE_DEV(6), BUILD_PROFILE(ravu)"},
      {{ravu[0], {"ro.qz.os.version.incremental", "OS1"}},
       "tarvik_build_type_get: OS*qz: TARVIK_BUILD_TYPE_STABLE(4), BUILD_PROFILE(ravu)"},
      {{ravu[0], {"ro.build.version.incremental", "X1"}},
       "tarvik_build_type_get: TARVIK_BUILD_TYPE_PRE(1), BUILD_PROFILE(ravu)"},
      {{ravu[0], {"ro.build.version.incremental", "X1"}},
       "tarvik_build_type_get: build_type(1), BUILD_PROFILE(ravu), BUILD_VERSION(X1)"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    const std::string line = row.line;
    EXPECT_EQ(RunWithProps(row.props,
                           [&line] {
                             tarvik_build_type_get();
                             return LineEndsWith(line) ? 1 : 0;
                           }),
              1);
  }
}

// Answers of every yes/no check as one bit each, in this order.
int AllChecks() {
  bool (*const checks[])(void) = {
      tarvik_is_factory_version, tarvik_is_ct_cert_version, tarvik_is_cm_cert_version,
      tarvik_is_cu_cert_version, tarvik_is_cert_version,    tarvik_is_china_version,
      tarvik_is_test_build,      tarvik_is_native_version,  tarvik_is_factory_version_ex,
      tarvik_is_root_version,    tarvik_is_mp_version,      tarvik_is_ravu_version,
      tarvik_is_ravu_version_ex, tarvik_is_user_version,
  };
  int bits = 0;
  for (size_t i = 0; i < sizeof(checks) / sizeof(checks[0]); ++i) {
    bits |= checks[i]() ? 1 << i : 0;
  }
  return bits;
}

enum : int {
  kFactory = 1 << 0,
  kCt = 1 << 1,
  kCm = 1 << 2,
  kCu = 1 << 3,
  kCert = 1 << 4,
  kChina = 1 << 5,
  kTest = 1 << 6,
  kNative = 1 << 7,
  kFactoryEx = 1 << 8,
  kRoot = 1 << 9,
  kMp = 1 << 10,
  kRavu = 1 << 11,
  kRavuEx = 1 << 12,
  kUser = 1 << 13,
};

// The exit status carries 8 bits: run the checks and return one byte of the answers.
int ChecksInChild(const Props &props, int shift) {
  return RunWithProps(props, [shift] { return (AllChecks() >> shift) & 0xFF; });
}

TEST(BuildChecks, Table) {
  struct Row {
    const char *name;
    Props props;
    int expected;
  };
  const Row rows[] = {
      {"defaults: only test build and user", {}, kTest | kUser},
      {"ct certification", {{"ro.cust.test", "ct"}}, kTest | kUser | kCt | kCert},
      {"cm certification", {{"ro.cust.test", "cm"}}, kTest | kUser | kCm | kCert},
      {"cu certification", {{"ro.cust.test", "cu"}}, kTest | kUser | kCu | kCert},
      {"ctx is certification but not ct", {{"ro.cust.test", "ctx"}}, kTest | kUser | kCert},
      {"release keys", {{"ro.build.tags", "release-keys"}}, kUser},
      {"release keys with more is a test build",
       {{"ro.build.tags", "release-keys,dev"}},
       kTest | kUser},
      {"china", {{"ro.vendor.radio.build_region", "cn"}}, kTest | kUser | kChina},
      {"CN is not china", {{"ro.vendor.radio.build_region", "CN"}}, kTest | kUser},
      {"native_cn",
       {{"ro.vendor.radio.build_profile", "native_cn"}},
       kTest | kUser | kNative | kRavu},
      {"native exactly is not the OS",
       {{"ro.vendor.radio.build_profile", "native"}},
       kTest | kUser | kNative},
      {"factory profile",
       {{"ro.vendor.radio.build_profile", "factory"}},
       kTest | kUser | kFactoryEx},
      {"factory boot flag", {{"ro.boot.factorybuild", "1"}}, kTest | kUser | kFactory},
      {"debuggable and MP",
       {{"ro.debuggable", "1"}, {"ro.boot.hwlevel", "MP"}},
       kTest | kUser | kRoot | kMp},
      {"mp lower case", {{"ro.boot.hwlevel", "mp"}}, kTest | kUser},
      {"region set", {{"ro.ravu.build.region", "global"}}, kTest | kUser | kRavuEx},
      {"userdebug", {{"ro.build.type", "userdebug"}}, kTest},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(ChecksInChild(row.props, 0), row.expected & 0xFF);
    EXPECT_EQ(ChecksInChild(row.props, 8), row.expected >> 8);
  }
}

TEST(BuildChecks, ValuesAreKeptForTheProcess) {
  // Kept after the first call: a later change of the property is not seen, by either the check
  // or the build type built on it.
  EXPECT_TRUE(tarvik_is_user_version());
  EXPECT_FALSE(tarvik_is_cert_version());
  EXPECT_EQ(tarvik_build_type_get(), TARVIK_BUILD_TYPE_NATIVE);
  EXPECT_TRUE(tarvik_is_test_build());
  ASSERT_EQ(property_set("ro.build.type", "eng"), 0);
  ASSERT_EQ(property_set("ro.cust.test", "cm"), 0);
  ASSERT_EQ(property_set("ro.build.tags", "release-keys"), 0);
  EXPECT_TRUE(tarvik_is_user_version());
  EXPECT_FALSE(tarvik_is_cert_version());
  EXPECT_TRUE(tarvik_is_test_build());
  EXPECT_EQ(tarvik_build_type_get(), TARVIK_BUILD_TYPE_NATIVE);
  // Each check keeps its own copy: cm is read by the first call of its own check.
  EXPECT_TRUE(tarvik_is_cm_cert_version());
  EXPECT_FALSE(tarvik_test::SyslogContains("non user version"));
  EXPECT_TRUE(tarvik_test::SyslogContains("user version, val = user, ret = 1"));
}

TEST(BuildChannel, KeptBooleansFollowTheBuildType) {
  const Props dev = {{"ro.vendor.radio.build_profile", "ravu"},
                     {"ro.build.version.incremental", "V1.0.DEV"}};
  EXPECT_EQ(RunWithProps(dev,
                         [] {
                           return (tarvik_is_pre_version() ? 1 : 0) |
                                  (tarvik_is_dev_version() ? 2 : 0) |
                                  (tarvik_is_stable_version() ? 4 : 0);
                         }),
            2);
  const Props stable = {{"ro.vendor.radio.build_profile", "ravu"},
                        {"ro.build.version.incremental", "V1.0"}};
  EXPECT_EQ(RunWithProps(stable, [] { return tarvik_is_stable_version() ? 1 : 0; }), 1);
  EXPECT_EQ(RunWithProps({}, [] { return tarvik_is_pre_version() ? 1 : 0; }), 0);
}

TEST(BuildTypeList, WildcardCurrentTypeAndFaults) {
  const uint8_t all[] = {TARVIK_BUILD_TYPE_ALL};
  const uint8_t native[] = {TARVIK_BUILD_TYPE_CERT, TARVIK_BUILD_TYPE_NATIVE};
  const uint8_t others[] = {TARVIK_BUILD_TYPE_PRE, TARVIK_BUILD_TYPE_STABLE};
  // Nothing set: the build type is native.
  EXPECT_TRUE(tarvik_build_type_list_contain(all, 1));
  EXPECT_TRUE(tarvik_build_type_list_contain(native, 2));
  EXPECT_FALSE(tarvik_build_type_list_contain(native, 1));
  EXPECT_FALSE(tarvik_build_type_list_contain(others, 2));
  EXPECT_FALSE(tarvik_build_type_list_contain(nullptr, 2));
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_int8_list_contain: num_list[int8] is NULL"));
  EXPECT_FALSE(tarvik_build_type_list_contain(all, 0));
  EXPECT_TRUE(
      tarvik_test::SyslogContains("tarvik_int8_list_contain: size_list[int8](0) can not <= 0"));
}

}  // namespace
