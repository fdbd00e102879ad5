// The rules of the property store within one process: names, value limits, ro.* and ctl.*, the
// reading defaults, listing, and what a hand-edited store file does to readers.
#include <gtest/gtest.h>
#include <stdio.h>
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

std::string ReadStoreFile(const char *name) {
  std::ifstream in(tarvik_test::PropertyDir() + "/" + name);
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

TEST(PropertyStore, UsesTheDirectoryOfTheEnvironment) {
  EXPECT_EQ(std::string(property_store_dir()), tarvik_test::PropertyDir());
  ASSERT_EQ(property_set("persist.test.where", "here"), 0);
  EXPECT_NE(ReadStoreFile("properties").find("persist.test.where\there\n"), std::string::npos);
}

TEST(PropertyStore, NameRules) {
  const std::string longest(PROPERTY_NAME_MAX_HOST, 'n');
  const struct {
    std::string name;
    bool legal;
  } rows[] = {
      {"persist.vendor.radio.adb_log_qz", true},
      {"vendor.a-b_c@d:e.9", true},
      {"x", true},
      {longest, true},
      {longest + "n", false},
      {"", false},
      {".leading", false},
      {"trailing.", false},
      {"double..dot", false},
      {"has space", false},
      {"tab\tname", false},
      {"new\nline", false},
      {"slash/name", false},
      {"equals=sign", false},
      {"uml\xc3\xa4ut", false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(property_set(row.name.c_str(), "v"), row.legal ? 0 : -1);
    EXPECT_EQ(Get(row.name), row.legal ? "v" : "<unset>");
  }
  EXPECT_EQ(property_set(nullptr, "v"), -1);
  EXPECT_EQ(ListAll().size(), 4u);
}

TEST(PropertyStore, ValueLengthLimit) {
  const std::string max(PROPERTY_VALUE_MAX, 'a');
  ASSERT_EQ(property_set("test.len", max.c_str()), 0);
  EXPECT_EQ(Get("test.len"), max);
  const std::string over(PROPERTY_VALUE_MAX + 1, 'b');
  EXPECT_EQ(property_set("test.len", over.c_str()), -1);
  EXPECT_EQ(Get("test.len"), max) << "a refused value must leave the old one";
  EXPECT_EQ(property_set("test.len.new", over.c_str()), -1);
  EXPECT_EQ(Get("test.len.new"), "<unset>");
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

TEST(PropertyStore, ValuesWithSeparatorsRoundTrip) {
  const std::string rows[] = {"a\tb",          "line1\nline2", "back\\slash",
                              "\\n literally", "=;# \x7f",     "\xc3\xa4\xc3\xb6"};
  for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
    SCOPED_TRACE(rows[i]);
    const std::string name = "test.sep" + std::to_string(i);
    ASSERT_EQ(property_set(name.c_str(), rows[i].c_str()), 0);
    EXPECT_EQ(Get(name), rows[i]);
  }
  // The store stays one record per line whatever the values hold.
  const std::string store = ReadStoreFile("properties");
  EXPECT_EQ(std::count(store.begin(), store.end(), '\n'), 1 + 6);
}

TEST(PropertyStore, ReadOnlyPropertiesAreWrittenOnce) {
  ASSERT_EQ(property_set("ro.test.serial", "first"), 0);
  EXPECT_EQ(property_set("ro.test.serial", "second"), -1);
  EXPECT_EQ(property_set("ro.test.serial", "first"), -1);
  EXPECT_EQ(Get("ro.test.serial"), "first");
  // Only the "ro." prefix is read-only.
  ASSERT_EQ(property_set("rox.test", "1"), 0);
  EXPECT_EQ(property_set("rox.test", "2"), 0);
  ASSERT_EQ(property_set("vendor.ro.test", "1"), 0);
  EXPECT_EQ(property_set("vendor.ro.test", "2"), 0);
}

TEST(PropertyStore, ControlRequestsAreRecordedNotStored) {
  ASSERT_EQ(property_set("ctl.start", "vendor.qcrild"), 0);
  ASSERT_EQ(property_set("ctl.stop", "vendor.ipacm"), 0);
  ASSERT_EQ(property_set("ctl.start", "vendor.qcrild2"), 0);
  EXPECT_EQ(Get("ctl.start"), "<unset>");
  EXPECT_TRUE(ListAll().empty());

  struct Seen {
    std::string name, value;
    int pid;
  };
  std::vector<Seen> seen;
  EXPECT_EQ(property_ctl_requests(
                [](const char *n, const char *v, int pid, void *cookie) {
                  static_cast<std::vector<Seen> *>(cookie)->push_back({n, v, pid});
                },
                &seen),
            3);
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0].name + "=" + seen[0].value, "ctl.start=vendor.qcrild");
  EXPECT_EQ(seen[1].name + "=" + seen[1].value, "ctl.stop=vendor.ipacm");
  EXPECT_EQ(seen[2].name + "=" + seen[2].value, "ctl.start=vendor.qcrild2");
  EXPECT_EQ(seen[0].pid, static_cast<int>(getpid()));
  EXPECT_EQ(property_ctl_requests(nullptr, nullptr), -1);
  EXPECT_EQ(property_set("ctl.start", std::string(PROPERTY_VALUE_MAX + 1, 's').c_str()), -1);
}

TEST(PropertyStore, ListIsSortedAndCallbacksMayReadTheStore) {
  ASSERT_EQ(property_set("b.two", "2"), 0);
  ASSERT_EQ(property_set("a.one", "1"), 0);
  ASSERT_EQ(property_set("c.three", "3"), 0);
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
  EXPECT_EQ(seen, (Pairs{{"a.one", "1"}, {"b.two", "2"}, {"c.three", "3"}}));
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
  EXPECT_EQ(ListAll(),
            (Pairs{{"dup.name", "second"}, {"good.one", "value one"}, {"good.two", "\ttabbed"}}));
  // A write rewrites the store in the canonical form, dropping what could not be read.
  ASSERT_EQ(property_set("good.three", "3"), 0);
  EXPECT_EQ(ReadStoreFile("properties"),
            "# tarvik property store 1\ndup.name\tsecond\ngood.one\tvalue one\ngood.three\t3\n"
            "good.two\t\\ttabbed\n");
}

}  // namespace

// A store this process cannot lock (here the lock is a directory) is still readable: every read
// goes to the file, since there is no change counter to trust a cached copy by.
TEST(PropertyStore, StoreWithoutUsableLockIsReadUncachedAndRefusesWrites) {
  const std::string dir = tarvik_test::PropertyDir();
  ASSERT_EQ(mkdir((dir + "/lock").c_str(), 0755), 0);
  auto write_store = [&](const char *value) {
    std::ofstream out(dir + "/properties", std::ios::trunc);
    out << "# tarvik property store 1\ntest.ro_store\t" << value << "\n";
  };
  write_store("one");
  EXPECT_EQ(Get("test.ro_store"), "one");
  write_store("two");
  EXPECT_EQ(Get("test.ro_store"), "two");
  EXPECT_EQ(property_set("test.ro_store", "three"), -1);
  EXPECT_EQ(property_set("ctl.start", "svc"), -1);
  EXPECT_EQ(Get("test.ro_store"), "two");
}
