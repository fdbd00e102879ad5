// The extend service description: identity, and every message's record size and largest
// encoding, checked by encoding a maximal record of each message with the codec.
#include <string.h>

#include <vector>

#include "gtest/gtest.h"
#include "tarvik_extend_qmi_v01.h"

namespace {

const qmi_idl_service_object &Svc() {
  return tarvik_extend_qmi_idl_service_object_v01;
}

// Fills `rec` so that it encodes to its largest size: every presence flag set, every variable
// array at its maximum count, every value byte nonzero.
void FillMax(const qmi_elem_info *ei, uint8_t *rec) {
  for (; ei != nullptr && ei->data_type != QMI_EOTI; ++ei) {
    uint8_t *field = rec + ei->offset;
    switch (ei->data_type) {
      case QMI_OPT_FLAG:
        *field = 1;
        break;
      case QMI_DATA_LEN: {
        const uint32_t max = ei[1].elem_len;
        memcpy(field, &max, sizeof(max));
        break;
      }
      case QMI_STRUCT:
        for (uint32_t i = 0; i < ei->elem_len; ++i) {
          FillMax(ei->ei_array, field + i * ei->elem_size);
        }
        break;
      default:
        memset(field, 0xA5, static_cast<size_t>(ei->elem_len) * ei->elem_size);
        break;
    }
  }
}

struct MsgRow {
  qmi_idl_type_of_message_type type;
  uint16_t id;
  uint32_t max_len;
  uint32_t record;
};

// The wire contract of every message: largest encoded TLV area and in-memory record size.
const MsgRow kRows[] = {
    {QMI_IDL_REQUEST, 0x02, 567, 560},      {QMI_IDL_RESPONSE, 0x02, 567, 560},
    {QMI_IDL_REQUEST, 0x03, 567, 560},      {QMI_IDL_RESPONSE, 0x03, 567, 560},
    {QMI_IDL_INDICATION, 0x03, 567, 560},   {QMI_IDL_REQUEST, 0x04, 571, 564},
    {QMI_IDL_RESPONSE, 0x04, 14, 8},        {QMI_IDL_INDICATION, 0x05, 1137, 1128},
    {QMI_IDL_INDICATION, 0x06, 1227, 1288}, {QMI_IDL_INDICATION, 0x07, 14, 8},
    {QMI_IDL_INDICATION, 0x08, 34, 32},     {QMI_IDL_INDICATION, 0x09, 417, 408},
    {QMI_IDL_REQUEST, 0x0A, 1553, 1544},    {QMI_IDL_RESPONSE, 0x0A, 14, 8},
    {QMI_IDL_INDICATION, 0x0B, 35, 20},     {QMI_IDL_REQUEST, 0x0C, 18, 12},
    {QMI_IDL_RESPONSE, 0x0C, 14, 8},        {QMI_IDL_INDICATION, 0x0D, 32, 24},
    {QMI_IDL_REQUEST, 0x0E, 404, 404},      {QMI_IDL_RESPONSE, 0x0E, 7, 4},
    {QMI_IDL_REQUEST, 0x0F, 4, 1},          {QMI_IDL_RESPONSE, 0x0F, 7, 4},
    {QMI_IDL_REQUEST, 0x10, 0, 1},          {QMI_IDL_RESPONSE, 0x10, 78, 72},
    {QMI_IDL_REQUEST, 0x11, 7, 4},          {QMI_IDL_RESPONSE, 0x11, 119, 116},
    {QMI_IDL_INDICATION, 0x12, 28, 16},     {QMI_IDL_REQUEST, 0x13, 11, 8},
    {QMI_IDL_RESPONSE, 0x13, 7, 4},         {QMI_IDL_REQUEST, 0x14, 0, 1},
    {QMI_IDL_RESPONSE, 0x14, 21, 12},       {QMI_IDL_INDICATION, 0x14, 21, 12},
};

const qmi_idl_message_table_entry *Find(qmi_idl_type_of_message_type type, uint16_t id) {
  for (uint16_t i = 0; i < Svc().n_msgs[type]; ++i) {
    if (Svc().msgid_to_msg[type][i].msg_id == id) {
      return &Svc().msgid_to_msg[type][i];
    }
  }
  return nullptr;
}

TEST(ExtendTables, ServiceIdentityAndAccessor) {
  EXPECT_EQ(Svc().library_version, 6u);
  EXPECT_EQ(Svc().idl_version, 1u);
  EXPECT_EQ(Svc().idl_minor_version, 1u);
  EXPECT_EQ(Svc().service_id, 0xFFE4u);
  EXPECT_EQ(Svc().max_msg_len, 1553u);
  EXPECT_EQ(Svc().n_msgs[QMI_IDL_REQUEST], 11);
  EXPECT_EQ(Svc().n_msgs[QMI_IDL_RESPONSE], 11);
  EXPECT_EQ(Svc().n_msgs[QMI_IDL_INDICATION], 10);
  EXPECT_EQ(Svc().parent_service_obj, nullptr);
  // The table above lists every message, so the counts and the rows agree.
  EXPECT_EQ(sizeof(kRows) / sizeof(kRows[0]), 32u);

  EXPECT_EQ(tarvik_extend_get_service_object_internal_v01(1, 1, 6), &Svc());
  const uint32_t wrong[][3] = {{2, 1, 6}, {1, 0, 6}, {1, 1, 5}, {0, 0, 0}};
  for (const auto &w : wrong) {
    EXPECT_EQ(tarvik_extend_get_service_object_internal_v01(w[0], w[1], w[2]), nullptr)
        << w[0] << "." << w[1] << "/" << w[2];
  }
}

TEST(ExtendTables, MaximalRecordOfEveryMessageEncodesToItsLargestSize) {
  for (const MsgRow &row : kRows) {
    SCOPED_TRACE(::testing::Message() << "type " << row.type << " msg 0x" << std::hex << row.id);
    const qmi_idl_message_table_entry *entry = Find(row.type, row.id);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->c_struct_sz, row.record);
    EXPECT_EQ(entry->max_msg_len, row.max_len);

    std::vector<uint8_t> rec(row.record, 0);
    FillMax(entry->ei, rec.data());
    std::vector<uint8_t> wire(4096, 0);
    uint32_t encoded = 0;
    ASSERT_EQ(qmi_idl_message_encode(&Svc(), row.type, row.id, rec.data(), row.record, wire.data(),
                                     static_cast<uint32_t>(wire.size()), &encoded),
              QMI_IDL_LIB_NO_ERR);
    EXPECT_EQ(encoded, row.max_len);
    // Exactly the largest size fits; one byte less does not.
    if (row.max_len > 0) {
      EXPECT_EQ(qmi_idl_message_encode(&Svc(), row.type, row.id, rec.data(), row.record,
                                       wire.data(), row.max_len - 1, &encoded),
                QMI_IDL_LIB_BUFFER_TOO_SMALL);
    }
    // And it decodes back to the same record.
    std::vector<uint8_t> back(row.record, 0x5A);
    ASSERT_EQ(qmi_idl_message_decode(&Svc(), row.type, row.id, wire.data(), row.max_len,
                                     back.data(), row.record),
              QMI_IDL_LIB_NO_ERR);
    if (entry->ei != nullptr) {
      // Padding bytes are zero after a decode; compare through a re-encode instead.
      std::vector<uint8_t> again(4096, 0);
      uint32_t again_len = 0;
      ASSERT_EQ(
          qmi_idl_message_encode(&Svc(), row.type, row.id, back.data(), row.record, again.data(),
                                 static_cast<uint32_t>(again.size()), &again_len),
          QMI_IDL_LIB_NO_ERR);
      EXPECT_EQ(again_len, row.max_len);
      EXPECT_EQ(memcmp(again.data(), wire.data(), row.max_len), 0);
    }
  }
}

