// Service objects: message look-up (through parent services) and the exported entry points of
// the codec, which check their arguments and hand the record bounds to the walkers.
#include <string.h>

#include "idl_walk.h"

namespace {

// Parent chains deeper than this are treated as cyclic.
constexpr int kMaxParents = 8;

int32_t FindMessage(qmi_idl_service_object_type service, qmi_idl_type_of_message_type type,
                    uint16_t message_id, const qmi_idl_message_table_entry **out) {
  if (service == nullptr || type < QMI_IDL_REQUEST || type >= QMI_IDL_NUM_MSG_TYPES)
    return QMI_IDL_LIB_PARAMETER_ERROR;
  for (int depth = 0; service != nullptr && depth < kMaxParents;
       ++depth, service = service->parent_service_obj) {
    const qmi_idl_message_table_entry *msgs = service->msgid_to_msg[type];
    for (uint16_t k = 0; msgs != nullptr && k < service->n_msgs[type]; ++k) {
      if (msgs[k].msg_id == message_id) {
        *out = &msgs[k];
        return QMI_IDL_LIB_NO_ERR;
      }
    }
  }
  return QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND;
}

// Copies one u32 fact of the service object.
int32_t ServiceFact(qmi_idl_service_object_type service, uint32_t qmi_idl_service_object::*fact,
                    uint32_t *out) {
  if (service == nullptr || out == nullptr) return QMI_IDL_LIB_PARAMETER_ERROR;
  *out = service->*fact;
  return QMI_IDL_LIB_NO_ERR;
}

// Copies one u32 fact of a message of the service.
int32_t MessageFact(qmi_idl_service_object_type service, qmi_idl_type_of_message_type type,
                    uint16_t message_id, uint32_t qmi_idl_message_table_entry::*fact,
                    uint32_t *out) {
  const qmi_idl_message_table_entry *msg = nullptr;
  if (out == nullptr) return QMI_IDL_LIB_PARAMETER_ERROR;
  const int32_t rc = FindMessage(service, type, message_id, &msg);
  if (rc == QMI_IDL_LIB_NO_ERR) *out = msg->*fact;
  return rc;
}

}  // namespace

