/*
 * Utility layer of libtarvik_qmi shared by the other radio modules of the process: logging and
 * print masks, process identity, system properties, build classification, device identity,
 * strings, files, threads and process look-up.
 */
#ifndef TARVIK_UTILS_CMN_H
#define TARVIK_UTILS_CMN_H

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include "tarvik_common.h"

/* ---------------------------------------------------------------------------------------------
 * Logging, print masks and process identity
 * ------------------------------------------------------------------------------------------- */

/* Levels: a print-mask bit and the syslog priority it is written at. */
#define TARVIK_LOG_MASK_DEBUG 0x80u
#define TARVIK_LOG_PRIO_DEBUG 7
#define TARVIK_LOG_MASK_ERROR 0x08u
#define TARVIK_LOG_PRIO_ERROR 3

/* Pid record: `p_name` is NUL-terminated, at most 255 characters. */
typedef struct {
  int32_t p_id;
  char p_name[256];
} tarvik_pid_info_t;

#ifdef __cplusplus
extern "C" {
#endif

/* Bits of the levels that go to the system log / standard output. Both start at 0xFFFF and are
 * narrowed once, on the first flag test, by "persist.vendor.radio.adb_log_qz" /
 * "persist.vendor.radio.adb_log_shell". Unlocked. */
TARVIK_EXPORT extern uint32_t g_tarvik_logcat_print_mask;
TARVIK_EXPORT extern uint32_t g_tarvik_shell_print_mask;

/* Instance id of the radio process: 0 or 1, 255 until the process sets it. */
TARVIK_EXPORT extern uint32_t g_tarvik_ril_process_instance_id;

/* The current process's pid and name; the look-up functions write their names here too. */
TARVIK_EXPORT extern tarvik_pid_info_t g_pid_info;

/* True when every bit of `mask` is set in the logcat mask (0 is always true). The first call
 * loads the property into the mask. */
TARVIK_EXPORT bool tarvik_hal_get_logcat_print_flag(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_merge_logcat_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_add_logcat_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_remove_logcat_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_set_logcat_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_utils_close_logcat_print(void);

/* The same for standard output. */
TARVIK_EXPORT bool tarvik_hal_get_shell_print_flag(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_merge_shell_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_add_shell_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_remove_shell_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_set_shell_print_mask(uint32_t mask);
TARVIK_EXPORT void tarvik_hal_close_shell_print(void);
TARVIK_EXPORT void tarvik_hal_close_print(void);

/* One system-log line at priority `tag` (0..7; anything else, negative included, is logged as
 * invalid and written at 7). None of the writers consults a mask. */
TARVIK_EXPORT void tarvik_utils_syslog(int tag, const char *fmt, ...) TARVIK_PRINTF(2, 3);
TARVIK_EXPORT void tarvik_utils_syslog_emerg(const char *fmt, ...) TARVIK_PRINTF(1, 2);
TARVIK_EXPORT void tarvik_utils_syslog_alert(const char *fmt, ...) TARVIK_PRINTF(1, 2);
TARVIK_EXPORT void tarvik_utils_syslog_crit(const char *fmt, ...) TARVIK_PRINTF(1, 2);
TARVIK_EXPORT void tarvik_utils_syslog_err(const char *fmt, ...) TARVIK_PRINTF(1, 2);
TARVIK_EXPORT void tarvik_utils_syslog_warning(const char *fmt, ...) TARVIK_PRINTF(1, 2);
TARVIK_EXPORT void tarvik_utils_syslog_notice(const char *fmt, ...) TARVIK_PRINTF(1, 2);
TARVIK_EXPORT void tarvik_utils_syslog_info(const char *fmt, ...) TARVIK_PRINTF(1, 2);
TARVIK_EXPORT void tarvik_utils_syslog_dbg(const char *fmt, ...) TARVIK_PRINTF(1, 2);

/* vsnprintf into buf; does nothing when buf is NULL or size < 1. */
TARVIK_EXPORT void tarvik_utils_format_log_msg(char *buf, int size, const char *fmt, ...)
    TARVIK_PRINTF(3, 4);

/* True for the two subscriptions, 0 and 1. */
TARVIK_EXPORT bool tarvik_check_sub_id(uint32_t id);
TARVIK_EXPORT uint32_t tarvik_get_ril_process_instance_id(void);
TARVIK_EXPORT void tarvik_set_ril_process_instance_id(uint32_t id);

/* Basename of the process's first command-line word, read once and kept in g_pid_info.p_name
 * (left empty for the life of the process if that first read fails). */
TARVIK_EXPORT const char *tarvik_get_current_pid_name(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

/*
 * The log macro: one system-log line (prefixed with the subscription, the instance id or the
 * process name when they apply) if the level passes the logcat mask, and independently one
 * standard-output line if it passes the shell mask. `fmt` must be a string literal; the
 * arguments may be evaluated twice, so they must have no side effects.
 */
#define TARVIK_LOG(level_mask, level_prio, sub, fmt, ...)                                        \
  do {                                                                                           \
    if (tarvik_hal_get_logcat_print_flag(level_mask)) {                                          \
      const uint32_t tarvik_log_sub_ = (uint32_t)(sub);                                          \
      const uint32_t tarvik_log_inst_ = tarvik_get_ril_process_instance_id();                    \
      if (tarvik_check_sub_id(tarvik_log_sub_)) {                                                \
        tarvik_utils_syslog((level_prio), "SUB[%d][%s:%d] %s: " fmt, (int)tarvik_log_sub_,       \
                            __FILE_NAME__, __LINE__, __func__, ##__VA_ARGS__);                   \
      } else if (tarvik_check_sub_id(tarvik_log_inst_)) {                                        \
        tarvik_utils_syslog((level_prio), "SUB[%d][%s:%d] %s: " fmt, (int)tarvik_log_inst_,      \
                            __FILE_NAME__, __LINE__, __func__, ##__VA_ARGS__);                   \
      } else if (tarvik_log_inst_ != TARVIK_SUB_NONE) {                                          \
        tarvik_utils_syslog((level_prio), "[%s][%s:%d] %s: " fmt, tarvik_get_current_pid_name(), \
                            __FILE_NAME__, __LINE__, __func__, ##__VA_ARGS__);                   \
      } else {                                                                                   \
        tarvik_utils_syslog((level_prio), "[%s:%d] %s: " fmt, __FILE_NAME__, __LINE__, __func__, \
                            ##__VA_ARGS__);                                                      \
      }                                                                                          \
    }                                                                                            \
    if (tarvik_hal_get_shell_print_flag(level_mask)) {                                           \
      printf("RIL[%s:%d] %s: " fmt "\n", __FILE_NAME__, __LINE__, __func__, ##__VA_ARGS__);      \
    }                                                                                            \
  } while (0)

/* The two levels in use, for subscription `sub` (255: none). */
#define TARVIK_LOGD_SUB(sub, fmt, ...) \
  TARVIK_LOG(TARVIK_LOG_MASK_DEBUG, TARVIK_LOG_PRIO_DEBUG, sub, fmt, ##__VA_ARGS__)
#define TARVIK_LOGE_SUB(sub, fmt, ...) \
  TARVIK_LOG(TARVIK_LOG_MASK_ERROR, TARVIK_LOG_PRIO_ERROR, sub, fmt, ##__VA_ARGS__)
#define TARVIK_LOGD(fmt, ...) TARVIK_LOGD_SUB(TARVIK_SUB_NONE, fmt, ##__VA_ARGS__)
#define TARVIK_LOGE(fmt, ...) TARVIK_LOGE_SUB(TARVIK_SUB_NONE, fmt, ##__VA_ARGS__)

#define TARVIK_LOG_ENTRY() TARVIK_LOGD("function entry ------------->")
#define TARVIK_LOG_EXIT() TARVIK_LOGD("function exit <-------------")

/* ---------------------------------------------------------------------------------------------
 * System properties and subscription helpers
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * Build and version classification
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * Device identity and subscriptions
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * String utilities
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * File utilities
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * Threads and service start
 * ------------------------------------------------------------------------------------------- */

/* ---------------------------------------------------------------------------------------------
 * Process look-up
 * ------------------------------------------------------------------------------------------- */

#endif /* TARVIK_UTILS_CMN_H */
