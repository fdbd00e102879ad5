// Logging: the macro's prefix forms, the two print masks and their first-use property load, the
// syslog writers and the process name. Each test runs in a process of its own, so the masks and
// caches start unloaded in every case.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"
#include "test_env.h"

using tarvik_test::SyslogContains;
using tarvik_test::SyslogCount;
using tarvik_test::SyslogDump;
using tarvik_test::SyslogLines;

namespace {

// Logs one debug and one error line and returns what reached standard output.
std::string LogBothLevels() {
  testing::internal::CaptureStdout();
  TARVIK_LOGD("debug line %d", 1);
  TARVIK_LOGE("error line %s", "two");
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(LogMacro, PropertyUnsetPrintsBothLevelsToBothOutputs) {
  const int line = __LINE__ + 2;
  testing::internal::CaptureStdout();
  TARVIK_LOGD("value %d", 42);
  fflush(stdout);
  const std::string out = testing::internal::GetCapturedStdout();

  const std::string prefix = "[logging_test.cpp:" + std::to_string(line) + "] TestBody: value 42";
  EXPECT_TRUE(SyslogContains(prefix, LOG_DEBUG)) << SyslogDump();
  EXPECT_EQ(out, "RIL[logging_test.cpp:" + std::to_string(line) + "] TestBody: value 42\n");

  const std::string both = LogBothLevels();
  EXPECT_NE(both.find("debug line 1\n"), std::string::npos);
  EXPECT_NE(both.find("error line two\n"), std::string::npos);
  EXPECT_TRUE(SyslogContains("error line two", LOG_ERR));
  EXPECT_TRUE(SyslogContains("logcat print is started, g_tarvik_logcat_print_mask 0xffff"));
  EXPECT_TRUE(SyslogContains("shell print is started, g_tarvik_shell_print_mask 0xffff"));
}

TEST(LogMacro, LogcatPropertyEightKeepsErrorsOnly) {
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_qz", "8"), 0);
  const std::string out = LogBothLevels();

  EXPECT_FALSE(SyslogContains("debug line 1")) << SyslogDump();
  EXPECT_TRUE(SyslogContains("error line two", LOG_ERR));
  // Standard output has its own mask and property.
  EXPECT_NE(out.find("debug line 1"), std::string::npos);
  EXPECT_TRUE(SyslogContains("merge, old tarvik_hal_set_logcat_print_mask 0xffff, merge_mask 0x8"));
  EXPECT_TRUE(SyslogContains("new tarvik_hal_set_logcat_print_mask 0x8"));
}

TEST(LogMacro, NonNumericShellPropertySilencesStandardOutput) {
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_shell", "verbose"), 0);
  const std::string out = LogBothLevels();

  EXPECT_EQ(out, "");
  EXPECT_TRUE(SyslogContains("shell print is stoped, g_tarvik_shell_print_mask 0x0"));
  EXPECT_TRUE(SyslogContains("debug line 1", LOG_DEBUG));
}

TEST(LogMacro, PrefixFollowsSubscriptionThenInstanceThenProcessName) {
  struct Row {
    uint32_t instance;
    uint32_t sub;
    std::string expected_start;
  };
  const std::string name = tarvik_get_current_pid_name();
  // Load both masks first, so that each row logs exactly one line.
  tarvik_hal_get_logcat_print_flag(0);
  tarvik_hal_get_shell_print_flag(0);
  const Row rows[] = {
      {255, 255, "[logging_test.cpp:"},     {1, 255, "SUB[1][logging_test.cpp:"},
      {0, 255, "SUB[0][logging_test.cpp:"}, {1, 0, "SUB[0][logging_test.cpp:"},
      {5, 1, "SUB[1][logging_test.cpp:"},   {5, 255, "[" + name + "][logging_test.cpp:"},
      {255, 7, "[logging_test.cpp:"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE("instance " + std::to_string(row.instance) + " sub " + std::to_string(row.sub));
    tarvik_set_ril_process_instance_id(row.instance);
    tarvik_test::ClearSyslog();
    TARVIK_LOGD_SUB(row.sub, "marker");
    const auto lines = SyslogLines();
    ASSERT_EQ(lines.size(), 1u) << SyslogDump();
    EXPECT_EQ(lines[0].text.rfind(row.expected_start, 0), 0u) << lines[0].text;
    EXPECT_NE(lines[0].text.find("] TestBody: marker"), std::string::npos) << lines[0].text;
  }
}

TEST(LogMacro, StandardOutputNeverCarriesSubscriptionOrName) {
  tarvik_set_ril_process_instance_id(5);
  testing::internal::CaptureStdout();
  TARVIK_LOGE_SUB(1, "plain");
  fflush(stdout);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("RIL[logging_test.cpp:", 0), 0u) << out;
  EXPECT_EQ(out.find("SUB["), std::string::npos);
}

TEST(PrintMask, FlagTestsAgainstLoadedMask) {
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_qz", "136"), 0);  // 0x88
  EXPECT_TRUE(tarvik_hal_get_logcat_print_flag(0));
  EXPECT_TRUE(tarvik_hal_get_logcat_print_flag(0x80));
  EXPECT_TRUE(tarvik_hal_get_logcat_print_flag(0x88));
  EXPECT_FALSE(tarvik_hal_get_logcat_print_flag(0x01));
  EXPECT_FALSE(tarvik_hal_get_logcat_print_flag(0x81));  // every bit must be set
  EXPECT_EQ(g_tarvik_logcat_print_mask, 0x88u);
  // The property is read once: a later change has no effect.
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_qz", "0"), 0);
  EXPECT_TRUE(tarvik_hal_get_logcat_print_flag(0x80));
  EXPECT_EQ(SyslogCount("logcat print is started"), 1u);
}

TEST(PrintMask, SetterBeforeFirstTestIsStillNarrowedByProperty) {
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_qz", "8"), 0);
  tarvik_hal_set_logcat_print_mask(0x80);
  EXPECT_TRUE(SyslogContains("set, old tarvik_hal_set_logcat_print_mask 0xffff, dst_mask 0x80"));
  EXPECT_FALSE(tarvik_hal_get_logcat_print_flag(0x80));
  EXPECT_EQ(g_tarvik_logcat_print_mask, 0u);
  EXPECT_TRUE(SyslogContains("logcat print is stoped, g_tarvik_logcat_print_mask 0x0"));
}

TEST(PrintMask, SettersChangeMasksAndLogOldAndNew) {
  struct Row {
    void (*fn)(uint32_t);
    uint32_t arg;
    uint32_t *mask;
    uint32_t expected;
    const char *old_line;
    const char *new_line;
  };
  // Each row starts from the mask the previous row left.
  const Row rows[] = {
      {tarvik_hal_merge_logcat_print_mask, 0x0F0F, &g_tarvik_logcat_print_mask, 0x0F0F,
       "merge, old tarvik_hal_set_logcat_print_mask 0xffff, merge_mask 0xf0f",
       "new tarvik_hal_set_logcat_print_mask 0xf0f"},
      {tarvik_hal_add_logcat_print_mask, 0x10, &g_tarvik_logcat_print_mask, 0x0F1F,
       "add, old tarvik_hal_set_logcat_print_mask 0xf0f, add_mask 0x10",
       "new tarvik_hal_set_logcat_print_mask 0xf1f"},
      {tarvik_hal_remove_logcat_print_mask, 0x0F00, &g_tarvik_logcat_print_mask, 0x1F,
       "remove, old g_tarvik_logcat_print_mask 0xf1f, rm_mask 0xf00",
       "new g_tarvik_logcat_print_mask 0x1f"},
      {tarvik_hal_set_shell_print_mask, 0x88, &g_tarvik_shell_print_mask, 0x88,
       "set, old g_tarvik_shell_print_mask 0xffff, dst_mask 0x88",
       "new g_tarvik_shell_print_mask 0x88"},
      {tarvik_hal_add_shell_print_mask, 0x01, &g_tarvik_shell_print_mask, 0x89,
       "add, old g_tarvik_shell_print_mask 0x88, add_mask 0x1",
       "new g_tarvik_shell_print_mask 0x89"},
      {tarvik_hal_remove_shell_print_mask, 0x80, &g_tarvik_shell_print_mask, 0x09,
       "remove, old g_tarvik_shell_print_mask 0x89, rm_mask 0x80",
       "new g_tarvik_shell_print_mask 0x9"},
      {tarvik_hal_merge_shell_print_mask, 0x08, &g_tarvik_shell_print_mask, 0x08,
       "merge, old g_tarvik_shell_print_mask 0x9, merge_mask 0x8",
       "new g_tarvik_shell_print_mask 0x8"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.old_line);
    tarvik_test::ClearSyslog();
    row.fn(row.arg);
    EXPECT_EQ(*row.mask, row.expected);
    const auto lines = SyslogLines();
    ASSERT_EQ(lines.size(), 2u) << SyslogDump();
    EXPECT_EQ(lines[0].text, row.old_line);
    EXPECT_EQ(lines[1].text, row.new_line);
    EXPECT_EQ(lines[0].priority, LOG_DEBUG);
  }
}

TEST(PrintMask, CloseSilencesBothOutputs) {
  tarvik_hal_set_logcat_print_mask(0x1234);
  tarvik_test::ClearSyslog();
  tarvik_hal_close_print();
  EXPECT_EQ(g_tarvik_logcat_print_mask, 0u);
  EXPECT_EQ(g_tarvik_shell_print_mask, 0u);
  const auto lines = SyslogLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].text, "close, g_tarvik_logcat_print_mask 0x1234");
  EXPECT_EQ(lines[1].text, "close, g_tarvik_shell_print_mask 0xffff");

