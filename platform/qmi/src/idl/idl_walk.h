// Pieces the encoder and the decoder share: record bounds, TLV grouping, element checks,
// little-endian integer access and the plans of tables. Internal to the codec.
#pragma once

#include <stdint.h>
#include <string.h>

#include <atomic>

#include "qmi_idl_lib.h"

// Internal to the codec library: never exported, so calls between its files bind directly.
#pragma GCC visibility push(hidden)
namespace qmi_idl {

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// Largest value a TLV length field holds.
constexpr uint32_t kMaxTlvLen = 0xFFFF;
constexpr uint32_t kTlvHeaderLen = 3;

// True when [offset, offset + bytes) lies inside a record of `size` bytes.
inline bool InRecord(uint32_t offset, uint64_t bytes, uint32_t size) {
  return uint64_t{offset} + bytes <= size;
}

// Elements an entry holds in the record (the maximum for a variable array).
inline uint32_t Capacity(const qmi_elem_info &e) {
  return e.array_type == NO_ARRAY ? 1 : e.elem_len;
}

// A count entry is walkable when its width is 1 or 2, a variable array follows it in the same
// run of entries and a 1-byte count can express that array's maximum.
inline bool CountEntryValid(const qmi_elem_info &len, const qmi_elem_info *next,
                            const qmi_elem_info *end) {
  if (next == end || next->data_type == QMI_EOTI || next->array_type != VAR_LEN_ARRAY) return false;
  if (len.elem_size == 1) return next->elem_len <= 0xFF;
  return len.elem_size == 2;
}

// Wire width of a scalar entry, 0 when the entry is not a scalar or its element size disagrees.
inline uint32_t ScalarWidth(const qmi_elem_info &e) {
  const uint32_t w = qmi_ei_detail::scalar_width(e.data_type);
  return w == e.elem_size ? w : 0;
}

// Wire width (1 or 2) of a signed enum kept in a 4-byte record field, as QMI records keep every
// enum; 0 for any other entry.
inline uint32_t NarrowEnumWidth(const qmi_elem_info &e) {
  const bool narrow =
      e.data_type == QMI_SIGNED_1_BYTE_ENUM || e.data_type == QMI_SIGNED_2_BYTE_ENUM;
  return narrow && e.elem_size == 4 ? qmi_ei_detail::scalar_width(e.data_type) : 0;
}

// The entries of one TLV of a message table: its presence flag if it has one, then its elements
// up to the next TLV id.
struct TlvGroup {
  const qmi_elem_info *flag;
  const qmi_elem_info *first;
  const qmi_elem_info *end;
};

inline TlvGroup GroupAt(const qmi_elem_info *e) {
  TlvGroup g;
  g.flag = e->data_type == QMI_OPT_FLAG ? e : nullptr;
  g.first = g.flag != nullptr ? e + 1 : e;
  g.end = g.first;
  while (g.end->data_type != QMI_EOTI && g.end->tlv_type == e->tlv_type) ++g.end;
  return g;
}

inline uint32_t LoadLe(const uint8_t *p, uint32_t width) {
  uint32_t v = 0;
  for (uint32_t i = 0; i < width; ++i) v |= uint32_t{p[i]} << (8 * i);
  return v;
}

inline void StoreLe(uint8_t *p, uint32_t v, uint32_t width) {
  for (uint32_t i = 0; i < width; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Copies `bytes` bytes of integers `width` bytes wide between record and wire order. Single
// integers get fixed-size copies the compiler turns into one load and store.
inline void CopyScalars(uint8_t *dst, const uint8_t *src, size_t bytes, uint32_t width) {
  if (kLittleEndian || width == 1) {
    // Tests rather than a switch: a jump table's indirect branch mispredicts between TLVs.
    if (bytes == 4) {
      memcpy(dst, src, 4);
    } else if (bytes == 1) {
      *dst = *src;
    } else if (bytes == 2) {
      memcpy(dst, src, 2);
    } else if (bytes == 8) {
      memcpy(dst, src, 8);
    } else {
      memcpy(dst, src, bytes);
    }
    return;
  }
  for (size_t k = 0; k < bytes; k += width)
    for (uint32_t b = 0; b < width; ++b) dst[k + b] = src[k + width - 1 - b];
}

// A top-level table resolved once: its TLVs in table order plus an id -> TLV map, so that both
// walkers look a TLV up instead of scanning the table. Tables are read once and remembered by
// their address: they must stay unchanged for the life of the process (the static const tables
// of a service are).
struct TlvOp {
  // A value that is one scalar or one fixed array of scalars: its record offset, its length (its
  // record bytes in wire order, copied in one go) and its element width; plain is 0 otherwise.
  uint32_t off;
  uint32_t plain;
  uint32_t width;
  uint32_t flag_off;  // record offset of the presence flag, when `optional`
  uint32_t first;     // index of the TLV's first value entry (past the flag)
  uint32_t end;       // index past the TLV's entries
  uint8_t id;
  bool optional;
};

constexpr uint16_t kNoOp = 0xFFFF;
// TLV ids are one byte and each id is one run of entries, so a table has at most 256 TLVs.
constexpr uint32_t kMaxOps = 256;

struct Plan {
  const qmi_elem_info *ei;
  // QMI_IDL_LIB_PARAMETER_ERROR for a table that gives one TLV id to two runs of entries (it
  // would encode a TLV twice and could never decode), else QMI_IDL_LIB_NO_ERR.
  int32_t status;
  uint32_t n_ops;
  uint32_t n_required;  // TLVs without a presence flag
  uint16_t op_of[256];  // TLV id -> index in ops, or kNoOp
  const TlvOp *ops;
};

// Room for a plan the cache cannot keep.
struct PlanBuf {
  Plan plan;
  TlvOp ops[kMaxOps];
};

// Plans by table address: open addressing, filled once per table and never emptied, so a
// reader needs one acquire load per probe and no lock.
constexpr uint32_t kPlanSlots = 1024;
extern std::atomic<const Plan *> g_plan_slots[kPlanSlots];

inline uint32_t PlanSlot(const qmi_elem_info *ei) {
  return static_cast<uint32_t>((reinterpret_cast<uintptr_t>(ei) * 0x9E3779B97F4A7C15ull) >> 54);
}

// The kept plan of `ei`, or null when it has none yet.
inline const Plan *CachedPlan(const qmi_elem_info *ei) {
  uint32_t slot = PlanSlot(ei);
  for (uint32_t n = 0; n < kPlanSlots; ++n, slot = (slot + 1) & (kPlanSlots - 1)) {
    const Plan *p = g_plan_slots[slot].load(std::memory_order_acquire);
    if (p == nullptr || p->ei == ei) return p;
  }
  return nullptr;
}

// Builds the plan of `ei` and keeps it; when the cache is full (or memory short) the plan is
// built in `scratch` for this call only.
const Plan &AddPlan(const qmi_elem_info *ei, PlanBuf &scratch);

// Calls run(plan) with the plan of `ei`: the kept one, else one built now. A table's first use
// goes out of line, so that the callers do not carry `scratch` on their stack.
template <typename Run>
__attribute__((noinline)) int32_t RunWithNewPlan(const qmi_elem_info *ei, const Run &run) {
  PlanBuf scratch;
  return run(AddPlan(ei, scratch));
}
template <typename Run>
int32_t WithPlan(const qmi_elem_info *ei, const Run &run) {
  const Plan *plan = CachedPlan(ei);
  return plan != nullptr ? run(*plan) : RunWithNewPlan(ei, run);
}

int32_t EncodeTlvs(const qmi_elem_info *ei, const uint8_t *rec, uint32_t rec_size, uint8_t *dst,
                   uint32_t dst_len, uint32_t *encoded_len);
int32_t DecodeTlvs(const qmi_elem_info *ei, const uint8_t *src, uint32_t src_len, uint8_t *rec,
                   uint32_t rec_size);
// One TLV's value (of TLV `id`) into the record, checked as in a message.
int32_t DecodeOneTlv(const qmi_elem_info *ei, uint8_t id, const uint8_t *src, uint32_t src_len,
                     uint8_t *rec, uint32_t rec_size);

}  // namespace qmi_idl
#pragma GCC visibility pop
