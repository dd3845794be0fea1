#include "agent/copy/remote_sink.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <span>
#include <utility>

#include "agent/copy/empty_source.h"
#include "agent/copy/entry_outcome.h"
#include "agent/copy/file_source.h"
#include "agent/copy/hearing_source.h"
#include "agent/token/item_token.h"
#include "mirrowen/logging/log_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "tarn/batch/batch_area_dev_token.h"

namespace agent::copy {

namespace {

// A directory is told from a file by the entry "." in it.
std::string directory_probe(const std::string& path) {
    return path.empty() ? "." : path + "/.";
}

constexpr std::size_t kQuestionsAtOnce = 4096;

}  // namespace

remote_sink_t::remote_sink_t(location_t location, const copy_options_t& options)
    : location_(std::move(location)), options_(options) {
    const synch::lock_t lock(mutex_);
    Session();
}

remote_sink_t::~remote_sink_t() = default;

bool remote_sink_t::IsDirectory(const std::string& path) {
    const std::string probe = directory_probe(OnTheWire(path));
    return AskWhatExists({probe}).count(probe) != 0;
}

std::optional<std::string> remote_sink_t::FindInTheWay(const std::vector<question_t>& questions) {
    for (std::size_t begin = 0; begin < questions.size(); begin += kQuestionsAtOnce) {
        const auto part = std::span(questions).subspan(begin, std::min(kQuestionsAtOnce, questions.size() - begin));
        std::vector<std::string> paths;
        for (const question_t& question : part) {
            paths.push_back(OnTheWire(question.path));
            if (question.forDirectory) {
                paths.push_back(directory_probe(paths.back()));
            }
        }
        const std::set<std::string> existing = AskWhatExists(paths);
        for (const question_t& question : part) {
            const std::string path = OnTheWire(question.path);
            const bool merges = question.forDirectory && existing.count(directory_probe(path)) != 0;
            if (existing.count(path) != 0 && !merges) {
                return question.path;
            }
        }
    }
    return std::nullopt;
}

// A connection that was used before may have been given up by the far end meanwhile: then a new one is asked.
template <class Question>
auto remote_sink_t::Ask(const Question& question) {
    if (queries_) {
        try {
            return question(*queries_);
        } catch (const std::exception& error) {
            options_.remote.ThrowIfStopped();
            logging::LogExc(error, "A question is asked again over a new connection.");
            queries_.reset();
        }
    }
    queries_ = std::make_unique<query::query_client_t>(location_.endpoint, options_.remote);
    queries_->OnWorking([this] { KeepAlive(); });
    return question(*queries_);
}

std::vector<std::optional<object_brief_t>> remote_sink_t::Examine(const std::vector<std::string>& paths) {
    std::vector<std::string> names;
    names.reserve(paths.size());
    for (const std::string& path : paths) {
        names.push_back(OnTheWire(path));
    }
    return Ask([&](query::query_client_t& queries) { return queries.Examine(names); });
}

bool remote_sink_t::KeepsOwners() {
    return Ask([](query::query_client_t& queries) { return queries.KeepsOwners(); });
}

std::optional<query::content_digest_t> remote_sink_t::Digest(const std::string& path) {
    return Ask([&](query::query_client_t& queries) { return queries.Digest(OnTheWire(path)); });
}

std::optional<partial_t> remote_sink_t::FindPartial(const std::string& path, std::uint64_t size,
                                                    const util::SFileTime& time) {
    return Ask([&](query::query_client_t& queries) { return queries.FindPartial(OnTheWire(path), size, time); });
}

item_sink_t::committed_t remote_sink_t::Commit(const guid::guid_t& copy, std::uint64_t entries) {
    item_t commit;
    commit.kind = EItemKind::eCommit;
    commit.copy = copy;
    commit.entry = entries;
    commit.unsynced = options_.durability == EDurability::eNone;
    entry_outcome_t outcome;
    Upload({.source = std::make_shared<hearing_source_t>(std::make_shared<empty_source_t>("commit"), outcome),
            .token = std::make_shared<item_token_t>(std::move(commit)),
            .transform = options_.compression});
    return outcome.Take();
}

void remote_sink_t::Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t size,
                        bool overwrite, std::shared_ptr<progress::progress_base_t> progress,
                        std::vector<copy_note_t>& warnings) {
    item_t sent = item;
    sent.path = OnTheWire(item.path);
    if (item.kind == EItemKind::eHardLink) {
        sent.second = OnTheWire(item.second);
    }
    entry_outcome_t outcome;
    Upload({.source = std::make_shared<hearing_source_t>(std::move(source), outcome),
            .token = std::make_shared<item_token_t>(std::move(sent)),
            .size = size,
            .transform = options_.compression,
            .overwrite = overwrite,
            .progress = std::move(progress)});
    for (copy_note_t& warning : outcome.Take().warnings) {
        warnings.push_back(std::move(warning));
    }
}

