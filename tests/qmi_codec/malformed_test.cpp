// Input the codec must refuse, grouped by where it goes wrong, with the code each path gives, next
// to input it must take. A refused decode leaves the record all zero; a refused encode writes
// nothing past its buffer. The decode rows include the seeds of the decoder's fuzz target.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "codec_test_util.h"
#include "qmi_trace.h"

namespace {

using namespace codec_tables;
using codec_test::Encoded;
using codec_test::FromHex;
using codec_test::Hex;
using codec_test::Zeroed;

// Minimal valid Small: id, empty list, pair with no values and an empty label.
const std::string kId = "01 04 00 44 33 22 11 ";
const std::string kList = "02 01 00 00 ";
const std::string kPair = "03 05 00 02 01 00 00 00 ";
const std::string kValid = kId + kList + kPair;

constexpr int32_t kOk = QMI_IDL_LIB_NO_ERR, kLen = QMI_IDL_LIB_LENGTH_INCONSISTENCY,
                  kBig = QMI_IDL_LIB_ARRAY_TOO_BIG, kDup = QMI_IDL_LIB_TLV_DUPLICATED,
                  kMissing = QMI_IDL_LIB_MISSING_TLV, kUnknown = QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV;

// The bytes of a row: hex text, or bytes made by the encoder.
struct Wire {
  std::vector<uint8_t> bytes;
  Wire(const char *hex) : bytes(FromHex(hex)) {}
  Wire(const std::string &hex) : bytes(FromHex(hex)) {}
  Wire(std::vector<uint8_t> b) : bytes(std::move(b)) {}
};

struct Row {
  const char *name;
  FuzzTable table;
  Wire wire;
  int32_t expected;
  Wire canon = "";             // what an accepted message encodes to again
  const char *seed = nullptr;  // its file name when the row is a seed of the decoder's fuzz target
};

std::vector<Row> DecodeRows() {
  const FuzzTable sm{kSmallEi, sizeof(Small)}, gen{kGenericEi, sizeof(Generic)},
      mix{kPlainMixEi, sizeof(PlainMix)}, all{kAllKindsEi, sizeof(AllKinds)},
      agg{kAggIndEi, sizeof(AggInd)}, resp{codec_test::kRespEi, sizeof(codec_test::Resp)};
  const std::string gid = "01 04 00 02 00 00 00 ", glen = "02 04 00 03 00 00 00 ";
  // PlainMix: code, the optional level and stamp, pair, tail.
  const std::string code = "01 04 00 04 03 02 01 ", level = "10 02 00 fd ff ",
                    stamp = "11 08 00 88 77 66 55 44 33 22 11 ", pair = "02 04 00 06 05 08 07 ",
                    tail = "03 01 00 09 ", mixed = code + pair + tail;
  const std::string small_full =
      "01 04 00 44 33 22 11 02 03 00 02 aa bb 03 0b 00 02 01 01 00 05 00 00 00 02 68 69 "
      "10 02 00 fe ff 11 02 00 6f 6b ";
  const std::vector<uint8_t> full = Encoded(kAllKindsEi, codec_test::FilledAllKinds(true)),
                             partial = Encoded(kAllKindsEi, codec_test::FilledAllKinds(false));
  auto aggs_rec = Zeroed<AggInd>();
  aggs_rec.list[0].n = 5;
  aggs_rec.list[9].n = 1;
  aggs_rec.list[9].items[0].stamp = 7;
  auto generic_rec = Zeroed<Generic>();
  generic_rec.id = 2;
  generic_rec.data_len = 4;
  generic_rec.data_valid = 1;
  memcpy(generic_rec.data, "\x01\x02\x03\x04", 4);
  const std::vector<uint8_t> aggs = Encoded(kAggIndEi, aggs_rec),
                             generic = Encoded(kGenericEi, generic_rec);
  return {
      // TLV framing
      {"empty area lacks every mandatory TLV", sm, "", kMissing},
      {"header of one byte after a TLV", sm, kValid + "10", kLen},
      {"header of two bytes after a TLV", sm, kValid + "10 02", kLen},
      {"TLV longer than the buffer", sm, kValid + "10 03 00 01 02", kLen},
      {"TLV length 0xffff", sm, kId + "02 ff ff 00" + kPair, kLen},
      // counts and string lengths above their maxima
      {"top-level count above maximum", sm, kId + "02 06 00 05 01 02 03 04 05" + kPair, kBig},
      {"count 255 in a 1-byte field", sm, kId + "02 01 00 ff" + kPair, kBig},
      {"nested 2-byte count above maximum", sm,
       kId + kList + "03 11 00 02 01 03 00 01 00 00 00 02 00 00 00 03 00 00 00 00", kBig},
      {"nested 2-byte count 0x0100", sm, kId + kList + "03 05 00 02 01 00 01 00", kBig},
      {"nested string above maximum", sm, kId + kList + "03 09 00 02 01 00 00 04 61 62 63 64",
       kBig},
      {"TLV string above maximum", sm, kValid + "11 06 00 61 62 63 64 65 66", kBig},
      // TLV ids
      {"unknown mandatory TLV", sm, kValid + "05 01 00 00", kUnknown},
      {"unknown mandatory TLV of length 0", sm, "0f 00 00" + kValid, kUnknown},
      {"duplicated mandatory TLV", sm, kValid + kId, kDup},
      {"duplicated optional TLV", sm, kValid + "10 02 00 01 00 10 02 00 01 00", kDup},
      {"duplicated unknown optional TLV", sm, kValid + "20 00 00 20 00 00", kDup},
      {"repeat of a TLV that came before the order broke", sm, kList + kId + kPair + kList, kDup},
      {"repeat of an in-order TLV after an unknown one", sm, kId + "20 00 00" + kList + kPair + kId,
       kDup},
      {"missing mandatory struct", sm, kId + kList, kMissing},
      {"missing mandatory first TLV", sm, kList + kPair, kMissing},
      // TLV length against its element
      {"u32 in 3 bytes", sm, "01 03 00 44 33 22" + kList + kPair, kLen},
      {"u32 in 5 bytes", sm, "01 05 00 44 33 22 11 00" + kList + kPair, kLen},
      {"array shorter than its count", sm, kId + "02 02 00 02 aa" + kPair, kLen},
      {"array with a trailing byte", sm, kId + "02 03 00 01 aa bb" + kPair, kLen},
      {"empty TLV where a count belongs", sm, kId + "02 00 00" + kPair, kLen},
      {"empty optional signed enum", sm, kValid + "10 00 00", kLen},
      {"struct cut inside its count", sm, kId + kList + "03 03 00 02 01 00", kLen},
      {"nested string running past its TLV", sm, kId + kList + "03 06 00 02 01 00 00 03 61", kLen},
      {"struct with a trailing byte", sm, kId + kList + "03 06 00 02 01 00 00 00 00", kLen},
      {"count 9 in a 1-byte field, struct missing", sm, "01 04 00 00 00 00 00 02 02 00 09 00", kBig,
       "", "small_count_too_big"},
      {"mandatory TLV twice in a row", sm, "01 04 00 00 00 00 00 01 04 00 00 00 00 00", kDup, "",
       "small_duplicated"},
      {"unknown mandatory TLV alone", sm, "07 01 00 00", kUnknown, "", "small_unknown_mandatory"},
      // tolerable input
      {"every kind, unknown optional TLV at the end", sm, small_full + "20 01 00 00", kOk,
       small_full, "small_valid"},
      {"unknown optional TLVs skipped", sm, "20 02 00 ff ff " + kValid + "ff 00 00", kOk, kValid},
      {"TLVs in any order", sm, kPair + kList + kId, kOk, kValid},
      {"a TLV left behind, then sent late", sm, kId + kPair + kList, kOk, kValid},
      {"empty optional TLV string", sm, kValid + "11 00 00", kOk, kValid + "11 00 00"},
      {"enums of two bytes sign-extended into four", resp, "02 04 00 ff ff 00 80", kOk,
       "02 04 00 ff ff 00 80"},
      // well-formed messages of the other tables
      {"every kind at its maximum", all, full, kOk, full, "all_kinds_full"},
      {"every kind partly filled", all, partial, kOk, partial, "all_kinds_partial"},
      {"every kind cut in half", all,
       std::vector<uint8_t>(partial.begin(), partial.begin() + partial.size() / 2), kLen, "",
       "all_kinds_truncated"},
      {"aggregates", agg, aggs, kOk, aggs, "agg_indication"},
      {"generic record with data", gen, generic, kOk, generic, "generic_with_data"},
      // a table of scalars and one optional array
      {"generic: mandatory TLV missing", gen, gid, kMissing},
      {"generic: array TLV one byte short", gen, gid + "02 04 00 00 00 00 00 10 01 00 00", kLen, "",
       "generic_short_data"},
      {"generic: repeat after the order broke", gen, glen + gid + glen, kDup},
      {"generic: out of order, unknown optional skipped", gen, glen + "20 01 00 ff " + gid, kOk,
       gid + glen},
      // optional TLVs between mandatory ones, in a table order unlike the record's
      {"mix: both optional TLVs absent", mix, mixed, kOk, mixed},
      {"mix: unknown optional TLV between", mix, code + "12 01 00 00 " + pair + tail, kOk, mixed},
      {"mix: both optional TLVs present", mix, code + level + stamp + pair + tail, kOk,
       code + level + stamp + pair + tail, "plain_mix_in_order"},
      {"mix: reordered, one optional TLV present", mix, tail + stamp + code + pair, kOk,
       code + stamp + pair + tail, "plain_mix_reordered"},
      {"mix: mandatory TLV after the optional ones missing", mix, code + level + tail, kMissing},
      {"mix: last mandatory TLV missing", mix, code + level + pair, kMissing},
      {"mix: optional TLV repeated in table order", mix, code + level + level + pair + tail, kDup},
      {"mix: optional TLV of the wrong length", mix, code + "10 01 00 fd " + pair + tail, kLen},
      {"mix: last TLV cut short", mix, code + pair + "03 02 00 09", kLen},
  };
}

// Decodes each row's bytes with its table. A refused row leaves the record all zero; an accepted
// one zeroes everything it does not fill (the record comes out the same from two different
// fillings) and encodes to `canon` again.
TEST(CodecDecodeMalformed, RejectedWithTheCodeOfItsPath) {
  for (const Row &row : DecodeRows()) {
    SCOPED_TRACE(row.name);
    const std::vector<uint8_t> &wire = row.wire.bytes;
    const auto wire_len = static_cast<uint32_t>(wire.size());
    const FuzzTable &t = row.table;
    std::vector<uint8_t> rec(t.record_size, 0x5A), zeroed(t.record_size, 0);
    EXPECT_EQ(row.expected,
              qmi_idl_decode_elems(t.ei, wire.data(), wire_len, rec.data(), t.record_size));
    // A trace marks the TLV the decoder refuses (a missing one is the message's fault).
    const typed_fields::Value tlvs =
        qmi_trace::DescribeTlvs(t.ei, t.record_size, wire.data(), wire.size());
    size_t marked = 0;
    for (const auto &tlv : tlvs.rows()) {
      for (const auto &f : tlv) marked += f.key == "error";
    }
    EXPECT_EQ(row.expected == kOk || row.expected == kMissing, marked == 0)
        << typed_fields::RenderText({{"", "%s", tlvs}});
    if (row.expected != kOk) {
      EXPECT_TRUE(codec_test::AllZero(rec.data(), t.record_size)) << "record not left zeroed";
      continue;
    }
    qmi_idl_decode_elems(t.ei, wire.data(), wire_len, zeroed.data(), t.record_size);
    EXPECT_TRUE(rec == zeroed) << "fields the message does not fill left unzeroed";
    EXPECT_EQ(Hex(row.canon.bytes), Hex(Encoded(t.ei, rec)));
  }
}

// The rows named as seeds (checked above like every row) and the tables the fuzz target picks
// for them. With TARVIK_QMI_SEED_DIR set they are written there as the decoder's fuzz corpus: a
// selector byte choosing the table, then the TLV area.
TEST(CodecSeedCorpus, EverySeedHasATableOfTheFuzzTarget) {
  const char *out_dir = getenv("TARVIK_QMI_SEED_DIR");
  int seeds = 0;
  for (const Row &row : DecodeRows()) {
    if (row.seed == nullptr) continue;
    SCOPED_TRACE(row.seed);
    ++seeds;
    uint8_t selector = 0;
    while (selector < 5 && FuzzTableFor(selector).ei != row.table.ei) ++selector;
    ASSERT_LT(selector, 5) << "a table the fuzz target does not pick";
    if (out_dir == nullptr) continue;
    const std::vector<uint8_t> &wire = row.wire.bytes;
    std::ofstream f(std::string(out_dir) + "/" + row.seed, std::ios::binary);
    f.put(static_cast<char>(selector));
    f.write(reinterpret_cast<const char *>(wire.data()), static_cast<std::streamsize>(wire.size()));
    ASSERT_TRUE(f.good());
  }
  EXPECT_EQ(12, seeds);
}

// Every cut of the largest message: encoding into a buffer that short is refused without a
// byte landing past its end; decoding the bytes before a cut inside a TLV is a length error,
// never a read past the cut.
TEST(CodecDecodeMalformed, EveryCutOfTheLargestMessage) {
  const AllKinds full = codec_test::FilledAllKinds(true);
  const std::vector<uint8_t> wire = codec_test::Encoded(kAllKindsEi, full);
  ASSERT_EQ(kAllKindsMaxLen, wire.size());
  std::vector<bool> boundary(wire.size() + 1, false);
  for (size_t pos = 0; pos < wire.size(); pos += 3 + (wire[pos + 1] | wire[pos + 2] << 8))
    boundary[pos] = true;
  for (uint32_t cut = 0; cut < kAllKindsMaxLen; ++cut) {
    SCOPED_TRACE(cut);
    std::vector<uint8_t> buf(cut + 8, 0xEE);
    uint32_t n = 0;
    ASSERT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
              qmi_idl_encode_elems(kAllKindsEi, &full, sizeof full, buf.data(), cut, &n));
    for (uint32_t i = cut; i < buf.size(); ++i) ASSERT_EQ(0xEE, buf[i]) << "byte " << i;
    if (boundary[cut]) continue;
    std::vector<uint8_t> part(wire.begin(), wire.begin() + cut);  // exact size: ASan sees overreads
    AllKinds back;
    EXPECT_EQ(kLen, qmi_idl_decode_elems(kAllKindsEi, part.data(), cut, &back, sizeof back));
  }
}

