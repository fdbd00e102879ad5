// A QMI trace's entries as typed fields (see qmi_trace.h): TLVs decoded one at a time by the
// codec, then read back from the record by the table.
#include "qmi_trace.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <utility>

#include "common_v01.h"

namespace qmi_trace {
namespace {

using typed_fields::Field;
using typed_fields::HexOf;
using typed_fields::Value;

// --- the QMUX control service ---

struct CtlVersion {
  uint8_t service;
  uint16_t major;
  uint16_t minor;
};
struct CtlClientId {
  uint8_t service;
  uint8_t client_id;
};
struct CtlEmpty {
  uint8_t unused;
};
struct CtlVersionResp {
  qmi_response_type_v01 resp;
  uint8_t services_valid;
  uint32_t services_len;
  CtlVersion services[255];
};
struct CtlAllocateReq {
  uint8_t service;
};
struct CtlClientIdMsg {
  CtlClientId client;
};
struct CtlClientIdResp {
  qmi_response_type_v01 resp;
  uint8_t client_valid;
  CtlClientId client;
};
struct CtlResult {
  qmi_response_type_v01 resp;
};

constexpr qmi_elem_info version_ei[] = {
    QMI_MEMBER(U, CtlVersion, service),
    QMI_MEMBER(U, CtlVersion, major),
    QMI_MEMBER(U, CtlVersion, minor),
    QMI_EI_END,
};
constexpr qmi_elem_info client_id_ei[] = {
    QMI_MEMBER(U, CtlClientId, service),
    QMI_MEMBER(U, CtlClientId, client_id),
    QMI_EI_END,
};
constexpr qmi_elem_info versions_resp_ei[] = {
    QMI_TLV_RESPONSE(CtlVersionResp, resp),
    QMI_TLV_OPT_VAR_STRUCT(1, 255, 0x01, CtlVersionResp, services_valid, services_len, services,
                           version_ei),
    QMI_EI_END,
};
constexpr qmi_elem_info allocate_req_ei[] = {
    QMI_TLV(U, 0x01, CtlAllocateReq, service),
    QMI_EI_END,
};
constexpr qmi_elem_info client_id_msg_ei[] = {
    QMI_TLV_STRUCT(0x01, CtlClientIdMsg, client, client_id_ei),
    QMI_EI_END,
};
constexpr qmi_elem_info client_id_resp_ei[] = {
    QMI_TLV_RESPONSE(CtlClientIdResp, resp),
    QMI_TLV_OPT_STRUCT(0x01, CtlClientIdResp, client_valid, client, client_id_ei),
    QMI_EI_END,
};
constexpr qmi_elem_info result_ei[] = {
    QMI_TLV_RESPONSE(CtlResult, resp),
    QMI_EI_END,
};

constexpr qmi_idl_req_resp_row kCtlPairs[] = {
    {0x0021, "get_version_info", QMI_MSG(CtlEmpty, nullptr),
     QMI_MSG(CtlVersionResp, versions_resp_ei)},
    {0x0022, "allocate_client_id", QMI_MSG(CtlAllocateReq, allocate_req_ei),
     QMI_MSG(CtlClientIdResp, client_id_resp_ei)},
    {0x0023, "release_client_id", QMI_MSG(CtlClientIdMsg, client_id_msg_ei),
     QMI_MSG(CtlClientIdResp, client_id_resp_ei)},
    {0x0027, "sync", QMI_MSG(CtlEmpty, nullptr), QMI_MSG(CtlResult, result_ei)},
};
constexpr qmi_idl_ind_row kCtlInds[] = {
    {0x0024, "revoke_client_id", QMI_MSG(CtlClientIdMsg, client_id_msg_ei)},
};
constexpr auto kCtlTables = qmi_idl_tables_of(kCtlPairs, kCtlInds);
constexpr qmi_idl_service_object kCtl = qmi_idl_service_of(kCtlTables, 0, 1, 5, 0x00, "ctl");

// --- names ---

struct Name {
  int code;
  const char *name;
};

// QMI error codes of the result TLV (the common ones).
constexpr Name kQmiErrors[] = {
    {0x01, "malformed message"},    {0x02, "no memory"},
    {0x03, "internal error"},       {0x04, "aborted"},
    {0x05, "client ids exhausted"}, {0x07, "invalid client id"},
    {0x09, "invalid handle"},       {0x11, "missing argument"},
    {0x13, "argument too long"},    {0x16, "invalid transaction id"},
    {0x17, "device in use"},        {0x1A, "no effect"},
    {0x1F, "invalid service type"}, {0x2E, "general error"},
    {0x2F, "unknown error"},        {0x30, "invalid argument"},
    {0x31, "invalid index"},        {0x32, "no entry"},
    {0x33, "device storage full"},  {0x34, "device not ready"},
    {0x35, "network not ready"},    {0x44, "insufficient resources"},
    {0x46, "invalid operation"},    {0x47, "invalid QMI command"},
    {0x52, "access denied"},        {0x5E, "not supported"},
};

// Why the decoder refused a TLV or a message.
constexpr Name kCodecErrors[] = {
    {QMI_IDL_LIB_LENGTH_INCONSISTENCY, "its length disagrees with the table"},
    {QMI_IDL_LIB_ARRAY_TOO_BIG, "a count above the table's maximum"},
    {QMI_IDL_LIB_TLV_DUPLICATED, "a TLV given twice"},
    {QMI_IDL_LIB_MISSING_TLV, "a mandatory TLV is missing"},
    {QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV, "a mandatory TLV the table does not have"},
    {QMI_IDL_LIB_BUFFER_TOO_SMALL, "the record is too small for it"},
    {QMI_IDL_LIB_PARAMETER_ERROR, "a table the codec cannot walk"},
};

template <size_t N>
const char *Find(const Name (&names)[N], int code) {
  for (const Name &n : names) {
    if (n.code == code) return n.name;
  }
  return nullptr;
}

std::string CodecError(int32_t rc) {
  const char *name = Find(kCodecErrors, rc);
  return name != nullptr ? name : "decoder error " + std::to_string(rc);
}

std::string TimeText(int64_t time_us) {
  const time_t secs = static_cast<time_t>(time_us / 1000000);
  struct tm tm;
  char buf[48];
  if (localtime_r(&secs, &tm) == nullptr) return std::to_string(time_us);
  snprintf(buf, sizeof(buf), "%02d:%02d:%02d.%06d", tm.tm_hour, tm.tm_min, tm.tm_sec,
           static_cast<int>(time_us % 1000000));
  return buf;
}

// A string of the record as printable ASCII (other bytes as \xNN), so that every line and JSON
// object stays valid whatever a peer sent.
std::string Printable(const char *p, size_t max) {
  std::string out;
  for (size_t i = 0; i < max && p[i] != '\0'; ++i) {
    const auto c = static_cast<unsigned char>(p[i]);
    if (c >= 0x20 && c < 0x7F && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char esc[8];
      snprintf(esc, sizeof(esc), "\\x%02x", c);
      out += esc;
    }
  }
  return out;
}

// --- values read back from a decoded record ---

struct View {
  const uint8_t *base;
  uint32_t size;
  bool Holds(uint64_t offset, uint64_t bytes) const { return offset + bytes <= size; }
};

Value Scalar(const qmi_elem_info &e, const uint8_t *p) {
  const bool is_signed = e.data_type == QMI_SIGNED_1_BYTE_ENUM ||
                         e.data_type == QMI_SIGNED_2_BYTE_ENUM ||
                         e.data_type == QMI_SIGNED_4_BYTE_ENUM;
  switch (e.elem_size) {
    case 1:
      return Value::Number(is_signed ? static_cast<int8_t>(p[0]) : p[0]);
    case 2: {
      uint16_t v;
      memcpy(&v, p, 2);
      return Value::Number(is_signed ? static_cast<int16_t>(v) : v);
    }
    case 4: {
      uint32_t v;
      memcpy(&v, p, 4);
      return Value::Number(is_signed ? static_cast<int32_t>(v) : static_cast<long long>(v));
    }
    default: {
      uint64_t v;
      memcpy(&v, p, 8);
      return v <= static_cast<uint64_t>(LLONG_MAX) ? Value::Number(static_cast<long long>(v))
                                                   : Value::Hex(v, 16);
    }
  }
}

std::vector<Field> Members(const qmi_elem_info *begin, const qmi_elem_info *end, View rec,
                           uint32_t depth);

// `count` elements of entry `e` (one element: its value alone; u8 arrays: hex).
Value Elements(const qmi_elem_info &e, uint32_t count, View rec, uint32_t depth) {
  if (e.data_type == QMI_STRING) {
    if (!rec.Holds(e.offset, uint64_t{e.elem_len} + 1)) return Value::Null();
    return Value::Text(
        Printable(reinterpret_cast<const char *>(rec.base + e.offset), e.elem_len + 1));
  }
  if (e.elem_size == 0 || !rec.Holds(e.offset, uint64_t{count} * e.elem_size)) {
    return Value::Null();
  }
  const uint8_t *at = rec.base + e.offset;
  if (e.array_type != NO_ARRAY && e.data_type == QMI_UNSIGNED_1_BYTE) {
    return Value::Text(HexOf(at, count));
  }
  std::vector<Value> items;
  for (uint32_t k = 0; k < count; ++k) {
    const uint8_t *p = at + size_t{k} * e.elem_size;
    if (e.data_type != QMI_STRUCT) {
      items.push_back(Scalar(e, p));
    } else if (e.ei_array != nullptr && depth < QMI_IDL_MAX_NESTING) {
      items.push_back(Value::Record(Members(e.ei_array, nullptr, View{p, e.elem_size}, depth + 1)));
    } else {
      items.push_back(Value::Null());
    }
  }
  if (e.array_type == NO_ARRAY && items.size() == 1) return std::move(items[0]);
  return Value::List(std::move(items));
}

// The named values of a run of entries (a struct's, or one TLV's): counts and presence flags
// are not shown (a list shows its count).
std::vector<Field> Members(const qmi_elem_info *begin, const qmi_elem_info *end, View rec,
                           uint32_t depth) {
  std::vector<Field> out;
  for (const qmi_elem_info *e = begin; e != end && e->data_type != QMI_EOTI; ++e) {
    if (e->data_type == QMI_OPT_FLAG) continue;
    uint32_t count = e->array_type == NO_ARRAY ? 1 : e->elem_len;
    if (e->data_type == QMI_DATA_LEN) {
      if (e + 1 == end || e[1].data_type == QMI_EOTI) break;
      uint32_t n = 0;
      if (rec.Holds(e->offset, sizeof n)) memcpy(&n, rec.base + e->offset, sizeof n);
      ++e;
      count = n < e->elem_len ? n : e->elem_len;
    }
    const std::string name = e->name != nullptr ? e->name : "?";
    Value v = Elements(*e, count, rec, depth);
    const bool record = v.kind() == Value::Kind::kRecord;
    out.push_back({name, name + (record ? " {%s}" : " %s"), std::move(v)});
  }
  return out;
}

// --- TLVs ---

// The entries of TLV `id` in a message table: past its presence flag, up to the next TLV.
struct Run {
  const qmi_elem_info *first = nullptr;
  const qmi_elem_info *end = nullptr;
};

Run RunOf(const qmi_elem_info *ei, uint8_t id) {
  Run run;
  for (const qmi_elem_info *e = ei; e != nullptr && e->data_type != QMI_EOTI; ++e) {
    if (e->tlv_type != id) continue;
    run.first = e->data_type == QMI_OPT_FLAG ? e + 1 : e;
    run.end = run.first;
    while (run.end->data_type != QMI_EOTI && run.end->tlv_type == id) ++run.end;
    break;
  }
  return run;
}

// A TLV's name: the field of its value (past a count).
const char *NameOf(const Run &run) {
  for (const qmi_elem_info *e = run.first; e != run.end; ++e) {
    if (e->data_type != QMI_DATA_LEN && e->data_type != QMI_OPT_FLAG) return e->name;
  }
  return nullptr;
}

// Whether the TLV is the standard response (qmi_response_type_v01, two 2-byte enums).
bool IsStandardResponse(const Run &run) {
  if (run.first == nullptr || run.end != run.first + 1 || run.first->data_type != QMI_STRUCT ||
      run.first->array_type != NO_ARRAY || run.first->ei_array == nullptr) {
    return false;
  }
  const qmi_elem_info *a = run.first->ei_array;
  const qmi_elem_info *b = qmi_response_type_v01_ei;
  for (; a->data_type != QMI_EOTI && b->data_type != QMI_EOTI; ++a, ++b) {
    if (a->data_type != b->data_type || a->array_type != b->array_type ||
        a->elem_size != b->elem_size || a->offset != b->offset) {
      return false;
    }
  }
  return a->data_type == QMI_EOTI && b->data_type == QMI_EOTI;
}

struct Result {
  bool found = false;
  int32_t result = 0;
  int32_t error = 0;
};

// The rows of a TLV area; without a table (`known` false) every TLV is shown as hex.
Value Tlvs(bool known, const qmi_elem_info *ei, uint32_t record_size, const uint8_t *tlvs,
           size_t len, Result *result) {
  std::vector<uint8_t> rec(record_size > 0 ? record_size : 1);
  const View view{rec.data(), static_cast<uint32_t>(rec.size())};
  std::vector<std::vector<Field>> rows;
  bool seen[256] = {};
  for (size_t pos = 0; pos < len;) {
    std::vector<Field> row;
    if (len - pos < 3) {
      row.push_back({"hex", "  %s", Value::Text(HexOf(tlvs + pos, len - pos))});
      row.push_back({"error", "malformed: %s", Value::Text("a TLV header cut short")});
      rows.push_back(std::move(row));
      break;
    }
    const uint8_t id = tlvs[pos];
    const size_t n = tlvs[pos + 1] | (size_t{tlvs[pos + 2]} << 8);
    pos += 3;
    const Run run = RunOf(ei, id);
    row.push_back({"id", "  %s", Value::Hex(id, 2)});
    if (run.first != nullptr && NameOf(run) != nullptr) {
      row.push_back({"name", "%s", Value::Text(NameOf(run))});
    }
    row.push_back({"length", "len %s:", Value::Number(static_cast<long long>(n))});
    const uint8_t *value = tlvs + pos;
    const size_t have = n <= len - pos ? n : len - pos;
    pos += have;
    std::string why;
    int32_t rc = QMI_IDL_LIB_NO_ERR;
    if (have < n) {
      why = "longer than the " + std::to_string(have) + " bytes left";
    } else if (seen[id]) {
      why = CodecError(QMI_IDL_LIB_TLV_DUPLICATED);
    } else if (run.first != nullptr) {
      rc = qmi_idl_decode_tlv(ei, id, value, static_cast<uint32_t>(n), rec.data(),
                              static_cast<uint32_t>(rec.size()));
      if (rc != QMI_IDL_LIB_NO_ERR) why = CodecError(rc);
    }
    seen[id] = true;
    if (run.first != nullptr && why.empty()) {
      std::vector<Field> members = Members(run.first, run.end, view, 0);
      Value v =
          members.size() == 1 ? std::move(members[0].value) : Value::Record(std::move(members));
      row.push_back({"value", "%s", std::move(v)});
      if (id == 0x02 && IsStandardResponse(run) && view.Holds(run.first->offset, 8)) {
        result->found = true;
        memcpy(&result->result, view.base + run.first->offset, 4);
        memcpy(&result->error, view.base + run.first->offset + 4, 4);
      }
    } else {
      row.push_back({"hex", "%s", Value::Text(HexOf(value, have))});
      if (!why.empty()) {
        row.push_back({"error", "malformed: %s", Value::Text(why)});
      } else if (known && id < 0x10) {
        row.push_back(
            {"error", "malformed: %s", Value::Text(CodecError(QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV))});
      } else {
        row.push_back({"unknown", "unknown", Value::Bool(true)});
      }
    }
    rows.push_back(std::move(row));
  }
  return Value::Records(std::move(rows), true);
}

const char *KindName(qmi_idl_type_of_message_type type) {
  switch (type) {
    case QMI_IDL_REQUEST:
      return "request";
    case QMI_IDL_RESPONSE:
      return "response";
    default:
      return "indication";
  }
}

// The message as it went: QMI header (the control service's is shorter) then the TLVs.
std::string RawHex(const Entry &m) {
  std::vector<uint8_t> raw;
  const uint8_t flags[] = {0, 2, 4};
  const uint8_t ctl_flags[] = {0, 1, 2};
  const int type = m.type >= QMI_IDL_REQUEST && m.type <= QMI_IDL_INDICATION ? m.type : 0;
  const size_t len = m.tlvs.size() <= 0xFFFF ? m.tlvs.size() : 0xFFFF;
  if (m.service_id == 0) {
    raw = {ctl_flags[type], static_cast<uint8_t>(m.txn)};
  } else {
    raw = {flags[type], static_cast<uint8_t>(m.txn), static_cast<uint8_t>(m.txn >> 8)};
  }
  const uint8_t tail[] = {static_cast<uint8_t>(m.msg_id), static_cast<uint8_t>(m.msg_id >> 8),
                          static_cast<uint8_t>(len), static_cast<uint8_t>(len >> 8)};
  raw.insert(raw.end(), tail, tail + sizeof tail);
  raw.insert(raw.end(), m.tlvs.begin(), m.tlvs.end());
  return HexOf(raw.data(), raw.size());
}

void AddService(const Entry &e, std::vector<Field> *out) {
  out->push_back({"service", "%s", Value::Hex(e.service_id, 4)});
  if (e.service != nullptr && e.service->name != nullptr) {
    out->push_back({"service_name", "%s", Value::Text(e.service->name)});
  }
}

std::vector<Field> MessageFields(const Entry &m) {
  std::vector<Field> out;
  out.push_back({"direction", "%s", Value::Text(m.received ? "in" : "out")});
  AddService(m, &out);
  out.push_back({"client", "client %s", Value::Number(m.client)});
  out.push_back({"kind", "%s", Value::Text(KindName(m.type))});
  out.push_back({"message", "%s", Value::Hex(m.msg_id, 4)});
  const qmi_idl_message_table_entry *msg = nullptr;
  if (m.service != nullptr &&
      qmi_idl_get_message_entry(m.service, m.type, m.msg_id, &msg) == QMI_IDL_LIB_NO_ERR &&
      msg->name != nullptr) {
    out.push_back({"message_name", "%s", Value::Text(msg->name)});
  }
  out.push_back({"txn", "txn %s", Value::Number(m.txn)});
  Result result;
  const uint32_t size = msg != nullptr ? msg->c_struct_sz : 0;
  Value tlvs = Tlvs(msg != nullptr, msg != nullptr ? msg->ei : nullptr, size, m.tlvs.data(),
                    m.tlvs.size(), &result);
  if (result.found) {
    out.push_back({"result", "result %s", Value::Text(result.result == 0 ? "ok" : "failure")});
    if (result.error != 0) {
      out.push_back({"error_code", "%s", Value::Hex(static_cast<uint32_t>(result.error), 4)});
      const char *name = QmiErrorName(static_cast<unsigned>(result.error));
      if (name != nullptr) out.push_back({"error_name", "%s", Value::Text(name)});
    }
  }
  if (m.service != nullptr && msg == nullptr) {
    out.push_back({"error", "(%s)", Value::Text("a message the service's table does not have")});
  } else if (msg != nullptr) {
    std::vector<uint8_t> rec(size > 0 ? size : 1);
    const int32_t rc = qmi_idl_message_decode(m.service, m.type, m.msg_id, m.tlvs.data(),
                                              static_cast<uint32_t>(m.tlvs.size()), rec.data(),
                                              static_cast<uint32_t>(rec.size()));
    if (rc != QMI_IDL_LIB_NO_ERR)
      out.push_back({"error", "malformed: %s", Value::Text(CodecError(rc))});
  }
  if (!m.note.empty()) out.push_back({"note", "(%s)", Value::Text(m.note)});
  out.push_back({"tlvs", "%s", std::move(tlvs)});
  out.push_back({"raw", "  raw %s", Value::Text(RawHex(m)), true});
  return out;
}

std::vector<Field> EventFields(const Entry &e) {
  std::vector<Field> out;
  switch (e.kind) {
    case Entry::Kind::kServiceUp:
    case Entry::Kind::kServiceDown:
      out.push_back({"kind", "%s", Value::Text("service")});
      AddService(e, &out);
      out.push_back(
          {"state", "%s", Value::Text(e.kind == Entry::Kind::kServiceUp ? "up" : "down")});
      break;
    case Entry::Kind::kTxnError:
      out.push_back({"kind", "transport error", Value::Text("transport_error")});
      AddService(e, &out);
      out.push_back({"client", "client %s", Value::Number(e.client)});
      out.push_back({"txn", "txn %s", Value::Number(e.txn)});
      out.push_back({"error", "error %s", Value::Number(e.error)});
      break;
    case Entry::Kind::kDropped:
      out.push_back({"kind", "dropped", Value::Text("dropped")});
      out.push_back({"count", "%s entries", Value::Number(static_cast<long long>(e.count))});
      break;
    case Entry::Kind::kMessage:
      break;
  }
  if (!e.note.empty()) out.push_back({"note", "(%s)", Value::Text(e.note)});
  return out;
}

}  // namespace

int64_t Now() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

Entry MessageEntry(qmi_idl_service_object_type service, uint32_t service_id, uint32_t client,
                   bool received, qmi_idl_type_of_message_type type, uint16_t msg_id, uint16_t txn,
                   const uint8_t *tlvs, size_t len) {
  Entry e;
  e.time_us = Now();
  e.received = received;
  e.service_id = service_id;
  e.service = service;
  e.client = client;
  e.type = type;
  e.msg_id = msg_id;
  e.txn = txn;
  if (len > 0) e.tlvs.assign(tlvs, tlvs + len);
  return e;
}

std::vector<Field> Describe(const Entry &entry) {
  std::vector<Field> out = {{"time", "%s", Value::Text(TimeText(entry.time_us))}};
  for (Field &f : entry.kind == Entry::Kind::kMessage ? MessageFields(entry) : EventFields(entry)) {
    out.push_back(std::move(f));
  }
  return out;
}

std::string Text(const Entry &entry) {
  return typed_fields::RenderText(Describe(entry));
}

std::string Json(const Entry &entry) {
  return "{" + typed_fields::RenderJsonMembers(Describe(entry)) + "}";
}

Value DescribeTlvs(const qmi_elem_info *ei, uint32_t record_size, const uint8_t *tlvs, size_t len) {
  Result result;
  return Tlvs(true, ei, record_size, tlvs, len, &result);
}

qmi_idl_service_object_type ControlService() {
  return &kCtl;
}

const char *QmiErrorName(unsigned code) {
  return code <= INT_MAX ? Find(kQmiErrors, static_cast<int>(code)) : nullptr;
}

}  // namespace qmi_trace
