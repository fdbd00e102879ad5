// send: one generic request over the vendor channel (request id and payload as given); prints the
// modem's answer as hex. The whole answer record is taken through the channel's pass-through
// sender, so the tool sees what the generic call hides: the modem's verdict, the length the
// answer claims, and whether CAPACITY cut it. The embedded modem answers request id 255 itself
// (loopback).
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tarvik_extend_api.h"
#include "tarvik_extend_qmi_v01.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

int Send(Report &report, const Args &args) {
  unsigned long id = 0, capacity = TARVIK_EXTEND_QMI_MAX_PAYLOAD;
  std::vector<uint8_t> payload;
  std::string why;
  if (!ParseNumber(args[0], UINT32_MAX, &id)) {
    return report.Refuse("request id '" + args[0] + "' is not a number from 0 to 0xFFFFFFFF");
  }
  if (!ParseHex(args[1], &payload, &why)) return report.Refuse(why);
  if (payload.size() > TARVIK_EXTEND_QMI_MAX_PAYLOAD) {
    return report.Refuse("the payload is " + std::to_string(payload.size()) + " bytes, at most " +
                         std::to_string(TARVIK_EXTEND_QMI_MAX_PAYLOAD) + " fit");
  }
  if (args.size() == 3 && !ParseNumber(args[2], TARVIK_EXTEND_QMI_MAX_PAYLOAD, &capacity)) {
    return report.Refuse("capacity '" + args[2] + "' is not a number from 0 to " +
                         std::to_string(TARVIK_EXTEND_QMI_MAX_PAYLOAD));
  }
  report.Add(Num("request_id", static_cast<long long>(id)));
  if (const int ready = Connect(report)) return ready;
  tarvik_extend_qmi_req_msg_v01 req{};
  tarvik_extend_qmi_resp_msg_v01 resp{};
  req.id = static_cast<uint32_t>(id);
  req.data_len = static_cast<uint32_t>(payload.size());
  req.data_valid = 1;
  if (!payload.empty()) memcpy(req.data, payload.data(), payload.size());
  const int status = tarvik_extend_qmi_self_study_send_sync(TARVIK_EXTEND_QMI_GENERIC_MSG_V01, &req,
                                                            sizeof(req), &resp, sizeof(resp));
  if (status != 0) return report.Failed(Family::kChannel, status);
  if (resp.result != 0) {
    return report.Failed(Family::kModem, static_cast<int32_t>(resp.result));
  }
  const uint32_t claimed = resp.data_valid ? resp.data_len : 0;
  if (!resp.data_valid && resp.data_len != 0) {
    return report.Add(Num("answer_length", resp.data_len))
        .Refuse("the answer claims " + std::to_string(resp.data_len) + " bytes but carries none",
                kExitFailed);
  }
  const uint32_t carried = std::min<uint32_t>(claimed, TARVIK_EXTEND_QMI_MAX_PAYLOAD);
  const uint32_t shown = std::min<uint32_t>(carried, static_cast<uint32_t>(capacity));
  report.Add({Num("length", shown), Num("answer_length", claimed), Bool("cut", claimed > shown),
              Hex("data", resp.data, shown)});
  return report.Ok();
}

const Verb kVerbs[] = {{"", "REQUEST_ID HEX|- [CAPACITY]", 2, 3, Send}};
TARVIK_COMMAND("send", "one generic request over the vendor channel; prints the answer as hex",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
