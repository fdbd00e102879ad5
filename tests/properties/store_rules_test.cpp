// The rules of the property store within one process: names, value limits, ro.* and ctl.*, the
// reading defaults, listing, and what a hand-edited store file does to readers.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cutils/properties.h"
#include "property_host.h"
#include "test_env.h"

namespace {

std::string Get(const std::string &key, const char *def = "<unset>") {
  char value[PROPERTY_VALUE_MAX + 1];
  memset(value, 'x', sizeof value);
  const int n = property_get(key.c_str(), value, def);
  EXPECT_EQ(n, static_cast<int>(strlen(value))) << key;
  return value;
}

std::string ReadStoreFile() {
  std::ifstream in(tarvik_test::PropertyDir() + "/properties");
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs ListAll() {
  Pairs out;
  EXPECT_EQ(property_list([](const char *k, const char *v,
                             void *cookie) { static_cast<Pairs *>(cookie)->emplace_back(k, v); },
                          &out),
            0);
  return out;
}

// Each row sets a value and reads it back: names, value lengths, ro.* written once, values that
// hold the store's separators, ctl.* requests that are never stored.
TEST(PropertyStore, SetThenGetRules) {
  const std::string longest(PROPERTY_NAME_MAX_HOST, 'n');
  const std::string max(PROPERTY_VALUE_MAX, 'a');
  const std::string over(PROPERTY_VALUE_MAX + 1, 'b');
  const struct {
    std::string name, value;
    int status;
    std::string read;  // after the set
  } rows[] = {
      {"persist.vendor.radio.adb_log_qz", "v", 0, "v"},
      {"vendor.a-b_c@d:e.9", "v", 0, "v"},
      {"x", "v", 0, "v"},
      {longest, "v", 0, "v"},
      {longest + "n", "v", -1, "<unset>"},
      {"", "v", -1, "<unset>"},
      {".leading", "v", -1, "<unset>"},
      {"trailing.", "v", -1, "<unset>"},
      {"double..dot", "v", -1, "<unset>"},
      {"has space", "v", -1, "<unset>"},
      {"tab\tname", "v", -1, "<unset>"},
      {"new\nline", "v", -1, "<unset>"},
      {"slash/name", "v", -1, "<unset>"},
      {"equals=sign", "v", -1, "<unset>"},
      {"uml\xc3\xa4ut", "v", -1, "<unset>"},
      {"test.len", max, 0, max},
      {"test.len", over, -1, max},  // a refused value leaves the old one
      {"test.len.new", over, -1, "<unset>"},
      {"ro.test.serial", "first", 0, "first"},
      {"ro.test.serial", "second", -1, "first"},
      {"ro.test.serial", "first", -1, "first"},
      {"rox.test", "1", 0, "1"},  // only the "ro." prefix is read-only
      {"rox.test", "2", 0, "2"},
      {"vendor.ro.test", "1", 0, "1"},
      {"vendor.ro.test", "2", 0, "2"},
      {"test.sep0", "a\tb", 0, "a\tb"},
      {"test.sep1", "line1\nline2", 0, "line1\nline2"},
      {"test.sep2", "back\\slash", 0, "back\\slash"},
      {"test.sep3", "\\n literally", 0, "\\n literally"},
      {"test.sep4", "=;# \x7f", 0, "=;# \x7f"},
      {"test.sep5", "\xc3\xa4\xc3\xb6", 0, "\xc3\xa4\xc3\xb6"},
      {"ctl.start", "vendor.qcrild", 0, "<unset>"},
      {"ctl.stop", "vendor.ipacm", 0, "<unset>"},
      {"ctl.start", std::string(PROPERTY_VALUE_MAX + 1, 's'), -1, "<unset>"},
      {"ctl.start", "vendor.qcrild2", 0, "<unset>"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name + "=" + row.value);
    EXPECT_EQ(property_set(row.name.c_str(), row.value.c_str()), row.status);
    EXPECT_EQ(Get(row.name), row.read);
  }
  EXPECT_EQ(property_set(nullptr, "v"), -1);
  // Stored: 4 names, test.len, ro.test.serial, rox.test, vendor.ro.test, 6 separators; the store
  // stays one record per line whatever the values hold.
  EXPECT_EQ(ListAll().size(), 14u);
  const std::string store = ReadStoreFile();
  EXPECT_EQ(std::count(store.begin(), store.end(), '\n'), 1 + 14);

  std::string requests;
  EXPECT_EQ(property_ctl_requests(
                [](const char *n, const char *v, int pid, void *cookie) {
                  *static_cast<std::string *>(cookie) +=
                      std::string(n) + "=" + v + "@" + std::to_string(pid) + ";";
                },
                &requests),
            3);
  const std::string pid = "@" + std::to_string(getpid()) + ";";
  EXPECT_EQ(requests, "ctl.start=vendor.qcrild" + pid + "ctl.stop=vendor.ipacm" + pid +
                          "ctl.start=vendor.qcrild2" + pid);
  EXPECT_EQ(property_ctl_requests(nullptr, nullptr), -1);
}

TEST(PropertyStore, ReadDefaults) {
  char value[PROPERTY_VALUE_MAX + 1];
  EXPECT_EQ(property_get("test.unset", value, nullptr), 0);
  EXPECT_STREQ(value, "");
  const std::string long_default(200, 'd');
  EXPECT_EQ(property_get("test.unset", value, long_default.c_str()), PROPERTY_VALUE_MAX);
  EXPECT_EQ(std::string(value), long_default.substr(0, PROPERTY_VALUE_MAX));
  EXPECT_EQ(property_get(nullptr, value, "dflt"), 4);
  EXPECT_STREQ(value, "dflt");
  EXPECT_EQ(property_get("test.unset", nullptr, "dflt"), -1);

  // An empty value reads like an unset one; NULL sets the empty value.
  ASSERT_EQ(property_set("test.empty", "full"), 0);
  ASSERT_EQ(property_set("test.empty", nullptr), 0);
  EXPECT_EQ(Get("test.empty", "dflt"), "dflt");
}

TEST(PropertyStore, ListIsSortedAndCallbacksMayReadTheStore) {
  for (const char *name : {"b.two", "a.one", "c.three"}) {
    ASSERT_EQ(property_set(name, name), 0);
  }
  Pairs seen;
  // The callback reads the store again: listing must not hold anything that blocks it.
  ASSERT_EQ(property_list(
                [](const char *k, const char *, void *cookie) {
                  char v[PROPERTY_VALUE_MAX + 1];
                  property_get(k, v, "");
                  static_cast<Pairs *>(cookie)->emplace_back(k, v);
                },
                &seen),
            0);
  EXPECT_EQ(seen, (Pairs{{"a.one", "a.one"}, {"b.two", "b.two"}, {"c.three", "c.three"}}));
  EXPECT_EQ(property_list(nullptr, nullptr), -1);
}

// Written before the first property call of this process, so the first read loads it.
TEST(PropertyStore, MalformedStoreLinesAreSkipped) {
  {
    std::ofstream out(tarvik_test::PropertyDir() + "/properties");
    out << "# tarvik property store 1\n"
        << "good.one\tvalue one\n"
        << "no tab here\n"
        << "bad name\tx\n"
        << "bad.escape\tend\\q\n"
        << "too.long\t" << std::string(PROPERTY_VALUE_MAX + 1, 'l') << "\n"
        << "dup.name\tfirst\n"
        << "dup.name\tsecond\n"
        << "good.two\t\\ttabbed\n"
        << "cut.off\tno newline";
  }
  EXPECT_EQ(std::string(property_store_dir()), tarvik_test::PropertyDir());
  EXPECT_EQ(ListAll(),
            (Pairs{{"dup.name", "second"}, {"good.one", "value one"}, {"good.two", "\ttabbed"}}));
  // A write rewrites the store in the canonical form, dropping what could not be read.
  ASSERT_EQ(property_set("good.three", "3"), 0);
  EXPECT_EQ(ReadStoreFile(),
            "# tarvik property store 1\ndup.name\tsecond\ngood.one\tvalue one\ngood.three\t3\n"
            "good.two\t\\ttabbed\n");
}

// A store this process cannot lock (here the lock is a directory) is still readable: every read
// goes to the file, since there is no change counter to trust a cached copy by.
TEST(PropertyStore, StoreWithoutUsableLockIsReadUncachedAndRefusesWrites) {
  const std::string dir = tarvik_test::PropertyDir();
  ASSERT_EQ(mkdir((dir + "/lock").c_str(), 0755), 0);
  for (const char *value : {"one", "two"}) {
    std::ofstream(dir + "/properties", std::ios::trunc)
        << "# tarvik property store 1\ntest.ro_store\t" << value << "\n";
    EXPECT_EQ(Get("test.ro_store"), value);
  }
  EXPECT_EQ(property_set("test.ro_store", "three"), -1);
  EXPECT_EQ(property_set("ctl.start", "svc"), -1);
  EXPECT_EQ(Get("test.ro_store"), "two");
}

}  // namespace
