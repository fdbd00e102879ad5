// Device identity: SIM presence parsing, kept identity values, device-state names, the list
// tests and the memory wrappers, over the property store stand-in.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstring>
#include <string>

#include "helpers.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"

using tarvik_test::SyslogContains;
using tarvik_test::SyslogDump;

namespace {

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
  ASSERT_EQ(property_set("ro.vendor.radio.manufacturer_id", "1"), 0);
  ASSERT_EQ(property_set("ro.radio.device_type", "7"), 0);
  ASSERT_EQ(property_set("ro.product.device", "marble"), 0);
  ASSERT_EQ(property_set("ro.product.odm.device", "marble_odm"), 0);
  ASSERT_EQ(property_set("ro.product.odm.name", "marble_global"), 0);
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

}  // namespace
