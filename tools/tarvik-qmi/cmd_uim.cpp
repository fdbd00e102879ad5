// uim: the SIM cards through the library's UIM client: card states, EID, card power, SIM type,
// logical channels, APDUs and the GUTI purge. For the purge the tool plays the radio layer: a UIM
// client of its own listens for the purge outcome and writes PURGE_STATE.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "qmi_client.h"
#include "tarvik_extend_cmn.h"
#include "tool.h"
#include "user_identity_module_v01.h"

namespace tarvik_tool {
namespace {

const char *CardStateName(uint8_t state) {
  static const char *const kNames[] = {"absent", "present", "error", "not reported"};
  return state < 4 ? kNames[state] : "unknown";
}

bool ParseByte(Report &report, const std::string &what, const std::string &text, uint8_t *value,
               int *exit_status) {
  unsigned long v = 0;
  if (!ParseNumber(text, 0xFF, &v)) {
    *exit_status = report.Refuse(what + " '" + text + "' is not a number from 0 to 255");
    return false;
  }
  *value = static_cast<uint8_t>(v);
  report.Add(Num(what, static_cast<long long>(v)));
  return true;
}

int Finish(Report &report, int rc) {
  return rc != 0 ? report.Failed(Family::kUim, rc) : report.Ok();
}

int Status(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  uint16_t states = 0;
  const int rc = tarvik_uim_get_card_status(&states);
  if (rc != 0) return report.Failed(Family::kUim, rc);
  for (int card = 0; card < 2; ++card) {
    const uint8_t state = static_cast<uint8_t>(states >> (8 * card));
    report.Add(Raw("card" + std::to_string(card + 1),
                   "{\"state\":" + std::to_string(state) +
                       ",\"name\":" + JsonString(CardStateName(state)) + "}",
                   std::to_string(state) + " (" + CardStateName(state) + ")"));
  }
  return report.Ok();
}

int Eid(Report &report, const Args &args) {
  tarvik_uim_slot_req_t req{};
  int status = kExitOk;
  if (!ParseByte(report, "slot", args[0], &req.slot, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  uint8_t eid[TARVIK_UIM_EID_LEN];
  memset(eid, 0, sizeof(eid));
  const int rc = tarvik_uim_request_eid(&req, eid);
  if (rc != 0) return report.Failed(Family::kUim, rc);
  const bool any = memcmp(eid, std::string(sizeof(eid), '\0').data(), sizeof(eid)) != 0;
  return report.Add(Hex("eid", eid, any ? sizeof(eid) : 0)).Ok();
}

// power SLOT up|down [ignore-hotswap] and esim-power SLOT up|down ENABLE [ignore-hotswap].
int Power(Report &report, const Args &args, bool esim) {
  unsigned long slot = 0, enable = 0;
  if (!ParseNumber(args[0], UINT32_MAX, &slot)) {
    return report.Refuse("slot '" + args[0] + "' is not a number");
  }
  if (args[1] != "up" && args[1] != "down") return report.Refuse("say up or down");
  size_t next = 2;
  if (esim) {
    if (!ParseNumber(args[2], UINT32_MAX, &enable)) {
      return report.Refuse("eSIM enable '" + args[2] + "' is not a number");
    }
    next = 3;
  }
  const bool ignore = args.size() > next;
  if (ignore && args[next] != "ignore-hotswap") {
    return report.Refuse("'" + args[next] + "' is not ignore-hotswap");
  }
  report.Add({Num("slot", static_cast<long long>(slot)), Str("power", args[1]),
              Bool("ignore_hotswap", ignore)});
  if (esim) report.Add(Num("esim_enable", static_cast<long long>(enable)));
  if (const int ready = Connect(report)) return ready;
  const uint32_t power = args[1] == "up" ? 1 : 0;
  if (esim) {
    const tarvik_esim_power_req_t req{power, static_cast<uint32_t>(slot), ignore ? 1u : 0u,
                                      static_cast<uint32_t>(enable)};
    return Finish(report, tarvik_esim_request_uicc_power_ex(&req));
  }
  const tarvik_uim_power_req_t req{power, static_cast<uint32_t>(slot), ignore ? 1u : 0u};
  return Finish(report, tarvik_uim_request_uicc_power_ex(&req));
}

int PowerPlain(Report &report, const Args &args) {
  return Power(report, args, false);
}
int PowerEsim(Report &report, const Args &args) {
  return Power(report, args, true);
}

int SimType(Report &report, const Args &args) {
  tarvik_uim_sim_type_req_t req{};
  for (const auto &a : args) {
    unsigned long v = 0;
    if (!ParseNumber(a, UINT32_MAX, &v)) return report.Refuse("'" + a + "' is not a number");
    req.values[req.count++] = static_cast<uint32_t>(v);
  }
  report.Add(Nums("values", std::vector<uint32_t>(req.values, req.values + req.count)));
  if (const int ready = Connect(report)) return ready;
  return Finish(report, tarvik_setSimType(&req));
}

int Open(Report &report, const Args &args) {
  tarvik_uim_open_channel_req_t req{0, 0};
  int status = kExitOk;
  if (!ParseByte(report, "slot", args[0], &req.slot, &status) ||
      (args.size() > 1 &&
       !ParseByte(report, "fci", args[1], &req.file_control_information, &status))) {
    return status;
  }
  if (const int ready = Connect(report)) return ready;
  uint8_t channel = 0;
  const int rc = tarvik_uim_open_channel(&req, &channel);
  if (rc != 0) return report.Failed(Family::kUim, rc);
  return report.Add(Num("channel", channel)).Ok();
}

int Close(Report &report, const Args &args) {
  tarvik_uim_close_channel_req_t req{};
  int status = kExitOk;
  if (!ParseByte(report, "slot", args[0], &req.slot, &status) ||
      !ParseByte(report, "channel", args[1], &req.channel_id, &status)) {
    return status;
  }
  if (const int ready = Connect(report)) return ready;
  return Finish(report, tarvik_uim_close_channel(&req));
}

int Apdu(Report &report, const Args &args) {
  tarvik_uim_apdu_req_t req{};
  int status = kExitOk;
  if (!ParseByte(report, "slot", args[0], &req.slot, &status) ||
      !ParseByte(report, "channel", args[1], &req.channel_id, &status)) {
    return status;
  }
  std::vector<uint8_t> apdu;
  std::string why;
  if (!ParseHex(args[2], &apdu, &why)) return report.Refuse("APDU: " + why);
  if (apdu.size() > TARVIK_UIM_APDU_MAX) return report.Refuse("an APDU holds at most 255 bytes");
  req.apdu_len = static_cast<uint8_t>(apdu.size());
  memcpy(req.apdu, apdu.data(), apdu.size());
  if (const int ready = Connect(report)) return ready;
  std::vector<uint8_t> out(TARVIK_UIM_APDU_RESP_BUF_LEN, 0);
  const int rc = tarvik_uim_send_apdu(&req, out.data());
  if (rc != 0) return report.Failed(Family::kUim, rc);
  // The length byte holds the low 8 bits only. The buffer was zeroed and an answer ends with
  // its status word, whose SW1 is never 0: the length is the shortest one with that low byte
  // that covers the last non-zero byte.
  size_t last = 0;
  for (size_t i = 1; i < out.size(); ++i) {
    if (out[i] != 0) last = i;
  }
  size_t len = out[0];
  while (len < last && len + 256 <= QMI_UIM_APDU_DATA_MAX_V01) len += 256;
  report.Add(Hex("response", out.data() + 1, len));
  if (len >= 2) {
    report.Add(Str("sw", HexOf(out.data() + len - 1, 2, true)));  // the answer's last two
  }
  return report.Ok();
}

// The radio layer's handling of the purge outcome.
void OnPurgeIndication(qmi_client_type handle, unsigned int msg_id, void *buf, unsigned int len,
                       void *) {
  if (msg_id != QMI_UIM_TEMPORARY_ID_PURGE_IND_V01) return;
  uim_temporary_id_purge_ind_msg_v01 ind;
  if (qmi_client_message_decode(handle, QMI_IDL_INDICATION, msg_id, buf, len, &ind, sizeof(ind)) ==
          QMI_NO_ERR &&
      ind.outcome_valid) {
    __atomic_store_n(&PURGE_STATE, ind.outcome == 0 ? 1 : 2, __ATOMIC_RELAXED);
  }
}

int Purge(Report &report, const Args &args) {
  tarvik_uim_slot_req_t req{};
  int status = kExitOk;
  if (!ParseByte(report, "slot", args[0], &req.slot, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  qmi_client_type listener = nullptr;
  qmi_client_os_params os;
  memset(&os, 0, sizeof(os));
  int rc = qmi_client_init_instance(&uim_qmi_idl_service_object_v01, QMI_CLIENT_INSTANCE_ANY,
                                    OnPurgeIndication, nullptr, &os, 4000, &listener);
  if (rc != QMI_NO_ERR) return report.Failed(Family::kClient, rc);
  uim_event_reg_req_msg_v01 reg{QMI_UIM_EVENT_PURGE_BIT_V01};
  uim_event_reg_resp_msg_v01 reg_resp;
  memset(&reg_resp, 0, sizeof(reg_resp));
  rc = qmi_client_send_msg_sync(listener, QMI_UIM_REGISTER_EVENT_REQ_V01, &reg, sizeof(reg),
                                &reg_resp, sizeof(reg_resp), 3000);
  if (rc == QMI_NO_ERR) rc = tarvik_uim_purge_guti(&req);
  qmi_client_release(listener);
  report.Add(Num("purge_state", __atomic_load_n(&PURGE_STATE, __ATOMIC_RELAXED)));
  return Finish(report, rc);
}

const Verb kVerbs[] = {
    {"status", "", 0, 0, Status},
    {"eid", "SLOT", 1, 1, Eid},
    {"power", "SLOT up|down [ignore-hotswap]", 2, 3, PowerPlain},
    {"esim-power", "SLOT up|down ENABLE [ignore-hotswap]", 3, 4, PowerEsim},
    {"sim-type", "[V...] (at most 5)", 0, TARVIK_UIM_SIM_TYPE_MAX, SimType},
    {"open", "SLOT [FCI]", 1, 2, Open},
    {"close", "SLOT CHANNEL", 2, 2, Close},
    {"apdu", "SLOT CHANNEL HEX", 3, 3, Apdu},
    {"purge", "SLOT (0 first, else second)", 1, 1, Purge},
};
TARVIK_COMMAND("uim", "SIM cards: states, EID, power, SIM type, channels, APDUs, GUTI purge",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