TEST(ExtendTables, GenericRecordSendsAllPayloadBytesAndOmitsAbsentData) {
  tarvik_extend_qmi_req_msg_v01 req{};
  req.id = 4;
  req.data_len = 3;
  req.data_valid = 1;
  req.data[0] = 1;
  req.data[1] = 2;
  req.data[2] = 3;
  uint8_t wire[600];
  uint32_t len = 0;
  ASSERT_EQ(qmi_idl_message_encode(&Svc(), QMI_IDL_REQUEST, 0x02, &req, sizeof(req), wire,
                                   sizeof(wire), &len),
            QMI_IDL_LIB_NO_ERR);
  ASSERT_EQ(len, 567u);
  // TLV 0x10 is last: type, length 550, then the payload with 547 zero bytes behind it.
  const uint8_t *tlv = wire + 14;
  EXPECT_EQ(tlv[0], 0x10);
  EXPECT_EQ(tlv[1] | (tlv[2] << 8), 550);
  EXPECT_EQ(tlv[3], 1);
  EXPECT_EQ(tlv[5], 3);
  for (int i = 3; i < 550; ++i) {
    ASSERT_EQ(tlv[3 + i], 0) << i;
  }

  // A response without TLV 0x10 decodes with data_valid 0.
  tarvik_extend_qmi_resp_msg_v01 resp{};
  resp.result = 0;
  resp.data_len = 40;
  ASSERT_EQ(qmi_idl_message_encode(&Svc(), QMI_IDL_RESPONSE, 0x02, &resp, sizeof(resp), wire,
                                   sizeof(wire), &len),
            QMI_IDL_LIB_NO_ERR);
  EXPECT_EQ(len, 14u);
  tarvik_extend_qmi_resp_msg_v01 back;
  memset(&back, 0xFF, sizeof(back));
  ASSERT_EQ(qmi_idl_message_decode(&Svc(), QMI_IDL_RESPONSE, 0x02, wire, len, &back, sizeof(back)),
            QMI_IDL_LIB_NO_ERR);
  EXPECT_EQ(back.data_valid, 0);
  EXPECT_EQ(back.data_len, 40u);
}

