// Build and version classification. The checks keep their property values for the life of the
// process, so each combination of properties is judged in a child process of its own with a
// fresh property store.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include "helpers.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"

namespace {

// A property list with short names for the three version properties.
std::string Expand(const std::string &props) {
  std::string out = " " + props;
  for (const auto &alias : {std::make_pair(" profile=", " ro.vendor.radio.build_profile="),
                            std::make_pair(" ver=", " ro.build.version.incremental="),
                            std::make_pair(" os=", " ro.qz.os.version.incremental=")}) {
    for (size_t at; (at = out.find(alias.first)) != std::string::npos;) {
      out.replace(at, strlen(alias.first), alias.second);
    }
  }
  return out;
}

TEST(BuildType, DecisionAndItsLogLines) {
  struct Row {
    const char *name;
    const char *props;
    const char *expected;  // the type, then what tarvik_build_type_get logged
  };
  const Row rows[] = {
      {"nothing set: native without the OS", "",
       "5 TARVIK_BUILD_TYPE_NATIVE(5), BUILD_PROFILE(NULL), non-RAVU"},
      {"certification wins over everything", "ro.cust.test=ctx profile=factory",
       "3 TARVIK_BUILD_TYPE_CERT(3), BUILD_PROFILE(factory)"},
      {"factory profile", "profile=factory",
       "2 TARVIK_BUILD_TYPE_FACTORY(2), BUILD_PROFILE(factory)"},
      {"factory boot flag", "ro.boot.factorybuild=1",
       "2 TARVIK_BUILD_TYPE_FACTORY(2), BUILD_PROFILE(NULL)"},
      {"native profile", "profile=native", "5 TARVIK_BUILD_TYPE_NATIVE(5), BUILD_PROFILE(native)"},
      {"OS version PRE", "profile=ravu ver=OS2.0.1.0.PRE",
       "1 OS*: TARVIK_BUILD_TYPE_PRE(1), BUILD_PROFILE(ravu)"},
      {"OS version DEV", "profile=ravu ver=OS2.0.1.0.DEV",
       "6 OS*: TARVIK_BUILD_TYPE_DEV(6), BUILD_PROFILE(ravu)"},
      {"OS version BETA", "profile=ravu ver=OS2.0.1.0.BETA",
       "7 OS*: TARVIK_BUILD_TYPE_BETA(7), BUILD_PROFILE(ravu)"},
      {"PRE is tested before DEV", "profile=ravu ver=OS2.DEV.PRE",
       "1 OS*: TARVIK_BUILD_TYPE_PRE(1), BUILD_PROFILE(ravu)"},
      {"OS version without marker, no OS version: pre", "profile=ravu ver=OS2.0.101.0.ABCDEFG",
       "1 TARVIK_BUILD_TYPE_PRE(1), BUILD_PROFILE(ravu); build_type(1), BUILD_PROFILE(ravu), "
       "BUILD_VERSION(OS2.0.101.0.ABCDEFG)"},
      {"OS version without marker falls to the OS version",
       "profile=ravu ver=OS2.0.101.0.ABCDEFG os=OS2.0.101.0.BETA",
       "7 OS*qz: TARVIK_BUILD_TYPE_BETA(7), BUILD_PROFILE(ravu)"},
      {"V version stable", "profile=ravu ver=V1.0.23.0.ABCDEFG",
       "4 TARVIK_BUILD_TYPE_STABLE(4), BUILD_PROFILE(ravu)"},
      {"V version dev", "profile=ravu ver=V1.0.23.0.DEV",
       "6 TARVIK_BUILD_TYPE_DEV(6), BUILD_PROFILE(ravu)"},
      {"V version ignores the OS version", "profile=ravu ver=V1.0.PRE os=OS1.0.5.0.DEV",
       "4 TARVIK_BUILD_TYPE_STABLE(4), BUILD_PROFILE(ravu)"},
      {"empty version, OS version dev", "profile=ravu os=OS1.0.5.0.DEV",
       "6 OS*qz: TARVIK_BUILD_TYPE_DEV(6), BUILD_PROFILE(ravu)"},
      {"empty version, OS version without marker: stable", "profile=ravu os=OS1.0.5.0",
       "4 OS*qz: TARVIK_BUILD_TYPE_STABLE(4), BUILD_PROFILE(ravu)"},
      {"neither version starts with O or V: pre", "profile=ravu ver=X1 os=X1.DEV",
       "1 TARVIK_BUILD_TYPE_PRE(1), BUILD_PROFILE(ravu); build_type(1), BUILD_PROFILE(ravu), "
       "BUILD_VERSION(X1)"},
      {"lower-case markers do not count", "profile=ravu ver=OS2.0.dev os=OS2.0.beta",
       "4 OS*qz: TARVIK_BUILD_TYPE_STABLE(4), BUILD_PROFILE(ravu)"},
      {"native_cn counts as the OS", "profile=native_cn ver=V1.0.23.0.DEV",
       "6 TARVIK_BUILD_TYPE_DEV(6), BUILD_PROFILE(native_cn)"},
      {"factory_x: the OS build whose profile also says factory", "profile=factory_x ver=V2.0",
       "4 TARVIK_BUILD_TYPE_STABLE(4), BUILD_PROFILE(factory_x)"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(tarvik_test::RunWithProps(Expand(row.props),
                                        [] {
                                          const uint32_t type = tarvik_build_type_get();
                                          return std::to_string(type) + " " +
                                                 tarvik_test::LoggedBy("tarvik_build_type_get");
                                        }),
              row.expected);
  }
}

// The names of the yes/no checks that answer yes, in this order.
std::string YesChecks() {
  const struct {
    const char *name;
    bool (*check)(void);
  } checks[] = {
      {"factory", tarvik_is_factory_version},
      {"ct", tarvik_is_ct_cert_version},
      {"cm", tarvik_is_cm_cert_version},
      {"cu", tarvik_is_cu_cert_version},
      {"cert", tarvik_is_cert_version},
      {"china", tarvik_is_china_version},
      {"test", tarvik_is_test_build},
      {"native", tarvik_is_native_version},
      {"factory_ex", tarvik_is_factory_version_ex},
      {"root", tarvik_is_root_version},
      {"mp", tarvik_is_mp_version},
      {"ravu", tarvik_is_ravu_version},
      {"ravu_ex", tarvik_is_ravu_version_ex},
      {"user", tarvik_is_user_version},
      {"pre", tarvik_is_pre_version},
      {"dev", tarvik_is_dev_version},
      {"stable", tarvik_is_stable_version},
  };
  std::string yes;
  for (const auto &c : checks) {
    yes += c.check() ? (yes.empty() ? "" : " ") + std::string(c.name) : "";
  }
  return yes;
}

TEST(BuildChecks, Table) {
  const struct {
    const char *props;
    const char *yes;
  } rows[] = {
      {"", "test user"},
      {"ro.cust.test=ct", "ct cert test user"},
      {"ro.cust.test=cm", "cm cert test user"},
      {"ro.cust.test=cu", "cu cert test user"},
      {"ro.cust.test=ctx", "cert test user"},
      {"ro.build.tags=release-keys", "user"},
      {"ro.build.tags=release-keys,dev", "test user"},
      {"ro.vendor.radio.build_region=cn", "china test user"},
      {"ro.vendor.radio.build_region=CN", "test user"},
      // native_cn is the OS: no version texts fall back to pre.
      {"profile=native_cn", "test native ravu user pre"},
      {"profile=native", "test native user"},
      {"profile=factory", "test factory_ex user"},
      {"ro.boot.factorybuild=1", "factory test user"},
      {"ro.debuggable=1 ro.boot.hwlevel=MP", "test root mp user"},
      {"ro.boot.hwlevel=mp", "test user"},
      {"ro.ravu.build.region=global", "test ravu_ex user"},
      {"ro.build.type=userdebug", "test"},
      {"profile=ravu ver=V1.0.DEV", "test ravu user dev"},
      {"profile=ravu ver=V1.0", "test ravu user stable"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.props);
    EXPECT_EQ(tarvik_test::RunWithProps(Expand(row.props), YesChecks), row.yes);
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
