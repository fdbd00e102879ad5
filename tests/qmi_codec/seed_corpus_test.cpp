// The seed inputs of the decoder's fuzz target, checked here against the codes they must give.
// With TARVIK_QMI_SEED_DIR set, the test also writes them there as the fuzz corpus (a selector
// byte choosing the table, then the TLV area).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "codec_test_util.h"

namespace {

using namespace codec_tables;
using codec_test::Encoded;
using codec_test::FromHex;

TEST(CodecSeedCorpus, SeedsDecodeAsExpected) {
  auto agg = codec_test::Zeroed<AggInd>();
  agg.list[0].n = 5;
  agg.list[9].n = 1;
  agg.list[9].items[0].stamp = 7;
  auto generic = codec_test::Zeroed<Generic>();
  generic.id = 2;
  generic.data_len = 4;
  generic.data_valid = 1;
  memcpy(generic.data, "\x01\x02\x03\x04", 4);
  std::vector<uint8_t> long_count = Encoded(kAllKindsEi, codec_test::FilledAllKinds(false));

  struct Seed {
    const char *name;
    uint8_t selector;
    std::vector<uint8_t> wire;
    int32_t expected;
  };
  const Seed seeds[] = {
      {"all_kinds_full", 0, Encoded(kAllKindsEi, codec_test::FilledAllKinds(true)),
       QMI_IDL_LIB_NO_ERR},
      {"all_kinds_partial", 0, long_count, QMI_IDL_LIB_NO_ERR},
      {"all_kinds_truncated", 0,
       std::vector<uint8_t>(long_count.begin(), long_count.begin() + long_count.size() / 2),
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"small_valid", 1,
       FromHex("01 04 00 44 33 22 11 02 03 00 02 aa bb 03 0b 00 02 01 01 00 05 00 00 00 02 68 69"
               " 10 02 00 fe ff 11 02 00 6f 6b 20 01 00 00"),
       QMI_IDL_LIB_NO_ERR},
      {"small_count_too_big", 1, FromHex("01 04 00 00 00 00 00 02 02 00 09 00"),
       QMI_IDL_LIB_ARRAY_TOO_BIG},
      {"small_duplicated", 1, FromHex("01 04 00 00 00 00 00 01 04 00 00 00 00 00"),
       QMI_IDL_LIB_TLV_DUPLICATED},
      {"small_unknown_mandatory", 1, FromHex("07 01 00 00"), QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV},
      {"agg_indication", 2, Encoded(kAggIndEi, agg), QMI_IDL_LIB_NO_ERR},
      {"generic_with_data", 3, Encoded(kGenericEi, generic), QMI_IDL_LIB_NO_ERR},
      {"generic_short_data", 3, FromHex("01 04 00 02 00 00 00 02 04 00 00 00 00 00 10 01 00 00"),
       QMI_IDL_LIB_LENGTH_INCONSISTENCY},
      {"plain_mix_in_order", 4,
       FromHex("01 04 00 04 03 02 01 10 02 00 fd ff 11 08 00 88 77 66 55 44 33 22 11"
               " 02 04 00 06 05 08 07 03 01 00 09"),
       QMI_IDL_LIB_NO_ERR},
      {"plain_mix_reordered", 4,
       FromHex("03 01 00 09 11 08 00 88 77 66 55 44 33 22 11 01 04 00 04 03 02 01"
               " 02 04 00 06 05 08 07"),
       QMI_IDL_LIB_NO_ERR},
  };
  const char *out_dir = getenv("TARVIK_QMI_SEED_DIR");
  for (const Seed &seed : seeds) {
    SCOPED_TRACE(seed.name);
    const FuzzTable t = FuzzTableFor(seed.selector);
    std::vector<uint8_t> rec(t.record_size);
    EXPECT_EQ(seed.expected,
              qmi_idl_decode_elems(t.ei, seed.wire.data(), static_cast<uint32_t>(seed.wire.size()),
                                   rec.data(), t.record_size));
    if (out_dir != nullptr) {
      std::ofstream f(std::string(out_dir) + "/" + seed.name, std::ios::binary);
      f.put(static_cast<char>(seed.selector));
      f.write(reinterpret_cast<const char *>(seed.wire.data()),
              static_cast<std::streamsize>(seed.wire.size()));
      ASSERT_TRUE(f.good());
    }
  }
}

}  // namespace