// Values the wire cannot carry: the encoder refuses them and leaves the length alone.
TEST(CodecEncodeRefused, ValuesAboveTheirMaxima) {
  using codec_test::Rec;
  using codec_test::Resp;
  const int32_t kRange = QMI_IDL_LIB_RANGE_FAILURE;
  struct Row {
    const char *name;
    const qmi_elem_info *ei;
    std::vector<uint8_t> rec;
    int32_t expected;
  };
  const Row rows[] = {
      {"top-level count", kSmallEi, Rec<Small>([](Small &s) { s.list_len = 5; }), kBig},
      {"top-level count far above", kSmallEi, Rec<Small>([](Small &s) { s.list_len = ~0u; }), kBig},
      {"nested count", kSmallEi, Rec<Small>([](Small &s) { s.pair.vals_len = 3; }), kBig},
      {"nested string without NUL", kSmallEi,
       Rec<Small>([](Small &s) { memcpy(s.pair.label, "abcd", 4); }), kBig},
      {"optional TLV string without NUL", kSmallEi, Rec<Small>([](Small &s) {
         s.name_valid = 1;
         memcpy(s.name, "abcdef", 6);
       }),
       kBig},
      {"2-byte enum above its range", codec_test::kRespEi,
       Rec<Resp>([](Resp &r) { r.resp.error = static_cast<qmi_error_type_v01>(0x8000); }), kRange},
      {"2-byte enum below its range", codec_test::kRespEi,
       Rec<Resp>([](Resp &r) { r.resp.error = static_cast<qmi_error_type_v01>(-0x8001); }), kRange},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    uint8_t buf[64];
    uint32_t n = 77;
    EXPECT_EQ(row.expected,
              qmi_idl_encode_elems(row.ei, row.rec.data(), static_cast<uint32_t>(row.rec.size()),
                                   buf, sizeof buf, &n));
    EXPECT_EQ(77u, n) << "encoded length written on failure";
  }
}

