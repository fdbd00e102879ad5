// mcfg: the modem's configuration (MBN) controls: list file paths, customer maximum, discovery
// timer and configuration event reports.
#include <string>

#include "tarvik_extend_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

int Finish(Report &report, uint32_t status) {
  return status != 0 ? report.Failed(Family::kFeature, static_cast<int32_t>(status)) : report.Ok();
}

// Path kinds go to the library as they are: it refuses the wrong ones without traffic.
bool ParseKind(Report &report, const std::string &text, uint32_t *kind, int *exit_status) {
  unsigned long k = 0;
  if (!ParseNumber(text, UINT32_MAX, &k)) {
    *exit_status = report.Refuse("kind '" + text + "' is not a number (9/11 get, 10/12 set)");
    return false;
  }
  *kind = static_cast<uint32_t>(k);
  report.Add(Num("kind", k));
  return true;
}

int PathGet(Report &report, const Args &args) {
  uint32_t kind = 0;
  int status = kExitOk;
  if (!ParseKind(report, args[0], &kind, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  char path[TARVIK_MCFG_PATH_SIZE] = {};
  const uint32_t result = tarvik_mcfg_mbn_txt_path_get(path, kind);
  return result != 0 ? Finish(report, result) : report.Add(Str("path", path)).Ok();
}

int PathSet(Report &report, const Args &args) {
  uint32_t kind = 0;
  int status = kExitOk;
  if (!ParseKind(report, args[0], &kind, &status)) return status;
  report.Add(Str("path", args[1]));
  if (const int ready = Connect(report)) return ready;
  return Finish(report, tarvik_mcfg_mbn_txt_path_set(args[1].c_str(), kind));
}

int CustMax(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  return report.Add(Num("cust_max", tarvik_mbn_list_cust_max_num_get())).Ok();
}

int TimerGet(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  const int timeout = tarvik_mcfg_ext_get_discover_timer_timeout();
  return timeout < 0 ? report.Refuse("the modem did not answer the timer", kExitFailed)
                     : report.Add(Num("timeout", timeout)).Ok();
}

int TimerSet(Report &report, const Args &args) {
  unsigned long timeout = 0;
  if (!ParseNumber(args[0], UINT32_MAX, &timeout)) {
    return report.Refuse("timeout '" + args[0] + "' is not a number");
  }
  report.Add(Num("timeout", timeout));
  if (const int ready = Connect(report)) return ready;
  return tarvik_mcfg_ext_set_discover_timer_timeout(static_cast<uint32_t>(timeout)) == 1
             ? report.Ok()
             : report.Refuse("the modem did not take the timer", kExitFailed);
}

int RegEvents(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  return Finish(report, tarvik_reg_mcfg_event_ind());
}

const Verb kVerbs[] = {
    {"path-get", "9|11", 1, 1, PathGet},      {"path-set", "10|12 PATH", 2, 2, PathSet},
    {"cust-max", "", 0, 0, CustMax},          {"timer-get", "", 0, 0, TimerGet},
    {"timer-set", "TIMEOUT", 1, 1, TimerSet}, {"reg-events", "", 0, 0, RegEvents},
};
TARVIK_COMMAND("mcfg", "MBN list paths, customer maximum, discovery timer, configuration events",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
