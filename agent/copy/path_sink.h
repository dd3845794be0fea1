#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/copy/copy.h"
#include "agent/copy/item_sink.h"

namespace agent::copy {

/// One file at a path of the library that is neither a host path nor an agent's ("MemFs://slot"). Such a place takes
/// contents only, so directories and links are refused and attributes do not travel.
class path_sink_t final : public item_sink_t {
  public:
    /// `options` must outlive the sink.
    path_sink_t(std::string path, const copy_options_t& options);
    ~path_sink_t() override;

    bool IsDirectory(const std::string& path) override;
    std::optional<std::string> FindInTheWay(const std::vector<question_t>& questions) override;
    /// A place without attributes: nothing is told.
    std::vector<std::optional<object_brief_t>> Examine(const std::vector<std::string>& paths) override;
    bool KeepsOwners() override { return false; }
    /// Of what the backend reads back.
    std::optional<query::content_digest_t> Digest(const std::string& path) override;
    std::optional<partial_t> FindPartial(const std::string& path, std::uint64_t size,
                                         const util::SFileTime& time) override;
    bool TakesGroups() const override { return false; }
    committed_t Commit(const guid::guid_t& copy, std::uint64_t entries) override;
    /// Throws `exc::CRuntimeExc` "[%1] takes a single file." for anything else.
    void Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t size, bool overwrite,
             std::shared_ptr<progress::progress_base_t> progress, std::vector<copy_note_t>& warnings) override;
    void End() override;
    std::string Shown(const std::string& path) const override;

  private:
    const std::string path_;
    const copy_options_t& options_;
};

}  // namespace agent::copy
