// The request step and client slots of the standard-service clients, against the echo service
// of the simulated modem.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "../../modem/hal/qmi/src/tarvik_std_client.h"
#include "modemsim/echo_service.h"
#include "modemsim/modem.h"
#include "qcril_alloc_host.h"
#include "wait_until.h"

namespace {

namespace echo = modemsim::echo;
using modemsim::Fault;
using tarvik_std::Missing;

qmi_idl_service_object_type EchoByVersion(uint32_t major, uint32_t minor, uint32_t library) {
  return major == 1 && minor == 2 && library == 6 ? echo::ServiceObject() : nullptr;
}

std::atomic<int> g_errors{0};
void CountError(qmi_client_type, qmi_client_error_type error, void *) {
  if (error == QMI_SERVICE_ERR) ++g_errors;
}

bool AllZero(const void *p, size_t n) {
  const auto *bytes = static_cast<const uint8_t *>(p);
  return std::all_of(bytes, bytes + n, [](uint8_t b) { return b == 0; });
}

const tarvik_std::ClientSlot kEcho = {EchoByVersion, 1, 2, 6, 200, nullptr, CountError};

class StdClient : public ::testing::Test {
 protected:
  void SetUp() override {
    echo::AddTo(modem_);
    modem_.ServeInProcess();
  }
  modemsim::Modem modem_;
};

TEST_F(StdClient, RecordsComeFromTheAllocatorZeroedAndAlwaysGoBack) {
  struct Row {
    uint32_t fail_nth;
    Missing missing;
    uint64_t calls;  // allocations tried
  };
  const Row rows[] = {
      {0, Missing::kNone, 2}, {1, Missing::kRequest, 1}, {2, Missing::kResponse, 2}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.fail_nth);
    const uint64_t before = qcril_alloc_host_calls();
    qcril_alloc_host_fail_nth(row.fail_nth);
    {
      tarvik_std::Request<echo::EchoReq, echo::EchoResp> request("tarvik_test_op", 7);
      EXPECT_EQ(request.missing(), row.missing);
      if (row.missing == Missing::kNone) {
        // The allocator hands out patterned blocks: zero bytes here are the step's doing.
        EXPECT_TRUE(AllZero(&request.req(), sizeof(echo::EchoReq)));
        EXPECT_TRUE(AllZero(&request.resp(), sizeof(echo::EchoResp)));
      }
    }
    qcril_alloc_host_fail_nth(0);
    EXPECT_EQ(qcril_alloc_host_calls() - before, row.calls);
    EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
  }
  // A message without a request record allocates only its response.
  const uint64_t before = qcril_alloc_host_calls();
  { tarvik_std::Request<tarvik_std::NoRecord, echo::NotifyResp> request("tarvik_test_op", 9); }
  EXPECT_EQ(qcril_alloc_host_calls() - before, 1u);
  EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
}

TEST_F(StdClient, OpenAsksForTheVersionAndWaitsForTheServiceThenSendsAndHearsARestart) {
  qmi_client_type client = reinterpret_cast<qmi_client_type>(1);
  tarvik_std::ClientSlot other_version = kEcho;
  other_version.minor = 3;
  EXPECT_EQ(tarvik_std::Open(other_version, &client).init, QMI_INTERNAL_ERR);
  EXPECT_EQ(client, nullptr);

  ASSERT_EQ(modem_.SetPresent(echo::kServiceId, false), QMI_NO_ERR);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(tarvik_std::Open(kEcho, &client).init, QMI_TIMEOUT_ERR);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
  EXPECT_EQ(client, nullptr);
  ASSERT_EQ(modem_.SetPresent(echo::kServiceId, true), QMI_NO_ERR);

  const tarvik_std::OpenResult opened = tarvik_std::Open(kEcho, &client);
  EXPECT_EQ(opened.init, QMI_NO_ERR);
  EXPECT_EQ(opened.register_cb, QMI_NO_ERR);
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(modem_.Clients(echo::kServiceId).size(), 1u);
  // Sending reports the transport's and the modem's verdicts apart.
  const Fault transport_error{Fault::kTransportError, QMI_CLIENT_TRANSPORT_ERR, 0, 1};
  const struct {
    const char *name;
    Fault fault;  // a zero delay answers normally
    int transport;
    bool succeeded;
  } rows[] = {{"answered", {Fault::kDelay, 0, 0, 1}, QMI_NO_ERR, true},
              {"modem refuses", {Fault::kResult, 0x30, 0, 1}, QMI_NO_ERR, false},
              {"transport error", transport_error, QMI_CLIENT_TRANSPORT_ERR, false}};
  uint32_t value = 100;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    modem_.ClearReceived(echo::kServiceId);
    modem_.SetFault(echo::kServiceId, echo::kEcho, row.fault);
    tarvik_std::Request<echo::EchoReq, echo::EchoResp> request("tarvik_test_op", 1);
    ASSERT_EQ(request.missing(), Missing::kNone);
    request.req().value = ++value;
    const int rc = request.Send(client, echo::kEcho, 1000);
    EXPECT_EQ(rc, row.transport);
    EXPECT_EQ(request.Succeeded(rc), row.succeeded);
    if (row.succeeded) {
      EXPECT_EQ(request.resp().value, value);
    }
    const auto received = modem_.ReceivedBy(echo::kServiceId);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].As<echo::EchoReq>().value, value);
  }
  ASSERT_EQ(modem_.Restart(echo::kServiceId), QMI_NO_ERR);
  tarvik_test::WaitUntil([] { return g_errors != 0; }, std::chrono::seconds(3));
  EXPECT_EQ(g_errors, 1);
  EXPECT_EQ(tarvik_std::Close(&client), QMI_NO_ERR);
  EXPECT_EQ(client, nullptr);
  EXPECT_EQ(qcril_alloc_host_outstanding(), 0);
  EXPECT_EQ(tarvik_std::Close(&client), QMI_NO_ERR);  // nothing left to release
}

}  // namespace