  tarvik_test::ClearSyslog();
  const std::string out = LogBothLevels();
  EXPECT_EQ(out, "");
  EXPECT_FALSE(SyslogContains("debug line")) << SyslogDump();
  EXPECT_FALSE(SyslogContains("error line")) << SyslogDump();
}

TEST(Syslog, InvalidTagIsLoggedAndReplacedByDebug) {
  for (int tag : {9, 8, -1}) {
    SCOPED_TRACE(tag);
    tarvik_test::ClearSyslog();
    tarvik_utils_syslog(tag, "payload %d", tag);
    const auto lines = SyslogLines();
    ASSERT_EQ(lines.size(), 2u) << SyslogDump();
    EXPECT_EQ(lines[0].text, "invalid qz_log_tag, qz_log_tag " + std::to_string(tag));
    EXPECT_EQ(lines[0].priority, LOG_DEBUG);
    EXPECT_EQ(lines[1].text, "payload " + std::to_string(tag));
    EXPECT_EQ(lines[1].priority, LOG_DEBUG);
  }
  tarvik_test::ClearSyslog();
  tarvik_utils_syslog(0, "emergency");
  ASSERT_EQ(SyslogLines().size(), 1u);
  EXPECT_EQ(SyslogLines()[0].priority, LOG_EMERG);
}

