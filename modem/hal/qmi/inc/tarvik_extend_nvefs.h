/*
 * Modem NV items and modem files (EFS) over the extend service.
 *
 * Validated NV operations hold the NV lock for their whole run, file operations (but
 * tarvik_nvefs_sync) hold the EFS lock; the two locks are independent and each is taken before
 * the channel lock. The raw NV item path takes no lock of its own. All calls block until the
 * modem answers (long-process operations up to their own time-outs) and may run on any thread.
 * Results: 0, the status codes of tarvik_extend_cmn.h, or the modem's own non-zero result.
 */
#ifndef TARVIK_EXTEND_NVEFS_H
#define TARVIK_EXTEND_NVEFS_H

#include <stdint.h>

#include "tarvik_common.h"
#include "tarvik_extend_cmn.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Operations of REQUEST_ID_NVEFS. */
#define NVEFS_OP_NV_READ 1u
#define NVEFS_OP_NV_WRITE 2u
#define NVEFS_OP_NV_DELETE 3u
#define NVEFS_OP_EFS_READ 4u
#define NVEFS_OP_EFS_WRITE 5u
#define NVEFS_OP_EFS_DELETE 6u
#define NVEFS_OP_EFS_COMPARE 7u
#define NVEFS_OP_EFS_COPY 8u
#define NVEFS_OP_EFS_STAT 9u
#define NVEFS_OP_EFS_EXIST 10u

/* Operations of REQUEST_ID_NV_ITEM (cell information, 256, is in tarvik_extend_cmn.h). */
#define NV_ITEM_OP_READ 1u
#define NV_ITEM_OP_WRITE 2u
#define NV_ITEM_OP_DELETE 3u
#define NV_ITEM_OP_BACKUP 4u
#define NV_ITEM_OP_RESTORE 5u
#define NV_ITEM_OP_GOLDENCOPY 6u

#define TARVIK_NVEFS_REQ_SIZE 544u
#define TARVIK_NVEFS_RSP_SIZE 444u
#define TARVIK_NVEFS_DATA_MAX 424u   /* data area of a request or a response */
#define TARVIK_NVEFS_PATH_FIELD 101u /* path field of a request */
#define TARVIK_NV_ID_MAX 7232u       /* highest NV item number */
#define TARVIK_NV_SUB2_ITEM 550u     /* the one item subscription 2 may read */
#define TARVIK_EFS_READ_PATH_MAX 100u
#define TARVIK_EFS_PATH_MAX 99u /* write, delete, existence, compare, copy, status */
#define TARVIK_EFS_FILE_MAX 102410u
#define TARVIK_EFS_CHUNK 414u /* data bytes of one write chunk */
#define TARVIK_EFS_MAX_REQUESTS 300u
#define TARVIK_EFS_FIRST_INS_ID 255u
#define TARVIK_EFS_STAT_SIZE 16u

/* Data buffer of REQUEST_ID_NVEFS; each operation fills only its own fields. */
typedef struct {
  uint8_t op;
  uint8_t sub;
  uint16_t item; /* NV item number, or the ins_id of a file write */
  uint8_t path_len;
  char path[TARVIK_NVEFS_PATH_FIELD];
  uint8_t zero[2];
  uint32_t
      len_all; /* NV write: data length; file write: data_len_all; compare/copy: 2nd path length */
  uint32_t len_send; /* file write: data_len_send; compare/copy: 2nd subscription */
  uint32_t len_cur;  /* file read and write: data_len_cur, the byte offset of the chunk */
  uint8_t data[TARVIK_NVEFS_DATA_MAX]; /* NV/file data, or the 2nd path of compare/copy */
} tarvik_nvefs_req_t;

/* Response of REQUEST_ID_NVEFS. */
typedef struct {
  uint16_t unused0;
  uint16_t ins_id;
  uint32_t data_len_all;
  uint32_t data_len_send;
  uint32_t unused12;
  int32_t result;
  uint8_t data[TARVIK_NVEFS_DATA_MAX];
} tarvik_nvefs_rsp_t;

