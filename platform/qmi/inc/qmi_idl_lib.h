/*
 * QMI interface description tables and the one codec that walks them.
 *
 * Host stand-in for the platform's QMI IDL library. A service object describes every message
 * of a service as an element table (in the spirit of the Linux kernel's qmi_elem_info); the
 * codec encodes a C record into the TLV area of a QMI message and decodes it back. The same
 * tables and the same codec serve the client library, the simulated modem and the tool.
 *
 * Wire rules: little-endian; a TLV is type (u8), length (u16), value. Mandatory TLVs have ids
 * 0x01-0x0F, optional ones 0x10 and up. A variable array is a count (1 byte, or 2 bytes when the
 * table's QMI_DATA_LEN entry says so) followed by the elements; fixed arrays and nested structs
 * have no prefix. Count fields in C records are always u32.
 *
 * Details this codec settles:
 *  - A TLV of the table is optional when its first entry is a QMI_OPT_FLAG, whatever its id;
 *    every other TLV of the table is required on decode.
 *  - Integers and signed enums keep the width of their record field (1, 2, 4 or 8 bytes); a
 *    signed enum is its two's complement bytes, copied without a range check. The one exception:
 *    a 1- or 2-byte enum entry whose record field is 4 bytes (QMI records keep every enum in 4)
 *    goes on the wire in its own width, sign-extended on decode and refused with
 *    QMI_IDL_LIB_RANGE_FAILURE on encode when it does not fit.
 *  - A string that is a TLV of its own goes on the wire as its characters only, its length being
 *    the TLV's; a string inside a nested struct is prefixed by its length (1 byte when its
 *    maximum is at most 255, else 2). Neither form carries the NUL. On decode the record's text
 *    ends at the first NUL byte received, if any (later bytes are dropped).
 *  - A TLV's length must equal exactly what its elements take; a 0-length TLV is accepted only
 *    when its element can be empty (a TLV string), so an empty optional TLV of another kind is
 *    rejected.
 *  - Any TLV id seen twice is rejected, also an unknown optional one.
 *  - A table gives each TLV id one run of adjacent entries; a table that splits one is refused.
 *    A table is read once and remembered by its address, so it must stay as it is for the life
 *    of the process (a static const table does).
 *
 * Result codes by cause:
 *  - QMI_IDL_LIB_LENGTH_INCONSISTENCY: input bytes that cannot be parsed: a TLV header cut short,
 *    a TLV longer than the rest of the buffer, a TLV length other than its elements take, or an
 *    encoded TLV that would exceed 65535 bytes.
 *  - QMI_IDL_LIB_ARRAY_TOO_BIG: an array count or string length above the table's maximum.
 *  - QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV / _TLV_DUPLICATED / _MISSING_TLV: as named.
 *  - QMI_IDL_LIB_BUFFER_TOO_SMALL: a caller's buffer too small: the encode output, or a record
 *    smaller than the message's record size (or than an element of a bare table).
 *  - QMI_IDL_LIB_PARAMETER_ERROR: a null argument, a message type out of range, or a table the
 *    codec cannot walk (variable array without its count entry, count width other than 1 or 2,
 *    1-byte count with a maximum above 255, element size that disagrees with the type, nesting
 *    deeper than QMI_IDL_MAX_NESTING, a TLV id given to two runs of entries).
 *  - QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND: a message the service (or its parents) does not have.
 */
#ifndef TARVIK_PLATFORM_QMI_IDL_LIB_H
#define TARVIK_PLATFORM_QMI_IDL_LIB_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Encoder and decoder results. */
#define QMI_IDL_LIB_NO_ERR 0
#define QMI_IDL_LIB_EXTENDED_ERR (-40)
#define QMI_IDL_LIB_BUFFER_TOO_SMALL (-41)
#define QMI_IDL_LIB_ARRAY_TOO_BIG (-42)
#define QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND (-43)
#define QMI_IDL_LIB_TLV_DUPLICATED (-44)
#define QMI_IDL_LIB_LENGTH_INCONSISTENCY (-45)
#define QMI_IDL_LIB_MISSING_TLV (-46)
#define QMI_IDL_LIB_PARAMETER_ERROR (-47)
#define QMI_IDL_LIB_UNRECOGNIZED_SERVICE_VERSION (-48)
#define QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV (-49)
#define QMI_IDL_LIB_INCOMPATIBLE_SERVICE_VERSION (-50)
#define QMI_IDL_LIB_RANGE_FAILURE (-51)

