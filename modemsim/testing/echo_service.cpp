// The echo service for tests and benchmarks (see modemsim/echo_service.h).
#include "modemsim/echo_service.h"

#include <string.h>

namespace modemsim {
namespace echo {
namespace {

constexpr qmi_elem_info inner_ei[] = {
    QMI_MEMBER(U, Inner, tag),
    QMI_MEMBER(S, Inner, level),
    QMI_MEMBER(U, Inner, stamp),
    QMI_MEMBER_VAR(U, 1, 4, Inner, list_len, list),
    QMI_EI_END,
};

constexpr qmi_elem_info echo_req_ei[] = {
    QMI_TLV(U, 0x01, EchoReq, value),
    QMI_TLV_OPT(S, 0x10, EchoReq, opt_valid, opt),
    QMI_TLV_OPT_VAR(U, 2, kMaxData, 0x11, EchoReq, data_valid, data_len, data),
    QMI_TLV_OPT(U, 0x12, EchoReq, fixed_valid, fixed),
    QMI_TLV_OPT_STRING(kMaxName, 0x13, EchoReq, name_valid, name),
    QMI_TLV_OPT_STRUCT(0x14, EchoReq, inner_valid, inner, inner_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info echo_resp_ei[] = {
    QMI_TLV_RESPONSE(EchoResp, resp),
    QMI_TLV_OPT(U, 0x10, EchoResp, value_valid, value),
    QMI_TLV_OPT(S, 0x11, EchoResp, opt_valid, opt),
    QMI_TLV_OPT_VAR(U, 2, kMaxData, 0x12, EchoResp, data_valid, data_len, data),
    QMI_TLV_OPT(U, 0x13, EchoResp, fixed_valid, fixed),
    QMI_TLV_OPT_STRING(kMaxName, 0x14, EchoResp, name_valid, name),
    QMI_TLV_OPT_STRUCT(0x15, EchoResp, inner_valid, inner, inner_ei),
    QMI_EI_END,
};

constexpr qmi_elem_info notify_req_ei[] = {
    QMI_TLV(U, 0x01, NotifyReq, count),
    QMI_EI_END,
};

constexpr qmi_elem_info notify_resp_ei[] = {
    QMI_TLV_RESPONSE(NotifyResp, resp),
    QMI_EI_END,
};

constexpr qmi_elem_info seq_ind_ei[] = {
    QMI_TLV(U, 0x01, SeqInd, seq),
    QMI_EI_END,
};

constexpr qmi_idl_req_resp_row kPairs[] = {
    {kEcho, "echo", QMI_MSG(EchoReq, echo_req_ei), QMI_MSG(EchoResp, echo_resp_ei)},
    {kNotify, "notify", QMI_MSG(NotifyReq, notify_req_ei), QMI_MSG(NotifyResp, notify_resp_ei)},
};
constexpr qmi_idl_ind_row kIndications[] = {{kSeqInd, "seq", QMI_MSG(SeqInd, seq_ind_ei)}};
constexpr auto kTables = qmi_idl_tables_of(kPairs, kIndications);
constexpr qmi_idl_service_object kObject = qmi_idl_service_of(kTables, 6, 1, 0, kServiceId, "echo");

void HandleEcho(Call &call) {
  const EchoReq &req = call.Request<EchoReq>();
  EchoResp &resp = call.Response<EchoResp>();
  resp.value_valid = 1;
  resp.value = req.value;
  resp.opt_valid = req.opt_valid;
  resp.opt = req.opt;
  resp.data_valid = req.data_valid;
  resp.data_len = req.data_len;
  memcpy(resp.data, req.data, sizeof(resp.data));
  resp.fixed_valid = req.fixed_valid;
  memcpy(resp.fixed, req.fixed, sizeof(resp.fixed));
  resp.name_valid = req.name_valid;
  memcpy(resp.name, req.name, sizeof(resp.name));
  resp.inner_valid = req.inner_valid;
  resp.inner = req.inner;
}

void HandleNotify(Call &call) {
  const uint32_t count = call.Request<NotifyReq>().count;
  if (count > kMaxNotify) {
    call.SetResult(1, kQmiErrInvalidArg);
    return;
  }
  for (uint32_t i = 0; i < count; ++i) {
    const SeqInd ind{i};
    call.modem.PushIndication(kServiceId, kSeqInd, &ind, sizeof(ind), call.client);
  }
}

}  // namespace

qmi_idl_service_object_type ServiceObject() {
  return &kObject;
}

Service &AddTo(Modem &modem) {
  Service &service = modem.AddService(&kObject);
  service.Handle(kEcho, HandleEcho);
  service.Handle(kNotify, HandleNotify);
  return service;
}

}  // namespace echo
}  // namespace modemsim
