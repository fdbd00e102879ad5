// Modem restart level: the level property, its backup and the waits around a restart.
#include "tarvik_utils_cust.h"

#include <errno.h>
#include <string.h>
#include <time.h>

#include "tarvik_utils_cmn.h"

namespace {

constexpr const char *kLevelProp = "persist.vendor.ssr.restart_level";
constexpr const char *kBakProp = "persist.vendor.ssr.type_bak";
constexpr const char *kBakFlagProp = "persist.vendor.ssr.type_bak_flag";
constexpr const char *kSsrWaitProp = "persist.radio.ssr_wait_s";
constexpr const char *kModemWaitProp = "persist.radio.modem_wait_s";
constexpr const char *kLevelSsr = "ALL_ENABLE";
constexpr const char *kLevelDump = "ALL_DISABLE";
constexpr const char *kBakDone = "yes";
constexpr const char *kEmptyName = "CONFIG_EMPTY";
constexpr int kSsrWaitDefault = 5;
constexpr int kModemWaitDefault = 3;
// Logged where the level was once taken from a start-up flag; this library has none.
constexpr int kStartFlag = 0;

struct Prop {
  char value[TARVIK_PROPERTY_BUF_SIZE];
  explicit Prop(const char *name) {
    memset(value, 0, sizeof(value));
    tarvik_get_property_value(name, value, "");
  }
  bool empty() const { return value[0] == '\0'; }
  bool is(const char *text) const { return tarvik_str_cmp(value, text) == 0; }
};

void SleepSeconds(int seconds) {
  struct timespec left = {seconds, 0};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

// The two waits differ in their property, default and the wording of two lines; `func` is the
// exported function the lines are logged under.
uint32_t Wait(const char *func, int seconds, const char *prop, int default_s, bool ssr) {
  int wait = seconds;
  if (wait < 0) {
    tarvik_get_property_value_from_int(prop, &wait, default_s);
  }
  if (ssr) {
    TARVIK_LOGD_FN(func, "ssr wait_s = %d", wait);
  } else {
    TARVIK_LOGD_FN(func, "wait_s = %d", wait);
  }
  if (wait < 1) {
    if (ssr) {
      TARVIK_LOGD_FN(func, "modem ssr will not wait");
    } else {
      TARVIK_LOGD_FN(func, "will not wait");
    }
    return static_cast<uint32_t>(wait);
  }
  TARVIK_LOGD_FN(func, "wait-start(%ds) ...", wait);
  SleepSeconds(wait);
  TARVIK_LOGD_FN(func, "wait-end(%ds)", wait);
  return static_cast<uint32_t>(wait);
}

}  // namespace

extern "C" {

TARVIK_EXPORT uint32_t tarvik_get_modem_ssr_type(void) {
  const Prop flag(kBakFlagProp);
  const Prop bak(kBakProp);
  const Prop level(kLevelProp);
  TARVIK_LOGD("g_ssr_start_flag: %d, ssr_type_bak: %s, ssr_type_bak_flag: %s", kStartFlag,
              bak.value, flag.value);
  if (flag.empty()) {
    tarvik_set_property_value(kBakProp, level.value);
    tarvik_set_property_value(kBakFlagProp, kBakDone);
    TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d, and save", level.value,
                MODEM_RESTART_LEVEL_ID_DEF);
    return MODEM_RESTART_LEVEL_ID_DEF;
  }
  if (level.is(bak.value)) {
    TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d", level.value,
                MODEM_RESTART_LEVEL_ID_DEF);
    return MODEM_RESTART_LEVEL_ID_DEF;
  }
  if (level.is(kLevelSsr)) {
    TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_SSR: %s, type: %d", level.value,
                MODEM_RESTART_LEVEL_ID_SSR);
    return MODEM_RESTART_LEVEL_ID_SSR;
  }
  if (level.empty() || level.is(kLevelDump)) {
    TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s, type: %d", level.value,
                MODEM_RESTART_LEVEL_ID_DUMP);
    return MODEM_RESTART_LEVEL_ID_DUMP;
  }
  TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_INVALID: %s, type: %d", level.value,
              MODEM_RESTART_LEVEL_ID_INVALID);
  return MODEM_RESTART_LEVEL_ID_INVALID;
}