// Tables the walkers refuse instead of following: the codec must not trust a table further
// than it can check it.
extern const qmi_elem_info kCyclicEi[];
const qmi_elem_info kCyclicEi[] = {{QMI_STRUCT, NO_ARRAY, 0x01, 1, 4, 0, kCyclicEi, nullptr},
                                   QMI_EI_END};
const qmi_elem_info kNoCountEi[] = {
    {QMI_UNSIGNED_1_BYTE, VAR_LEN_ARRAY, 0x01, 4, 1, 4, nullptr, nullptr}, QMI_EI_END};
const qmi_elem_info kWideCountEi[] = {
    {QMI_DATA_LEN, NO_ARRAY, 0x01, 1, 3, 0, nullptr, nullptr},
    {QMI_UNSIGNED_1_BYTE, VAR_LEN_ARRAY, 0x01, 4, 1, 4, nullptr, nullptr},
    QMI_EI_END};
const qmi_elem_info kNarrowCountEi[] = {
    {QMI_DATA_LEN, NO_ARRAY, 0x01, 1, 1, 0, nullptr, nullptr},
    {QMI_UNSIGNED_1_BYTE, VAR_LEN_ARRAY, 0x01, 300, 1, 4, nullptr, nullptr},
    QMI_EI_END};
const qmi_elem_info kSizeMismatchEi[] = {
    {QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x01, 1, 2, 0, nullptr, nullptr}, QMI_EI_END};
const qmi_elem_info kCountLastEi[] = {{QMI_DATA_LEN, NO_ARRAY, 0x01, 1, 1, 0, nullptr, nullptr},
                                      QMI_EI_END};
const qmi_elem_info kSplitIdEi[] = {
    {QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x01, 1, 4, 0, nullptr, nullptr},
    {QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x02, 1, 4, 4, nullptr, nullptr},
    {QMI_UNSIGNED_4_BYTE, NO_ARRAY, 0x01, 1, 4, 8, nullptr, nullptr},
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
