// device-name, notify: the product name kept in the modem's file system, and the screen and
// sleep status told to the modem.
#include <string>
#include <vector>

#include "tarvik_extend_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

int Save(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  tarvik_device_name_save_to_efs();
  return report.Ok();
}

int Read(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  return report.Add(Str("device_name", tarvik_device_name_read_from_efs())).Ok();
}

int Match(Report &report, const Args &args) {
  if (const int ready = Connect(report)) return ready;
  std::vector<char *> list;
  for (const auto &a : args) list.push_back(const_cast<char *>(a.c_str()));
  const bool match =
      tarvik_device_name_list_contain_ex(list.data(), static_cast<uint32_t>(list.size()));
  return report.Add(Bool("match", match)).Ok(match ? kExitOk : kExitFailed);
}

template <uint32_t (*Notify)(uint32_t)>
int RunNotify(Report &report, const Args &args) {
  unsigned long status = 0;
  if (!ParseNumber(args[0], UINT32_MAX, &status)) {
    return report.Refuse("status '" + args[0] + "' is not a number");
  }
  report.Add(Num("value", status));
  if (const int ready = Connect(report)) return ready;
  const uint32_t result = Notify(static_cast<uint32_t>(status));
  return result != 0 ? report.Failed(Family::kFeature, static_cast<int32_t>(result)) : report.Ok();
}

const Verb kNameVerbs[] = {
    {"save", "", 0, 0, Save},
    {"read", "", 0, 0, Read},
    {"match", "NAME...", 1, 64, Match},
};
TARVIK_COMMAND("device-name",
               "the product name in the modem's files: save, read, match a list (all_product)",
               kNameVerbs);

const Verb kNotifyVerbs[] = {
    {"screen", "0|1", 1, 1, RunNotify<tarvik_qcril_screen_status_notify_to_modem>},
    {"sleep", "STATUS", 1, 1, RunNotify<tarvik_qcril_sleep_status_notify_to_modem>},
};
TARVIK_COMMAND("notify", "tells the modem the screen status (0/1; 2 and up not sent) or sleep",
               kNotifyVerbs);

}  // namespace
}  // namespace tarvik_tool
