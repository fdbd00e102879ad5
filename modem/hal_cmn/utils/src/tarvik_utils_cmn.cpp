/*
 * Utility layer shared by the radio modules: logging and print masks, process identity,
 * properties, build classification, device identity, strings, files, threads, process look-up.
 */
#include "tarvik_utils_cmn.h"

#include <cutils/properties.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>
#include <wctype.h>

#include <algorithm>
#include <atomic>
#include <sstream>
#include <string>
#include <vector>

/* ---------------------------------------------------------------------------------------------
 * Logging, print masks and process identity
 * ------------------------------------------------------------------------------------------- */

uint32_t g_tarvik_logcat_print_mask = 0xFFFF;
uint32_t g_tarvik_shell_print_mask = 0xFFFF;
uint32_t g_tarvik_ril_process_instance_id = TARVIK_SUB_NONE;
tarvik_pid_info_t g_pid_info;

namespace {

/* The masks and their loaded flags take no lock (callers log from any thread); every access is
 * a relaxed atomic one so that concurrent loggers race benignly, not undefinedly. The exported
 * masks stay plain uint32_t objects for their C readers. */
std::atomic<bool> g_logcat_mask_loaded{false};
std::atomic<bool> g_shell_mask_loaded{false};
bool g_cmdline_name_loaded = false;

uint32_t mask_get(const uint32_t *mask) {
  return __atomic_load_n(mask, __ATOMIC_RELAXED);
}

void syslog_at(int priority, const char *fmt, va_list ap) {
  const int saved_errno = errno;
  vsyslog(priority, fmt, ap);
  errno = saved_errno;
}

/* Writes the "old" line, applies the new value and writes the "new" line. The formats are the
 * fixed texts of the mask setters below. */
void change_mask(uint32_t *mask, uint32_t value, const char *old_fmt, uint32_t arg,
                 const char *new_fmt) {
  tarvik_utils_syslog_dbg(old_fmt, mask_get(mask), arg);
  __atomic_store_n(mask, value, __ATOMIC_RELAXED);
  tarvik_utils_syslog_dbg(new_fmt, mask_get(mask));
}

/* First-use load of a print mask: the property can only take bits away from the mask. */
void load_mask_once(std::atomic<bool> *loaded, uint32_t *mask, const char *property,
                    const char *merge_fmt, const char *new_fmt, const char *started_fmt,
                    const char *stopped_fmt) {
  if (loaded->load(std::memory_order_relaxed)) {
    return;
  }
  loaded->store(true, std::memory_order_relaxed);
  char value[256];
  memset(value, 0, sizeof(value));
  property_get(property, value, "65535");
  const uint32_t merge = static_cast<uint32_t>(atoi(value));
  change_mask(mask, mask_get(mask) & merge, merge_fmt, merge, new_fmt);
  const uint32_t now = mask_get(mask);
  tarvik_utils_syslog_dbg(now != 0 ? started_fmt : stopped_fmt, now);
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
  return (mask & ~mask_get(&g_tarvik_logcat_print_mask)) == 0;
}

void tarvik_hal_merge_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, mask_get(&g_tarvik_logcat_print_mask) & m,
              "merge, old tarvik_hal_set_logcat_print_mask 0x%x, merge_mask 0x%x", m, LOGCAT_NEW);
}

void tarvik_hal_add_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, mask_get(&g_tarvik_logcat_print_mask) | m,
              "add, old tarvik_hal_set_logcat_print_mask 0x%x, add_mask 0x%x", m, LOGCAT_NEW);
}

void tarvik_hal_remove_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, mask_get(&g_tarvik_logcat_print_mask) & ~m,
              "remove, old g_tarvik_logcat_print_mask 0x%x, rm_mask 0x%x", m,
              "new g_tarvik_logcat_print_mask 0x%x");
}

void tarvik_hal_set_logcat_print_mask(uint32_t m) {
  change_mask(&g_tarvik_logcat_print_mask, m,
              "set, old tarvik_hal_set_logcat_print_mask 0x%x, dst_mask 0x%x", m, LOGCAT_NEW);
}

void tarvik_utils_close_logcat_print(void) {
  tarvik_utils_syslog_dbg("close, g_tarvik_logcat_print_mask 0x%x",
                          mask_get(&g_tarvik_logcat_print_mask));
  __atomic_store_n(&g_tarvik_logcat_print_mask, 0u, __ATOMIC_RELAXED);
}

bool tarvik_hal_get_shell_print_flag(uint32_t mask) {
  load_mask_once(&g_shell_mask_loaded, &g_tarvik_shell_print_mask,
                 "persist.vendor.radio.adb_log_shell",
                 "merge, old g_tarvik_shell_print_mask 0x%x, merge_mask 0x%x", SHELL_NEW,
                 "shell print is started, g_tarvik_shell_print_mask 0x%x",
                 "shell print is stoped, g_tarvik_shell_print_mask 0x%x");
  return (mask & ~mask_get(&g_tarvik_shell_print_mask)) == 0;
}

void tarvik_hal_merge_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, mask_get(&g_tarvik_shell_print_mask) & m,
              "merge, old g_tarvik_shell_print_mask 0x%x, merge_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_add_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, mask_get(&g_tarvik_shell_print_mask) | m,
              "add, old g_tarvik_shell_print_mask 0x%x, add_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_remove_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, mask_get(&g_tarvik_shell_print_mask) & ~m,
              "remove, old g_tarvik_shell_print_mask 0x%x, rm_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_set_shell_print_mask(uint32_t m) {
  change_mask(&g_tarvik_shell_print_mask, m,
              "set, old g_tarvik_shell_print_mask 0x%x, dst_mask 0x%x", m, SHELL_NEW);
}

