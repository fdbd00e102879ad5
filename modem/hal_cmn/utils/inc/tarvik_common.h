/*
 * Definitions shared by every family of libtarvik_qmi: export marks and subscription ids.
 */
#ifndef TARVIK_COMMON_H
#define TARVIK_COMMON_H

#include <stdbool.h>
#include <stdint.h>

/* The library is built with hidden visibility; exported functions and globals carry this. */
#define TARVIK_EXPORT __attribute__((visibility("default")))

#define TARVIK_PRINTF(fmt_idx, args_idx) __attribute__((format(printf, fmt_idx, args_idx)))

/* Subscription ids: 0 and 1 are the two subscriptions, 255 stands for none. */
#define TARVIK_SUB_0 0u
#define TARVIK_SUB_1 1u
#define TARVIK_SUB_NONE 255u

#endif /* TARVIK_COMMON_H */
