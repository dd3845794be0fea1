#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/copy/copy.h"
#include "agent/copy/item_sink.h"
#include "agent/net/remote_session.h"
#include "agent/path/location.h"
#include "agent/query/query_client.h"
#include "mirrowen/io/area/area_dev_token.h"
#include "mirrowen/io/block/buf_transform.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/clock.h"

namespace agent::copy {

/// A place below the root of a receiving agent. A failed item ends its session, so the next item opens another.
/// Questions that the upload session has no command for go over a connection of their own, opened with the first of
/// them.
///
/// Batches and commits may come from another thread than everything else; the session goes from one to the other.
class remote_sink_t final : public item_sink_t {
  public:
    /// Connects at once. `location` is remote; `options` must outlive the sink.
    remote_sink_t(location_t location, const copy_options_t& options);
    ~remote_sink_t() override;

    bool IsDirectory(const std::string& path) override;
    std::optional<std::string> FindInTheWay(const std::vector<question_t>& questions) override;
    std::vector<std::optional<object_brief_t>> Examine(const std::vector<std::string>& paths) override;
    bool KeepsOwners() override;
    std::optional<query::content_digest_t> Digest(const std::string& path) override;
    std::optional<partial_t> FindPartial(const std::string& path, std::uint64_t size,
                                         const util::SFileTime& time) override;
    bool TakesGroups() const override { return true; }
    committed_t Commit(const guid::guid_t& copy, std::uint64_t entries) override;
    bool TakesBatches() const override { return true; }
    std::string PathInBatch(const std::string& path) const override { return OnTheWire(path); }
    void PutBatch(const batch::batch_t& batch, bool overwrite) override;
    void Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t size, bool overwrite,
             std::shared_ptr<progress::progress_base_t> progress, std::vector<copy_note_t>& warnings) override;
    /// Asks for nothing when a quarter of the time has passed after which the far end gives up. A session that is busy
    /// is alive.
    void KeepAlive() noexcept override;
    void End() override;
    std::string Shown(const std::string& path) const override;

  private:
    /// Something to upload; see tarn::file_upload_cli_t::UploadItem.
    struct upload_t {
        std::shared_ptr<io::area::area_read_dev_t> source;
        std::shared_ptr<io::area::IAreaDevToken> token;
        std::uint64_t size = 0;
        io::block::EBufTransformType transform = io::block::EBufTransformType::eNone;
        bool overwrite = false;
        std::shared_ptr<progress::progress_base_t> progress{};
    };

    net::remote_session_t& Session() REQUIRES(mutex_);
    std::chrono::milliseconds Patience() const REQUIRES(mutex_);
    bool IsQuietForLong() const REQUIRES(mutex_);
    void Upload(const upload_t& upload);
    template <class Question>
    auto Ask(const Question& question);
    std::string OnTheWire(const std::string& path) const;
    std::set<std::string> AskWhatExists(const std::vector<std::string>& paths);
    std::set<std::string> AskSession(const std::vector<std::string>& paths) REQUIRES(mutex_);
    void KeepSessionAlive();

    const location_t location_;
    const copy_options_t& options_;
    synch::mutex_t mutex_;
    std::unique_ptr<net::remote_session_t> session_ GUARDED_BY(mutex_);
    util::IClock::steady_point_t usedAt_ GUARDED_BY(mutex_){};
    std::unique_ptr<query::query_client_t> queries_;
};

}  // namespace agent::copy
