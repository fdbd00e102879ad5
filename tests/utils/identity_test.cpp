// Build classification and device identity over the property store stand-in: the build type
// and the yes/no checks (kept for the life of the process, so each combination of properties is
// judged in a child process with a fresh store), SIM presence, kept identity values, device-state
// names, the list tests, the memory wrappers, and the service tool's commands that print them.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <property_host.h>
#include <syslog.h>

#include <cstring>
#include <string>
#include <vector>

#include "helpers.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"
#include "test_env.h"

using tarvik_test::SyslogContains;
using tarvik_test::SyslogDump;

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

TEST(SimPresence, Table) {
  // "NOT_READY," holds "READY,"; ",READY" needs READY right after the comma; "LOADED" has no
  // separator, so neither form matches.
  const struct {
    const char *state;    // "": unset
    const char *present;  // for sub 0 and sub 1
  } rows[] = {{"", "00"},
              {"LOADED,LOADED", "11"},
              {"READY,ABSENT", "10"},
              {"ABSENT,READY", "01"},
              {"ABSENT,ABSENT", "00"},
              {"loaded,loaded", "00"},
              {",", "00"},
              {"NOT_READY,ABSENT", "10"},
              {"ABSENT,NOT_READY", "00"},
              {"LOADED", "00"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.state);
    if (row.state[0] != '\0') {
      ASSERT_EQ(property_set("gsm.sim.state", row.state), 0);
    }
    const char present[] = {tarvik_sim_card_is_present(0) ? '1' : '0',
                            tarvik_sim_card_is_present(1) ? '1' : '0', '\0'};
    EXPECT_STREQ(present, row.present);
  }
  EXPECT_TRUE(SyslogContains("SUB0 is present", LOG_DEBUG)) << SyslogDump();
  EXPECT_TRUE(SyslogContains("SUB1 is not present", LOG_DEBUG));
  EXPECT_TRUE(SyslogContains("function exit, is_present = 1 <-------------"));
  tarvik_test::ClearSyslog();
  EXPECT_FALSE(tarvik_sim_card_is_present(2));
  EXPECT_TRUE(SyslogContains("sub is invalid", LOG_ERR));
  EXPECT_TRUE(SyslogContains("function exit, is_present = 0 <-------------"));
}

TEST(KeptIdentity, FirstValueHoldsAfterSetters) {
  const struct {
    const char *name;
    int32_t (*get)(void);
    int (*set)(int32_t);
    const char *property;
  } rows[] = {
      {"manufacturer", tarvik_get_tarvik_manufacturer_id, tarvik_set_tarvik_manufacturer_id,
       "ro.vendor.radio.manufacturer_id"},
      {"hal chip", tarvik_get_modem_hal_chip_id, tarvik_set_modem_hal_chip_id,
       "ro.vendor.radio.hal_chip_id"},
      {"bp chip", tarvik_get_modem_bp_chip_id, tarvik_set_modem_bp_chip_id,
       "ro.vendor.radio.bp_chip_id"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.get(), 0);  // unset
    EXPECT_EQ(row.set(TARVIK_MANUFACTURER_ID_TARVIK), 0);
    char value[TARVIK_PROPERTY_BUF_SIZE];
    property_get(row.property, value, "");
    EXPECT_STREQ(value, "1");
    EXPECT_EQ(row.get(), 0);  // the kept value is the first one read
  }
}

TEST(KeptIdentity, ValuesReadOnFirstUse) {
  ASSERT_EQ(tarvik_test::SetProps("ro.vendor.radio.manufacturer_id=1 ro.radio.device_type=7 "
                                  "ro.product.device=marble ro.product.odm.device=marble_odm "
                                  "ro.product.odm.name=marble_global"),
            "");
  EXPECT_EQ(tarvik_get_tarvik_manufacturer_id(), TARVIK_MANUFACTURER_ID_TARVIK);
  EXPECT_EQ(tarvik_get_tarvik_device_type(), 7);
  EXPECT_STREQ(tarvik_device_name_get(), "marble");
  EXPECT_TRUE(SyslogContains("tarvik_device_name_get: device_name: marble"));
  EXPECT_STREQ(tarvik_odm_device_get(), "marble_odm");
  EXPECT_STREQ(tarvik_odm_name_get(), "marble_global");
  EXPECT_STREQ(tarvik_build_region_get(), "NULL");
  // ro.* can be written once: the region is set after its first read and must not show.
  ASSERT_EQ(property_set("ro.ravu.build.region", "eea"), 0);
  EXPECT_STREQ(tarvik_build_region_get(), "NULL");
  EXPECT_EQ(tarvik_get_tarvik_device_type(), 7);
}

