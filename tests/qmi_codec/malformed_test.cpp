// Input the codec must refuse, grouped by where it goes wrong, with the code each path gives.
// A refused decode leaves the record all zero; a refused encode writes nothing past its buffer.
#include <gtest/gtest.h>

#include "codec_test_util.h"

namespace {

using namespace codec_tables;
using codec_test::FromHex;
using codec_test::Hex;
using codec_test::Zeroed;

// Minimal valid Small: id, empty list, pair with no values and an empty label.
const std::string kId = "01 04 00 44 33 22 11 ";
const std::string kList = "02 01 00 00 ";
const std::string kPair = "03 05 00 02 01 00 00 00 ";
const std::string kValid = kId + kList + kPair;

bool AllZero(const void *p, size_t n) {
  const uint8_t *b = static_cast<const uint8_t *>(p);
  for (size_t i = 0; i < n; ++i)
    if (b[i] != 0) return false;
  return true;
}

TEST(CodecDecodeMalformed, RejectedWithTheCodeOfItsPath) {
  struct Row {
    const char *name;
    std::string hex;
    int32_t expected;
  };
  const Row rows[] = {
      // TLV framing
      {"empty area lacks every mandatory TLV", "", QMI_IDL_LIB_MISSING_TLV},
      {"header of one byte after a TLV", kValid + "10", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"header of two bytes after a TLV", kValid + "10 02", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"TLV longer than the buffer", kValid + "10 03 00 01 02", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"TLV length 0xffff", kId + "02 ff ff 00" + kPair, QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      // counts and string lengths above their maxima
      {"top-level count above maximum", kId + "02 06 00 05 01 02 03 04 05" + kPair,
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"count 255 in a 1-byte field", kId + "02 01 00 ff" + kPair, QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"nested 2-byte count above maximum",
       kId + kList + "03 11 00 02 01 03 00 01 00 00 00 02 00 00 00 03 00 00 00 00",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"nested 2-byte count 0x0100", kId + kList + "03 05 00 02 01 00 01 00",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"nested string above maximum", kId + kList + "03 09 00 02 01 00 00 04 61 62 63 64",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"TLV string above maximum", kValid + "11 06 00 61 62 63 64 65 66",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      // TLV ids
      {"unknown mandatory TLV", kValid + "05 01 00 00", QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV},
      {"unknown mandatory TLV of length 0", "0f 00 00" + kValid, QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV},
      {"duplicated mandatory TLV", kValid + kId, QMI_IDL_LIB_TLV_DUPLICATED},
      {"duplicated optional TLV", kValid + "10 02 00 01 00 10 02 00 01 00",
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"duplicated unknown optional TLV", kValid + "20 00 00 20 00 00", QMI_IDL_LIB_TLV_DUPLICATED},
      {"repeat of a TLV that came before the order broke", kList + kId + kPair + kList,
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"repeat of an in-order TLV after an unknown one", kId + "20 00 00" + kList + kPair + kId,
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"missing mandatory struct", kId + kList, QMI_IDL_LIB_MISSING_TLV},
      {"missing mandatory first TLV", kList + kPair, QMI_IDL_LIB_MISSING_TLV},
      // TLV length against its element
      {"u32 in 3 bytes", "01 03 00 44 33 22" + kList + kPair, QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"u32 in 5 bytes", "01 05 00 44 33 22 11 00" + kList + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"array shorter than its count", kId + "02 02 00 02 aa" + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"array with a trailing byte", kId + "02 03 00 01 aa bb" + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"empty TLV where a count belongs", kId + "02 00 00" + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"empty optional signed enum", kValid + "10 00 00", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"struct cut inside its count", kId + kList + "03 03 00 02 01 00",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"nested string running past its TLV", kId + kList + "03 06 00 02 01 00 00 03 61",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"struct with a trailing byte", kId + kList + "03 06 00 02 01 00 00 00 00",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<uint8_t> wire = FromHex(row.hex);
    Small s;
    memset(&s, 0x5A, sizeof s);
    EXPECT_EQ(row.expected, qmi_idl_decode_elems(kSmallEi, wire.data(),
                                                 static_cast<uint32_t>(wire.size()), &s, sizeof s));
    EXPECT_TRUE(AllZero(&s, sizeof s)) << "record not left zeroed";
  }
}

TEST(CodecDecodeMalformed, TolerableInputIsAccepted) {
  struct Row {
    const char *name;
    std::string hex;
  };
  const Row rows[] = {
      {"unknown optional TLVs skipped", "20 02 00 ff ff " + kValid + "ff 00 00"},
      {"TLVs in any order", kPair + kList + kId},
      {"a TLV left behind, then sent late", kId + kPair + kList},
      {"empty optional TLV string", kValid + "11 00 00"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<uint8_t> wire = FromHex(row.hex);
    Small s;
    memset(&s, 0x5A, sizeof s);
    ASSERT_EQ(QMI_IDL_LIB_NO_ERR,
              qmi_idl_decode_elems(kSmallEi, wire.data(), static_cast<uint32_t>(wire.size()), &s,
                                   sizeof s));
    EXPECT_EQ(0x11223344u, s.id);
    EXPECT_EQ(0x0102, s.pair.a);
    EXPECT_EQ(0u, s.list_len);
    EXPECT_EQ(0, s.opt_valid);
    EXPECT_EQ(row.hex.find("11 00 00") != std::string::npos ? 1 : 0, s.name_valid);
    EXPECT_STREQ("", s.name);
  }
}

// Every cut of a valid message inside a TLV is a length error, never a read past the cut.
TEST(CodecDecodeMalformed, EveryTruncationInsideATlv) {
  const AllKinds full = codec_test::FilledAllKinds(true);
  std::vector<uint8_t> wire(kAllKindsMaxLen);
  uint32_t n = 0;
  ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_encode_elems(kAllKindsEi, &full, sizeof full, wire.data(),
                                                     kAllKindsMaxLen, &n));
  std::vector<bool> boundary(n + 1, false);
  for (uint32_t pos = 0; pos <= n; pos += 3 + (wire[pos + 1] | wire[pos + 2] << 8)) {
    boundary[pos] = true;
    if (pos == n) break;
  }
  for (uint32_t cut = 0; cut < n; ++cut) {
    if (boundary[cut]) continue;
    SCOPED_TRACE(cut);
    std::vector<uint8_t> part(wire.begin(), wire.begin() + cut);  // exact size: ASan sees overreads
    AllKinds back;
    EXPECT_EQ(QMI_IDL_LIB_LENGTH_INCONSISTENCY,
              qmi_idl_decode_elems(kAllKindsEi, part.data(), cut, &back, sizeof back));
  }
}

TEST(CodecEncodeRefused, CountsAndStringsAboveTheirMaxima) {
  struct Row {
    const char *name;
    void (*spoil)(Small &);
  };
  const Row rows[] = {
      {"top-level count", [](Small &s) { s.list_len = 5; }},
      {"top-level count far above", [](Small &s) { s.list_len = 0xFFFFFFFF; }},
      {"nested count", [](Small &s) { s.pair.vals_len = 3; }},
      {"nested string without NUL", [](Small &s) { memcpy(s.pair.label, "abcd", 4); }},
      {"optional TLV string without NUL",
       [](Small &s) {
         s.name_valid = 1;
         memcpy(s.name, "abcdef", 6);
       }},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    auto s = Zeroed<Small>();
    row.spoil(s);
    uint8_t buf[64];
    uint32_t n = 77;
    EXPECT_EQ(QMI_IDL_LIB_ARRAY_TOO_BIG,
              qmi_idl_encode_elems(kSmallEi, &s, sizeof s, buf, sizeof buf, &n));
    EXPECT_EQ(77u, n) << "encoded length written on failure";
  }
}

// Every output buffer shorter than the encoding is refused, and nothing lands past its end.
TEST(CodecEncodeRefused, OutputBufferTooSmall) {
  const AllKinds full = codec_test::FilledAllKinds(true);
  for (uint32_t len = 0; len < kAllKindsMaxLen; ++len) {
    SCOPED_TRACE(len);
    std::vector<uint8_t> buf(len + 8, 0xEE);
    uint32_t n = 0;
    ASSERT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
              qmi_idl_encode_elems(kAllKindsEi, &full, sizeof full, buf.data(), len, &n));
    for (uint32_t i = len; i < buf.size(); ++i) ASSERT_EQ(0xEE, buf[i]) << "byte " << i;
  }
}

// The generic record's table (scalars and one optional array): every way a peer can get it
// wrong, in table order and out of it.
TEST(CodecDecodeMalformed, GenericTableRefusesEveryFault) {
  const std::string id = "01 04 00 02 00 00 00 ";
  const std::string len = "02 04 00 03 00 00 00 ";
  struct Row {
    const char *name;
    std::string hex;
    int32_t expected;
  };
  const Row rows[] = {
      {"empty area", "", QMI_IDL_LIB_MISSING_TLV},
      {"second mandatory TLV missing", id, QMI_IDL_LIB_MISSING_TLV},
      {"u32 TLV of 3 bytes", "01 03 00 02 00 00 " + len, QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"array TLV one byte short", id + len + "10 01 00 00", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"header cut short", id + len + "10 26", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"TLV longer than the buffer", id + len + "10 26 02 00", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"repeat in table order", id + id + len, QMI_IDL_LIB_TLV_DUPLICATED},
      {"repeat after the order broke", len + id + len, QMI_IDL_LIB_TLV_DUPLICATED},
      {"unknown mandatory TLV", "05 00 00 " + id + len, QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV},
      {"out of order, unknown optional skipped", len + "20 01 00 ff " + id, QMI_IDL_LIB_NO_ERR},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<uint8_t> wire = FromHex(row.hex);
    Generic g;
    memset(&g, 0xAB, sizeof g);
    ASSERT_EQ(row.expected, qmi_idl_decode_elems(kGenericEi, wire.data(),
                                                 static_cast<uint32_t>(wire.size()), &g, sizeof g));
    if (row.expected != QMI_IDL_LIB_NO_ERR) {
      EXPECT_TRUE(AllZero(&g, sizeof g));
      continue;
    }
    EXPECT_EQ(2u, g.id);
    EXPECT_EQ(3u, g.data_len);
    EXPECT_EQ(0, g.data_valid);
    EXPECT_TRUE(AllZero(g.data, sizeof g.data)) << "absent optional TLV left unzeroed";
  }
}

// A table whose optional TLVs sit between mandatory ones: leaving out an optional TLV is fine,
// leaving out a mandatory one or repeating any is not, even in table order.
TEST(CodecDecodeMalformed, OptionalGapsBetweenMandatoryTlvs) {
  const std::string code = "01 04 00 04 03 02 01 ";
  const std::string level = "10 02 00 fd ff ";
  const std::string pair = "02 04 00 06 05 08 07 ";
  const std::string tail = "03 01 00 09 ";
  struct Row {
    const char *name;
    std::string hex;
    int32_t expected;
  };
  const Row rows[] = {
      {"both optional TLVs absent", code + pair + tail, QMI_IDL_LIB_NO_ERR},
      {"unknown optional TLV between", code + "12 01 00 00 " + pair + tail, QMI_IDL_LIB_NO_ERR},
      {"mandatory TLV after the optional ones missing", code + level + tail,
       QMI_IDL_LIB_MISSING_TLV},
      {"last mandatory TLV missing", code + level + pair, QMI_IDL_LIB_MISSING_TLV},
      {"optional TLV repeated in table order", code + level + level + pair + tail,
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"optional TLV of the wrong length", code + "10 01 00 fd " + pair + tail,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"last TLV cut short", code + pair + "03 02 00 09", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<uint8_t> wire = FromHex(row.hex);
    PlainMix mix;
    memset(&mix, 0xAB, sizeof mix);
    ASSERT_EQ(row.expected,
              qmi_idl_decode_elems(kPlainMixEi, wire.data(), static_cast<uint32_t>(wire.size()),
                                   &mix, sizeof mix));
    if (row.expected != QMI_IDL_LIB_NO_ERR) {
      EXPECT_TRUE(AllZero(&mix, sizeof mix));
      continue;
    }
    auto want = Zeroed<PlainMix>();
    want.code = 0x01020304;
    want.pair[0] = 0x0506;
    want.pair[1] = 0x0708;
    want.tail = 9;
    EXPECT_EQ(0, memcmp(&want, &mix, sizeof mix)) << "absent optional TLVs left unzeroed";
  }
}

// Tables the walkers refuse instead of following: the codec must not trust a table further
// than it can check it.
extern const qmi_elem_info kCyclicEi[];
const qmi_elem_info kCyclicEi[] = {{QMI_STRUCT, NO_ARRAY, 0x01, 1, 4, 0, kCyclicEi}, QMI_EI_END};
const qmi_elem_info kNoCountEi[] = {{QMI_UNSIGNED_1_BYTE, VAR_LEN_ARRAY, 0x01, 4, 1, 4, nullptr},
                                    QMI_EI_END};
const qmi_elem_info kWideCountEi[] = {{QMI_DATA_LEN, NO_ARRAY, 0x01, 1, 3, 0, nullptr},
                                      {QMI_UNSIGNED_1_BYTE, VAR_LEN_ARRAY, 0x01, 4, 1, 4, nullptr},
                                      QMI_EI_END};
const qmi_elem_info kNarrowCountEi[] = {
    {QMI_DATA_LEN, NO_ARRAY, 0x01, 1, 1, 0, nullptr},
    {QMI_UNSIGNED_1_BYTE, VAR_LEN_ARRAY, 0x01, 300, 1, 4, nullptr},
    QMI_EI_END};
const qmi_elem_info kSizeMismatchEi[] = {{QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x01, 1, 2, 0, nullptr},
                                         QMI_EI_END};
const qmi_elem_info kCountLastEi[] = {{QMI_DATA_LEN, NO_ARRAY, 0x01, 1, 1, 0, nullptr}, QMI_EI_END};
const qmi_elem_info kSplitIdEi[] = {{QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x01, 1, 4, 0, nullptr},
                                    {QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x02, 1, 4, 4, nullptr},
                                    {QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x01, 1, 4, 8, nullptr},
                                    QMI_EI_END};

TEST(CodecBadTable, RefusedWithParameterError) {
  struct Row {
    const char *name;
    const qmi_elem_info *ei;
    const char *hex;  // a TLV area the table would otherwise take
  };
  const Row rows[] = {
      {"struct that contains itself", kCyclicEi, "01 04 00 00 00 00 00"},
      {"variable array without count", kNoCountEi, "01 01 00 00"},
      {"count of 3 bytes", kWideCountEi, "01 03 00 00 00 00"},
      {"1-byte count with maximum 300", kNarrowCountEi, "01 01 00 00"},
      {"element size unlike its type", kSizeMismatchEi, "01 04 00 00 00 00 00"},
      {"count entry without its array", kCountLastEi, "01 01 00 00"},
      {"one TLV id in two runs of entries", kSplitIdEi,
       "02 04 00 00 00 00 00 01 04 00 00 00 00 00"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    uint8_t rec[300 + 8] = {};
    uint8_t out[64];
    uint32_t n = 0;
    EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR,
              qmi_idl_encode_elems(row.ei, rec, sizeof rec, out, sizeof out, &n));
    const std::vector<uint8_t> wire = FromHex(row.hex);
    EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR,
              qmi_idl_decode_elems(row.ei, wire.data(), static_cast<uint32_t>(wire.size()), rec,
                                   sizeof rec));
    EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR, qmi_idl_max_elems_len(row.ei, &n));
    EXPECT_EQ(UINT32_MAX, qmi_ei_max_len(row.ei));
  }
}

// A record smaller than what the table describes: encode does not read past it, decode does not
// write past it (every field in use: both optional TLVs present).
TEST(CodecBadTable, RecordSmallerThanTheTable) {
  const std::vector<uint8_t> wire = FromHex(kValid + "10 02 00 01 00 11 01 00 61");
  auto full = Zeroed<Small>();
  full.opt_valid = full.name_valid = 1;
  const uint8_t *full_bytes = reinterpret_cast<const uint8_t *>(&full);
  for (uint32_t len = 0; len < offsetof(Small, name) + sizeof full.name; ++len) {
    SCOPED_TRACE(len);
    std::vector<uint8_t> rec(full_bytes, full_bytes + len);  // exact size: ASan sees overruns
    uint8_t out[64];
    uint32_t n = 0;
    EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
              qmi_idl_encode_elems(kSmallEi, rec.data(), len, out, sizeof out, &n));
    EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
              qmi_idl_decode_elems(kSmallEi, wire.data(), static_cast<uint32_t>(wire.size()),
                                   rec.data(), len));
  }
}

TEST(CodecArguments, NullPointersRefused) {
  uint8_t buf[8];
  uint32_t n;
  auto s = Zeroed<Small>();
  EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR,
            qmi_idl_encode_elems(kSmallEi, &s, sizeof s, buf, sizeof buf, nullptr));
  EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR,
            qmi_idl_encode_elems(kSmallEi, nullptr, sizeof s, buf, sizeof buf, &n));
  EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR,
            qmi_idl_encode_elems(kSmallEi, &s, sizeof s, nullptr, sizeof buf, &n));
  EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR, qmi_idl_decode_elems(kSmallEi, nullptr, 4, &s, sizeof s));
  EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR, qmi_idl_decode_elems(kSmallEi, buf, 0, nullptr, 4));
  EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR, qmi_idl_max_elems_len(kSmallEi, nullptr));
}

}  // namespace
