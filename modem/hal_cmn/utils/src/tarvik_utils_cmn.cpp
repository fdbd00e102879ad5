/*
 * Utility layer shared by the radio modules: logging and print masks, process identity,
 * properties, build classification, device identity, strings, files, threads, process look-up.
 */
#include "tarvik_utils_cmn.h"

#include <cutils/properties.h>
#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

/* ---------------------------------------------------------------------------------------------
 * Logging, print masks and process identity
 * ------------------------------------------------------------------------------------------- */

uint32_t g_tarvik_logcat_print_mask = 0xFFFF;
uint32_t g_tarvik_shell_print_mask = 0xFFFF;
uint32_t g_tarvik_ril_process_instance_id = TARVIK_SUB_NONE;
tarvik_pid_info_t g_pid_info;

namespace {

bool g_logcat_mask_loaded = false;
bool g_shell_mask_loaded = false;
bool g_cmdline_name_loaded = false;

void syslog_at(int priority, const char *fmt, va_list ap) {
  const int saved_errno = errno;
  vsyslog(priority, fmt, ap);
  errno = saved_errno;
}

/* Writes the "old" line, applies the new value and writes the "new" line. The formats are the
 * fixed texts of the mask setters below. */
void change_mask(uint32_t *mask, uint32_t value, const char *old_fmt, uint32_t arg,
                 const char *new_fmt) {
  tarvik_utils_syslog_dbg(old_fmt, *mask, arg);
  *mask = value;
  tarvik_utils_syslog_dbg(new_fmt, *mask);
}

/* First-use load of a print mask: the property can only take bits away from the mask. */
void load_mask_once(bool *loaded, uint32_t *mask, const char *property, const char *merge_fmt,
                    const char *new_fmt, const char *started_fmt, const char *stopped_fmt) {
  if (*loaded) {
    return;
  }
  *loaded = true;
  char value[256];
  memset(value, 0, sizeof(value));
  property_get(property, value, "65535");
  const uint32_t merge = static_cast<uint32_t>(atoi(value));
  change_mask(mask, *mask & merge, merge_fmt, merge, new_fmt);
  tarvik_utils_syslog_dbg(*mask != 0 ? started_fmt : stopped_fmt, *mask);
}

#define LOGCAT_NEW "new tarvik_hal_set_logcat_print_mask 0x%x"
#define SHELL_NEW "new g_tarvik_shell_print_mask 0x%x"

}  // namespace

bool tarvik_hal_get_logcat_print_flag(uint32_t mask) {
  load_mask_once(&g_logcat_mask_loaded, &g_tarvik_logcat_print_mask,
                 "persist.vendor.radio.adb_log_qz",
                 "merge, old tarvik_hal_set_logcat_print_mask 0x%x, merge_mask 0x%x", LOGCAT_NEW,
                 "logcat print is started, g_tarvik_logcat_print_mask 0x%x",
                 "logcat print is stoped, g_tarvik_logcat_print_mask 0x%x");
  return (mask & ~g_tarvik_logcat_print_mask) == 0;
}

void tarvik_hal_merge_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, g_tarvik_logcat_print_mask & m,
              "merge, old tarvik_hal_set_logcat_print_mask 0x%x, merge_mask 0x%x", m, LOGCAT_NEW);
}

void tarvik_hal_add_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, g_tarvik_logcat_print_mask | m,
              "add, old tarvik_hal_set_logcat_print_mask 0x%x, add_mask 0x%x", m, LOGCAT_NEW);
}

void tarvik_hal_remove_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, g_tarvik_logcat_print_mask & ~m,
              "remove, old g_tarvik_logcat_print_mask 0x%x, rm_mask 0x%x", m,
              "new g_tarvik_logcat_print_mask 0x%x");
}

void tarvik_hal_set_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, m,
              "set, old tarvik_hal_set_logcat_print_mask 0x%x, dst_mask 0x%x", m, LOGCAT_NEW);
}

void tarvik_utils_close_logcat_print(void) {
  tarvik_utils_syslog_dbg("close, g_tarvik_logcat_print_mask 0x%x", g_tarvik_logcat_print_mask);
  g_tarvik_logcat_print_mask = 0;
}

bool tarvik_hal_get_shell_print_flag(uint32_t mask) {
  load_mask_once(&g_shell_mask_loaded, &g_tarvik_shell_print_mask,
                 "persist.vendor.radio.adb_log_shell",
                 "merge, old g_tarvik_shell_print_mask 0x%x, merge_mask 0x%x", SHELL_NEW,
                 "shell print is started, g_tarvik_shell_print_mask 0x%x",
                 "shell print is stoped, g_tarvik_shell_print_mask 0x%x");
  return (mask & ~g_tarvik_shell_print_mask) == 0;
}

