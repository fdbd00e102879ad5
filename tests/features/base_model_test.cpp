// Base model requests on their own messages, and the modem's indications 0x12 and 0x14.
#include <string.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "extend/extend_service.h"
#include "features_env.h"
#include "syslog_capture.h"
#include "tarvik_base_model.h"
#include "tarvik_extend_api.h"
#include "tarvik_extend_qmi_v01.h"

namespace features_test {
namespace {

using BaseModelTest = FeatureTest;

TEST_F(BaseModelTest, ConfigurationAndSwitchesReachTheModem) {
  std::vector<uint32_t> cfg(101);
  for (uint32_t i = 0; i < cfg.size(); ++i) cfg[i] = i * 3;
  EXPECT_EQ(tarvik_base_model_set_modem_cfg(cfg.data(), 101), 2u);
  EXPECT_EQ(tarvik_base_model_set_modem_cfg(cfg.data(), 0), 2u);
  EXPECT_EQ(tarvik_base_model_set_modem_cfg(nullptr, 5), 1u);
  EXPECT_TRUE(modem_->ReceivedBy(modemsim::extend::kServiceId).empty());
  ASSERT_EQ(tarvik_base_model_set_modem_cfg(cfg.data(), 100), 0u);
  EXPECT_EQ(fm_->BaseModel().cfg, std::vector<uint32_t>(cfg.begin(), cfg.begin() + 100));

  ASSERT_EQ(tarvik_base_model_set_modem_model_detection_switch(1), 0u);
  ASSERT_EQ(tarvik_base_model_set_modem_event_ind_switch(0x14, 1), 0u);
  EXPECT_EQ(fm_->BaseModel().detection, 1);
  EXPECT_EQ(fm_->BaseModel().events.count(0x14), 1u);
  EXPECT_EQ(tarvik_base_model_set_modem_event_ind_switch(99, 1), 1u) << "the modem's own code";
}

// Each query asks for a capacity: one word short is refused with 4 and nothing copied; with it,
// the answer is copied and counted (the reason is the concatenation of its lists).
TEST_F(BaseModelTest, QueriesAndTheirCapacity) {
  modemsim::features::DetectReason(*modem_, {{{100, 200}, {7}, {0xF0, 0x0F, 1}, {}}}, {1, 2, 3, 4});
  modemsim::features::DetectScene(*modem_, 0x30, 0x1);
  std::array<uint32_t, 17> dds;
  for (uint32_t i = 0; i < 17; ++i) dds[i] = 1000 + i;
  fm_->SetDdsInfo(dds);
  const struct {
    const char *name;
    uint32_t (*query)(uint32_t *, uint32_t *);
    uint32_t need;  // the capacity asked for
    std::vector<uint32_t> answer;
  } rows[] = {
      {"reason", tarvik_base_model_get_modem_reason, 29, {100, 200, 7, 0xF0, 0x0F, 1}},
      {"scene", tarvik_base_model_get_modem_scene, 3, {0x30, 0x1}},
      {"dds", tarvik_base_model_get_dds_assistant_info, 18, {dds.begin(), dds.end()}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<uint32_t> out(40, 0xEEEE);
    uint32_t len = row.need - 1;
    EXPECT_EQ(row.query(out.data(), &len), 4u);
    EXPECT_EQ(out[0], 0xEEEEu);
    len = row.need;
    ASSERT_EQ(row.query(out.data(), &len), 0u);
    EXPECT_EQ(std::vector<uint32_t>(out.begin(), out.begin() + len), row.answer);
  }
  uint32_t len = 29;
  EXPECT_EQ(tarvik_base_model_get_modem_reason(nullptr, &len), 3u);
  EXPECT_TRUE(tarvik_test::SyslogContains("tarvik_base_model_get_modem_reason: data_rsp is null"));
  EXPECT_TRUE(tarvik_test::SyslogContains("rsp.arfcn[0] = 100"));
  EXPECT_TRUE(tarvik_test::SyslogContains("rsp.pci[0] = 7"));
}

// A count the list cannot hold ends the call; the lists before it stay written and counted.
TEST_F(BaseModelTest, ReasonWithAnOverlongCount) {
  modemsim::extend::SetMessageHandler(
      *modem_, TARVIK_EXTEND_QMI_BASE_MODEL_GET_REASON_MSG_V01, [](modemsim::Call &call) {
        auto &rsp = call.Response<tarvik_extend_qmi_base_model_get_reason_resp_msg_v01>();
        rsp.arfcn_len = 2;
        rsp.arfcn[0] = 11;
        rsp.arfcn[1] = 12;
        rsp.pci_len = 7;
      });
  uint32_t out[40];
  uint32_t len = 40;
  // The codec refuses a count of 7 on the wire (at most 6): the modem cannot encode its answer
  // and fails the request with QMI_ERR_INTERNAL in its result field, which the call returns.
  EXPECT_EQ(tarvik_base_model_get_modem_reason(out, &len), 3u);
  EXPECT_EQ(len, 40u);
}

TEST_F(BaseModelTest, FailedExchangeReadsAsEmptySuccess) {
  ASSERT_EQ(modem_->SetPresent(modemsim::extend::kServiceId, false), 0);
  tarvik_extend_qmi_init_force();
  uint32_t out[20] = {9, 9};
  uint32_t len = 3;
  EXPECT_EQ(tarvik_base_model_get_modem_scene(out, &len), 0u);
  EXPECT_EQ(len, 2u);
  EXPECT_EQ(out[0], 0u);
  EXPECT_EQ(tarvik_base_model_set_modem_model_detection_switch(1), 0u);
}

std::mutex g_mu;
std::vector<std::pair<int, std::vector<uint32_t>>> g_inds;
void OnInd(int id, void *data, int len) {
  std::lock_guard<std::mutex> lock(g_mu);
  const auto *p = static_cast<const uint32_t *>(data);
  g_inds.push_back({id, std::vector<uint32_t>(p, p + len / 4)});
}
size_t IndCount() {
  std::lock_guard<std::mutex> lock(g_mu);
  return g_inds.size();
}

// Indications come only when detection and the event are both on, and reach the callback.
TEST_F(BaseModelTest, IndicationsFollowTheSwitches) {
  ASSERT_TRUE(tarvik_extend_qmi_base_model_register(OnInd));
  ASSERT_EQ(tarvik_base_model_set_modem_event_ind_switch(0x14, 1), 0u);
  EXPECT_EQ(modemsim::features::DetectScene(*modem_, 5, 6), 0) << "detection is off";
  ASSERT_EQ(tarvik_base_model_set_modem_model_detection_switch(1), 0u);
  EXPECT_EQ(modemsim::features::DetectReason(*modem_, {}, {1, 2, 3, 4}), 0) << "event 0x12 is off";
  ASSERT_EQ(tarvik_base_model_set_modem_event_ind_switch(0x12, 1), 0u);
  EXPECT_EQ(modemsim::features::DetectScene(*modem_, 5, 6), 1);
  EXPECT_EQ(modemsim::features::DetectReason(*modem_, {}, {1, 2, 3, 4}), 1);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  while (IndCount() < 2 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::lock_guard<std::mutex> lock(g_mu);
  ASSERT_EQ(g_inds.size(), 2u);
  EXPECT_EQ(g_inds[0].first, 20);
  EXPECT_EQ(g_inds[0].second, (std::vector<uint32_t>{0, 5, 6}));
  EXPECT_EQ(g_inds[1].first, 18);
  EXPECT_EQ(g_inds[1].second, (std::vector<uint32_t>{1, 2, 3, 4}));
}

}  // namespace
}  // namespace features_test