TEST(Configuration, ReadOnEveryCall) {
  EXPECT_FALSE(tarvik_get_single_sim_flag());
  EXPECT_TRUE(SyslogContains("non single sim version"));
  ASSERT_EQ(property_set("persist.radio.multisim.config", "ssss"), 0);
  EXPECT_TRUE(tarvik_get_single_sim_flag());
  ASSERT_EQ(property_set("persist.radio.multisim.config", "SSSS"), 0);
  EXPECT_FALSE(tarvik_get_single_sim_flag());

  EXPECT_STREQ(tarvik_vendor_build_region_get(), "NULL");
  EXPECT_FALSE(tarvik_vendor_build_region_is_cfged());
  ASSERT_EQ(property_set("persist.vendor.radio.build_region", "in"), 0);
  const char *region = tarvik_vendor_build_region_get();
  EXPECT_STREQ(region, "in");
  EXPECT_TRUE(tarvik_vendor_build_region_is_cfged());
  ASSERT_EQ(property_set("persist.vendor.radio.build_region", "eea"), 0);
  EXPECT_EQ(tarvik_vendor_build_region_get(), region);  // one static buffer, overwritten
  EXPECT_STREQ(region, "eea");
}

TEST(GpsType, ExactTextsOnly) {
  const struct {
    const char *props;
    const char *type;
  } rows[] = {
      {"", "0"},           {"ro.bdsms=true", "2"}, {"ro.bdsms=false", "1"}, {"ro.bdsms=TRUE", "0"},
      {"ro.bdsms=1", "0"}, {"ro.bdsms=true1", "0"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.props);  // write-once: one child per row
    EXPECT_EQ(tarvik_test::RunWithProps(row.props,
                                        [] { return std::to_string(tarvik_modem_get_gps_type()); }),
              row.type);
  }
  ASSERT_EQ(property_set("ro.bdsms", "false"), 0);
  EXPECT_EQ(tarvik_modem_get_gps_type(), 1);
  EXPECT_EQ(tarvik_test::LoggedBy("tarvik_modem_get_gps_type"),
            "PROP_MODEM_GPS_TYPE = (false); function exit, gps_type = 1 <-------------");
}

TEST(DeviceStateNames, TableBoundsAndBuffers) {
  EXPECT_STREQ(tarvik_get_device_type_string(0), "WIFI_STATE");
  EXPECT_STREQ(tarvik_get_device_type_string(22), "SAR_SENSOR3_STATE");
  EXPECT_EQ(tarvik_get_device_type_string(23), nullptr);
  EXPECT_EQ(tarvik_get_device_type_string(UINT32_MAX), nullptr);

  EXPECT_STREQ(tarvik_get_device_type_string_ex(3), "[3]SAR_SENSOR_STATE");
  EXPECT_STREQ(tarvik_get_device_type_string_ex(19), "[19]NTN_RADIO_POWER_STATE");
  EXPECT_EQ(tarvik_get_device_type_string_ex(23), nullptr);

  EXPECT_STREQ(tarvik_get_device_state_prop_name(0), "debug.device.wifi_state");
  const char *name = tarvik_get_device_state_prop_name(22);
  EXPECT_STREQ(name, "debug.device.sar_sensor3_state");
  EXPECT_EQ(tarvik_get_device_state_prop_name(23), nullptr);
  EXPECT_EQ(tarvik_get_device_state_prop_name(1), name);  // the same static buffer
  EXPECT_STREQ(name, "debug.device.hotspot_state");
  // Every name maps to a property name the store accepts.
  for (uint32_t i = 0; i <= TARVIK_DEVICE_TYPE_MAX; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(property_set(tarvik_get_device_state_prop_name(i), "1"), 0);
  }
}