TEST(Syslog, FixedPriorityWritersIgnoreMasks) {
  tarvik_hal_close_print();
  tarvik_test::ClearSyslog();
  tarvik_utils_syslog_emerg("p%d", 0);
  tarvik_utils_syslog_alert("p%d", 1);
  tarvik_utils_syslog_crit("p%d", 2);
  tarvik_utils_syslog_err("p%d", 3);
  tarvik_utils_syslog_warning("p%d", 4);
  tarvik_utils_syslog_notice("p%d", 5);
  tarvik_utils_syslog_info("p%d", 6);
  tarvik_utils_syslog_dbg("p%d", 7);
  const auto lines = SyslogLines();
  ASSERT_EQ(lines.size(), 8u);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(lines[i].priority, i);
    EXPECT_EQ(lines[i].text, "p" + std::to_string(i));
  }
}

TEST(Syslog, FormatLogMsgBoundsAndBadArguments) {
  char buf[8];
  memset(buf, 'x', sizeof(buf));
  tarvik_utils_format_log_msg(buf, 0, "%s", "abc");
  EXPECT_EQ(buf[0], 'x');
  tarvik_utils_format_log_msg(buf, -3, "%s", "abc");
  EXPECT_EQ(buf[0], 'x');
  tarvik_utils_format_log_msg(nullptr, 8, "%s", "abc");
  tarvik_utils_format_log_msg(buf, 5, "%d-%s", 12, "3456");
  EXPECT_STREQ(buf, "12-3");
  EXPECT_EQ(buf[5], 'x');
}

TEST(ProcessIdentity, SubscriptionIdsAndInstance) {
  EXPECT_TRUE(tarvik_check_sub_id(0));
  EXPECT_TRUE(tarvik_check_sub_id(1));
  EXPECT_FALSE(tarvik_check_sub_id(2));
  EXPECT_FALSE(tarvik_check_sub_id(255));
  EXPECT_FALSE(tarvik_check_sub_id(0xFFFFFFFFu));
  EXPECT_EQ(tarvik_get_ril_process_instance_id(), 255u);
  tarvik_set_ril_process_instance_id(1);
  EXPECT_EQ(tarvik_get_ril_process_instance_id(), 1u);
  EXPECT_EQ(g_tarvik_ril_process_instance_id, 1u);
}

TEST(ProcessIdentity, NameIsBasenameOfFirstCommandLineWord) {
  EXPECT_STREQ(tarvik_get_current_pid_name(), "tests_logging");
  EXPECT_TRUE(SyslogContains("tarvik_get_current_pid_name, g_pid_info.p_name = tests_logging"));
  // Read once: the second call returns the cache without touching /proc.
  tarvik_test::ClearSyslog();
  EXPECT_EQ(tarvik_get_current_pid_name(), g_pid_info.p_name);
  EXPECT_TRUE(SyslogLines().empty());
}

// Runs in a child started by the test below, with a first command-line word without a slash.
TEST(ProcessIdentity, ChildReportsItsName) {
  const char *out = getenv("TARVIK_LOGGING_CHILD_OUT");
  if (out == nullptr) {
    GTEST_SKIP() << "only runs as the child of NameWithoutSlashIsTakenWhole";
  }
  std::ofstream(out) << tarvik_get_current_pid_name() << "\n"
                     << (SyslogContains("proc_pid_buf should be name", LOG_ERR) ? "err" : "none");
}

TEST(ProcessIdentity, NameWithoutSlashIsTakenWhole) {
  const std::string out = tarvik_test::ScratchDir() + "/child.txt";
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    setenv("TARVIK_LOGGING_CHILD_OUT", out.c_str(), 1);
    char arg0[] = "plainchildname";
    char filter[] = "--gtest_filter=ProcessIdentity.ChildReportsItsName";
    char *argv[] = {arg0, filter, nullptr};
    execv("/proc/self/exe", argv);
    _exit(127);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  std::ifstream in(out);
  std::string name, err;
  in >> name >> err;
  EXPECT_EQ(name, "plainchildname");
  EXPECT_EQ(err, "err");
}

}  // namespace
