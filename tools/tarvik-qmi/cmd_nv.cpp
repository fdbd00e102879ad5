// nv: NV items of the modem, by subscription and item number, on the validated path.
#include <string>
#include <vector>

#include "tarvik_extend_nvefs.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

// SUB ITEM of every verb; kExitOk when both are usable.
int ParseItem(Report &report, const Args &args, uint32_t *sub, uint32_t *item) {
  int status = kExitOk;
  if (!ParseSub(report, args[0], sub, &status)) return status;
  unsigned long n = 0;
  if (!ParseNumber(args[1], TARVIK_NV_ID_MAX, &n)) {
    return report.Refuse("item '" + args[1] + "' is not a number from 0 to " +
                         std::to_string(TARVIK_NV_ID_MAX));
  }
  *item = static_cast<uint32_t>(n);
  report.Add({Num("sub", *sub), Num("item", *item)});
  return Connect(report);
}

int Read(Report &report, const Args &args) {
  uint32_t sub = 0, item = 0;
  if (const int ready = ParseItem(report, args, &sub, &item)) return ready;
  uint8_t buf[TARVIK_NVEFS_DATA_MAX];
  uint32_t len = sizeof(buf);
  const int status = tarvik_nv_read(sub, item, buf, &len);
  if (status != 0) return report.Failed(Family::kNv, status);
  return report.Add({Num("length", len), Hex("data", buf, len)}).Ok();
}

int Write(Report &report, const Args &args) {
  std::vector<uint8_t> data;
  std::string why;
  if (!ParseHex(args[2], &data, &why)) return report.Refuse(why);
  uint32_t sub = 0, item = 0;
  if (const int ready = ParseItem(report, args, &sub, &item)) return ready;
  const int status = tarvik_nv_write_ex(sub, item, data.data(), static_cast<uint32_t>(data.size()));
  if (status != 0) return report.Failed(Family::kNv, status);
  return report.Add(Num("length", static_cast<long long>(data.size()))).Ok();
}

int Delete(Report &report, const Args &args) {
  uint32_t sub = 0, item = 0;
  if (const int ready = ParseItem(report, args, &sub, &item)) return ready;
  const int status = tarvik_nv_delete(sub, item);
  return status != 0 ? report.Failed(Family::kNv, status) : report.Ok();
}

const Verb kVerbs[] = {
    {"read", "SUB ITEM", 2, 2, Read},
    {"write", "SUB ITEM HEX", 3, 3, Write},
    {"delete", "SUB ITEM", 2, 2, Delete},
};
TARVIK_COMMAND("nv", "NV items of a subscription: read, write (1 to 424 bytes of hex), delete",
               kVerbs);

}  // namespace
}  // namespace tarvik_tool
