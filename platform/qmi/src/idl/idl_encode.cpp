// Encoder: walks an element table over a C record and writes QMI TLVs. One function per element
// kind; every record read and every output write is bounds checked.
#include "idl_walk.h"

namespace qmi_idl {
namespace {

struct Writer {
  uint8_t *buf;
  uint32_t len;
  uint32_t pos;

  uint8_t *Take(uint64_t n) {
    if (n > len - pos) return nullptr;
    uint8_t *p = buf + pos;
    pos += static_cast<uint32_t>(n);
    return p;
  }
};

// One record view: the walker never reads outside [base, base + size).
struct Src {
  const uint8_t *base;
  uint32_t size;
};

int32_t EncodeSeq(const qmi_elem_info *begin, const qmi_elem_info *end, Src rec, Writer &w,
                  uint32_t depth, bool top);

// Enums kept in 4 bytes, sent in `width` bytes: a value the wire cannot hold is refused.
int32_t EncodeNarrowEnums(const qmi_elem_info &e, uint32_t count, uint32_t width, Src rec,
                          Writer &w) {
  if (!InRecord(e.offset, uint64_t{Capacity(e)} * 4, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  uint8_t *out = w.Take(uint64_t{count} * width);
  if (out == nullptr) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  const int32_t limit = width == 1 ? 0x80 : 0x8000;
  for (uint32_t k = 0; k < count; ++k) {
    int32_t v;
    memcpy(&v, rec.base + e.offset + size_t{k} * 4, sizeof v);
    if (v < -limit || v >= limit) return QMI_IDL_LIB_RANGE_FAILURE;
    StoreLe(out + size_t{k} * width, static_cast<uint32_t>(v), width);
  }
  return QMI_IDL_LIB_NO_ERR;
}

int32_t EncodeScalars(const qmi_elem_info &e, uint32_t count, Src rec, Writer &w) {
  if (const uint32_t narrow = NarrowEnumWidth(e))
    return EncodeNarrowEnums(e, count, narrow, rec, w);
  const uint32_t width = ScalarWidth(e);
  if (width == 0) return QMI_IDL_LIB_PARAMETER_ERROR;
  if (!InRecord(e.offset, uint64_t{Capacity(e)} * width, rec.size))
    return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  uint8_t *out = w.Take(uint64_t{count} * width);
  if (out == nullptr) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  CopyScalars(out, rec.base + e.offset, size_t{count} * width, width);
  return QMI_IDL_LIB_NO_ERR;
}

int32_t EncodeStructs(const qmi_elem_info &e, uint32_t count, Src rec, Writer &w, uint32_t depth) {
  if (e.ei_array == nullptr || depth >= QMI_IDL_MAX_NESTING) return QMI_IDL_LIB_PARAMETER_ERROR;
  if (!InRecord(e.offset, uint64_t{Capacity(e)} * e.elem_size, rec.size))
    return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  for (uint32_t k = 0; k < count; ++k) {
    const Src inner{rec.base + e.offset + size_t{k} * e.elem_size, e.elem_size};
    const int32_t rc = EncodeSeq(e.ei_array, nullptr, inner, w, depth + 1, false);
    if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  }
  return QMI_IDL_LIB_NO_ERR;
}

int32_t EncodeString(const qmi_elem_info &e, Src rec, Writer &w, bool top) {
  if (!InRecord(e.offset, uint64_t{e.elem_len} + 1, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  const char *text = reinterpret_cast<const char *>(rec.base + e.offset);
  const uint32_t n = static_cast<uint32_t>(strnlen(text, size_t{e.elem_len} + 1));
  if (n > e.elem_len) return QMI_IDL_LIB_ARRAY_TOO_BIG;
  if (!top) {
    const uint32_t prefix = qmi_ei_detail::string_prefix(e.elem_len);
    uint8_t *p = w.Take(prefix);
    if (p == nullptr) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    StoreLe(p, n, prefix);
  }
  uint8_t *out = w.Take(n);
  if (out == nullptr) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  memcpy(out, text, n);
  return QMI_IDL_LIB_NO_ERR;
}

// `count` elements of entry `e` (its full capacity unless it is a variable array).
int32_t EncodeElem(const qmi_elem_info &e, uint32_t count, Src rec, Writer &w, uint32_t depth,
                   bool top) {
  switch (e.data_type) {
    case QMI_STRUCT:
      return EncodeStructs(e, count, rec, w, depth);
    case QMI_STRING:
      return e.array_type == NO_ARRAY ? EncodeString(e, rec, w, top) : QMI_IDL_LIB_PARAMETER_ERROR;
    default:
      return EncodeScalars(e, count, rec, w);
  }
}

// A count entry and the variable array it announces.
int32_t EncodeVarArray(const qmi_elem_info &len, const qmi_elem_info &arr, Src rec, Writer &w,
                       uint32_t depth, bool top) {
  if (!InRecord(len.offset, 4, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  uint32_t count;
  memcpy(&count, rec.base + len.offset, sizeof count);
  if (count > arr.elem_len) return QMI_IDL_LIB_ARRAY_TOO_BIG;
  uint8_t *p = w.Take(len.elem_size);
  if (p == nullptr) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  StoreLe(p, count, len.elem_size);
  return EncodeElem(arr, count, rec, w, depth, top);
}

// Entries [begin, end) of one TLV, or a nested struct's whole table when `end` is null.
int32_t EncodeSeq(const qmi_elem_info *begin, const qmi_elem_info *end, Src rec, Writer &w,
                  uint32_t depth, bool top) {
  for (const qmi_elem_info *e = begin; e != end && e->data_type != QMI_EOTI; ++e) {
    int32_t rc;
    if (e->data_type == QMI_DATA_LEN) {
      if (!CountEntryValid(*e, e + 1, end)) return QMI_IDL_LIB_PARAMETER_ERROR;
      rc = EncodeVarArray(*e, e[1], rec, w, depth, top);
      ++e;
    } else if (e->data_type == QMI_OPT_FLAG || e->array_type == VAR_LEN_ARRAY) {
      // A flag belongs at the head of a TLV; a variable array needs its count entry.
      rc = QMI_IDL_LIB_PARAMETER_ERROR;
    } else {
      rc = EncodeElem(*e, Capacity(*e), rec, w, depth, top);
    }
    if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  }
  return QMI_IDL_LIB_NO_ERR;
}

// The TLVs of a planned table, in table order: each value walked after room for its header.
int32_t EncodeWith(const Plan &plan, const uint8_t *rec, uint32_t rec_size, uint8_t *dst,
                   uint32_t dst_len, uint32_t *encoded_len) {
  if (plan.status != QMI_IDL_LIB_NO_ERR) return plan.status;
  Writer w{dst, dst_len, 0};
  for (const TlvOp *op = plan.ops, *last = plan.ops + plan.n_ops; op != last; ++op) {
    if (op->optional) {
      if (!InRecord(op->flag_off, 1, rec_size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
      if (rec[op->flag_off] == 0) continue;
    }
    uint8_t *header = w.Take(kTlvHeaderLen);
    if (header == nullptr) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    const uint32_t start = w.pos;
    if (op->plain != 0) {
      if (!InRecord(op->off, op->plain, rec_size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
      uint8_t *out = w.Take(op->plain);
      if (out == nullptr) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
      CopyScalars(out, rec + op->off, op->plain, op->width);
    } else {
      const int32_t rc =
          EncodeSeq(plan.ei + op->first, plan.ei + op->end, Src{rec, rec_size}, w, 0, true);
      if (rc != QMI_IDL_LIB_NO_ERR) return rc;
    }
    if (w.pos - start > kMaxTlvLen) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    header[0] = op->id;
    StoreLe(header + 1, w.pos - start, 2);
  }
  *encoded_len = w.pos;
  return QMI_IDL_LIB_NO_ERR;
}

}  // namespace

int32_t EncodeTlvs(const qmi_elem_info *ei, const uint8_t *rec, uint32_t rec_size, uint8_t *dst,
                   uint32_t dst_len, uint32_t *encoded_len) {
  return WithPlan(ei, [=](const Plan &plan) {
    return EncodeWith(plan, rec, rec_size, dst, dst_len, encoded_len);
  });
}

}  // namespace qmi_idl
