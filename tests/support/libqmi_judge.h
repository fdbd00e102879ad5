// libqmi as an independent judge of QMUX frames: its own message parser reads each frame the
// library sends and the simulated modem answers during the QMUX runs. Built when libqmi-glib is
// found at configure time (TARVIK_LIBQMI_JUDGE is then defined).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace tarvik_test {

struct LibqmiVerdict {
  bool known = false;  // libqmi names the message (else it only shows its bytes)
  std::string fault;   // empty when libqmi reads the frame as it defines it; else why not
  std::string what;    // "service message kind", e.g. "0x0B(uim) 0x002F request"
};

// What libqmi makes of one QMUX frame (marker included). A frame libqmi cannot take, or a message
// it knows with a TLV it cannot read or that is longer than it defines, has a fault.
LibqmiVerdict JudgeWithLibqmi(const uint8_t *frame, size_t len);

// The frame tap the QMUX runs give their device: every frame is judged, a fault fails the
// running test, and with TARVIK_LIBQMI_JUDGE_LOG=FILE each verdict is appended to FILE as
// "what known|unknown" (the list of what libqmi judged).
void JudgeFrame(const uint8_t *frame, size_t len);

}  // namespace tarvik_test
