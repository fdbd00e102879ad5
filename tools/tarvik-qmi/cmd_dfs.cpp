// dfs: five-tuple blacklist filters on a data device, through the library's two entry points,
// and the modem's filter mode as a client bound to the device reads it.
#include <stdio.h>
#include <string.h>

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "data_filter_service_v01.h"
#include "qmi_client.h"
#include "qmi_platform.h"
#include "tarvik_filter_control.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

constexpr size_t kTuple = TARVIK_FILTER_FIELD_COUNT;

int Outcome(Report &report, int ret, uint32_t status) {
  report.Add(Num("result", status));
  return ret != 0 ? report.Failed(Family::kBlacklist, ret) : report.Ok();
}

// The tuples of `enter`: those after DEV, or with "-" one tuple of six words per line of stdin.
bool ReadTuples(const Args &args, std::vector<Args> *tuples, std::string *why) {
  Args words(args.begin() + 1, args.end());
  if (words.size() == 1 && words[0] == "-") {
    words.clear();
    std::string line;
    while (std::getline(std::cin, line)) {
      std::istringstream in(line);
      Args fields;
      for (std::string w; in >> w;) fields.push_back(w);
      if (fields.empty() || fields[0][0] == '#') continue;
      if (fields.size() != kTuple) {
        *why = "line '" + line + "' is not six words IPVER PROTO SRC DST SPORT DPORT";
        return false;
      }
      words.insert(words.end(), fields.begin(), fields.end());
    }
  }
  if (words.empty() || words.size() % kTuple != 0) {
    *why = "enter takes DEV and one or more tuples IPVER PROTO SRC DST SPORT DPORT";
    return false;
  }
  for (size_t i = 0; i < words.size(); i += kTuple) {
    tuples->emplace_back(words.begin() + i, words.begin() + i + kTuple);
  }
  return true;
}

int Enter(Report &report, const Args &args) {
  std::vector<Args> tuples;
  std::string why;
  if (!ReadTuples(args, &tuples, &why)) return report.Refuse(why);
  report.Add(Str("device", args[0]));
  if (const int ready = Connect(report)) return ready;
  long long added = 0;
  for (Args &t : tuples) {
    char *fields[kTuple];
    for (size_t i = 0; i < kTuple; ++i) fields[i] = &t[i][0];
    uint32_t status = 0;
    const int ret = tarvik_set_fiveTuple_blacklist(args[0].c_str(), fields, (int)kTuple,
                                                   TARVIK_FILTER_MODE_ENTER, &status);
    if (ret != 0) {
      report.Add(Num("added", added));
      return Outcome(report, ret, status);
    }
    ++added;
  }
  report.Add(Num("added", added));
  return Outcome(report, 0, 0);
}

int Exit(Report &report, const Args &args) {
  const char *dev = args.empty() ? nullptr : args[0].c_str();
  report.Add(Str("device", dev != nullptr ? dev : ""));
  if (const int ready = Connect(report)) return ready;
  uint32_t status = 0;
  const int ret = tarvik_set_fiveTuple_blacklist(dev, nullptr, 0, TARVIK_FILTER_MODE_EXIT, &status);
  return Outcome(report, ret, status);
}

int Msg(Report &report, const Args &args) {
  std::vector<uint8_t> bytes;
  std::string why;
  if (!ParseHex(args[0], &bytes, &why)) return report.Refuse("request: " + why);
  report.Add(Num("length", (long long)bytes.size()));
  if (const int ready = Connect(report)) return ready;
  uint32_t status = 0;
  const int ret = tarvik_filter_control_handle_msg(bytes.empty() ? nullptr : bytes.data(),
                                                   (uint32_t)bytes.size(), &status);
  return Outcome(report, ret, status);
}

// A client of the tool's own, bound to DEV for the family, asks the modem for its filter mode.
int Mode(Report &report, const Args &args) {
  const uint32_t pref = args[1] == "4" ? 4 : args[1] == "6" ? 6 : 0;
  if (pref == 0) return report.Refuse("IP family '" + args[1] + "' is not 4 or 6");
  int ep_type = -1, epid = -1, mux_id = -1;
  if (qmi_linux_get_conn_id_by_name_ex(args[0].c_str(), &ep_type, &epid, &mux_id) == -1) {
    return report.Refuse("'" + args[0] + "' is not a data device");
  }
  report.Add({Str("device", args[0]), Num("ip", pref), Num("mux_id", mux_id)});
  if (const int ready = Connect(report)) return ready;
  qmi_client_os_params os;
  memset(&os, 0, sizeof(os));
  qmi_client_type client = nullptr;
  int rc = qmi_client_init_instance(dfs_get_service_object_internal_v01(1, 16, 6),
                                    QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr, &os, 3000, &client);
  if (rc != QMI_NO_ERR) return report.Failed(Family::kClient, rc);
  dfs_bind_client_req_msg_v01 bind = {};
  dfs_result_resp_msg_v01 bound = {};
  bind.ip_preference_valid = 1;
  bind.ip_preference = (dfs_ip_family_enum_v01)pref;
  bind.ep_id_valid = epid != -1;
  bind.ep_id = {(uint32_t)ep_type, (uint32_t)epid};
  bind.mux_id_valid = 1;
  bind.mux_id = (uint8_t)mux_id;
  dfs_empty_req_msg_v01 get = {};
  dfs_get_filter_mode_resp_msg_v01 mode = {};
  rc = qmi_client_send_msg_sync(client, QMI_DFS_BIND_CLIENT_REQ_V01, &bind, sizeof(bind), &bound,
                                sizeof(bound), 3000);
  if (rc == QMI_NO_ERR && bound.resp.result == 0) {
    rc = qmi_client_send_msg_sync(client, QMI_DFS_GET_FILTER_MODE_REQ_V01, &get, sizeof(get), &mode,
                                  sizeof(mode), 3000);
  }
  qmi_client_release(client);
  if (rc != QMI_NO_ERR) return report.Failed(Family::kClient, rc);
  const long error = bound.resp.result != 0 ? bound.resp.error : mode.resp.error;
  if (bound.resp.result != 0 || mode.resp.result != 0) return report.Failed(Family::kModem, error);
  if (!mode.filter_mode_valid) return report.Add(Str("mode", "absent")).Ok();
  return report.Add(Num("mode", mode.filter_mode)).Ok();
}

const Verb kVerbs[] = {
    {"enter", "DEV IPVER PROTO SRC DST SPORT DPORT [IPVER PROTO ...]... | DEV -", 2, SIZE_MAX,
     Enter},
    {"exit", "[DEV]", 0, 1, Exit},
    {"msg", "HEX|-", 1, 1, Msg},
    {"mode", "DEV 4|6", 2, 2, Mode},
};
TARVIK_COMMAND("dfs", "five-tuple blacklist filters on a data device (DFS)", kVerbs);

}  // namespace
}  // namespace tarvik_tool
