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

// Decodes each row's bytes with its table. A refused row leaves the record all zero; an accepted
// one zeroes everything it does not fill (the record comes out the same from two different
// fillings) and re-encodes to `canon`.
TEST(CodecDecodeMalformed, RejectedWithTheCodeOfItsPath) {
  const FuzzTable small{kSmallEi, sizeof(Small)}, generic{kGenericEi, sizeof(Generic)},
      mix{kPlainMixEi, sizeof(PlainMix)};
  const std::string gid = "01 04 00 02 00 00 00 ", glen = "02 04 00 03 00 00 00 ";
  const std::string code = "01 04 00 04 03 02 01 ", level = "10 02 00 fd ff ",
                    pair = "02 04 00 06 05 08 07 ", tail = "03 01 00 09 ";
  struct Row {
    const char *name;
    FuzzTable table;
    std::string hex;
    int32_t expected;
    std::string canon = "";
  };
  const Row rows[] = {
      // TLV framing
      {"empty area lacks every mandatory TLV", small, "", QMI_IDL_LIB_MISSING_TLV},
      {"header of one byte after a TLV", small, kValid + "10", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"header of two bytes after a TLV", small, kValid + "10 02",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"TLV longer than the buffer", small, kValid + "10 03 00 01 02",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"TLV length 0xffff", small, kId + "02 ff ff 00" + kPair, QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      // counts and string lengths above their maxima
      {"top-level count above maximum", small, kId + "02 06 00 05 01 02 03 04 05" + kPair,
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"count 255 in a 1-byte field", small, kId + "02 01 00 ff" + kPair,
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"nested 2-byte count above maximum", small,
       kId + kList + "03 11 00 02 01 03 00 01 00 00 00 02 00 00 00 03 00 00 00 00",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"nested 2-byte count 0x0100", small, kId + kList + "03 05 00 02 01 00 01 00",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"nested string above maximum", small, kId + kList + "03 09 00 02 01 00 00 04 61 62 63 64",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"TLV string above maximum", small, kValid + "11 06 00 61 62 63 64 65 66",
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      // TLV ids
      {"unknown mandatory TLV", small, kValid + "05 01 00 00", QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV},
      {"unknown mandatory TLV of length 0", small, "0f 00 00" + kValid,
       QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV},
      {"duplicated mandatory TLV", small, kValid + kId, QMI_IDL_LIB_TLV_DUPLICATED},
      {"duplicated optional TLV", small, kValid + "10 02 00 01 00 10 02 00 01 00",
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"duplicated unknown optional TLV", small, kValid + "20 00 00 20 00 00",
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"repeat of a TLV that came before the order broke", small, kList + kId + kPair + kList,
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"repeat of an in-order TLV after an unknown one", small,
       kId + "20 00 00" + kList + kPair + kId, QMI_IDL_LIB_TLV_DUPLICATED},
      {"missing mandatory struct", small, kId + kList, QMI_IDL_LIB_MISSING_TLV},
      {"missing mandatory first TLV", small, kList + kPair, QMI_IDL_LIB_MISSING_TLV},
      // TLV length against its element
      {"u32 in 3 bytes", small, "01 03 00 44 33 22" + kList + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"u32 in 5 bytes", small, "01 05 00 44 33 22 11 00" + kList + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"array shorter than its count", small, kId + "02 02 00 02 aa" + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"array with a trailing byte", small, kId + "02 03 00 01 aa bb" + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"empty TLV where a count belongs", small, kId + "02 00 00" + kPair,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"empty optional signed enum", small, kValid + "10 00 00", QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"struct cut inside its count", small, kId + kList + "03 03 00 02 01 00",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"nested string running past its TLV", small, kId + kList + "03 06 00 02 01 00 00 03 61",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"struct with a trailing byte", small, kId + kList + "03 06 00 02 01 00 00 00 00",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      // tolerable input
      {"unknown optional TLVs skipped", small, "20 02 00 ff ff " + kValid + "ff 00 00",
       QMI_IDL_LIB_NO_ERR, kValid},
      {"TLVs in any order", small, kPair + kList + kId, QMI_IDL_LIB_NO_ERR, kValid},
      {"a TLV left behind, then sent late", small, kId + kPair + kList, QMI_IDL_LIB_NO_ERR, kValid},
      {"empty optional TLV string", small, kValid + "11 00 00", QMI_IDL_LIB_NO_ERR,
       kValid + "11 00 00"},
      // a table of scalars and one optional array
      {"generic: mandatory TLV missing", generic, gid, QMI_IDL_LIB_MISSING_TLV},
      {"generic: array TLV one byte short", generic, gid + glen + "10 01 00 00",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"generic: repeat after the order broke", generic, glen + gid + glen,
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"generic: out of order, unknown optional skipped", generic, glen + "20 01 00 ff " + gid,
       QMI_IDL_LIB_NO_ERR, gid + glen},
      // optional TLVs between mandatory ones, in table and record orders of their own
      {"mix: both optional TLVs absent", mix, code + pair + tail, QMI_IDL_LIB_NO_ERR,
       code + pair + tail},
      {"mix: unknown optional TLV between", mix, code + "12 01 00 00 " + pair + tail,
       QMI_IDL_LIB_NO_ERR, code + pair + tail},
      {"mix: mandatory TLV after the optional ones missing", mix, code + level + tail,
       QMI_IDL_LIB_MISSING_TLV},
      {"mix: last mandatory TLV missing", mix, code + level + pair, QMI_IDL_LIB_MISSING_TLV},
      {"mix: optional TLV repeated in table order", mix, code + level + level + pair + tail,
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"mix: optional TLV of the wrong length", mix, code + "10 01 00 fd " + pair + tail,
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"mix: last TLV cut short", mix, code + pair + "03 02 00 09",
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<uint8_t> wire = FromHex(row.hex);
    const auto wire_len = static_cast<uint32_t>(wire.size());
    const uint32_t size = row.table.record_size;
    std::vector<uint8_t> rec(size, 0x5A), zeroed(size, 0);
    EXPECT_EQ(row.expected,
              qmi_idl_decode_elems(row.table.ei, wire.data(), wire_len, rec.data(), size));
    if (row.expected != QMI_IDL_LIB_NO_ERR) {
      EXPECT_TRUE(codec_test::AllZero(rec.data(), size)) << "record not left zeroed";
      continue;
    }
    qmi_idl_decode_elems(row.table.ei, wire.data(), wire_len, zeroed.data(), size);
    EXPECT_TRUE(rec == zeroed) << "fields the message does not fill left unzeroed";
    std::vector<uint8_t> again(qmi_ei_max_len(row.table.ei));
    uint32_t n = 0;
    ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_encode_elems(row.table.ei, rec.data(), size, again.data(),
                                                       static_cast<uint32_t>(again.size()), &n));
    again.resize(n);
    EXPECT_EQ(Hex(FromHex(row.canon)), Hex(again));
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
