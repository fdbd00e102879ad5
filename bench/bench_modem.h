// Setting up the benchmarks that drive the library against the in-process simulated modem: the
// library's logging switched off (as a device does with its log properties) and a raw client of
// the extend service beside the library's own channel, for the raw round-trip baselines.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "qmi_client.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_qmi_v01.h"
#include "tarvik_utils_cmn.h"

namespace tarvik_bench {

using tarvik_testing::SilenceLibraryLogging;

// Selects the in-process transport (the modem must already serve in-process), opens a raw
// client of the extend service into *raw and the library's channel. False on any failure.
inline bool OpenRawClientAndChannel(qmi_client_type *raw) {
  if (qmi_client_host_select_transport("inproc") != QMI_NO_ERR) {
    return false;
  }
  qmi_service_info info[1];
  unsigned int entries = 1, services = 0;
  if (qmi_client_get_service_list(&tarvik_extend_qmi_idl_service_object_v01, info, &entries,
                                  &services) != QMI_NO_ERR ||
      entries < 1 ||
      qmi_client_init(&info[0], &tarvik_extend_qmi_idl_service_object_v01, nullptr, nullptr,
                      nullptr, raw) != QMI_NO_ERR) {
    return false;
  }
  tarvik_extend_qmi_init();
  return true;
}

// A request buffer of the blacklist commands (tarvik_filter_control_handle_msg): the mode word,
// the data device, the field count and the fields, each text after its 4-byte length.
inline std::vector<uint8_t> BlacklistCommand(uint32_t mode, const std::string &device,
                                             const std::vector<std::string> &fields) {
  std::vector<uint8_t> out;
  auto word = [&out](uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  };
  auto text = [&](const std::string &s) {
    word(static_cast<uint32_t>(s.size()));
    out.insert(out.end(), s.begin(), s.end());
  };
  word(mode);
  text(device);
  word(static_cast<uint32_t>(fields.size()));
  for (const auto &f : fields) text(f);
  return out;
}

}  // namespace tarvik_bench