void tarvik_hal_close_shell_print(void) {
  tarvik_utils_syslog_dbg("close, g_tarvik_shell_print_mask 0x%x",
                          mask_get(&g_tarvik_shell_print_mask));
  __atomic_store_n(&g_tarvik_shell_print_mask, 0u, __ATOMIC_RELAXED);
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

/* ---------------------------------------------------------------------------------------------
 * System properties and subscription helpers
 * ------------------------------------------------------------------------------------------- */

namespace {

constexpr size_t kPropBufSize = TARVIK_PROPERTY_BUF_SIZE;

/* 2 = not decided yet, 1 = tracing on, 0 = tracing off. Decided once per process. */
int g_prop_print_state = 2;

/* Copies at most `size - 1` characters of `src` and a NUL into `dst` (of `size` bytes). */
void copy_bounded(char *dst, size_t size, const char *src) {
  const size_t len = strnlen(src, size - 1);
  memcpy(dst, src, len);
  dst[len] = '\0';
}

bool prop_print_on() {
  if (g_prop_print_state == 2) {
    char value[kPropBufSize];
    memset(value, 0, sizeof(value));
    property_get("persist.vendor.radio.print_prop", value, "1");
    value[sizeof(value) - 1] = '\0';
    g_prop_print_state = strcmp(value, "1") == 0 ? 1 : 0;
    tarvik_utils_syslog_dbg(g_prop_print_state == 1 ? "prop print is started"
                                                    : "prop print is stoped");
  }
  return g_prop_print_state == 1;
}

int set_int_property(const char *name, int32_t value) {
  char text[kPropBufSize];
  snprintf(text, sizeof(text), "%d", static_cast<int>(value));
  return tarvik_set_property_value(name, text);
}

/* The name and value checks of the exported property call `func`: -1 and -2, or 0. */
int check_name_value(const char *func, const char *name, const char *value) {
  if (name == nullptr) {
    TARVIK_LOGE_FN(func, "property_name is null");
    return -1;
  }
  if (value == nullptr) {
    TARVIK_LOGE_FN(func, "property_value is null");
    return -2;
  }
  return 0;
}

/* Reads `name` with the decimal default `default_value` and converts it with atoi. */
int32_t get_int_property(const char *name, int32_t default_value) {
  char def[kPropBufSize];
  char value[kPropBufSize];
  snprintf(def, sizeof(def), "%d", static_cast<int>(default_value));
  memset(value, 0, sizeof(value));
  tarvik_get_property_value(name, value, def);
  return atoi(value);
}

}  // namespace

int tarvik_utils_get_prop_print_flag() {
  return prop_print_on() ? 1 : 0;
}

void tarvik_print_property_value(const char *name) {
  if (!prop_print_on()) {
    return;
  }
  if (name == nullptr) {
    TARVIK_LOGE("property_name is null");
    return;
  }
  char key[kPropBufSize];
  char value[kPropBufSize];
  copy_bounded(key, sizeof(key), name);
  memset(value, 0, sizeof(value));
  const int ret = property_get(key, value, "null_val");
  value[sizeof(value) - 1] = '\0';
  TARVIK_LOGD("%s: %s, ret = %d", key, value, ret);
}

int tarvik_get_property_value(const char *name, char *value, const char *default_value) {
  const int refused = check_name_value(__func__, name, value);
  if (refused != 0) {
    return refused;
  }
  if (default_value == nullptr) {
    TARVIK_LOGE("default_property_value is null");
    return -3;
  }
  char key[kPropBufSize];
  char local[kPropBufSize];
  copy_bounded(key, sizeof(key), name);
  memset(local, 0, sizeof(local));
  const int ret = property_get(key, local, default_value);
  local[sizeof(local) - 1] = '\0';
  copy_bounded(value, kPropBufSize, local);
  if (prop_print_on()) {
    TARVIK_LOGD("%s: %s, ret = %d", key, value, ret);
  }
  return ret;
}

int tarvik_set_property_value(const char *name, const char *value) {
  const int refused = check_name_value(__func__, name, value);
  if (refused != 0) {
    return refused;
  }
  const size_t len = strlen(value);
  if (len > TARVIK_PROPERTY_VALUE_LEN_MAX) {
    TARVIK_LOGE("property_value len(%u) is out of range(%d)", static_cast<unsigned>(len),
                TARVIK_PROPERTY_VALUE_LEN_MAX);
    return -3;
  }
  char key[kPropBufSize];
  copy_bounded(key, sizeof(key), name);
  const int ret = property_set(key, value);
  if (prop_print_on()) {
    TARVIK_LOGD("%s: %s, ret = %d", key, value, ret);
  }
  tarvik_print_property_value(name);
  return ret;
}

int tarvik_set_property_value_to_int(const char *name, int32_t value) {
  return set_int_property(name, value);
}

int32_t tarvik_get_property_value_from_int(const char *name, int32_t *value,
                                           int32_t default_value) {
  const int32_t result = get_int_property(name, default_value);
  if (value != nullptr) {
    *value = result;
  }
  return result;
}

int tarvik_set_property_value_to_boolean(const char *name, uint8_t flag) {
  return tarvik_set_property_value(name, flag == 1 ? "true" : "false");
}

int tarvik_get_property_value_from_boolean(const char *name, uint8_t *flag, uint8_t default_value) {
  if (flag == nullptr) {
    TARVIK_LOGE("property_value is null");
    return -2;
  }
  char value[kPropBufSize];
  memset(value, 0, sizeof(value));
  const int ret = tarvik_get_property_value(name, value, "");
  if (strcmp(value, "true") == 0) {
    *flag = 1;
  } else if (strcmp(value, "false") == 0) {
    *flag = 0;
  } else {
    *flag = default_value;
  }
  return ret;
}

bool tarvik_check_sub_mask(int32_t mask) {
  return mask >= 1 && mask <= 3;
}

int32_t tarvik_get_sub_mask_by_id(uint32_t sub_id) {
  return tarvik_check_sub_id(sub_id) ? static_cast<int32_t>(1u << sub_id) : 0;
}

#define PROP_DEFAULT_DATA_SUB "persist.radio.default_data_sub"
#define PROP_ACTIVE_CALL_SUB "persist.radio.active_call_sub"

int tarvik_update_default_data_sub(int32_t sub) {
  return set_int_property(PROP_DEFAULT_DATA_SUB, sub);
}

int tarvik_get_default_data_sub(void) {
  return get_int_property(PROP_DEFAULT_DATA_SUB, 0);
}

int tarvik_update_active_call_sub(int32_t sub) {
  return set_int_property(PROP_ACTIVE_CALL_SUB, sub);
}

int tarvik_get_active_call_sub(void) {
  return get_int_property(PROP_ACTIVE_CALL_SUB, 8);
}

/* ---------------------------------------------------------------------------------------------
 * Build and version classification
 * ------------------------------------------------------------------------------------------- */

namespace {

/* A property read once per process into static storage (NUL-forced at its last byte); later
 * calls return the kept text. */
struct KeptProperty {
  const char *name;
  const char *default_value;
  bool read;
  char value[kPropBufSize];
};

const char *kept_value(KeptProperty *prop) {
  if (!prop->read) {
    tarvik_get_property_value(prop->name, prop->value, prop->default_value);
    prop->value[sizeof(prop->value) - 1] = '\0';
    prop->read = true;
  }
  return prop->value;
}

enum class Match { kExact, kNotExact, kContains, kNoneOfProfiles };

/* One yes/no build check: its own kept copy of the property and how the value is judged. */
struct BuildCheck {
  KeptProperty prop;
  Match match;
  const char *text;
  const char *yes;
  const char *no;
};

bool judge(const BuildCheck &check, const char *value) {
  switch (check.match) {
    case Match::kExact:
      return strcmp(value, check.text) == 0;
    case Match::kNotExact:
      return strcmp(value, check.text) != 0;
    case Match::kContains:
      return strstr(value, check.text) != nullptr;
    case Match::kNoneOfProfiles:
      return strcmp(value, "NULL") != 0 && strcmp(value, "factory") != 0 &&
             strcmp(value, "native") != 0;
  }
  return false;
}

#define PROP_CUST_TEST "ro.cust.test"
#define PROP_BUILD_PROFILE "ro.vendor.radio.build_profile"

/* Each check keeps its own copy of its property, even where checks share the property. */
enum BuildCheckId {
  kCheckFactory,
  kCheckCtCert,
  kCheckCmCert,
  kCheckCuCert,
  kCheckCert,
  kCheckChina,
  kCheckTestBuild,
  kCheckNative,
  kCheckFactoryEx,
  kCheckRoot,
  kCheckMp,
  kCheckRavu,
  kCheckRavuEx,
  kCheckUser,
};

// clang-format off
BuildCheck g_build_checks[] = {
    /* {property, default}, how the value is judged, against what, log texts for yes / no */
    {{"ro.boot.factorybuild", "", false, {}}, Match::kExact, "1",
     "factory version", "non factory version"},
    {{PROP_CUST_TEST, "NULL", false, {}}, Match::kExact, "ct",
     "ct test version", "not ct test version"},
    {{PROP_CUST_TEST, "NULL", false, {}}, Match::kExact, "cm",
     "cmcc test version", "not cmcc test version"},
    {{PROP_CUST_TEST, "NULL", false, {}}, Match::kExact, "cu",
     "cu test version", "not cu test version"},
    {{PROP_CUST_TEST, "NULL", false, {}}, Match::kNotExact, "NULL",
     "cert version", "non cert version"},
    {{"ro.vendor.radio.build_region", "", false, {}}, Match::kExact, "cn",
     "china version", "not china version"},
    {{"ro.build.tags", "test-keys", false, {}}, Match::kNotExact, "release-keys",
     "test version", "non test version"},
    {{PROP_BUILD_PROFILE, "NULL", false, {}}, Match::kContains, "native",
     "native version", "non native version"},
    {{PROP_BUILD_PROFILE, "NULL", false, {}}, Match::kContains, "factory",
     "factory version", "non factory version"},
    {{"ro.debuggable", "NULL", false, {}}, Match::kExact, "1",
     "root version", "non root version"},
    {{"ro.boot.hwlevel", "NULL", false, {}}, Match::kExact, "MP",
     "mp version", "non mp version"},
    {{PROP_BUILD_PROFILE, "NULL", false, {}}, Match::kNoneOfProfiles, "",
     "ravu version", "non ravu version"},
    {{"ro.ravu.build.region", "NULL", false, {}}, Match::kNotExact, "NULL",
     "ravu version", "non ravu version"},
    {{"ro.build.type", "user", false, {}}, Match::kExact, "user",
     "user version", "non user version"},
};
// clang-format on
static_assert(sizeof(g_build_checks) / sizeof(g_build_checks[0]) == kCheckUser + 1,
              "one row per check");

/* The values the build-type decision keeps. */
KeptProperty g_build_profile = {PROP_BUILD_PROFILE, "NULL", false, {}};
KeptProperty g_build_version = {"ro.build.version.incremental", "", false, {}};
KeptProperty g_os_version = {"ro.qz.os.version.incremental", "", false, {}};

/* A release channel answer kept after its first computation. */
struct ChannelCheck {
  bool decided;
  bool answer;
};
ChannelCheck g_pre_channel = {false, false};
ChannelCheck g_dev_channel = {false, false};
ChannelCheck g_stable_channel = {false, false};

bool channel_is(ChannelCheck *check, uint32_t build_type) {
  if (!check->decided) {
    check->answer = tarvik_build_type_get() == build_type;
    check->decided = true;
  }
  return check->answer;
}

/* Release channel of an "O..." version text: PRE, DEV or BETA by its marker, 0 for none. */
uint32_t os_channel(const char *version) {
  if (strstr(version, ".PRE") != nullptr) {
    return TARVIK_BUILD_TYPE_PRE;
  }
  if (strstr(version, ".DEV") != nullptr) {
    return TARVIK_BUILD_TYPE_DEV;
  }
  if (strstr(version, ".BETA") != nullptr) {
    return TARVIK_BUILD_TYPE_BETA;
  }
  return 0;
}

}  // namespace

/* The exported check functions log from their own frames, so each is a small definition. */
#define TARVIK_DEFINE_BUILD_CHECK(fn, id)                                    \
  bool fn(void) {                                                            \
    BuildCheck &check = g_build_checks[id];                                  \
    const char *value = kept_value(&check.prop);                             \
    const bool ret = judge(check, value);                                    \
    TARVIK_LOGD("%s, val = %s, ret = %d", ret ? check.yes : check.no, value, \
                static_cast<int>(ret));                                      \
    return ret;                                                              \
  }

TARVIK_DEFINE_BUILD_CHECK(tarvik_is_factory_version, kCheckFactory)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_ct_cert_version, kCheckCtCert)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_cm_cert_version, kCheckCmCert)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_cu_cert_version, kCheckCuCert)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_cert_version, kCheckCert)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_china_version, kCheckChina)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_test_build, kCheckTestBuild)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_native_version, kCheckNative)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_factory_version_ex, kCheckFactoryEx)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_root_version, kCheckRoot)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_mp_version, kCheckMp)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_ravu_version, kCheckRavu)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_ravu_version_ex, kCheckRavuEx)
TARVIK_DEFINE_BUILD_CHECK(tarvik_is_user_version, kCheckUser)