/* Deepest nesting of structs a table may use; deeper (or cyclic) tables are refused. */
#define QMI_IDL_MAX_NESTING 16

typedef enum {
  QMI_IDL_REQUEST = 0,
  QMI_IDL_RESPONSE = 1,
  QMI_IDL_INDICATION = 2,
  QMI_IDL_NUM_MSG_TYPES = 3
} qmi_idl_type_of_message_type;

/* Element data types. */
enum qmi_elem_type {
  QMI_EOTI = 0, /* end of table */
  QMI_OPT_FLAG, /* u8 presence flag of the optional TLV that follows (offset of `_valid`) */
  QMI_DATA_LEN, /* u32 count of the variable array that follows; elem_size = wire width 1|2 */
  QMI_UNSIGNED_1_BYTE,
  QMI_UNSIGNED_2_BYTE,
  QMI_UNSIGNED_4_BYTE,
  QMI_UNSIGNED_8_BYTE,
  QMI_SIGNED_1_BYTE_ENUM,
  QMI_SIGNED_2_BYTE_ENUM,
  QMI_SIGNED_4_BYTE_ENUM,
  QMI_STRUCT, /* nested record described by ei_array */
  QMI_STRING  /* char[elem_len + 1] in the record, NUL-terminated; no NUL on the wire */
};

enum qmi_array_type {
  NO_ARRAY = 0,
  STATIC_ARRAY = 1, /* elem_len elements, always all on the wire */
  VAR_LEN_ARRAY = 2 /* at most elem_len elements; count from the preceding QMI_DATA_LEN */
};

/*
 * One element of a table. All entries of one TLV share its tlv_type; inside a nested struct's
 * table tlv_type is ignored. A table ends with a QMI_EOTI entry.
 */
struct qmi_elem_info {
  uint8_t data_type;                    /* enum qmi_elem_type */
  uint8_t array_type;                   /* enum qmi_array_type */
  uint8_t tlv_type;                     /* TLV id */
  uint32_t elem_len;                    /* 1, the fixed count, or the maximum count */
  uint32_t elem_size;                   /* bytes of one element in the C record */
  uint32_t offset;                      /* offset of the field in the C record */
  const struct qmi_elem_info *ei_array; /* table of a nested struct, else NULL */
  const char *name;                     /* the record field's name (traces), or NULL */
};

/* One message of a service. `ei` is NULL for an empty message (no TLVs, 1-byte record). */
typedef struct {
  uint16_t msg_id;
  uint32_t c_struct_sz; /* size of the in-memory record */
  uint32_t max_msg_len; /* largest TLV area the message can encode to */
  const struct qmi_elem_info *ei;
  const char *name; /* e.g. "rf_get_state" (traces), or NULL */
} qmi_idl_message_table_entry;

typedef struct qmi_idl_service_object {
  uint32_t library_version;
  uint32_t idl_version; /* major */
  uint32_t idl_minor_version;
  uint32_t service_id;
  uint32_t max_msg_len; /* largest encoded message of the service */
  uint16_t n_msgs[QMI_IDL_NUM_MSG_TYPES];
  const qmi_idl_message_table_entry *msgid_to_msg[QMI_IDL_NUM_MSG_TYPES];
  const struct qmi_idl_service_object *parent_service_obj;
  const char *name; /* e.g. "sar" (traces), or NULL */
} qmi_idl_service_object;

typedef const struct qmi_idl_service_object *qmi_idl_service_object_type;

/* Service and message facts. Each returns QMI_IDL_LIB_PARAMETER_ERROR on a null argument and
 * QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND for a message the service does not have. */
int32_t qmi_idl_get_service_id(qmi_idl_service_object_type service, uint32_t *service_id);
int32_t qmi_idl_get_idl_version(qmi_idl_service_object_type service, uint32_t *idl_version);
int32_t qmi_idl_get_max_service_len(qmi_idl_service_object_type service, uint32_t *service_len);
int32_t qmi_idl_get_message_c_struct_len(qmi_idl_service_object_type service,
                                         qmi_idl_type_of_message_type type, uint16_t message_id,
                                         uint32_t *c_struct_len);
