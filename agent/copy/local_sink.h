#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/copy/copy.h"
#include "agent/copy/item_sink.h"
#include "agent/staging/staging_receiver.h"

namespace agent::copy {

/// A directory of this machine, written as a receiving agent writes: staged, given its attributes, renamed into place.
/// Its root is the nearest existing directory above the destination.
class local_sink_t final : public item_sink_t {
  public:
    /// `options` must outlive the sink.
    local_sink_t(const std::string& destination, const copy_options_t& options);
    ~local_sink_t() override;

    bool IsDirectory(const std::string& path) override;
    std::optional<std::string> FindInTheWay(const std::vector<question_t>& questions) override;
    std::vector<std::optional<object_brief_t>> Examine(const std::vector<std::string>& paths) override;
    bool KeepsOwners() override;
    std::optional<query::content_digest_t> Digest(const std::string& path) override;
    std::optional<partial_t> FindPartial(const std::string& path, std::uint64_t size,
                                         const util::SFileTime& time) override;
    bool TakesGroups() const override { return true; }
    committed_t Commit(const guid::guid_t& copy, std::uint64_t entries) override;
    void Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t size, bool overwrite,
             std::shared_ptr<progress::progress_base_t> progress, std::vector<copy_note_t>& warnings) override;
    /// Makes the staging folder; its errors.
    void Begin() override;
    void End() override;
    std::string Shown(const std::string& path) const override;

  private:
    std::shared_ptr<io::area::area_write_dev_t> Receive(item_t item, std::uint64_t size, bool overwrite) const;
    void Transfer(std::shared_ptr<io::area::area_read_dev_t> source, std::shared_ptr<io::area::area_write_dev_t> device,
                  std::shared_ptr<progress::progress_base_t> progress) const;
    std::string BelowRoot(const std::string& path) const;

    const copy_options_t& options_;
    std::string prefix_;  ///< of the destination below the root; empty when it is the root
    std::shared_ptr<const confined_root_t> root_;
    std::shared_ptr<staging_t> staging_;            ///< made by Begin: a copy that is refused leaves no trace
    std::unique_ptr<staging_receiver_t> receiver_;  ///< likewise
};

}  // namespace agent::copy
