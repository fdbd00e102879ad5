// prop: the Android property store stand-in that the library reads its configuration from.
#include <string>
#include <vector>

#include "cutils/properties.h"
#include "property_host.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

int Get(Report &report, const Args &args) {
  char value[PROPERTY_VALUE_MAX + 1];
  property_get(args[0].c_str(), value, args.size() == 2 ? args[1].c_str() : "");
  return report.Add(Str("name", args[0])).OkValue(Str("value", value));
}

int Set(Report &report, const Args &args) {
  report.Add({Str("name", args[0]), Str("value", args[1])});
  if (property_set(args[0].c_str(), args[1].c_str()) != 0) {
    return report.Refuse("refused: an illegal name, a value over " +
                             std::to_string(PROPERTY_VALUE_MAX) +
                             " characters, ro.* already set, or the store is not writable",
                         kExitFailed);
  }
  return report.Ok();
}

struct Row {
  std::string name, value;
  int pid;
};

// Rows as an object of name to value (text: "[name]: [value]" lines, the layout of Android's
// getprop), or with pids as an array of requests.
Field Rows(const std::vector<Row> &rows, bool with_pid) {
  std::string json = with_pid ? "[" : "{", text;
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row &r = rows[i];
    json += i > 0 ? "," : "";
    if (with_pid) {
      json += "{\"name\":" + JsonString(r.name) + ",\"value\":" + JsonString(r.value) +
              ",\"pid\":" + std::to_string(r.pid) + "}";
      text += "\n" + std::to_string(r.pid) + " ";
    } else {
      json += JsonString(r.name) + ":" + JsonString(r.value);
      text += "\n";
    }
    text += "[" + r.name + "]: [" + r.value + "]";
  }
  return Raw(with_pid ? "requests" : "properties", json + (with_pid ? "]" : "}"), text);
}

int List(Report &report, const Args &) {
  std::vector<Row> rows;
  property_list(
      [](const char *name, const char *value, void *cookie) {
        static_cast<std::vector<Row> *>(cookie)->push_back({name, value, 0});
      },
      &rows);
  return report.Add(Rows(rows, false)).Ok();
}

int Ctl(Report &report, const Args &) {
  std::vector<Row> rows;
  property_ctl_requests(
      [](const char *name, const char *value, int pid, void *cookie) {
        static_cast<std::vector<Row> *>(cookie)->push_back({name, value, pid});
      },
      &rows);
  return report.Add(Rows(rows, true)).Ok();
}

int Dir(Report &report, const Args &) {
  const std::string dir = property_store_dir();
  if (dir.empty()) return report.Refuse("no usable property store directory", kExitFailed);
  return report.OkValue(Str("dir", dir));
}

const Verb kVerbs[] = {
    {"get", "NAME [DEFAULT]", 1, 2, Get},
    {"set", "NAME VALUE", 2, 2, Set},
    {"list", "", 0, 0, List},
    {"dir", "", 0, 0, Dir},
    {"ctl", "", 0, 0, Ctl},
};
TARVIK_COMMAND("prop", "the property store: get, set, list, its directory, ctl.* requests", kVerbs);

}  // namespace
}  // namespace tarvik_tool