#define TARVIK_DEFINE_CHANNEL_CHECK(fn, check, type, yes, no)               \
  bool fn(void) {                                                           \
    const bool ret = channel_is(&(check), (type));                          \
    TARVIK_LOGD("%s, ret = %d", ret ? (yes) : (no), static_cast<int>(ret)); \
    return ret;                                                             \
  }

TARVIK_DEFINE_CHANNEL_CHECK(tarvik_is_pre_version, g_pre_channel, TARVIK_BUILD_TYPE_PRE,
                            "pre version", "non pre version")
TARVIK_DEFINE_CHANNEL_CHECK(tarvik_is_dev_version, g_dev_channel, TARVIK_BUILD_TYPE_DEV,
                            "dev version", "non dev version")
TARVIK_DEFINE_CHANNEL_CHECK(tarvik_is_stable_version, g_stable_channel, TARVIK_BUILD_TYPE_STABLE,
                            "stable version", "non stable version")

uint32_t tarvik_build_type_get(void) {
  static const char *const kNames[] = {"",       "PRE",    "FACTORY", "CERT",
                                       "STABLE", "NATIVE", "DEV",     "BETA"};
  const char *profile = kept_value(&g_build_profile);
  const char *version = kept_value(&g_build_version);
  const char *os_version = kept_value(&g_os_version);

  uint32_t type = 0;
  const char *origin = ""; /* which version text decided, as the log line names it */
  const char *suffix = "";
  bool fallback = false;
  if (tarvik_is_cert_version()) {
    type = TARVIK_BUILD_TYPE_CERT;
  } else if (!tarvik_is_ravu_version()) {
    if (strstr(profile, "factory") != nullptr || tarvik_is_factory_version()) {
      type = TARVIK_BUILD_TYPE_FACTORY;
    } else {
      type = TARVIK_BUILD_TYPE_NATIVE;
      suffix = strstr(profile, "native") != nullptr ? "" : ", non-RAVU";
    }
  } else if (version[0] == 'O' && (type = os_channel(version)) != 0) {
    /* A build of the maker's phone OS: the release channel comes from the version texts. */
    origin = "OS*: ";
  } else if (version[0] == 'V') {
    type = strstr(version, ".DEV") != nullptr ? TARVIK_BUILD_TYPE_DEV : TARVIK_BUILD_TYPE_STABLE;
  } else if (os_version[0] == 'O') {
    origin = "OS*qz: ";
    type = os_channel(os_version);
    if (type == 0) {
      type = TARVIK_BUILD_TYPE_STABLE;
    }
  } else {
    type = TARVIK_BUILD_TYPE_PRE;
    fallback = true;
  }
  TARVIK_LOGD("%sTARVIK_BUILD_TYPE_%s(%d), BUILD_PROFILE(%s)%s", origin, kNames[type],
              static_cast<int>(type), profile, suffix);
  if (fallback) {
    TARVIK_LOGD("build_type(%d), BUILD_PROFILE(%s), BUILD_VERSION(%s)", static_cast<int>(type),
                profile, version);
  }
  return type;
}

