/*
 * QMI platform library, host stand-in: translation of a data device name to the connection
 * facts the data services need (endpoint type, endpoint id, mux id).
 */
#ifndef TARVIK_PLATFORM_QMI_PLATFORM_H
#define TARVIK_PLATFORM_QMI_PLATFORM_H

#ifdef __cplusplus
extern "C" {
#endif

/* Endpoint types of data connections. */
#define DATA_EP_TYPE_RESERVED 0
#define DATA_EP_TYPE_HSIC 1
#define DATA_EP_TYPE_HSUSB 2
#define DATA_EP_TYPE_PCIE 3
#define DATA_EP_TYPE_EMBEDDED 4
#define DATA_EP_TYPE_BAM_DMUX 5

/*
 * Looks up `dev_id` (e.g. "rmnet_data0") in the device table. Returns its connection index
 * (>= 0) and fills the three outputs; -1 for an unknown name or a NULL argument, outputs
 * untouched.
 */
int qmi_linux_get_conn_id_by_name_ex(const char *dev_id, int *ep_type, int *epid, int *mux_id);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_PLATFORM_QMI_PLATFORM_H */