TEST(IntListContain, EveryWidthMatchesAndRefuses) {
  const int8_t l8[] = {-128, 0, 127};
  const int16_t l16[] = {-32768, 5, 32767};
  const int32_t l32[] = {INT32_MIN, 5, INT32_MAX};
  const int64_t l64[] = {INT64_MIN, 5, INT64_MAX};
  EXPECT_TRUE(tarvik_int8_list_contain(l8, 3, -128));
  EXPECT_TRUE(SyslogContains("tarvik_int8_list_contain: find number[int8]: -128, size_list(3)"));
  EXPECT_TRUE(tarvik_int8_list_contain(l8, 3, 127));
  EXPECT_FALSE(tarvik_int8_list_contain(l8, 2, 127));
  EXPECT_TRUE(tarvik_int16_list_contain(l16, 3, 32767));
  EXPECT_FALSE(tarvik_int16_list_contain(l16, 3, 4));
  EXPECT_TRUE(tarvik_int32_list_contain(l32, 3, INT32_MIN));
  EXPECT_TRUE(SyslogContains("find number[int32]: -2147483648, size_list(3)", LOG_DEBUG));
  EXPECT_TRUE(tarvik_int64_list_contain(l64, 3, INT64_MAX));
  EXPECT_TRUE(SyslogContains("find number[int64]: 9223372036854775807, size_list(3)"));
  EXPECT_FALSE(tarvik_int64_list_contain(l64, 3, 6));
  EXPECT_TRUE(SyslogContains("not find number[int64]: 6, size_list(3)", LOG_ERR));

  EXPECT_FALSE(tarvik_int16_list_contain(nullptr, 3, 5));
  EXPECT_TRUE(SyslogContains("tarvik_int16_list_contain: num_list[int16] is NULL", LOG_ERR));
  EXPECT_FALSE(tarvik_int32_list_contain(l32, 0, 5));
  EXPECT_TRUE(SyslogContains("size_list[int32](0) can not <= 0", LOG_ERR));
}

TEST(ProductLists, WildcardsAndNames) {
  ASSERT_EQ(property_set("ro.product.device", "marble"), 0);
  ASSERT_EQ(property_set("ro.ravu.build.region", "cn_global"), 0);
  const char *any[] = {"fuxi", "all_product"};
  const char *mine[] = {"fuxi", "marble"};
  const char *others[] = {"fuxi", "ishtar"};
  const char *part_of_wildcard[] = {"product"};  // a part of the wildcard matches every device
  const char *regions[] = {"cn"};
  const char *any_region[] = {"all_region"};
  EXPECT_TRUE(tarvik_device_name_list_contain(any, 2));
  EXPECT_TRUE(tarvik_device_name_list_contain(mine, 2));
  EXPECT_FALSE(tarvik_device_name_list_contain(others, 2));
  EXPECT_TRUE(tarvik_device_name_list_contain(part_of_wildcard, 1));
  EXPECT_FALSE(tarvik_device_name_list_contain(nullptr, 2));
  EXPECT_FALSE(tarvik_device_name_list_contain(mine, 0));
  EXPECT_TRUE(tarvik_odm_device_list_contain(any, 2));
  EXPECT_FALSE(tarvik_odm_name_list_contain(mine, 2));  // unset ODM name is empty
  EXPECT_TRUE(tarvik_build_region_list_contain(regions, 1));
  EXPECT_TRUE(tarvik_build_region_list_contain(any_region, 1));
  EXPECT_FALSE(tarvik_build_region_list_contain(any, 2));
}

TEST(Memory, MallocAndFree) {
  EXPECT_EQ(tarvik_mem_malloc(0), nullptr);
  void *p = tarvik_mem_malloc(64);
  ASSERT_NE(p, nullptr);
  memset(p, 0xAB, 64);
  tarvik_mem_free(&p);
  EXPECT_EQ(p, nullptr);
  tarvik_mem_free(&p);  // pointer to NULL: nothing
  tarvik_mem_free(nullptr);
}

TEST(Tool, DeviceBuildAndStartServiceOverTheSharedStore) {
  if (tarvik_test::BinDir().empty()) {
    GTEST_SKIP() << "TARVIK_BIN_DIR not set";
  }
  ASSERT_EQ(tarvik_test::SetProps("ro.product.device=marble gsm.sim.state=ABSENT,LOADED "
                                  "persist.radio.multisim.config=ssss ro.build.tags=release-keys "
                                  "ro.vendor.radio.manufacturer_id=1 " +
                                  Expand("profile=ravu ver=V1.0.23.0.DEV")),
            "");
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