bool tarvik_build_type_list_contain(const uint8_t *list, uint32_t size_list) {
  /* Build types are 0..7, the same in either signedness. */
  const int8_t *types = reinterpret_cast<const int8_t *>(list);
  if (tarvik_int8_list_contain(types, size_list, TARVIK_BUILD_TYPE_ALL)) {
    return true;
  }
  if (list == nullptr || size_list == 0) {
    return false;
  }
  return tarvik_int8_list_contain(types, size_list, static_cast<int8_t>(tarvik_build_type_get()));
}

/* ---------------------------------------------------------------------------------------------
 * Device identity and subscriptions
 * ------------------------------------------------------------------------------------------- */

namespace {

/* An integer property read once per process with atoi. */
struct KeptInt {
  KeptProperty prop;
  int32_t value;
};

int32_t kept_int(KeptInt *kept) {
  if (!kept->prop.read) {
    kept->value = atoi(kept_value(&kept->prop));
  }
  return kept->value;
}

#define PROP_MANUFACTURER_ID "ro.vendor.radio.manufacturer_id"
#define PROP_HAL_CHIP_ID "ro.vendor.radio.hal_chip_id"
#define PROP_BP_CHIP_ID "ro.vendor.radio.bp_chip_id"
#define PROP_VENDOR_BUILD_REGION "persist.vendor.radio.build_region"

KeptInt g_manufacturer_id = {{PROP_MANUFACTURER_ID, "0", false, {}}, 0};
KeptInt g_hal_chip_id = {{PROP_HAL_CHIP_ID, "0", false, {}}, 0};
KeptInt g_bp_chip_id = {{PROP_BP_CHIP_ID, "0", false, {}}, 0};
KeptInt g_device_type = {{"ro.radio.device_type", "0", false, {}}, 0};

KeptProperty g_device_name = {"ro.product.device", "", false, {}};
KeptProperty g_odm_device = {"ro.product.odm.device", "", false, {}};
KeptProperty g_odm_name = {"ro.product.odm.name", "", false, {}};
KeptProperty g_build_region = {"ro.ravu.build.region", "NULL", false, {}};

const char *const kDeviceTypeNames[TARVIK_DEVICE_TYPE_MAX + 1] = {
    "WIFI_STATE",
    "HOTSPOT_STATE",
    "MODEM_STATE",
    "SAR_SENSOR_STATE",
    "HALL_SENSOR_STATE",
    "AUDIO_RECEIVER_STATE",
    "MCC_STATE",
    "BLUETOOTH_PAN_STATE",
    "BLUETOOTH_STATE",
    "SAR_SENSOR2_STATE",
    "CABLE_STATE",
    "USB_STATE",
    "USE_CASE_TEST",
    "RADIOPOWER_STATE",
    "SIMCARD_STATE",
    "SMART_TX_STATE",
    "WHITE_LIST_STATE",
    "GPD_SENSOR_STATE",
    "GRAVITY_Y_AXES_STATE",
    "NTN_RADIO_POWER_STATE",
    "HALL_SENSOR2_STATE",
    "SAR_SENSOR2_ONE_TYPE",
    "SAR_SENSOR3_STATE",
};

char g_device_type_string_ex[201];
char g_device_state_prop_name[kPropBufSize];
char g_vendor_build_region[kPropBufSize];

/* The integer list tests of every width, logging under the exported function `func`; numbers
 * print as decimals, the same at every width. */
template <typename T>
bool int_list_contain(const char *func, const char *tag, const T *num_list, uint32_t size_list,
                      T num) {
  if (num_list == nullptr) {
    TARVIK_LOGE_FN(func, "num_list[%s] is NULL", tag);
    return false;
  }
  if (size_list == 0) {
    TARVIK_LOGE_FN(func, "size_list[%s](%u) can not <= 0", tag, size_list);
    return false;
  }
  const long long shown = num;
  for (uint32_t i = 0; i < size_list; ++i) {
    if (num_list[i] == num) {
      TARVIK_LOGD_FN(func, "find number[%s]: %lld, size_list(%u)", tag, shown, size_list);
      return true;
    }
  }
  TARVIK_LOGE_FN(func, "not find number[%s]: %lld, size_list(%u)", tag, shown, size_list);
  return false;
}

/* A kept product name, logged as "<label>: <value>" under the exported getter `func`. */
const char *kept_name(const char *func, const char *label, KeptProperty *prop) {
  const char *value = kept_value(prop);
  TARVIK_LOGD_FN(func, "%s: %s", label, value);
  return value;
}

/* A product list test: the wildcard entry matches every device. */
bool product_list_contain(const char *const *str_list, uint32_t size_list, const char *wildcard,
                          const char *(*value)(void)) {
  return tarvik_string_list_contain(str_list, size_list, wildcard) ||
         (str_list != nullptr && size_list != 0 &&
          tarvik_string_list_contain(str_list, size_list, value()));
}

}  // namespace

bool tarvik_sim_card_is_present(uint32_t sub) {
  TARVIK_LOGD("sub %d", static_cast<int>(sub));
  char state[kPropBufSize];
  memset(state, 0, sizeof(state));
  tarvik_get_property_value("gsm.sim.state", state, "null");
  bool present = false;
  if (sub == TARVIK_SUB_0) {
    present = strstr(state, "LOADED,") != nullptr || strstr(state, "READY,") != nullptr;
  } else if (sub == TARVIK_SUB_1) {
    present = strstr(state, ",LOADED") != nullptr || strstr(state, ",READY") != nullptr;
  } else {
    TARVIK_LOGE("sub is invalid");
  }
  if (tarvik_check_sub_id(sub)) {
    TARVIK_LOGD("SUB%d is %s", static_cast<int>(sub), present ? "present" : "not present");
  }
  TARVIK_LOGD("function exit, is_present = %d <-------------", static_cast<int>(present));
  return present;
}

int32_t tarvik_get_tarvik_manufacturer_id(void) {
  return kept_int(&g_manufacturer_id);
}
int tarvik_set_tarvik_manufacturer_id(int32_t id) {
  return set_int_property(PROP_MANUFACTURER_ID, id);
}
int32_t tarvik_get_modem_hal_chip_id(void) {
  return kept_int(&g_hal_chip_id);
}
int tarvik_set_modem_hal_chip_id(int32_t id) {
  return set_int_property(PROP_HAL_CHIP_ID, id);
}
int32_t tarvik_get_modem_bp_chip_id(void) {
  return kept_int(&g_bp_chip_id);
}
int tarvik_set_modem_bp_chip_id(int32_t id) {
  return set_int_property(PROP_BP_CHIP_ID, id);
}
int32_t tarvik_get_tarvik_device_type(void) {
  return kept_int(&g_device_type);
}

bool tarvik_get_single_sim_flag(void) {
  char value[kPropBufSize];
  memset(value, 0, sizeof(value));
  tarvik_get_property_value("persist.radio.multisim.config", value, "dsds");
  const bool single = strcmp(value, "ssss") == 0;
  TARVIK_LOGD("%s", single ? "single sim version" : "non single sim version");
  return single;
}

