// Codec speed: encode plus decode of the 560-byte generic record (u32 TLV 0x01, u32 TLV 0x02,
// optional u8[550] TLV 0x10) by the table walker, against a codec written by hand for this one
// record (BM_HandWritten: same wire bytes, same checks, the layout fixed at compile time instead
// of walked from a table), measured in the same run. The program prints the walker's ratio to
// the hand-written codec at the end (target: at most 2).
//
// For scale it also runs a plain memcpy of the 567 encoded bytes. Encode plus decode must move
// the payload twice (record to wire, wire to record) where that baseline moves it once, so no
// codec can come near it.
#include <benchmark/benchmark.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "bench_ratio.h"
#include "codec_tables.h"

namespace {

using codec_tables::Generic;
using codec_tables::kGenericEi;

constexpr uint32_t kWireLen = qmi_ei_max_len(kGenericEi);
static_assert(offsetof(Generic, data) + sizeof Generic::data == sizeof(Generic) - 1,
              "one padding byte after data");

Generic FullRecord() {
  Generic g;
  memset(&g, 0, sizeof g);
  g.id = 2;
  g.data_len = sizeof g.data;
  g.data_valid = 1;
  for (size_t i = 0; i < sizeof g.data; ++i) g.data[i] = static_cast<uint8_t>(i * 7);
  return g;
}

// The full record's encoding in `wire`; false (and the benchmark marked failed) if it fails.
bool EncodeFull(benchmark::State &state, uint8_t (&wire)[kWireLen], uint32_t *n) {
  const Generic g = FullRecord();
  if (qmi_idl_encode_elems(kGenericEi, &g, sizeof g, wire, kWireLen, n) == 0) return true;
  state.SkipWithError("encode failed");
  return false;
}

// Copies of a size the compiler cannot see: the library memcpy the table walker calls too. (A
// constant 550-byte copy would be inlined as `rep movsq`, which is slower on some machines and
// would make the comparison about the copy instruction rather than the codec.)
inline void CopyOpaque(void *dst, const void *src, size_t n) {
  asm("" : "+r"(n));  // hides the value only, unlike DoNotOptimize which also clobbers memory
  memcpy(dst, src, n);
}

// The generic record's codec by hand. Encode: output room, the presence flag. Decode: header and
// value inside the input, exact value lengths, repeated ids (unknown ones included), unknown ids
// below 0x10, missing mandatory TLVs, the absent optional TLV and the padding zeroed, the record
// zeroed on any failure.
__attribute__((noinline)) int32_t HandEncode(const Generic &g, uint8_t *w, uint32_t cap,
                                             uint32_t *n) {
  const uint32_t need = 2 * (3 + 4) + (g.data_valid != 0 ? 3 + sizeof g.data : 0);
  if (cap < need) return QMI_IDL_LIB_BUFFER_TOO_SMALL;
  const uint8_t heads[2][3] = {{0x01, 4, 0}, {0x02, 4, 0}};
  memcpy(w, heads[0], 3);
  memcpy(w + 3, &g.id, 4);
  memcpy(w + 7, heads[1], 3);
  memcpy(w + 10, &g.data_len, 4);
  if (g.data_valid != 0) {
    w[14] = 0x10;
    w[15] = sizeof g.data & 0xFF;
    w[16] = sizeof g.data >> 8;
    CopyOpaque(w + 17, g.data, sizeof g.data);
  }
  *n = need;
  return QMI_IDL_LIB_NO_ERR;
}

int32_t HandDecodeTlvs(const uint8_t *w, uint32_t len, Generic *g) {
  uint32_t seen = 0;                  // bit 0: id 0x01, bit 1: 0x02, bit 2: 0x10
  uint64_t others[4] = {0, 0, 0, 0};  // unknown optional ids, to refuse their repeats
  for (uint32_t pos = 0; pos < len;) {
    if (len - pos < 3) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    const uint8_t id = w[pos];
    const uint32_t tlv_len = w[pos + 1] | uint32_t{w[pos + 2]} << 8;
    pos += 3;
    if (tlv_len > len - pos) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
    uint32_t bit = 0;
    switch (id) {
      case 0x01:
      case 0x02:
        bit = id;
        if (tlv_len != 4) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
        memcpy(id == 0x01 ? &g->id : &g->data_len, w + pos, 4);
        break;
      case 0x10:
        bit = 4;
        if (tlv_len != sizeof g->data) return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
        g->data_valid = 1;
        CopyOpaque(g->data, w + pos, sizeof g->data);
        break;
      default: {
        if (id < 0x10) return QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV;
        uint64_t &word = others[id >> 6];
        const uint64_t mask = uint64_t{1} << (id & 63);
        if ((word & mask) != 0) return QMI_IDL_LIB_TLV_DUPLICATED;
        word |= mask;
        break;
      }
    }
    if ((seen & bit) != 0) return QMI_IDL_LIB_TLV_DUPLICATED;
    seen |= bit;
    pos += tlv_len;
  }
  if ((seen & 3) != 3) return QMI_IDL_LIB_MISSING_TLV;
  if ((seen & 4) == 0) {
    g->data_valid = 0;
    memset(g->data, 0, sizeof g->data);
  }
  reinterpret_cast<uint8_t *>(g)[sizeof *g - 1] = 0;  // the padding byte after data
  return QMI_IDL_LIB_NO_ERR;
}

__attribute__((noinline)) int32_t HandDecode(const uint8_t *w, uint32_t len, Generic *g) {
  const int32_t rc = HandDecodeTlvs(w, len, g);
  if (rc != QMI_IDL_LIB_NO_ERR) memset(g, 0, sizeof *g);
  return rc;
}

void BM_MemcpyEncoded(benchmark::State &state) {
  uint8_t wire[kWireLen];
  uint32_t n = 0;
  if (!EncodeFull(state, wire, &n)) return;
  uint8_t copy[kWireLen];
  for (auto _ : state) {
    benchmark::DoNotOptimize(wire);
    memcpy(copy, wire, n);
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(copy);
}
BENCHMARK(BM_MemcpyEncoded);

void BM_EncodeDecode(benchmark::State &state) {
  const Generic g = FullRecord();
  uint8_t wire[kWireLen];
  Generic back;
  for (auto _ : state) {
    uint32_t n = 0;
    benchmark::DoNotOptimize(g);
    const int32_t enc = qmi_idl_encode_elems(kGenericEi, &g, sizeof g, wire, sizeof wire, &n);
    const int32_t dec = qmi_idl_decode_elems(kGenericEi, wire, n, &back, sizeof back);
    if (enc != 0 || dec != 0) {
      state.SkipWithError("codec failed");
      break;
    }
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(back);
}
BENCHMARK(BM_EncodeDecode);

// The hand-written codec, checked once against the table walker: same bytes, same record.
void BM_HandWritten(benchmark::State &state) {
  const Generic g = FullRecord();
  uint8_t wire[kWireLen], expect[kWireLen];
  uint32_t n = 0, expect_n = 0;
  Generic back, expect_back;
  if (HandEncode(g, wire, sizeof wire, &n) != 0 || !EncodeFull(state, expect, &expect_n) ||
      n != expect_n || memcmp(wire, expect, n) != 0 || HandDecode(wire, n, &back) != 0 ||
      qmi_idl_decode_elems(kGenericEi, wire, n, &expect_back, sizeof expect_back) != 0 ||
      memcmp(&back, &expect_back, sizeof back) != 0) {
    state.SkipWithError("hand-written codec disagrees with the table walker");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(g);
    const int32_t enc = HandEncode(g, wire, sizeof wire, &n);
    const int32_t dec = HandDecode(wire, n, &back);
    if (enc != 0 || dec != 0) {
      state.SkipWithError("codec failed");
      break;
    }
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(back);
}
BENCHMARK(BM_HandWritten);

void BM_Encode(benchmark::State &state) {
  const Generic g = FullRecord();
  uint8_t wire[kWireLen];
  for (auto _ : state) {
    uint32_t n = 0;
    benchmark::DoNotOptimize(g);
    benchmark::DoNotOptimize(qmi_idl_encode_elems(kGenericEi, &g, sizeof g, wire, sizeof wire, &n));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Encode);

void BM_Decode(benchmark::State &state) {
  uint8_t wire[kWireLen];
  uint32_t n = 0;
  if (!EncodeFull(state, wire, &n)) return;
  Generic back;
  for (auto _ : state) {
    benchmark::DoNotOptimize(wire);
    benchmark::DoNotOptimize(qmi_idl_decode_elems(kGenericEi, wire, n, &back, sizeof back));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Decode);

}  // namespace

int main(int argc, char **argv) {
  return tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &reporter) {
    reporter.PrintRatio("BM_EncodeDecode", "BM_HandWritten", 2.0, 1,
                        tarvik_bench::RatioReporter::Judged::kCpu);
    reporter.PrintRatio("BM_EncodeDecode", "BM_MemcpyEncoded", 0);
    reporter.PrintRatio("BM_HandWritten", "BM_MemcpyEncoded", 0);
  });
}
