#include "tarn/batch/batch_area_dev_token.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/numeric_cast.h"

namespace tarn::batch {

namespace {

constexpr std::uint64_t kHeaderBytes = 20;    // count, total, two flags
constexpr std::uint64_t kBareItemBytes = 16;  // two lengths, value

void WriteItem(io::binary_stream_tt& stream, const SFileItemSpec& item) {
    stream.WriteString(item.firstPath);
    stream.WriteString(item.secondPath);
    stream.WriteU64(item.value);
}

SFileItemSpec ReadItem(io::binary_stream_tt& stream) {
    SFileItemSpec item;
    item.firstPath = stream.ReadString(CBatchAreaDevToken::kMaxPathBytes);
    item.secondPath = stream.ReadString(CBatchAreaDevToken::kMaxPathBytes);
    item.value = stream.ReadU64();
    return item;
}

// Nothing is reserved for a count from outside: the list grows item by item, as far as a token may.
std::list<SFileItemSpec> ReadItems(io::binary_stream_tt& stream, std::uint32_t count) {
    std::list<SFileItemSpec> items;
    std::uint64_t bytes = kHeaderBytes;
    for (std::uint32_t i = 0; i < count; ++i) {
        items.push_back(ReadItem(stream));
        bytes += kBareItemBytes + items.back().firstPath.size() + items.back().secondPath.size();
        if (bytes > CBatchAreaDevToken::kMaxSerialBytes) {
            throw exc::CRuntimeExc("Batch token is longer than the allowed [%1] bytes.",
                                   CBatchAreaDevToken::kMaxSerialBytes);
        }
    }
    return items;
}

}  // namespace

CBatchAreaDevToken::CBatchAreaDevToken(const std::list<SFileItemSpec>& items, std::uint64_t total, bool flagA,
                                       bool flagB)
    : items_(items), total_(total), flagA_(flagA), flagB_(flagB) {}

CBatchAreaDevToken::~CBatchAreaDevToken() = default;

std::string CBatchAreaDevToken::GetTokenType() {
    return "BatchFileUploadToken";
}

std::string CBatchAreaDevToken::GetType() {
    return GetTokenType();
}

std::string CBatchAreaDevToken::Path4Log() {
    return "N/A";
}

void CBatchAreaDevToken::Serial(io::binary_stream_tt& stream) const {
    try {
        stream.WriteU32(util::numeric_cast<std::uint32_t>(items_.size()));
        stream.WriteU64(total_);
        stream.WriteFlag(flagA_);
        stream.WriteFlag(flagB_);
        for (const SFileItemSpec& item : items_) {
            WriteItem(stream, item);
        }
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to serialize batch file upload area token.");
    }
}

std::shared_ptr<io::area::IAreaDevToken> CBatchAreaDevToken::Unserial(io::binary_stream_tt& stream) {
    try {
        const std::uint32_t count = stream.ReadU32();
        const std::uint64_t total = stream.ReadU64();
        const bool flagA = stream.ReadFlag();
        const bool flagB = stream.ReadFlag();
        const std::list<SFileItemSpec> items = ReadItems(stream, count);
        return std::make_shared<CBatchAreaDevToken>(items, total, flagA, flagB);
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to deserialize batch file upload area token.");
    }
}

}  // namespace tarn::batch