TEST(ExtendTables, GroupIndicationCarriesTenCountedGroups) {
  tarvik_extend_qmi_self_study_group_ind_msg_v01 ind{};
  ind.type = 1;
  ind.count = 10;
  for (uint32_t g = 0; g < 10; ++g) {
    ind.groups[g].list_len = g % 6;  // 0..5 entries each
    for (uint32_t e = 0; e < ind.groups[g].list_len; ++e) {
      ind.groups[g].list[e].key = (uint64_t{g} << 32) | e;
      ind.groups[g].list[e].values[3] = g * 10 + e;
    }
  }
  uint8_t wire[1300];
  uint32_t len = 0;
  ASSERT_EQ(qmi_idl_message_encode(&Svc(), QMI_IDL_INDICATION, 0x06, &ind, sizeof(ind), wire,
                                   sizeof(wire), &len),
            QMI_IDL_LIB_NO_ERR);
  uint32_t entries = 0;
  for (uint32_t g = 0; g < 10; ++g) entries += g % 6;
  EXPECT_EQ(len, 14u + 3u + 10u + entries * 24u);
  tarvik_extend_qmi_self_study_group_ind_msg_v01 back{};
  ASSERT_EQ(
      qmi_idl_message_decode(&Svc(), QMI_IDL_INDICATION, 0x06, wire, len, &back, sizeof(back)),
      QMI_IDL_LIB_NO_ERR);
  for (uint32_t g = 0; g < 10; ++g) {
    SCOPED_TRACE(g);
    ASSERT_EQ(back.groups[g].list_len, g % 6);
    for (uint32_t e = 0; e < back.groups[g].list_len; ++e) {
      EXPECT_EQ(back.groups[g].list[e].key, ind.groups[g].list[e].key);
      EXPECT_EQ(back.groups[g].list[e].values[3], g * 10 + e);
    }
  }
  // A group claiming six entries is refused.
  ind.groups[4].list_len = 6;
  EXPECT_EQ(qmi_idl_message_encode(&Svc(), QMI_IDL_INDICATION, 0x06, &ind, sizeof(ind), wire,
                                   sizeof(wire), &len),
            QMI_IDL_LIB_ARRAY_TOO_BIG);
}

}  // namespace
