// How a test's simulated modem reaches the library. By default through the in-process transport;
// with TARVIK_TEST_TRANSPORT=qmux the modem serves QMUX on a pseudo-terminal and the library opens
// it through its "qmux:" transport, as it would a modem's /dev/cdc-wdm device; with
// TARVIK_TEST_TRANSPORT=qmi-proxy the library reaches that device through libqmi's qmi-proxy
// ("qmi-proxy:" transport), as it would a modem ModemManager holds. ctest runs the
// standard-service suites all three ways.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "modemsim/modem.h"
#include "modemsim/qmux_server.h"

namespace tarvik_test {

// True when this run reaches the modem over QMUX (directly or through the proxy).
bool OverQmux();
// True when this run reaches the QMUX device through libqmi's qmi-proxy.
bool OverQmiProxy();

// Leaves a test out of the QMUX run, saying why: a QMUX device has no way to fail a request in
// transport (it answers, stays silent or revokes a client id), and cannot name a service above
// 0xFF (the extend service, the sensor client).
#define TARVIK_SKIP_OVER_QMUX(why) \
  if (tarvik_test::OverQmux()) GTEST_SKIP() << "not over QMUX: " << (why)

// Leaves (the rest of) a test out of the run through qmi-proxy, saying why: libqmi's proxy does
// not pass the control service's indications on, so a client id revoked by a service restart
// is not seen through it.
#define TARVIK_SKIP_OVER_QMI_PROXY(why) \
  if (tarvik_test::OverQmiProxy()) GTEST_SKIP() << "not through qmi-proxy: " << (why)

// Serves `modem` to the library as this run asks. Returns the QMUX device (null in-process, or
// after a failure, which is reported to the test); the caller drops it before the modem.
std::unique_ptr<modemsim::QmuxServer> Serve(modemsim::Modem &modem);

}  // namespace tarvik_test
