// Restart level, restart counts, and the restart and crash orders as the modem receives them.

#include <map>

#include "features_env.h"
#include "tarvik_utils_cmn.h"
#include "tarvik_utils_cust.h"
#include "wait_until.h"

namespace features_test {
namespace {

using RestartTest = FeatureTest;
using namespace std::chrono_literals;

constexpr const char *kLevel = "persist.vendor.ssr.restart_level";
constexpr const char *kBak = "persist.vendor.ssr.type_bak";
constexpr const char *kBakFlag = "persist.vendor.ssr.type_bak_flag";
constexpr const char *kWait = "persist.radio.ssr_wait_s";

std::string Prop(const char *name) {
  char value[PROPERTY_VALUE_MAX] = {};
  property_get(name, value, "");
  return value;
}

int Count(uint32_t value) {
  char name[64];
  snprintf(name, sizeof(name), "persist.radio.ssr_count_0x%08x", value);
  return tarvik_get_property_value_from_int(name, nullptr, 0);
}

// Typed messages 31 / 99 the modem received: their flags, in order.
std::vector<std::pair<uint32_t, uint32_t>> Orders(const std::vector<Sent> &sent) {
  std::vector<std::pair<uint32_t, uint32_t>> out;
  for (const Sent &s : sent) {
    const auto req = s.As<tarvik_cmn_req_t>();
    const uint32_t t = Word(req.payload, 0);
    if (req.cmd == COMMON_CMD_MSG && (t == COMMON_MSG_MODEM_SSR || t == COMMON_MSG_MODEM_CRASH)) {
      EXPECT_EQ(Word(req.payload, 1), 4u);
      out.push_back({t, Word(req.payload, 2)});
    }
  }
  return out;
}

// Which values a restart flag counts under; counting alone sends nothing. A restart order
// counts before it is sent, so a failed one still counts.
TEST_F(RestartTest, CountingRule) {
  const struct {
    const char *name;
    uint32_t flag;
    std::map<uint32_t, int> counts;  // every value that must count, with its count
  } rows[] = {
      {"bits 0 and 2", 0x5, {{0x1, 1}, {0x4, 1}}},
      {"bit 9 is not counted", 0x200, {}},
      {"bit 31 counts the whole value", 0x80000003u, {{0x80000003u, 1}}},
      {"bits 8, 16 and 19, twice", 0x00090100, {{0x100, 2}, {0x10000, 2}, {0x80000, 2}}},
  };
  std::map<uint32_t, int> total;  // counts add up over the rows
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const int times = row.flag == 0x00090100 ? 2 : 1;
    for (int i = 0; i < times; ++i) tarvik_save_modem_ssr_count(static_cast<int>(row.flag));
    for (const auto &c : row.counts) total[c.first] += c.second;
    for (uint32_t bit = 0; bit < 32; ++bit) {
      EXPECT_EQ(Count(1u << bit), total.count(1u << bit) ? total[1u << bit] : 0) << "bit " << bit;
    }
    for (const auto &c : total) EXPECT_EQ(Count(c.first), c.second);
    EXPECT_TRUE(SentRequests().empty());
  }
  FailTransport(QMI_TIMEOUT_ERR, 1);
  tarvik_modem_ssr(0x80000001u);
  EXPECT_EQ(Count(0x80000001u), 1);
  EXPECT_EQ(Orders(SentRequests()).size(), 1u);
  EXPECT_TRUE(tarvik_test::SyslogContains("result = -103, rsp.result = 0"));
  EXPECT_TRUE(restart_->Orders().empty()) << "the modem never carried it out";
}

// The counts' property names are built in one buffer: two threads counting at once must still
// land every increment under its own name.
TEST_F(RestartTest, CountingFromTwoThreads) {
  constexpr int kTimes = 40;
  std::thread a([] {
    for (int i = 0; i < kTimes; ++i) tarvik_update_modem_ssr_count(0x1);
  });
  for (int i = 0; i < kTimes; ++i) tarvik_update_modem_ssr_count(0x10000);
  a.join();
  EXPECT_EQ(Count(0x1), kTimes);
  EXPECT_EQ(Count(0x10000), kTimes);
}

// The level, its backup and the backup's flag after each step; a change before any read backs
// up the value it writes.
TEST_F(RestartTest, RestartLevelStateMachine) {
  auto get = [] { return tarvik_get_modem_ssr_type(); };
  auto set = [](uint32_t t) { return [t] { return tarvik_set_modem_ssr_type(t); }; };
  auto forget = [] {
    for (const char *p : {kBak, kBakFlag}) property_set(p, "");
    return 0u;
  };
  property_set(kLevel, "RELATED");
  const struct {
    const char *name;
    std::function<uint32_t()> call;
    uint32_t expected;
    const char *level, *bak, *flag;  // the three properties after the step
  } steps[] = {
      {"type 0 without backup writes nothing", set(0), 0, "RELATED", "", ""},
      {"first read takes the backup", get, 0, "RELATED", "RELATED", "yes"},
      {"second read", get, 0, "RELATED", "RELATED", "yes"},
      {"to subsystem restart", set(1), 1, "ALL_ENABLE", "RELATED", "yes"},
      {"reads 1", get, 1, "ALL_ENABLE", "RELATED", "yes"},
      {"again: nothing", set(1), 0, "ALL_ENABLE", "RELATED", "yes"},
      {"unknown type", set(5), 0, "ALL_ENABLE", "RELATED", "yes"},
      {"to dump", set(2), 1, "ALL_DISABLE", "RELATED", "yes"},
      {"reads 2", get, 2, "ALL_DISABLE", "RELATED", "yes"},
      {"back to the default", set(0), 1, "RELATED", "RELATED", "yes"},
      {"default again: nothing", set(0), 0, "RELATED", "RELATED", "yes"},
      {"backup forgotten", forget, 0, "RELATED", "", ""},
      {"first change backs up the new level", set(2), 1, "ALL_DISABLE", "ALL_DISABLE", "yes"},
      {"the level equals its backup", get, 0, "ALL_DISABLE", "ALL_DISABLE", "yes"},
  };
  for (const auto &step : steps) {
    SCOPED_TRACE(step.name);
    EXPECT_EQ(step.call(), step.expected);
    EXPECT_EQ(Prop(kLevel), step.level);
    EXPECT_EQ(Prop(kBak), step.bak);
    EXPECT_EQ(Prop(kBakFlag), step.flag);
  }
  // Reading a level: the backup is compared first, so "ALL_ENABLE" equal to it is type 0.
  struct Read {
    const char *level, *bak;
    uint32_t type;
  } reads[] = {{"ALL_ENABLE", "ALL_ENABLE", 0}, {"", "RELATED", 2}, {"odd", "RELATED", 3}};
  for (const Read &r : reads) {
    SCOPED_TRACE(r.level);
    property_set(kLevel, r.level);
    property_set(kBak, r.bak);
    EXPECT_EQ(tarvik_get_modem_ssr_type(), r.type);
  }
}

TEST_F(RestartTest, LevelName) {
  const struct {
    const char *level;
    uint32_t capacity;
    const char *name;  // nullptr: nothing written
    uint32_t len;
  } rows[] = {{"", 8, "CONFIG_", 7},
              {"", 13, "CONFIG_EMPTY", 12},
              {"ALL_ENABLE", 11, "ALL_ENABLE", 10},
              {"ALL_ENABLE", 10, "ALL_ENABL", 9},
              {"ALL_ENABLE", 1, nullptr, 1},
              {"ALL_ENABLE", 0, nullptr, 0}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.level) + " in " + std::to_string(row.capacity));
    property_set(kLevel, row.level);
    char name[16];
    memset(name, '#', sizeof(name));
    uint32_t len = row.capacity;
    tarvik_get_modem_ssr_type_name(name, &len);
    EXPECT_EQ(len, row.len);
    if (row.name != nullptr) {
      EXPECT_STREQ(name, row.name);
    } else {
      EXPECT_EQ(name[0], '#');
    }
  }
  uint32_t len = 8;
  tarvik_get_modem_ssr_type_name(nullptr, &len);
  tarvik_get_modem_ssr_type_name(reinterpret_cast<char *>(&len), nullptr);
  EXPECT_EQ(len, 8u);
}

