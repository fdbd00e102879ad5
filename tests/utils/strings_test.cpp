// String helpers: in-place trimming and its capacity cut, reverse search, white-space removal,
// splitting, comparison codes, bounded replace and prefix, case mapping, hex dump, list search.
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstring>
#include <string>
#include <vector>

#include "helpers.h"
#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"

using tarvik_test::CodeAndErrors;
using tarvik_test::SyslogContains;
using tarvik_test::SyslogDump;

namespace {

TEST(StrTrim, Table) {
  const struct {
    const char *name;
    std::string input;  // may hold bytes past its terminator
    int capacity;
    const char *expected;
  } rows[] = {
      {"both ends", "  ab \t", 8, "ab"},
      {"inner blanks kept", " a b ", 8, "a b"},
      {"blanks only", "   ", 8, ""},
      {"empty", "", 8, ""},
      {"every white-space byte", "\t\n\v\f\r x\r\n", 16, "x"},
      {"no terminator within capacity", "abcdefghiX", 4, "abc"},
      {"cut leaves trailing blanks", "ab  cdef", 4, "ab"},
      {"capacity all blanks", "    xyz", 4, ""},
      {"cut leaves only blanks after the start", "   x", 4, ""},
      {"terminator at last byte", "abc", 4, "abc"},
      {"leading NUL is an empty string", std::string("\0ab", 3), 8, ""},
      {"capacity under two: left alone", " a ", 1, " a "},
      {"negative capacity: left alone", " a ", -5, " a "},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    // The input, its terminator and "XY" after it: bytes from the capacity on are never written.
    const size_t capacity = static_cast<size_t>(std::max(row.capacity, 0));
    std::string buf = row.input;
    buf.resize(std::max(buf.size() + 1, capacity), '\0');
    buf += "XY";
    const std::string beyond = buf.substr(capacity);
    tarvik_str_trim(buf.data(), row.capacity);
    EXPECT_STREQ(buf.c_str(), row.expected);
    EXPECT_EQ(buf.substr(capacity), beyond);
  }
  EXPECT_TRUE(SyslogContains(
      "This string has no cut-off character, cnt_end = 4(max:4), new cnt_end = 3", LOG_DEBUG))
      << SyslogDump();
  EXPECT_TRUE(SyslogContains("str_len_max(1) can not < 2", LOG_ERR));
  tarvik_str_trim(nullptr, 10);
  EXPECT_TRUE(SyslogContains("str is null, str_len_max = 10", LOG_ERR));
}

TEST(StrFindRight, LastOccurrenceTerminatorAndMissing) {
  const char *s = "banana";
  EXPECT_EQ(tarvik_str_find_right(s, 'a'), s + 5);
  EXPECT_EQ(tarvik_str_find_right(s, 'b'), s);
  EXPECT_EQ(tarvik_str_find_right(s, '\0'), s + 6);
  EXPECT_EQ(tarvik_str_find_right(s, 'z'), nullptr);
  EXPECT_EQ(tarvik_str_find_right(nullptr, 'a'), nullptr);
  EXPECT_TRUE(SyslogContains("str_in is null", LOG_ERR));
}

TEST(RemoveWhitespace, NarrowDropsBlanksAndZeroBytesWideKeepsOthers) {
  const std::string in(" a\tb\0c\r\n", 8);
  EXPECT_EQ(tarvik_remove_string_whitespace(in), "abc");
  EXPECT_EQ(in.size(), 8u);  // the copying form leaves its argument alone
  std::string inplace = in;
  EXPECT_EQ(&tarvik_remove_string_whitespace_ex(inplace), &inplace);
  EXPECT_EQ(inplace, "abc");

  const std::wstring win = L" x\ty z\n";
  EXPECT_EQ(tarvik_remove_wstring_whitespace(win), L"xyz");
  std::wstring wplace = win;
  tarvik_remove_string_whitespace_ex(wplace);
  EXPECT_EQ(wplace, L"xyz");
}

TEST(StrSplit, Table) {
  struct Row {
    const char *name;
    const char *text;
    char delim;
    uint8_t strip;
    std::vector<std::string> expected;
  };
  const Row rows[] = {
      {"strip", "a,,b, c,", ',', 1, {"a", "b", "c"}},
      {"no strip keeps blanks", "a,,b, c,", ',', 0, {"a", "b", " c"}},
      {"blank field dropped only when stripping", "a, ,b", ',', 1, {"a", "b"}},
      {"blank field kept without stripping", "a, ,b", ',', 0, {"a", " ", "b"}},
      {"null text", nullptr, ',', 1, {}},
      {"no delimiter", "abc", ';', 0, {"abc"}},
      {"leading delimiters", ";;x", ';', 0, {"x"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(tarvik_str_split(row.text, row.delim, row.strip), row.expected);
  }
  // A field that starts with a zero byte is empty for the split and is dropped.
  EXPECT_EQ(tarvik_str_split(std::string("a,\0b,c", 6), ',', 0),
            (std::vector<std::string>{"a", "c"}));
}

TEST(StrCmp, Codes) {
  EXPECT_EQ(tarvik_str_cmp("abc", "abc"), 0);
  EXPECT_EQ(tarvik_str_cmp("abc", "abd"), 104);
  EXPECT_TRUE(SyslogContains("str1[2]('c') != str2[2]('d'), str1(3): abc, str2(3): abd", LOG_DEBUG))
      << SyslogDump();
  EXPECT_EQ(tarvik_str_cmp("abc", "ab"), -103);
  EXPECT_TRUE(SyslogContains("len1(3) != len2(2), str1: abc, str2: ab", LOG_DEBUG));
  EXPECT_EQ(tarvik_str_cmp(nullptr, nullptr), -101);
  EXPECT_EQ(tarvik_str_cmp("a", nullptr), -102);
  EXPECT_EQ(tarvik_str_cmp("", ""), 0);
}

TEST(StrPrint, OneLinePerCharacter) {
  tarvik_str_print("hi");
  EXPECT_TRUE(SyslogContains("Will print str(len = 2): hi"));
  EXPECT_TRUE(SyslogContains("str[0] = h(104)"));
  EXPECT_TRUE(SyslogContains("str[1] = i(105)"));
  tarvik_str_print(nullptr);
  EXPECT_TRUE(SyslogContains("str is NULL", LOG_DEBUG));
}

TEST(StrRpl, AppendsWithinTheCapacity) {
  const struct {
    const char *in, *src, *dst;
    int outlen;
    const char *expected;  // out, which held "p", then " | " and the error lines
  } rows[] = {
      {"aaa", "aa", "b", 16, "pba"},  // matches do not overlap
      {"a-b-c", "-", "::", 16, "pa::b::c"},
      {"x.y.z", ".", "", 16, "pxyz"},
      {"hello", "zz", "y", 16, "phello"},
      {"abXcd", "X", "12345", 8, "pab | len(3) + dst_len(5) + 1 >= outlen(8), abort"},
      {"abcdef", "X", "Y", 4, "pa | len(2) + 1 + 1 >= outlen(4), abort"},
      {"abc", "X", "Y", 0, "p | len(0) + 1 + 1 >= outlen(0), abort"},
      {"", "a", "b", 16, "p | in is empty"},
      {"abc", "", "b", 16, "p | src_len(0) can not <= 0"},
      {"x", nullptr, "b", 16, "p | src is null"},
      {"x", "a", nullptr, 16, "p | dst is null"},
      {nullptr, "a", "b", 16, "p | in is null"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.expected);
    tarvik_test::ClearSyslog();
    char out[32];
    memset(out, 0x7f, sizeof(out));
    strcpy(out, "p");
    tarvik_str_rpl(row.in, out, row.outlen, row.src, row.dst);
    const std::string errors = tarvik_test::LoggedBy("tarvik_str_rpl", LOG_ERR);
    EXPECT_EQ(out + (errors.empty() ? "" : " | " + errors), row.expected);
    if (row.outlen > 0) {
      EXPECT_EQ(out[row.outlen], 0x7f);  // nothing is written at or past the capacity
    }
  }
  tarvik_str_rpl("x", nullptr, 8, "a", "b");
  EXPECT_TRUE(SyslogContains("out is null", LOG_ERR));
}

TEST(StrAddPrefix, FitsExactlyAndRefusals) {
  char out[8] = "";
  tarvik_str_add_prefix("abc", out, 8, "1234");  // 7 characters and the NUL
  EXPECT_STREQ(out, "1234abc");

  char small[8] = "";
  tarvik_str_add_prefix("abcd", small, 8, "1234");
  EXPECT_STREQ(small, "");
  EXPECT_TRUE(SyslogContains("in_len(4) + prefix_len(4) can not >= outlen(8)", LOG_ERR));

  // Content already in out counts against the capacity too: never write past it.
  char used[8] = "xyz";
  tarvik_str_add_prefix("abc", used, 8, "cd");
  EXPECT_STREQ(used, "xyz");
  tarvik_str_add_prefix("a", used, 8, "b");
  EXPECT_STREQ(used, "xyzba");

  tarvik_str_add_prefix("a", out, 8, nullptr);
  tarvik_str_add_prefix(nullptr, out, 8, "p");
  tarvik_str_add_prefix("a", nullptr, 8, "p");
  for (const char *line : {"prefix is null", "in is null", "out is null"}) {
    EXPECT_TRUE(SyslogContains(line, LOG_ERR)) << line;
  }
}

TEST(StrCase, AsciiOnly) {
  char s[] = "Az09-\xc3\x89z[`@{";
  tarvik_str_toupper(s);
  EXPECT_STREQ(s, "AZ09-\xc3\x89Z[`@{");
  tarvik_str_tolower(s);
  EXPECT_STREQ(s, "az09-\xc3\x89z[`@{");
  tarvik_str_tolower(nullptr);
  EXPECT_TRUE(SyslogContains("str_in_out is null", LOG_ERR));
}

TEST(StrStartsWith, Table) {
  EXPECT_TRUE(tarvik_str_starts_with("rmnet_data0", "rmnet"));
  EXPECT_TRUE(tarvik_str_starts_with("abc", "abc"));
  EXPECT_TRUE(tarvik_str_starts_with("abc", ""));
  EXPECT_TRUE(tarvik_str_starts_with("", ""));
  EXPECT_FALSE(tarvik_str_starts_with("", "a"));
  EXPECT_FALSE(tarvik_str_starts_with("ab", "abc"));
  EXPECT_FALSE(tarvik_str_starts_with(nullptr, "a"));
  EXPECT_FALSE(tarvik_str_starts_with("a", nullptr));
}

TEST(HexStr, BoundsAndRefusals) {
  const uint8_t data[] = {0x0A, 0xFF, 0x00};
  const auto hex = [&data](int len_max, int data_len) {
    char out[16];
    return tarvik_get_hex_str(out, len_max, data, data_len) ? std::string(out) : "<refused>";
  };
  EXPECT_EQ(hex(16, 2), " 0A FF");
  EXPECT_EQ(hex(7, 3), " 0A");  // a byte needs four places, the NUL included
  EXPECT_EQ(hex(8, 3), " 0A FF");
  EXPECT_EQ(hex(16, 0), "");
  EXPECT_EQ(hex(16, -3), "");
  EXPECT_EQ(hex(5, 1), " 0A");
  EXPECT_EQ(hex(4, 1), "<refused>");

  const char *fn = "tarvik_get_hex_str";
  char out[16];
  tarvik_test::ClearSyslog();
  EXPECT_EQ(CodeAndErrors(tarvik_get_hex_str(nullptr, 16, data, 2), fn), "0 hex_str is null");
  EXPECT_EQ(CodeAndErrors(tarvik_get_hex_str(out, 4, data, 2), fn), "0 len_max is invalid");
  EXPECT_EQ(CodeAndErrors(tarvik_get_hex_str(out, 16, nullptr, 2), fn), "0 ptr_data is null");
}

TEST(StringListContain, SubstringOfValueAndArgumentFaults) {
  const char *fn = "tarvik_string_list_contain";
  const char *list[] = {"rmnet", "wlan"};
  EXPECT_TRUE(tarvik_string_list_contain(list, 2, "rmnet_data0"));
  EXPECT_TRUE(SyslogContains("find str: rmnet_data0, size_list(2)", LOG_DEBUG));
  const char *cn[] = {"cn"};
  EXPECT_TRUE(tarvik_string_list_contain(cn, 1, "cn_global"));
  const char *with_null[] = {nullptr, "x"};
  EXPECT_TRUE(tarvik_string_list_contain(with_null, 2, "box"));
  tarvik_test::ClearSyslog();
  // The entry must be inside the value, and only size_list entries count.
  EXPECT_EQ(CodeAndErrors(tarvik_string_list_contain(list, 2, "rmn"), fn),
            "0 not find str: rmn, size_list(2)");
  EXPECT_EQ(CodeAndErrors(tarvik_string_list_contain(list, 1, "wlan0"), fn),
            "0 not find str: wlan0, size_list(1)");
  EXPECT_EQ(CodeAndErrors(tarvik_string_list_contain(list, 2, nullptr), fn), "0 str is NULL");
  EXPECT_EQ(CodeAndErrors(tarvik_string_list_contain(nullptr, 2, "a"), fn), "0 str_list is NULL");
  EXPECT_EQ(CodeAndErrors(tarvik_string_list_contain(list, 0, "a"), fn),
            "0 size_list(0) can not <= 0");
}

}  // namespace
