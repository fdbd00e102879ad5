#include "qmi_proxy_wire.h"

#include <algorithm>

#include "qmi_client_host.h"

namespace qmi_proxy {

std::vector<uint8_t> OpenRequest(uint8_t txn, const std::string &device) {
  const size_t len = std::min(device.size(), qmux::MaxTlvLen(qmux::kControlService) - 3);
  std::vector<uint8_t> tlv;
  qmux::AppendTlv(&tlv, 0x01, reinterpret_cast<const uint8_t *>(device.data()),
                  static_cast<uint16_t>(len));
  std::vector<uint8_t> out;
  qmux::AppendFrame(qmux::ControlFrame(qmux::kFromControlPoint, qmux::Kind::kRequest, txn,
                                       kCtlInternalProxyOpen, tlv.data(), tlv.size()),
                    &out);
  return out;
}

OpenAnswer ReadOpenAnswer(qmux::FrameReader &reader, uint8_t txn, uint16_t *error) {
  qmux::Frame f;
  const bool got = reader.Next(&f);
  if (reader.dropped_bytes() != 0) return OpenAnswer::kUnexpected;
  if (!got) return OpenAnswer::kPending;
  if (f.sender != qmux::kFromModem || f.service != qmux::kControlService ||
      f.kind != qmux::Kind::kResponse || f.msg_id != kCtlInternalProxyOpen || f.txn != txn) {
    return OpenAnswer::kUnexpected;
  }
  const uint8_t *v = nullptr;
  uint16_t n = 0;
  if (!qmux::FindTlv(f.tlv, f.tlv_len, 0x02, &v, &n) || n < 4) return OpenAnswer::kUnexpected;
  *error = qmi_host::wire::GetU16(v + 2);
  return qmi_host::wire::GetU16(v) == 0 ? OpenAnswer::kOpened : OpenAnswer::kRefused;
}

}  // namespace qmi_proxy
