// capability: what the modem is and can do (identifiers, CDMA and DSDA support, the card mode)
// and its texts and records by type.
#include <string>
#include <vector>

#include "tarvik_extend_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

const char *CardModeName(uint32_t mode) {
  return mode == CARD_MODE_FLAG_SS ? "SS" : mode == CARD_MODE_FLAG_DSDA ? "DSDA" : "DSDS";
}

// The number queries answer 0 on failure; the log holds the cause.
int Ids(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  return report
      .Add({Num("chipset_id", tarvik_modem_chipset_id_get()),
            Num("hw_id", tarvik_modem_hw_id_get()),
            Num("bp_chip_id", tarvik_modem_bp_chip_id_get()),
            Bool("cdma", tarvik_modem_cdma_support_status_get()),
            Bool("dsda", tarvik_modem_dsda_support_status_get()),
            Num("dsda_default", tarvik_modem_dsda_default_status_get())})
      .Ok();
}

int CardMode(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  const uint32_t mode = tarvik_get_card_mode_flag();
  return report.Add({Num("card_mode", mode), Str("card_mode_name", CardModeName(mode))}).Ok();
}

// string TYPE [CAPACITY] and raw TYPE [CAPACITY]: the capacity defaults to the largest answer.
bool ParseTypeCapacity(Report &report, const Args &args, uint32_t *type, uint32_t *capacity,
                       int *exit_status) {
  unsigned long t = 0, c = TARVIK_CMN_RSP_DATA_MAX;
  if (!ParseNumber(args[0], UINT32_MAX, &t)) {
    *exit_status = report.Refuse("type '" + args[0] + "' is not a number");
    return false;
  }
  if (args.size() > 1 && !ParseNumber(args[1], TARVIK_CMN_RSP_DATA_MAX, &c)) {
    *exit_status = report.Refuse("capacity '" + args[1] + "' is not a number up to 500");
    return false;
  }
  *type = static_cast<uint32_t>(t);
  *capacity = static_cast<uint32_t>(c);
  report.Add({Num("type", t), Num("capacity", c)});
  return true;
}

int Text(Report &report, const Args &args) {
  uint32_t type = 0, len = 0;
  int status = kExitOk;
  if (!ParseTypeCapacity(report, args, &type, &len, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  std::vector<char> out(TARVIK_CMN_RSP_DATA_MAX + 1, 0);
  const uint32_t result = tarvik_modem_string_info_get(type, out.data(), &len);
  if (result != 0) return report.Failed(Family::kFeature, static_cast<int32_t>(result));
  return report.Add({Str("text", out.data()), Num("len", len)}).Ok();
}

int Record(Report &report, const Args &args) {
  uint32_t type = 0, len = 0;
  int status = kExitOk;
  if (!ParseTypeCapacity(report, args, &type, &len, &status)) return status;
  if (const int ready = Connect(report)) return ready;
  std::vector<uint8_t> out(TARVIK_CMN_RSP_DATA_MAX, 0);
  const uint32_t result = tarvik_modem_raw_content_get(type, out.data(), &len);
  if (result != 0) return report.Failed(Family::kFeature, static_cast<int32_t>(result));
  return report.Add({Hex("record", out.data(), len), Num("len", len)}).Ok();
}

const Verb kVerbs[] = {
    {"ids", "", 0, 0, Ids},
    {"card-mode", "", 0, 0, CardMode},
    {"string", "TYPE [CAPACITY]", 1, 2, Text},
    {"raw", "TYPE [CAPACITY]", 1, 2, Record},
};
TARVIK_COMMAND("capability",
               "modem identifiers, CDMA/DSDA support, card mode, texts and records by type",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
