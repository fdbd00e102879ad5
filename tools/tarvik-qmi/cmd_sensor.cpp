// sensor: hands an encoded sensor-framework request to the sensor client service.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tarvik_sensor_api.h"
#include "tool.h"

namespace tarvik_tool {
namespace {

int Send(Report &report, const Args &args) {
  std::vector<uint8_t> payload;
  std::string why;
  if (!ParseHex(args[0], &payload, &why)) return report.Refuse("payload: " + why);
  uint8_t flag = 0;
  if (args.size() == 2) {
    if (args[1] != "--flag") return report.Refuse("unknown option '" + args[1] + "'");
    flag = 1;
  }
  report.Add(Num("bytes", static_cast<long long>(payload.size()))).Add(Bool("flag", flag != 0));
  if (const int ready = Connect(report)) return ready;
  // The client's console lines (a failed creation prints one whatever the debug switch says)
  // would break the tool's own output: standard output is parked on /dev/null meanwhile.
  g_tarvik_sensor_debug_flag = 0;
  fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  const int null_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const bool parked = saved >= 0 && null_fd >= 0 && dup2(null_fd, STDOUT_FILENO) >= 0;
  int context = 0;
  const uint8_t none = 0;
  const int status =
      tarvik_sensor_qmi_send_sync(payload.empty() ? &none : payload.data(),
                                  static_cast<uint32_t>(payload.size()), &context, nullptr, flag);
  fflush(stdout);
  if (parked) dup2(saved, STDOUT_FILENO);
  if (null_fd >= 0) close(null_fd);
  if (saved >= 0) close(saved);
  return status != 0 ? report.Failed(Family::kSensor, status) : report.Ok();
}

const Verb kVerbs[] = {{"send", "HEX [--flag]", 1, 2, Send}};
TARVIK_COMMAND("sensor", "sends an encoded request to the sensor client service", kVerbs);

}  // namespace
}  // namespace tarvik_tool
