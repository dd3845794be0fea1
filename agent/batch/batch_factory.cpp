#include "agent/batch/batch_factory.h"

#include <list>
#include <utility>

#include "agent/batch/batch_dev.h"
#include "agent/batch/batch_plan.h"
#include "agent/root/name_rules.h"
#include "agent/staging/receiver_scope.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::batch {

namespace {

using tarn::batch::CBatchAreaDevToken;
using tarn::batch::SFileItemSpec;

/// Bytes of an entry's name: the copy, a slash and any number.
constexpr std::uint32_t kMaxBatchName = 53;

/// As CBatchAreaDevToken reads itself, but a token that a batch cannot have takes no memory.
std::shared_ptr<io::area::IAreaDevToken> ReadToken(io::binary_stream_tt& stream) {
    const std::uint32_t count = stream.ReadU32();
    if (count == 0 || count > kMaxBatchEntries) {
        throw exc::CRuntimeExc("A batch of [%1] entries is refused: it has 1 to [%2].", count, kMaxBatchEntries);
    }
    const std::uint64_t total = stream.ReadU64();
    const bool flagA = stream.ReadFlag();
    const bool flagB = stream.ReadFlag();
    std::list<SFileItemSpec> items;
    while (items.size() < count) {
        SFileItemSpec& item = items.emplace_back();
        item.firstPath = stream.ReadString(kMaxBatchName);
        item.secondPath = stream.ReadString(kMaxNameBytes);
        item.value = stream.ReadU64();
    }
    return std::make_shared<CBatchAreaDevToken>(items, total, flagA, flagB);
}

const CBatchAreaDevToken& TokenOf(const std::shared_ptr<io::area::IAreaDevToken>& token) {
    const auto* known = dynamic_cast<const CBatchAreaDevToken*>(token.get());
    if (known == nullptr) {
        throw exc::CRuntimeExc("Token [%1] is not that of a batch.", token ? token->GetType() : std::string());
    }
    return *known;
}

}  // namespace

batch_factory_t::batch_factory_t() = default;

batch_factory_t::~batch_factory_t() = default;

std::shared_ptr<io::area::IAreaDevToken> batch_factory_t::LoadToken(const std::string& type,
                                                                    io::binary_stream_tt& stream) const {
    if (type != CBatchAreaDevToken::GetTokenType()) {
        return CBatchAreaDevFactory::LoadToken(type, stream);
    }
    try {
        return ReadToken(stream);
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to deserialize batch file upload area token.");
    }
}

std::shared_ptr<io::area::area_write_dev_t> batch_factory_t::CreateWriteDev(
    std::shared_ptr<io::area::IAreaDevToken> token, bool incremental, unsigned long* size, bool overwrite) {
    batch_plan_t plan = PlanBatch(TokenOf(token));
    if (incremental) {
        throw exc::CRuntimeExc("Incremental batches are not served.");
    }
    if (overwrite != (plan.replace == EReplace::eYes)) {
        throw exc::CRuntimeExc("A batch is refused that says two things about overwriting.");
    }
    const auto receiver = receiver_scope_t::Current();
    if (!receiver) {
        throw exc::CRuntimeExc("Batches are not received here.");
    }
    auto place = receiver->ReceiveBatch(plan.copy);
    return std::make_shared<batch_dev_t>(std::move(plan), size == nullptr ? 0 : *size, std::move(place));
}

}  // namespace agent::batch
