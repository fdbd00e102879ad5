/*
 * The QMI framework's common types, host stand-in: the standard response every response of a
 * standard service starts with, and the QMI error codes a modem puts in it.
 *
 * In a record the response is two 4-byte enums (8 bytes); on the wire it is TLV 0x02 holding
 * two u16 (result, then error). Error numbers are the published ones (libqmi's numbering).
 */
#ifndef TARVIK_PLATFORM_COMMON_V01_H
#define TARVIK_PLATFORM_COMMON_V01_H

#include <stdint.h>

#include "qmi_idl_lib.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  QMI_RESULT_TYPE_MIN_ENUM_VAL_V01 = -2147483647,
  QMI_RESULT_SUCCESS_V01 = 0,
  QMI_RESULT_FAILURE_V01 = 1,
  QMI_RESULT_TYPE_MAX_ENUM_VAL_V01 = 2147483647
} qmi_result_type_v01;

typedef enum {
  QMI_ERR_TYPE_MIN_ENUM_VAL_V01 = -2147483647,
  QMI_ERR_NONE_V01 = 0x0000,
  QMI_ERR_MALFORMED_MSG_V01 = 0x0001,
  QMI_ERR_NO_MEMORY_V01 = 0x0002,
  QMI_ERR_INTERNAL_V01 = 0x0003,
  QMI_ERR_CLIENT_IDS_EXHAUSTED_V01 = 0x0005,
  QMI_ERR_MISSING_ARG_V01 = 0x0011,
  QMI_ERR_ARG_TOO_LONG_V01 = 0x0013,
  QMI_ERR_INVALID_SERVICE_TYPE_V01 = 0x001F,
  QMI_ERR_INVALID_CLIENT_ID_V01 = 0x0022,
  QMI_ERR_INVALID_ARG_V01 = 0x0030,
  QMI_ERR_NO_ENTRY_V01 = 0x0032,
  QMI_ERR_DEVICE_NOT_READY_V01 = 0x0034,
  QMI_ERR_INSUFFICIENT_RESOURCES_V01 = 0x0044,
  QMI_ERR_INVALID_QMI_CMD_V01 = 0x0047,
  QMI_ERR_NOT_SUPPORTED_V01 = 0x005E,
  QMI_ERR_TYPE_MAX_ENUM_VAL_V01 = 2147483647
} qmi_error_type_v01;

/* The standard response: result 0 success, 1 failure; error a qmi_error_type_v01. */
typedef struct {
  qmi_result_type_v01 result;
  qmi_error_type_v01 error;
} qmi_response_type_v01;

#ifdef __cplusplus
} /* extern "C" */

static_assert(sizeof(qmi_response_type_v01) == 8, "standard response: two 4-byte enums");

/* Element table of the standard response, for nesting in a response table. */
inline constexpr qmi_elem_info qmi_response_type_v01_ei[] = {
    QMI_MEMBER_ENUM(2, qmi_response_type_v01, result),  //
    QMI_MEMBER_ENUM(2, qmi_response_type_v01, error),
    QMI_EI_END,
};

/* The standard response as TLV 0x02 of a response table: `f` is its field in record `St`. */
#define QMI_TLV_RESPONSE(St, f) QMI_TLV_STRUCT(0x02, St, f, qmi_response_type_v01_ei)

#endif /* __cplusplus */

#endif /* TARVIK_PLATFORM_COMMON_V01_H */