int32_t qmi_idl_get_max_message_len(qmi_idl_service_object_type service,
                                    qmi_idl_type_of_message_type type, uint16_t message_id,
                                    uint32_t *message_len);
/* The table entry of a message (record size, largest length, table, name), found as the
 * facts above are; the entry belongs to the service object. */
int32_t qmi_idl_get_message_entry(qmi_idl_service_object_type service,
                                  qmi_idl_type_of_message_type type, uint16_t message_id,
                                  const qmi_idl_message_table_entry **entry);

/*
 * Encodes the record `src` (src_len bytes, at least the message's record size) into the TLV
 * area `dst` (dst_len bytes); the encoded length goes to *dst_encoded_len. Optional TLVs whose
 * flag is 0 are left out. A count above its maximum gives QMI_IDL_LIB_ARRAY_TOO_BIG; a dst too
 * small gives QMI_IDL_LIB_BUFFER_TOO_SMALL. Nothing is written past dst_len.
 */
int32_t qmi_idl_message_encode(qmi_idl_service_object_type service,
                               qmi_idl_type_of_message_type type, uint16_t message_id,
                               const void *src, uint32_t src_len, void *dst, uint32_t dst_len,
                               uint32_t *dst_encoded_len);

/*
 * Decodes the TLV area `src` (src_len bytes, any content) into the record `dst` (dst_len
 * bytes, at least the message's record size), which is zeroed first. Unknown TLVs from 0x10 up
 * are skipped; an unknown TLV below 0x10, a missing mandatory TLV, a duplicated TLV, a length
 * that disagrees with the element and a count above its maximum are errors. Never reads past
 * src_len nor writes past dst_len.
 */
int32_t qmi_idl_message_decode(qmi_idl_service_object_type service,
                               qmi_idl_type_of_message_type type, uint16_t message_id,
                               const void *src, uint32_t src_len, void *dst, uint32_t dst_len);

/* The same walkers on a bare element table (a NULL table encodes to nothing and decodes only
 * an empty or all-optional TLV area). */
int32_t qmi_idl_encode_elems(const struct qmi_elem_info *ei, const void *src, uint32_t src_len,
                             void *dst, uint32_t dst_len, uint32_t *dst_encoded_len);
int32_t qmi_idl_decode_elems(const struct qmi_elem_info *ei, const void *src, uint32_t src_len,
                             void *dst, uint32_t dst_len);

/*
 * Decodes one TLV of a message: `src` is the value (src_len bytes) of TLV `tlv_type`, checked
 * and written into the record `dst` as the message decoder does it (the record is zeroed first
 * and again on failure), without the message's own checks (other TLVs may be missing). For a
 * tool that shows a message TLV by TLV, whatever the rest of it holds.
 * QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV when the table has no TLV `tlv_type`.
 */
int32_t qmi_idl_decode_tlv(const struct qmi_elem_info *ei, uint8_t tlv_type, const void *src,
                           uint32_t src_len, void *dst, uint32_t dst_len);

/* Length of the largest TLV area the table can encode to (every optional TLV present, every
 * array and string at its maximum): the value a message's max_msg_len should hold. A NULL table
 * gives 0. QMI_IDL_LIB_PARAMETER_ERROR for a table the codec cannot walk. */
int32_t qmi_idl_max_elems_len(const struct qmi_elem_info *ei, uint32_t *max_len);

#ifdef __cplusplus
} /* extern "C" */

/*
 * Writing tables, one line per TLV. `St` is the record type, `f` a field of it (its name goes
 * into the table for traces). Scalar element types follow the field's size; K is U (unsigned)
 * or S (signed enum). The macros check at
 * compile time what the record can check: scalar sizes, count fields of 4 bytes, count widths
 * of 1 or 2, maxima that fit the array field, 1-byte flags, string fields of maxlen + 1 bytes.
 *
 *   static const qmi_elem_info foo_req_ei[] = {
 *       QMI_TLV(U, 0x01, foo_req, id),
 *       QMI_TLV_OPT(U, 0x10, foo_req, data_valid, data),            // u8 data[550] -> static array
 *       QMI_TLV_VAR(U, 1, 100, 0x11, foo_req, list_len, list),      // 1-byte count, at most 100
 *       QMI_TLV_STRUCT(0x12, foo_req, agg, agg_ei),
 *       QMI_EI_END};
 *
 * Declared constexpr, a table's largest encoding is a constant: qmi_ei_max_len(foo_req_ei).
 */
