// Drives the QMI decoder with arbitrary bytes through tables holding every element kind. The
// first byte picks the table, the rest is the TLV area. Whatever decodes must re-encode within
// the table's largest length and decode again to the same record; whatever is refused must
// leave the record zeroed. A trace of the same bytes (each TLV decoded on its own, read back by
// the table) marks a TLV exactly when the decoder refuses the area for a TLV's sake.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "codec_tables.h"
#include "fuzz_check.h"
#include "qmi_trace.h"

namespace {

using tarvik_testing::Check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0 || size > 0xFFFFFF) return 0;
  const codec_tables::FuzzTable t = codec_tables::FuzzTableFor(data[0]);
  const uint32_t wire_len = static_cast<uint32_t>(size - 1);
  // Exact-size heap copies, so that any access past either end is an ASan report.
  std::unique_ptr<uint8_t[]> wire(new uint8_t[wire_len]);
  if (wire_len != 0) memcpy(wire.get(), data + 1, wire_len);
  std::unique_ptr<uint8_t[]> rec(new uint8_t[t.record_size]);
  memset(rec.get(), 0xA5, t.record_size);

  const int32_t rc = qmi_idl_decode_elems(t.ei, wire.get(), wire_len, rec.get(), t.record_size);
  const typed_fields::Value tlvs =
      qmi_trace::DescribeTlvs(t.ei, t.record_size, wire.get(), wire_len);
  size_t marked = 0;
  for (const auto &tlv : tlvs.rows()) {
    for (const auto &f : tlv) marked += f.key == "error";
  }
  Check((marked == 0) == (rc == QMI_IDL_LIB_NO_ERR || rc == QMI_IDL_LIB_MISSING_TLV));
  Check(typed_fields::RenderText({{"", "%s", tlvs}}).empty() == (wire_len == 0));
  Check(tlvs.Json().size() >= 2);
  if (rc != QMI_IDL_LIB_NO_ERR) {
    for (uint32_t i = 0; i < t.record_size; ++i) Check(rec[i] == 0);
    return 0;
  }

  const uint32_t max_len = qmi_ei_max_len(t.ei);
  std::unique_ptr<uint8_t[]> again(new uint8_t[max_len]);
  uint32_t again_len = 0;
  Check(qmi_idl_encode_elems(t.ei, rec.get(), t.record_size, again.get(), max_len, &again_len) ==
        QMI_IDL_LIB_NO_ERR);
  Check(again_len <= max_len && again_len <= wire_len);
  std::unique_ptr<uint8_t[]> rec2(new uint8_t[t.record_size]);
  Check(qmi_idl_decode_elems(t.ei, again.get(), again_len, rec2.get(), t.record_size) ==
        QMI_IDL_LIB_NO_ERR);
  Check(memcmp(rec.get(), rec2.get(), t.record_size) == 0);
  return 0;
}
