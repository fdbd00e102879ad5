/*
 * One-shot timers in whole seconds, identified by a small integer id. Each is a POSIX
 * per-process timer that notifies by starting a thread: the callback runs on a thread of its own
 * with a `sigval` whose `sival_int` is the timer's id. A timer fires once; its record stays in
 * the list until tarvik_timer_stop() is called with its id (the callback may do it itself).
 *
 * Ids chosen by callers and automatic ids share one name space: automatic ids start at 501, so
 * callers keep their own ids below that. All functions may be called from any thread.
 */
#ifndef TARVIK_UTILS_TIMER_H
#define TARVIK_UTILS_TIMER_H

#include <signal.h>
#include <stdbool.h>
#include <stdint.h>

#include "tarvik_common.h"

/* What runs on expiry, on a thread that the platform starts for it. */
typedef void (*tarvik_timer_callback_t)(union sigval value);

#ifdef __cplusplus

/* Starts a timer with the caller's id. False when the callback is NULL, a timer with this id is
 * running (stop it first), or the system timer could not be created or armed. A timeout of 0
 * fires at once. C++ symbol. */
TARVIK_EXPORT bool tarvik_timer_start(uint32_t timer_id, tarvik_timer_callback_t callback,
                                      unsigned long timeout_s);

/* Starts a timer with the next automatic id (501, 502, ...) and returns it; 0 on failure. A
 * failure after the id was taken (the system timer could not be made) still uses the id up.
 * C++ symbol. */
TARVIK_EXPORT uint32_t tarvik_timer_start(tarvik_timer_callback_t callback,
                                          unsigned long timeout_s);

extern "C" {
#endif

/* Disarms, deletes and forgets the first timer with this id; true when one was found, also when
 * it had already fired. A callback may stop its own timer. */
TARVIK_EXPORT bool tarvik_timer_stop(uint32_t timer_id);

/* Forgets every timer, disarming and deleting each: none of them fires after this returns
 * (a callback already running finishes; a stop of its id then finds nothing). */
TARVIK_EXPORT void tarvik_timer_clear_callback_list(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_UTILS_TIMER_H */