namespace qmi_ei_detail {
template <typename T>
struct elem_of {
  using type = T;
  static constexpr uint32_t count = 1;
  static constexpr uint8_t array = NO_ARRAY;
};
template <typename T, size_t N>
struct elem_of<T[N]> {
  using type = T;
  static constexpr uint32_t count = N;
  static constexpr uint8_t array = STATIC_ARRAY;
};
template <char K, size_t Size>
struct scalar_type {
  static_assert(K == 'U' || K == 'S', "element kind is U or S");
  static_assert(Size == 1 || Size == 2 || Size == 4 || (Size == 8 && K == 'U'),
                "scalar fields are 1, 2, 4 or 8 bytes (signed enums at most 4)");
  static constexpr uint8_t value = K == 'S' ? (Size == 1   ? QMI_SIGNED_1_BYTE_ENUM
                                               : Size == 2 ? QMI_SIGNED_2_BYTE_ENUM
                                                           : QMI_SIGNED_4_BYTE_ENUM)
                                            : (Size == 1   ? QMI_UNSIGNED_1_BYTE
                                               : Size == 2 ? QMI_UNSIGNED_2_BYTE
                                               : Size == 4 ? QMI_UNSIGNED_4_BYTE
                                                           : QMI_UNSIGNED_8_BYTE);
};
template <uint32_t Max, typename Field>
struct var_max {
  static_assert(elem_of<Field>::array == STATIC_ARRAY, "a variable array needs an array field");
  static_assert(Max >= 1 && Max <= elem_of<Field>::count, "maximum must fit the array field");
  static constexpr uint32_t value = Max;
};
template <uint32_t Width, size_t CountSize>
struct len_width {
  static_assert(Width == 1 || Width == 2, "count width is 1 or 2 bytes");
  static_assert(CountSize == 4, "count fields are u32");
  static constexpr uint32_t value = Width;
};
template <size_t FlagSize>
struct flag_field {
  static_assert(FlagSize == 1, "presence flags are one byte");
  static constexpr uint32_t value = 1;
};
template <size_t I, typename Field>
struct elem_index {
  static_assert(elem_of<Field>::array == STATIC_ARRAY && I < elem_of<Field>::count,
                "the element must lie inside the array field");
  static constexpr uint32_t value = I;
};
template <uint32_t MaxLen, size_t FieldSize>
struct string_max {
  static_assert(FieldSize >= size_t{MaxLen} + 1, "string field needs maxlen + 1 bytes");
  static constexpr uint32_t value = MaxLen;
};

/* Wire width of a scalar element type, 0 for the other kinds. */
constexpr uint32_t scalar_width(uint32_t data_type) {
  switch (data_type) {
    case QMI_UNSIGNED_1_BYTE:
    case QMI_SIGNED_1_BYTE_ENUM:
      return 1;
    case QMI_UNSIGNED_2_BYTE:
    case QMI_SIGNED_2_BYTE_ENUM:
      return 2;
    case QMI_UNSIGNED_4_BYTE:
    case QMI_SIGNED_4_BYTE_ENUM:
      return 4;
    case QMI_UNSIGNED_8_BYTE:
      return 8;
    default:
      return 0;
  }
}

/* A 1- or 2-byte signed enum kept in a 4-byte record field (how QMI records keep enums). */
constexpr bool narrow_enum(uint32_t data_type, uint32_t elem_size) {
  return (data_type == QMI_SIGNED_1_BYTE_ENUM || data_type == QMI_SIGNED_2_BYTE_ENUM) &&
         elem_size == 4;
}

template <uint32_t WireWidth, size_t FieldSize>
struct narrow_enum_type {
  static_assert(WireWidth == 1 || WireWidth == 2, "a narrow enum is sent in 1 or 2 bytes");
  static_assert(FieldSize == 4, "enum fields are 4 bytes in the record");
  static constexpr uint8_t value = WireWidth == 1 ? QMI_SIGNED_1_BYTE_ENUM : QMI_SIGNED_2_BYTE_ENUM;
};

/* Length prefix of a string inside a nested struct. */
constexpr uint32_t string_prefix(uint32_t max_len) {
  return max_len <= 255 ? 1 : 2;
}

constexpr uint64_t kBadTable = ~uint64_t{0};

/* Largest encoding of a table; `top` adds the TLV headers (a new TLV starts wherever the id
 * changes). kBadTable for a table the codec refuses to walk, by the walkers' own rules. */
constexpr uint64_t max_len(const qmi_elem_info *ei, bool top, uint32_t depth) {
  if (ei == nullptr) return 0;
  if (depth > QMI_IDL_MAX_NESTING) return kBadTable;
  uint64_t total = 0;
  for (uint32_t i = 0; ei[i].data_type != QMI_EOTI; ++i) {
    const bool tlv_start = i == 0 || ei[i].tlv_type != ei[i - 1].tlv_type;
    if (top && tlv_start) {
      for (uint32_t j = 0; j < i; ++j)  // one run of entries per TLV id
        if (ei[j].tlv_type == ei[i].tlv_type) return kBadTable;
      total += 3;
    }
    if (ei[i].data_type == QMI_OPT_FLAG) {
      if (!tlv_start || ei[i].elem_size != 1) return kBadTable;
      continue;
    }
    uint64_t count = ei[i].array_type == NO_ARRAY ? 1 : ei[i].elem_len;
    if (ei[i].data_type == QMI_DATA_LEN) {
      const qmi_elem_info &arr = ei[i + 1];
      if ((ei[i].elem_size != 1 && ei[i].elem_size != 2) || arr.data_type == QMI_EOTI ||
          arr.array_type != VAR_LEN_ARRAY || arr.tlv_type != ei[i].tlv_type ||
          (ei[i].elem_size == 1 && arr.elem_len > 255))
        return kBadTable;
      total += ei[i].elem_size;
      count = arr.elem_len;
      ++i;
    } else if (ei[i].array_type == VAR_LEN_ARRAY) {
      return kBadTable;
    }
    const qmi_elem_info &e = ei[i];
    if (e.data_type == QMI_STRUCT) {
      const uint64_t inner = max_len(e.ei_array, false, depth + 1);
      if (inner == kBadTable || e.ei_array == nullptr) return kBadTable;
      total += count * inner;
    } else if (e.data_type == QMI_STRING) {
      if (e.array_type != NO_ARRAY) return kBadTable;
      total += e.elem_len + (top ? 0 : string_prefix(e.elem_len));
    } else if (narrow_enum(e.data_type, e.elem_size)) {
      total += count * scalar_width(e.data_type);
    } else {
      if (scalar_width(e.data_type) == 0 || scalar_width(e.data_type) != e.elem_size)
        return kBadTable;
      total += count * e.elem_size;
    }
  }
  return total;
}
}  // namespace qmi_ei_detail

