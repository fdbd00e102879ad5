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

int32_t DecodeScalars(const qmi_elem_info &e, uint32_t count, Dst rec, Reader &r) {
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
  StoreU32(rec.base + len.offset, count);
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

// Zeroes the record lazily: bytes below `upto` are zero or decoded, the rest not yet touched.
// Single-scalar TLVs (the bulk of most messages) are then written once instead of being zeroed
// first; any other TLV zeroes the rest of the record before it is decoded.
struct LazyZero {
  uint8_t *rec;
  uint32_t size;
  uint32_t upto;

  // [off, off + n) is about to be written in full.
  void Cover(uint32_t off, uint32_t n) {
    if (off > upto) memset(rec + upto, 0, off - upto);
    if (off + n > upto) upto = off + n;
  }
  void Rest() {
    // Records mostly end in a few bytes of padding: not worth a call.
    uint8_t *p = rec + upto;
    switch (upto < size ? size - upto : 0) {
      case 3:
        p[2] = 0;
        [[fallthrough]];
      case 2:
        p[1] = 0;
        [[fallthrough]];
      case 1:
        p[0] = 0;
        [[fallthrough]];
      case 0:
        break;
      default:
        memset(p, 0, size - upto);
        break;
    }
    upto = size;
  }
};

struct TlvSet {
  uint64_t bits[4] = {0, 0, 0, 0};
  bool Has(uint8_t id) const { return (bits[id >> 6] >> (id & 63)) & 1u; }
  void Add(uint8_t id) { bits[id >> 6] |= uint64_t{1} << (id & 63); }
};

// A TLV that is not one plain value: its entries walked one by one, taking the whole value.
// Kept out of line so that the loop over TLVs stays small.
__attribute__((noinline)) int32_t DecodeGroup(const qmi_elem_info *first, const qmi_elem_info *end,
                                              const uint8_t *value, uint32_t len, Dst rec) {
  Reader r{value, len, 0};
  const int32_t rc = DecodeSeq(first, end, rec, r, 0, true);
  if (rc != QMI_IDL_LIB_NO_ERR) return rc;
  return r.Left() == 0 ? QMI_IDL_LIB_NO_ERR : QMI_IDL_LIB_LENGTH_INCONSISTENCY;
}

// Adds the ids of the TLV headers in src[0, end) to `seen`; those headers were checked already.
__attribute__((noinline)) void SeenBefore(const uint8_t *src, uint32_t end, TlvSet &seen) {
  for (uint32_t pos = 0; pos < end; pos += kTlvHeaderLen + LoadLe16(src + pos + 1))
    seen.Add(src[pos]);
}

// Decodes one TLV of a planned table from its value bytes; kCheckRecord as for the loop below.
template <bool kCheckRecord>
inline __attribute__((always_inline)) int32_t DecodeOneTlv(const Plan &plan, const TlvOp &op,
                                                           const uint8_t *value, uint32_t len,
                                                           Dst rec, LazyZero &zero) {
  if (op.optional) {
    if (kCheckRecord && !InRecord(op.flag_off, 1, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    zero.Cover(op.flag_off, 1);
    rec.base[op.flag_off] = 1;
  }
  if (op.plain != 0) {
    if (kCheckRecord && !InRecord(op.off, op.plain, rec.size)) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    if (len != op.plain) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    zero.Cover(op.off, op.plain);
    CopyScalars(rec.base + op.off, value, op.plain, op.width);
    return QMI_IDL_LIB_NO_ERR;
  }
  zero.Rest();
  return DecodeGroup(plan.ei + op.first, plan.ei + op.end, value, len, rec);
}

// The TLVs of the area in the order they come. With kCheckRecord (a record smaller than the
// plan's rec_need) every flag and plain value is bounds checked on its own; otherwise they are
// all inside the record already.
// On success the bytes no TLV wrote are zeroed; on failure the caller zeroes the record.
template <bool kCheckRecord>
__attribute__((noinline)) int32_t DecodePlanned(const Plan &plan, const uint8_t *src,
                                                uint32_t src_len, Dst rec) {
  LazyZero zero{rec.base, rec.size, 0};
  // While the TLVs come in table order, each one is a TLV of the table after the previous one
  // (index `next` or later), so none can be a repeat and no set of ids is kept. The first TLV
  // out of order (or unknown) switches to the set, filled from the headers already read.
  // While in order, TLV indexes [next, order_end) may come; once the order broke, order_end and
  // next are 0, so no index passes the test below.
  uint32_t order_end = plan.n_ops;
  uint32_t next = 0;
  TlvSet seen;
  uint32_t required = 0;  // TLVs without a presence flag decoded so far (each at most once)
  for (uint32_t pos = 0; pos < src_len;) {
    if (src_len - pos < kTlvHeaderLen) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    const uint8_t id = src[pos];
    const uint32_t len = LoadLe16(src + pos + 1);
    pos += kTlvHeaderLen;
    if (len > src_len - pos) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    const uint32_t k = plan.op_of[id];
    if (k - next < order_end - next) {  // kNoOp and k < next both fail
      next = k + 1;
    } else {
      if (order_end != 0) {  // the first TLV out of order (a table without TLVs has none in order)
        order_end = 0;
        next = 0;
        SeenBefore(src, pos - kTlvHeaderLen, seen);
      }
      if (seen.Has(id)) return QMI_IDL_LIB_TLV_DUPLICATED;
      seen.Add(id);
    }
    if (k != kNoOp) {
      const TlvOp &op = plan.ops[k];
      required += op.optional ? 0 : 1;
      const int32_t rc = DecodeOneTlv<kCheckRecord>(plan, op, src + pos, len, rec, zero);
      if (rc != QMI_IDL_LIB_NO_ERR) return rc;
    } else if (id < 0x10) {
      return QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV;
    }
    pos += len;
  }
  // Every TLV of the table without a presence flag must have come.
  if (required != plan.n_required) return QMI_IDL_LIB_MISSING_TLV;
  zero.Rest();
  return QMI_IDL_LIB_NO_ERR;
}

// A plain table's TLVs in table order, optional ones possibly absent, into a record that holds
// every flag and value: how a well-behaved peer sends. True when the whole area was that and is
// decoded. Anything else (a malformed or unknown TLV, a repeat, another order, a missing
// mandatory TLV) returns false, possibly with part of the record written: the general walk then
// decodes from the start and decides the outcome.
inline __attribute__((always_inline)) bool DecodePlainInOrder(const Plan &plan, const uint8_t *src,
                                                              uint32_t src_len, Dst rec) {
  LazyZero zero{rec.base, rec.size, 0};
  const TlvOp *op = plan.ops;
  const TlvOp *const last = plan.ops + plan.n_ops;
  for (uint32_t pos = 0; pos < src_len;) {
    if (src_len - pos < kTlvHeaderLen) return false;
    const uint8_t id = src[pos];
    const uint32_t len = LoadLe16(src + pos + 1);
    pos += kTlvHeaderLen;
    while (op != last && op->id != id) {
      if (!op->optional) return false;
      ++op;
    }
    if (op == last || len != op->plain || len > src_len - pos) return false;
    if (op->optional) {
      zero.Cover(op->flag_off, 1);
      rec.base[op->flag_off] = 1;
    }
    zero.Cover(op->off, op->plain);
    CopyScalars(rec.base + op->off, src + pos, op->plain, op->width);
    pos += len;
    ++op;
  }
  for (; op != last; ++op)
    if (!op->optional) return false;
  zero.Rest();
  return true;
}

int32_t DecodeWith(const Plan &plan, const uint8_t *src, uint32_t src_len, Dst rec) {
  if (plan.status != QMI_IDL_LIB_NO_ERR) return plan.status;
  if (rec.size < plan.rec_need) return DecodePlanned<true>(plan, src, src_len, rec);
  return DecodePlanned<false>(plan, src, src_len, rec);
}

// Every area but a plain table's in table order: kept out of line so that the common path stays
// a short function. A refused message leaves no half-decoded fields behind.
__attribute__((noinline)) int32_t DecodeOther(const qmi_elem_info *ei, const Plan *plan,
                                              const uint8_t *src, uint32_t src_len, Dst rec) {
  const int32_t rc = plan != nullptr ? DecodeWith(*plan, src, src_len, rec)
                                     : RunWithNewPlan(ei, [=](const Plan &fresh) {
                                         return DecodeWith(fresh, src, src_len, rec);
                                       });
  if (rc != QMI_IDL_LIB_NO_ERR && rec.size != 0) memset(rec.base, 0, rec.size);
  return rc;
}

}  // namespace

int32_t DecodeTlvs(const qmi_elem_info *ei, const uint8_t *src, uint32_t src_len, uint8_t *rec,
                   uint32_t rec_size) {
  const Dst dst{rec, rec_size};
  const Plan *plan = CachedPlan(ei);
  if (plan != nullptr && plan->plain && rec_size >= plan->rec_need &&
      DecodePlainInOrder(*plan, src, src_len, dst))
    return QMI_IDL_LIB_NO_ERR;
  return DecodeOther(ei, plan, src, src_len, dst);
}

}  // namespace qmi_idl