TEST_F(RestartTest, WaitsTakeTheArgumentOrTheProperty) {
  const struct {
    const char *name, *prop;
    uint32_t (*wait)(int);
    int arg, expected;
  } rows[] = {{"argument 0", "3", tarvik_modem_ssr_wait_s, 0, 0},
              {"property 0", "0", tarvik_modem_ssr_wait_s, -1, 0},
              {"property -1", "-1", tarvik_modem_ssr_wait_s, -1, -1},
              {"modem wait property", "-4", tarvik_modem_wait_s, -2, -4}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    property_set(kWait, row.prop);
    property_set("persist.radio.modem_wait_s", row.prop);
    EXPECT_EQ(static_cast<int>(row.wait(row.arg)), row.expected);
  }
  EXPECT_FALSE(tarvik_test::SyslogContains("wait-start"));
}

// The one test that sleeps the real default.
TEST_F(RestartTest, DefaultRestartWaitIsFiveSeconds) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(tarvik_modem_ssr_wait_s(-1), 5u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 5s);
  EXPECT_TRUE(tarvik_test::SyslogContains("wait-end(5s)"));
}

TEST_F(RestartTest, CrashSequences) {
  const struct {
    const char *name;
    void (*crash)(uint32_t);
    const char *level_before;
    const char *wait;             // persist.radio.ssr_wait_s
    const char *wait_after_send;  // set while the modem handles the crash (nullptr: unchanged)
    bool sent;
    const char *level_at_send, *level_after;
  } rows[] = {
      {"already at subsystem restart: no wait, no restore",
       tarvik_modem_crash_without_orange_screen, "ALL_ENABLE", "-1", nullptr, true, "ALL_ENABLE",
       "ALL_ENABLE"},
      {"level changed, restored after the second wait", tarvik_modem_crash_without_orange_screen,
       "ALL_DISABLE", "0", nullptr, true, "ALL_ENABLE", "ALL_DISABLE"},
      {"negative first wait: nothing sent", tarvik_modem_crash_without_orange_screen, "ALL_DISABLE",
       "-1", nullptr, false, nullptr, "ALL_ENABLE"},
      {"negative second wait keeps the level", tarvik_modem_crash_without_orange_screen,
       "ALL_DISABLE", "0", "-1", true, "ALL_ENABLE", "ALL_ENABLE"},
      {"dump, negative wait: nothing sent", tarvik_modem_crash_with_orange_screen, "ALL_ENABLE",
       "-1", nullptr, false, nullptr, "ALL_DISABLE"},
      {"dump: level kept", tarvik_modem_crash_with_orange_screen, "ALL_ENABLE", "0", nullptr, true,
       "ALL_DISABLE", "ALL_DISABLE"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_NO_FATAL_FAILURE(StartModem(""));
    restart_->SetRestartDownMs(0);
    for (const char *p : {kLevel, kBak, kBakFlag}) property_set(p, "");
    property_set(kLevel, row.level_before);
    property_set(kWait, row.wait);
    std::string level_at_send = "(not sent)";
    Tamper(REQUEST_ID_COMMON, [&](const uint8_t *, std::vector<uint8_t> *) {
      level_at_send = Prop(kLevel);
      if (row.wait_after_send != nullptr) property_set(kWait, row.wait_after_send);
    });
    tarvik_test::ClearSyslog();
    row.crash(0x4);
    const auto orders = Orders(SentRequests());
    ASSERT_EQ(orders.size(), row.sent ? 1u : 0u);
    if (row.sent) {
      EXPECT_EQ(orders[0].first, COMMON_MSG_MODEM_CRASH);
      EXPECT_EQ(orders[0].second, 0x4u);
      EXPECT_EQ(level_at_send, row.level_at_send);
    }
    EXPECT_EQ(Count(0x4), row.sent ? 1 : 0);
    EXPECT_EQ(Prop(kLevel), row.level_after);
    EXPECT_EQ(tarvik_test::SyslogContains("wait_s < 0, ssr is stoped", 3),
              !row.sent || row.wait_after_send != nullptr);
    property_set("persist.radio.ssr_count_0x00000004", "");
  }
}

TEST_F(RestartTest, LegacyMask) {
  const char file[] = "/oem/cmn/legacy_hook_update_mask";
  const struct {
    const char *prop;
    bool file;
    int mask;
    bool read;
  } rows[] = {{"3", true, 3, false},
              {"0", true, 0x11, true},
              {"-1", true, 0x11, true},
              {"0", false, 0, true}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.prop) + (row.file ? " with file" : " without file"));
    tarvik_efs_delete(0, file, sizeof(file) - 1);
    const int32_t stored = 0x11;
    if (row.file) {
      ASSERT_EQ(tarvik_efs_write(0, file, sizeof(file) - 1, &stored, 4), 0);
    }
    property_set("persist.radio.legacy_hook_update_mask", row.prop);
    ClearSent();
    EXPECT_EQ(tarvik_get_legacy_hook_update_mask(), row.mask);
    EXPECT_EQ(SentRequests(REQUEST_ID_NVEFS).empty(), !row.read);
  }
}