/*
 * Validated NV path. Subscriptions 0 and 1, items 0 to 7232; subscription 2 may only read item
 * 550. `buf_len` is the capacity on entry; on success it holds the item's length when the item
 * is shorter than the buffer and is left unchanged when the item filled the buffer. An answer
 * without item data (none claimed, or none carried past its header) gives -108.
 */
TARVIK_EXPORT int tarvik_nv_read(uint32_t sub_id, uint32_t nv_id, void *buf, uint32_t *buf_len);
/* 1 to 424 bytes. */
TARVIK_EXPORT int tarvik_nv_write_ex(uint32_t sub_id, uint32_t nv_id, const void *buf,
                                     uint32_t buf_len);
TARVIK_EXPORT int tarvik_nv_delete(uint32_t sub_id, uint32_t nv_id);

/*
 * Raw NV path for service tools: the arguments go to the modem unchanged. Return the channel's
 * status when non-zero, else the modem's result. A payload or buffer that does not fit (above
 * 412 bytes, negative, or missing) gives TARVIK_NV_ITEM_ERR_NO_FIT; a read whose item (its length
 * as the modem gives it) is longer than *buf_len copies what fits, at most 412 bytes and no more
 * than the answer carries, and also returns it.
 */
TARVIK_EXPORT uint32_t tarvik_extend_nv_read_item(uint32_t arg1, uint32_t arg2, void *buf,
                                                  int *buf_len);
TARVIK_EXPORT uint32_t tarvik_extend_nv_write_item(uint32_t arg1, uint32_t arg2,
                                                   const uint8_t *data, int len);
TARVIK_EXPORT uint32_t tarvik_extend_nv_delete(uint32_t arg1);
/* Whole-store operations; they block up to 10 s (backup, golden copy) or 60 s (restore). */
TARVIK_EXPORT uint32_t tarvik_extend_nv_backup(uint32_t arg1);
TARVIK_EXPORT uint32_t tarvik_extend_nv_restore(uint32_t arg1);
TARVIK_EXPORT uint32_t tarvik_extend_nv_goldencopy(void);

/*
 * Modem files. Paths are given with their length and need no terminator: 1 to 100 bytes for a
 * read (the 100th byte is replaced by a terminator), 1 to 99 for the others.
 *
 * Read: `buf_len` is the capacity on entry and the number of bytes stored on return; a file
 * larger than the buffer fills it and returns 0 with *buf_len unchanged. A read that fails
 * part-way keeps the bytes received so far and their count.
 */
TARVIK_EXPORT int tarvik_efs_read(uint32_t sub_id, const char *efs_path, uint32_t path_len,
                                  void *buf, uint32_t *buf_len);
/* Replaces the file with 1 to 102410 bytes, in chunks of 414. */
TARVIK_EXPORT int tarvik_efs_write(uint32_t sub_id, const char *efs_path, uint32_t path_len,
                                   const void *buf, uint32_t buf_len);
TARVIK_EXPORT int tarvik_efs_delete(uint32_t sub_id, const void *efs_path, uint32_t path_len);
/* Return the modem's result as it gives it (0: same content / copied). */
TARVIK_EXPORT int tarvik_efs_compare(uint32_t sub_id_src, const void *efs_path_src,
                                     uint32_t path_len_src, uint32_t sub_id_tgt,
                                     const uint8_t *efs_path_tgt, uint32_t path_len_tgt);
TARVIK_EXPORT int tarvik_efs_copy(uint32_t sub_id_src, const void *efs_path_src,
                                  uint32_t path_len_src, uint32_t sub_id_tgt,
                                  const uint8_t *efs_path_tgt, uint32_t path_len_tgt);
/* Stores the modem's 16-byte status record of a terminated path of 1 to 99 characters into
 * `stat_out`; an empty or longer path returns -106 and a null `stat_out` -107, without sending. */
TARVIK_EXPORT int tarvik_efs_stat(const char *efs_path, uint8_t *stat_out);
/* The modem's result as it gives it (0: the file exists). */
TARVIK_EXPORT int tarvik_efs_is_exsit(uint32_t sub_id, const void *efs_path, uint32_t path_len);
/* Asks the modem to flush its NV and file store: 0 only when channel and modem both succeed. */
TARVIK_EXPORT uint32_t tarvik_nvefs_sync(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_EXTEND_NVEFS_H */
