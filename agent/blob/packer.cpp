#include "agent/blob/packer.h"

#include <exception>
#include <utility>

#include "agent/blob/content_writer.h"
#include "mirrowen/util/fs.h"
#include "mirrowen/util/str_format.h"

namespace agent::blob {

namespace {

using area_ptr_t = std::shared_ptr<io::area::IArea>;

constexpr std::uint64_t kChunk = std::uint64_t{1} << 20;
/// As much of a file is read before anything of it is packed.
constexpr std::uint64_t kReadAhead = 4 * kChunk;

std::vector<area_ptr_t> read_ahead(io::area::area_read_dev_t& source) {
    std::vector<area_ptr_t> areas;
    for (std::uint64_t bytes = 0; bytes < kReadAhead;) {
        area_ptr_t area = source.ReadNext();
        if (!area) {
            break;
        }
        bytes += area->GetKind() == io::area::EAreaKind::eSparse ? 0 : area->GetSize();
        areas.push_back(std::move(area));
    }
    return areas;
}

// Nothing at the end, and with `fault` set when reading fails.
area_ptr_t read_next(io::area::area_read_dev_t& source, std::string& fault) {
    try {
        return source.ReadNext();
    } catch (const std::exception& error) {
        fault = error.what();
        return nullptr;
    }
}

}  // namespace

packer_t::packer_t(const pack_options_t& options, tarn::blobfs::BlobCreater& creater, pack_report_t& report)
    : options_(options), creater_(creater), report_(report) {
    creater_.CreateDir(options_.target, false);
}

packer_t::~packer_t() = default;

void packer_t::Run(const copy::opened_tree_t& source) {
    source_ = &source;
    WalkTree(*source.tree, source.top, *this);
}

void packer_t::OnEntry(const tree_entry_t& entry) {
    const EEntryKind kind = entry.brief.kind;
    if (IsSpecial(kind)) {
        report_.skipped.push_back({source_->tree->Shown(entry.name), NameOfKind(kind)});
        return;
    }
    const std::string target = TargetOf(entry.name);
    if (kind == EEntryKind::eLink) {
        Fail(entry.name, "A blob file cannot hold a link.");
    } else if (target.size() > kMaxTarget) {
        Fail(entry.name,
             util::str_format("Its target path has [%1] bytes; a path has at most [%2].", target.size(), kMaxTarget));
    } else if (kind == EEntryKind::eFile) {
        PackFile(entry, target);
    } else if (!IsTarget(entry)) {
        creater_.CreateDir(target, false);
    }
}

void packer_t::OnDirectoryLeft(const tree_entry_t& entry) {
    const std::string target = TargetOf(entry.name);
    if (IsTarget(entry) || target.size() > kMaxTarget) {
        return;
    }
    if (const auto loaded = TryLoad(entry)) {
        creater_.SetFileMetadata(loaded->item.info, target);
        ++report_.directories;
    }
}

void packer_t::OnUnreadable(const std::string& name, const std::string& fault) {
    Fail(name, fault);
}

void packer_t::PackFile(const tree_entry_t& entry, const std::string& target) {
    const auto loaded = TryLoad(entry);
    if (!loaded || !PackContent(entry.name, target, *loaded->source)) {
        return;
    }
    creater_.SetFileMetadata(loaded->item.info, target);
    ++report_.files;
    if (loaded->hasChanged && loaded->hasChanged()) {
        const std::string shown = source_->tree->Shown(entry.name);
        report_.warnings.push_back({shown, util::str_format("File [%1] changed while it was read.", shown)});
    }
}

// False when the file could not be read to its end. What is thrown are errors of the blob files.
bool packer_t::PackContent(const std::string& name, const std::string& target, io::area::area_read_dev_t& source) {
    std::vector<area_ptr_t> ahead;
    try {
        ahead = read_ahead(source);
    } catch (const std::exception& error) {
        Fail(name, error.what());
        return false;
    }
    creater_.CreateFile(target, options_.overwrite);
    content_writer_t writer([&](std::uint64_t offset, const void* data, std::uint64_t size) {
        creater_.WriteFile(target, offset, data, size);
    });
    for (area_ptr_t& area : ahead) {
        writer.Put(*std::exchange(area, nullptr));
    }
    std::string fault;
    while (const area_ptr_t area = read_next(source, fault)) {
        writer.Put(*area);
    }
    report_.bytes += writer.GetWritten();
    if (!fault.empty()) {
        Fail(name, fault + "\nThe blob files hold a part of it.");
        return false;
    }
    writer.Finish();
    return true;
}

// The target directory itself is there already and keeps its attributes.
bool packer_t::IsTarget(const tree_entry_t& entry) const {
    return source_->baseName.empty() && entry.name == source_->top && entry.brief.kind == EEntryKind::eDirectory;
}

std::string packer_t::TargetOf(const std::string& name) const {
    const std::string& top = source_->top;
    const std::string below = top.empty() ? name : name.size() == top.size() ? "" : name.substr(top.size() + 1);
    return util::fs_merge_path(util::fs_merge_path(options_.target, source_->baseName), below);
}

std::optional<copy::loaded_item_t> packer_t::TryLoad(const tree_entry_t& entry) {
    try {
        return source_->tree->Load(entry, entry.name, {kChunk}, report_.warnings);
    } catch (const std::exception& error) {
        Fail(entry.name, error.what());
        return std::nullopt;
    }
}

void packer_t::Fail(const std::string& name, const std::string& text) {
    report_.failed.push_back({source_->tree->Shown(name), text});
}

}  // namespace agent::blob