/* Largest TLV area a table encodes to; UINT32_MAX for a table the codec refuses. */
constexpr uint32_t qmi_ei_max_len(const qmi_elem_info *ei) {
  uint64_t n = qmi_ei_detail::max_len(ei, true, 0);
  return n > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(n);
}

#define QMI_EI_FIELD_T_(St, f) qmi_ei_detail::elem_of<decltype(St::f)>
#define QMI_EI_KIND_(K) (#K[0])

/* A scalar or fixed array of scalars. */
#define QMI_EI_ELEM_(K, tlv, St, f)                                                            \
  {                                                                                            \
    qmi_ei_detail::scalar_type<QMI_EI_KIND_(K), sizeof(QMI_EI_FIELD_T_(St, f)::type)>::value,  \
        QMI_EI_FIELD_T_(St, f)::array, (tlv), QMI_EI_FIELD_T_(St, f)::count,                   \
        (uint32_t)sizeof(QMI_EI_FIELD_T_(St, f)::type), (uint32_t)offsetof(St, f), nullptr, #f \
  }
#define QMI_EI_AT_(K, tlv, St, f, i)                                                          \
  {                                                                                           \
    qmi_ei_detail::scalar_type<QMI_EI_KIND_(K), sizeof(QMI_EI_FIELD_T_(St, f)::type)>::value, \
        NO_ARRAY, (tlv), 1, (uint32_t)sizeof(QMI_EI_FIELD_T_(St, f)::type),                   \
        (uint32_t)(offsetof(St, f) + qmi_ei_detail::elem_index<(i), decltype(St::f)>::value * \
                                         sizeof(QMI_EI_FIELD_T_(St, f)::type)),               \
        nullptr, #f                                                                           \
  }
