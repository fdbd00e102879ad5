// The common request of the extend service (REQUEST_ID_COMMON) on the simulated modem: one
// handler per command, as a service has one per message id, and one per typed message of
// command 2. Each feature is a module of its own (identity, MCFG, notifications, restart
// control, settings, CDC and venue mode) that registers its handlers and keeps its own state
// (Modem::ModuleState); this module routes the requests to them and builds the answers.
//
// Handlers run on the modem's request path with the extend service's mutex held; a module
// whose state is also read from other threads (tests, the tool, `status`) guards it with a
// mutex of its own.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <vector>

#include "modemsim/modem.h"
#include "qmi_client_host.h"

namespace modemsim {
namespace features {

using Bytes = std::vector<uint8_t>;

// Modem-side failure codes (the result field inside the payload).
constexpr int32_t kStoreFailed = 4;      // NV item or setting: the store could not be written
constexpr int32_t kNvNotActive = 5;      // NV item never written
constexpr int32_t kNvBadParam = 6;       // item number or length the modem refuses
constexpr int32_t kEfsNoEntry = -2;      // no such file
constexpr int32_t kEfsIo = -5;           // the store could not be written
constexpr int32_t kEfsBadInstance = -9;  // write chunk with an ins_id that is not open
constexpr int32_t kEfsInvalid = -22;     // bad offset, length or path
constexpr int32_t kCmnNotSupported = kQmiErrNotSupported;  // a command the modem does not know
constexpr int32_t kFilesDiffer = 1;  // compare: both files exist, contents differ

// One command of the common request as its handler sees it.
struct Command {
  Modem &modem;
  uint32_t client;
  uint32_t cmd;
  const uint8_t *payload;  // the 504 payload bytes (zero where nothing was sent)
  int32_t result = 0;      // the modem's verdict, rsp.result
  Bytes data;              // the answer's data (response offset 8; at most 500 bytes are sent)
};
using CommandHandler = std::function<void(Command &command)>;

// One typed message of command 2. Its answer goes out after the header (type, length).
struct Message {
  Modem &modem;
  uint32_t client;
  uint32_t type;
  uint32_t len;          // below 492 (longer ones are refused before a handler runs)
  const uint8_t *value;  // the message's payload
  int32_t result = 0;
  Bytes answer;
};
using MessageHandler = std::function<void(Message &message)>;

// Routes command `cmd` / typed message `type` to `handler` (replaces an earlier one). False when
// the modem has no common request (the extend service and this module).
bool HandleCommand(Modem &modem, uint32_t cmd, CommandHandler handler);
bool HandleMessage(Modem &modem, uint32_t type, MessageHandler handler);
// Commands no handler claims go to `handler` (the profile answers texts and records by the
// caller's number); without one, and for an unknown typed message, the answer is
// kCmnNotSupported.
bool HandleOtherCommands(Modem &modem, CommandHandler handler);

// Order of the modules: the extend service (10), this one, then the features.
constexpr int kCommandsOrder = 40;
constexpr int kFeatureOrder = 50;

// Where the features put their part of `status`: one "features" record, in this order.
constexpr int kStatusNotify = 110;
constexpr int kStatusOrders = 120;
constexpr int kStatusMcfg = 130;
constexpr int kStatusNvSync = 140;

// u32 fields of requests and answers, in the modem's (little-endian) byte order.
using qmi_host::wire::GetU32;
inline void PutU32(Bytes *out, size_t at, uint32_t v) {
  qmi_host::wire::PutU32(out->data() + at, v);
}

}  // namespace features
}  // namespace modemsim
