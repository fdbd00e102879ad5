// Drives the blacklist request parser with arbitrary request buffers, passed with their true
// length (the length words inside may claim anything), into the in-process simulated modem's
// data filter service. A malformed buffer must give -1 and status 500; any other outcome is one
// of the command's result codes, also in the status word.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "data_filter_service_v01.h"
#include "fuzz_check.h"
#include "modemsim/modem.h"
#include "qmi_client_host.h"
#include "quiet_library.h"
#include "tarvik_filter_control.h"
#include "tarvik_utils_cmn.h"

namespace {

std::unique_ptr<modemsim::Modem> g_modem;

using tarvik_testing::Check;

bool SetUp() {
  tarvik_testing::SilenceLibraryLogging();
  g_modem = modemsim::CreateStandardModem("");
  g_modem->ServeInProcess();
  return qmi_client_host_select_transport("inproc") == QMI_NO_ERR;
}

bool IsResult(int ret) {
  switch (ret) {
    case 0:
    case 6:
    case 500:
    case 501:
    case 502:
    case 503:
    case 504:
    case 505:
      return true;
    default:
      return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool ready = SetUp();
  Check(ready);
  if (size > UINT32_MAX) return 0;
  g_modem->ClearReceived(DFS_V01_SERVICE_ID);
  // A copy of exactly `size` bytes: any read past it is an overrun the sanitizer sees.
  std::unique_ptr<uint8_t[]> buf(new uint8_t[size > 0 ? size : 1]);
  if (size > 0) memcpy(buf.get(), data, size);
  uint32_t status = 12345;
  const int ret =
      tarvik_filter_control_handle_msg(size > 0 ? buf.get() : nullptr, (uint32_t)size, &status);
  if (ret == -1) {
    Check(status == 500);
  } else {
    Check(IsResult(ret) && status == (uint32_t)ret);
  }
  return 0;
}