#define QMI_EI_FLAG_(tlv, St, v)                                                                 \
  {                                                                                              \
    QMI_OPT_FLAG, NO_ARRAY, (tlv), 1, qmi_ei_detail::flag_field<sizeof(decltype(St::v))>::value, \
        (uint32_t)offsetof(St, v), nullptr, #v                                                   \
  }
#define QMI_EI_LEN_(width, tlv, St, n)                                     \
  {                                                                        \
    QMI_DATA_LEN, NO_ARRAY, (tlv), 1,                                      \
        qmi_ei_detail::len_width<(width), sizeof(decltype(St::n))>::value, \
        (uint32_t)offsetof(St, n), nullptr, #n                             \
  }
#define QMI_EI_VAR_(K, max, tlv, St, f)                                                        \
  {                                                                                            \
    qmi_ei_detail::scalar_type<QMI_EI_KIND_(K), sizeof(QMI_EI_FIELD_T_(St, f)::type)>::value,  \
        VAR_LEN_ARRAY, (tlv), qmi_ei_detail::var_max<(max), decltype(St::f)>::value,           \
        (uint32_t)sizeof(QMI_EI_FIELD_T_(St, f)::type), (uint32_t)offsetof(St, f), nullptr, #f \
  }
#define QMI_EI_STRUCT_(tlv, St, f, ei)                                                      \
  {                                                                                         \
    QMI_STRUCT, QMI_EI_FIELD_T_(St, f)::array, (tlv), QMI_EI_FIELD_T_(St, f)::count,        \
        (uint32_t)sizeof(QMI_EI_FIELD_T_(St, f)::type), (uint32_t)offsetof(St, f), (ei), #f \
  }
#define QMI_EI_VAR_STRUCT_(max, tlv, St, f, ei)                                              \
  {                                                                                          \
    QMI_STRUCT, VAR_LEN_ARRAY, (tlv), qmi_ei_detail::var_max<(max), decltype(St::f)>::value, \
        (uint32_t)sizeof(QMI_EI_FIELD_T_(St, f)::type), (uint32_t)offsetof(St, f), (ei), #f  \
  }
#define QMI_EI_STRING_(maxlen, tlv, St, f)                                      \
  {                                                                             \
    QMI_STRING, NO_ARRAY, (tlv),                                                \
        qmi_ei_detail::string_max<(maxlen), sizeof(decltype(St::f))>::value, 1, \
        (uint32_t)offsetof(St, f), nullptr, #f                                  \
  }

/* An enum field (4 bytes in the record) sent in `width` (1 or 2) bytes: sign-extended on decode,
 * QMI_IDL_LIB_RANGE_FAILURE on encode when the value does not fit. */
#define QMI_EI_ENUM_(width, tlv, St, f)                                                    \
  {                                                                                        \
    qmi_ei_detail::narrow_enum_type<(width), sizeof(QMI_EI_FIELD_T_(St, f)::type)>::value, \
        QMI_EI_FIELD_T_(St, f)::array, (tlv), QMI_EI_FIELD_T_(St, f)::count, 4,            \
        (uint32_t)offsetof(St, f), nullptr, #f                                             \
  }

/* Mandatory TLVs. */
#define QMI_TLV(K, tlv, St, f) QMI_EI_ELEM_(K, tlv, St, f)
#define QMI_TLV_ENUM(width, tlv, St, f) QMI_EI_ENUM_(width, tlv, St, f)
/* Element i of the scalar array field f as a TLV of its own. */
#define QMI_TLV_AT(K, tlv, St, f, i) QMI_EI_AT_(K, tlv, St, f, i)
#define QMI_TLV_VAR(K, width, max, tlv, St, n, f) \
  QMI_EI_LEN_(width, tlv, St, n), QMI_EI_VAR_(K, max, tlv, St, f)
#define QMI_TLV_STRUCT(tlv, St, f, ei) QMI_EI_STRUCT_(tlv, St, f, ei)
#define QMI_TLV_VAR_STRUCT(width, max, tlv, St, n, f, ei) \
  QMI_EI_LEN_(width, tlv, St, n), QMI_EI_VAR_STRUCT_(max, tlv, St, f, ei)
