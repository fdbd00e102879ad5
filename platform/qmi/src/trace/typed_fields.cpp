// Rendering of typed fields (see typed_fields.h).
#include "typed_fields.h"

#include <stdio.h>

#include <utility>

namespace typed_fields {
namespace {

std::string Shaped(const std::string &shape, const std::string &value) {
  const size_t at = shape.find("%s");
  return at == std::string::npos ? shape : shape.substr(0, at) + value + shape.substr(at + 2);
}

// Text being laid out: pieces joined by spaces into lines.
class TextOut {
 public:
  void Break() { open_ = false; }
  void Piece(const std::string &piece) {
    if (!open_) {
      lines_.push_back(piece);
      open_ = true;
    } else if (!piece.empty() && piece[0] == ',') {
      lines_.back() += piece;
    } else {
      lines_.back() += " " + piece;
    }
  }
  std::string Joined(const char *sep) const {
    std::string out;
    for (const std::string &line : lines_) out += (out.empty() ? "" : sep) + line;
    return out;
  }

 private:
  std::vector<std::string> lines_;
  bool open_ = false;
};

void Emit(const Field &f, TextOut *out);

void EmitRow(const std::vector<Field> &row, TextOut *out) {
  for (const Field &f : row) Emit(f, out);
}

void Emit(const Field &f, TextOut *out) {
  if (f.text.empty()) return;
  if (f.new_line) out->Break();
  const Value &v = f.value;
  if (v.kind() == Value::Kind::kRecords && v.lines()) {
    for (const auto &row : v.rows()) {
      out->Break();
      EmitRow(row, out);
    }
    out->Break();
    return;
  }
  if (v.kind() == Value::Kind::kRecord && f.text == "%s") {
    EmitRow(v.fields(), out);
    return;
  }
  out->Piece(Shaped(f.text, v.TextValue()));
}

std::string RowText(const std::vector<Field> &row) {
  TextOut out;
  EmitRow(row, &out);
  return out.Joined(" ");
}

}  // namespace

Value Value::Number(long long v) {
  Value out;
  out.kind_ = Kind::kNumber;
  out.number_ = v;
  return out;
}

Value Value::Hex(unsigned long long v, int digits) {
  Value out;
  out.kind_ = Kind::kHex;
  out.hex_ = v;
  out.digits_ = digits;
  return out;
}

Value Value::Text(std::string v) {
  Value out;
  out.kind_ = Kind::kText;
  out.text_ = std::move(v);
  return out;
}

Value Value::Bool(bool v, const char *yes, const char *no) {
  Value out;
  out.kind_ = Kind::kBool;
  out.flag_ = v;
  out.text_ = yes;
  out.no_ = no;
  return out;
}

Value Value::Null() {
  return Value();
}

Value Value::Record(std::vector<Field> fields) {
  Value out;
  out.kind_ = Kind::kRecord;
  out.rows_.push_back(std::move(fields));
  return out;
}

Value Value::Records(std::vector<std::vector<Field>> rows, bool lines) {
  Value out;
  out.kind_ = Kind::kRecords;
  out.rows_ = std::move(rows);
  out.lines_ = lines;
  return out;
}

Value Value::List(std::vector<Value> items) {
  Value out;
  out.kind_ = Kind::kList;
  out.items_ = std::move(items);
  return out;
}

std::vector<Field> &Value::fields() {
  return rows_.front();
}
const std::vector<Field> &Value::fields() const {
  return rows_.front();
}

std::string Value::Json() const {
  switch (kind_) {
    case Kind::kNumber:
      return std::to_string(number_);
    case Kind::kHex:
      return std::to_string(hex_);
    case Kind::kText:
      return JsonString(text_);
    case Kind::kBool:
      return flag_ ? "true" : "false";
    case Kind::kNull:
      return "null";
    case Kind::kRecord:
      return "{" + RenderJsonMembers(fields()) + "}";
    case Kind::kRecords: {
      std::string out = "[";
      for (const auto &row : rows_)
        out += (out.size() > 1 ? ",{" : "{") + RenderJsonMembers(row) + "}";
      return out + "]";
    }
    case Kind::kList: {
      std::string out;
      for (const Value &item : items_) out += (out.empty() ? "" : ",") + item.Json();
      return "[" + out + "]";
    }
  }
  return "null";
}

std::string Value::TextValue() const {
  switch (kind_) {
    case Kind::kNumber:
      return std::to_string(number_);
    case Kind::kHex: {
      char buf[32];
      snprintf(buf, sizeof(buf), "0x%0*llX", digits_, hex_);
      return buf;
    }
    case Kind::kText:
      return text_.empty() ? "-" : text_;
    case Kind::kBool:
      return flag_ ? text_ : no_;
    case Kind::kNull:
      return "-";
    case Kind::kRecord:
      return RowText(fields());
    case Kind::kRecords: {
      std::string out;
      for (const auto &row : rows_) out += (out.empty() ? "" : " ") + RowText(row);
      return out.empty() ? "-" : out;
    }
    case Kind::kList: {
      std::string out;
      for (const Value &item : items_) out += (out.empty() ? "" : ", ") + item.TextValue();
      return "[" + out + "]";
    }
  }
  return "-";
}

Field Label(const std::string &text) {
  return Field{"", text, Value::Null()};
}

std::string RenderText(const std::vector<Field> &fields) {
  TextOut out;
  EmitRow(fields, &out);
  return out.Joined("\n");
}

std::string RenderJsonMembers(const std::vector<Field> &fields) {
  std::string out;
  for (const Field &f : fields) {
    if (f.key.empty()) continue;
    out += (out.empty() ? "" : ",") + JsonString(f.key) + ":" + f.value.Json();
  }
  return out;
}

std::vector<Field> MergeRecords(std::vector<Field> fields) {
  std::vector<Field> out;
  for (Field &f : fields) {
    Field *same = nullptr;
    for (Field &o : out) {
      if (!f.key.empty() && o.key == f.key && o.value.kind() == Value::Kind::kRecord &&
          f.value.kind() == Value::Kind::kRecord) {
        same = &o;
      }
    }
    if (same == nullptr) {
      out.push_back(std::move(f));
      continue;
    }
    for (Field &inner : f.value.fields()) same->value.fields().push_back(std::move(inner));
  }
  return out;
}

std::string HexOf(const void *data, size_t len, bool upper) {
  const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  const auto *p = static_cast<const uint8_t *>(data);
  std::string out;
  out.reserve(len * 2);
  for (size_t i = 0; i < len; ++i) {
    out += digits[p[i] >> 4];
    out += digits[p[i] & 0xF];
  }
  return out;
}

std::string JsonString(const std::string &text) {
  std::string out = "\"";
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += ch;
    } else if (c < 0x20) {
      char esc[8];
      snprintf(esc, sizeof(esc), "\\u%04x", c);
      out += esc;
    } else {
      out += ch;
    }
  }
  return out + "\"";
}

}  // namespace typed_fields
