#include "agent/token/item_token.h"

#include <utility>

#include "agent/root/name_rules.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent {

namespace {

item_t Checked(item_t item) {
    CheckItem(item);
    return item;
}

EItemKind ReadKind(io::binary_stream_tt& stream) {
    const std::uint32_t number = stream.ReadU32();
    if (number < static_cast<std::uint32_t>(EItemKind::eFile) ||
        number > static_cast<std::uint32_t>(EItemKind::eCommit)) {
        throw exc::CRuntimeExc("Kind [%1] of an item is not known.", number);
    }
    return static_cast<EItemKind>(number);
}

// Whether what is there may be replaced is no flag: it travels with the upload command.
constexpr std::uint32_t kDeferred = 1U << 0;
constexpr std::uint32_t kUnsynced = 1U << 1;
constexpr std::uint32_t kResumable = 1U << 2;

std::uint32_t FlagsOf(const item_t& item) noexcept {
    return (item.deferred ? kDeferred : 0) | (item.unsynced ? kUnsynced : 0) | (item.resumable ? kResumable : 0);
}

void ReadFlags(io::binary_stream_tt& stream, item_t& item) {
    const std::uint32_t flags = stream.ReadU32();
    if ((flags & ~(kDeferred | kUnsynced | kResumable)) != 0) {
        throw exc::CRuntimeExc("Flags [%1] of an item are not known.", flags);
    }
    item.deferred = (flags & kDeferred) != 0;
    item.unsynced = (flags & kUnsynced) != 0;
    item.resumable = (flags & kResumable) != 0;
}

// Entries count from 1 in the serial form: one damaged bit does not make an item wait for a commit that never comes.
std::uint64_t NumberOf(const item_t& item) noexcept {
    return item.deferred ? item.entry + 1 : item.entry;
}

std::uint64_t EntryOf(std::uint64_t number, const item_t& item) {
    if (item.deferred && number == 0) {
        throw exc::CRuntimeExc("A deferred item has no number.");
    }
    return item.deferred ? number - 1 : number;
}

guid::guid_t ReadGuid(io::binary_stream_tt& stream) {
    guid::guid_t::bytes_t bytes;
    stream.ReadExact(bytes.data(), bytes.size());
    return guid::guid_t(bytes);
}

item_t ReadItem(io::binary_stream_tt& stream) {
    const std::uint32_t version = stream.ReadU32();
    if (version != item_token_t::kVersion) {
        throw exc::CRuntimeExc("Version [%1] of an item is not known.", version);
    }
    item_t item;
    item.kind = ReadKind(stream);
    item.copy = ReadGuid(stream);
    item.path = stream.ReadString(kMaxNameBytes);
    item.second = stream.ReadString(kMaxNameBytes);
    item.startOffset = stream.ReadU64();
    const std::uint64_t number = stream.ReadU64();
    ReadFlags(stream, item);
    item.entry = EntryOf(number, item);
    item.info.DeSerialize(stream);
    return item;
}

}  // namespace

item_token_t::item_token_t(item_t item)
    : CFileAreaDevToken(GetTypeString() + "://" + item.path), item_(Checked(std::move(item))) {}

item_token_t::~item_token_t() = default;

std::string item_token_t::GetType() {
    return GetTypeString();
}

std::string item_token_t::Path4Log() {
    return item_.path;
}

std::string item_token_t::GetTypeString() {
    return "agent-item";
}

void item_token_t::Serial(io::binary_stream_tt& stream) const {
    stream.WriteU32(kVersion);
    stream.WriteU32(static_cast<std::uint32_t>(item_.kind));
    stream.WriteExact(item_.copy.Bytes().data(), item_.copy.Bytes().size());
    stream.WriteString(item_.path);
    stream.WriteString(item_.second);
    stream.WriteU64(item_.startOffset);
    stream.WriteU64(NumberOf(item_));
    stream.WriteU32(FlagsOf(item_));
    item_.info.Serialize(stream);
}

std::shared_ptr<io::area::IAreaDevToken> item_token_t::Unserial(io::binary_stream_tt& stream) {
    try {
        return std::make_shared<item_token_t>(ReadItem(stream));
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to read the token of an item.");
    }
}

}  // namespace agent
