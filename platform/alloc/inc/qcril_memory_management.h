/*
 * Radio interface layer allocator, host stand-in: the allocation calls the radio process's
 * modules use for request and response structures, over malloc/free.
 */
#ifndef TARVIK_PLATFORM_QCRIL_MEMORY_MANAGEMENT_H
#define TARVIK_PLATFORM_QCRIL_MEMORY_MANAGEMENT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Block of `size` bytes (size 0 gives a valid, unique block), or NULL when memory runs out. Its
 * content is unspecified: callers zero what they fill. func_name and line_num tag the caller
 * (func_name may be NULL). */
void *qcril_malloc_adv(size_t size, const char *func_name, int line_num);

/* Frees a block of qcril_malloc_adv; NULL is ignored. */
void qcril_free_adv(void *ptr, const char *func_name, int line_num);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_PLATFORM_QCRIL_MEMORY_MANAGEMENT_H */
