// The helpers every command of tarvik-qmi shares (see tool.h).
#include "tool.h"

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <utility>

#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "qmi_trace.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_utils_cmn.h"

namespace tarvik_tool {

// --- status names ---
namespace {

struct Name {
  long code;
  const char *name;
};

const Name kChannel[] = {
    {-1, "invalid argument"},
    {-2, "no connection to the extend service"},
    {-3, "refused by the modem, timed out, or the retry failed"},
    {-4, "the event already has a handler"},
    {-5, "the channel could not be opened"},
};

const Name kFeature[] = {
    {TARVIK_FEAT_ERR_INVALID_PARAM, "channel: invalid argument"},
    {TARVIK_FEAT_ERR_NO_CLIENT, "channel: no connection to the extend service"},
    {TARVIK_FEAT_ERR_SEND_FAILED, "channel: refused by the modem, timed out, or the retry failed"},
    {TARVIK_FEAT_ERR_SUB_INVALID, "subscription invalid"},
    {TARVIK_FEAT_ERR_PATH_NULL, "path missing"},
    {TARVIK_FEAT_ERR_PATH_LEN, "path length invalid"},
    {TARVIK_FEAT_ERR_BUF_NULL, "data buffer missing"},
    {TARVIK_FEAT_ERR_LEN_INVALID, "length invalid or empty transfer"},
    {TARVIK_FEAT_ERR_NV_ID_RANGE, "NV item number out of range"},
    {static_cast<long>(TARVIK_CMN_ERR_INVALID_ARG), "invalid argument of a common request"},
    {static_cast<long>(TARVIK_CMN_ERR_BUF_TOO_SHORT), "buffer too short"},
    {static_cast<long>(TARVIK_NV_ITEM_ERR_NO_FIT), "payload or buffer does not fit"},
};

// The modem's NV status codes.
const Name kNvStatus[] = {
    {1, "NV busy"},
    {2, "NV bad command"},
    {3, "NV store full"},
    {4, "NV failure"},
    {5, "NV item not active"},
    {6, "NV bad parameter"},
    {7, "NV item read-only"},
    {8, "NV bad target"},
    {9, "NV out of memory"},
    {10, "NV item not allocated"},
};

const Name kClient[] = {
    {-1, "internal error"},
    {-2, "service error"},
    {-3, "timed out"},
    {-4, "extended error"},
    {-5, "port not open"},
    {-13, "memory copy error"},
    {-14, "invalid transaction"},
    {-15, "client allocation failure"},
    {-16, "transport error"},
    {-17, "parameter error"},
    {-18, "invalid client"},
    {-19, "modem firmware not up"},
    {-20, "invalid signal"},
    {-21, "transport busy"},
    {-40, "codec: extended error"},
    {-41, "codec: buffer too small"},
    {-42, "codec: array too big"},
    {-43, "codec: message id not found"},
    {-44, "codec: TLV duplicated"},
    {-45, "codec: length inconsistency"},
    {-46, "codec: missing TLV"},
    {-47, "codec: parameter error"},
    {-48, "codec: unrecognized service version"},
    {-49, "codec: unknown mandatory TLV"},
    {-50, "codec: incompatible service version"},
    {-51, "codec: range failure"},
};

// UIM operations: the client library's codes, with the meanings these operations give them.
const Name kUim[] = {
    {-1, "no client, no memory or no record"},
    {-2, "service error or bad record"},
    {-3, "timed out or no purge answer"},
    {-4, "purge failed or refused"},
};

const Name kControl[] = {{1, "refused"}, {2, "usage"}};

const Name kSensor[] = {
    {-1, "invalid argument"},
    {-2, "no sensor service client"},
    {-3, "the request failed"},
};

const Name kBlacklist[] = {
    {-1, "malformed request"}, {6, "not supported"},   {500, "invalid parameters"},
    {501, "enabling failed"},  {502, "adding failed"}, {503, "disabling failed"},
    {504, "removal failed"},   {505, "over limit"},
};

template <size_t N>
const char *Find(const Name (&names)[N], long code) {
  for (const Name &n : names) {
    if (n.code == code) return n.name;
  }
  return nullptr;
}

std::string ModemName(long status) {
  const char *name = status > 0 ? qmi_trace::QmiErrorName(static_cast<unsigned>(status)) : nullptr;
  return name != nullptr ? name : "modem error";
}

}  // namespace

std::string StatusName(Family family, long status) {
  if (status == 0) return "ok";
  const char *name = nullptr;
  switch (family) {
    case Family::kChannel:
      name = Find(kChannel, status);
      return name != nullptr ? name : "channel error";
    case Family::kService:
      if (status == -1) return "no client or no memory";
      [[fallthrough]];
    case Family::kClient:
      name = Find(kClient, status);
      return name != nullptr ? name : "client error";
    case Family::kSensor:
      name = Find(kSensor, status);
      return name != nullptr ? name : "sensor client error";
    case Family::kModem:
      return ModemName(status);
    case Family::kControl:
      name = Find(kControl, status);
      return name != nullptr ? name : "control error";
    case Family::kUim:
      name = Find(kUim, status);
      if (name == nullptr) name = Find(kClient, status);
      return name != nullptr ? name : "client error";
    case Family::kBlacklist:
      name = Find(kBlacklist, status);
      return name != nullptr ? name : "blacklist error";
    case Family::kFeature:
    case Family::kNv:
    case Family::kFile:
      break;
  }
  name = Find(kFeature, status);
  if (name != nullptr) return name;
  if (family == Family::kNv && (name = Find(kNvStatus, status)) != nullptr) {
    return std::string("modem: ") + name;
  }
  if (family == Family::kFile && status < 0 && status > -4096) {
    std::string text = strerror(static_cast<int>(-status));
    if (!text.empty()) text[0] = static_cast<char>(tolower(static_cast<unsigned char>(text[0])));
    return "modem: " + text;
  }
  return "modem: " + ModemName(status);
}

std::string StatusText(Family family, long status) {
  char code[32];
  if (status > 0 && family != Family::kBlacklist) {
    snprintf(code, sizeof(code), "0x%lX", static_cast<unsigned long>(status));
  } else {
    snprintf(code, sizeof(code), "%ld", status);
  }
  return StatusName(family, status) + " (" + code + ")";
}

// --- fields ---
Field Num(const std::string &key, long long value) {
  return {key, std::to_string(value), std::to_string(value)};
}
Field Str(const std::string &key, const std::string &value) {
  return {key, JsonString(value), value};
}
Field Bool(const std::string &key, bool value) {
  return {key, value ? "true" : "false", value ? "yes" : "no"};
}
Field Hex(const std::string &key, const void *data, size_t len) {
  const std::string hex = HexOf(data, len);
  return {key, JsonString(hex), hex.empty() ? "-" : hex};
}
Field Nums(const std::string &key, const std::vector<uint32_t> &values) {
  std::string json = "[", text;
  for (size_t i = 0; i < values.size(); ++i) {
    json += (i > 0 ? "," : "") + std::to_string(values[i]);
    text += (i > 0 ? " " : "") + std::to_string(values[i]);
  }
  return {key, json + "]", text.empty() ? "-" : text};
}
Field Raw(const std::string &key, const std::string &json, const std::string &text) {
  return {key, json, text};
}

Field Members(const std::string &json_members, const std::string &text) {
  return {"", json_members, text};
}

// --- report ---
Report::Report(const Options &options, std::string command)
    : options_(options), command_(std::move(command)) {}

Report &Report::Add(Field field) {
  fields_.push_back(std::move(field));
  return *this;
}

Report &Report::Add(std::vector<Field> fields) {
  for (auto &f : fields) fields_.push_back(std::move(f));
  return *this;
}

void Report::PrintJson(const std::string &status, const std::string &name) const {
  std::string out = "{\"command\":" + JsonString(command_) + ",\"status\":" + status +
                    ",\"status_name\":" + JsonString(name);
  for (const Field &f : fields_) {
    if (!f.key.empty()) {
      out += "," + JsonString(f.key) + ":" + f.json;
    } else if (!f.json.empty()) {
      out += "," + f.json;
    }
  }
  printf("%s}\n", out.c_str());
  fflush(stdout);
}

int Report::Ok(int exit_status) {
  if (options_.json) {
    PrintJson("0", "ok");
    return exit_status;
  }
  for (const Field &f : fields_) {
    if (f.key.empty()) {
      if (!f.text.empty()) printf("%s\n", f.text.c_str());
    } else {
      printf("%s: %s\n", f.key.c_str(), f.text.c_str());
    }
  }
  fflush(stdout);
  return exit_status;
}

int Report::OkValue(Field value) {
  if (options_.json) return Add(std::move(value)).Ok();
  printf("%s\n", value.text.c_str());
  fflush(stdout);
  return kExitOk;
}

int Report::Failed(Family family, long status, int exit_status) {
  if (options_.json) {
    PrintJson(std::to_string(status), StatusName(family, status));
  } else {
    fprintf(stderr, "tarvik-qmi: %s failed: %s\n", command_.c_str(),
            StatusText(family, status).c_str());
  }
  return exit_status;
}

int Report::Refuse(const std::string &why, int exit_status) {
  if (options_.json) {
    Add(Str("error", why));
    PrintJson("null", exit_status == kExitUsage ? "usage" : "error");
  } else {
    fprintf(stderr, "tarvik-qmi: %s: %s\n", command_.c_str(), why.c_str());
  }
  return exit_status;
}

// --- arguments ---
bool ParseSub(Report &report, const std::string &text, uint32_t *sub, int *exit_status) {
  unsigned long v = 0;
  if (!ParseNumber(text, 2, &v)) {
    *exit_status = report.Refuse("subscription '" + text + "' is not 0, 1 or 2");
    return false;
  }
  *sub = static_cast<uint32_t>(v);
  return true;
}

// --- the modem ---
namespace {
std::unique_ptr<modemsim::Modem> g_embedded;
bool g_prepared = false;
std::string g_failure;
int g_status = 0;

std::string ModemTarget(const Options &options) {
  if (!options.modem.empty()) return options.modem;
  const char *env = getenv("TARVIK_QMI_TRANSPORT");
  return env != nullptr && (strncmp(env, "unix:", 5) == 0 || strncmp(env, "qmux:", 5) == 0) ? env
                                                                                            : "";
}
}  // namespace

std::string DaemonSocket(const Options &options) {
  const std::string m = ModemTarget(options);
  return m.compare(0, 5, "unix:") == 0 ? m.substr(5) : std::string();
}

void QuietLibrary() {
  tarvik_hal_get_shell_print_flag(0);
  tarvik_hal_set_shell_print_mask(0);
}

int Connect(Report &report) {
  QuietLibrary();
  if (!g_prepared) {
    g_prepared = true;
    const std::string choice = ModemTarget(report.options());
    if (choice.empty()) {
      g_embedded = modemsim::CreateStandardModem(report.options().state_dir);
      g_embedded->ServeInProcess();
      if (qmi_client_host_select_transport("inproc") != QMI_NO_ERR) {
        g_failure = "cannot start the embedded modem";
        g_status = kExitFailed;
      }
    } else if (choice.compare(0, 5, "qmux:") == 0 && choice.size() > 5) {
      if (qmi_client_host_select_transport(choice.c_str()) != QMI_NO_ERR) {
        g_failure = "cannot use the QMUX device " + choice.substr(5);
        g_status = kExitFailed;
      }
    } else if (DaemonSocket(report.options()).empty()) {
      g_failure = "--modem takes unix:PATH or qmux:PATH, not '" + choice + "'";
      g_status = kExitUsage;
    } else if (qmi_client_host_select_transport(choice.c_str()) != QMI_NO_ERR) {
      g_failure = "cannot reach tarvik-modemd at " + DaemonSocket(report.options());
      g_status = kExitFailed;
    }
  }
  return g_status == kExitOk ? kExitOk : report.Refuse(g_failure, g_status);
}

modemsim::Modem *EmbeddedModem() {
  return g_embedded.get();
}

}  // namespace tarvik_tool
