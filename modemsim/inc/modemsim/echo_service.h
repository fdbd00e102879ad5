// A small service for tests and benchmarks of the transports and the modem core (not part of
// the standard modem). Its tables use every element kind: scalars of each width, signed enums,
// an optional TLV, a variable array with a 2-byte count, a fixed array, a string and a nested
// struct with a variable array of its own.
//
//   0x0001 echo:    answers with the request's fields (result 0).
//   0x0002 notify:  pushes `count` indications 0x0003 (seq 0..count-1) to the requesting
//                   client and answers; a count above kMaxNotify is refused (result 1,
//                   kQmiErrInvalidArg) and pushes nothing.
#pragma once

#include <stdint.h>

#include "modemsim/modem.h"
#include "qmi_idl_lib.h"

namespace modemsim {
namespace echo {

constexpr uint32_t kServiceId = 0x0F0E;
constexpr uint16_t kEcho = 0x0001;
constexpr uint16_t kNotify = 0x0002;
constexpr uint32_t kMaxNotify = 64;  // indications one notify request may ask for
constexpr uint16_t kSeqInd = 0x0003;
constexpr uint32_t kMaxData = 1000;
constexpr uint32_t kMaxName = 32;

struct Inner {
  uint8_t tag;
  int16_t level;
  uint64_t stamp;
  uint32_t list_len;
  uint16_t list[4];
};

struct EchoReq {
  uint32_t value;
  uint8_t opt_valid;
  int32_t opt;
  uint8_t data_valid;
  uint32_t data_len;
  uint8_t data[kMaxData];
  uint8_t fixed_valid;
  uint8_t fixed[6];
  uint8_t name_valid;
  char name[kMaxName + 1];
  uint8_t inner_valid;
  Inner inner;
};

struct EchoResp {
  QmiResult resp;
  uint8_t value_valid;
  uint32_t value;
  uint8_t opt_valid;
  int32_t opt;
  uint8_t data_valid;
  uint32_t data_len;
  uint8_t data[kMaxData];
  uint8_t fixed_valid;
  uint8_t fixed[6];
  uint8_t name_valid;
  char name[kMaxName + 1];
  uint8_t inner_valid;
  Inner inner;
};

struct NotifyReq {
  uint32_t count;
};

struct NotifyResp {
  QmiResult resp;
};

struct SeqInd {
  uint32_t seq;
};

qmi_idl_service_object_type ServiceObject();

// Adds the service and its handlers to a modem.
Service &AddTo(Modem &modem);

}  // namespace echo
}  // namespace modemsim
