// Plans of top-level tables: built on a table's first use, then kept by its address for both
// walkers.
#include <new>

#include "idl_walk.h"

namespace qmi_idl {

std::atomic<const Plan *> g_plan_slots[kPlanSlots];

namespace {

// Fills `plan` (and `ops`, room for kMaxOps) from the table.
void Build(const qmi_elem_info *ei, Plan &plan, TlvOp *ops) {
  plan.ei = ei;
  plan.status = QMI_IDL_LIB_NO_ERR;
  plan.n_ops = 0;
  plan.n_required = 0;
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
    op.id = id;
    op.off = g.first->offset;
    op.width = ScalarWidth(*g.first);
    const uint64_t plain = uint64_t{op.width} * Capacity(*g.first);
    const bool one = g.end == g.first + 1 && g.first->array_type != VAR_LEN_ARRAY;
    op.plain = one && plain <= kMaxTlvLen ? static_cast<uint32_t>(plain) : 0;
    if (!op.optional) ++plan.n_required;
    e = g.end;
  }
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

const Plan &AddPlan(const qmi_elem_info *ei, PlanBuf &scratch) {
  Build(ei, scratch.plan, scratch.ops);
  // Kept plans live as long as the tables they describe: for the life of the process.
  const size_t ops_bytes = sizeof(TlvOp) * scratch.plan.n_ops;
  void *mem = ::operator new(sizeof(Plan) + ops_bytes, std::nothrow);
  if (mem == nullptr) return scratch.plan;
  TlvOp *ops = reinterpret_cast<TlvOp *>(static_cast<uint8_t *>(mem) + sizeof(Plan));
  if (ops_bytes != 0) memcpy(static_cast<void *>(ops), scratch.ops, ops_bytes);
  Plan *plan = new (mem) Plan(scratch.plan);
  plan->ops = ops;
  const Plan *kept = Keep(plan);
  if (kept == plan) return *plan;
  ::operator delete(mem);
  return kept != nullptr ? *kept : scratch.plan;
}

}  // namespace qmi_idl
