// Helpers of the codec tests: hex text to bytes and back, and records filled to the shapes the
// tests need.
#pragma once

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "codec_tables.h"
#include "common_v01.h"

namespace codec_test {

// The standard response alone: two 4-byte enums in the record, two u16 on the wire.
struct Resp {
  qmi_response_type_v01 resp;
};
constexpr qmi_elem_info kRespEi[] = {QMI_TLV_RESPONSE(Resp, resp), QMI_EI_END};

// "01 0a ff" -> bytes; spaces are ignored.
inline std::vector<uint8_t> FromHex(const std::string &hex) {
  std::vector<uint8_t> out;
  std::string digits;
  for (char c : hex)
    if (c != ' ') digits += c;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    out.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  return out;
}

// Bytes -> "01 0a ff", so that a mismatch prints as a readable diff.
inline std::string Hex(const std::vector<uint8_t> &v) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (uint8_t b : v) {
    if (!out.empty()) out += ' ';
    out += kDigits[b >> 4];
    out += kDigits[b & 15];
  }
  return out;
}

// A record zeroed to the last padding byte, so that records compare with memcmp.
template <typename T>
T Zeroed() {
  T r;
  memset(static_cast<void *>(&r), 0, sizeof r);
  return r;
}

template <typename T>
std::vector<uint8_t> Bytes(const T &r) {
  const uint8_t *p = reinterpret_cast<const uint8_t *>(&r);
  return std::vector<uint8_t>(p, p + sizeof r);
}

// The bytes of a zeroed T after `fill`.
template <typename T, typename Fill>
std::vector<uint8_t> Rec(Fill fill) {
  T r = Zeroed<T>();
  fill(r);
  return Bytes(r);
}

inline bool AllZero(const void *p, size_t n) {
  const uint8_t *b = static_cast<const uint8_t *>(p);
  return std::all_of(b, b + n, [](uint8_t v) { return v == 0; });
}

// The encoding of a record with `ei`; a failure is a test failure (and an empty result).
inline std::vector<uint8_t> Encoded(const qmi_elem_info *ei, const std::vector<uint8_t> &rec) {
  std::vector<uint8_t> wire(qmi_ei_max_len(ei));
  uint32_t n = 0;
  EXPECT_EQ(QMI_IDL_LIB_NO_ERR,
            qmi_idl_encode_elems(ei, rec.data(), static_cast<uint32_t>(rec.size()), wire.data(),
                                 static_cast<uint32_t>(wire.size()), &n));
  wire.resize(n);
  return wire;
}
template <typename T>
std::vector<uint8_t> Encoded(const qmi_elem_info *ei, const T &rec) {
  return Encoded(ei, Bytes(rec));
}

inline void FillMid(codec_tables::Mid &m, uint32_t seed, bool full) {
  m.level = static_cast<int16_t>(full ? -32768 : -1 - static_cast<int>(seed));
  m.inners_len = full ? 3 : seed % 3;
  for (uint32_t i = 0; i < m.inners_len; ++i) {
    m.inners[i].tag = static_cast<uint8_t>(seed + i);
    m.inners[i].vals_len = full ? 4 : i;
    for (uint32_t k = 0; k < m.inners[i].vals_len; ++k)
      m.inners[i].vals[k] = static_cast<uint16_t>(0xF000 + 16 * i + k);
  }
  m.fixed[0] = 0xFE;
  m.fixed[1] = static_cast<uint8_t>(seed);
  m.stamp = 0x8000000000000001ull + seed;
  strcpy(m.name, full ? "12345678" : "nm");
}

// Every optional TLV present and every array and string at its maximum when `full`; else a
// middle-sized record with the optional struct absent.
inline codec_tables::AllKinds FilledAllKinds(bool full) {
  auto r = Zeroed<codec_tables::AllKinds>();
  r.u8 = 0xFF;
  r.u16 = 0xBEEF;
  r.u32 = 0xDEADBEEF;
  r.u64 = 0x0123456789ABCDEFull;
  r.s8 = -128;
  r.s16 = -2;
  r.s32 = codec_tables::kModeLow;
  r.fixed[0] = 1;
  r.fixed[2] = 0xFFFF;
  r.var1_len = full ? 10 : 1;
  for (uint32_t i = 0; i < r.var1_len; ++i) r.var1[i] = static_cast<uint8_t>(0xA0 + i);
  r.var2_len = full ? 300 : 256;
  for (uint32_t i = 0; i < r.var2_len; ++i) r.var2[i] = static_cast<uint16_t>(i * 257);
  FillMid(r.mid, 1, full);
  FillMid(r.mids[0], 2, full);
  FillMid(r.mids[1], 3, full);
  strcpy(r.text, full ? "sixteen chars ok" : "t");
  r.opt_u32_valid = 1;
  r.opt_u32 = 0x10203040;
  r.opt_mids_valid = 1;
  r.opt_mids_len = full ? 2 : 1;
  for (uint32_t i = 0; i < r.opt_mids_len; ++i) FillMid(r.opt_mids[i], 4 + i, full);
  r.opt_text_valid = 1;
  memset(r.opt_text, 'x', full ? 300 : 20);
  r.opt_mid_valid = full ? 1 : 0;
  if (full) FillMid(r.opt_mid, 7, true);
  r.opt_bytes_valid = 1;
  r.opt_bytes_len = full ? 5 : 0;
  for (uint32_t i = 0; i < r.opt_bytes_len; ++i) r.opt_bytes[i] = static_cast<uint8_t>(i);
  return r;
}

}  // namespace codec_test