extern "C" {

int32_t qmi_idl_get_service_id(qmi_idl_service_object_type service, uint32_t *service_id) {
  return ServiceFact(service, &qmi_idl_service_object::service_id, service_id);
}

int32_t qmi_idl_get_idl_version(qmi_idl_service_object_type service, uint32_t *idl_version) {
  return ServiceFact(service, &qmi_idl_service_object::idl_version, idl_version);
}

int32_t qmi_idl_get_max_service_len(qmi_idl_service_object_type service, uint32_t *service_len) {
  return ServiceFact(service, &qmi_idl_service_object::max_msg_len, service_len);
}

int32_t qmi_idl_get_message_c_struct_len(qmi_idl_service_object_type service,
                                         qmi_idl_type_of_message_type type, uint16_t message_id,
                                         uint32_t *c_struct_len) {
  return MessageFact(service, type, message_id, &qmi_idl_message_table_entry::c_struct_sz,
                     c_struct_len);
}

int32_t qmi_idl_get_max_message_len(qmi_idl_service_object_type service,
                                    qmi_idl_type_of_message_type type, uint16_t message_id,
                                    uint32_t *message_len) {
  return MessageFact(service, type, message_id, &qmi_idl_message_table_entry::max_msg_len,
                     message_len);
}

int32_t qmi_idl_get_message_entry(qmi_idl_service_object_type service,
                                  qmi_idl_type_of_message_type type, uint16_t message_id,
                                  const qmi_idl_message_table_entry **entry) {
  if (entry == nullptr) return QMI_IDL_LIB_PARAMETER_ERROR;
  return FindMessage(service, type, message_id, entry);
}

int32_t qmi_idl_message_encode(qmi_idl_service_object_type service,
                               qmi_idl_type_of_message_type type, uint16_t message_id,
                               const void *src, uint32_t src_len, void *dst, uint32_t dst_len,
                               uint32_t *dst_encoded_len) {
  const qmi_idl_message_table_entry *msg = nullptr;
  if (dst_encoded_len == nullptr || (dst == nullptr && dst_len != 0))
    return QMI_IDL_LIB_PARAMETER_ERROR;
  int32_t rc = FindMessage(service, type, message_id, &msg);
  if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  if (msg->ei == nullptr) {  // an empty message: the record (if any) is not read
    *dst_encoded_len = 0;
    return QMI_IDL_LIB_NO_ERR;
  }
  if (src == nullptr) return QMI_IDL_LIB_PARAMETER_ERROR;
  if (src_len < msg->c_struct_sz) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  return qmi_idl::EncodeTlvs(msg->ei, static_cast<const uint8_t *>(src), msg->c_struct_sz,
                             static_cast<uint8_t *>(dst), dst_len, dst_encoded_len);
}

int32_t qmi_idl_message_decode(qmi_idl_service_object_type service,
                               qmi_idl_type_of_message_type type, uint16_t message_id,
                               const void *src, uint32_t src_len, void *dst, uint32_t dst_len) {
  const qmi_idl_message_table_entry *msg = nullptr;
  if ((src == nullptr && src_len != 0) || (dst == nullptr && dst_len != 0))
    return QMI_IDL_LIB_PARAMETER_ERROR;
  int32_t rc = FindMessage(service, type, message_id, &msg);
  if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  uint32_t rec_size = msg->c_struct_sz;
  if (msg->ei == nullptr) {
    // An empty message needs no record; a given one is zeroed up to the record size.
    rec_size = dst_len < rec_size ? dst_len : rec_size;
  } else if (dst == nullptr) {
    return QMI_IDL_LIB_PARAMETER_ERROR;
  } else if (dst_len < rec_size) {
    return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  }
  return qmi_idl::DecodeTlvs(msg->ei, static_cast<const uint8_t *>(src), src_len,
                             static_cast<uint8_t *>(dst), rec_size);
}

int32_t qmi_idl_encode_elems(const struct qmi_elem_info *ei, const void *src, uint32_t src_len,
                             void *dst, uint32_t dst_len, uint32_t *dst_encoded_len) {
  if (dst_encoded_len == nullptr || (src == nullptr && src_len != 0) ||
      (dst == nullptr && dst_len != 0))
    return QMI_IDL_LIB_PARAMETER_ERROR;
  return qmi_idl::EncodeTlvs(ei, static_cast<const uint8_t *>(src), src_len,
                             static_cast<uint8_t *>(dst), dst_len, dst_encoded_len);
}

int32_t qmi_idl_decode_elems(const struct qmi_elem_info *ei, const void *src, uint32_t src_len,
                             void *dst, uint32_t dst_len) {
  if ((src == nullptr && src_len != 0) || (dst == nullptr && dst_len != 0))
    return QMI_IDL_LIB_PARAMETER_ERROR;
  return qmi_idl::DecodeTlvs(ei, static_cast<const uint8_t *>(src), src_len,
                             static_cast<uint8_t *>(dst), dst_len);
}

int32_t qmi_idl_decode_tlv(const struct qmi_elem_info *ei, uint8_t tlv_type, const void *src,
                           uint32_t src_len, void *dst, uint32_t dst_len) {
  if ((src == nullptr && src_len != 0) || (dst == nullptr && dst_len != 0))
    return QMI_IDL_LIB_PARAMETER_ERROR;
  return qmi_idl::DecodeOneTlv(ei, tlv_type, static_cast<const uint8_t *>(src), src_len,
                               static_cast<uint8_t *>(dst), dst_len);
}

int32_t qmi_idl_max_elems_len(const struct qmi_elem_info *ei, uint32_t *max_len) {
  if (max_len == nullptr) return QMI_IDL_LIB_PARAMETER_ERROR;
  const uint64_t n = qmi_ei_detail::max_len(ei, true, 0);
  if (n > UINT32_MAX) return QMI_IDL_LIB_PARAMETER_ERROR;
  *max_len = static_cast<uint32_t>(n);
  return QMI_IDL_LIB_NO_ERR;
}

}  // extern "C"
