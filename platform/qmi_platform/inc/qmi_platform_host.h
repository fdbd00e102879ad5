/*
 * Host-only configuration of the QMI platform stand-in's device table.
 *
 * The default table is rmnet_data0 .. rmnet_data7: endpoint type DATA_EP_TYPE_EMBEDDED,
 * endpoint id 1, mux id = the device number + 1. The environment variable
 * TARVIK_RMNET_DATA_COUNT (1..64), read at the first look-up, changes how many rmnet_data
 * devices there are.
 */
#ifndef TARVIK_PLATFORM_QMI_PLATFORM_HOST_H
#define TARVIK_PLATFORM_QMI_PLATFORM_HOST_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
  const char *name; /* copied */
  int ep_type;
  int epid;
  int mux_id;
} qmi_platform_host_device;

/* Replaces the table (count 0 empties it). Returns 0, or -1 for a NULL table with a nonzero
 * count or an entry without a name. */
int qmi_platform_host_set_devices(const qmi_platform_host_device *devices, size_t count);

/* The data port a modem binds to: the index of the first device with mux id `mux_id` (and, when
 * `epid` is not -1, endpoint type `ep_type` and endpoint id `epid`), or -1 when none has. */
int qmi_platform_host_find_port(int ep_type, int epid, int mux_id);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_PLATFORM_QMI_PLATFORM_HOST_H */
