/*
 * QMUX framing, the wire format of Linux QMI devices (cdc-wdm character devices), shared by the
 * client library's qmux transport and the simulated modem. All fields little-endian.
 *
 * A frame: marker 0x01, u16 length of everything after the marker (the length field
 * included), u8 sender (0x00 control
 * point, 0x80 modem), u8 service, u8 client id, then one QMI message. The control service (0x00)
 * has a 6-byte QMI header (u8 flags 0/1/2 for request/response/indication, u8 transaction id,
 * u16 message id, u16 TLV length); every other service the 7-byte header of qmi_host::wire
 * (u8 flags 0/2/4, u16 transaction id, u16 message id, u16 TLV length).
 */
#ifndef TARVIK_PLATFORM_QMUX_FRAME_H
#define TARVIK_PLATFORM_QMUX_FRAME_H

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "qmi_idl_lib.h"

namespace qmux {

constexpr uint8_t kMarker = 0x01;
constexpr size_t kQmuxHeaderLen = 6;  // marker, length, sender, service, client
constexpr size_t kControlQmiHeaderLen = 6;
constexpr size_t kServiceQmiHeaderLen = 7;
constexpr size_t kMaxFrameLen = 1 + 0xFFFF;

constexpr uint8_t kFromControlPoint = 0x00;
constexpr uint8_t kFromModem = 0x80;
constexpr uint8_t kControlService = 0x00;
constexpr uint8_t kBroadcastClient = 0xFF;

// Control service messages.
constexpr uint16_t kCtlGetVersionInfo = 0x0021;
constexpr uint16_t kCtlAllocateClientId = 0x0022;
constexpr uint16_t kCtlReleaseClientId = 0x0023;
// Indication from the modem: the client id in TLV 0x01 {u8 service, u8 client id} is no longer
// valid (its service restarted); the control point allocates a new one.
constexpr uint16_t kCtlRevokeClientId = 0x0024;
constexpr uint16_t kCtlSync = 0x0027;

enum class Kind : uint8_t { kRequest, kResponse, kIndication };

// A frame's kind as the codec names message types.
inline qmi_idl_type_of_message_type MessageType(Kind kind) {
  return kind == Kind::kRequest    ? QMI_IDL_REQUEST
         : kind == Kind::kResponse ? QMI_IDL_RESPONSE
                                   : QMI_IDL_INDICATION;
}

struct Frame {
  uint8_t sender = kFromControlPoint;
  uint8_t service = 0;
  uint8_t client = 0;
  Kind kind = Kind::kRequest;
  uint16_t txn = 0;  // at most 0xFF for the control service
  uint16_t msg_id = 0;
  const uint8_t *tlv = nullptr;  // not owned; a parsed frame's points into the parsed bytes
  size_t tlv_len = 0;
};

// A control-service frame; `tlv` (not owned) must outlive it.
inline Frame ControlFrame(uint8_t sender, Kind kind, uint16_t txn, uint16_t msg_id,
                          const uint8_t *tlv = nullptr, size_t tlv_len = 0) {
  Frame f;
  f.sender = sender;
  f.service = kControlService;
  f.kind = kind;
  f.txn = txn;
  f.msg_id = msg_id;
  f.tlv = tlv;
  f.tlv_len = tlv_len;
  return f;
}

// Largest TLV area a frame of `service` can carry.
constexpr size_t MaxTlvLen(uint8_t service) {
  return 0xFFFF - 5 - (service == kControlService ? kControlQmiHeaderLen : kServiceQmiHeaderLen);
}

enum class ParseResult {
  kFrame,     // *frame filled, *used = the frame's length
  kNeedMore,  // the bytes are the start of a frame that may still be complete
  kMalformed  // not a frame: *used = bytes to drop before looking again (at least 1)
};

// Parses the frame at the start of data[0, size). Never reads beyond `size`.
ParseResult ParseFrame(const uint8_t *data, size_t size, Frame *frame, size_t *used);

// Appends the frame's bytes to *out. False (nothing appended) when the sender is neither side,
// the TLV area is longer than MaxTlvLen, or a control transaction id exceeds 0xFF.
bool AppendFrame(const Frame &frame, std::vector<uint8_t> *out);

// Walks a TLV area (u8 type, u16 length, value) for `type`. False when it is absent or the area
// is malformed before reaching it.
bool FindTlv(const uint8_t *tlv, size_t len, uint8_t type, const uint8_t **value,
             uint16_t *value_len);
void AppendTlv(std::vector<uint8_t> *out, uint8_t type, const uint8_t *value, uint16_t len);

// Gathers frames from a byte stream (a pseudo-terminal delivers them in arbitrary pieces; a
// cdc-wdm device one per read). Bytes that cannot start a frame are dropped and counted.
class FrameReader {
 public:
  void Append(const uint8_t *data, size_t size);
  // The next complete frame; its TLV pointer stays valid until the next Append or Next call.
  bool Next(Frame *frame);
  uint64_t dropped_bytes() const { return dropped_; }

 private:
  std::vector<uint8_t> buf_;
  size_t start_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace qmux

#endif /* TARVIK_PLATFORM_QMUX_FRAME_H */
