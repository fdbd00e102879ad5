#include "features_env.h"

#include <future>

#include "qmi_client_host.h"

namespace features_test {

void FeatureTest::SetUp() {
  StartModem("");
}

void FeatureTest::TearDown() {
  modem_.reset();
}

void FeatureTest::StartModem(const std::string &state_dir) {
  modem_.reset();
  modem_ = modemsim::CreateStandardModem(state_dir);
  ASSERT_NE(modem_, nullptr);
  modem_->ServeInProcess();
  ASSERT_EQ(qmi_client_host_select_transport("inproc"), QMI_NO_ERR);
  // A channel left open on an earlier modem is reopened on this one before the test talks.
  tarvik_extend_qmi_init_force();
  namespace f = modemsim::features;
  identity_ = f::IdentityOf(*modem_);
  mcfg_ = f::McfgOf(*modem_);
  notify_ = f::NotifyOf(*modem_);
  restart_ = f::RestartOf(*modem_);
  settings_ = f::SettingsOf(*modem_);
  cdc_ = f::CdcOf(*modem_);
  nvefs_ = f::NvEfsOf(*modem_);
  base_model_ = f::BaseModelOf(*modem_);
  ASSERT_TRUE(identity_ && mcfg_ && notify_ && restart_ && settings_ && cdc_ && nvefs_ &&
              base_model_);
  // Whole-store operations answer at once unless a test asks otherwise.
  nvefs_->SetStoreDelays(0, 0, 0);
}

std::vector<Sent> FeatureTest::SentRequests(int request_id) const {
  std::vector<Sent> out;
  for (const auto &r : modem_->ReceivedBy(modemsim::extend::kServiceId)) {
    if (r.msg_id != TARVIK_EXTEND_QMI_GENERIC_MSG_V01 || r.decode_status != 0) {
      continue;
    }
    const auto &req = r.As<tarvik_extend_qmi_req_msg_v01>();
    if (request_id >= 0 && req.id != static_cast<uint32_t>(request_id)) {
      continue;
    }
    const uint32_t n = req.data_valid ? std::min<uint32_t>(req.data_len, sizeof(req.data)) : 0;
    out.push_back({req.id, std::vector<uint8_t>(req.data, req.data + n)});
  }
  return out;
}

void FeatureTest::ExpectCalls(const std::vector<CallRow> &rows, const std::function<void()> &reset,
                              const std::function<void()> &probe) {
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    if (reset) {
      reset();
    }
    ClearSent();
    EXPECT_EQ(row.call(), row.expected);
    EXPECT_EQ(SentRequests().size(), row.sent ? 1u : 0u);
    if (probe) {
      EXPECT_TRUE(FinishesWithin(probe, 5000)) << "lock left held";
    }
  }
}

std::function<long long()> FeatureTest::TimedOut(std::function<long long()> call) {
  return [this, call] {
    FailTransport(QMI_TIMEOUT_ERR, 1);
    return call();
  };
}

void FeatureTest::ClearSent() {
  modem_->ClearReceived(modemsim::extend::kServiceId);
}

void FeatureTest::FailTransport(int error, int count) {
  modemsim::Fault fault;
  fault.kind = modemsim::Fault::kTransportError;
  fault.error = error;
  fault.count = count;
  modem_->SetFault(modemsim::extend::kServiceId, TARVIK_EXTEND_QMI_GENERIC_MSG_V01, fault);
}

void FeatureTest::Tamper(uint32_t request_id,
                         std::function<void(const uint8_t *, std::vector<uint8_t> *)> fn) {
  modemsim::extend::SetTamper(*modem_, [request_id, fn](uint32_t id, const uint8_t *req, uint32_t,
                                                        std::vector<uint8_t> *answer) {
    if (id == request_id) {
      fn(req, answer);
    }
  });
}

void FeatureTest::TamperField(uint32_t request_id, size_t at, int32_t value, size_t keep) {
  Tamper(request_id, [at, value, keep](const uint8_t *, std::vector<uint8_t> *answer) {
    if (keep != SIZE_MAX) {
      answer->resize(keep);
    }
    if (answer->size() >= at + sizeof(value)) {
      memcpy(answer->data() + at, &value, sizeof(value));
    }
  });
}

bool FeatureTest::FinishesWithin(std::function<void()> fn, int ms) {
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  std::thread([done, fn] {
    fn();
    done->set_value();
  }).detach();
  return finished.wait_for(std::chrono::milliseconds(ms)) == std::future_status::ready;
}

Printed StdoutOf(const std::function<long long()> &call) {
  ::testing::internal::CaptureStdout();
  const long long result = call();
  return {result, ::testing::internal::GetCapturedStdout()};
}

uint32_t Word(const uint8_t *payload, size_t i) {
  return qmi_host::wire::GetU32(payload + i * sizeof(uint32_t));
}

std::vector<uint8_t> Pattern(size_t n, uint32_t seed) {
  std::vector<uint8_t> out(n);
  uint32_t x = seed * 2654435761u + 1;
  for (size_t i = 0; i < n; ++i) {
    x = x * 1103515245u + 12345u;
    out[i] = static_cast<uint8_t>(x >> 16);
  }
  return out;
}

}  // namespace features_test