const char *tarvik_device_name_get(void) {
  return kept_name(__func__, "device_name", &g_device_name);
}

const char *tarvik_odm_device_get(void) {
  return kept_name(__func__, "odm_device", &g_odm_device);
}

const char *tarvik_odm_name_get(void) {
  return kept_name(__func__, "odm_name", &g_odm_name);
}

const char *tarvik_build_region_get(void) {
  return kept_name(__func__, "build_region", &g_build_region);
}

const char *tarvik_vendor_build_region_get(void) {
  tarvik_get_property_value(PROP_VENDOR_BUILD_REGION, g_vendor_build_region, "NULL");
  g_vendor_build_region[sizeof(g_vendor_build_region) - 1] = '\0';
  return g_vendor_build_region;
}

bool tarvik_vendor_build_region_is_cfged(void) {
  char value[kPropBufSize];
  memset(value, 0, sizeof(value));
  tarvik_get_property_value(PROP_VENDOR_BUILD_REGION, value, "NULL");
  return strcmp(value, "NULL") != 0;
}

int tarvik_modem_get_gps_type(void) {
  char value[kPropBufSize];
  memset(value, 0, sizeof(value));
  tarvik_get_property_value("ro.bdsms", value, "");
  TARVIK_LOGD("PROP_MODEM_GPS_TYPE = (%s)", value);
  int gps_type = 0;
  if (strcmp(value, "true") == 0) {
    gps_type = 2;
  } else if (strcmp(value, "false") == 0) {
    gps_type = 1;
  }
  TARVIK_LOGD("function exit, gps_type = %d <-------------", gps_type);
  return gps_type;
}

const char *tarvik_get_device_type_string(uint32_t index) {
  return index <= TARVIK_DEVICE_TYPE_MAX ? kDeviceTypeNames[index] : nullptr;
}

const char *tarvik_get_device_type_string_ex(uint32_t index) {
  if (index > TARVIK_DEVICE_TYPE_MAX) {
    return nullptr;
  }
  snprintf(g_device_type_string_ex, sizeof(g_device_type_string_ex), "[%d]%s",
           static_cast<int>(index), kDeviceTypeNames[index]);
  return g_device_type_string_ex;
}

const char *tarvik_get_device_state_prop_name(uint32_t index) {
  if (index > TARVIK_DEVICE_TYPE_MAX) {
    return nullptr;
  }
  snprintf(g_device_state_prop_name, sizeof(g_device_state_prop_name), "debug.device.%s",
           kDeviceTypeNames[index]);
  tarvik_str_tolower(g_device_state_prop_name);
  return g_device_state_prop_name;
}

bool tarvik_int8_list_contain(const int8_t *num_list, uint32_t size_list, int8_t num) {
  return int_list_contain(__func__, "int8", num_list, size_list, num);
}

bool tarvik_int16_list_contain(const int16_t *num_list, uint32_t size_list, int16_t num) {
  return int_list_contain(__func__, "int16", num_list, size_list, num);
}

bool tarvik_int32_list_contain(const int32_t *num_list, uint32_t size_list, int32_t num) {
  return int_list_contain(__func__, "int32", num_list, size_list, num);
}

bool tarvik_int64_list_contain(const int64_t *num_list, uint32_t size_list, int64_t num) {
  return int_list_contain(__func__, "int64", num_list, size_list, num);
}

bool tarvik_device_name_list_contain(const char *const *str_list, uint32_t size_list) {
  return product_list_contain(str_list, size_list, "all_product", tarvik_device_name_get);
}

bool tarvik_odm_device_list_contain(const char *const *str_list, uint32_t size_list) {
  return product_list_contain(str_list, size_list, "all_product", tarvik_odm_device_get);
}

bool tarvik_odm_name_list_contain(const char *const *str_list, uint32_t size_list) {
  return product_list_contain(str_list, size_list, "all_product", tarvik_odm_name_get);
}

bool tarvik_build_region_list_contain(const char *const *str_list, uint32_t size_list) {
  return product_list_contain(str_list, size_list, "all_region", tarvik_build_region_get);
}

void *tarvik_mem_malloc(uint32_t size) {
  return size == 0 ? nullptr : malloc(size);
}

void tarvik_mem_free(void **ptr) {
  if (ptr != nullptr && *ptr != nullptr) {
    free(*ptr);
    *ptr = nullptr;
  }
}

/* ---------------------------------------------------------------------------------------------
 * String utilities
 * ------------------------------------------------------------------------------------------- */

