// Typed fields: what the simulated modem's modules show (their part of `status`, the answers of
// their control words) and what a QMI trace shows of a message, rendered once as text and as
// JSON. The simulated modem, the tool and the QMI client library's trace share this copy.
//
// Text: the fields of a row one after another, separated by a space, each in its shape ("dsi
// %s": the label and the value; "%s": the value alone; a shape without "%s" is shown as it is;
// a shape that starts with ',' joins the piece before it). A field with new_line starts a line,
// records shown as lines each take one. JSON: "key":value members; a field without key is text
// only, one without shape JSON only.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace typed_fields {

struct Field;

class Value {
 public:
  enum class Kind { kNumber, kHex, kText, kBool, kNull, kRecord, kRecords, kList };

  // JSON and text: the number.
  static Value Number(long long v);
  // JSON: the number; text: "0x" and at least `digits` upper-case hex digits.
  static Value Hex(unsigned long long v, int digits);
  // JSON: a string; text: as it is, "-" when empty.
  static Value Text(std::string v);
  // JSON: true or false; text: `yes` or `no`.
  static Value Bool(bool v, const char *yes = "yes", const char *no = "no");
  // JSON: null; text: "-".
  static Value Null();
  // JSON: an object of the fields; text: the fields in a row.
  static Value Record(std::vector<Field> fields);
  // JSON: an array of objects; text: the rows one after another, "-" when there are none, or
  // with `lines` each row on a line of its own (nothing when there are none).
  static Value Records(std::vector<std::vector<Field>> rows, bool lines);
  // JSON: an array of the values; text: "[a, b]" (a record's fields in a row).
  static Value List(std::vector<Value> items);

  Kind kind() const { return kind_; }
  std::string Json() const;
  std::string TextValue() const;
  const std::vector<std::vector<Field>> &rows() const { return rows_; }
  bool lines() const { return lines_; }
  // A record's fields (the one row of a kRecord).
  std::vector<Field> &fields();
  const std::vector<Field> &fields() const;

 private:
  Kind kind_ = Kind::kNull;
  long long number_ = 0;
  unsigned long long hex_ = 0;
  int digits_ = 0;
  bool flag_ = false;
  std::string text_;
  std::string no_;
  std::vector<std::vector<Field>> rows_;  // kRecord: one row; kRecords: the rows
  std::vector<Value> items_;              // kList
  bool lines_ = false;
};

struct Field {
  std::string key;   // JSON member name; "" for a text-only field
  std::string text;  // text shape; "" for a JSON-only field
  Value value;
  bool new_line = false;
};

// A text-only piece ("sub0").
Field Label(const std::string &text);

// The fields as text (lines joined by '\n', no trailing newline).
std::string RenderText(const std::vector<Field> &fields);
// The fields as JSON members ("a":1,"b":[...]) without braces.
std::string RenderJsonMembers(const std::vector<Field> &fields);
// Fields given to the same top-level key by several contributors: each record's fields are
// added to the first one's, in the order given.
std::vector<Field> MergeRecords(std::vector<Field> fields);

// Two hex digits per byte, lower case unless `upper`.
std::string HexOf(const void *data, size_t len, bool upper = false);

// `text` as a JSON string, quotes included (control characters as \u00XX).
std::string JsonString(const std::string &text);

}  // namespace typed_fields