#define QMI_TLV_STRING(maxlen, tlv, St, f) QMI_EI_STRING_(maxlen, tlv, St, f)

/* Optional TLVs: `v` is the u8 presence flag. */
#define QMI_TLV_OPT(K, tlv, St, v, f) QMI_EI_FLAG_(tlv, St, v), QMI_EI_ELEM_(K, tlv, St, f)
#define QMI_TLV_OPT_ENUM(width, tlv, St, v, f) \
  QMI_EI_FLAG_(tlv, St, v), QMI_EI_ENUM_(width, tlv, St, f)
#define QMI_TLV_OPT_VAR(K, width, max, tlv, St, v, n, f) \
  QMI_EI_FLAG_(tlv, St, v), QMI_TLV_VAR(K, width, max, tlv, St, n, f)
#define QMI_TLV_OPT_STRUCT(tlv, St, v, f, ei) \
  QMI_EI_FLAG_(tlv, St, v), QMI_EI_STRUCT_(tlv, St, f, ei)
#define QMI_TLV_OPT_VAR_STRUCT(width, max, tlv, St, v, n, f, ei) \
  QMI_EI_FLAG_(tlv, St, v), QMI_TLV_VAR_STRUCT(width, max, tlv, St, n, f, ei)
#define QMI_TLV_OPT_STRING(maxlen, tlv, St, v, f) \
  QMI_EI_FLAG_(tlv, St, v), QMI_EI_STRING_(maxlen, tlv, St, f)

/* Members of a nested struct's table (tlv id 0). */
#define QMI_MEMBER(K, St, f) QMI_EI_ELEM_(K, 0, St, f)
#define QMI_MEMBER_ENUM(width, St, f) QMI_EI_ENUM_(width, 0, St, f)
#define QMI_MEMBER_VAR(K, width, max, St, n, f) QMI_TLV_VAR(K, width, max, 0, St, n, f)
#define QMI_MEMBER_STRUCT(St, f, ei) QMI_EI_STRUCT_(0, St, f, ei)
#define QMI_MEMBER_VAR_STRUCT(width, max, St, n, f, ei) \
  QMI_TLV_VAR_STRUCT(width, max, 0, St, n, f, ei)
#define QMI_MEMBER_STRING(maxlen, St, f) QMI_EI_STRING_(maxlen, 0, St, f)

#define QMI_EI_END \
  { QMI_EOTI, NO_ARRAY, 0, 0, 0, 0, nullptr, nullptr }

/*
 * Writing a service, one row per message: its id, its name and, for each direction, its record
 * type and table (NULL for a message without TLVs). Everything else of the service object
 * follows from the rows: message lists, record sizes, each message's largest encoding and the
 * service's. Names (the service's, the messages', the fields' the table macros take from the
 * record) are what traces show.
 *
 *   constexpr qmi_idl_req_resp_row kFooPairs[] = {
 *       {0x01, "set_foo", QMI_MSG(foo_req, foo_req_ei), QMI_MSG(foo_resp, foo_resp_ei)},
 *   };
 *   constexpr qmi_idl_ind_row kFooInds[] = {{0x02, "foo_changed", QMI_MSG(foo_ind, foo_ind_ei)}};
 *   constexpr auto kFoo = qmi_idl_tables_of(kFooPairs, kFooInds);
 *   const qmi_idl_service_object foo_service =
 *       qmi_idl_service_of(kFoo, tool, maj, min, id, "foo");
 *
 * A table the codec cannot walk, or a message id given twice in one direction, stops the build.
 * Tables end with a trailing comma; one of six entries or more carries `//` after its first
 * entry, which keeps clang-format from setting its entries in columns.
 */
struct qmi_idl_msg_side {
  uint32_t c_struct_sz;
  const qmi_elem_info *ei;
};
struct qmi_idl_req_resp_row {
  uint16_t msg_id;
  const char *name;
  qmi_idl_msg_side req;
  qmi_idl_msg_side resp;
};
struct qmi_idl_ind_row {
  uint16_t msg_id;
  const char *name;
  qmi_idl_msg_side ind;
};
#define QMI_MSG(St, ei) (qmi_idl_msg_side{(uint32_t)sizeof(St), (ei)})