TARVIK_EXPORT uint32_t tarvik_set_modem_ssr_type(uint32_t type) {
  const Prop flag(kBakFlagProp);
  const Prop level(kLevelProp);
  TARVIK_LOGD("g_ssr_start_flag: %d, type: %d, ssr_type_bak_flag: %s", kStartFlag, type,
              flag.value);
  char next[TARVIK_PROPERTY_BUF_SIZE];
  memset(next, 0, sizeof(next));
  switch (type) {
    case MODEM_RESTART_LEVEL_ID_DEF: {
      if (flag.empty()) {
        TARVIK_LOGD("PROP - NO ssr type def, do nothing");
        return 0;
      }
      const Prop bak(kBakProp);
      if (level.is(bak.value)) {
        TARVIK_LOGD("PROP - ssr type is def, do nothing");
        return 0;
      }
      memcpy(next, bak.value, sizeof(next));
      TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_DEF: %s", next);
      break;
    }
    case MODEM_RESTART_LEVEL_ID_SSR:
      if (level.is(kLevelSsr)) {
        TARVIK_LOGD("ssr type is enable, do nothing");
        return 0;
      }
      strcpy(next, kLevelSsr);
      TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_SSR: %s", next);
      break;
    case MODEM_RESTART_LEVEL_ID_DUMP:
      if (level.is(kLevelDump)) {
        TARVIK_LOGD("ssr type is disable, do nothing");
        return 0;
      }
      strcpy(next, kLevelDump);
      TARVIK_LOGD("PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s", next);
      break;
    default:
      TARVIK_LOGD("TARVIK_SSR_START_WITH_PROP, invalid ssr type");
      return 0;
  }
  tarvik_set_property_value(kLevelProp, next);
  if (flag.empty()) {
    tarvik_set_property_value(kBakProp, next);
    tarvik_set_property_value(kBakFlagProp, kBakDone);
  } else {
    TARVIK_LOGD("TARVIK_SSR_START_WITH_PROP, already bak");
  }
  return 1;
}

TARVIK_EXPORT void tarvik_get_modem_ssr_type_name(char *name, uint32_t *in_out_len) {
  if (name == nullptr) {
    TARVIK_LOGD("name is NULL");
    return;
  }
  if (in_out_len == nullptr) {
    TARVIK_LOGD("in_out_len is NULL");
    return;
  }
  const uint32_t cap = *in_out_len;
  if (cap <= 1) {
    TARVIK_LOGD("in_len(%d) is invalid, should be > 1", static_cast<int>(cap));
    return;
  }
  const Prop level(kLevelProp);
  const char *text = level.value;
  uint32_t n = static_cast<uint32_t>(strlen(text));
  TARVIK_LOGD("out_len: %d, ssr_level: %s", static_cast<int>(n), text);
  if (n == 0) {
    text = kEmptyName;
    n = static_cast<uint32_t>(strlen(kEmptyName));
    TARVIK_LOGD("out_len is invalid, set name to invalid, out_len: %d", static_cast<int>(n));
  }
  if (n >= cap) {
    n = cap - 1;
    TARVIK_LOGD("out_len is out of range, set it to in_len, out_len: %d", static_cast<int>(n));
  }
  memcpy(name, text, n);
  name[n] = '\0';
  *in_out_len = n;
  TARVIK_LOGD("out_len: %d, name: %s", static_cast<int>(n), name);
}

TARVIK_EXPORT uint32_t tarvik_modem_ssr_wait_s(int seconds) {
  return Wait(__func__, seconds, kSsrWaitProp, kSsrWaitDefault, true);
}

TARVIK_EXPORT uint32_t tarvik_modem_wait_s(int seconds) {
  return Wait(__func__, seconds, kModemWaitProp, kModemWaitDefault, false);
}

}  // extern "C"