namespace {

bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

void tarvik_str_trim(char *str, int str_len_max) {
  if (str == nullptr) {
    TARVIK_LOGE("str is null, str_len_max = %d", str_len_max);
    return;
  }
  if (str_len_max < 2) {
    TARVIK_LOGE("str_len_max(%d) can not < 2", str_len_max);
    return;
  }
  int cnt_start = 0;
  while (cnt_start < str_len_max && is_blank(str[cnt_start])) {
    ++cnt_start;
  }
  if (cnt_start >= str_len_max) {
    TARVIK_LOGD("This string is empty for max cnt, cnt_start = %d(max:%d)", cnt_start, str_len_max);
    str[0] = '\0';
    return;
  }
  if (str[cnt_start] == '\0') {
    TARVIK_LOGD("This string is empty, cnt_start = %d", cnt_start);
    str[0] = '\0';
    return;
  }

  int cnt_end = static_cast<int>(strnlen(str, static_cast<size_t>(str_len_max)));
  if (cnt_end >= str_len_max) {
    TARVIK_LOGD("This string has no cut-off character, cnt_end = %d(max:%d), new cnt_end = %d",
                cnt_end, str_len_max, str_len_max - 1);
    cnt_end = str_len_max - 1;
  }
  str[cnt_end] = '\0';
  if (cnt_end < 1) {
    TARVIK_LOGD("This string is empty, cnt_end = %d", cnt_end);
    str[0] = '\0';
    return;
  }

  /* Trailing white space becomes terminators; `last` ends on the last kept character. */
  int last = cnt_end - 1;
  while (last >= cnt_start && (is_blank(str[last]) || str[last] == '\0')) {
    str[last] = '\0';
    --last;
  }
  if (last < cnt_start) {
    TARVIK_LOGD("This string is all blank characters, cnt_start = %d, cnt_end = %d", cnt_start,
                cnt_end);
    str[0] = '\0';
    return;
  }
  memmove(str, str + cnt_start, static_cast<size_t>(last - cnt_start + 1));
  str[last - cnt_start + 1] = '\0';
}

char *tarvik_str_find_right(const char *str_in, char ch) {
  if (str_in == nullptr) {
    TARVIK_LOGE("str_in is null");
    return nullptr;
  }
  for (size_t i = strlen(str_in) + 1; i-- > 0;) {
    if (str_in[i] == ch) {
      return const_cast<char *>(str_in + i);
    }
  }
  return nullptr;
}

std::string tarvik_remove_string_whitespace(const std::string &str) {
  std::string copy = str;
  return tarvik_remove_string_whitespace_ex(copy);
}

std::string &tarvik_remove_string_whitespace_ex(std::string &str) {
  str.erase(std::remove_if(str.begin(), str.end(), [](char c) { return c == '\0' || is_blank(c); }),
            str.end());
  return str;
}

std::wstring tarvik_remove_wstring_whitespace(const std::wstring &str) {
  std::wstring copy = str;
  return tarvik_remove_string_whitespace_ex(copy);
}

std::wstring &tarvik_remove_string_whitespace_ex(std::wstring &str) {
  str.erase(std::remove_if(str.begin(), str.end(),
                           [](wchar_t c) { return iswspace(static_cast<wint_t>(c)) != 0; }),
            str.end());
  return str;
}

namespace {

/* Calls `fn` with each kept field of `str` in order; returns how many there were. */
template <typename Fn>
size_t for_each_field(const std::string &str, char delim, uint8_t remove_whitespace, Fn fn) {
  std::istringstream stream(str);
  std::string token;
  size_t count = 0;
  while (std::getline(stream, token, delim)) {
    if (remove_whitespace != 0) {
      tarvik_remove_string_whitespace_ex(token);
    }
    if (token.c_str()[0] != '\0') {
      fn(count++, token);
    }
  }
  return count;
}

}  // namespace

std::vector<std::string> tarvik_str_split(const std::string &str, char delim,
                                          uint8_t remove_whitespace) {
  /* Sized once from a counting pass, so that no growth path of the vector is instantiated
   * (its out-of-line instances would be exported beside the API). */
  std::vector<std::string> fields(
      for_each_field(str, delim, remove_whitespace, [](size_t, const std::string &) {}));
  for_each_field(str, delim, remove_whitespace,
                 [&fields](size_t i, std::string &token) { fields[i].swap(token); });
  return fields;
}

std::vector<std::string> tarvik_str_split(const char *str, char delim, uint8_t remove_whitespace) {
  return tarvik_str_split(std::string(str != nullptr ? str : ""), delim, remove_whitespace);
}

int tarvik_str_cmp(const char *str1, const char *str2) {
  if (str1 == nullptr) {
    TARVIK_LOGD("str1 is null");
    return -101;
  }
  if (str2 == nullptr) {
    TARVIK_LOGD("str2 is null");
    return -102;
  }
  const int len1 = static_cast<int>(strlen(str1));
  const int len2 = static_cast<int>(strlen(str2));
  if (len1 != len2) {
    TARVIK_LOGD("len1(%d) != len2(%d), str1: %s, str2: %s", len1, len2, str1, str2);
    return -103;
  }
  for (int i = 0; i < len1; ++i) {
    if (str1[i] != str2[i]) {
      TARVIK_LOGD("str1[%d]('%c') != str2[%d]('%c'), str1(%d): %s, str2(%d): %s", i, str1[i], i,
                  str2[i], len1, str1, len2, str2);
      return 104;
    }
  }
  TARVIK_LOGD("same, str1(%d): %s, str2(%d): %s", len1, str1, len2, str2);
  return 0;
}

void tarvik_str_print(const char *str) {
  if (str == nullptr) {
    TARVIK_LOGD("str is NULL");
    return;
  }
  const int len = static_cast<int>(strlen(str));
  TARVIK_LOGD("Will print str(len = %d): %s", len, str);
  for (int i = 0; i < len; ++i) {
    TARVIK_LOGD("str[%d] = %c(%d)", i, str[i], str[i]);
  }
}

void tarvik_str_rpl(const char *in, char *out, int outlen, const char *src, const char *dst) {
  if (src == nullptr) {
    TARVIK_LOGE("src is null");
    return;
  }
  if (dst == nullptr) {
    TARVIK_LOGE("dst is null");
    return;
  }
  if (in == nullptr) {
    TARVIK_LOGE("in is null");
    return;
  }
  if (out == nullptr) {
    TARVIK_LOGE("out is null");
    return;
  }
  const int src_len = static_cast<int>(strlen(src));
  const int dst_len = static_cast<int>(strlen(dst));
  if (src_len < 1) {
    TARVIK_LOGE("src_len(%d) can not <= 0", src_len);
    return;
  }
  if (dst_len < 0) {
    TARVIK_LOGE("dst_len(%d) can not < 0", dst_len);
    return;
  }
  if (in[0] == '\0') {
    TARVIK_LOGE("in is empty");
    return;
  }
  /* `out` must be terminated within its capacity; one that is not counts as full. */
  int len = outlen > 0 ? static_cast<int>(strnlen(out, static_cast<size_t>(outlen))) : 0;
  const char *p = in;
  while (*p != '\0') {
    if (strncmp(p, src, static_cast<size_t>(src_len)) == 0) {
      if (len + dst_len + 1 >= outlen) {
        TARVIK_LOGE("len(%d) + dst_len(%d) + 1 >= outlen(%d), abort", len, dst_len, outlen);
        return;
      }
      memcpy(out + len, dst, static_cast<size_t>(dst_len) + 1);
      len += dst_len;
      p += src_len;
    } else {
      if (len + 2 >= outlen) {
        TARVIK_LOGE("len(%d) + 1 + 1 >= outlen(%d), abort", len, outlen);
        return;
      }
      out[len++] = *p++;
      out[len] = '\0';
    }
  }
}

void tarvik_str_add_prefix(const char *in, char *out, int outlen, const char *prefix) {
  if (prefix == nullptr) {
    TARVIK_LOGE("prefix is null");
    return;
  }
  if (in == nullptr) {
    TARVIK_LOGE("in is null");
    return;
  }
  if (out == nullptr) {
    TARVIK_LOGE("out is null");
    return;
  }
  const int in_len = static_cast<int>(strlen(in));
  const int prefix_len = static_cast<int>(strlen(prefix));
  if (in_len + prefix_len >= outlen) {
    TARVIK_LOGE("in_len(%d) + prefix_len(%d) can not >= outlen(%d)", in_len, prefix_len, outlen);
    return;
  }
  /* Content already in `out` must leave room too, or the append would run past `outlen`. */
  const int out_len = static_cast<int>(strnlen(out, static_cast<size_t>(outlen)));
  if (out_len + in_len + prefix_len >= outlen) {
    TARVIK_LOGE("out_len(%d) + in_len(%d) + prefix_len(%d) can not >= outlen(%d)", out_len, in_len,
                prefix_len, outlen);
    return;
  }
  memcpy(out + out_len, prefix, static_cast<size_t>(prefix_len));
  memcpy(out + out_len + prefix_len, in, static_cast<size_t>(in_len) + 1);
}

namespace {

void map_ascii(char *str, char from, char to) {
  for (; *str != '\0'; ++str) {
    if (*str >= from && *str <= from + ('Z' - 'A')) {
      *str = static_cast<char>(*str - from + to);
    }
  }
}

}  // namespace

void tarvik_str_tolower(char *str_in_out) {
  if (str_in_out == nullptr) {
    TARVIK_LOGE("str_in_out is null");
    return;
  }
  map_ascii(str_in_out, 'A', 'a');
}

void tarvik_str_toupper(char *str_in_out) {
  if (str_in_out == nullptr) {
    TARVIK_LOGE("str_in_out is null");
    return;
  }
  map_ascii(str_in_out, 'a', 'A');
}

bool tarvik_str_starts_with(const char *str, const char *prefix) {
  if (str == nullptr || prefix == nullptr) {
    return false;
  }
  return strncmp(str, prefix, strlen(prefix)) == 0;
}

bool tarvik_get_hex_str(char *hex_str, int len_max, const uint8_t *ptr_data, int data_len) {
  if (hex_str == nullptr) {
    TARVIK_LOGE("hex_str is null");
    return false;
  }
  if (len_max <= 4) {
    TARVIK_LOGE("len_max is invalid");
    return false;
  }
  if (ptr_data == nullptr) {
    TARVIK_LOGE("ptr_data is null");
    return false;
  }
  memset(hex_str, 0, static_cast<size_t>(len_max));
  int len = 0;
  for (int i = 0; i < data_len && len + 4 < len_max; ++i) {
    len += snprintf(hex_str + len, static_cast<size_t>(len_max - len), " %02X", ptr_data[i]);
  }
  hex_str[len_max - 1] = '\0';
  return true;
}

bool tarvik_string_list_contain(const char *const *str_list, uint32_t size_list, const char *str) {
  if (str == nullptr) {
    TARVIK_LOGE("str is NULL");
    return false;
  }
  if (str_list == nullptr) {
    TARVIK_LOGE("str_list is NULL");
    return false;
  }
  if (size_list == 0) {
    TARVIK_LOGE("size_list(%u) can not <= 0", size_list);
    return false;
  }
  for (uint32_t i = 0; i < size_list; ++i) {
    if (str_list[i] != nullptr && strstr(str, str_list[i]) != nullptr) {
      TARVIK_LOGD("find str: %s, size_list(%u)", str, size_list);
      return true;
    }
  }
  TARVIK_LOGE("not find str: %s, size_list(%u)", str, size_list);
  return false;
}

/* ---------------------------------------------------------------------------------------------
 * File utilities
 * ------------------------------------------------------------------------------------------- */

namespace {

constexpr size_t kCopyBufSize = 10240;
constexpr size_t kTreePathSize = 1024;

/* Writes all `count` bytes of `buf`; false on an error, a short write that makes no progress or
 * a result larger than asked. Lines carry the name `func` of the copy it serves. */
bool write_chunk(const char *func, int fd, const char *buf, ssize_t count) {
  ssize_t written = write(fd, buf, static_cast<size_t>(count));
  TARVIK_LOGD_FN(
      func, "Start to write tgt file: bytes_read = %d, bytes_write = %d, errno = %d, EINTR = %d",
      static_cast<int>(count), static_cast<int>(written), errno, EINTR);
  for (;;) {
    if (written < 0) {
      TARVIK_LOGE_FN(func, "Error happen during writing tgt file");
      return false;
    }
    if (written == 0) {
      TARVIK_LOGE_FN(func, "No progress during writing tgt file, bytes_left = %d",
                     static_cast<int>(count));
      return false;
    }
    if (written > count) {
      TARVIK_LOGE_FN(func, "Ohter errors happen during writing tgt file");
      return false;
    }
    count -= written;
    if (count == 0) {
      TARVIK_LOGD_FN(func, "Write done with success.");
      return true;
    }
    buf += written;
    written = write(fd, buf, static_cast<size_t>(count));
    TARVIK_LOGD_FN(
        func,
        "Continue to write tgt file: bytes_read = %d, bytes_write = %d, errno = %d, EINTR = %d",
        static_cast<int>(count), static_cast<int>(written), errno, EINTR);
  }
}

}  // namespace

int tarvik_copy_file(const char *src, const char *tgt) {
  if (src == nullptr) {
    TARVIK_LOGE("src is null");
    return -1;
  }
  if (tgt == nullptr) {
    TARVIK_LOGE("tgt is null");
    return -2;
  }
  TARVIK_LOGD("src: %s, tgt: %s", src, tgt);
  const int src_fd = open(src, O_RDONLY | O_CLOEXEC);
  if (src_fd < 0) {
    TARVIK_LOGE("src open failed");
    return -3;
  }
  const int tgt_fd = open(tgt, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0777);
  if (tgt_fd < 0) {
    TARVIK_LOGE("tgt open failed");
    close(src_fd);
    return -4;
  }

  std::vector<char> buf(kCopyBufSize, 0);
  int result = 0;
  ssize_t count = read(src_fd, buf.data(), buf.size());
  TARVIK_LOGD("Start to read src file: bytes_read = %d, errno = %d, EINTR = %d",
              static_cast<int>(count), errno, EINTR);
  while (count != 0) {
    if (count < 0) {
      TARVIK_LOGE("Error happen during reading src file");
      result = -5;
      break;
    }
    if (!write_chunk(__func__, tgt_fd, buf.data(), count)) {
      result = -5;
      break;
    }
    count = read(src_fd, buf.data(), buf.size());
    TARVIK_LOGD("Continue to read src file: bytes_read = %d, errno = %d, EINTR = %d",
                static_cast<int>(count), errno, EINTR);
  }
  if (result != 0) {
    TARVIK_LOGE("Error happen during writing tgt file, abort copy");
  }
  close(src_fd);
  close(tgt_fd);
  return result;
}

int tarvik_clear_file_context(const char *file_name) {
  if (file_name == nullptr) {
    TARVIK_LOGE("file_name is null");
    return 0;
  }
  FILE *file = fopen(file_name, "we");
  if (file == nullptr) {
    TARVIK_LOGE("fopen fail, file_name: %s, errno = %d", file_name, errno);
    return 0;
  }
  fclose(file);
  TARVIK_LOGD("ok, file_name: %s", file_name);
  return 0;
}

int tarvik_delete_file(const char *file_name) {
  if (file_name == nullptr) {
    TARVIK_LOGE("file_name is null");
    return 1;
  }
  const int ret = remove(file_name);
  if (ret != 0) {
    TARVIK_LOGE("fail, file_name: %s, ret = %d, errno = %d", file_name, ret, errno);
    return ret;
  }
  TARVIK_LOGD("ok, file_name: %s", file_name);
  return 0;
}

int tarvik_delete_directory(const char *dir_path) {
  if (dir_path == nullptr) {
    TARVIK_LOGE("dir_path is null");
    return 1;
  }
  DIR *dir = opendir(dir_path);
  if (dir == nullptr) {
    TARVIK_LOGE("dir_path open fail");
    return 2;
  }
  char path[kTreePathSize];
  for (const struct dirent *entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) {
      continue;
    }
    const int len = snprintf(path, sizeof(path), "%s/%s", dir_path, entry->d_name);
    if (len < 0 || static_cast<size_t>(len) >= sizeof(path)) {
      /* A cut path names some other file; leave the entry (the final rmdir then fails). */
      TARVIK_LOGE("path too long, skip: %s/%s", dir_path, entry->d_name);
      continue;
    }
    struct stat st;
    if (lstat(path, &st) != 0) {
      continue;
    }
    if (S_ISDIR(st.st_mode)) {
      tarvik_delete_directory(path);
    } else {
      remove(path);
    }
  }
  closedir(dir);
  const int ret = rmdir(dir_path);
  if (ret != 0) {
    TARVIK_LOGE("fail, dir_path: %s, ret = %d, errno = %d", dir_path, ret, errno);
    return ret;
  }
  TARVIK_LOGD("ok, dir_path: %s", dir_path);
  return 0;
}

