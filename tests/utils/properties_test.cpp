// Property wrappers over the store stand-in: argument codes, the 92-character write limit, name
// truncation, typed conversions, the subscription helpers and the once-per-process tracing
// decision. Each test runs in a process of its own with an empty store.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstring>
#include <string>

#include "helpers.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"

using tarvik_test::SyslogContains;
using tarvik_test::SyslogCount;
using tarvik_test::SyslogDump;

namespace {

std::string Get(const char *name, const char *def = "<unset>") {
  char value[TARVIK_PROPERTY_BUF_SIZE];
  memset(value, 0, sizeof(value));
  tarvik_get_property_value(name, value, def);
  return value;
}

TEST(PropertyValue, WriteLimitIs92CharactersGetReturnsLengthOrDefault) {
  const std::string fits(92, 'v');
  EXPECT_EQ(tarvik_set_property_value("persist.test.limit", fits.c_str()), 0);
  EXPECT_EQ(Get("persist.test.limit"), fits);
  EXPECT_EQ(tarvik_set_property_value("persist.test.limit", std::string(93, 'w').c_str()), -3);
  EXPECT_TRUE(SyslogContains("property_value len(93) is out of range(92)", LOG_ERR))
      << SyslogDump();
  EXPECT_EQ(Get("persist.test.limit"), fits);  // nothing written

  char value[TARVIK_PROPERTY_BUF_SIZE];
  EXPECT_EQ(tarvik_get_property_value("persist.test.unset", value, "fallback"), 8);
  EXPECT_STREQ(value, "fallback");
  ASSERT_EQ(tarvik_set_property_value("persist.test.set", "abc"), 0);
  EXPECT_EQ(tarvik_get_property_value("persist.test.set", value, "fallback"), 3);
  EXPECT_STREQ(value, "abc");
}

TEST(PropertyValue, NamesLongerThan255AreCut) {
  const std::string prefix = "persist.test." + std::string(255 - 13, 'n');
  ASSERT_EQ(prefix.size(), 255u);
  const std::string long_name = prefix + "tail-that-is-dropped";
  ASSERT_EQ(tarvik_set_property_value(long_name.c_str(), "cut"), 0);
  EXPECT_EQ(Get(prefix.c_str()), "cut");              // written under the first 255 characters
  EXPECT_EQ(Get((prefix + "other").c_str()), "cut");  // and read back the same way
}

TEST(PropertyValue, MissingArgumentsGiveTheirCodes) {
  using tarvik_test::CodeAndErrors;
  const char *get = "tarvik_get_property_value", *set = "tarvik_set_property_value";
  char value[TARVIK_PROPERTY_BUF_SIZE] = "untouched";
  tarvik_test::ClearSyslog();
  EXPECT_EQ(CodeAndErrors(tarvik_get_property_value(nullptr, value, "d"), get),
            "-1 property_name is null");
  EXPECT_EQ(CodeAndErrors(tarvik_get_property_value("persist.test.a", nullptr, "d"), get),
            "-2 property_value is null");
  EXPECT_EQ(CodeAndErrors(tarvik_get_property_value("persist.test.a", value, nullptr), get),
            "-3 default_property_value is null");
  EXPECT_EQ(CodeAndErrors(tarvik_set_property_value(nullptr, "v"), set),
            "-1 property_name is null");
  EXPECT_EQ(CodeAndErrors(tarvik_set_property_value("persist.test.a", nullptr), set),
            "-2 property_value is null");
  EXPECT_STREQ(value, "untouched");
  EXPECT_EQ(Get("persist.test.a"), "<unset>");
}

TEST(PropertyTyped, IntAndBooleanConversions) {
  ASSERT_EQ(tarvik_set_property_value_to_int("persist.test.int", INT32_MIN), 0);
  EXPECT_EQ(Get("persist.test.int"), "-2147483648");
  ASSERT_EQ(tarvik_set_property_value_to_boolean("persist.test.b1", 1), 0);
  EXPECT_EQ(Get("persist.test.b1"), "true");
  ASSERT_EQ(tarvik_set_property_value_to_boolean("persist.test.b2", 2), 0);  // only 1 is true
  EXPECT_EQ(Get("persist.test.b2"), "false");

  // A stored text read as an int (atoi; the default -42 only when unset) and as a flag (only
  // "true" and "false" count, else the default 7).
  const struct {
    const char *stored;  // nullptr: unset
    int32_t as_int;
    uint8_t as_flag;
  } rows[] = {{nullptr, -42, 7}, {"", -42, 7},     {"-2147483648", INT32_MIN, 7},
              {"abc", 0, 7},     {"12xyz", 12, 7}, {"true", 0, 1},
              {"false", 0, 0},   {"1", 1, 7},      {"yes", 0, 7},
              {"TRUE", 0, 7},    {"true ", 0, 7}};
  int n = 0;
  for (const auto &row : rows) {
    const std::string name = "persist.test.v" + std::to_string(n++);
    SCOPED_TRACE(name + " = " + (row.stored ? row.stored : "(unset)"));
    if (row.stored != nullptr) {
      ASSERT_EQ(tarvik_set_property_value(name.c_str(), row.stored), 0);
    }
    int32_t out = 5;
    EXPECT_EQ(tarvik_get_property_value_from_int(name.c_str(), &out, -42), row.as_int);
    EXPECT_EQ(out, row.as_int);
    EXPECT_EQ(tarvik_get_property_value_from_int(name.c_str(), nullptr, -42), row.as_int);
    uint8_t flag = 0xAA;
    EXPECT_EQ(tarvik_get_property_value_from_boolean(name.c_str(), &flag, 7),
              static_cast<int>(row.stored != nullptr ? strlen(row.stored) : 0));
    EXPECT_EQ(flag, row.as_flag);
  }
  EXPECT_EQ(tarvik_get_property_value_from_boolean("persist.test.b1", nullptr, 1), -2);
  uint8_t flag = 0xAA;
  EXPECT_EQ(tarvik_get_property_value_from_boolean(nullptr, &flag, 1), -1);
  EXPECT_EQ(flag, 1);
}

TEST(SubscriptionHelpers, MasksAndSelectionProperties) {
  EXPECT_EQ(tarvik_get_sub_mask_by_id(0), 1);
  EXPECT_EQ(tarvik_get_sub_mask_by_id(1), 2);
  EXPECT_EQ(tarvik_get_sub_mask_by_id(2), 0);
  EXPECT_EQ(tarvik_get_sub_mask_by_id(TARVIK_SUB_NONE), 0);
  EXPECT_EQ(tarvik_get_sub_mask_by_id(0x80000000u), 0);
  for (int mask : {1, 2, 3}) {
    EXPECT_TRUE(tarvik_check_sub_mask(mask)) << mask;
  }
  for (int mask : {0, 4, -1, INT32_MIN}) {
    EXPECT_FALSE(tarvik_check_sub_mask(mask)) << mask;
  }

  EXPECT_EQ(tarvik_get_default_data_sub(), 0);
  EXPECT_EQ(tarvik_get_active_call_sub(), 8);
  ASSERT_EQ(tarvik_update_default_data_sub(1), 0);
  ASSERT_EQ(tarvik_update_active_call_sub(0), 0);
  EXPECT_EQ(tarvik_get_default_data_sub(), 1);  // read on every call
  EXPECT_EQ(tarvik_get_active_call_sub(), 0);
  char value[TARVIK_PROPERTY_BUF_SIZE];
  property_get("persist.radio.default_data_sub", value, "");
  EXPECT_STREQ(value, "1");
}

TEST(PropertyTracing, OnByDefaultWithReadBack) {
  EXPECT_EQ(tarvik_utils_get_prop_print_flag(), 1);
  EXPECT_TRUE(SyslogContains("prop print is started"));
  ASSERT_EQ(tarvik_set_property_value("persist.test.trace", "val"), 0);
  EXPECT_TRUE(SyslogContains("persist.test.trace: val, ret = 0", LOG_DEBUG)) << SyslogDump();
  EXPECT_TRUE(SyslogContains("persist.test.trace: val, ret = 3", LOG_DEBUG));  // the read-back
  tarvik_print_property_value("persist.test.none");
  EXPECT_TRUE(SyslogContains("persist.test.none: null_val, ret = 8", LOG_DEBUG));
  tarvik_print_property_value(nullptr);
  EXPECT_TRUE(SyslogContains("property_name is null", LOG_ERR));
  EXPECT_EQ(SyslogCount("prop print is started"), 1u);
}

TEST(PropertyTracing, DecidedOncePerProcess) {
  ASSERT_EQ(property_set("persist.vendor.radio.print_prop", "0"), 0);
  ASSERT_EQ(tarvik_set_property_value("persist.test.quiet", "v"), 0);
  EXPECT_TRUE(SyslogContains("prop print is stoped"));
  ASSERT_EQ(tarvik_set_property_value("persist.vendor.radio.print_prop", "1"), 0);
  EXPECT_EQ(tarvik_utils_get_prop_print_flag(), 0);
  EXPECT_EQ(Get("persist.test.quiet"), "v");
  tarvik_print_property_value(nullptr);  // tracing off: not even the argument is looked at
  EXPECT_FALSE(SyslogContains("persist.test.quiet:")) << SyslogDump();
  EXPECT_FALSE(SyslogContains("property_name is null"));
}

}  // namespace
