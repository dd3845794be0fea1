#include "agent/batch/batch_plan.h"

#include "mirrowen/exc/runtime_exc.h"

namespace agent::batch {

namespace {

void CheckExtent(const tarn::batch::CBatchAreaDevToken& token) {
    const std::size_t count = token.GetItems().size();
    if (count == 0 || count > kMaxBatchEntries) {
        throw exc::CRuntimeExc("A batch of [%1] entries is refused: it has 1 to [%2].", count, kMaxBatchEntries);
    }
    if (token.GetTotal() == 0 || token.GetTotal() > kMaxBatchPayload) {
        throw exc::CRuntimeExc("A batch with [%1] bytes of commands is refused: it has 1 to [%2].", token.GetTotal(),
                               kMaxBatchPayload);
    }
}

/// Names count from one, and so do the texts.
void CheckEntry(const batch_plan_t& plan, const batch_name_t& name, const tarn::batch::SFileItemSpec& item) {
    if (name.copy != plan.copy) {
        throw exc::CRuntimeExc("Entry [%1] is of another copy than the batch.", item.firstPath);
    }
    if (!plan.entries.empty() && name.entry <= plan.entries.back().number) {
        throw exc::CRuntimeExc("Entry [%1] is out of order: the numbers of a batch ascend.", item.firstPath);
    }
    if (name.entry >= copy_groups_t::kMaxEntries) {
        throw exc::CRuntimeExc("Entry [%1] is refused: a group has at most [%2] entries.", item.firstPath,
                               copy_groups_t::kMaxEntries);
    }
    if (item.value > kMaxBatchFile) {
        throw exc::CRuntimeExc("Entry [%1] with [%2] bytes is refused: in a batch it has at most [%3].", item.firstPath,
                               item.value, kMaxBatchFile);
    }
}

}  // namespace

batch_plan_t PlanBatch(const tarn::batch::CBatchAreaDevToken& token) {
    CheckExtent(token);
    batch_plan_t plan;
    plan.copy = ParseBatchName(token.GetItems().front().firstPath).copy;
    plan.replace = token.GetFlagA() ? EReplace::eYes : EReplace::eNo;
    plan.unsynced = token.GetFlagB();
    plan.payload = token.GetTotal();
    plan.entries.reserve(token.GetItems().size());
    for (const tarn::batch::SFileItemSpec& item : token.GetItems()) {
        const batch_name_t name = ParseBatchName(item.firstPath);
        CheckEntry(plan, name, item);
        plan.entries.push_back({name.entry, item.firstPath, item.secondPath, item.value});
    }
    return plan;
}

}  // namespace agent::batch
