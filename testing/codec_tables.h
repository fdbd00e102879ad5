// Records and element tables that exercise every element kind of the codec: the codec tests and
// the decoder's fuzz target share them.
#pragma once

#include <stdint.h>

#include "qmi_idl_lib.h"

namespace codec_tables {

enum TestMode : int32_t { kModeLow = -70000, kModeOff = 0, kModeHigh = 70000 };

// Innermost struct: a scalar and its own variable array (1-byte count).
struct Inner {
  uint8_t tag;
  uint32_t vals_len;
  uint16_t vals[4];
};
constexpr qmi_elem_info kInnerEi[] = {
    QMI_MEMBER(U, Inner, tag),
    QMI_MEMBER_VAR(U, 1, 4, Inner, vals_len, vals),
    QMI_EI_END,
};

// Middle struct: a signed enum, a variable array of structs that hold variable arrays, a
// fixed array, a 64-bit value and a string with its length prefix.
struct Mid {
  int16_t level;
  uint32_t inners_len;
  Inner inners[3];
  uint8_t fixed[2];
  uint64_t stamp;
  char name[9];
};
constexpr qmi_elem_info kMidEi[] = {
    QMI_MEMBER(S, Mid, level),  //
    QMI_MEMBER_VAR_STRUCT(1, 3, Mid, inners_len, inners, kInnerEi),
    QMI_MEMBER(U, Mid, fixed),
    QMI_MEMBER(U, Mid, stamp),
    QMI_MEMBER_STRING(8, Mid, name),
    QMI_EI_END,
};

// Every kind at the top level: scalars of each width, signed enums, arrays fixed and variable
// (1- and 2-byte counts), structs plain, fixed-array and variable-array, strings, and optional
// TLVs of each shape.
struct AllKinds {
  uint8_t u8;
  uint16_t u16;
  uint32_t u32;
  uint64_t u64;
  int8_t s8;
  int16_t s16;
  TestMode s32;
  uint16_t fixed[3];
  uint32_t var1_len;
  uint8_t var1[10];
  uint32_t var2_len;
  uint16_t var2[300];
  Mid mid;
  Mid mids[2];
  char text[17];
  uint8_t opt_u32_valid;
  uint32_t opt_u32;
  uint8_t opt_mids_valid;
  uint32_t opt_mids_len;
  Mid opt_mids[2];
  uint8_t opt_text_valid;
  char opt_text[301];
  uint8_t opt_mid_valid;
  Mid opt_mid;
  uint8_t opt_bytes_valid;
  uint32_t opt_bytes_len;
  uint8_t opt_bytes[5];
};
constexpr qmi_elem_info kAllKindsEi[] = {
    QMI_TLV(U, 0x01, AllKinds, u8),
    QMI_TLV(U, 0x02, AllKinds, u16),
    QMI_TLV(U, 0x03, AllKinds, u32),
    QMI_TLV(U, 0x04, AllKinds, u64),
    QMI_TLV(S, 0x05, AllKinds, s8),
    QMI_TLV(S, 0x06, AllKinds, s16),
    QMI_TLV(S, 0x07, AllKinds, s32),
    QMI_TLV(U, 0x08, AllKinds, fixed),
    QMI_TLV_VAR(U, 1, 10, 0x09, AllKinds, var1_len, var1),
    QMI_TLV_VAR(U, 2, 300, 0x0A, AllKinds, var2_len, var2),
    QMI_TLV_STRUCT(0x0B, AllKinds, mid, kMidEi),
    QMI_TLV_STRUCT(0x0C, AllKinds, mids, kMidEi),
    QMI_TLV_STRING(16, 0x0D, AllKinds, text),
    QMI_TLV_OPT(U, 0x10, AllKinds, opt_u32_valid, opt_u32),
    QMI_TLV_OPT_VAR_STRUCT(1, 2, 0x11, AllKinds, opt_mids_valid, opt_mids_len, opt_mids, kMidEi),
    QMI_TLV_OPT_STRING(300, 0x12, AllKinds, opt_text_valid, opt_text),
    QMI_TLV_OPT_STRUCT(0x13, AllKinds, opt_mid_valid, opt_mid, kMidEi),
    QMI_TLV_OPT_VAR(U, 2, 5, 0x14, AllKinds, opt_bytes_valid, opt_bytes_len, opt_bytes),
    QMI_EI_END,
};

// Wire sizes at the maximum: Inner 1 + 1 + 8 = 10; Mid 2 + 1 + 30 + 2 + 8 + 1 + 8 = 52.
constexpr uint32_t kMidMaxWire = 52;
static_assert(qmi_ei_detail::max_len(kMidEi, false, 0) == kMidMaxWire, "nested struct size");
constexpr uint32_t kAllKindsMaxLen =
    (3 + 1) + (3 + 2) + (3 + 4) + (3 + 8) + (3 + 1) + (3 + 2) + (3 + 4) + (3 + 6) + (3 + 1 + 10) +
    (3 + 2 + 600) + (3 + kMidMaxWire) + (3 + 2 * kMidMaxWire) + (3 + 16) + (3 + 4) +
    (3 + 1 + 2 * kMidMaxWire) + (3 + 300) + (3 + kMidMaxWire) + (3 + 2 + 5);
static_assert(qmi_ei_max_len(kAllKindsEi) == kAllKindsMaxLen, "largest encoding");

// The 560-byte generic record of a vendor service: u32 TLV 0x01, u32 TLV 0x02, optional
// u8[550] TLV 0x10.
struct Generic {
  uint32_t id;
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[550];
};
static_assert(sizeof(Generic) == 560, "generic record layout");
constexpr qmi_elem_info kGenericEi[] = {
    QMI_TLV(U, 0x01, Generic, id),
    QMI_TLV(U, 0x02, Generic, data_len),
    QMI_TLV_OPT(U, 0x10, Generic, data_valid, data),
    QMI_EI_END,
};
static_assert(qmi_ei_max_len(kGenericEi) == 567, "generic message length");

// Aggregates of the same service: a struct of u64 and 4 x u32, and a variable array of at most
// five of them whose elements start at offset 8; an indication carries ten of the latter.
struct Agg1 {
  uint64_t stamp;
  uint32_t v[4];
};
struct Agg2 {
  uint32_t n;
  Agg1 items[5];
};
static_assert(sizeof(Agg1) == 24 && sizeof(Agg2) == 128, "aggregate layouts");
constexpr qmi_elem_info kAgg1Ei[] = {
    QMI_MEMBER(U, Agg1, stamp),
    QMI_MEMBER(U, Agg1, v),
    QMI_EI_END,
};
constexpr qmi_elem_info kAgg2Ei[] = {
    QMI_MEMBER_VAR_STRUCT(1, 5, Agg2, n, items, kAgg1Ei),
    QMI_EI_END,
};
struct AggInd {
  uint32_t a;
  uint32_t b;
  Agg2 list[10];
};
static_assert(sizeof(AggInd) == 1288, "aggregate indication layout");
constexpr qmi_elem_info kAggIndEi[] = {
    QMI_TLV(U, 0x01, AggInd, a),
    QMI_TLV(U, 0x02, AggInd, b),
    QMI_TLV_STRUCT(0x03, AggInd, list, kAgg2Ei),
    QMI_EI_END,
};
static_assert(qmi_ei_max_len(kAggIndEi) == 1227, "aggregate indication length");

// A small message for hand-written bytes: a u32, a 1-byte-count array, a struct holding a
// 2-byte-count array and a string, an optional signed enum and an optional TLV string.
struct Pair {
  uint16_t a;
  uint32_t vals_len;
  uint32_t vals[2];
  char label[4];
};
constexpr qmi_elem_info kPairEi[] = {
    QMI_MEMBER(U, Pair, a),
    QMI_MEMBER_VAR(U, 2, 2, Pair, vals_len, vals),
    QMI_MEMBER_STRING(3, Pair, label),
    QMI_EI_END,
};
struct Small {
  uint32_t id;
  uint32_t list_len;
  uint8_t list[4];
  Pair pair;
  uint8_t opt_valid;
  int16_t opt;
  uint8_t name_valid;
  char name[6];
};
constexpr qmi_elem_info kSmallEi[] = {
    QMI_TLV(U, 0x01, Small, id),
    QMI_TLV_VAR(U, 1, 4, 0x02, Small, list_len, list),
    QMI_TLV_STRUCT(0x03, Small, pair, kPairEi),
    QMI_TLV_OPT(S, 0x10, Small, opt_valid, opt),
    QMI_TLV_OPT_STRING(5, 0x11, Small, name_valid, name),
    QMI_EI_END,
};

// Plain values only, but in a table order that is not the record's and with optional TLVs
// between the mandatory ones: a peer may leave out any optional TLV, and the decoder must then
// zero its flag and value wherever they lie in the record.
struct PlainMix {
  uint64_t stamp;
  uint32_t code;
  uint8_t stamp_valid;
  uint8_t level_valid;
  int16_t level;
  uint16_t pair[2];
  uint8_t tail;
};
static_assert(sizeof(PlainMix) == 24, "plain mix layout (3 bytes of padding at the end)");
constexpr qmi_elem_info kPlainMixEi[] = {
    QMI_TLV(U, 0x01, PlainMix, code),
    QMI_TLV_OPT(S, 0x10, PlainMix, level_valid, level),
    QMI_TLV_OPT(U, 0x11, PlainMix, stamp_valid, stamp),
    QMI_TLV(U, 0x02, PlainMix, pair),
    QMI_TLV(U, 0x03, PlainMix, tail),
    QMI_EI_END,
};

// The decoder's fuzz input is a selector byte choosing one of these tables, then a TLV area.
struct FuzzTable {
  const qmi_elem_info *ei;
  uint32_t record_size;
};
inline FuzzTable FuzzTableFor(uint8_t selector) {
  static const FuzzTable kTables[] = {
      {kAllKindsEi, sizeof(AllKinds)}, {kSmallEi, sizeof(Small)},       {kAggIndEi, sizeof(AggInd)},
      {kGenericEi, sizeof(Generic)},   {kPlainMixEi, sizeof(PlainMix)},
  };
  return kTables[selector % (sizeof kTables / sizeof kTables[0])];
}

}  // namespace codec_tables
