#include "agent/query/query_session.h"

#include <algorithm>
#include <future>
#include <span>
#include <stop_token>
#include <type_traits>
#include <utility>
#include <vector>

#include "agent/meta/item_meta.h"
#include "agent/query/content_digest.h"
#include "agent/query/query_wire.h"
#include "agent/query/root_changes.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/io/acknowledge_protocol.h"
#include "mirrowen/io/mem_dev.h"

namespace agent::query {

namespace {

std::string Join(const std::string& directory, const std::string& name) {
    return directory.empty() ? name : directory + "/" + name;
}

finding_t Find(const confined_root_t& root, const std::string& name) {
    try {
        return {Examine(root, name), ""};
    } catch (const std::exception& error) {
        return {std::nullopt, error.what()};
    }
}

util::CFileInfo ReadInfo(const confined_root_t& root, const std::string& name) {
    if (name.empty()) {
        return ReadMeta(root.OpenTop().get(), root.Shown(name), nullptr);
    }
    const mode_t mode = root.Stat(name).st_mode;
    if (S_ISDIR(mode)) {
        return ReadMeta(root.OpenDirectory(name).get(), root.Shown(name), nullptr);
    }
    if (S_ISREG(mode)) {
        return ReadMeta(root.OpenFile(name)->GetDescriptor(), root.Shown(name), nullptr);
    }
    const place_t place = root.OpenParent(name);
    return ReadLinkMeta(place.parent.get(), place.last);
}

// Before the answer begins, since a value that cannot be written fails the request.
std::string Serialized(const util::CFileInfo& info) {
    const auto bytes = std::make_shared<std::string>();
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>(bytes));
    info.Serialize(stream);
    return *bytes;
}

class session_t {
  public:
    session_t(std::shared_ptr<net::session_channel_t> channel, const query_host_t& host)
        : host_(host), root_(*host.root), channel_(std::move(channel)), stream_(channel_), acknowledge_(stream_) {}

    void Run() {
        for (question_t question = Receive(); question.query != EQuery::eEnd; question = Receive()) {
            Serve(question);
        }
    }

  private:
    /// Between two questions a peer may be silent for the idle time; a question that has begun must come.
    question_t Receive() {
        const auto query = static_cast<EQuery>(stream_.ReadU32());
        const message_limit_t limit(*channel_);
        return ReadQuestion(stream_, query);
    }

    void Serve(const question_t& question) {
        const auto& names = question.names;
        switch (question.query) {
            case EQuery::eAbout:
                return Reply([](const std::stop_token&) { return 0; },
                             [this](int) { stream_.WriteFlag(host_.keepsOwners); });
            case EQuery::eExamine:
                return ServeExamine(names);
            case EQuery::eList:
                return ServeList(names.front());
            case EQuery::eReadInfo:
                return ServeReadInfo(names.front());
            case EQuery::eDigest:
                return ServeDigest(names.front());
            case EQuery::eFindPartial:
                return ServeFindPartial(question);
            case EQuery::eRemove:
                return ServeChange([&] { RemoveObject(root_, names.front()); });
            case EQuery::eMakeDirectory:
                return ServeChange([&] { MakeDirectory(root_, names.front()); });
            case EQuery::eMove:
                return ServeChange(
                    [&] { MoveObject(root_, names[0], names[1], question.replace ? EReplace::eYes : EReplace::eNo); });
            case EQuery::eEnd:
                return;
        }
    }

    void ServeExamine(const std::vector<std::string>& names) {
        Reply([&](const std::stop_token&) { return FindAll("", names); },
              [this](const auto& findings) {
                  stream_.WriteU32(static_cast<std::uint32_t>(findings.size()));
                  for (const finding_t& finding : findings) {
                      WriteFinding(stream_, finding);
                  }
              });
    }

    std::vector<finding_t> FindAll(const std::string& directory, std::span<const std::string> names) const {
        std::vector<finding_t> findings;
        for (const std::string& name : names) {
            findings.push_back(Find(root_, directory.empty() ? name : Join(directory, name)));
        }
        return findings;
    }

    void ServeList(const std::string& directory) {
        const auto names = TryWork([&](const std::stop_token&) {
            return directory.empty() ? root_.ListTop(EOrder::eSorted) : root_.List(directory, EOrder::eSorted);
        });
        if (!names) {
            return;
        }
        const std::span<const std::string> all(*names);
        for (std::size_t begin = 0; begin < all.size(); begin += kMaxObjects) {
            SendPage(directory, all.subspan(begin, std::min<std::size_t>(kMaxObjects, all.size() - begin)));
        }
        SendPage(directory, {});
    }

