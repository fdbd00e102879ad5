// Encoding and decoding of well-formed records: every element kind round-trips, hand-written
// messages encode byte for byte, a table's largest encoding is what it announces, and service
// objects find their messages.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "codec_test_util.h"

namespace {

using namespace codec_tables;
using codec_test::FromHex;
using codec_test::Hex;
using codec_test::kRespEi;
using codec_test::Rec;
using codec_test::Resp;
using codec_test::Zeroed;

void FillSmallAtMax(Small &s) {
  s.list_len = 4;
  s.pair.vals_len = 2;
  strcpy(s.pair.label, "abc");
  s.opt_valid = s.name_valid = 1;
  strcpy(s.name, "abcde");
}

// Each record is encoded (to the bytes given, else to the length given), then decoded into a
// record full of garbage: the original must come back.
TEST(CodecRoundTrip, RecordsEncodeAsExpectedAndComeBack) {
  struct Row {
    const char *name;
    const qmi_elem_info *ei;
    std::vector<uint8_t> rec;
    std::string hex;  // the exact encoding, zero-padded to `len`
    uint32_t len;     // the encoding's length when not 0
    bool at_max;      // `len` is the table's largest encoding
  };
  auto agg_at_max = Zeroed<AggInd>();
  for (Agg2 &a : agg_at_max.list) a.n = 5;
  const Row rows[] = {
      {"every array and string at its maximum", kAllKindsEi,
       codec_test::Bytes(codec_test::FilledAllKinds(true)), "", kAllKindsMaxLen, true},
      {"partly filled (a 2-byte count of 256), optional struct absent", kAllKindsEi,
       codec_test::Bytes(codec_test::FilledAllKinds(false)), "", 0, false},
      {"all zero, optional TLVs absent", kAllKindsEi, codec_test::Bytes(Zeroed<AllKinds>()), "", 0,
       false},
      {"optional TLVs present but empty", kAllKindsEi, Rec<AllKinds>([](AllKinds &r) {
         r.opt_mids_valid = r.opt_text_valid = r.opt_bytes_valid = r.opt_u32_valid = 1;
         r.s32 = kModeHigh;
         r.s8 = 127;
       }),
       "", 0, false},
      // Ten aggregates: a count byte each and 24 bytes per element (0+1+2+3+4+5+0+1+2+3 = 21).
      {"nested variable arrays of structs", kAggIndEi, Rec<AggInd>([](AggInd &ind) {
         ind.a = 5;
         ind.b = 0xFFFFFFFF;
         for (uint32_t i = 0; i < 10; ++i) {
           ind.list[i].n = i % 6;
           for (uint32_t k = 0; k < ind.list[i].n; ++k) {
             ind.list[i].items[k].stamp = (uint64_t{i} << 32) | k;
             ind.list[i].items[k].v[3] = 100 * i + k;
           }
         }
       }),
       "", 7 + 7 + 3 + 10 + 24 * 21, false},
      {"aggregates at their maximum", kAggIndEi, codec_test::Bytes(agg_at_max), "", 1227, true},
      {"counts, nested count and string, TLV string", kSmallEi, Rec<Small>([](Small &s) {
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
       }),
       "01 04 00 44 33 22 11  02 03 00 02 aa bb  03 0b 00 02 01 01 00 05 00 00 00 02 68 69"
       "  11 02 00 6f 6b",
       0, false},
      {"empty arrays, signed enum, empty optional string", kSmallEi, Rec<Small>([](Small &s) {
         s.opt_valid = 1;
         s.opt = -2;
         s.name_valid = 1;
       }),
       "01 04 00 00 00 00 00  02 01 00 00  03 05 00 00 00 00 00 00  10 02 00 fe ff  11 00 00", 0,
       false},
      {"small message at its maximum", kSmallEi, Rec<Small>(FillSmallAtMax), "",
       7 + (3 + 1 + 4) + (3 + 2 + 2 + 8 + 4) + 5 + 8, true},
      {"generic record sends its whole data array", kGenericEi, Rec<Generic>([](Generic &g) {
         g.id = 2;
         g.data_len = 3;
         g.data_valid = 1;
         memcpy(g.data, "abc", 3);
       }),
       "01 04 00 02 00 00 00  02 04 00 03 00 00 00  10 26 02 61 62 63", 567, true},
      {"generic record without its data", kGenericEi, Rec<Generic>([](Generic &g) {
         g.id = 2;
         g.data_len = 3;
       }),
       "01 04 00 02 00 00 00  02 04 00 03 00 00 00", 0, false},
      // The standard response: two 4-byte enums in the record, two u16 on the wire.
      {"standard response", kRespEi, Rec<Resp>([](Resp &r) {
         r.resp.result = QMI_RESULT_FAILURE_V01;
         r.resp.error = QMI_ERR_INVALID_ARG_V01;
       }),
       "02 04 00 01 00 30 00", 0, false},
  };
  // Every table's first use comes from many threads at once: each must get the one description
  // of the table and give the expected bytes and records.
  auto check_rows = [&rows] {
    for (const Row &row : rows) {
      SCOPED_TRACE(row.name);
      const auto size = static_cast<uint32_t>(row.rec.size());
      std::vector<uint8_t> wire(qmi_ei_max_len(row.ei) + 16);
      uint32_t n = 0;
      ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_encode_elems(row.ei, row.rec.data(), size, wire.data(),
                                                         static_cast<uint32_t>(wire.size()), &n));
      wire.resize(n);
      if (!row.hex.empty()) {
        std::vector<uint8_t> want = FromHex(row.hex);
        want.resize(std::max<size_t>(want.size(), row.len), 0);
        EXPECT_EQ(Hex(want), Hex(wire));
      } else if (row.len != 0) {
        EXPECT_EQ(row.len, n);
      }
      if (row.at_max) {
        uint32_t max_len = 0;
        ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_max_elems_len(row.ei, &max_len));
        EXPECT_EQ(row.len, max_len);
        EXPECT_EQ(row.len, qmi_ei_max_len(row.ei));
      }
      std::vector<uint8_t> back(size, 0xA5);
      EXPECT_EQ(QMI_IDL_LIB_NO_ERR,
                qmi_idl_decode_elems(row.ei, wire.data(), n, back.data(), size));
      EXPECT_TRUE(row.rec == back) << "decoded record differs; wire: " << Hex(wire);
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) threads.emplace_back(check_rows);
  for (std::thread &th : threads) th.join();
  uint32_t none = 1;
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_max_elems_len(nullptr, &none));
  EXPECT_EQ(0u, none);
}

