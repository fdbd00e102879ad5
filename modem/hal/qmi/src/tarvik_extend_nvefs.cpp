// NV items and modem files over REQUEST_ID_NVEFS and REQUEST_ID_NV_ITEM.
//
// Each validated operation runs as one body under its lock (see Locked), so that every refusal
// and every failure leaves through the same unlock. Steps shared by several exported functions
// take the exported function's name and log under it.
#include "tarvik_extend_nvefs.h"

#include <pthread.h>
#include <stddef.h>
#include <string.h>

#include "tarvik_cmn_request.h"
#include "tarvik_extend_api.h"
#include "tarvik_utils_cmn.h"

static_assert(sizeof(tarvik_nvefs_req_t) == TARVIK_NVEFS_REQ_SIZE, "NVEFS request layout");
static_assert(offsetof(tarvik_nvefs_req_t, len_all) == 108, "NVEFS request layout");
static_assert(offsetof(tarvik_nvefs_req_t, data) == 120, "NVEFS request layout");
static_assert(sizeof(tarvik_nvefs_rsp_t) == TARVIK_NVEFS_RSP_SIZE, "NVEFS response layout");
static_assert(offsetof(tarvik_nvefs_rsp_t, result) == 16, "NVEFS response layout");

// A debug line for subscription `sub` under the name of the exported function `func`.
#define NVEFS_LOGD(func, sub, fmt, ...) \
  TARVIK_LOG_AT(TARVIK_LOG_MASK_DEBUG, TARVIK_LOG_PRIO_DEBUG, sub, func, fmt, ##__VA_ARGS__)

namespace {

pthread_mutex_t g_nv_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_efs_lock = PTHREAD_MUTEX_INITIALIZER;

constexpr uint32_t kEfsReadStopAbove = TARVIK_EFS_FILE_MAX - 1;  // 102409
constexpr int kBackupTimeoutMs = 10000;
constexpr int kRestoreTimeoutMs = 60000;
constexpr int kGoldenCopyTimeoutMs = 10000;
constexpr uint32_t kReadPathCopy = 101;  // local copy of a read path
constexpr uint32_t kReadPathTerminator = 99;

// Bytes of response data that actually arrived, given the length the channel copied.
uint32_t ReceivedData(uint32_t rsp_len, size_t data_offset, uint32_t data_max) {
  if (rsp_len <= data_offset) {
    return 0;
  }
  const uint32_t held = rsp_len - static_cast<uint32_t>(data_offset);
  return held < data_max ? held : data_max;
}

uint32_t Min(uint32_t a, uint32_t b) {
  return a < b ? a : b;
}

void ZeroNvefs(tarvik_nvefs_req_t *req, tarvik_nvefs_rsp_t *rsp) {
  memset(req, 0, sizeof(*req));
  memset(rsp, 0, sizeof(*rsp));
}

// One NVEFS exchange; returns the mapped channel status. *rsp_len is the length copied.
int ExchangeNvefs(tarvik_nvefs_req_t *req, tarvik_nvefs_rsp_t *rsp, uint32_t *rsp_len) {
  memset(rsp, 0, sizeof(*rsp));
  *rsp_len = TARVIK_NVEFS_RSP_SIZE;
  return tarvik_qmi_result_map(
      tarvik_extend_qmi_send_sync(REQUEST_ID_NVEFS, req, TARVIK_NVEFS_REQ_SIZE, rsp, rsp_len));
}

// One raw NV item exchange of `op` with its arguments and `len` bytes of `payload`, through the
// long-process channel when `long_msec` is positive. Returns the channel status; the answer and
// the length copied land in *rsp and *rsp_len.
int ExchangeNvItem(uint32_t op, uint32_t arg1, uint32_t arg2, const uint8_t *payload, uint32_t len,
                   int long_msec, tarvik_nv_item_rsp_t *rsp, uint32_t *rsp_len) {
  tarvik_nv_item_req_t req;
  memset(&req, 0, sizeof(req));
  req.op = op;
  req.arg1 = arg1;
  req.arg2 = arg2;
  req.len = len;
  if (len > 0) {
    memcpy(req.payload, payload, len);
  }
  memset(rsp, 0, sizeof(*rsp));
  *rsp_len = TARVIK_NV_ITEM_RSP_SIZE;
  if (long_msec > 0) {
    return tarvik_extend_qmi_send_sync_long_process(
        REQUEST_ID_NV_ITEM, &req, TARVIK_NV_ITEM_REQ_SIZE, rsp, rsp_len, long_msec);
  }
  return tarvik_extend_qmi_send_sync(REQUEST_ID_NV_ITEM, &req, TARVIK_NV_ITEM_REQ_SIZE, rsp,
                                     rsp_len);
}

// A raw exchange whose caller wants only the channel failure, else the modem's result.
uint32_t RawNvItemOp(uint32_t op, uint32_t arg1, uint32_t arg2, const uint8_t *payload,
                     uint32_t len, int long_msec) {
  tarvik_nv_item_rsp_t rsp;
  uint32_t rsp_len = 0;
  const int status = ExchangeNvItem(op, arg1, arg2, payload, len, long_msec, &rsp, &rsp_len);
  return status != 0 ? static_cast<uint32_t>(status) : static_cast<uint32_t>(rsp.result);
}

// Checks of one (subscription, path, length) triple; a refusal is logged for subscription
// `log_sub` and returned. The texts differ between the source and target of compare/copy.
struct PathTexts {
  const char *sub;
  const char *null_path;
  const char *bad_len;
};
constexpr PathTexts kPathTexts{"sub invalid", "efs_path is null", "len invalid"};
constexpr PathTexts kSrcTexts{"sub_id_src invalid", "efs_path_src is null", "path_len_src invalid"};
constexpr PathTexts kTgtTexts{"sub_id_tgt invalid", "efs_path_tgt is null", "path_len_tgt invalid"};

int CheckPath(const char *func, uint32_t log_sub, uint32_t sub, const void *path, uint32_t len,
              uint32_t max_len, const PathTexts &texts) {
  const char *msg = nullptr;
  int refusal = 0;
  if (!tarvik_check_sub_id(sub)) {
    msg = texts.sub;
    refusal = TARVIK_FEAT_ERR_SUB_INVALID;
  } else if (path == nullptr) {
    msg = texts.null_path;
    refusal = TARVIK_FEAT_ERR_PATH_NULL;
  } else if (len == 0 || len > max_len) {
    msg = texts.bad_len;
    refusal = TARVIK_FEAT_ERR_PATH_LEN;
  }
  if (refusal != 0) {
    NVEFS_LOGD(func, log_sub, "%s", msg);
  }
  return refusal;
}

// Fills operation, subscription and the first path; keeps a terminated copy for the log.
void FillPath(tarvik_nvefs_req_t *req, uint32_t op, uint32_t sub, const void *path, uint32_t len,
              char (&shown)[TARVIK_NVEFS_PATH_FIELD]) {
  memset(shown, 0, sizeof(shown));
  memcpy(shown, path, Min(len, TARVIK_EFS_PATH_MAX));
  req->op = static_cast<uint8_t>(op);
  req->sub = static_cast<uint8_t>(sub);
  req->path_len = static_cast<uint8_t>(len);
  memcpy(req->path, shown, Min(len, TARVIK_NVEFS_PATH_FIELD));
}

// Runs one operation of the exported function `func` under `lock`, between its entry and exit
// lines; `body` gets the name to log under, and each of its returns passes the same unlock.
// `intro` (a file operation's arguments line) is written before the lock is taken, so that a
// caller blocked behind another operation has left a trace of what it asked for.
template <typename Intro, typename Body>
int Locked(const char *func, pthread_mutex_t *lock, Intro intro, Body body) {
  NVEFS_LOGD(func, TARVIK_SUB_NONE, "function entry ------------->");
  intro(func);
  pthread_mutex_lock(lock);
  const int result = body(func);
  pthread_mutex_unlock(lock);
  NVEFS_LOGD(func, TARVIK_SUB_NONE, "function exit <-------------");
  return result;
}

// An NV operation logs its arguments under the lock.
template <typename Body>
int Locked(const char *func, pthread_mutex_t *lock, Body body) {
  const auto no_intro = [](const char *) {};
  return Locked(func, lock, no_intro, body);
}

// The verdict of a one-shot NVEFS exchange: a failed channel first, then the modem's refusal,
// else success.
int Verdict(const char *func, int mapped, const tarvik_nvefs_rsp_t &rsp, uint32_t sub,
            const char *fail_text) {
  NVEFS_LOGD(func, sub, "result = %d, rsp.result = %d", mapped, rsp.result);
  if (mapped != 0) {
    NVEFS_LOGD(func, sub, "%s", fail_text);
    return mapped;
  }
  if (rsp.result != 0) {
    NVEFS_LOGD(func, sub, "qmi response fail");
    return rsp.result;
  }
  return 0;
}

// Subscription and item number of a validated NV operation; subscription 2 may only read item
// 550. Logs and returns the refusal, or 0.
int CheckNvTarget(const char *func, uint32_t sub_id, uint32_t nv_id, bool read) {
  if (sub_id >= 2) {
    if (read && sub_id == 2 && nv_id == TARVIK_NV_SUB2_ITEM) {
      NVEFS_LOGD(func, sub_id, "sub cust case for tt");
      return 0;
    }
    NVEFS_LOGD(func, sub_id, "sub invalid");
    return TARVIK_FEAT_ERR_SUB_INVALID;
  }
  if (nv_id > TARVIK_NV_ID_MAX) {
    NVEFS_LOGD(func, sub_id, "nv_id is out range(%d)", TARVIK_NV_ID_MAX);
    return TARVIK_FEAT_ERR_NV_ID_RANGE;
  }
  return 0;
}

// The caller's buffer of a read: present, with a length and a non-zero capacity.
int CheckReadBuffer(const char *func, uint32_t sub_id, const void *buf, const uint32_t *buf_len) {
  if (buf == nullptr) {
    NVEFS_LOGD(func, sub_id, "buf is null");
    return TARVIK_FEAT_ERR_BUF_NULL;
  }
  if (buf_len == nullptr) {
    NVEFS_LOGD(func, sub_id, "p_buf_len is null");
    return TARVIK_FEAT_ERR_LEN_INVALID;
  }
  NVEFS_LOGD(func, sub_id, "buf_len: %d", *buf_len);
  if (*buf_len == 0) {
    NVEFS_LOGD(func, sub_id, "buf_len is invalid");
    return TARVIK_FEAT_ERR_LEN_INVALID;
  }
  return 0;
}

// The caller's data of a write: present, with 1 to `max_len` bytes.
int CheckWriteBuffer(const char *func, uint32_t sub_id, const void *buf, uint32_t buf_len,
                     uint32_t max_len) {
  if (buf == nullptr) {
    NVEFS_LOGD(func, sub_id, "buf is null");
    return TARVIK_FEAT_ERR_BUF_NULL;
  }
  if (buf_len == 0 || buf_len > max_len) {
    NVEFS_LOGD(func, sub_id, "buf_len is invalid");
    return TARVIK_FEAT_ERR_LEN_INVALID;
  }
  return 0;
}

// One validated NV exchange: builds the request (with `len` bytes of `data` for a write), sends
// it and returns the mapped channel failure, else the modem's result.
int ExchangeNvItemOp(const char *func, uint32_t op, uint32_t sub_id, uint32_t nv_id,
                     const void *data, uint32_t len, tarvik_nvefs_rsp_t *rsp, uint32_t *rsp_len) {
  tarvik_nvefs_req_t req;
  ZeroNvefs(&req, rsp);
  req.op = static_cast<uint8_t>(op);
  req.sub = static_cast<uint8_t>(sub_id);
  req.item = static_cast<uint16_t>(nv_id);
  if (len != 0) {
    req.len_all = len;
    memcpy(req.data, data, len);
  }
  return Verdict(func, ExchangeNvefs(&req, rsp, rsp_len), *rsp, sub_id,
                 "tarvik_extend_qmi_send_sync fail");
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------------------------------
// NV items, validated path
// ---------------------------------------------------------------------------------------------

TARVIK_EXPORT int tarvik_nv_read(uint32_t sub_id, uint32_t nv_id, void *buf, uint32_t *buf_len) {
  return Locked(__func__, &g_nv_lock, [&](const char *fn) {
    int result = 0;
    NVEFS_LOGD(fn, sub_id, "tarvik_nv_read, sub_id %d, nv_id: %d", sub_id, nv_id);
    result = CheckNvTarget(fn, sub_id, nv_id, true);
    if (result != 0) {
      return result;
    }
    result = CheckReadBuffer(fn, sub_id, buf, buf_len);
    if (result != 0) {
      return result;
    }
    const uint32_t capacity = *buf_len;
    tarvik_nvefs_rsp_t rsp;
    uint32_t rsp_len = 0;
    result = ExchangeNvItemOp(fn, NVEFS_OP_NV_READ, sub_id, nv_id, nullptr, 0, &rsp, &rsp_len);
    if (result != 0) {
      return result;
    }
    NVEFS_LOGD(fn, sub_id, "rsp.data_len_all = %d", rsp.data_len_all);
    // A claim beyond the bytes that arrived is cut to them; a claim with nothing after the
    // header is an empty answer like a claim of 0.
    const uint32_t item_len =
        Min(rsp.data_len_all,
            ReceivedData(rsp_len, offsetof(tarvik_nvefs_rsp_t, data), TARVIK_NVEFS_DATA_MAX));
    if (item_len == 0) {
      NVEFS_LOGD(fn, sub_id, "rsp.data_len_all is invalid");
      return TARVIK_FEAT_ERR_LEN_INVALID;
    }
    if (capacity <= item_len) {
      memcpy(buf, rsp.data, capacity);
    } else {
      *buf_len = item_len;
      memcpy(buf, rsp.data, item_len);
    }
    return result;
  });
}

TARVIK_EXPORT int tarvik_nv_write_ex(uint32_t sub_id, uint32_t nv_id, const void *buf,
                                     uint32_t buf_len) {
  return Locked(__func__, &g_nv_lock, [&](const char *fn) {
    int result = 0;
    NVEFS_LOGD(fn, sub_id, "tarvik_nv_write, sub_id %d, nv_id: %d, buf_len: %d", sub_id, nv_id,
               buf_len);
    result = CheckNvTarget(fn, sub_id, nv_id, false);
    if (result != 0) {
      return result;
    }
    result = CheckWriteBuffer(fn, sub_id, buf, buf_len, TARVIK_NVEFS_DATA_MAX);
    if (result != 0) {
      return result;
    }
    tarvik_nvefs_rsp_t rsp;
    uint32_t rsp_len = 0;
    return ExchangeNvItemOp(fn, NVEFS_OP_NV_WRITE, sub_id, nv_id, buf, buf_len, &rsp, &rsp_len);
  });
}

TARVIK_EXPORT int tarvik_nv_delete(uint32_t sub_id, uint32_t nv_id) {
  return Locked(__func__, &g_nv_lock, [&](const char *fn) {
    NVEFS_LOGD(fn, sub_id, "tarvik_nv_delete, sub_id %d, nv_id: %d", sub_id, nv_id);
    const int result = CheckNvTarget(fn, sub_id, nv_id, false);
    if (result != 0) {
      return result;
    }
    tarvik_nvefs_rsp_t rsp;
    uint32_t rsp_len = 0;
    return ExchangeNvItemOp(fn, NVEFS_OP_NV_DELETE, sub_id, nv_id, nullptr, 0, &rsp, &rsp_len);
  });
}

// ---------------------------------------------------------------------------------------------
// NV items, raw path
// ---------------------------------------------------------------------------------------------

TARVIK_EXPORT uint32_t tarvik_extend_nv_read_item(uint32_t arg1, uint32_t arg2, void *buf,
                                                  int *buf_len) {
  if (buf == nullptr || buf_len == nullptr) {
    return TARVIK_NV_ITEM_ERR_NO_FIT;
  }
  tarvik_nv_item_rsp_t rsp;
  uint32_t rsp_len = 0;
  const int status = ExchangeNvItem(NV_ITEM_OP_READ, arg1, arg2, nullptr, 0, 0, &rsp, &rsp_len);
  if (status != 0 || rsp.result != 0) {
    *buf_len = 0;
    return status != 0 ? static_cast<uint32_t>(status) : static_cast<uint32_t>(rsp.result);
  }
  const uint32_t data_len =
      Min(rsp.data_len,
          ReceivedData(rsp_len, offsetof(tarvik_nv_item_rsp_t, data), TARVIK_NV_ITEM_PAYLOAD_MAX));
  const uint32_t capacity = *buf_len > 0 ? static_cast<uint32_t>(*buf_len) : 0;
  const uint32_t n = Min(capacity, data_len);
  *buf_len = static_cast<int>(n);
  memcpy(buf, rsp.data, n);
  // Measured against the item's length as the modem gives it, not against what the record
  // could hold: a capacity above 412 but below a longer item still got a cut item.
  return capacity < rsp.data_len ? TARVIK_NV_ITEM_ERR_NO_FIT : 0;
}

TARVIK_EXPORT uint32_t tarvik_extend_nv_write_item(uint32_t arg1, uint32_t arg2,
                                                   const uint8_t *data, int len) {
  if (len < 0 || static_cast<uint32_t>(len) > TARVIK_NV_ITEM_PAYLOAD_MAX ||
      (len > 0 && data == nullptr)) {
    return TARVIK_NV_ITEM_ERR_NO_FIT;
  }
  return RawNvItemOp(NV_ITEM_OP_WRITE, arg1, arg2, data, static_cast<uint32_t>(len), 0);
}

TARVIK_EXPORT uint32_t tarvik_extend_nv_delete(uint32_t arg1) {
  return RawNvItemOp(NV_ITEM_OP_DELETE, arg1, 0, nullptr, 0, 0);
}

TARVIK_EXPORT uint32_t tarvik_extend_nv_backup(uint32_t arg1) {
  return RawNvItemOp(NV_ITEM_OP_BACKUP, arg1, 0, nullptr, 0, kBackupTimeoutMs);
}

TARVIK_EXPORT uint32_t tarvik_extend_nv_restore(uint32_t arg1) {
  return RawNvItemOp(NV_ITEM_OP_RESTORE, arg1, 0, nullptr, 0, kRestoreTimeoutMs);
}

TARVIK_EXPORT uint32_t tarvik_extend_nv_goldencopy(void) {
  return RawNvItemOp(NV_ITEM_OP_GOLDENCOPY, 0, 0, nullptr, 0, kGoldenCopyTimeoutMs);
}

// ---------------------------------------------------------------------------------------------
// Modem files
// ---------------------------------------------------------------------------------------------

TARVIK_EXPORT int tarvik_efs_read(uint32_t sub_id, const char *efs_path, uint32_t path_len,
                                  void *buf, uint32_t *buf_len) {
  const auto intro = [&](const char *fn) {
    NVEFS_LOGD(fn, sub_id, "tarvik_efs_read, sub_id %d, path_len: %d", sub_id, path_len);
  };
  return Locked(__func__, &g_efs_lock, intro, [&](const char *fn) {
    int result =
        CheckPath(fn, sub_id, sub_id, efs_path, path_len, TARVIK_EFS_READ_PATH_MAX, kPathTexts);
    if (result != 0) {
      return result;
    }
    result = CheckReadBuffer(fn, sub_id, buf, buf_len);
    if (result != 0) {
      return result;
    }
    const uint32_t capacity = *buf_len;
    // A read path may use all 100 bytes; its 100th byte goes out as a terminator.
    char local[kReadPathCopy];
    memset(local, 0, sizeof(local));
    memcpy(local, efs_path, path_len);
    local[kReadPathTerminator] = '\0';
    NVEFS_LOGD(fn, sub_id, "path_value: %s", local);
    tarvik_nvefs_req_t req;
    tarvik_nvefs_rsp_t rsp;
    ZeroNvefs(&req, &rsp);
    req.op = NVEFS_OP_EFS_READ;
    req.sub = static_cast<uint8_t>(sub_id);
    req.path_len = static_cast<uint8_t>(path_len);
    memcpy(req.path, local, path_len);
    uint8_t *out = static_cast<uint8_t *>(buf);
    uint32_t offset = 0;
    for (uint32_t count = 0;; ++count) {
      req.len_cur = offset;
      uint32_t rsp_len = 0;
      const int mapped = ExchangeNvefs(&req, &rsp, &rsp_len);
      NVEFS_LOGD(fn, sub_id, "result = %d, rsp.result = %d", mapped, rsp.result);
      if (mapped != 0) {
        NVEFS_LOGD(fn, sub_id, "tarvik_extend_qmi_send_sync fail, ABORT");
        return mapped;
      }
      if (rsp.result != 0) {
        NVEFS_LOGD(fn, sub_id, "qmi response fail");
        return rsp.result;
      }
      const uint32_t all = rsp.data_len_all;
      // A chunk that claims more than arrived is cut; the next request asks from what we have.
      const uint32_t send =
          Min(rsp.data_len_send,
              ReceivedData(rsp_len, offsetof(tarvik_nvefs_rsp_t, data), TARVIK_NVEFS_DATA_MAX));
      const uint64_t recv = static_cast<uint64_t>(offset) + send;
      NVEFS_LOGD(fn, sub_id,
                 "data_len_all = %d, data_len_send = %d, data_len_recv = %d, read_count = "
                 "%d, data_len_cur = %d",
                 all, send, static_cast<uint32_t>(recv), count + 1, req.len_cur);
      if (send == 0) {
        NVEFS_LOGD(fn, sub_id, "abort, data_len_send <= 0");
        return TARVIK_FEAT_ERR_LEN_INVALID;
      }
      if (capacity > recv) {
        *buf_len = static_cast<uint32_t>(recv);
        memcpy(out + offset, rsp.data, send);
        offset = static_cast<uint32_t>(recv);
        if (all <= recv || recv > kEfsReadStopAbove || count + 1 >= TARVIK_EFS_MAX_REQUESTS) {
          return 0;
        }
        continue;
      }
      // This chunk does not fit: fill what is left of the buffer and stop; the count is the
      // capacity, all of it filled.
      *buf_len = capacity;
      if (capacity > offset) {
        memcpy(out + offset, rsp.data, capacity - offset);
        NVEFS_LOGD(fn, sub_id, "abort, buf_len <= data_len_recv");
      } else {
        NVEFS_LOGD(fn, sub_id, "errro, abort, buf_len <= req.data_len_cur");
      }
      return 0;
    }
  });
}

TARVIK_EXPORT int tarvik_efs_write(uint32_t sub_id, const char *efs_path, uint32_t path_len,
                                   const void *buf, uint32_t buf_len) {
  const auto intro = [&](const char *fn) {
    NVEFS_LOGD(fn, sub_id, "tarvik_efs_write, sub_id %d, path_len: %d, buf_len: %d", sub_id,
               path_len, buf_len);
  };
  return Locked(__func__, &g_efs_lock, intro, [&](const char *fn) {
    int result = CheckPath(fn, sub_id, sub_id, efs_path, path_len, TARVIK_EFS_PATH_MAX, kPathTexts);
    if (result != 0) {
      return result;
    }
    result = CheckWriteBuffer(fn, sub_id, buf, buf_len, TARVIK_EFS_FILE_MAX);
    if (result != 0) {
      return result;
    }
    tarvik_nvefs_req_t req;
    tarvik_nvefs_rsp_t rsp;
    ZeroNvefs(&req, &rsp);
    char shown[TARVIK_NVEFS_PATH_FIELD];
    FillPath(&req, NVEFS_OP_EFS_WRITE, sub_id, efs_path, path_len, shown);
    NVEFS_LOGD(fn, sub_id, "path_value: %s", shown);
    req.item = TARVIK_EFS_FIRST_INS_ID;
    req.len_all = buf_len;
    const uint8_t *in = static_cast<const uint8_t *>(buf);
    uint32_t offset = 0;
    for (uint32_t count = 0;; ++count) {
      req.len_cur = offset;
      const uint32_t left = buf_len - offset;
      const uint32_t chunk = Min(left, TARVIK_EFS_CHUNK);
      NVEFS_LOGD(fn, sub_id, "left_num(%d)", left);
      NVEFS_LOGD(fn, sub_id, "send_num(%d)", chunk);
      req.len_send = chunk;
      memcpy(req.data, in + offset, chunk);
      memset(req.data + chunk, 0, sizeof(req.data) - chunk);
      uint32_t rsp_len = 0;
      const int mapped = ExchangeNvefs(&req, &rsp, &rsp_len);
      NVEFS_LOGD(fn, sub_id, "result = %d, rsp.result = %d", mapped, rsp.result);
      if (mapped != 0) {
        NVEFS_LOGD(fn, sub_id, "tarvik_extend_qmi_send_sync fail");
        return mapped;
      }
      NVEFS_LOGD(fn, sub_id, "result = %d, rsp.result = %d, ins_id = %d", mapped, rsp.result,
                 rsp.ins_id);
      if (rsp.result < 0) {
        NVEFS_LOGD(fn, sub_id, "qmi response fail");
        return rsp.result;
      }
      offset += chunk;
      req.item = rsp.ins_id;
      NVEFS_LOGD(fn, sub_id,
                 "data_len_all = %d, data_len_send = %d, data_len_recv = %d, send_count = "
                 "%d, data_len_cur = %d",
                 buf_len, chunk, offset, count + 1, req.len_cur);
      if (offset >= buf_len || count + 1 >= TARVIK_EFS_MAX_REQUESTS) {
        return 0;
      }
    }
  });
}

namespace {
// The exchange of a checked one-shot file operation on `path` (logged as `label`); compare and
// copy also carry the target (`tgt` not null) in the data field, its subscription in len_send.
int SendPathOp(const char *fn, uint32_t op, uint32_t sub, const void *path, uint32_t len,
               const char *label, uint32_t tgt_sub, const uint8_t *tgt, uint32_t tgt_len) {
  tarvik_nvefs_req_t req;
  tarvik_nvefs_rsp_t rsp;
  ZeroNvefs(&req, &rsp);
  char shown[TARVIK_NVEFS_PATH_FIELD];
  FillPath(&req, op, sub, path, len, shown);
  NVEFS_LOGD(fn, sub, "%s: %s", label, shown);
  if (tgt != nullptr) {
    memset(shown, 0, sizeof(shown));
    memcpy(shown, tgt, tgt_len);
    NVEFS_LOGD(fn, sub, "path_value_tgt: %s", shown);
    req.len_all = tgt_len;
    req.len_send = tgt_sub;
    memcpy(req.data, shown, tgt_len);
  }
  uint32_t rsp_len = 0;
  return Verdict(fn, ExchangeNvefs(&req, &rsp, &rsp_len), rsp, sub,
                 "tarvik_extend_qmi_send_sync fail");
}

// Delete and existence share everything but the operation and their names in the log.
int EfsPathOp(uint32_t op, uint32_t sub_id, const void *efs_path, uint32_t path_len,
              const char *func) {
  const auto intro = [&](const char *fn) {
    NVEFS_LOGD(fn, sub_id, "%s, sub_id %d, path_len: %d", fn, sub_id, path_len);
  };
  return Locked(func, &g_efs_lock, intro, [&](const char *fn) {
    int result = CheckPath(fn, sub_id, sub_id, efs_path, path_len, TARVIK_EFS_PATH_MAX, kPathTexts);
    if (result != 0) {
      return result;
    }
    return SendPathOp(fn, op, sub_id, efs_path, path_len, "path_value", 0, nullptr, 0);
  });
}

// Compare and copy: two (subscription, path) pairs.
int EfsPairOp(uint32_t op, uint32_t sub_src, const void *path_src, uint32_t len_src,
              uint32_t sub_tgt, const uint8_t *path_tgt, uint32_t len_tgt, const char *func) {
  const auto intro = [&](const char *fn) {
    NVEFS_LOGD(fn, sub_src,
               "%s, sub_id_src: %d, path_len_src: %d, sub_id_tgt: %d, path_len_tgt: %d", fn,
               sub_src, len_src, sub_tgt, len_tgt);
  };
  return Locked(func, &g_efs_lock, intro, [&](const char *fn) {
    int result = CheckPath(fn, sub_src, sub_src, path_src, len_src, TARVIK_EFS_PATH_MAX, kSrcTexts);
    if (result == 0) {
      result = CheckPath(fn, sub_src, sub_tgt, path_tgt, len_tgt, TARVIK_EFS_PATH_MAX, kTgtTexts);
    }
    if (result != 0) {
      return result;
    }
    return SendPathOp(fn, op, sub_src, path_src, len_src, "path_value_src", sub_tgt, path_tgt,
                      len_tgt);
  });
}
}  // namespace

TARVIK_EXPORT int tarvik_efs_delete(uint32_t sub_id, const void *efs_path, uint32_t path_len) {
  return EfsPathOp(NVEFS_OP_EFS_DELETE, sub_id, efs_path, path_len, __func__);
}

TARVIK_EXPORT int tarvik_efs_is_exsit(uint32_t sub_id, const void *efs_path, uint32_t path_len) {
  return EfsPathOp(NVEFS_OP_EFS_EXIST, sub_id, efs_path, path_len, __func__);
}

TARVIK_EXPORT int tarvik_efs_compare(uint32_t sub_id_src, const void *efs_path_src,
                                     uint32_t path_len_src, uint32_t sub_id_tgt,
                                     const uint8_t *efs_path_tgt, uint32_t path_len_tgt) {
  return EfsPairOp(NVEFS_OP_EFS_COMPARE, sub_id_src, efs_path_src, path_len_src, sub_id_tgt,
                   efs_path_tgt, path_len_tgt, __func__);
}

TARVIK_EXPORT int tarvik_efs_copy(uint32_t sub_id_src, const void *efs_path_src,
                                  uint32_t path_len_src, uint32_t sub_id_tgt,
                                  const uint8_t *efs_path_tgt, uint32_t path_len_tgt) {
  return EfsPairOp(NVEFS_OP_EFS_COPY, sub_id_src, efs_path_src, path_len_src, sub_id_tgt,
                   efs_path_tgt, path_len_tgt, __func__);
}

TARVIK_EXPORT int tarvik_efs_stat(const char *efs_path, uint8_t *stat_out) {
  return Locked(__func__, &g_efs_lock, [&](const char *fn) {
    int result = 0;
    if (efs_path == nullptr) {
      NVEFS_LOGD(fn, TARVIK_SUB_NONE, "efs_path is null");
      return TARVIK_FEAT_ERR_PATH_NULL;
    }
    // One character more than allowed tells a path that is too long from one that fits.
    const size_t len = strnlen(efs_path, TARVIK_EFS_PATH_MAX + 1);
    if (len == 0 || len > TARVIK_EFS_PATH_MAX) {
      NVEFS_LOGD(fn, TARVIK_SUB_NONE, "len invalid");
      return TARVIK_FEAT_ERR_PATH_LEN;
    }
    if (stat_out == nullptr) {
      NVEFS_LOGD(fn, TARVIK_SUB_NONE, "buf is null");
      return TARVIK_FEAT_ERR_BUF_NULL;
    }
    tarvik_nvefs_req_t req;
    tarvik_nvefs_rsp_t rsp;
    ZeroNvefs(&req, &rsp);
    req.op = NVEFS_OP_EFS_STAT;
    memcpy(req.path, efs_path, len);
    NVEFS_LOGD(fn, TARVIK_SUB_NONE, "path_value: %s", req.path);
    uint32_t rsp_len = 0;
    result = Verdict(fn, ExchangeNvefs(&req, &rsp, &rsp_len), rsp, TARVIK_SUB_NONE,
                     "tarvik_extend_qmi_send_sync fail, ABORT");
    if (result == 0) {
      memcpy(stat_out, rsp.data, TARVIK_EFS_STAT_SIZE);
    }
    return result;
  });
}

TARVIK_EXPORT uint32_t tarvik_nvefs_sync(void) {
  const tarvik_cmn::Answer a = tarvik_cmn::Message(COMMON_MSG_NV_SYNC);
  TARVIK_LOGD("tarvik_send_common_qmi_msg, ret_sync: %d, rsp.result: %d", a.status, a.result());
  return static_cast<uint32_t>(a.status) | static_cast<uint32_t>(a.result());
}

}  // extern "C"