/* ---------------------------------------------------------------------------------------------
 * Threads and service start
 * ------------------------------------------------------------------------------------------- */

pthread_t tarvik_create_pthread(const char *name, void *(*thread_proc)(void *), void *arg) {
  TARVIK_LOG_ENTRY();
  if (name != nullptr) {
    TARVIK_LOGD("pthread[%s] will be created", name);
  } else {
    TARVIK_LOGD("pthread[Unkown name] will be created");
  }
  pthread_t thread = 0;
  if (thread_proc == nullptr) {
    TARVIK_LOGE("p_thread_proc_cb is NULL, do nothing");
  } else {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    const int result = pthread_create(&thread, &attr, thread_proc, arg);
    pthread_attr_destroy(&attr);
    if (result != 0) {
      thread = 0;
    }
    TARVIK_LOGD("result = %d", result);
  }
  TARVIK_LOG_EXIT();
  return thread;
}

int tarvik_start_service(const char *service_name) {
  if (service_name == nullptr) {
    TARVIK_LOGE("service_name is NULL");
    return -1;
  }
  TARVIK_LOGD("service_name: %s", service_name);
  return tarvik_set_property_value("ctl.start", service_name);
}

/* ---------------------------------------------------------------------------------------------
 * Process look-up
 * ------------------------------------------------------------------------------------------- */

