/*
 * Modem restart level: the platform's choice between restarting the modem subsystem alone (SSR)
 * and collecting a full dump, kept in "persist.vendor.ssr.restart_level", with a backup of the
 * device's default level, and the waits used around a restart.
 *
 * Only system properties are touched; no lock is held (the property store is the only shared
 * state, and several radio processes may call at once).
 */
#ifndef TARVIK_UTILS_CUST_H
#define TARVIK_UTILS_CUST_H

#include <stdint.h>

#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* SSR types and the restart level each stands for. */
#define MODEM_RESTART_LEVEL_ID_DEF 0u     /* the backed-up default level */
#define MODEM_RESTART_LEVEL_ID_SSR 1u     /* "ALL_ENABLE" */
#define MODEM_RESTART_LEVEL_ID_DUMP 2u    /* "ALL_DISABLE" (an empty level reads as this too) */
#define MODEM_RESTART_LEVEL_ID_INVALID 3u /* any other text */

/* The current SSR type (0 to 3). The first call of the process's device life (backup flag
 * empty) backs the current level up and answers 0. A level equal to the backup is 0 whatever
 * its text. */
TARVIK_EXPORT uint32_t tarvik_get_modem_ssr_type(void);

/* Sets the level of type 0 (the backup), 1 or 2. Returns 1 when the level property was written,
 * 0 when nothing was done (already at that level, type 0 without a backup, unknown type). The
 * first change before any backup backs up the value it writes. */
TARVIK_EXPORT uint32_t tarvik_set_modem_ssr_type(uint32_t type);

/* Copies the current level's text into `name` (capacity *in_out_len, at least 2), cut to
 * capacity - 1 characters and terminated; an empty level reads "CONFIG_EMPTY". Stores the
 * length written into *in_out_len. A null argument or a capacity of 1 or less writes nothing. */
TARVIK_EXPORT void tarvik_get_modem_ssr_type_name(char *name, uint32_t *in_out_len);

/* Blocks for `seconds`, or for "persist.radio.ssr_wait_s" (default 5) when `seconds` is
 * negative; a value below 1 returns at once. Returns the value used (negative when the
 * property is). */
TARVIK_EXPORT uint32_t tarvik_modem_ssr_wait_s(int seconds);

/* The same with "persist.radio.modem_wait_s" (default 3). */
TARVIK_EXPORT uint32_t tarvik_modem_wait_s(int seconds);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_UTILS_CUST_H */
