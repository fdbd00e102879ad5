// prop: the Android property store stand-in that the library reads its configuration from.
//   prop get NAME [DEFAULT]   prop set NAME VALUE   prop list   prop dir   prop ctl
#include <stdio.h>

#include <string>
#include <vector>

#include "command.h"
#include "cutils/properties.h"
#include "property_host.h"

namespace tarvik_tool {
namespace {

std::string JsonString(const std::string &text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char esc[8];
      snprintf(esc, sizeof esc, "\\u%04x", c);
      out += esc;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

int Get(const Options &options, const Args &args) {
  if (args.size() < 2 || args.size() > 3) {
    return UsageError("prop");
  }
  char value[PROPERTY_VALUE_MAX + 1];
  property_get(args[1].c_str(), value, args.size() == 3 ? args[2].c_str() : "");
  if (options.json) {
    printf("{\"name\":%s,\"value\":%s}\n", JsonString(args[1]).c_str(), JsonString(value).c_str());
  } else {
    printf("%s\n", value);
  }
  return 0;
}

int Set(const Options &options, const Args &args) {
  if (args.size() != 3) {
    return UsageError("prop");
  }
  const bool ok = property_set(args[1].c_str(), args[2].c_str()) == 0;
  if (options.json) {
    printf("{\"name\":%s,\"value\":%s,\"ok\":%s}\n", JsonString(args[1]).c_str(),
           JsonString(args[2]).c_str(), ok ? "true" : "false");
  } else if (!ok) {
    fprintf(stderr,
            "tarvik-qmi: prop set %s refused (illegal name, value over %d characters, ro.* "
            "already set, or store not writable)\n",
            args[1].c_str(), PROPERTY_VALUE_MAX);
  }
  return ok ? 0 : 1;
}

struct Row {
  std::string name, value;
  int pid;
};

// Prints rows as "[name]: [value]" lines (the layout of Android's getprop), or as JSON: an
// object of name to value, or with pids an array of requests.
void PrintRows(const Options &options, const std::vector<Row> &rows, bool with_pid) {
  if (!options.json) {
    for (const auto &r : rows) {
      if (with_pid) {
        printf("%d ", r.pid);
      }
      printf("[%s]: [%s]\n", r.name.c_str(), r.value.c_str());
    }
    return;
  }
  printf(with_pid ? "[" : "{");
  for (size_t i = 0; i < rows.size(); ++i) {
    const char *sep = i ? "," : "";
    if (with_pid) {
      printf("%s{\"name\":%s,\"value\":%s,\"pid\":%d}", sep, JsonString(rows[i].name).c_str(),
             JsonString(rows[i].value).c_str(), rows[i].pid);
    } else {
      printf("%s%s:%s", sep, JsonString(rows[i].name).c_str(), JsonString(rows[i].value).c_str());
    }
  }
  printf(with_pid ? "]\n" : "}\n");
}

// Stored properties, or with `ctl` the recorded control requests.
int ShowRows(const Options &options, const Args &args, bool ctl) {
  if (args.size() != 1) {
    return UsageError("prop");
  }
  std::vector<Row> rows;
  if (ctl) {
    property_ctl_requests(
        [](const char *name, const char *value, int pid, void *cookie) {
          static_cast<std::vector<Row> *>(cookie)->push_back({name, value, pid});
        },
        &rows);
  } else {
    property_list(
        [](const char *name, const char *value, void *cookie) {
          static_cast<std::vector<Row> *>(cookie)->push_back({name, value, 0});
        },
        &rows);
  }
  PrintRows(options, rows, ctl);
  return 0;
}

int List(const Options &options, const Args &args) {
  return ShowRows(options, args, false);
}
int Ctl(const Options &options, const Args &args) {
  return ShowRows(options, args, true);
}

int Dir(const Options &options, const Args &args) {
  if (args.size() != 1) {
    return UsageError("prop");
  }
  const std::string dir = property_store_dir();
  if (dir.empty()) {
    fprintf(stderr, "tarvik-qmi: no usable property store directory\n");
    return 1;
  }
  if (options.json) {
    printf("{\"dir\":%s}\n", JsonString(dir).c_str());
  } else {
    printf("%s\n", dir.c_str());
  }
  return 0;
}

int RunProp(const Options &options, const Args &args) {
  static const struct {
    const char *verb;
    int (*run)(const Options &, const Args &);
  } kVerbs[] = {{"get", Get}, {"set", Set}, {"list", List}, {"dir", Dir}, {"ctl", Ctl}};
  for (const auto &verb : kVerbs) {
    if (!args.empty() && args[0] == verb.verb) {
      return verb.run(options, args);
    }
  }
  return UsageError("prop");
}

TARVIK_COMMAND("prop", "get NAME [DEFAULT] | set NAME VALUE | list | dir | ctl",
               "read and write the property store; show its directory and ctl.* requests", RunProp);

}  // namespace
}  // namespace tarvik_tool
