// The carried service objects, checked against themselves: every message encoded at its
// largest, the versioned accessors, and the wire form of the extend service's odd records.
#include <string.h>

#include <vector>

#include "data_filter_service_v01.h"
#include "gtest/gtest.h"
#include "network_access_service_v01.h"
#include "sar_v01.h"
#include "sns_client_v01.h"
#include "tarvik_extend_qmi_v01.h"
#include "user_identity_module_v01.h"

namespace {

const qmi_idl_service_object &Svc() {
  return tarvik_extend_qmi_idl_service_object_v01;
}

// Every service table the library carries, with its versioned accessor; a new service is one
// more row.
const struct {
  const char *name;
  const qmi_idl_service_object *service;
  qmi_idl_service_object_type (*accessor)(uint32_t major, uint32_t minor, uint32_t library);
  uint32_t major, minor;
} kServices[] = {
    {"extend", &tarvik_extend_qmi_idl_service_object_v01,
     tarvik_extend_get_service_object_internal_v01, 1, 1},
    {"nas", &nas_qmi_idl_service_object_v01, nas_get_service_object_internal_v01, 1, 409},
    {"sar", &sar_qmi_idl_service_object_v01, sar_get_service_object_internal_v01, 1, 15},
    {"sensor", &SNS_CLIENT_SVC_qmi_idl_service_object_v01,
     SNS_CLIENT_SVC_get_service_object_internal_v01, 1, 3},
    {"uim", &uim_qmi_idl_service_object_v01, uim_get_service_object_internal_v01, 1, 113},
    {"dfs", &dfs_qmi_idl_service_object_v01, dfs_get_service_object_internal_v01, 1, 16},
};

// Fills `rec` so that it encodes to its largest size: every presence flag set, every variable
// array at its maximum count, every string at its longest, every value byte nonzero.
void FillMax(const qmi_elem_info *ei, uint8_t *rec) {
  for (; ei != nullptr && ei->data_type != QMI_EOTI; ++ei) {
    uint8_t *field = rec + ei->offset;
    switch (ei->data_type) {
      case QMI_OPT_FLAG:
        *field = 1;
        break;
      case QMI_DATA_LEN:
        memcpy(field, &ei[1].elem_len, sizeof(uint32_t));
        break;
      case QMI_STRUCT:
        for (uint32_t i = 0; i < ei->elem_len; ++i)
          FillMax(ei->ei_array, field + i * ei->elem_size);
        break;
      case QMI_STRING:
        memset(field, 'x', ei->elem_len);
        break;
      case QMI_SIGNED_1_BYTE_ENUM:
      case QMI_SIGNED_2_BYTE_ENUM:
        if (ei->elem_size == 4) {  // kept in 4 bytes, sent in 1 or 2: the largest it can send
          const int32_t top = ei->data_type == QMI_SIGNED_1_BYTE_ENUM ? 0x7F : 0x7FFF;
          for (uint32_t i = 0; i < ei->elem_len; ++i) memcpy(field + 4 * i, &top, sizeof(top));
          break;
        }
        [[fallthrough]];
      default:
        memset(field, 0xA5, static_cast<size_t>(ei->elem_len) * ei->elem_size);
        break;
    }
  }
}

TEST(ServiceTables, EveryMessageEncodesToTheLargestSizeItsServiceReportsAndAccessorsMatch) {
  for (const auto &svc : kServices) {
    uint32_t service_len = 0;
    ASSERT_EQ(qmi_idl_get_max_service_len(svc.service, &service_len), QMI_IDL_LIB_NO_ERR);
    uint32_t largest = 0;
    for (int type = QMI_IDL_REQUEST; type < QMI_IDL_NUM_MSG_TYPES; ++type) {
      const auto t = static_cast<qmi_idl_type_of_message_type>(type);
      for (uint16_t k = 0; k < svc.service->n_msgs[type]; ++k) {
        const qmi_idl_message_table_entry &msg = svc.service->msgid_to_msg[type][k];
        SCOPED_TRACE(::testing::Message()
                     << svc.name << " type " << type << " msg 0x" << std::hex << msg.msg_id);
        uint32_t record = 0, max_len = 0;
        ASSERT_EQ(qmi_idl_get_message_c_struct_len(svc.service, t, msg.msg_id, &record),
                  QMI_IDL_LIB_NO_ERR);
        ASSERT_EQ(qmi_idl_get_max_message_len(svc.service, t, msg.msg_id, &max_len),
                  QMI_IDL_LIB_NO_ERR);
        largest = max_len > largest ? max_len : largest;

        uint32_t encoded = 0;
        auto encode = [&](const std::vector<uint8_t> &from, std::vector<uint8_t> &to,
                          uint32_t cap) {
          return qmi_idl_message_encode(svc.service, t, msg.msg_id, from.data(), record, to.data(),
                                        cap, &encoded);
        };
        std::vector<uint8_t> rec(record, 0), wire(max_len + 1, 0), again(max_len + 1, 0);
        FillMax(msg.ei, rec.data());
        ASSERT_EQ(encode(rec, wire, max_len), QMI_IDL_LIB_NO_ERR);
        EXPECT_EQ(encoded, max_len);
        if (max_len > 0) {
          EXPECT_EQ(encode(rec, again, max_len - 1), QMI_IDL_LIB_BUFFER_TOO_SMALL);
        }
        // It decodes back to a record that encodes to the same bytes (padding compares as zero).
        std::vector<uint8_t> back(record, 0x5A);
        ASSERT_EQ(qmi_idl_message_decode(svc.service, t, msg.msg_id, wire.data(), max_len,
                                         back.data(), record),
                  QMI_IDL_LIB_NO_ERR);
        again.assign(max_len + 1, 0);
        ASSERT_EQ(encode(back, again, max_len), QMI_IDL_LIB_NO_ERR);
        EXPECT_EQ(encoded, max_len);
        EXPECT_EQ(again, wire);
      }
    }
    SCOPED_TRACE(svc.name);
    EXPECT_EQ(service_len, largest);
    // The versioned accessor answers its own version only.
    const uint32_t mj = svc.major, mn = svc.minor;
    EXPECT_EQ(svc.accessor(mj, mn, 6), svc.service);
    const uint32_t wrong[][3] = {
        {mj + 1, mn, 6}, {mj, mn - 1, 6}, {mj, mn + 1, 6}, {mj, mn, 5}, {0, 0, 0}};
    for (const auto &w : wrong) {
      EXPECT_EQ(svc.accessor(w[0], w[1], w[2]), nullptr) << w[0] << "." << w[1] << "/" << w[2];
    }
  }
}

TEST(ExtendTables, GenericRecordSendsAllPayloadBytesAndOmitsAbsentData) {
  tarvik_extend_qmi_req_msg_v01 req{};
  req.id = 4;
  req.data_len = 3;
  req.data_valid = 1;
  memcpy(req.data, "\x01\x02\x03", 3);
  uint8_t wire[600];
  uint32_t len = 0;
  ASSERT_EQ(qmi_idl_message_encode(&Svc(), QMI_IDL_REQUEST, 0x02, &req, sizeof(req), wire,
                                   sizeof(wire), &len),
            QMI_IDL_LIB_NO_ERR);
  ASSERT_EQ(len, 567u);
  // TLV 0x10 is last: type, length 550, then the payload with 547 zero bytes behind it.
  std::vector<uint8_t> tlv = {0x10, 550 & 0xFF, 550 >> 8, 1, 2, 3};
  tlv.resize(3 + 550, 0);
  EXPECT_EQ(std::vector<uint8_t>(wire + 14, wire + len), tlv);

  // A response without TLV 0x10 decodes with data_valid 0.
  tarvik_extend_qmi_resp_msg_v01 resp{};
  resp.data_len = 40;
  ASSERT_EQ(qmi_idl_message_encode(&Svc(), QMI_IDL_RESPONSE, 0x02, &resp, sizeof(resp), wire,
                                   sizeof(wire), &len),
            QMI_IDL_LIB_NO_ERR);
  EXPECT_EQ(len, 14u);
  memset(&resp, 0xFF, sizeof(resp));
  ASSERT_EQ(qmi_idl_message_decode(&Svc(), QMI_IDL_RESPONSE, 0x02, wire, len, &resp, sizeof(resp)),
            QMI_IDL_LIB_NO_ERR);
  EXPECT_EQ(resp.data_valid, 0);
  EXPECT_EQ(resp.data_len, 40u);
}

TEST(ExtendTables, GroupIndicationCarriesTenCountedGroups) {
  tarvik_extend_qmi_self_study_group_ind_msg_v01 ind, back;
  memset(&ind, 0, sizeof(ind));  // padding included: the records are compared bytewise
  memset(&back, 0, sizeof(back));
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
  EXPECT_EQ(len, 14u + 3u + 10u + 21u * 24u);  // 21 entries in all
  ASSERT_EQ(
      qmi_idl_message_decode(&Svc(), QMI_IDL_INDICATION, 0x06, wire, len, &back, sizeof(back)),
      QMI_IDL_LIB_NO_ERR);
  EXPECT_EQ(memcmp(&back, &ind, sizeof(ind)), 0) << "decoded to another record";
  // A group claiming six entries is refused.
  ind.groups[4].list_len = 6;
  EXPECT_EQ(qmi_idl_message_encode(&Svc(), QMI_IDL_INDICATION, 0x06, &ind, sizeof(ind), wire,
                                   sizeof(wire), &len),
            QMI_IDL_LIB_ARRAY_TOO_BIG);
}

}  // namespace
