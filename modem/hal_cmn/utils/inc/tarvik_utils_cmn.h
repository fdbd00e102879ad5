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
 * "persist.vendor.radio.adb_log_shell". Unlocked: the library reads and writes them with relaxed
 * atomic accesses (__atomic_load_n / __atomic_store_n); callers that touch them from several
 * threads should do the same. */
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
 * arguments may be evaluated twice, so they must have no side effects. TARVIK_LOG_WHERE writes
 * the line as if from `file`:`line` (a step shared by several exported functions logs at its
 * caller's site).
 */
#define TARVIK_LOG_WHERE(level_mask, level_prio, sub, file, line, func, fmt, ...)                  \
  do {                                                                                             \
    if (tarvik_hal_get_logcat_print_flag(level_mask)) {                                            \
      const uint32_t tarvik_log_sub_ = (uint32_t)(sub);                                            \
      const uint32_t tarvik_log_inst_ = tarvik_get_ril_process_instance_id();                      \
      if (tarvik_check_sub_id(tarvik_log_sub_)) {                                                  \
        tarvik_utils_syslog((level_prio), "SUB[%d][%s:%d] %s: " fmt, (int)tarvik_log_sub_, (file), \
                            (line), (func), ##__VA_ARGS__);                                        \
      } else if (tarvik_check_sub_id(tarvik_log_inst_)) {                                          \
        tarvik_utils_syslog((level_prio), "SUB[%d][%s:%d] %s: " fmt, (int)tarvik_log_inst_,        \
                            (file), (line), (func), ##__VA_ARGS__);                                \
      } else if (tarvik_log_inst_ != TARVIK_SUB_NONE) {                                            \
        tarvik_utils_syslog((level_prio), "[%s][%s:%d] %s: " fmt, tarvik_get_current_pid_name(),   \
                            (file), (line), (func), ##__VA_ARGS__);                                \
      } else {                                                                                     \
        tarvik_utils_syslog((level_prio), "[%s:%d] %s: " fmt, (file), (line), (func),              \
                            ##__VA_ARGS__);                                                        \
      }                                                                                            \
    }                                                                                              \
    if (tarvik_hal_get_shell_print_flag(level_mask)) {                                             \
      printf("RIL[%s:%d] %s: " fmt "\n", (file), (line), (func), ##__VA_ARGS__);                   \
    }                                                                                              \
  } while (0)

#define TARVIK_LOG_AT(level_mask, level_prio, sub, func, fmt, ...) \
  TARVIK_LOG_WHERE(level_mask, level_prio, sub, __FILE_NAME__, __LINE__, func, fmt, ##__VA_ARGS__)

#define TARVIK_LOG(level_mask, level_prio, sub, fmt, ...) \
  TARVIK_LOG_AT(level_mask, level_prio, sub, __func__, fmt, ##__VA_ARGS__)

/* The two levels in use, for subscription `sub` (255: none). */
#define TARVIK_LOGD_SUB(sub, fmt, ...) \
  TARVIK_LOG(TARVIK_LOG_MASK_DEBUG, TARVIK_LOG_PRIO_DEBUG, sub, fmt, ##__VA_ARGS__)
#define TARVIK_LOGE_SUB(sub, fmt, ...) \
  TARVIK_LOG(TARVIK_LOG_MASK_ERROR, TARVIK_LOG_PRIO_ERROR, sub, fmt, ##__VA_ARGS__)
#define TARVIK_LOGD(fmt, ...) TARVIK_LOGD_SUB(TARVIK_SUB_NONE, fmt, ##__VA_ARGS__)
#define TARVIK_LOGE(fmt, ...) TARVIK_LOGE_SUB(TARVIK_SUB_NONE, fmt, ##__VA_ARGS__)

/* For a step shared by several exported functions: the line carries the name of the exported
 * function `func` it runs for, as callers grep the log by the function they called. */
#define TARVIK_LOGD_FN(func, fmt, ...)                                                    \
  TARVIK_LOG_AT(TARVIK_LOG_MASK_DEBUG, TARVIK_LOG_PRIO_DEBUG, TARVIK_SUB_NONE, func, fmt, \
                ##__VA_ARGS__)
#define TARVIK_LOGE_FN(func, fmt, ...)                                                    \
  TARVIK_LOG_AT(TARVIK_LOG_MASK_ERROR, TARVIK_LOG_PRIO_ERROR, TARVIK_SUB_NONE, func, fmt, \
                ##__VA_ARGS__)

#define TARVIK_LOG_ENTRY() TARVIK_LOGD("function entry ------------->")
#define TARVIK_LOG_EXIT() TARVIK_LOGD("function exit <-------------")

/* ---------------------------------------------------------------------------------------------
 * System properties and subscription helpers
 * ------------------------------------------------------------------------------------------- */

/* Capacity every caller's property value buffer must have (255 characters and a NUL). */
#define TARVIK_PROPERTY_BUF_SIZE 256
/* Longest value a write accepts; longer values are refused with -3 and nothing is written. */
#define TARVIK_PROPERTY_VALUE_LEN_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

/* Reads `name` (cut to 255 characters) into `value` (256 bytes), `default_value` when unset.
 * Returns -1 / -2 / -3 when name / value / default is NULL (nothing read), else the platform's
 * result (the length delivered). With property tracing on, logs the value read. */
TARVIK_EXPORT int tarvik_get_property_value(const char *name, char *value,
                                            const char *default_value);

/* Writes `value` to `name` (cut to 255 characters). Returns -1 / -2 when name / value is NULL,
 * -3 when the value is longer than 92 characters (nothing written), else the platform's result
 * (0 on success). With tracing on, logs the write and reads the value back. */
TARVIK_EXPORT int tarvik_set_property_value(const char *name, const char *value);

/* Writes `value` as decimal text; results as tarvik_set_property_value. */
TARVIK_EXPORT int tarvik_set_property_value_to_int(const char *name, int32_t value);

/* Reads `name` as an integer with `atoi` (`default_value` when unset; a value that is not a
 * number reads as 0). The result is also stored through `value` unless it is NULL. */
TARVIK_EXPORT int32_t tarvik_get_property_value_from_int(const char *name, int32_t *value,
                                                         int32_t default_value);

/* Writes "true" when `flag` is exactly 1, else "false". */
TARVIK_EXPORT int tarvik_set_property_value_to_boolean(const char *name, uint8_t flag);

/* Sets `*flag` to 1 for exactly "true", 0 for exactly "false", `default_value` for anything else
 * (unset included; case matters). Returns what tarvik_get_property_value returned; `flag` NULL
 * reads nothing and returns -2. */
TARVIK_EXPORT int tarvik_get_property_value_from_boolean(const char *name, uint8_t *flag,
                                                         uint8_t default_value);

/* True for the valid subscription masks 1, 2 and 3. */
TARVIK_EXPORT bool tarvik_check_sub_mask(int32_t mask);
/* 1 for subscription 0, 2 for subscription 1, 0 for any other id. */
TARVIK_EXPORT int32_t tarvik_get_sub_mask_by_id(uint32_t sub_id);

/* "persist.radio.default_data_sub" (unset reads 0) and "persist.radio.active_call_sub" (unset
 * reads 8), written as decimal text. */
TARVIK_EXPORT int tarvik_update_default_data_sub(int32_t sub);
TARVIK_EXPORT int tarvik_get_default_data_sub(void);
TARVIK_EXPORT int tarvik_update_active_call_sub(int32_t sub);
TARVIK_EXPORT int tarvik_get_active_call_sub(void);

#ifdef __cplusplus
} /* extern "C" */

/* 1 when property tracing is on. Decided once per process from
 * "persist.vendor.radio.print_prop" (exactly "1", the default, turns it on). */
TARVIK_EXPORT int tarvik_utils_get_prop_print_flag();

/* With tracing on, logs the current value of `name`; does nothing with tracing off. */
TARVIK_EXPORT void tarvik_print_property_value(const char *name);
#endif

/* ---------------------------------------------------------------------------------------------
 * Build and version classification
 * ------------------------------------------------------------------------------------------- */

/* Build types returned by tarvik_build_type_get. */
#define TARVIK_BUILD_TYPE_PRE 1u /* pre-release, also the fall-back */
#define TARVIK_BUILD_TYPE_FACTORY 2u
#define TARVIK_BUILD_TYPE_CERT 3u /* operator certification */
#define TARVIK_BUILD_TYPE_STABLE 4u
#define TARVIK_BUILD_TYPE_NATIVE 5u /* without the maker's phone OS */
#define TARVIK_BUILD_TYPE_DEV 6u
#define TARVIK_BUILD_TYPE_BETA 7u
/* In a build-type list: matches every build type. */
#define TARVIK_BUILD_TYPE_ALL 0u

#ifdef __cplusplus
extern "C" {
#endif

/* Each check reads its property once per process (a later change is not seen) and logs its
 * answer. Unset properties answer "no", except tarvik_is_test_build and tarvik_is_user_version,
 * whose defaults answer "yes". Exact tests compare the whole text, case included. */
TARVIK_EXPORT bool tarvik_is_factory_version(void);    /* ro.boot.factorybuild == "1" */
TARVIK_EXPORT bool tarvik_is_ct_cert_version(void);    /* ro.cust.test == "ct" */
TARVIK_EXPORT bool tarvik_is_cm_cert_version(void);    /* ro.cust.test == "cm" */
TARVIK_EXPORT bool tarvik_is_cu_cert_version(void);    /* ro.cust.test == "cu" */
TARVIK_EXPORT bool tarvik_is_cert_version(void);       /* ro.cust.test set */
TARVIK_EXPORT bool tarvik_is_china_version(void);      /* ro.vendor.radio.build_region == "cn" */
TARVIK_EXPORT bool tarvik_is_test_build(void);         /* ro.build.tags != "release-keys" */
TARVIK_EXPORT bool tarvik_is_native_version(void);     /* build profile contains "native" */
TARVIK_EXPORT bool tarvik_is_factory_version_ex(void); /* build profile contains "factory" */
TARVIK_EXPORT bool tarvik_is_root_version(void);       /* ro.debuggable == "1" */
TARVIK_EXPORT bool tarvik_is_mp_version(void);         /* ro.boot.hwlevel == "MP" */
TARVIK_EXPORT bool tarvik_is_ravu_version(void);       /* profile set and not "factory"/"native" */
TARVIK_EXPORT bool tarvik_is_ravu_version_ex(void);    /* ro.ravu.build.region set */
TARVIK_EXPORT bool tarvik_is_user_version(void);       /* ro.build.type == "user" (default) */

/* Release channel, decided once from tarvik_build_type_get. */
TARVIK_EXPORT bool tarvik_is_pre_version(void);
TARVIK_EXPORT bool tarvik_is_dev_version(void);
TARVIK_EXPORT bool tarvik_is_stable_version(void);

/* Build type 1..7 from the certification, profile, factory and version properties (each read
 * once); the decision is remade on every call from the kept values. */
TARVIK_EXPORT uint32_t tarvik_build_type_get(void);

/* True when `list` holds TARVIK_BUILD_TYPE_ALL or the current build type; false for a NULL list
 * or a length of 0. */
TARVIK_EXPORT bool tarvik_build_type_list_contain(const uint8_t *list, uint32_t size_list);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---------------------------------------------------------------------------------------------
 * Device identity and subscriptions
 * ------------------------------------------------------------------------------------------- */

#define TARVIK_MANUFACTURER_ID_TARVIK 1

/* Device-state types 0..TARVIK_DEVICE_TYPE_MAX, named for property names and log lines. */
#define TARVIK_DEVICE_TYPE_MAX 22u

#ifdef __cplusplus
extern "C" {
#endif

/* "gsm.sim.state" read on every call: subscription 0 is present when it contains "LOADED," or
 * "READY,", subscription 1 when it contains ",LOADED" or ",READY"; other ids are false. */
TARVIK_EXPORT bool tarvik_sim_card_is_present(uint32_t sub);

/* Kept values: read once per process (unset reads 0). The setters write the property but a
 * getter that has already run keeps its first value. */
TARVIK_EXPORT int32_t tarvik_get_tarvik_manufacturer_id(void);
TARVIK_EXPORT int tarvik_set_tarvik_manufacturer_id(int32_t id);
TARVIK_EXPORT int32_t tarvik_get_modem_hal_chip_id(void);
TARVIK_EXPORT int tarvik_set_modem_hal_chip_id(int32_t id);
TARVIK_EXPORT int32_t tarvik_get_modem_bp_chip_id(void);
TARVIK_EXPORT int tarvik_set_modem_bp_chip_id(int32_t id);
TARVIK_EXPORT int32_t tarvik_get_tarvik_device_type(void);

/* True only when "persist.radio.multisim.config" is exactly "ssss" (read on every call). */
TARVIK_EXPORT bool tarvik_get_single_sim_flag(void);

/* Kept texts, read once per process. The pointers are to static storage: do not free or change
 * them. Unset: "" for the device and ODM names, "NULL" for the build region. */
TARVIK_EXPORT const char *tarvik_device_name_get(void);
TARVIK_EXPORT const char *tarvik_odm_device_get(void);
TARVIK_EXPORT const char *tarvik_odm_name_get(void);
TARVIK_EXPORT const char *tarvik_build_region_get(void);

/* "persist.vendor.radio.build_region" read on every call into one static buffer that the next
 * call overwrites (copy it at once when threads share it). */
TARVIK_EXPORT const char *tarvik_vendor_build_region_get(void);
TARVIK_EXPORT bool tarvik_vendor_build_region_is_cfged(void);

/* 2 when "ro.bdsms" is exactly "true", 1 when exactly "false", else 0. */
TARVIK_EXPORT int tarvik_modem_get_gps_type(void);

/* NULL above TARVIK_DEVICE_TYPE_MAX. The _ex form ("[%d]%s") and the property name
 * ("debug.device." and the lower-cased name) live in static buffers overwritten by the next
 * call. */
TARVIK_EXPORT const char *tarvik_get_device_type_string(uint32_t index);
TARVIK_EXPORT const char *tarvik_get_device_type_string_ex(uint32_t index);
TARVIK_EXPORT const char *tarvik_get_device_state_prop_name(uint32_t index);

/* Integer list tests: true when some entry equals `num`; false (with an error line) for a NULL
 * list or a size of 0. */
TARVIK_EXPORT bool tarvik_int8_list_contain(const int8_t *num_list, uint32_t size_list, int8_t num);
TARVIK_EXPORT bool tarvik_int16_list_contain(const int16_t *num_list, uint32_t size_list,
                                             int16_t num);
TARVIK_EXPORT bool tarvik_int32_list_contain(const int32_t *num_list, uint32_t size_list,
                                             int32_t num);
TARVIK_EXPORT bool tarvik_int64_list_contain(const int64_t *num_list, uint32_t size_list,
                                             int64_t num);

/* Product-list tests: true when the list holds the wildcard ("all_product", or "all_region" for
 * the region) or an entry that occurs inside the kept name (see tarvik_string_list_contain). */
TARVIK_EXPORT bool tarvik_device_name_list_contain(const char *const *str_list, uint32_t size_list);
TARVIK_EXPORT bool tarvik_odm_device_list_contain(const char *const *str_list, uint32_t size_list);
TARVIK_EXPORT bool tarvik_odm_name_list_contain(const char *const *str_list, uint32_t size_list);
TARVIK_EXPORT bool tarvik_build_region_list_contain(const char *const *str_list,
                                                    uint32_t size_list);

/* NULL for size 0, else malloc(size). */
TARVIK_EXPORT void *tarvik_mem_malloc(uint32_t size);
/* Frees *ptr and sets it to NULL; does nothing when ptr or *ptr is NULL. */
TARVIK_EXPORT void tarvik_mem_free(void **ptr);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---------------------------------------------------------------------------------------------
 * String utilities
 * ------------------------------------------------------------------------------------------- */

/* White space here: 0x09..0x0D and the space. */

#ifdef __cplusplus
extern "C" {
#endif

/* Removes leading and trailing white space in place, within the first `str_len_max` bytes of
 * `str` (at least 2): a string with no NUL in that range is cut to str_len_max - 1 characters
 * first. NULL or a capacity below 2 leaves `str` alone. */
TARVIK_EXPORT void tarvik_str_trim(char *str, int str_len_max);

/* Last occurrence of `ch` in `str_in` (a NUL `ch` finds the terminator), or NULL. */
TARVIK_EXPORT char *tarvik_str_find_right(const char *str_in, char ch);

/* 0 equal; -101 str1 NULL; -102 str2 NULL; -103 lengths differ; 104 same length, different
 * bytes. Each outcome is logged at debug level. */
TARVIK_EXPORT int tarvik_str_cmp(const char *str1, const char *str2);

/* Appends `in` to the NUL-terminated `out` (capacity `outlen`), with every non-overlapping
 * occurrence of `src` replaced by `dst`. Stops, keeping the terminated partial result, when
 * the next piece would not fit. */
TARVIK_EXPORT void tarvik_str_rpl(const char *in, char *out, int outlen, const char *src,
                                  const char *dst);

/* Appends `prefix` then `in` to `out` (normally empty); refuses, leaving `out` unchanged, when
 * the result would not fit in `outlen` bytes. */
TARVIK_EXPORT void tarvik_str_add_prefix(const char *in, char *out, int outlen, const char *prefix);

/* ASCII-only case mapping in place; other bytes are unchanged. */
TARVIK_EXPORT void tarvik_str_tolower(char *str_in_out);
TARVIK_EXPORT void tarvik_str_toupper(char *str_in_out);

/* True when `prefix` begins `str` (the empty prefix always does); false when either is NULL. */
TARVIK_EXPORT bool tarvik_str_starts_with(const char *str, const char *prefix);

/* Writes " %02X" per data byte into `hex_str` (capacity `len_max`, above 4) while a further
 * byte fits; always NUL-terminated. False for a NULL buffer or data, or len_max <= 4. */
TARVIK_EXPORT bool tarvik_get_hex_str(char *hex_str, int len_max, const uint8_t *ptr_data,
                                      int data_len);

/* True when some entry of `str_list` occurs inside `str` (substring search; an empty entry
 * matches anything). NULL entries are skipped. */
TARVIK_EXPORT bool tarvik_string_list_contain(const char *const *str_list, uint32_t size_list,
                                              const char *str);

#ifdef __cplusplus
} /* extern "C" */

#include <string>
#include <vector>

/* Copies without white space and without zero bytes. */
TARVIK_EXPORT std::string tarvik_remove_string_whitespace(const std::string &str);
/* The same in place; returns `str`. */
TARVIK_EXPORT std::string &tarvik_remove_string_whitespace_ex(std::string &str);
/* Wide forms, by iswspace. */
TARVIK_EXPORT std::wstring tarvik_remove_wstring_whitespace(const std::wstring &str);
TARVIK_EXPORT std::wstring &tarvik_remove_string_whitespace_ex(std::wstring &str);

/* Fields of `str` between `delim`s; empty fields are dropped (after white-space removal when
 * `remove_whitespace` is non-zero). A NULL text splits as the empty text. */
TARVIK_EXPORT std::vector<std::string> tarvik_str_split(const char *str, char delim,
                                                        uint8_t remove_whitespace);
TARVIK_EXPORT std::vector<std::string> tarvik_str_split(const std::string &str, char delim,
                                                        uint8_t remove_whitespace);

/* Logs the string and then each character with its code, at debug level. */
TARVIK_EXPORT void tarvik_str_print(const char *str);
#endif

/* ---------------------------------------------------------------------------------------------
 * File utilities
 * ------------------------------------------------------------------------------------------- */

#ifdef __cplusplus
extern "C" {
#endif

/* Copies `src` to `tgt` through a 10240-byte buffer. The target is created (mode 0777 before
 * the umask) or truncated first, so it never keeps old bytes past the copied length. An
 * interrupted read or write, or a write that makes no progress, is an error.
 * Returns 0; -1 src NULL; -2 tgt NULL; -3 src cannot be opened; -4 tgt cannot be opened;
 * -5 read or write error (the target is left partly written). */
TARVIK_EXPORT int tarvik_copy_file(const char *src, const char *tgt);

/* Empties (or creates) the file. Always 0; a failure is only logged. */
TARVIK_EXPORT int tarvik_clear_file_context(const char *file_name);

/* remove() of a file or an empty directory: 0, 1 when file_name is NULL, else remove()'s
 * result (errno is logged). */
TARVIK_EXPORT int tarvik_delete_file(const char *file_name);

/* Deletes the tree under `dir_path` and the directory itself. Symbolic links are removed, never
 * followed, so the deletion stays inside the tree. Entries whose path would exceed 1023 bytes
 * are left alone rather than deleted under a cut name. Per-entry failures are ignored; the
 * result is the final rmdir()'s (so a tree that could not be emptied fails), 1 when dir_path is
 * NULL, 2 when it cannot be opened. */
TARVIK_EXPORT int tarvik_delete_directory(const char *dir_path);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---------------------------------------------------------------------------------------------
 * Threads and service start
 * ------------------------------------------------------------------------------------------- */

#include <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Starts a detached thread running thread_proc(arg); `name` is only logged. Returns its handle,
 * or 0 when thread_proc is NULL or the thread could not be created. */
TARVIK_EXPORT pthread_t tarvik_create_pthread(const char *name, void *(*thread_proc)(void *),
                                              void *arg);

/* Asks init to start `service_name` by writing it to "ctl.start". Returns the property write's
 * result: 0 on success, -1 for a NULL name, -3 for a name longer than 92 characters. */
TARVIK_EXPORT int tarvik_start_service(const char *service_name);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---------------------------------------------------------------------------------------------
 * Process look-up
 * ------------------------------------------------------------------------------------------- */

#ifdef __cplusplus
extern "C" {
#endif

/* Fills `p_pid_info` with getpid() and the command-line name (empty if /proc cannot be read).
 * NULL is logged and ignored. */
TARVIK_EXPORT void tarvik_get_current_pid_info(tarvik_pid_info_t *p_pid_info);

/* The first call of either fills g_pid_info through tarvik_get_current_pid_info; both then
 * return the kept pid or name. */
TARVIK_EXPORT int tarvik_utils_get_pid_number(void);
TARVIK_EXPORT const char *tarvik_utils_get_pid_name(void);

#ifdef __cplusplus
} /* extern "C" */

/* The name from /proc/self/status ("Name:" line, trimmed), read once and kept in
 * g_pid_info.p_name (shared with the other name functions: the last one to run wins). */
TARVIK_EXPORT const char *tarvik_get_current_pid_name_ex();

/* Scans /proc for a process whose status name equals `task_name` and writes its pid through
 * `pid`; leaves *pid untouched when there is none. NULL arguments are logged and ignored.
 * `task_name` is only read; it is a plain `char *` because callers link against that symbol. */
TARVIK_EXPORT void tarvik_get_pid_by_name(int *pid, char *task_name);
#endif

#endif /* TARVIK_UTILS_CMN_H */
