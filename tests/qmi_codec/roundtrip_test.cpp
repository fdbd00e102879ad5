// Encoding and decoding of well-formed records: every element kind round-trips, hand-written
// messages encode byte for byte, and a table's largest encoding is what it announces.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "codec_test_util.h"
#include "common_v01.h"

namespace {

using namespace codec_tables;
using codec_test::FromHex;
using codec_test::Hex;
using codec_test::Zeroed;

// Encodes `rec`, decodes the bytes into a record full of garbage and expects the original back.
template <typename T>
std::vector<uint8_t> ExpectRoundTrip(const qmi_elem_info *ei, const T &rec) {
  const std::vector<uint8_t> wire = codec_test::Encoded(ei, rec);
  T back;
  memset(static_cast<void *>(&back), 0xA5, sizeof back);
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR,
            qmi_idl_decode_elems(ei, wire.data(), static_cast<uint32_t>(wire.size()), &back,
                                 sizeof back));
  EXPECT_EQ(0, memcmp(&rec, &back, sizeof rec)) << "decoded record differs; wire: " << Hex(wire);
  return wire;
}

TEST(CodecRoundTrip, EveryElementKind) {
  struct Row {
    const char *name;
    std::function<AllKinds()> make;
  };
  const Row rows[] = {
      {"every array and string at its maximum", [] { return codec_test::FilledAllKinds(true); }},
      {"partly filled, optional struct absent", [] { return codec_test::FilledAllKinds(false); }},
      {"all zero, optional TLVs absent", [] { return Zeroed<AllKinds>(); }},
      {"optional TLVs present but empty",
       [] {
         auto r = Zeroed<AllKinds>();
         r.opt_mids_valid = r.opt_text_valid = r.opt_bytes_valid = r.opt_u32_valid = 1;
         r.s32 = kModeHigh;
         r.s8 = 127;
         return r;
       }},
      {"2-byte count just above one byte",
       [] {
         auto r = Zeroed<AllKinds>();
         r.var2_len = 256;
         r.var2[255] = 0x7777;
         return r;
       }},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    ExpectRoundTrip(kAllKindsEi, row.make());
  }
}

TEST(CodecRoundTrip, NestedVariableArraysOfStructs) {
  auto ind = Zeroed<AggInd>();
  ind.a = 5;
  ind.b = 0xFFFFFFFF;
  for (uint32_t i = 0; i < 10; ++i) {
    ind.list[i].n = i % 6;
    for (uint32_t k = 0; k < ind.list[i].n; ++k) {
      ind.list[i].items[k].stamp = (uint64_t{i} << 32) | k;
      ind.list[i].items[k].v[3] = 100 * i + k;
    }
  }
  const std::vector<uint8_t> wire = ExpectRoundTrip(kAggIndEi, ind);
  // Each of the ten aggregates is its count byte plus 24 bytes per element.
  uint32_t expected = 7 + 7 + 3;
  for (uint32_t i = 0; i < 10; ++i) expected += 1 + 24 * (i % 6);
  EXPECT_EQ(expected, wire.size());
}

TEST(CodecRoundTrip, DecodedTextEndsAtFirstNul) {
  // "ab\0cd" as a TLV string and as a nested one: the record keeps "ab" and stays terminated.
  const std::vector<uint8_t> top = FromHex("01 05 00 61 62 00 63 64");
  struct Txt {
    char s[6];
  };
  constexpr qmi_elem_info kTxtEi[] = {QMI_TLV_STRING(5, 0x01, Txt, s), QMI_EI_END};
  Txt t;
  memset(&t, 0x55, sizeof t);
  ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_decode_elems(kTxtEi, top.data(), 8, &t, sizeof t));
  EXPECT_EQ(0, memcmp(t.s, "ab\0\0\0\0", 6));
}

