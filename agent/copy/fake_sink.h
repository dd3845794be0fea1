#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/copy/item_sink.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::copy {

/// A place in memory for tests of what a copy decides: it keeps what was put, fails where it is told to, and answers
/// questions from what the test laid down.
class fake_sink_t final : public item_sink_t {
  public:
    struct put_t {
        item_t item;
        bool overwrite = false;
    };

    bool IsDirectory(const std::string&) override { return true; }
    std::optional<std::string> FindInTheWay(const std::vector<question_t>&) override { return std::nullopt; }
    std::vector<std::optional<object_brief_t>> Examine(const std::vector<std::string>& paths) override {
        ++questions;
        std::vector<std::optional<object_brief_t>> found;
        for (const std::string& path : paths) {
            if (bad.count(path) != 0) {
                throw exc::CRuntimeExc("Bad name [%1].", path);
            }
            const auto at = there.find(path);
            found.push_back(at == there.end() ? std::nullopt : std::optional(at->second));
        }
        return found;
    }
    bool KeepsOwners() override { return true; }
    std::optional<query::content_digest_t> Digest(const std::string& path) override {
        const auto at = digests.find(path);
        return at == digests.end() ? std::nullopt : std::optional(at->second);
    }
    std::optional<partial_t> FindPartial(const std::string& path, std::uint64_t, const util::SFileTime&) override {
        if (refusesPartials) {
            throw exc::CRuntimeExc("no session left");
        }
        const auto at = partials.find(path);
        return at == partials.end() ? std::nullopt : std::optional(at->second);
    }
    bool TakesGroups() const override { return true; }
    std::vector<lost_entry_t> Commit(const guid::guid_t&, std::uint64_t entries,
                                     std::vector<copy_note_t>& warnings) override {
        commits.push_back(entries);
        if (!commitFault.empty()) {
            throw exc::CRuntimeExc("%1", commitFault);
        }
        for (const std::string& text : commitWarnings) {
            warnings.push_back({"there", text});
        }
        return std::exchange(lost, {});
    }
    void Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t, bool overwrite,
             std::shared_ptr<progress::progress_base_t>, std::vector<copy_note_t>& warnings) override {
        while (source->ReadNext()) {
        }
        if (failing.count(item.path) != 0 || (item.kind == EItemKind::eHardLink && refusesHardLinks)) {
            throw exc::CRuntimeExc("Cannot put [%1].", item.path);
        }
        if (warned.count(item.path) != 0) {
            warnings.push_back({item.path, "an attribute was not kept"});
        }
        puts.push_back({item, overwrite});
    }
    void Begin() override { ++begun; }
    void End() override {}
    std::string Shown(const std::string& path) const override { return "fake:" + path; }

    /// What was put, in order: "file a", "hard link b -> a".
    std::vector<std::string> Put() const {
        std::vector<std::string> texts;
        for (const put_t& put : puts) {
            const bool isLink = put.item.kind == EItemKind::eHardLink;
            texts.push_back(std::string(NameOfKind(put.item.kind)) + " " + put.item.path +
                            (isLink ? " -> " + put.item.second : ""));
        }
        return texts;
    }

    std::map<std::string, object_brief_t> there;
    std::map<std::string, query::content_digest_t> digests;
    bool refusesPartials = false;  ///< what is kept cannot be asked for
    std::map<std::string, partial_t> partials;
    std::set<std::string> bad, failing, warned;
    bool refusesHardLinks = false;
    std::vector<put_t> puts;
    std::vector<std::uint64_t> commits;
    std::vector<lost_entry_t> lost;
    std::vector<std::string> commitWarnings;
    std::string commitFault;
    int questions = 0;
    int begun = 0;
};

}  // namespace agent::copy