// A restart order restarts the modem: every service goes down and comes back, and the vendor
// channel's next request reconnects and succeeds.
TEST_F(RestartTest, RestartOrderRestartsTheModem) {
  property_set(kWait, "0");
  restart_->SetRestartDownMs(200);
  ASSERT_EQ(tarvik_modem_chipset_id_get(), 0x209u);
  const auto before = modem_->Clients(modemsim::extend::kServiceId);
  ASSERT_EQ(before.size(), 1u);
  tarvik_modem_ssr(0x4);
  const auto orders = Orders(SentRequests());
  ASSERT_EQ(orders.size(), 1u);
  EXPECT_EQ(orders[0], std::make_pair(COMMON_MSG_MODEM_SSR, 0x4u));
  EXPECT_TRUE(tarvik_test::SyslogContains("result = 0, rsp.result = 0"));
  // A service reads as down a moment before its clients are dropped: wait for both.
  bool went_down = false;
  EXPECT_TRUE(tarvik_test::WaitUntil(
      [&] {
        for (const auto &s : modem_->Status()) went_down |= !s.up;
        return went_down && modem_->Clients(modemsim::extend::kServiceId).empty();
      },
      1000ms, 5ms))
      << "went down: " << went_down << "; the old client should have died";
  std::this_thread::sleep_for(400ms);
  EXPECT_EQ(tarvik_modem_chipset_id_get(), 0x209u) << "the channel reconnected";
  const auto after = modem_->Clients(modemsim::extend::kServiceId);
  ASSERT_EQ(after.size(), 1u);
  EXPECT_NE(after[0], before[0]);
  ASSERT_EQ(restart_->Orders().size(), 1u);
  EXPECT_EQ(restart_->Orders()[0].flag, 0x4u);
}

// The same over the socket transport: tarvik-modemd restarts and the channel survives.
TEST(RestartDaemonTest, RestartOrderOverTheSocket) {
  tarvik_test::ModemDaemon daemon;
  ASSERT_TRUE(daemon.up());
  ASSERT_EQ(qmi_client_host_select_transport(("unix:" + daemon.socket()).c_str()), QMI_NO_ERR);
  property_set(kWait, "0");
  ASSERT_NE(tarvik_modem_chipset_id_get(), 0u);
  tarvik_modem_ssr(0x80000010u);
  EXPECT_TRUE(tarvik_test::SyslogContains("result = 0, rsp.result = 0"));
  std::this_thread::sleep_for(700ms);
  EXPECT_NE(tarvik_modem_chipset_id_get(), 0u) << "the channel reconnected";
  const auto status = tarvik_test::RunTool(daemon.modem() + " --json sim status");
  EXPECT_EQ(status.status, 0) << status.err;
  EXPECT_NE(status.out.find("{\"order\":\"restart\",\"flag\":2147483664}"), std::string::npos)
      << status.out;
  EXPECT_EQ(Count(0x80000010u), 1);
}

}  // namespace
}  // namespace features_test