template <size_t NPairs, size_t NInds>
struct qmi_idl_service_tables {
  qmi_idl_message_table_entry req[NPairs];
  qmi_idl_message_table_entry resp[NPairs];
  qmi_idl_message_table_entry ind[NInds > 0 ? NInds : 1];
  uint32_t max_msg_len;
};

namespace qmi_ei_detail {
/* A throw in a constant evaluation stops the build with the reason. */
constexpr qmi_idl_message_table_entry entry_of(uint16_t id, const char *name, qmi_idl_msg_side s) {
  const uint32_t max = qmi_ei_max_len(s.ei);
  if (max == UINT32_MAX) throw "a table the codec cannot walk";
  return {id, s.c_struct_sz, max, s.ei, name};
}
/* The largest message of one direction's list; refuses an id given twice. */
constexpr uint32_t largest_of(const qmi_idl_message_table_entry *m, size_t n) {
  uint32_t largest = 0;
  for (size_t k = 0; k < n; ++k) {
    for (size_t j = 0; j < k; ++j)
      if (m[j].msg_id == m[k].msg_id) throw "a message id given twice";
    largest = m[k].max_msg_len > largest ? m[k].max_msg_len : largest;
  }
  return largest;
}
template <size_t NPairs, size_t NInds>
constexpr qmi_idl_service_tables<NPairs, NInds> tables_of(const qmi_idl_req_resp_row *pairs,
                                                          const qmi_idl_ind_row *inds) {
  qmi_idl_service_tables<NPairs, NInds> t{};
  for (size_t k = 0; k < NPairs; ++k) {
    t.req[k] = entry_of(pairs[k].msg_id, pairs[k].name, pairs[k].req);
    t.resp[k] = entry_of(pairs[k].msg_id, pairs[k].name, pairs[k].resp);
  }
  for (size_t k = 0; k < NInds; ++k) {
    t.ind[k] = entry_of(inds[k].msg_id, inds[k].name, inds[k].ind);
  }
  const uint32_t req = largest_of(t.req, NPairs);
  const uint32_t resp = largest_of(t.resp, NPairs);
  const uint32_t ind = largest_of(t.ind, NInds);
  t.max_msg_len = req > resp ? (req > ind ? req : ind) : (resp > ind ? resp : ind);
  return t;
}
}  // namespace qmi_ei_detail

template <size_t NPairs, size_t NInds>
constexpr qmi_idl_service_tables<NPairs, NInds> qmi_idl_tables_of(
    const qmi_idl_req_resp_row (&pairs)[NPairs], const qmi_idl_ind_row (&inds)[NInds]) {
  return qmi_ei_detail::tables_of<NPairs, NInds>(pairs, inds);
}
/* A service without indications. */
template <size_t NPairs>
constexpr qmi_idl_service_tables<NPairs, 0> qmi_idl_tables_of(
    const qmi_idl_req_resp_row (&pairs)[NPairs]) {
  return qmi_ei_detail::tables_of<NPairs, 0>(pairs, nullptr);
}

/* The service object over tables built by qmi_idl_tables_of (kept in a constexpr variable). */
template <size_t NPairs, size_t NInds>
constexpr qmi_idl_service_object qmi_idl_service_of(const qmi_idl_service_tables<NPairs, NInds> &t,
                                                    uint32_t library_version, uint32_t idl_major,
                                                    uint32_t idl_minor, uint32_t service_id,
                                                    const char *name) {
  return {library_version,
          idl_major,
          idl_minor,
          service_id,
          t.max_msg_len,
          {(uint16_t)NPairs, (uint16_t)NPairs, (uint16_t)NInds},
          {t.req, t.resp, t.ind},
          nullptr,
          name};
}

/* What a service's versioned accessor answers: the object for exactly its versions, else NULL. */
inline qmi_idl_service_object_type qmi_idl_service_if_version(const qmi_idl_service_object &s,
                                                              uint32_t idl_major,
                                                              uint32_t idl_minor,
                                                              uint32_t library_version) {
  return idl_major == s.idl_version && idl_minor == s.idl_minor_version &&
                 library_version == s.library_version
             ? &s
             : nullptr;
}

#endif /* __cplusplus */

#endif /* TARVIK_PLATFORM_QMI_IDL_LIB_H */
