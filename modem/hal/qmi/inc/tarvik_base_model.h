/*
 * Base model: configures the modem's on-board model and reads what it detected, each request on
 * a message of its own of the extend service. The modem's reports (indications 0x12 and 0x14)
 * reach the callback installed with tarvik_extend_qmi_base_model_register.
 *
 * Results: 0; 1 `cfg` null; 2 `cfg_len` 0 or above 100; 3 `data_rsp` null; 4 capacity too small
 * or a count in the answer above 6; otherwise the modem's own result. A failed exchange leaves
 * the zeroed answer, so it reports 0 with empty output.
 */
#ifndef TARVIK_BASE_MODEL_H
#define TARVIK_BASE_MODEL_H

#include <stdint.h>

#include "tarvik_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TARVIK_BASE_MODEL_CFG_MAX 100u
#define TARVIK_BASE_MODEL_LIST_MAX 6u
#define TARVIK_BASE_MODEL_REASON_CAPACITY 29u /* elements the reason answer's record spans */
#define TARVIK_BASE_MODEL_SCENE_CAPACITY 3u
#define TARVIK_BASE_MODEL_DDS_CAPACITY 18u
#define TARVIK_BASE_MODEL_DDS_WORDS 17u

TARVIK_EXPORT uint32_t tarvik_base_model_set_modem_cfg(const uint32_t *cfg, uint32_t cfg_len);
TARVIK_EXPORT uint32_t tarvik_base_model_set_modem_model_detection_switch(uint8_t enabled);
TARVIK_EXPORT uint32_t tarvik_base_model_set_modem_event_ind_switch(uint32_t event,
                                                                    uint8_t is_register);

/*
 * The get functions: *p_rsp_len is the capacity of `data_rsp` in u32 elements on entry (at least
 * 29, 3 and 18) and the number written on success. The reason answer is the concatenation of its
 * four lists (arfcn, pci, reason bitmask, extended reason bitmask); a list whose count is above
 * 6 ends the call with 4, the lists before it written and counted.
 */
TARVIK_EXPORT uint32_t tarvik_base_model_get_modem_reason(uint32_t *data_rsp, uint32_t *p_rsp_len);
TARVIK_EXPORT uint32_t tarvik_base_model_get_modem_scene(uint32_t *data_rsp, uint32_t *p_rsp_len);
TARVIK_EXPORT uint32_t tarvik_base_model_get_dds_assistant_info(uint32_t *data_rsp,
                                                                uint32_t *p_rsp_len);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TARVIK_BASE_MODEL_H */
