#include "qmux_frame.h"

#include <string.h>

#include "qmi_client_host.h"

namespace qmux {
namespace {

using qmi_host::wire::GetU16;
void PutU16(std::vector<uint8_t> *out, uint16_t v) {
  qmi_host::wire::AppendU16(out, v);
}

// QMI header flags per kind: control service, other services.
constexpr uint8_t kControlFlags[] = {0x00, 0x01, 0x02};
constexpr uint8_t kServiceFlags[] = {0x00, 0x02, 0x04};

bool KindFromFlags(bool control, uint8_t flags, Kind *kind) {
  const uint8_t *table = control ? kControlFlags : kServiceFlags;
  for (uint8_t k = 0; k < 3; ++k) {
    if (table[k] == flags) {
      *kind = static_cast<Kind>(k);
      return true;
    }
  }
  return false;
}

}  // namespace

ParseResult ParseFrame(const uint8_t *data, size_t size, Frame *frame, size_t *used) {
  *used = 1;
  if (size == 0) return ParseResult::kNeedMore;
  if (data[0] != kMarker) return ParseResult::kMalformed;
  if (size < 3) return ParseResult::kNeedMore;
  const size_t length = GetU16(data + 1);
  // The shortest frame: a control message without TLVs.
  if (length < 5 + kControlQmiHeaderLen) return ParseResult::kMalformed;
  if (size < 1 + length) return ParseResult::kNeedMore;
  // From here on the length field decides where the next frame starts.
  *used = 1 + length;
  Frame f;
  f.sender = data[3];
  f.service = data[4];
  f.client = data[5];
  if (f.sender != kFromControlPoint && f.sender != kFromModem) return ParseResult::kMalformed;
  const bool control = f.service == kControlService;
  const uint8_t *q = data + kQmuxHeaderLen;
  const size_t qmi_len = length - 5;
  const size_t header_len = control ? kControlQmiHeaderLen : kServiceQmiHeaderLen;
  if (qmi_len < header_len || !KindFromFlags(control, q[0], &f.kind)) {
    return ParseResult::kMalformed;
  }
  f.txn = control ? q[1] : GetU16(q + 1);
  const uint8_t *rest = q + (control ? 2 : 3);
  f.msg_id = GetU16(rest);
  f.tlv_len = GetU16(rest + 2);
  if (f.tlv_len != qmi_len - header_len) return ParseResult::kMalformed;
  f.tlv = q + header_len;
  *frame = f;
  return ParseResult::kFrame;
}

bool AppendFrame(const Frame &frame, std::vector<uint8_t> *out) {
  const bool control = frame.service == kControlService;
  if (frame.sender != kFromControlPoint && frame.sender != kFromModem) return false;
  if (frame.tlv_len > MaxTlvLen(frame.service) || (frame.tlv_len > 0 && frame.tlv == nullptr)) {
    return false;
  }
  if (control && frame.txn > 0xFF) return false;
  const auto kind = static_cast<size_t>(frame.kind);
  if (kind > 2) return false;
  const size_t header_len = control ? kControlQmiHeaderLen : kServiceQmiHeaderLen;
  out->reserve(out->size() + kQmuxHeaderLen + header_len + frame.tlv_len);
  out->push_back(kMarker);
  PutU16(out, static_cast<uint16_t>(5 + header_len + frame.tlv_len));
  out->push_back(frame.sender);
  out->push_back(frame.service);
  out->push_back(frame.client);
  out->push_back(control ? kControlFlags[kind] : kServiceFlags[kind]);
  if (control) {
    out->push_back(static_cast<uint8_t>(frame.txn));
  } else {
    PutU16(out, frame.txn);
  }
  PutU16(out, frame.msg_id);
  PutU16(out, static_cast<uint16_t>(frame.tlv_len));
  out->insert(out->end(), frame.tlv, frame.tlv + frame.tlv_len);
  return true;
}

bool FindTlv(const uint8_t *tlv, size_t len, uint8_t type, const uint8_t **value,
             uint16_t *value_len) {
  size_t at = 0;
  while (tlv != nullptr && len - at >= 3) {
    const uint16_t n = GetU16(tlv + at + 1);
    if (len - at - 3 < n) return false;
    if (tlv[at] == type) {
      *value = tlv + at + 3;
      *value_len = n;
      return true;
    }
    at += 3 + static_cast<size_t>(n);
  }
  return false;
}

void AppendTlv(std::vector<uint8_t> *out, uint8_t type, const uint8_t *value, uint16_t len) {
  out->push_back(type);
  PutU16(out, len);
  if (len > 0) out->insert(out->end(), value, value + len);
}

void FrameReader::Append(const uint8_t *data, size_t size) {
  if (start_ > 0 && (start_ == buf_.size() || start_ >= 4096)) {
    buf_.erase(buf_.begin(), buf_.begin() + static_cast<std::ptrdiff_t>(start_));
    start_ = 0;
  }
  buf_.insert(buf_.end(), data, data + size);
}

bool FrameReader::Next(Frame *frame) {
  while (start_ < buf_.size()) {
    size_t used = 0;
    switch (ParseFrame(buf_.data() + start_, buf_.size() - start_, frame, &used)) {
      case ParseResult::kFrame:
        start_ += used;
        return true;
      case ParseResult::kNeedMore:
        return false;
      case ParseResult::kMalformed:
        start_ += used;
        dropped_ += used;
        break;
    }
  }
  return false;
}

}  // namespace qmux