namespace {

bool g_pid_record_loaded = false;
bool g_status_name_loaded = false;

/* The "Name:" line of a status file: the text after the key and its tab, trimmed. `name` is
 * 256 bytes. */
void name_from_status_line(const char *line, char *name) {
  strncpy(name, line + 6, 249);
  name[255] = '\0';
  tarvik_str_trim(name, 255);
}

/* Reads the first line of `path` (at most 253 characters) into the zeroed 256-byte `line`.
 * Returns the open file, or NULL when it cannot be opened; `*read_ok` tells whether a line was
 * read. */
FILE *read_first_line(const char *path, char *line, bool *read_ok) {
  memset(line, 0, 256);
  FILE *file = fopen(path, "re");
  if (file != nullptr) {
    *read_ok = fgets(line, 254, file) != nullptr;
    line[255] = '\0';
  }
  return file;
}

/* The basename of this process's first command-line word into `info->p_name`. */
void tarvik_get_name_by_pid(tarvik_pid_info_t *info) {
  char path[256];
  char line[256];
  snprintf(path, sizeof(path), "/proc/%d/cmdline", static_cast<int>(getpid()));
  TARVIK_LOGD("proc_pid_path: %s", path);
  bool read_ok = false;
  FILE *file = read_first_line(path, line, &read_ok);
  if (file == nullptr) {
    TARVIK_LOGE("fopen fail");
    return;
  }
  if (!read_ok) {
    TARVIK_LOGE("fgets fail");
  } else {
    TARVIK_LOGD("proc_pid_buf: %s", line);
    const char *slash = tarvik_str_find_right(line, '/');
    const char *name = line;
    if (slash != nullptr) {
      name = slash + 1;
      TARVIK_LOGD("str_pid_name: %s", slash);
    } else {
      TARVIK_LOGD("proc_pid_buf should be name");
      TARVIK_LOGD("str_pid_name: %s", line);
    }
    strncpy(info->p_name, name, sizeof(info->p_name) - 1);
    info->p_name[sizeof(info->p_name) - 1] = '\0';
    TARVIK_LOGD("p_pid_info->p_name: %s", info->p_name);
  }
  TARVIK_LOGD("close fp");
  fclose(file);
}

}  // namespace

const char *tarvik_get_current_pid_name_ex() {
  if (g_status_name_loaded) {
    return g_pid_info.p_name;
  }
  g_status_name_loaded = true;

  char path[256];
  char line[256];
  snprintf(path, sizeof(path), "/proc/%d/status", static_cast<int>(getpid()));
  bool read_ok = false;
  FILE *file = read_first_line(path, line, &read_ok);
  if (file == nullptr) {
    tarvik_utils_syslog_err("tarvik_get_current_pid_name_ex, fopen fail");
    return g_pid_info.p_name;
  }
  if (!read_ok) {
    tarvik_utils_syslog_err("tarvik_get_current_pid_name_ex, fgets fail");
    fclose(file);
    return g_pid_info.p_name;
  }
  tarvik_utils_syslog_dbg("tarvik_get_current_pid_name_ex, proc_pid_buf = %s", line);
  name_from_status_line(line, g_pid_info.p_name);
  tarvik_utils_syslog_dbg("tarvik_get_current_pid_name_ex, g_pid_info.p_name = %s",
                          g_pid_info.p_name);
  fclose(file);
  return g_pid_info.p_name;
}

void tarvik_get_current_pid_info(tarvik_pid_info_t *p_pid_info) {
  TARVIK_LOG_ENTRY();
  if (p_pid_info == nullptr) {
    TARVIK_LOGE("p_pid_info is NULL");
    TARVIK_LOG_EXIT();
    return;
  }
  memset(p_pid_info, 0, sizeof(*p_pid_info));
  p_pid_info->p_id = static_cast<int32_t>(getpid());
  tarvik_get_name_by_pid(p_pid_info);
  TARVIK_LOGD("p_id: %d, p_name: %s", static_cast<int>(p_pid_info->p_id), p_pid_info->p_name);
  TARVIK_LOG_EXIT();
}

namespace {

void load_pid_record() {
  if (!g_pid_record_loaded) {
    g_pid_record_loaded = true;
    tarvik_get_current_pid_info(&g_pid_info);
  }
}

}  // namespace

int tarvik_utils_get_pid_number(void) {
  load_pid_record();
  return g_pid_info.p_id;
}

const char *tarvik_utils_get_pid_name(void) {
  load_pid_record();
  return g_pid_info.p_name;
}

void tarvik_get_pid_by_name(int *pid, char *task_name) {
  if (pid == nullptr) {
    TARVIK_LOGE("pid fail");
    return;
  }
  if (task_name == nullptr) {
    TARVIK_LOGE("task_name fail");
    return;
  }
  TARVIK_LOGD("task_name: %s", task_name);
  DIR *dir = opendir("/proc");
  if (dir == nullptr) {
    TARVIK_LOGE("opendir fail");
    return;
  }
  char path[256];
  char line[256];
  char task_name_tmp[256];
  for (const struct dirent *entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0 ||
        entry->d_type != DT_DIR) {
      continue;
    }
    const int len = snprintf(path, sizeof(path), "/proc/%s/status", entry->d_name);
    if (len < 0 || static_cast<size_t>(len) >= sizeof(path)) {
      continue; /* not a process directory: pids are short */
    }
    bool read_ok = false;
    FILE *file = read_first_line(path, line, &read_ok);
    if (file == nullptr) {
      continue;
    }
    if (!read_ok) {
      fclose(file);
      continue;
    }
    memset(task_name_tmp, 0, sizeof(task_name_tmp));
    name_from_status_line(line, task_name_tmp);
    TARVIK_LOGD("proc_pid_buf: %s", line);
    TARVIK_LOGD("task_name_tmp: %s, task_name: %s", task_name_tmp, task_name);
    if (strcmp(task_name, task_name_tmp) == 0) {
      *pid = atoi(entry->d_name);
      TARVIK_LOGD("pid: %d", *pid);
      fclose(file);
      break;
    }
    TARVIK_LOGD("continue, task_name is not same with task_name_tmp");
    fclose(file);
  }
  TARVIK_LOGD("close dir");
  closedir(dir);
}
