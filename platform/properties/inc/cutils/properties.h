/*
 * Android system properties, host stand-in.
 *
 * Values live in a store directory named by TARVIK_PROPERTY_DIR (see property_host.h), shared by
 * every process that uses the same directory. Android's rules apply: names of allowed characters
 * only, values of at most PROPERTY_VALUE_MAX characters (the radio stack writes values of exactly
 * 92), `ro.*` written once, `ctl.*` handed to the init stand-in and not stored, `persist.*` kept
 * across restarts. All calls are thread-safe and safe across processes.
 */
#ifndef TARVIK_PLATFORM_CUTILS_PROPERTIES_H
#define TARVIK_PLATFORM_CUTILS_PROPERTIES_H

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

/*
 * Copies the value of `key` into `value` (at least PROPERTY_VALUE_MAX + 1 bytes), or
 * `default_value` (truncated to PROPERTY_VALUE_MAX characters) when the property is unset or
 * empty, or "" when default_value is NULL. A NULL or illegal key reads as unset. Returns the
 * length written, without the NUL; -1 (nothing written) when `value` is NULL.
 * When the store has not changed since this process last read it, no system call is made.
 */
int property_get(const char *key, char *value, const char *default_value);

/*
 * Sets `key` to `value` (NULL means ""). Returns 0 on success, -1 when refused: an illegal name,
 * a value longer than PROPERTY_VALUE_MAX characters, a `ro.*` property that already has a value,
 * or a store that cannot be written. The new value is on disk (fsync'd) when 0 is returned.
 */
int property_set(const char *key, const char *value);

/*
 * Calls `fn` once for each stored property, in name order, with a snapshot taken at the call.
 * Returns 0, or -1 when `fn` is NULL.
 */
int property_list(void (*fn)(const char *key, const char *value, void *cookie), void *cookie);

#ifdef __cplusplus
}
#endif

#endif /* TARVIK_PLATFORM_CUTILS_PROPERTIES_H */