// A frame is packed already; only what packs better than it is worth a second time.
void remote_sink_t::PutBatch(const batch::batch_t& batch, bool overwrite) {
    using io::block::EBufTransformType;
    struct stat examined {};
    if (posix::sys().fstat(batch.file->GetDescriptor(), &examined) != 0) {
        throw posix::errno_exc_t("Failed to get attributes of [%1]", batch.file->GetPath(), errno);
    }
    Upload({.source = std::make_shared<file_source_t>(batch.file, examined, options_.blockSize),
            .token =
                std::make_shared<tarn::batch::CBatchAreaDevToken>(batch.items, batch.total, overwrite, batch.unsynced),
            .size = static_cast<std::uint64_t>(examined.st_size),
            .transform =
                options_.compression == EBufTransformType::eZstd ? EBufTransformType::eZstd : EBufTransformType::eNone,
            .overwrite = overwrite});
}

void remote_sink_t::Upload(const upload_t& upload) {
    const synch::lock_t lock(mutex_);
    const std::uint64_t blockSize = std::min<std::uint64_t>(options_.blockSize, Session().Limits().maxBlockSize);
    try {
        Session().Client().UploadItem(blockSize, upload.source, upload.token, upload.size, upload.transform, {},
                                      upload.overwrite ? 1 : 0, upload.progress);
    } catch (...) {
        session_.reset();
        throw;
    }
    usedAt_ = util::clock().SteadyNow();
}

void remote_sink_t::KeepAlive() noexcept {
    try {
        KeepSessionAlive();
        if (queries_) {
            queries_->KeepAlive();
        }
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to keep a session alive.");
    }
}

void remote_sink_t::KeepSessionAlive() {
    if (mutex_.try_lock()) {
        const synch::lock_t lock(mutex_, boost::adopt_lock);
        if (session_ && IsQuietForLong()) {
            AskSession({});
        }
    }
}

std::chrono::milliseconds remote_sink_t::Patience() const {
    return std::chrono::seconds(session_->Limits().idleSeconds);
}

bool remote_sink_t::IsQuietForLong() const {
    return util::clock().SteadyNow() - usedAt_ >= Patience() / 4;
}

void remote_sink_t::End() {
    const synch::lock_t lock(mutex_);
    if (session_) {
        session_->End();
        session_.reset();
    }
    queries_.reset();
}

std::string remote_sink_t::Shown(const std::string& path) const {
    return ToString(path.empty() ? location_ : Append(location_, path));
}

// A long answer to a question can leave the session quiet until the far end gives it up: a new one is opened in time.
net::remote_session_t& remote_sink_t::Session() {
    if (session_ && util::clock().SteadyNow() - usedAt_ >= Patience() / 2) {
        session_.reset();
    }
    usedAt_ = util::clock().SteadyNow();
    if (!session_) {
        session_ = std::make_unique<net::remote_session_t>(location_.endpoint, options_.remote);
    }
    return *session_;
}

std::string remote_sink_t::OnTheWire(const std::string& path) const {
    if (path.empty()) {
        return location_.path;
    }
    return location_.path.empty() ? path : location_.path + "/" + path;
}

std::set<std::string> remote_sink_t::AskWhatExists(const std::vector<std::string>& paths) {
    const synch::lock_t lock(mutex_);
    return AskSession(paths);
}

std::set<std::string> remote_sink_t::AskSession(const std::vector<std::string>& paths) {
    std::set<std::string> existing;
    try {
        Session().Client().CheckWhatFilesExist(paths, existing);
    } catch (...) {
        session_.reset();
        throw;
    }
    return existing;
}

}  // namespace agent::copy
