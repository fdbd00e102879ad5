// A QMI trace: what went over the wire, decoded with the carried tables, one entry per message
// or event, as text lines or one JSON object. The simulated modem's trace (tarvik-qmi sim trace)
// and the client library's (TARVIK_QMI_TRACE) write the same entries.
//
// A message shows its time, direction, service, client, kind, message, transaction, the
// standard result where it has one, then each TLV (id, length, the field names and values its
// table gives) and last its raw bytes (QMI header and TLVs). Each TLV goes through the codec's
// decoder on its own (qmi_idl_decode_tlv): one the table does not have, and one the decoder
// refuses, is shown as hex and marked with the reason; nothing a peer sends can do more.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "qmi_idl_lib.h"
#include "typed_fields.h"

namespace qmi_trace {

struct Entry {
  enum class Kind : uint8_t {
    kMessage,      // a QMI message
    kServiceUp,    // the service came (back)
    kServiceDown,  // the service went away (a restart, taken away, the transport lost)
    kTxnError,     // the transaction `txn` failed in transport with `error`
    kDropped,      // `count` entries were dropped: the reader could not keep up
  };
  Kind kind = Kind::kMessage;
  int64_t time_us = 0;    // wall clock, microseconds since the epoch
  bool received = false;  // a message that came to the side that traces (else: it sent it)
  uint32_t service_id = 0;
  qmi_idl_service_object_type service = nullptr;  // tables and names; null: shown as hex
  uint32_t client = 0;
  qmi_idl_type_of_message_type type = QMI_IDL_REQUEST;
  uint16_t msg_id = 0;
  uint16_t txn = 0;
  std::vector<uint8_t> tlvs;  // the TLV area
  int error = 0;
  uint64_t count = 0;
  std::string note;  // what happened to it beyond its bytes, e.g. "not answered (fault)"
};

// The wall clock for Entry::time_us.
int64_t Now();

// A message entry stamped now, its TLV area copied.
Entry MessageEntry(qmi_idl_service_object_type service, uint32_t service_id, uint32_t client,
                   bool received, qmi_idl_type_of_message_type type, uint16_t msg_id, uint16_t txn,
                   const uint8_t *tlvs, size_t len);

// The entry as typed fields: for a message a header line, a line per TLV and a line of raw
// bytes; for an event one line.
std::vector<typed_fields::Field> Describe(const Entry &entry);
// Text lines (joined by '\n', no trailing newline) and one JSON object on one line.
std::string Text(const Entry &entry);
std::string Json(const Entry &entry);

// The TLVs of a TLV area as the table `ei` (records of `record_size` bytes) gives them: one row
// per TLV (id, length, then the field values, or the bytes in hex with what is wrong).
typed_fields::Value DescribeTlvs(const qmi_elem_info *ei, uint32_t record_size, const uint8_t *tlvs,
                                 size_t len);

// The QMUX control service (0x00): client ids, version list, revocations, sync.
qmi_idl_service_object_type ControlService();

// The name of a QMI error code of the result TLV ("invalid argument" for 0x30), or null.
const char *QmiErrorName(unsigned code);

}  // namespace qmi_trace
