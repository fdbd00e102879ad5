// The simulated modem's extend service (QMI service 0xFFE4), built on the library's own tables
// (tarvik_extend_qmi_v01.h), so the modem and the library share one description.
//
// What it answers:
//   0x02  generic request: routed by its request id (TLV 0x01) to the handler registered with
//         SetRequestHandler. An id without a handler is refused with result kResultUnknownId and
//         no payload. Built in: kLoopbackRequestId, a diagnostic loopback of the simulated modem
//         that answers with the request's payload unchanged (the tool's demo uses it).
//   0x03  event registration: id = event (0..kMaxEvents-1), data[0] = 1 switches the event on
//         for the requesting client (data[1] = its second switch, the ind flag), 0 switches it
//         off. Refused with kResultBadRequest for an event out of range or an empty payload.
//         Switches are per client; they go when the client closes or the service restarts.
//   0x04  data with an option byte: result 0 and value = the payload length accepted (a
//         data_len above 550: kResultBadRequest).
//   0x0A  self-study upload: result 0 and value = the number of entries (count above 64:
//         kResultBadRequest).
//   0x0C  WeChat request: result 0 and value = the request's value; a nonzero flag also sends
//         indication 0x0D to the requesting client with (type, flag, a timestamp in ms, value).
//   Any other message id has no handler unless one is set with SetMessageHandler (the base
//   model messages 0x0E-0x14 are plugged in that way).
//   Failures the modem gives by itself (a result fault, a malformed request, a message without
//   handler) carry their QMI error code in the response's `result` field (TLV 0x01).
//
// Handlers run on the modem's worker thread with the service mutex held; they must not call
// back into the modem's request path. Registration calls may come from any thread.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <vector>

#include "modemsim/modem.h"
#include "tarvik_extend_qmi_v01.h"

namespace modemsim {
namespace extend {

constexpr uint32_t kServiceId = TARVIK_EXTEND_QMI_SERVICE_ID_V01;
constexpr uint32_t kMaxPayload = TARVIK_EXTEND_QMI_DATA_MAX_V01;
constexpr uint32_t kMaxEvents = 32;

// Request id of the built-in loopback handler.
constexpr uint32_t kLoopbackRequestId = 0xFF;

// Verdicts the service itself gives (the first field of a response).
constexpr uint32_t kResultOk = 0;
constexpr uint32_t kResultUnknownId = kQmiErrNotSupported;
constexpr uint32_t kResultBadRequest = kQmiErrInvalidArg;

// One generic request (message 0x02) as a handler sees it.
struct Request {
  Modem &modem;
  uint32_t client;
  uint32_t request_id;
  const uint8_t *data;  // the payload; valid during the call
  uint32_t data_len;    // meaningful bytes: the request's data_len, at most 550, 0 without TLV 0x10
};

// What a generic handler answers. Starts as: result 0, payload present and empty, answered.
struct Reply {
  uint32_t result = kResultOk;
  bool data_valid = true;     // false leaves TLV 0x10 out of the response
  uint32_t data_len = 0;      // sent as is; may exceed data.size() to model a lying modem
  std::vector<uint8_t> data;  // at most 550 bytes on the wire (longer is cut)
  bool answer = true;         // false: never answered (the client times out)

  // Sets the payload and its length.
  void SetData(const void *bytes, size_t len);
};

using RequestHandler = std::function<void(const Request &request, Reply &reply)>;

// Adds the extend service to a modem (done by the module for CreateStandardModem; tests that
// build a bare Modem call it themselves). Idempotent.
Service &AddTo(Modem &modem);

// Routes generic requests with `request_id` to `handler` (replaces an earlier one; an empty
// function removes it). False when the modem has no extend service.
bool SetRequestHandler(Modem &modem, uint32_t request_id, RequestHandler handler);

// Rewrites the payload of the generic answers that follow (request id, request payload and its
// length, the answer's payload; the answer's data_len follows the rewritten size): tests and
// fuzz targets make the modem answer what a modem might. An empty function removes it.
using Tamper = std::function<void(uint32_t request_id, const uint8_t *req, uint32_t req_len,
                                  std::vector<uint8_t> *answer)>;
bool SetTamper(Modem &modem, Tamper tamper);

// Handles whole messages `msg_id` of the extend service (replaces the built-in handler of that
// id, if any). False when the modem has no extend service.
bool SetMessageHandler(Modem &modem, uint16_t msg_id, Handler handler);

// The switches of one client for one event.
struct EventSwitch {
  bool on = false;
  bool ind_flag = false;
};
EventSwitch GetEventSwitch(Modem &modem, uint32_t client, uint32_t event);

// Sends indication 0x03 for `event` with `data` (at most 550 bytes; data_valid false leaves TLV
// 0x10 out) to every client that switched the event on. Returns the number of clients reached
// (0 when none has), or a negative status.
int InjectEvent(Modem &modem, uint32_t event, const void *data, uint32_t len,
                bool data_valid = true);

// Sends any indication of the service (0x05-0x09, 0x0B, 0x0D, 0x12, 0x14; 0x03 too, ignoring
// the switches), `record` being its record of tarvik_extend_qmi_v01.h, to every client. Returns
// the clients reached or a negative status (QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND for an id the
// service has no indication of).
int InjectIndication(Modem &modem, uint16_t msg_id, const void *record, uint32_t len);

}  // namespace extend
}  // namespace modemsim
