/*
 * Host-only extras of the property store stand-in, for the service tool and tests. Device code
 * never includes this header.
 *
 * Store directory: TARVIK_PROPERTY_DIR when set and non-empty, else $XDG_RUNTIME_DIR/
 * tarvik-properties, else /tmp/tarvik-properties-<uid>. It is chosen at the first property call
 * of the process and kept for the life of the process; it is created on demand (the per-user
 * defaults with mode 0700, and only if no other user owns them).
 *
 * Files of the directory:
 *   properties      the store: every property with a value, replaced as a whole on each write
 *                   (temporary file, fsync, rename, fsync of the directory), so that a crash
 *                   leaves the old or the new store, never a torn one.
 *   properties.tmp  the temporary of a write in progress (left behind by a writer that died).
 *   lock            writers hold an exclusive flock on it; its first 8 bytes are a change
 *                   counter that readers map into memory (odd while a write is in progress).
 *                   A process that cannot open it for writing reads the store without
 *                   caching and has its writes refused.
 *   control         the init stand-in's record of `ctl.*` requests, one line each, appended.
 * Every stored value survives restarts of every process until the directory is removed; the
 * per-user defaults live where the system clears them at reboot, like Android's non-persistent
 * properties (point TARVIK_PROPERTY_DIR at a lasting directory to keep them across reboots).
 */
#ifndef TARVIK_PLATFORM_PROPERTY_HOST_H
#define TARVIK_PLATFORM_PROPERTY_HOST_H

#ifdef __cplusplus
extern "C" {
#endif

/* Longest property name accepted, in characters. */
#define PROPERTY_NAME_MAX_HOST 255

/* The store directory of this process (see above). Never NULL; "" when it cannot be decided. */
const char *property_store_dir(void);

/*
 * Calls `fn` once for each `ctl.*` request recorded in the store directory, oldest first, with the
 * request's name (e.g. "ctl.start"), its value (e.g. a service name) and the pid of the requester.
 * Returns the number of requests, or -1 when `fn` is NULL.
 */
int property_ctl_requests(void (*fn)(const char *name, const char *value, int pid, void *cookie),
                          void *cookie);

#ifdef __cplusplus
}
#endif

#endif /* TARVIK_PLATFORM_PROPERTY_HOST_H */
