// The library's logging switched off, as a device does with its log properties: what the
// benchmarks and the fuzz targets do before driving the library, so that neither measures nor
// floods the log.
#pragma once

#include "tarvik_extend_api.h"
#include "tarvik_utils_cmn.h"

namespace tarvik_testing {

inline void SilenceLibraryLogging() {
  // Load the masks from their properties first, so the zeros below are what stays.
  tarvik_hal_get_logcat_print_flag(0);
  tarvik_hal_get_shell_print_flag(0);
  tarvik_hal_set_logcat_print_mask(0);
  tarvik_hal_set_shell_print_mask(0);
  __atomic_store_n(&g_tarvik_extend_debug_flag, 0, __ATOMIC_RELAXED);
}

}  // namespace tarvik_testing
