// Shared set-up of the modem feature tests: the standard simulated modem served in-process,
// its feature state, and helpers to read the generic requests it received. Includes the
// headers every feature test uses.
#pragma once

#include <stdint.h>
#include <string.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cutils/properties.h"
#include "extend/extend_service.h"
#include "features/base_model.h"
#include "features/cdc.h"
#include "features/commands.h"
#include "features/identity.h"
#include "features/mcfg.h"
#include "features/notify.h"
#include "features/nvefs.h"
#include "features/restart.h"
#include "features/settings.h"
#include "gtest/gtest.h"
#include "modemsim/modem.h"
#include "qmi_client.h"
#include "syslog_capture.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_cmn.h"
#include "tarvik_extend_nvefs.h"
#include "tarvik_extend_qmi_v01.h"
#include "test_env.h"

namespace features_test {

// The common requests' refusal of a bad argument, as a table row expects it.
constexpr long long kBad = TARVIK_CMN_ERR_INVALID_ARG;

// Payload of one generic request as the modem received it.
struct Sent {
  uint32_t request_id;
  std::vector<uint8_t> data;

  template <typename T>
  T As() const {
    T record;
    memset(&record, 0, sizeof(record));
    memcpy(&record, data.data(), std::min(sizeof(record), data.size()));
    return record;
  }
};

class FeatureTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // (Re)starts the modem, keeping its state in `state_dir` ("" keeps it in memory).
  void StartModem(const std::string &state_dir);

  // Generic requests received since the last ClearSent, optionally of one request id.
  std::vector<Sent> SentRequests(int request_id = -1) const;
  void ClearSent();
  // The one generic request of `request_id` received since the last ClearSent, as a T; a test
  // that expected one and got none or several fails (and gets a zeroed record).
  template <typename T>
  T Only(int request_id) const {
    const std::vector<Sent> sent = SentRequests(request_id);
    EXPECT_EQ(sent.size(), 1u) << "requests of id " << request_id;
    return sent.size() == 1 ? sent[0].As<T>() : T{};
  }

  // The next `count` generic requests fail in transport with `error` (a QMI_* client error).
  void FailTransport(int error, int count);
  // Rewrites the payload of the modem's answers to `request_id` with `fn` (request, answer).
  void Tamper(uint32_t request_id,
              std::function<void(const uint8_t *req, std::vector<uint8_t> *answer)> fn);
  // Every answer to `request_id` is made `keep` bytes long (cut, or padded with zeros), then its
  // 4-byte field at `at` reads `value` (when the answer holds it): a refusal, or a lying length.
  void TamperField(uint32_t request_id, size_t at, int32_t value, size_t keep = SIZE_MAX);

  // Runs `fn` on another thread and reports whether it finished within `ms`. A call that
  // does not finish (a lock left held) is abandoned with its thread.
  static bool FinishesWithin(std::function<void()> fn, int ms);

  // A row's call made after one generic request has been set to time out in transport.
  std::function<long long()> TimedOut(std::function<long long()> call);
  // A table of calls: what each returns and whether it sent one request. Each row starts from
  // a cleared record, after `reset` (if given) has restored the buffers the rows share; after
  // each row, `probe` (if given) must finish, so no row may leave a lock held.
  struct CallRow {
    const char *name;
    std::function<long long()> call;
    long long expected;
    bool sent;
  };
  void ExpectCalls(const std::vector<CallRow> &rows, const std::function<void()> &reset = {},
                   const std::function<void()> &probe = {});

  std::unique_ptr<modemsim::Modem> modem_;
  // The feature modules' state in the modem.
  modemsim::features::Identity *identity_ = nullptr;
  modemsim::features::Mcfg *mcfg_ = nullptr;
  modemsim::features::Notify *notify_ = nullptr;
  modemsim::features::RestartControl *restart_ = nullptr;
  modemsim::features::Settings *settings_ = nullptr;
  modemsim::features::Cdc *cdc_ = nullptr;
  modemsim::features::NvEfs *nvefs_ = nullptr;
  modemsim::features::BaseModel *base_model_ = nullptr;
};

// What `call` returned and printed on standard output.
struct Printed {
  long long result;
  std::string out;
  bool Shows(const std::string &text) const { return out.find(text) != std::string::npos; }
};
Printed StdoutOf(const std::function<long long()> &call);

// The `i`th 32-bit word of a payload.
uint32_t Word(const uint8_t *payload, size_t i);

// Bytes 0, 1, 2, ... of a file of `n` bytes, varied enough to catch misplaced chunks.
std::vector<uint8_t> Pattern(size_t n, uint32_t seed = 1);

}  // namespace features_test