    // What has gone since it was listed is left out, so a page may be short; only the last one is empty.
    void SendPage(const std::string& directory, std::span<const std::string> names) {
        const auto findings = TryWork([&](const std::stop_token&) { return FindAll(directory, names); });
        const auto isThere = [](const finding_t& finding) { return finding.brief || !finding.fault.empty(); };
        const auto there = std::count_if(findings->begin(), findings->end(), isThere);
        if (there == 0 && !names.empty()) {
            return;
        }
        const message_limit_t limit(*channel_);
        stream_.WriteU32(static_cast<std::uint32_t>(EAnswer::eOk));
        stream_.WriteU32(static_cast<std::uint32_t>(there));
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (const finding_t& finding = (*findings)[i]; isThere(finding)) {
                stream_.WriteString(names[i]);
                WriteFinding(stream_, finding);
            }
        }
        stream_.Flush();
    }

    void ServeReadInfo(const std::string& name) {
        Reply([&](const std::stop_token&) { return Serialized(ReadInfo(root_, name)); },
              [this](const std::string& bytes) { stream_.WriteExact(bytes.data(), bytes.size()); });
    }

    void ServeDigest(const std::string& name) {
        Reply([&](const std::stop_token& stop) { return DigestFile(root_, name, stop); },
              [this](const std::optional<content_digest_t>& found) {
                  stream_.WriteFlag(found.has_value());
                  if (found) {
                      stream_.WriteU64(found->size);
                      WriteDigest(stream_, found->digest);
                  }
              });
    }

    void ServeFindPartial(const question_t& question) {
        Reply([&](const std::stop_token&) { return FindPartial(question); },
              [this](const std::optional<partial_t>& found) {
                  stream_.WriteFlag(found.has_value());
                  if (found) {
                      stream_.WriteU64(found->length);
                      WriteDigest(stream_, found->digest);
                  }
              });
    }

    std::optional<partial_t> FindPartial(const question_t& question) const {
        const std::string& name = question.names.front();
        CheckName(name);
        return host_.findPartial ? host_.findPartial(name, question.size, question.time) : std::nullopt;
    }

    template <class Change>
    void ServeChange(const Change& change) {
        Reply(
            [&](const std::stop_token&) {
                change();
                return 0;
            },
            [](int) {});
    }

    /// Answers with what `work` makes, or with why it failed.
    template <class Work, class Write>
    void Reply(const Work& work, const Write& write) {
        if (const auto result = TryWork(work)) {
            const message_limit_t limit(*channel_);
            stream_.WriteU32(static_cast<std::uint32_t>(EAnswer::eOk));
            write(*result);
            stream_.Flush();
        }
    }

    /// Why a piece of work failed, as the peer is told.
    struct failure_t {
        EAnswer answer = EAnswer::eFailed;
        std::string text;
    };

    /// Does `work` on another thread of the session, while the peer hears that it goes on. Nothing, after the peer was
    /// told why, when it fails.
    template <class Work>
    auto TryWork(const Work& work) -> std::optional<std::invoke_result_t<Work, std::stop_token>> {
        std::optional<std::invoke_result_t<Work, std::stop_token>> result;
        failure_t failure;
        std::stop_source stop;
        const std::stop_callback ended(channel_->GetStopToken(), [&stop] { stop.request_stop(); });
        std::future<void> done = channel_->Run([&] {
            try {
                result.emplace(work(stop.get_token()));
            } catch (const exc::CAlreadyExistsExc& error) {
                failure = {EAnswer::eAlreadyExists, error.what()};
            } catch (const std::exception& error) {
                failure = {EAnswer::eFailed, error.what()};
            }
        });
        WaitFor(done, stop);
        done.get();
        if (!result) {
            Refuse(failure);
        }
        return result;
    }

    void Refuse(const failure_t& failure) {
        const message_limit_t limit(*channel_);
        if (failure.answer == EAnswer::eAlreadyExists) {
            acknowledge_.SendAlreadyExistsErr(failure.text);
        } else {
            acknowledge_.SendErr(failure.text);
        }
    }

    // The work uses what lives on our stack, so it is waited for in any case.
    void WaitFor(const std::future<void>& done, std::stop_source& stop) {
        try {
            while (done.wait_for(host_.workingInterval) == std::future_status::timeout) {
                const message_limit_t limit(*channel_);
                stream_.WriteU32(static_cast<std::uint32_t>(EAnswer::eWorking));
                stream_.Flush();
            }
        } catch (...) {
            stop.request_stop();
            done.wait();
            throw;
        }
    }

    const query_host_t& host_;
    const confined_root_t& root_;
    const std::shared_ptr<net::session_channel_t> channel_;
    io::binary_stream_tt stream_;
    io::acknowledge_protocol_t acknowledge_;
};

}  // namespace

void RunQuerySession(const std::shared_ptr<net::session_channel_t>& channel, const query_host_t& host) {
    session_t(channel, host).Run();
}

}  // namespace agent::query
