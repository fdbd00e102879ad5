// Decoder: walks an element table over received QMI TLVs and fills a C record. The input is
// untrusted: every read is checked against the TLV it belongs to, every write against the
// record, counts against the table's maxima; nesting is bounded by QMI_IDL_MAX_NESTING.
#include "idl_walk.h"

namespace qmi_idl {
namespace {

struct Reader {
  const uint8_t *buf;
  uint32_t len;
  uint32_t pos;

  uint32_t Left() const { return len - pos; }
  const uint8_t *Take(uint64_t n) {
    if (n > Left()) return nullptr;
    const uint8_t *p = buf + pos;
    pos += static_cast<uint32_t>(n);
    return p;
  }
};

// One record view: the walker never writes outside [base, base + size).
struct Dst {
  uint8_t *base;
  uint32_t size;
};

int32_t DecodeSeq(const qmi_elem_info *begin, const qmi_elem_info *end, Dst rec, Reader &r,
                  uint32_t depth, bool top);

// Enums sent in `width` bytes, kept sign-extended in 4.
int32_t DecodeNarrowEnums(const qmi_elem_info &e, uint32_t count, uint32_t width, Dst rec,
                          Reader &r) {
  if (!InRecord(e.offset, uint64_t{Capacity(e)} * 4, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  const uint8_t *in = r.Take(uint64_t{count} * width);
  if (in == nullptr) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
  const uint32_t sign = 1u << (8 * width - 1);
  for (uint32_t k = 0; k < count; ++k) {
    const uint32_t v = LoadLe(in + size_t{k} * width, width);
    const uint32_t wide = (v & sign) != 0 ? v | ~((sign << 1) - 1) : v;
    memcpy(rec.base + e.offset + size_t{k} * 4, &wide, sizeof wide);
  }
  return QMI_IDL_LIB_NO_ERR;
}

int32_t DecodeScalars(const qmi_elem_info &e, uint32_t count, Dst rec, Reader &r) {
  if (const uint32_t narrow = NarrowEnumWidth(e))
    return DecodeNarrowEnums(e, count, narrow, rec, r);
  const uint32_t width = ScalarWidth(e);
  if (width == 0) return QMI_IDL_LIB_PARAMETER_ERROR;
  if (!InRecord(e.offset, uint64_t{Capacity(e)} * width, rec.size))
    return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  const uint8_t *in = r.Take(uint64_t{count} * width);
  if (in == nullptr) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
  CopyScalars(rec.base + e.offset, in, size_t{count} * width, width);
  return QMI_IDL_LIB_NO_ERR;
}

int32_t DecodeStructs(const qmi_elem_info &e, uint32_t count, Dst rec, Reader &r, uint32_t depth) {
  if (e.ei_array == nullptr || depth >= QMI_IDL_MAX_NESTING) return QMI_IDL_LIB_PARAMETER_ERROR;
  if (!InRecord(e.offset, uint64_t{Capacity(e)} * e.elem_size, rec.size))
    return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  for (uint32_t k = 0; k < count; ++k) {
    const Dst inner{rec.base + e.offset + size_t{k} * e.elem_size, e.elem_size};
    const int32_t rc = DecodeSeq(e.ei_array, nullptr, inner, r, depth + 1, false);
    if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  }
  return QMI_IDL_LIB_NO_ERR;
}

// A TLV string takes the rest of its TLV; a nested one carries its length. The record keeps the
// text up to the first NUL received; the record was zeroed, so it stays terminated.
int32_t DecodeString(const qmi_elem_info &e, Dst rec, Reader &r, bool top) {
  if (!InRecord(e.offset, uint64_t{e.elem_len} + 1, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  uint32_t n = r.Left();
  if (!top) {
    const uint32_t prefix = qmi_ei_detail::string_prefix(e.elem_len);
    const uint8_t *p = r.Take(prefix);
    if (p == nullptr) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    n = LoadLe(p, prefix);
  }
  if (n > e.elem_len) return QMI_IDL_LIB_ARRAY_TOO_BIG;
  const uint8_t *in = r.Take(n);
  if (in == nullptr) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
  const void *nul = memchr(in, 0, n);
  const size_t keep =
      nul != nullptr ? static_cast<size_t>(static_cast<const uint8_t *>(nul) - in) : n;
  memcpy(rec.base + e.offset, in, keep);
  return QMI_IDL_LIB_NO_ERR;
}

int32_t DecodeElem(const qmi_elem_info &e, uint32_t count, Dst rec, Reader &r, uint32_t depth,
                   bool top) {
  switch (e.data_type) {
    case QMI_STRUCT:
      return DecodeStructs(e, count, rec, r, depth);
    case QMI_STRING:
      return e.array_type == NO_ARRAY ? DecodeString(e, rec, r, top) : QMI_IDL_LIB_PARAMETER_ERROR;
    default:
      return DecodeScalars(e, count, rec, r);
  }
}

int32_t DecodeVarArray(const qmi_elem_info &len, const qmi_elem_info &arr, Dst rec, Reader &r,
                       uint32_t depth, bool top) {
  if (!InRecord(len.offset, 4, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  const uint8_t *p = r.Take(len.elem_size);
  if (p == nullptr) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
  const uint32_t count = LoadLe(p, len.elem_size);
  if (count > arr.elem_len) return QMI_IDL_LIB_ARRAY_TOO_BIG;
  memcpy(rec.base + len.offset, &count, sizeof count);
  return DecodeElem(arr, count, rec, r, depth, top);
}

int32_t DecodeSeq(const qmi_elem_info *begin, const qmi_elem_info *end, Dst rec, Reader &r,
                  uint32_t depth, bool top) {
  for (const qmi_elem_info *e = begin; e != end && e->data_type != QMI_EOTI; ++e) {
    int32_t rc;
    if (e->data_type == QMI_DATA_LEN) {
      if (!CountEntryValid(*e, e + 1, end)) return QMI_IDL_LIB_PARAMETER_ERROR;
      rc = DecodeVarArray(*e, e[1], rec, r, depth, top);
      ++e;
    } else if (e->data_type == QMI_OPT_FLAG || e->array_type == VAR_LEN_ARRAY) {
      rc = QMI_IDL_LIB_PARAMETER_ERROR;
    } else {
      rc = DecodeElem(*e, Capacity(*e), rec, r, depth, top);
    }
    if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  }
  return QMI_IDL_LIB_NO_ERR;
}

struct TlvSet {
  uint64_t bits[4] = {0, 0, 0, 0};
  bool Has(uint8_t id) const { return (bits[id >> 6] >> (id & 63)) & 1u; }
  void Add(uint8_t id) { bits[id >> 6] |= uint64_t{1} << (id & 63); }
};

// The value of one TLV of the plan into the record: its presence flag, then its elements,
// which must take the value exactly.
__attribute__((always_inline)) inline int32_t DecodeValue(const Plan &plan, const TlvOp &op,
                                                          const uint8_t *value, uint32_t len,
                                                          Dst rec) {
  if (op.optional) {
    if (!InRecord(op.flag_off, 1, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    rec.base[op.flag_off] = 1;
  }
  if (op.plain != 0) {
    if (!InRecord(op.off, op.plain, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    if (len != op.plain) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    CopyScalars(rec.base + op.off, value, op.plain, op.width);
    return QMI_IDL_LIB_NO_ERR;
  }
  Reader r{value, len, 0};
  const int32_t rc = DecodeSeq(plan.ei + op.first, plan.ei + op.end, rec, r, 0, true);
  if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  return r.Left() == 0 ? QMI_IDL_LIB_NO_ERR : QMI_IDL_LIB_LENGTH_INCONSISTENCY;
}

// The TLVs of the area in the order they come, into a zeroed record.
int32_t DecodeWith(const Plan &plan, const uint8_t *src, uint32_t src_len, Dst rec) {
  if (plan.status != QMI_IDL_LIB_NO_ERR) return plan.status;
  TlvSet seen;
  uint32_t required = 0;  // TLVs without a presence flag decoded so far (each at most once)
  for (uint32_t pos = 0; pos < src_len;) {
    if (src_len - pos < kTlvHeaderLen) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    const uint8_t id = src[pos];
    const uint32_t len = LoadLe(src + pos + 1, 2);
    pos += kTlvHeaderLen;
    if (len > src_len - pos) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    if (seen.Has(id)) return QMI_IDL_LIB_TLV_DUPLICATED;
    seen.Add(id);
    const uint32_t k = plan.op_of[id];
    if (k == kNoOp) {
      if (id < 0x10) return QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV;
      pos += len;
      continue;
    }
    const TlvOp &op = plan.ops[k];
    if (!op.optional) ++required;
    const int32_t rc = DecodeValue(plan, op, src + pos, len, rec);
    if (rc != QMI_IDL_LIB_NO_ERR) return rc;
    pos += len;
  }
  // Every TLV of the table without a presence flag must have come.
  return required == plan.n_required ? QMI_IDL_LIB_NO_ERR : QMI_IDL_LIB_MISSING_TLV;
}

}  // namespace

int32_t DecodeTlvs(const qmi_elem_info *ei, const uint8_t *src, uint32_t src_len, uint8_t *rec,
                   uint32_t rec_size) {
  if (rec_size != 0) memset(rec, 0, rec_size);
  const int32_t rc = WithPlan(ei, [=](const Plan &plan) {
    return DecodeWith(plan, src, src_len, Dst{rec, rec_size});
  });
  // A refused message leaves no half-decoded fields behind.
  if (rc != QMI_IDL_LIB_NO_ERR && rec_size != 0) memset(rec, 0, rec_size);
  return rc;
}

int32_t DecodeOneTlv(const qmi_elem_info *ei, uint8_t id, const uint8_t *src, uint32_t src_len,
                     uint8_t *rec, uint32_t rec_size) {
  if (rec_size != 0) memset(rec, 0, rec_size);
  const int32_t rc = WithPlan(ei, [=](const Plan &plan) {
    if (plan.status != QMI_IDL_LIB_NO_ERR) return plan.status;
    const uint32_t k = plan.op_of[id];
    if (k == kNoOp) return static_cast<int32_t>(QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV);
    return DecodeValue(plan, plan.ops[k], src, src_len, Dst{rec, rec_size});
  });
  if (rc != QMI_IDL_LIB_NO_ERR && rec_size != 0) memset(rec, 0, rec_size);
  return rc;
}

}  // namespace qmi_idl
