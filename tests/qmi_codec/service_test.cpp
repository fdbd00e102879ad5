// The service-object entry points: message look-up (also through a parent service), record
// size checks, empty messages and the facts a client reads from the object.
#include <gtest/gtest.h>

#include "codec_test_util.h"

namespace {

using namespace codec_tables;
using codec_test::FromHex;
using codec_test::Zeroed;

const qmi_idl_message_table_entry kParentInd[] = {
    {0x30, sizeof(Generic), qmi_ei_max_len(kGenericEi), kGenericEi},
};
const qmi_idl_service_object kParent = {
    6, 1, 0, 0x42, 567, {0, 0, 1}, {nullptr, nullptr, kParentInd}, nullptr};

const qmi_idl_message_table_entry kReqs[] = {
    {0x20, sizeof(Small), qmi_ei_max_len(kSmallEi), kSmallEi},
    {0x21, 1, 0, nullptr},  // empty request
};
const qmi_idl_message_table_entry kResps[] = {
    {0x20, sizeof(Generic), qmi_ei_max_len(kGenericEi), kGenericEi},
    {0x21, sizeof(Generic), qmi_ei_max_len(kGenericEi), kGenericEi},
};
const qmi_idl_service_object kService = {
    6, 1, 3, 0xFFE4, 567, {2, 2, 0}, {kReqs, kResps, nullptr}, &kParent};

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
