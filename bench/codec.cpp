// Codec speed: encode plus decode of the 560-byte generic record (u32 TLV 0x01, u32 TLV 0x02,
// optional u8[550] TLV 0x10) against a plain memcpy of its 567 encoded bytes, measured in the
// same run. The program prints the ratio at the end (target: at most 3).
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "../tests/qmi_codec/codec_tables.h"
#include "bench_ratio.h"

namespace {

using codec_tables::Generic;
using codec_tables::kGenericEi;

constexpr uint32_t kWireLen = qmi_ei_max_len(kGenericEi);

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
    reporter.PrintRatio("BM_EncodeDecode", "BM_MemcpyEncoded", 3.0);
  });
}
