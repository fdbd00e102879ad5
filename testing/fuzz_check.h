// A fuzz target's own check of what must hold for every input: a broken one aborts, so
// libFuzzer keeps the input that broke it and the sanitizers print where.
#pragma once

#include <stdlib.h>

namespace tarvik_testing {

inline void Check(bool ok) {
  if (!ok) abort();
}

}  // namespace tarvik_testing
