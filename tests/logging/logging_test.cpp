// Logging: the macro's prefix forms, the two print masks and their first-use property load, the
// syslog writers and the process name. Each test runs in a process of its own, so the masks and
// caches start unloaded in every case.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "syslog_capture.h"
#include "tarvik_utils_cmn.h"
#include "test_env.h"

using tarvik_test::SyslogContains;
using tarvik_test::SyslogCount;
using tarvik_test::SyslogDump;
using tarvik_test::SyslogLines;

namespace {

// The lines logged since the last clear, each as "<priority> <text>\n".
std::string Logged() {
  std::string all;
  for (const auto &line : SyslogLines()) {
    all += std::to_string(line.priority) + " " + line.text + "\n";
  }
  return all;
}

std::string Where(int line, const char *func) {
  return "[logging_test.cpp:" + std::to_string(line) + "] " + func + ": ";
}

// Logs one debug and one error line, and checks which output each reached (exactly once).
void ExpectBothLevels(bool debug_to_syslog, bool error_to_syslog, bool to_stdout) {
  testing::internal::CaptureStdout();
  const int line = __LINE__ + 1;
  TARVIK_LOGD("debug line %d", 1);
  TARVIK_LOGE("error line %s", "two");
  fflush(stdout);
  const std::string debug = Where(line, __func__) + "debug line 1";
  const std::string error = Where(line + 1, __func__) + "error line two";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            to_stdout ? "RIL" + debug + "\nRIL" + error + "\n" : "");
  EXPECT_EQ(SyslogContains(debug, LOG_DEBUG), debug_to_syslog) << SyslogDump();
  EXPECT_EQ(SyslogContains(error, LOG_ERR), error_to_syslog) << SyslogDump();
  EXPECT_EQ(SyslogCount(" line "), size_t{debug_to_syslog} + error_to_syslog) << SyslogDump();
}

TEST(LogMacro, PropertyUnsetPrintsBothLevelsToBothOutputs) {
  ExpectBothLevels(true, true, true);
  EXPECT_TRUE(SyslogContains("logcat print is started, g_tarvik_logcat_print_mask 0xffff"));
  EXPECT_TRUE(SyslogContains("shell print is started, g_tarvik_shell_print_mask 0xffff"));
}

TEST(LogMacro, LogcatPropertyEightKeepsErrorsOnlyThereAndIsReadOnce) {
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_qz", "8"), 0);
  ExpectBothLevels(false, true, true);  // standard output has its own mask and property
  EXPECT_TRUE(SyslogContains("merge, old tarvik_hal_set_logcat_print_mask 0xffff, merge_mask 0x8"));
  EXPECT_TRUE(SyslogContains("new tarvik_hal_set_logcat_print_mask 0x8"));
  EXPECT_EQ(g_tarvik_logcat_print_mask, 0x8u);
  // A later change of the property has no effect; a flag needs every bit of its mask.
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_qz", "255"), 0);
  for (const auto &[bits, set] : std::vector<std::pair<uint32_t, bool>>{
           {0, true}, {0x08, true}, {0x80, false}, {0x88, false}, {0x01, false}}) {
    SCOPED_TRACE(bits);
    EXPECT_EQ(tarvik_hal_get_logcat_print_flag(bits), set);
  }
  EXPECT_EQ(SyslogCount("merge, old tarvik_hal_set_logcat_print_mask"), 1u);
}

TEST(LogMacro, NonNumericShellPropertySilencesStandardOutput) {
  ASSERT_EQ(property_set("persist.vendor.radio.adb_log_shell", "verbose"), 0);
  ExpectBothLevels(true, true, false);
  EXPECT_TRUE(SyslogContains("shell print is stoped, g_tarvik_shell_print_mask 0x0"));
}

TEST(LogMacro, PrefixFollowsSubscriptionThenInstanceThenProcessName) {
  const std::string named = std::string("[") + tarvik_get_current_pid_name() + "]";
  const struct {
    uint32_t instance;
    uint32_t sub;
    std::string prefix;
  } rows[] = {{255, 255, ""},   {1, 255, "SUB[1]"}, {0, 255, "SUB[0]"}, {1, 0, "SUB[0]"},
              {5, 1, "SUB[1]"}, {255, 7, ""},       {5, 255, named}};
  // Load both masks first, so that each row logs exactly one line.
  tarvik_hal_get_logcat_print_flag(0);
  tarvik_hal_get_shell_print_flag(0);
  for (const auto &row : rows) {
    SCOPED_TRACE("instance " + std::to_string(row.instance) + " sub " + std::to_string(row.sub));
    tarvik_set_ril_process_instance_id(row.instance);
    tarvik_test::ClearSyslog();
    testing::internal::CaptureStdout();
    const int line = __LINE__ + 1;
    TARVIK_LOGD_SUB(row.sub, "marker");
    fflush(stdout);
    // Standard output never carries the subscription or the name.
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "RIL" + Where(line, "TestBody") + "marker\n");
    EXPECT_EQ(Logged(), "7 " + row.prefix + Where(line, "TestBody") + "marker\n");
  }
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
    EXPECT_EQ(Logged(), std::string("7 ") + row.old_line + "\n7 " + row.new_line + "\n");
  }
}

