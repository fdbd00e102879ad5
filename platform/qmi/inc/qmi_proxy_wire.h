/*
 * The one exchange of libqmi's proxy (qmi-proxy) that is not plain QMUX: a client connects to the
 * proxy's abstract stream socket and first asks it to open a device, with a control-service
 * request (message 0xFF00, TLV 0x01: the device path, no terminator). The proxy answers with a
 * control response carrying the same transaction id and the result TLV; from then on the stream
 * carries QMUX frames as the device does. Shared by the client library's qmi-proxy transport and
 * its fuzz target.
 */
#ifndef TARVIK_PLATFORM_QMI_PROXY_WIRE_H
#define TARVIK_PLATFORM_QMI_PROXY_WIRE_H

#include <stdint.h>

#include <string>
#include <vector>

#include "qmux_frame.h"

namespace qmi_proxy {

// The abstract socket name libqmi's proxy listens on (without the leading NUL).
constexpr char kDefaultSocket[] = "qmi-proxy";
constexpr uint16_t kCtlInternalProxyOpen = 0xFF00;

// The request that opens `device` (a path of at most qmux::MaxTlvLen(0) - 3 bytes: longer is
// cut) with control transaction `txn`.
std::vector<uint8_t> OpenRequest(uint8_t txn, const std::string &device);

enum class OpenAnswer {
  kPending,    // no complete frame yet
  kOpened,     // the proxy opened the device
  kRefused,    // it answered with an error (*error: the QMI error code)
  kUnexpected  // something other than the answer came first (another frame, or no frame at all)
};

// Reads the answer to the open with transaction `txn` from what `reader` gathered. Any frame
// before the answer, and any byte that is no frame, makes the answer kUnexpected.
OpenAnswer ReadOpenAnswer(qmux::FrameReader &reader, uint8_t txn, uint16_t *error);

}  // namespace qmi_proxy

#endif /* TARVIK_PLATFORM_QMI_PROXY_WIRE_H */
