#include "agent/query/query_wire.h"

#include <chrono>
#include <string_view>
#include <utility>

#include "agent/root/name_rules.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_sink.h"

namespace agent::query {

namespace {

enum class EFinding : std::uint32_t { eNothing = 0, eObject = 1, eFault = 2 };

constexpr std::uint32_t kPermissionBits = 07777;
constexpr std::uint32_t kNanosecondsPerSecond = 1'000'000'000;

/// More than any message of the service has.
constexpr std::uint64_t kLongestMessage = std::uint64_t{4} << 20;

void WritePrincipal(io::binary_stream_tt& stream, const util::SPrincipal& principal) {
    stream.WriteString(principal.name);
    stream.WriteU32(principal.id);
}

util::SPrincipal ReadPrincipal(io::binary_stream_tt& stream) {
    std::string name = stream.ReadString(util::kMaxPrincipalName);
    return {std::move(name), stream.ReadU32()};
}

std::uint32_t ToWire(EEntryKind kind) {
    return static_cast<std::uint32_t>(kind) + 1;
}

EEntryKind KindFromWire(std::uint32_t number) {
    if (number < ToWire(EEntryKind::eFile) || number > ToWire(EEntryKind::eDevice)) {
        ThrowInvalid("kind " + std::to_string(number));
    }
    return static_cast<EEntryKind>(number - 1);
}

void WriteBrief(io::binary_stream_tt& stream, const object_brief_t& brief) {
    stream.WriteU32(ToWire(brief.kind));
    stream.WriteU32(brief.mode);
    stream.WriteU64(brief.size);
    WriteTime(stream, brief.modificationTime);
    WritePrincipal(stream, brief.owner);
    WritePrincipal(stream, brief.group);
    stream.WriteU64(brief.device);
    stream.WriteU64(brief.inode);
    stream.WriteU64(brief.links);
    stream.WriteString(brief.target);
}

object_brief_t ReadBrief(io::binary_stream_tt& stream) {
    object_brief_t brief;
    brief.kind = KindFromWire(stream.ReadU32());
    brief.mode = stream.ReadU32();
    if (brief.mode > kPermissionBits) {
        ThrowInvalid("mode " + std::to_string(brief.mode));
    }
    brief.size = stream.ReadU64();
    brief.modificationTime = ReadTime(stream);
    brief.owner = ReadPrincipal(stream);
    brief.group = ReadPrincipal(stream);
    brief.device = stream.ReadU64();
    brief.inode = stream.ReadU64();
    brief.links = stream.ReadU64();
    brief.target = stream.ReadString(kMaxNameBytes);
    if ((!brief.target.empty() && brief.kind != EEntryKind::eLink) || brief.target.find('\0') != std::string::npos) {
        ThrowInvalid("a target that its object cannot have");
    }
    return brief;
}

std::uint32_t ReadNameCount(io::binary_stream_tt& stream, EQuery query) {
    switch (query) {
        case EQuery::eAbout:
        case EQuery::eEnd:
            return 0;
        case EQuery::eExamine: {
            const std::uint32_t count = stream.ReadU32();
            if (count > kMaxObjects) {
                throw exc::CRuntimeExc("Question about [%1] names is longer than the allowed [%2].", count,
                                       kMaxObjects);
            }
            return count;
        }
        case EQuery::eList:
        case EQuery::eReadInfo:
        case EQuery::eDigest:
        case EQuery::eFindPartial:
        case EQuery::eRemove:
        case EQuery::eMakeDirectory:
            return 1;
        case EQuery::eMove:
            return 2;
    }
    throw exc::CRuntimeExc("Unknown question [%1].", static_cast<std::uint32_t>(query));
}

}  // namespace

void WriteQuestion(io::binary_stream_tt& stream, const question_t& question) {
    stream.WriteU32(static_cast<std::uint32_t>(question.query));
    if (question.query == EQuery::eExamine) {
        stream.WriteU32(static_cast<std::uint32_t>(question.names.size()));
    }
    for (const std::string& name : question.names) {
        stream.WriteString(name);
    }
    if (question.query == EQuery::eFindPartial) {
        stream.WriteU64(question.size);
        WriteTime(stream, question.time);
    }
    if (question.query == EQuery::eMove) {
        stream.WriteFlag(question.replace);
    }
}

question_t ReadQuestion(io::binary_stream_tt& stream, EQuery query) {
    question_t question{.query = query};
    for (std::uint32_t left = ReadNameCount(stream, query); left != 0; --left) {
        question.names.push_back(stream.ReadString(kMaxNameBytes));
    }
    if (query == EQuery::eFindPartial) {
        question.size = stream.ReadU64();
        question.time = ReadTime(stream);
    }
    if (query == EQuery::eMove) {
        question.replace = stream.ReadFlag();
    }
    return question;
}

void WriteFinding(io::binary_stream_tt& stream, const finding_t& finding) {
    if (!finding.fault.empty()) {
        stream.WriteU32(static_cast<std::uint32_t>(EFinding::eFault));
        stream.WriteString(std::string_view(finding.fault).substr(0, kMaxObjectText));
        return;
    }
    stream.WriteU32(static_cast<std::uint32_t>(finding.brief ? EFinding::eObject : EFinding::eNothing));
    if (finding.brief) {
        WriteBrief(stream, *finding.brief);
    }
}

finding_t ReadFinding(io::binary_stream_tt& stream) {
    const std::uint32_t kind = stream.ReadU32();
    switch (static_cast<EFinding>(kind)) {
        case EFinding::eNothing:
            return {};
        case EFinding::eObject:
            return {ReadBrief(stream), ""};
        case EFinding::eFault: {
            const std::string text = stream.ReadString(kMaxObjectText);
            return {std::nullopt, text.empty() ? "unknown" : logging::EscapeControls(text)};
        }
    }
    ThrowInvalid("finding " + std::to_string(kind));
}

void WriteTime(io::binary_stream_tt& stream, const util::SFileTime& time) {
    stream.WriteU64(static_cast<std::uint64_t>(time.seconds));
    stream.WriteU32(time.nanoseconds);
}

util::SFileTime ReadTime(io::binary_stream_tt& stream) {
    const auto seconds = static_cast<std::int64_t>(stream.ReadU64());
    const std::uint32_t nanoseconds = stream.ReadU32();
    if (nanoseconds >= kNanosecondsPerSecond) {
        ThrowInvalid(std::to_string(nanoseconds) + " nanoseconds");
    }
    return {seconds, nanoseconds};
}

void WriteDigest(io::binary_stream_tt& stream, const digest::block_digest_t& digest) {
    stream.WriteExact(digest.data(), digest.size());
}

digest::block_digest_t ReadDigest(io::binary_stream_tt& stream) {
    digest::block_digest_t digest;
    stream.ReadExact(digest.data(), digest.size());
    return digest;
}

void ThrowInvalid(const std::string& fault) {
    throw exc::CRuntimeExc("Invalid message: %1.", fault);
}

message_limit_t::message_limit_t(net::session_channel_t& channel) : channel_(channel) {
    if (const std::uint64_t rate = channel.GetMinimumRate(); rate != 0) {
        channel.SetDeadline(
            synch::deadline_t::After(channel.GetIdleTimeout() + std::chrono::seconds(kLongestMessage / rate)));
    }
}

message_limit_t::~message_limit_t() {
    channel_.SetDeadline(synch::deadline_t::Never());
}

}  // namespace agent::query
