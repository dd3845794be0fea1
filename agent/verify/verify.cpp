#include "agent/verify/verify.h"

#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "agent/copy/open_tree.h"
#include "agent/path/location.h"
#include "agent/tree/walk_tree.h"
#include "agent/verify/compare_attributes.h"
#include "agent/verify/compare_content.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str_format.h"
#include "tarn/blocks/seq_fileblocks_reader.h"
#include "tarn/fs_operations.h"

namespace agent::verify {

namespace {

constexpr std::size_t kMaxDifferences = 1000;

/// Collects the outcome.
class findings_t {
  public:
    void Add(const std::string& path, std::string text) {
        if (++count_ <= kMaxDifferences) {
            report.differences.push_back({path, std::move(text)});
        }
    }

    verify_report_t Take() {
        if (count_ > kMaxDifferences) {
            report.differences.push_back({"", util::str_format("%1 more differences", count_ - kMaxDifferences)});
        }
        return std::move(report);
    }

    verify_report_t report;

  private:
    std::size_t count_ = 0;
};

std::string join(const std::string& left, const std::string& right) {
    return left.empty() || right.empty() ? left + right : left + "/" + right;
}

/// One of the two things that are compared: an object of a tree with everything below it.
struct side_t {
    std::shared_ptr<copy::item_source_t> tree;
    std::string top;
};

copy::loaded_item_t load(copy::item_source_t& tree, const tree_entry_t& entry) {
    std::vector<copy::copy_note_t> unread;  // attributes that cannot be read differ from those that can
    return tree.Load(entry, entry.name, {}, unread);
}

/// Walks the first tree and looks up each of its objects in the second.
class comparer_t final : public tree_visitor_t {
  public:
    comparer_t(const side_t& first, const side_t& second, const verify_options_t& options, findings_t& findings)
        : first_(first), second_(second), options_(options), findings_(findings) {}

    void OnEntry(const tree_entry_t& entry) override {
        const std::string path = Below(entry.name);
        if (IsSpecial(entry.brief.kind) || (!path.empty() && path == kStagingFolder)) {
            return;
        }
        try {
            Compare(entry, path);
        } catch (const std::exception& error) {
            findings_.Add(path, error.what());
        }
    }
    void OnDirectoryLeft(const tree_entry_t&) override {}
    void OnUnreadable(const std::string& name, const std::string& fault) override { findings_.Add(Below(name), fault); }

  private:
    std::string Below(const std::string& entry) const {
        const std::string& top = first_.top;
        return top.empty() ? entry : entry.size() == top.size() ? "" : entry.substr(top.size() + 1);
    }

    void Compare(const tree_entry_t& entry, const std::string& path) {
        const std::optional<tree_entry_t> other = second_.tree->TryExamine(join(second_.top, path));
        if (!other) {
            findings_.Add(path, "missing in the second");
        } else if (other->brief.kind != entry.brief.kind) {
            findings_.Add(
                path, util::str_format("%1 against %2", NameOfKind(entry.brief.kind), NameOfKind(other->brief.kind)));
        } else {
            CompareSame(entry, path, *other);
        }
    }

    void CompareSame(const tree_entry_t& entry, const std::string& path, const tree_entry_t& other) {
        const copy::loaded_item_t left = load(*first_.tree, entry);
        const copy::loaded_item_t right = load(*second_.tree, other);
        if (entry.brief.kind == EEntryKind::eFile) {
            ++findings_.report.files;
            CompareFiles(left, right, path);
        } else if (entry.brief.kind == EEntryKind::eLink) {
            ++findings_.report.links;
            if (left.item.second != right.item.second) {
                findings_.Add(path, "link target differs");
            }
        } else {
            ++findings_.report.directories;
            CompareNames(entry.name, path, other.name);
        }
        for (std::string& text : CompareAttributes(left.item.info, right.item.info, options_)) {
            findings_.Add(path, std::move(text));
        }
    }

    void CompareFiles(const copy::loaded_item_t& left, const copy::loaded_item_t& right, const std::string& path) {
        if (left.size != right.size) {
            findings_.Add(path, util::str_format("size %1 against %2", left.size, right.size));
        } else if (auto text = CompareContent(*left.source, *right.source, findings_.report.bytes)) {
            findings_.Add(path, *std::move(text));
        }
    }

    // What only the second directory holds.
    void CompareNames(const std::string& directory, const std::string& path, const std::string& other) {
        std::set<std::string> known;
        for (const tree_entry_t& entry : first_.tree->List(directory)) {
            known.insert(LastOf(entry.name));
        }
        for (const tree_entry_t& entry : second_.tree->List(other)) {
            const std::string name = LastOf(entry.name);
            if (known.count(name) == 0 && !(path.empty() && name == kStagingFolder)) {
                findings_.Add(join(path, name), "only in the second");
            }
        }
    }

    static std::string LastOf(const std::string& name) { return name.substr(name.find_last_of('/') + 1); }

    const side_t& first_;
    const side_t& second_;
    const verify_options_t& options_;
    findings_t& findings_;
};

// A side that can be looked through, or nothing for one that is just a stream of bytes.
std::optional<side_t> try_open_side(const std::string& path, const verify_options_t& options) {
    std::optional<copy::opened_tree_t> opened =
        copy::TryOpenTree(path, options.remote, io::block::EBufTransformType::eLz4);
    if (!opened) {
        return std::nullopt;
    }
    return side_t{std::move(opened->tree), std::move(opened->top)};
}

struct single_file_t {
    std::uint64_t size = 0;
    std::shared_ptr<io::area::area_read_dev_t> content;
};

single_file_t load_single(const side_t& side) {
    const std::optional<tree_entry_t> entry = side.tree->TryExamine(side.top);
    if (!entry || entry->brief.kind != EEntryKind::eFile) {
        throw exc::CRuntimeExc("[%1] is not a regular file.", side.tree->Shown(side.top));
    }
    copy::loaded_item_t loaded = load(*side.tree, *entry);
    return {loaded.size, std::move(loaded.source)};
}

// Only the trees know another agent; everything else is known to the library.
single_file_t open_single(const std::string& path, const std::optional<side_t>& side) {
    if (side && ParseLocation(path).isRemote) {
        return load_single(*side);
    }
    std::shared_ptr<tarn::file_rstream_t> stream = tarn::fs_operations_t::RecognizeFsPath(path, 0)->OpenFile4Read(path);
    const std::uint64_t size = stream->GetFileSize();
    return {size,
            std::make_shared<tarn::seq_fileblocks_reader_t>(std::move(stream), io::block::kDefaultBlockSize, size)};
}

// At least one side is just a stream of bytes: the contents of two single files are compared.
void compare_singles(const single_file_t& left, const single_file_t& right, findings_t& findings) {
    ++findings.report.files;
    if (left.size != right.size) {
        findings.Add("", util::str_format("size %1 against %2", left.size, right.size));
    } else if (auto text = CompareContent(*left.content, *right.content, findings.report.bytes)) {
        findings.Add("", *std::move(text));
    }
}

}  // namespace

verify_report_t Verify(const std::string& first, const std::string& second, const verify_options_t& options) {
    findings_t findings;
    const std::optional<side_t> left = try_open_side(first, options);
    const std::optional<side_t> right = try_open_side(second, options);
    if (left && right) {
        comparer_t comparer(*left, *right, options, findings);
        WalkTree(*left->tree, left->top, comparer);
    } else {
        compare_singles(open_single(first, left), open_single(second, right), findings);
    }
    return findings.Take();
}

}  // namespace agent::verify
