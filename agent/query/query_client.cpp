#include "agent/query/query_client.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "agent/root/name_rules.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/acknowledge_protocol.h"
#include "mirrowen/logging/log_exc.h"

namespace agent::query {

namespace {

// What does not fit the wire; all else is for the far end to judge, which knows its root.
void CheckLengths(const question_t& question) {
    for (const std::string& name : question.names) {
        if (name.size() > kMaxNameBytes) {
            CheckName(name);
        }
    }
}

void CheckListedName(const std::string& name, const std::vector<listed_object_t>& before) {
    if (name.find('/') != std::string::npos || !FindNameFault(name, EStagingFolder::eOrdinary).empty()) {
        ThrowInvalid("[" + ShownName(name) + "] is no name in a directory");
    }
    if (!before.empty() && name <= before.back().name) {
        ThrowInvalid("[" + ShownName(name) + "] is listed out of order");
    }
}

std::uint64_t BytesOf(const listed_object_t& object) {
    return sizeof(object) + object.name.size() + object.fault.size() + object.brief.target.size() +
           object.brief.owner.name.size() + object.brief.group.name.size();
}

}  // namespace

query_client_t::query_client_t(const net::endpoint_t& endpoint, const net::remote_options_t& options)
    : connection_(net::OpenConnection(endpoint, net::EService::eQuery, options)),
      stream_(connection_.channel),
      askedAt_(util::clock().SteadyNow()) {}

query_client_t::~query_client_t() {
    if (broken_) {
        return;
    }
    try {
        Send({.query = EQuery::eEnd});
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to end a session.");
    }
}

/// One request and its answer, which `read` takes off the stream. Whatever is thrown on the way leaves the connection
/// broken, except a failure that the far end reports.
template <class Read>
auto query_client_t::Ask(const question_t& question, const Read& read) {
    CheckLengths(question);
    if (broken_) {
        throw exc::CRuntimeExc("The connection with [%1] has broken off.", connection_.channel->GetPeerName());
    }
    broken_ = true;
    Send(question);
    AwaitAnswer();
    auto result = [&] {
        const message_limit_t limit(*connection_.channel);
        return read();
    }();
    broken_ = false;
    askedAt_ = util::clock().SteadyNow();  // the far end counts from its answer
    return result;
}

bool query_client_t::KeepsOwners() {
    if (!keepsOwners_) {
        keepsOwners_ = Ask({.query = EQuery::eAbout}, [this] { return stream_.ReadFlag(); });
    }
    return *keepsOwners_;
}

std::vector<std::optional<object_brief_t>> query_client_t::Examine(const std::vector<std::string>& paths) {
    std::vector<std::optional<object_brief_t>> found;
    found.reserve(paths.size());
    for (std::size_t begin = 0; begin < paths.size(); begin += kMaxObjects) {
        const auto first = paths.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto count = static_cast<std::ptrdiff_t>(std::min<std::size_t>(kMaxObjects, paths.size() - begin));
        ExaminePart({first, first + count}, found);
    }
    return found;
}

void query_client_t::ExaminePart(std::vector<std::string> paths, std::vector<std::optional<object_brief_t>>& found) {
    const std::size_t wanted = paths.size();
    const std::string fault = Ask({.query = EQuery::eExamine, .names = std::move(paths)}, [&] {
        if (const std::uint32_t count = stream_.ReadU32(); count != wanted) {
            ThrowInvalid(std::to_string(count) + " findings for " + std::to_string(wanted) + " names");
        }
        std::string first;
        for (std::size_t left = wanted; left != 0; --left) {
            finding_t finding = ReadFinding(stream_);
            first = first.empty() ? finding.fault : first;
            found.push_back(std::move(finding.brief));
        }
        return first;
    });
    if (!fault.empty()) {
        throw exc::CRuntimeExc(fault);
    }
}

std::vector<listed_object_t> query_client_t::List(const std::string& directory) {
    return Ask({.query = EQuery::eList, .names = {directory}}, [&] { return ReadPages(directory); });
}

std::vector<listed_object_t> query_client_t::ReadPages(const std::string& directory) {
    std::vector<listed_object_t> listed;
    std::uint64_t bytes = 0;
    for (std::uint32_t count = stream_.ReadU32(); count != 0; count = stream_.ReadU32()) {
        const std::size_t before = listed.size();
        ReadPage(count, listed);
        for (std::size_t i = before; i < listed.size(); ++i) {
            bytes += BytesOf(listed[i]);
        }
        if (listed.size() > kMaxListed || bytes > kMaxListedBytes) {
            throw exc::CRuntimeExc("Directory [%1] has more objects than can be listed.", directory);
        }
        AwaitAnswer();
    }
    return listed;
}

void query_client_t::ReadPage(std::uint32_t count, std::vector<listed_object_t>& listed) {
    const message_limit_t limit(*connection_.channel);
    if (count > kMaxObjects) {
        ThrowInvalid("a page of " + std::to_string(count) + " objects");
    }
    for (; count != 0; --count) {
        std::string name = stream_.ReadString(kMaxComponentBytes);
        CheckListedName(name, listed);
        finding_t finding = ReadFinding(stream_);
        if (!finding.brief && finding.fault.empty()) {
            ThrowInvalid("[" + ShownName(name) + "] is listed but not there");
        }
        listed.push_back(
            {std::move(name), std::move(finding.brief).value_or(object_brief_t{}), std::move(finding.fault)});
    }
}

util::CFileInfo query_client_t::ReadInfo(const std::string& path) {
    return Ask({.query = EQuery::eReadInfo, .names = {path}}, [this] { return util::CFileInfo::fromStream(stream_); });
}

std::optional<content_digest_t> query_client_t::Digest(const std::string& path) {
    return Ask({.query = EQuery::eDigest, .names = {path}}, [this]() -> std::optional<content_digest_t> {
        if (!stream_.ReadFlag()) {
            return std::nullopt;
        }
        const std::uint64_t size = stream_.ReadU64();
        return content_digest_t{size, ReadDigest(stream_)};
    });
}

std::optional<partial_t> query_client_t::FindPartial(const std::string& path, std::uint64_t size,
                                                     const util::SFileTime& time) {
    return Ask({.query = EQuery::eFindPartial, .names = {path}, .size = size, .time = time},
               [this]() -> std::optional<partial_t> {
                   if (!stream_.ReadFlag()) {
                       return std::nullopt;
                   }
                   const std::uint64_t length = stream_.ReadU64();
                   return partial_t{length, ReadDigest(stream_)};
               });
}

void query_client_t::Remove(const std::string& path) {
    Ask({.query = EQuery::eRemove, .names = {path}}, [] { return 0; });
}

void query_client_t::MakeDirectory(const std::string& path) {
    Ask({.query = EQuery::eMakeDirectory, .names = {path}}, [] { return 0; });
}

void query_client_t::Move(const std::string& from, const std::string& to, EReplace replace) {
    Ask({.query = EQuery::eMove, .names = {from, to}, .replace = replace == EReplace::eYes}, [] { return 0; });
}

void query_client_t::KeepAlive() noexcept {
    try {
        if (!broken_ && util::clock().SteadyNow() - askedAt_ >= FarIdleTime() / 4) {
            std::vector<std::optional<object_brief_t>> nothing;
            ExaminePart({}, nothing);
        }
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to keep a session alive.");
    }
}

bool query_client_t::IsUsable() const {
    return !broken_ && util::clock().SteadyNow() - askedAt_ < FarIdleTime() / 2;
}

std::chrono::milliseconds query_client_t::FarIdleTime() const {
    return std::chrono::seconds(connection_.limits.idleSeconds);
}

void query_client_t::Send(const question_t& question) {
    askedAt_ = util::clock().SteadyNow();
    const message_limit_t limit(*connection_.channel);
    WriteQuestion(stream_, question);
    stream_.Flush();
}

void query_client_t::AwaitAnswer() {
    for (;;) {
        const std::uint32_t answer = stream_.ReadU32();
        switch (static_cast<EAnswer>(answer)) {
            case EAnswer::eOk:
                return;
            case EAnswer::eWorking:
                if (onWorking_) {
                    onWorking_();
                }
                continue;
            case EAnswer::eFailed: {
                const std::string text = io::acknowledge_protocol_t(stream_).ReadText();
                broken_ = false;
                throw exc::CRuntimeExc(text);
            }
            case EAnswer::eAlreadyExists: {
                const std::string text = io::acknowledge_protocol_t(stream_).ReadText();
                broken_ = false;
                throw exc::CAlreadyExistsExc(text);
            }
        }
        ThrowInvalid("answer " + std::to_string(answer));
    }
}

}  // namespace agent::query