void tarvik_hal_merge_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, g_tarvik_shell_print_mask & m,
              "merge, old g_tarvik_shell_print_mask 0x%x, merge_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_add_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, g_tarvik_shell_print_mask | m,
              "add, old g_tarvik_shell_print_mask 0x%x, add_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_remove_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, g_tarvik_shell_print_mask & ~m,
              "remove, old g_tarvik_shell_print_mask 0x%x, rm_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_set_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, m,
              "set, old g_tarvik_shell_print_mask 0x%x, dst_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_close_shell_print(void) {
  tarvik_utils_syslog_dbg("close, g_tarvik_shell_print_mask 0x%x", g_tarvik_shell_print_mask);
  g_tarvik_shell_print_mask = 0;
}

void tarvik_hal_close_print(void) {
  tarvik_utils_close_logcat_print();
  tarvik_hal_close_shell_print();
}

void tarvik_utils_syslog(int tag, const char *fmt, ...) {
  if (static_cast<unsigned>(tag) > LOG_DEBUG) {
    tarvik_utils_syslog_dbg("invalid qz_log_tag, qz_log_tag %d", tag);
    tag = LOG_DEBUG;
  }
  va_list ap;
  va_start(ap, fmt);
  syslog_at(tag, fmt, ap);
  va_end(ap);
}

#define TARVIK_DEFINE_SYSLOG_WRITER(name, priority) \
  void name(const char *fmt, ...) {                 \
    va_list ap;                                     \
    va_start(ap, fmt);                              \
    syslog_at(priority, fmt, ap);                   \
    va_end(ap);                                     \
  }

TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_emerg, LOG_EMERG)
TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_alert, LOG_ALERT)
TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_crit, LOG_CRIT)
TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_err, LOG_ERR)
TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_warning, LOG_WARNING)
TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_notice, LOG_NOTICE)
TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_info, LOG_INFO)
TARVIK_DEFINE_SYSLOG_WRITER(tarvik_utils_syslog_dbg, LOG_DEBUG)

void tarvik_utils_format_log_msg(char *buf, int size, const char *fmt, ...) {
  if (buf == nullptr || size < 1) {
    return;
  }
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, static_cast<size_t>(size), fmt, ap);
  va_end(ap);
}

bool tarvik_check_sub_id(uint32_t id) {
  return id < 2;
}

uint32_t tarvik_get_ril_process_instance_id(void) {
  return g_tarvik_ril_process_instance_id;
}

void tarvik_set_ril_process_instance_id(uint32_t id) {
  g_tarvik_ril_process_instance_id = id;
}

const char *tarvik_get_current_pid_name(void) {
  if (g_cmdline_name_loaded) {
    return g_pid_info.p_name;
  }
  g_cmdline_name_loaded = true;

  char path[256];
  snprintf(path, sizeof(path), "/proc/%d/cmdline", static_cast<int>(getpid()));
  FILE *file = fopen(path, "r");
  if (file == nullptr) {
    tarvik_utils_syslog_err("fopen fail");
    return g_pid_info.p_name;
  }

  char cmdline[256];
  memset(cmdline, 0, sizeof(cmdline));
  if (fgets(cmdline, 254, file) == nullptr) {
    tarvik_utils_syslog_err("tarvik_get_current_pid_name, fgets fail");
    fclose(file);
    return g_pid_info.p_name;
  }
  cmdline[255] = '\0';
  tarvik_utils_syslog_dbg("tarvik_get_current_pid_name, proc_pid_buf = %s", cmdline);

  /* The words of a command line are NUL-separated: the string is the first word. */
  const char *slash = nullptr;
  for (size_t i = strlen(cmdline) + 1; i-- > 0;) {
    if (cmdline[i] == '/') {
      slash = &cmdline[i];
      break;
    }
  }
  if (slash != nullptr) {
    strncpy(g_pid_info.p_name, slash + 1, sizeof(g_pid_info.p_name) - 1);
    tarvik_utils_syslog_dbg("tarvik_get_current_pid_name, str_pid_name: %s", slash);
  } else {
    tarvik_utils_syslog_err("tarvik_get_current_pid_name, proc_pid_buf should be name");
    strncpy(g_pid_info.p_name, cmdline, sizeof(g_pid_info.p_name) - 1);
    tarvik_utils_syslog_dbg("tarvik_get_current_pid_name, str_pid_name: %s", cmdline);
  }
  g_pid_info.p_name[sizeof(g_pid_info.p_name) - 1] = '\0';
  tarvik_utils_syslog_dbg("tarvik_get_current_pid_name, g_pid_info.p_name = %s", g_pid_info.p_name);
  fclose(file);
  return g_pid_info.p_name;
}
