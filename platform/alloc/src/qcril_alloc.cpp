// Radio allocator stand-in over malloc/free, with an armed failure for tests. Blocks come filled
// with a pattern, never zeroed, so that a caller that forgets to zero what it fills shows.
#include <stdlib.h>
#include <string.h>

#include <atomic>

#include "qcril_alloc_host.h"
#include "qcril_memory_management.h"

namespace {
std::atomic<uint64_t> g_calls{0};
std::atomic<int64_t> g_outstanding{0};
// Call number (1-based, compared with g_calls) that fails; 0: none.
std::atomic<uint64_t> g_fail_at{0};
std::atomic<uint64_t> g_null_frees{0};
}  // namespace

extern "C" {

void *qcril_malloc_adv(size_t size, const char * /*func_name*/, int /*line_num*/) {
  const uint64_t call = ++g_calls;
  uint64_t armed = call;
  if (g_fail_at.compare_exchange_strong(armed, 0)) return nullptr;
  void *p = malloc(size == 0 ? 1 : size);
  if (p == nullptr) return nullptr;
  memset(p, QCRIL_ALLOC_HOST_FILL, size == 0 ? 1 : size);
  ++g_outstanding;
  return p;
}

void qcril_free_adv(void *ptr, const char * /*func_name*/, int /*line_num*/) {
  if (ptr == nullptr) {
    ++g_null_frees;
    return;
  }
  --g_outstanding;
  free(ptr);
}

void qcril_alloc_host_fail_nth(uint32_t n) {
  g_fail_at = n == 0 ? 0 : g_calls.load() + n;
}

int64_t qcril_alloc_host_outstanding(void) {
  return g_outstanding.load();
}

uint64_t qcril_alloc_host_calls(void) {
  return g_calls.load();
}

uint64_t qcril_alloc_host_null_frees(void) {
  return g_null_frees.load();
}

}  // extern "C"