TEST(PrintMask, CloseSilencesBothOutputs) {
  tarvik_hal_set_logcat_print_mask(0x1234);
  tarvik_test::ClearSyslog();
  tarvik_hal_close_print();
  EXPECT_EQ(g_tarvik_logcat_print_mask, 0u);
  EXPECT_EQ(g_tarvik_shell_print_mask, 0u);
  EXPECT_EQ(
      Logged(),
      "7 close, g_tarvik_logcat_print_mask 0x1234\n7 close, g_tarvik_shell_print_mask 0xffff\n");
  ExpectBothLevels(false, false, false);
}

TEST(Syslog, WritersUseTheirPriorityWhatEverTheMasks) {
  tarvik_hal_close_print();
  // An invalid tag is logged and replaced by debug.
  for (int tag : {9, 8, -1}) {
    SCOPED_TRACE(tag);
    tarvik_test::ClearSyslog();
    tarvik_utils_syslog(tag, "payload %d", tag);
    const std::string n = std::to_string(tag);
    EXPECT_EQ(Logged(), "7 invalid qz_log_tag, qz_log_tag " + n + "\n7 payload " + n + "\n");
  }
  using Writer = void (*)(const char *, ...);
  const Writer fixed[] = {tarvik_utils_syslog_emerg,   tarvik_utils_syslog_alert,
                          tarvik_utils_syslog_crit,    tarvik_utils_syslog_err,
                          tarvik_utils_syslog_warning, tarvik_utils_syslog_notice,
                          tarvik_utils_syslog_info,    tarvik_utils_syslog_dbg};
  tarvik_test::ClearSyslog();
  tarvik_utils_syslog(0, "tag 0");
  std::string expected = "0 tag 0\n";
  for (int i = 0; i < 8; ++i) {
    fixed[i]("p%d", i);
    expected += std::to_string(i) + " p" + std::to_string(i) + "\n";
  }
  EXPECT_EQ(Logged(), expected);
}

TEST(Syslog, FormatLogMsgBoundsAndBadArguments) {
  char buf[8];
  memset(buf, 'x', sizeof(buf));
  tarvik_utils_format_log_msg(buf, 0, "%s", "abc");
  tarvik_utils_format_log_msg(buf, -3, "%s", "abc");
  EXPECT_EQ(buf[0], 'x');
  tarvik_utils_format_log_msg(nullptr, 8, "%s", "abc");
  tarvik_utils_format_log_msg(buf, 5, "%d-%s", 12, "3456");
  EXPECT_STREQ(buf, "12-3");
  EXPECT_EQ(buf[5], 'x');
}

TEST(ProcessIdentity, SubscriptionIdsInstanceAndName) {
  for (uint32_t sub : {0u, 1u, 2u, 255u, 0xFFFFFFFFu}) {
    EXPECT_EQ(tarvik_check_sub_id(sub), sub < 2) << sub;
  }
  EXPECT_EQ(tarvik_get_ril_process_instance_id(), 255u);
  tarvik_set_ril_process_instance_id(1);
  EXPECT_EQ(tarvik_get_ril_process_instance_id(), 1u);
  EXPECT_EQ(g_tarvik_ril_process_instance_id, 1u);

  // The name is the basename of the first command-line word, read once.
  EXPECT_STREQ(tarvik_get_current_pid_name(), "tests_logging");
  EXPECT_TRUE(SyslogContains("tarvik_get_current_pid_name, g_pid_info.p_name = tests_logging"));
  tarvik_test::ClearSyslog();
  EXPECT_EQ(tarvik_get_current_pid_name(), g_pid_info.p_name);
  EXPECT_TRUE(SyslogLines().empty()) << "the second call must not read /proc again";
}

// Runs in a child started by the test below, with a first command-line word without a slash;
// exits with 42 when its checks pass.
TEST(ProcessIdentity, ChildTakesNameWithoutSlashWhole) {
  if (getenv("TARVIK_LOGGING_CHILD") == nullptr) GTEST_SKIP() << "runs as a child only";
  EXPECT_STREQ(tarvik_get_current_pid_name(), "plainchildname");
  EXPECT_TRUE(SyslogContains("proc_pid_buf should be name", LOG_ERR)) << SyslogDump();
  if (!HasFailure()) _exit(42);
}

TEST(ProcessIdentity, NameWithoutSlashIsTakenWhole) {
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    setenv("TARVIK_LOGGING_CHILD", "1", 1);
    const char *filter = "--gtest_filter=ProcessIdentity.ChildTakesNameWithoutSlashWhole";
    // Under an emulator (qemu-user) this program is started through it again, with the first
    // word given by its -0 option.
    std::vector<std::string> words = tarvik_test::Emulator();
    std::string program = "/proc/self/exe";
    if (words.empty()) {
      words = {"plainchildname", filter};
    } else {
      char self[4096] = {};
      if (readlink("/proc/self/exe", self, sizeof(self) - 1) <= 0) _exit(126);
      program = words[0];
      words.insert(words.end(), {"-0", "plainchildname", self, filter});
    }
    std::vector<char *> argv;
    for (std::string &word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 42) << status;
}

}  // namespace
