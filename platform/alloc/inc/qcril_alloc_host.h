/*
 * Host-only controls of the radio allocator stand-in, for tests: the pattern its blocks come
 * filled with, make an allocation fail and count the blocks still allocated. Library code never
 * includes this header.
 */
#ifndef TARVIK_PLATFORM_QCRIL_ALLOC_HOST_H
#define TARVIK_PLATFORM_QCRIL_ALLOC_HOST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Every byte of a block qcril_malloc_adv hands out holds this until its caller writes it. */
#define QCRIL_ALLOC_HOST_FILL 0xA5

/* The n-th qcril_malloc_adv call from now returns NULL (1: the next one); 0 disarms. Only one
 * failure is armed at a time. Thread-safe. */
void qcril_alloc_host_fail_nth(uint32_t n);

/* Calls of qcril_malloc_adv that succeeded, minus blocks given back to qcril_free_adv. */
int64_t qcril_alloc_host_outstanding(void);

/* Calls of qcril_malloc_adv since the process started (failed ones included). */
uint64_t qcril_alloc_host_calls(void);

/* Calls of qcril_free_adv with a null pointer since the process started. */
uint64_t qcril_alloc_host_null_frees(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_PLATFORM_QCRIL_ALLOC_HOST_H */
