// One RF SAR state read over the qmux transport (the library's client, QMUX on a pseudo-terminal,
// the simulated modem's device), against a raw write/read ping-pong of the same frame sizes on a
// pseudo-terminal: what the transport, the framing and the modem add to the terminal's own cost.
// The same read through libqmi's qmi-proxy (started when none runs) in front of that device,
// against the read over qmux: what the proxy's hop adds. Ratios printed at the end: BM_QmuxSarGet /
// BM_RawPtyPingPong, BM_QmiProxySarGet / BM_QmuxSarGet (no targets: measured for scale).
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

#include "bench_modem.h"
#include "bench_ratio.h"
#include "modemsim/modem.h"
#include "modemsim/qmux_server.h"
#include "qmi_client_host.h"
#include "tarvik_extend_cmn.h"

namespace {

// A SAR get request frame (no TLVs) and its response (result and state TLVs).
constexpr size_t kRequestBytes = 13;
constexpr size_t kResponseBytes = 27;

bool ReadFully(int fd, uint8_t *buf, size_t n) {
  size_t done = 0;
  while (done < n) {
    const ssize_t got = read(fd, buf + done, n - done);
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

void BM_RawPtyPingPong(benchmark::State &state) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  const char *name =
      master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0 ? ptsname(master) : nullptr;
  const int slave = name != nullptr ? open(name, O_RDWR | O_NOCTTY) : -1;
  termios tio;
  if (slave < 0 || tcgetattr(slave, &tio) != 0) {
    state.SkipWithError("no pseudo-terminal");
    if (master >= 0) close(master);
    return;
  }
  cfmakeraw(&tio);
  tcsetattr(slave, TCSANOW, &tio);
  std::thread peer([&] {
    uint8_t buf[kResponseBytes] = {1};
    while (ReadFully(master, buf, kRequestBytes)) {
      if (write(master, buf, kResponseBytes) != static_cast<ssize_t>(kResponseBytes)) return;
    }
  });
  uint8_t request[kRequestBytes] = {1};
  uint8_t reply[kResponseBytes];
  for (auto _ : state) {
    if (write(slave, request, sizeof(request)) != static_cast<ssize_t>(sizeof(request)) ||
        !ReadFully(slave, reply, sizeof(reply))) {
      state.SkipWithError("ping-pong failed");
      break;
    }
  }
  close(slave);  // the peer's read ends with a hang-up
  peer.join();
  close(master);
}
BENCHMARK(BM_RawPtyPingPong)->UseRealTime();

// `transport`: "qmux:" or "qmi-proxy:", followed by the device's path.
void SarGet(benchmark::State &state, const std::string &transport) {
  tarvik_bench::SilenceLibraryLogging();
  auto modem = modemsim::CreateStandardModem("");
  modemsim::QmuxServer server(*modem);
  char dir[] = "/tmp/bench_qmux_XXXXXX";
  if (mkdtemp(dir) == nullptr) {
    state.SkipWithError("no scratch directory");
    return;
  }
  const std::string link = std::string(dir) + "/qmi";
  if (!server.Start(link) ||
      qmi_client_host_select_transport((transport + link).c_str()) != QMI_NO_ERR ||
      tarvik_set_sar_dsi(3) != 0) {
    state.SkipWithError(("no SAR over " + transport).c_str());
  } else {
    for (auto _ : state) {
      if (tarvik_get_sar_dsi() != 3) {
        state.SkipWithError("SAR get failed");
        break;
      }
    }
  }
  tarvik_release_qmi_client_rf_sar();
  qmi_client_host_select_transport("inproc");
  server.Stop();
  rmdir(dir);
}
void BM_QmuxSarGet(benchmark::State &state) {
  SarGet(state, "qmux:");
}
BENCHMARK(BM_QmuxSarGet)->UseRealTime();

void BM_QmiProxySarGet(benchmark::State &state) {
  SarGet(state, "qmi-proxy:");
}
BENCHMARK(BM_QmiProxySarGet)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
  return tarvik_bench::RunWithRatios(argc, argv, [](const tarvik_bench::RatioReporter &reporter) {
    reporter.PrintRatio("BM_QmuxSarGet", "BM_RawPtyPingPong", 0);
    reporter.PrintRatio("BM_QmiProxySarGet", "BM_QmuxSarGet", 0);
  });
}