TEST(CodecRoundTrip, DecodedTextEndsAtFirstNul) {
  // "ab\0cd" as a TLV string: the record keeps "ab" and stays terminated.
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

// Service objects: message look-up (also through a parent service), record size checks, empty
// messages and the facts a client reads from the object.
const qmi_idl_message_table_entry kParentInd[] = {
    {0x30, sizeof(Generic), qmi_ei_max_len(kGenericEi), kGenericEi, nullptr},
};
const qmi_idl_service_object kParent = {
    6, 1, 0, 0x42, 567, {0, 0, 1}, {nullptr, nullptr, kParentInd}, nullptr, nullptr};

const qmi_idl_message_table_entry kReqs[] = {
    {0x20, sizeof(Small), qmi_ei_max_len(kSmallEi), kSmallEi, nullptr},
    {0x21, 1, 0, nullptr, nullptr},  // empty request
};
const qmi_idl_message_table_entry kResps[] = {
    {0x20, sizeof(Generic), qmi_ei_max_len(kGenericEi), kGenericEi, nullptr},
    {0x21, sizeof(Generic), qmi_ei_max_len(kGenericEi), kGenericEi, nullptr},
};
const qmi_idl_service_object kService = {
    6, 1, 3, 0xFFE4, 567, {2, 2, 0}, {kReqs, kResps, nullptr}, &kParent, nullptr};

TEST(CodecService, MessagesFoundByTypeAndIdThroughTheParent) {
  const int32_t kOk = QMI_IDL_LIB_NO_ERR, kNotFound = QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND,
                kParam = QMI_IDL_LIB_PARAMETER_ERROR;
  const uint32_t small_max = qmi_ei_max_len(kSmallEi), generic_max = qmi_ei_max_len(kGenericEi);
  struct Row {
    const char *name;
    qmi_idl_service_object_type service;
    int type;
    uint16_t id;
    int32_t expected;
    uint32_t c_struct, max_len;
  };
  const Row rows[] = {
      {"request", &kService, QMI_IDL_REQUEST, 0x20, kOk, sizeof(Small), small_max},
      {"empty request", &kService, QMI_IDL_REQUEST, 0x21, kOk, 1, 0},
      {"response", &kService, QMI_IDL_RESPONSE, 0x21, kOk, sizeof(Generic), generic_max},
      {"indication of the parent", &kService, QMI_IDL_INDICATION, 0x30, kOk, sizeof(Generic),
       generic_max},
      {"id of another type", &kService, QMI_IDL_INDICATION, 0x20, kNotFound, 0, 0},
      {"unknown id", &kService, QMI_IDL_REQUEST, 0x22, kNotFound, 0, 0},
      {"parent does not see the child", &kParent, QMI_IDL_REQUEST, 0x20, kNotFound, 0, 0},
      {"type out of range", &kService, QMI_IDL_NUM_MSG_TYPES, 0x20, kParam, 0, 0},
      {"no service", nullptr, QMI_IDL_REQUEST, 0x20, kParam, 0, 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const auto type = static_cast<qmi_idl_type_of_message_type>(row.type);
    uint32_t c_struct = 0, max_len = 0, n = 0;
    EXPECT_EQ(row.expected, qmi_idl_get_message_c_struct_len(row.service, type, row.id, &c_struct));
    EXPECT_EQ(row.expected, qmi_idl_get_max_message_len(row.service, type, row.id, &max_len));
    EXPECT_EQ(row.c_struct, c_struct);
    EXPECT_EQ(row.max_len, max_len);
    uint8_t rec[sizeof(Generic)] = {};
    uint8_t buf[600];
    EXPECT_EQ(row.expected, qmi_idl_message_encode(row.service, type, row.id, rec, sizeof rec, buf,
                                                   sizeof buf, &n));
  }
  EXPECT_EQ(kParam, qmi_idl_get_message_c_struct_len(&kService, QMI_IDL_REQUEST, 0x20, nullptr));
}

TEST(CodecService, ServiceFacts) {
  struct Row {
    const char *name;
    int32_t (*get)(qmi_idl_service_object_type, uint32_t *);
    uint32_t expected;
  };
  const Row rows[] = {
      {"service id", qmi_idl_get_service_id, 0xFFE4},
      {"major version", qmi_idl_get_idl_version, 1},
      {"largest message", qmi_idl_get_max_service_len, 567},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    uint32_t v = 0;
    EXPECT_EQ(QMI_IDL_LIB_NO_ERR, row.get(&kService, &v));
    EXPECT_EQ(row.expected, v);
    EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR, row.get(nullptr, &v));
    EXPECT_EQ(QMI_IDL_LIB_PARAMETER_ERROR, row.get(&kService, nullptr));
  }
}

TEST(CodecService, RecordSizesCheckedAgainstTheMessage) {
  auto g = Zeroed<Generic>();
  g.id = 9;
  uint8_t buf[600];
  uint32_t n = 0;
  EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
            qmi_idl_message_encode(&kService, QMI_IDL_RESPONSE, 0x20, &g, sizeof g - 1, buf,
                                   sizeof buf, &n));
  ASSERT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_message_encode(&kService, QMI_IDL_RESPONSE, 0x20, &g,
                                                       sizeof g, buf, sizeof buf, &n));
  EXPECT_EQ(14u, n);
  EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
            qmi_idl_message_encode(&kService, QMI_IDL_RESPONSE, 0x20, &g, sizeof g, buf, 13, &n));

  // The decoder writes the whole record size, so a smaller record is refused up front.
  std::vector<uint8_t> small(sizeof(Generic) - 1);
  EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
            qmi_idl_message_decode(&kService, QMI_IDL_RESPONSE, 0x20, buf, 14, small.data(),
                                   static_cast<uint32_t>(small.size())));
  std::vector<uint8_t> big(sizeof(Generic) + 4, 0x77);
  ASSERT_EQ(QMI_IDL_LIB_NO_ERR,
            qmi_idl_message_decode(&kService, QMI_IDL_RESPONSE, 0x20, buf, 14, big.data(),
                                   static_cast<uint32_t>(big.size())));
  EXPECT_EQ(0, memcmp(big.data(), &g, sizeof g));
  for (size_t i = sizeof g; i < big.size(); ++i) EXPECT_EQ(0x77, big[i]) << "past the record";
}

TEST(CodecService, EmptyMessageNeedsNoRecord) {
  uint8_t buf[4];
  uint32_t n = 5;
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR, qmi_idl_message_encode(&kService, QMI_IDL_REQUEST, 0x21, nullptr, 0,
                                                       buf, sizeof buf, &n));
  EXPECT_EQ(0u, n);
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR,
            qmi_idl_message_decode(&kService, QMI_IDL_REQUEST, 0x21, nullptr, 0, nullptr, 0));
  uint8_t rec = 0x33;
  const std::vector<uint8_t> extra = FromHex("10 01 00 07");
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR,
            qmi_idl_message_decode(&kService, QMI_IDL_REQUEST, 0x21, extra.data(), 4, &rec, 1));
  EXPECT_EQ(0, rec);
  const std::vector<uint8_t> mandatory = FromHex("01 01 00 07");
  EXPECT_EQ(QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV,
            qmi_idl_message_decode(&kService, QMI_IDL_REQUEST, 0x21, mandatory.data(), 4, &rec, 1));
}

}  // namespace
