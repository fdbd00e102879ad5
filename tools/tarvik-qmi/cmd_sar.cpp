// sar: the modem's RF SAR device state index.
#include <string>

#include "tarvik_extend_cmn.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

int Get(Report &report, const Args &) {
  if (const int ready = Connect(report)) return ready;
  const int dsi = tarvik_get_sar_dsi();
  return dsi < 0 ? report.Failed(Family::kService, dsi) : report.OkValue(Num("dsi", dsi));
}

int Set(Report &report, const Args &args) {
  unsigned long dsi = 0;
  if (!ParseNumber(args[0], 0xFFFFFFFFul, &dsi)) {
    return report.Refuse("DSI '" + args[0] + "' is not a number");
  }
  report.Add(Num("dsi", static_cast<long long>(dsi)));
  report.Add(Num("sent", dsi >= 1 && dsi <= 20 ? static_cast<long long>(dsi) : 0));
  if (const int ready = Connect(report)) return ready;
  const int status = tarvik_set_sar_dsi(static_cast<uint32_t>(dsi));
  return status != 0 ? report.Failed(Family::kService, status) : report.Ok();
}

const Verb kVerbs[] = {{"get", "", 0, 0, Get},
                       {"set", "DSI (1-20; anything else sends 0)", 1, 1, Set}};
TARVIK_COMMAND("sar", "reads or sets the RF SAR device state index", kVerbs);

}  // namespace
}  // namespace tarvik_tool
