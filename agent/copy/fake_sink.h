#pragma once

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/batch/unpacked_batch.h"
#include "agent/copy/item_sink.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::copy {

/// A place in memory for tests of what a copy decides: it keeps what was put, fails where it is told to, and answers
/// questions from what the test laid down. Nothing in it is locked: that nobody puts while a batch or a commit is under
/// way is the sender's part, and the thread sanitizer's to see.
class fake_sink_t final : public item_sink_t {
  public:
    struct put_t {
        item_t item;
        bool overwrite = false;
        std::string content;  ///< of what came in a batch
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
    committed_t Commit(const guid::guid_t&, std::uint64_t entries) override {
        commits.push_back(entries);
        calls.push_back("commit " + std::to_string(entries));
        if (!commitFault.empty()) {
            throw exc::CRuntimeExc("%1", commitFault);
        }
        committed_t committed = std::exchange(inBatches_, {});
        for (const std::string& text : commitWarnings) {
            committed.warnings.push_back({"there", text});
        }
        for (lost_entry_t& entry : std::exchange(lost, {})) {
            committed.lost.push_back(std::move(entry));
        }
        return committed;
    }
    bool TakesBatches() const override { return true; }
    std::string PathInBatch(const std::string& path) const override { return batchPrefix + path; }
    void PutBatch(const batch::batch_t& batch, bool overwrite) override {
        calls.push_back("batch of " + std::to_string(batch.items.size()));
        if (onBatch) {
            onBatch();
        }
        if (!batchFaults.empty()) {
            const std::string fault = std::exchange(batchFaults.front(), {});
            batchFaults.pop_front();
            if (!fault.empty()) {
                throw exc::CRuntimeExc("%1", fault);
            }
        }
        if (batch.file) {
            Unpack(batch, overwrite);
        }
    }
    void Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t, bool overwrite,
             std::shared_ptr<progress::progress_base_t>, std::vector<copy_note_t>& warnings) override {
        while (source->ReadNext()) {
        }
        calls.push_back("put " + item.path);
        if (failing.count(item.path) != 0 || (item.kind == EItemKind::eHardLink && refusesHardLinks)) {
            throw exc::CRuntimeExc("Cannot put [%1].", item.path);
        }
        if (warned.count(item.path) != 0) {
            warnings.push_back({item.path, "an attribute was not kept"});
        }
        puts.push_back({item, overwrite, ""});
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
    std::string batchPrefix = "below/";
    std::function<void()> onBatch;        ///< with each batch, before anything else
    std::deque<std::string> batchFaults;  ///< of the next batches; an empty text for one that is taken
    std::vector<put_t> puts;              ///< what came in a batch, too
    std::vector<std::uint64_t> commits;
    std::vector<lost_entry_t> lost;
    std::vector<std::string> commitWarnings;
    std::string commitFault;
    std::vector<std::string> calls;  ///< "batch of 2", "put a", "commit 3", in order, failed ones, too
    int questions = 0;
    int begun = 0;

  private:
    // What becomes of the entries is told with their commit.
    void Unpack(const batch::batch_t& batch, bool overwrite) {
        for (batch::unpacked_entry_t& entry : batch::unpacked_batch_t(batch).entries) {
            const std::uint64_t number = entry.item.entry;
            entry.item.path.erase(0, batchPrefix.size());
            const std::string& path = entry.item.path;
            if (failing.count(path) != 0) {
                inBatches_.lost.push_back({number, "Cannot put [" + path + "]."});
                continue;
            }
            if (warned.count(path) != 0) {
                inBatches_.warnings.push_back({path, "an attribute was not kept"});
                inBatches_.warned.insert(number);
            }
            puts.push_back({std::move(entry.item), overwrite, std::move(entry.content)});
        }
    }

    committed_t inBatches_;
};

}  // namespace agent::copy