// Hand-written messages, compared byte for byte.
TEST(CodecExactBytes, HandWrittenMessages) {
  struct Row {
    const char *name;
    std::function<void(Small &)> fill;
    const char *hex;
  };
  const Row rows[] = {
      {"counts, nested count and string, TLV string",
       [](Small &s) {
         s.id = 0x11223344;
         s.list_len = 2;
         s.list[0] = 0xAA;
         s.list[1] = 0xBB;
         s.pair.a = 0x0102;
         s.pair.vals_len = 1;
         s.pair.vals[0] = 5;
         strcpy(s.pair.label, "hi");
         s.name_valid = 1;
         strcpy(s.name, "ok");
       },
       "01 04 00 44 33 22 11  02 03 00 02 aa bb  03 0b 00 02 01 01 00 05 00 00 00 02 68 69"
       "  11 02 00 6f 6b"},
      {"empty arrays, signed enum, empty optional string",
       [](Small &s) {
         s.opt_valid = 1;
         s.opt = -2;
         s.name_valid = 1;
       },
       "01 04 00 00 00 00 00  02 01 00 00  03 05 00 00 00 00 00 00  10 02 00 fe ff  11 00 00"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    auto s = Zeroed<Small>();
    row.fill(s);
    EXPECT_EQ(Hex(FromHex(row.hex)), Hex(ExpectRoundTrip(kSmallEi, s)));
  }
}

TEST(CodecExactBytes, GenericRecordSendsTheWholeDataArray) {
  auto g = Zeroed<Generic>();
  g.id = 2;
  g.data_len = 3;
  g.data_valid = 1;
  memcpy(g.data, "abc", 3);
  std::vector<uint8_t> want =
      FromHex("01 04 00 02 00 00 00  02 04 00 03 00 00 00  10 26 02 61 62 63");
  want.resize(567, 0);
  EXPECT_EQ(Hex(want), Hex(ExpectRoundTrip(kGenericEi, g)));

  g.data_valid = 0;  // absent: the data bytes are not sent, and decode leaves them zero
  memset(g.data, 0, sizeof g.data);
  EXPECT_EQ("01 04 00 02 00 00 00 02 04 00 03 00 00 00", Hex(ExpectRoundTrip(kGenericEi, g)));
}

// The standard response: two 4-byte enums in the record, two u16 on the wire.
TEST(CodecExactBytes, StandardResponseSendsItsEnumsInTwoBytes) {
  struct Resp {
    qmi_response_type_v01 resp;
  };
  constexpr qmi_elem_info kRespEi[] = {QMI_TLV_RESPONSE(Resp, resp), QMI_EI_END};
  auto r = Zeroed<Resp>();
  r.resp.result = QMI_RESULT_FAILURE_V01;
  r.resp.error = QMI_ERR_INVALID_ARG_V01;
  EXPECT_EQ("02 04 00 01 00 30 00", Hex(ExpectRoundTrip(kRespEi, r)));

  const std::vector<uint8_t> negative = FromHex("02 04 00 ff ff 00 80");
  ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_decode_elems(kRespEi, negative.data(), 7, &r, sizeof r));
  EXPECT_EQ(r.resp.result, -1);  // sign-extended into the 4-byte field
  EXPECT_EQ(r.resp.error, -0x8000);

  uint8_t out[16];
  uint32_t len = 0;
  for (int32_t wide : {0x8000, -0x8001}) {
    SCOPED_TRACE(wide);
    r.resp.error = static_cast<qmi_error_type_v01>(wide);
    EXPECT_EQ(QMI_IDL_LIB_RANGE_FAILURE,
              qmi_idl_encode_elems(kRespEi, &r, sizeof r, out, sizeof out, &len));
  }
}

TEST(CodecMaxLen, LargestEncodingIsTheTablesMaximum) {
  struct Row {
    const char *name;
    const qmi_elem_info *ei;
    std::vector<uint8_t> record;
    uint32_t expected;
  };
  auto bytes = [](const auto &r) {
    const uint8_t *p = reinterpret_cast<const uint8_t *>(&r);
    return std::vector<uint8_t>(p, p + sizeof r);
  };
  auto generic = Zeroed<Generic>();
  generic.data_valid = 1;
  auto agg = Zeroed<AggInd>();
  for (Agg2 &a : agg.list) a.n = 5;
  auto small = Zeroed<Small>();
  small.list_len = 4;
  small.pair.vals_len = 2;
  strcpy(small.pair.label, "abc");
  small.opt_valid = small.name_valid = 1;
  strcpy(small.name, "abcde");
  const Row rows[] = {
      {"every kind", kAllKindsEi, bytes(codec_test::FilledAllKinds(true)), kAllKindsMaxLen},
      {"generic record", kGenericEi, bytes(generic), 567},
      {"aggregate indication", kAggIndEi, bytes(agg), 1227},
      {"small", kSmallEi, bytes(small), 7 + (3 + 1 + 4) + (3 + 2 + 2 + 8 + 4) + 5 + 8},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    uint32_t max_len = 0;
    ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_max_elems_len(row.ei, &max_len));
    EXPECT_EQ(row.expected, max_len);
    EXPECT_EQ(row.expected, qmi_ei_max_len(row.ei));
    std::vector<uint8_t> wire(max_len + 16);
    uint32_t n = 0;
    ASSERT_EQ(
        QMI_IDL_LIB_NO_ERR,
        qmi_idl_encode_elems(row.ei, row.record.data(), static_cast<uint32_t>(row.record.size()),
                             wire.data(), static_cast<uint32_t>(wire.size()), &n));
    EXPECT_EQ(max_len, n);
  }
  uint32_t none = 1;
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_max_elems_len(nullptr, &none));
  EXPECT_EQ(0u, none);
}

// A table's first use from many threads at once: each thread must get the one description of
// it and the same bytes and record as a lone caller (whose answer is taken afterwards).
TEST(CodecRoundTrip, FirstUseFromManyThreads) {
  const AllKinds full = codec_test::FilledAllKinds(true);
  constexpr int kThreads = 8;
  struct Result {
    std::vector<uint8_t> wire;
    AllKinds back;
    int32_t enc = -1, dec = -1;
  };
  std::vector<Result> results(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&full, &r = results[t]] {
      r.wire.assign(kAllKindsMaxLen, 0);
      uint32_t n = 0;
      r.enc =
          qmi_idl_encode_elems(kAllKindsEi, &full, sizeof full, r.wire.data(), kAllKindsMaxLen, &n);
      r.wire.resize(n);
      r.dec = qmi_idl_decode_elems(kAllKindsEi, r.wire.data(), n, &r.back, sizeof r.back);
    });
  }
  for (std::thread &th : threads) th.join();
  const std::vector<uint8_t> want = codec_test::Encoded(kAllKindsEi, full);
  for (int t = 0; t < kThreads; ++t) {
    SCOPED_TRACE(t);
    EXPECT_EQ(QMI_IDL_LIB_NO_ERR, results[t].enc);
    EXPECT_EQ(QMI_IDL_LIB_NO_ERR, results[t].dec);
    EXPECT_EQ(Hex(want), Hex(results[t].wire));
    EXPECT_EQ(0, memcmp(&full, &results[t].back, sizeof full));
  }
}

}  // namespace
