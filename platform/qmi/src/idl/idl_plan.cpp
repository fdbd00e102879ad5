// Plans of top-level tables: built on a table's first use, then kept by its address for both
// walkers.
#include <new>

#include "idl_walk.h"

namespace qmi_idl {

std::atomic<const Plan *> g_plan_slots[kPlanSlots];

namespace {

// The larger of `need` and the end of [off, off + n).
uint64_t Extend(uint64_t need, uint32_t off, uint32_t n) {
  const uint64_t end = uint64_t{off} + n;
  return end > need ? end : need;
}

// Fills `plan` (and `ops`, room for kMaxOps) from the table.
void Build(const qmi_elem_info *ei, Plan &plan, TlvOp *ops) {
  plan.ei = ei;
  plan.status = QMI_IDL_LIB_NO_ERR;
  plan.n_ops = 0;
  plan.n_required = 0;
  plan.rec_need = 0;
  plan.wire_max = 0;
  plan.plain = false;
  for (uint16_t &k : plan.op_of) k = kNoOp;
  plan.ops = ops;
  for (const qmi_elem_info *e = ei; e != nullptr && e->data_type != QMI_EOTI;) {
    const TlvGroup g = GroupAt(e);
    const uint8_t id = e->tlv_type;
    if (plan.op_of[id] != kNoOp) {
      plan.status = QMI_IDL_LIB_PARAMETER_ERROR;
      plan.n_ops = 0;
      return;
    }
    plan.op_of[id] = static_cast<uint16_t>(plan.n_ops);
    TlvOp &op = ops[plan.n_ops++];
    op.first = static_cast<uint32_t>(g.first - ei);
    op.end = static_cast<uint32_t>(g.end - ei);
    op.optional = g.flag != nullptr;
    op.flag_off = op.optional ? g.flag->offset : 0;
    op.off = g.first->offset;
    op.plain = g.plain;
    op.width = g.first->elem_size;
    op.id = id;
    op.header = uint32_t{id} | op.plain << 8;
    if (!op.optional) ++plan.n_required;
    if (op.optional) plan.rec_need = Extend(plan.rec_need, op.flag_off, 1);
    if (op.plain != 0) plan.rec_need = Extend(plan.rec_need, op.off, op.plain);
    if (plan.wire_max != UINT64_MAX)
      plan.wire_max = op.plain != 0 ? plan.wire_max + kTlvHeaderLen + op.plain : UINT64_MAX;
    e = g.end;
  }
  plan.plain = plan.wire_max != UINT64_MAX;
}

// Offers `plan` to the cache; returns the plan kept for its table, or null when the cache is
// full. A plan another thread kept first wins.
const Plan *Keep(const Plan *plan) {
  uint32_t slot = PlanSlot(plan->ei);
  for (uint32_t n = 0; n < kPlanSlots; ++n, slot = (slot + 1) & (kPlanSlots - 1)) {
    const Plan *cur = nullptr;
    if (g_plan_slots[slot].compare_exchange_strong(cur, plan, std::memory_order_acq_rel,
                                                   std::memory_order_acquire))
      return plan;
    if (cur->ei == plan->ei) return cur;
  }
  return nullptr;
}

}  // namespace

const Plan *AddPlan(const qmi_elem_info *ei, PlanBuf &scratch) {
  Build(ei, scratch.plan, scratch.ops);
  // Kept plans live as long as the tables they describe: for the life of the process.
  const size_t ops_bytes = sizeof(TlvOp) * scratch.plan.n_ops;
  void *mem = ::operator new(sizeof(Plan) + ops_bytes, std::nothrow);
  if (mem == nullptr) return &scratch.plan;
  TlvOp *ops = reinterpret_cast<TlvOp *>(static_cast<uint8_t *>(mem) + sizeof(Plan));
  if (ops_bytes != 0) memcpy(static_cast<void *>(ops), scratch.ops, ops_bytes);
  Plan *plan = new (mem) Plan(scratch.plan);
  plan->ops = ops;
  const Plan *kept = Keep(plan);
  if (kept == plan) return plan;
  ::operator delete(mem);
  return kept != nullptr ? kept : &scratch.plan;
}

}  // namespace qmi_idl
