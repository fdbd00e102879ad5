/*
 * Android system properties, host stand-in.
 *
 * Values live in a store directory named by TARVIK_PROPERTY_DIR (see property_store_dir()), shared
 * by every process that uses the same directory. Android's rules apply: names of allowed
 * characters only, values of at most PROPERTY_VALUE_MAX characters (the radio stack writes
 * values of exactly 92), `ro.*` written once, `ctl.*` handed to the init stand-in and not
 * stored, `persist.*` kept across restarts.
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
 * empty, or "" when default_value is NULL. Returns the length written, without the NUL.
 */
int property_get(const char *key, char *value, const char *default_value);

/* Sets `key` to `value` (NULL means ""). Returns 0 on success, -1 when refused. */
int property_set(const char *key, const char *value);

#ifdef __cplusplus
}
#endif

#endif /* TARVIK_PLATFORM_CUTILS_PROPERTIES_H */
