// nas: the 5G controls of the long-lived NAS client (bound to --instance) and their read-back
// through the pass-through.
#include <string>

#include "network_access_service_v01.h"
#include "tarvik_extend_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

// The NAS client binds to the subscription this radio process serves: the tool serves one only
// when told (without it the library binds nothing and every call fails with -1).
int NeedInstance(Report &report) {
  const long instance = report.options().instance;
  if (instance == 0 || instance == 1) return 0;
  return report.Refuse(std::string("needs --instance 0 or 1, the subscription the NAS client ") +
                       "binds to" +
                       (instance < 0 ? "" : " (got " + std::to_string(instance) + ")"));
}

// One control: its argument's range and the library call.
int Control(Report &report, const Args &args, const char *key, unsigned long max,
            int (*send)(uint32_t)) {
  unsigned long value = 0;
  if (!ParseNumber(args[0], max, &value)) {
    return report.Refuse(std::string(key) + " '" + args[0] + "' is not a number from 0 to " +
                         std::to_string(max));
  }
  report.Add(Num(key, static_cast<long long>(value)));
  if (const int refused = NeedInstance(report)) return refused;
  if (const int ready = Connect(report)) return ready;
  const int status = send(static_cast<uint32_t>(value));
  return status != 0 ? report.Failed(Family::kService, status) : report.Ok();
}

int NrMode(Report &report, const Args &args) {
  return Control(report, args, "mode", 0xFFFFFFFFul, tarvik_set_nr_mode);
}

int Endc(Report &report, const Args &args) {
  return Control(report, args, "enable", 0xFFFFFFFFul, tarvik_enable_endc);
}

int SaDeprio(Report &report, const Args &args) {
  return Control(report, args, "deprioritize", 0xFFFFFFFFul, tarvik_deprioritize_sa);
}

// One get message through the pass-through; false after reporting a failure.
template <typename Resp>
bool Get(Report &report, uint32_t msg_id, Resp *resp, int *exit_status) {
  nas_get_system_selection_preference_req_msg_v01 req = {};
  const int status =
      tarvik_send_nas_qmi_req_msg(msg_id, &req, sizeof(req), resp, sizeof(*resp), 3000);
  if (status != 0) {
    *exit_status = report.Failed(Family::kService, status);
    return false;
  }
  if (resp->resp.result != QMI_RESULT_SUCCESS_V01) {
    *exit_status = report.Failed(Family::kModem, resp->resp.error);
    return false;
  }
  return true;
}

// Reads back what the controls set for this process's subscription: the long-lived client is
// bound first, so that the pass-through's client speaks for the same subscription.
int Show(Report &report, const Args &) {
  if (const int refused = NeedInstance(report)) return refused;
  if (const int ready = Connect(report)) return ready;
  if (!init_nas_qmi_client()) return report.Failed(Family::kService, -1);
  nas_get_system_selection_preference_resp_msg_v01 pref = {};
  nas_get_endc_config_resp_msg_v01 endc = {};
  int exit_status = kExitOk;
  if (!Get(report, QMI_NAS_GET_SYSTEM_SELECTION_PREFERENCE_REQ_MSG_V01, &pref, &exit_status) ||
      !Get(report, QMI_NAS_GET_ENDC_CONFIG_REQ_MSG_V01, &endc, &exit_status)) {
    return exit_status;
  }
  if (pref.nr5g_disable_mode_valid) report.Add(Num("nr5g_disable_mode", pref.nr5g_disable_mode));
  if (endc.endc_enabled_valid) report.Add(Num("endc", endc.endc_enabled));
  return report.Ok();
}

const Verb kVerbs[] = {
    {"nr-mode", "MODE (1 SA off, 2 NSA off, else none)", 1, 1, NrMode},
    {"endc", "0|1", 1, 1, Endc},
    {"sa-deprio", "0|1", 1, 1, SaDeprio},
    {"show", "", 0, 0, Show},
};
TARVIK_COMMAND("nas", "5G controls of the subscription given by --instance", kVerbs);

}  // namespace
}  // namespace tarvik_tool
