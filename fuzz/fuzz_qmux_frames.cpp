// QMUX frames as they arrive from a QMI device or from a control point: the first byte sets the
// size of the pieces the rest is delivered in. Every frame found must build back to the bytes
// it came from, and its TLV walk must stay inside the frame. The same stream read as a proxy's
// answer to a device open must be taken as one only when its first frame is that answer.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "qmi_proxy_wire.h"
#include "qmux_frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const size_t piece = 1 + data[0] % 32;
  const uint8_t *stream = data + 1;
  const size_t len = size - 1;

  // Whole-buffer parsing, frame after frame, as from a device that hands over one read.
  size_t at = 0;
  uint64_t frames = 0;
  while (at < len) {
    qmux::Frame f;
    size_t used = 0;
    const qmux::ParseResult r = qmux::ParseFrame(stream + at, len - at, &f, &used);
    if (r == qmux::ParseResult::kNeedMore) break;
    if (used == 0 || used > len - at) abort();
    if (r == qmux::ParseResult::kFrame) {
      ++frames;
      std::vector<uint8_t> rebuilt;
      if (!qmux::AppendFrame(f, &rebuilt)) abort();
      if (rebuilt.size() != used || memcmp(rebuilt.data(), stream + at, used) != 0) abort();
      const uint8_t *v = nullptr;
      uint16_t n = 0;
      for (unsigned type = 0; type < 0x100; type += 0x11) {
        if (qmux::FindTlv(f.tlv, f.tlv_len, static_cast<uint8_t>(type), &v, &n) &&
            (v < f.tlv || v + n > f.tlv + f.tlv_len)) {
          abort();
        }
      }
    }
    at += used;
  }

  // The same bytes in pieces, as from a pseudo-terminal: the same frames come out.
  qmux::FrameReader reader, answer_reader;
  uint64_t pieced = 0;
  qmi_proxy::OpenAnswer answer = qmi_proxy::OpenAnswer::kPending;
  for (size_t off = 0; off < len; off += piece) {
    reader.Append(stream + off, piece < len - off ? piece : len - off);
    qmux::Frame f;
    while (reader.Next(&f)) ++pieced;
    if (answer == qmi_proxy::OpenAnswer::kPending) {
      answer_reader.Append(stream + off, piece < len - off ? piece : len - off);
      uint16_t error = 0;
      answer = qmi_proxy::ReadOpenAnswer(answer_reader, 1, &error);
    }
  }
  if (pieced != frames) abort();
  if (answer == qmi_proxy::OpenAnswer::kOpened || answer == qmi_proxy::OpenAnswer::kRefused) {
    qmux::Frame f;
    size_t used = 0;
    if (qmux::ParseFrame(stream, len, &f, &used) != qmux::ParseResult::kFrame ||
        f.msg_id != qmi_proxy::kCtlInternalProxyOpen || f.txn != 1) {
      abort();
    }
  }
  return 0;
}
