#include "agent/copy/host_tree.h"

#include <cerrno>
#include <exception>
#include <optional>
#include <utility>

#include "agent/copy/empty_source.h"
#include "agent/copy/file_source.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/file_info_read.h"

namespace agent::copy {

namespace {

void add_warnings(const util::meta_problems_t& problems, std::vector<copy_note_t>& warnings) {
    for (const util::SMetaProblem& problem : problems) {
        warnings.push_back({problem.path, util::DescribeMetaProblem(problem, "get")});
    }
}

struct stat examine(const posix::posix_file_t& file) {
    struct stat examined {};
    if (posix::sys().fstat(file.GetDescriptor(), &examined) != 0) {
        throw posix::errno_exc_t("Failed to get attributes of [%1]", file.GetPath(), errno);
    }
    return examined;
}

loaded_item_t load_file(const confined_root_t& root, const std::string& name, const load_options_t& options,
                        util::meta_problems_t& problems) {
    const std::shared_ptr<posix::posix_file_t> file = root.OpenFile(name);
    const struct stat examined = examine(*file);  // before anything is read: what changes from here on is noticed
    loaded_item_t loaded;
    loaded.item.kind = EItemKind::eFile;
    loaded.item.info = util::ReadFromDescriptor(file->GetDescriptor(), file->GetPath(), problems);
    loaded.item.startOffset = options.startOffset;
    loaded.size = static_cast<std::uint64_t>(examined.st_size);
    const auto source = std::make_shared<file_source_t>(file, examined, options.blockSize, options.startOffset);
    loaded.source = source;
    loaded.hasChanged = [source] { return source->HasChanged(); };
    return loaded;
}

loaded_item_t load_directory(const confined_root_t& root, const std::string& name, util::meta_problems_t& problems) {
    const posix::unique_fd_t directory = name.empty() ? root.OpenTop() : root.OpenDirectory(name);
    loaded_item_t loaded;
    loaded.item.kind = EItemKind::eDirectory;
    loaded.item.info = util::ReadFromDescriptor(directory.get(), root.Shown(name), problems);
    loaded.source = std::make_shared<empty_source_t>(root.Shown(name));
    return loaded;
}

loaded_item_t load_link(const confined_root_t& root, const std::string& name) {
    loaded_item_t loaded;
    loaded.item.kind = EItemKind::eLink;
    loaded.item.second = root.ReadLink(name);
    const place_t place = root.OpenParent(name);
    loaded.item.info = util::ReadLinkInfo(place.parent.get(), place.last);
    loaded.source = std::make_shared<empty_source_t>(root.Shown(name));
    return loaded;
}

std::string join(const std::string& directory, const std::string& name) {
    return directory.empty() ? name : directory + "/" + name;
}

}  // namespace

host_tree_t::host_tree_t(std::shared_ptr<const confined_root_t> root) : root_(std::move(root)) {}

host_tree_t::~host_tree_t() = default;

std::string host_tree_t::Shown(const std::string& name) const {
    return root_->Shown(name);
}

std::optional<tree_entry_t> host_tree_t::TryExamine(const std::string& name) {
    std::optional<object_brief_t> brief = Examine(*root_, name);
    if (!brief) {
        return std::nullopt;
    }
    return tree_entry_t{name, *std::move(brief), ""};
}

std::vector<tree_entry_t> host_tree_t::List(const std::string& directory) {
    const std::vector<std::string> names =
        directory.empty() ? root_->ListTop(EOrder::eSorted) : root_->List(directory, EOrder::eSorted);
    const posix::unique_fd_t opened = directory.empty() ? root_->OpenTop() : root_->OpenDirectory(directory);
    std::vector<tree_entry_t> entries;
    entries.reserve(names.size());
    for (const std::string& name : names) {
        entries.push_back(ExamineIn(opened.get(), name, join(directory, name)));
    }
    return entries;
}

tree_entry_t host_tree_t::ExamineIn(int directory, const std::string& last, std::string name) const {
    tree_entry_t entry;
    entry.name = std::move(name);
    try {
        CheckName(entry.name, EStagingFolder::eOrdinary);  // it may be longer than any call would take
        struct stat found {};
        if (posix::sys().fstatat(directory, last.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
            throw posix::errno_exc_t("Failed to get attributes of [%1]", root_->Shown(entry.name), errno);
        }
        entry.brief = BriefOf(found);
        if (entry.brief.kind == EEntryKind::eLink) {
            entry.brief.target = root_->ReadLink(entry.name);
        }
    } catch (const std::exception& error) {
        entry.fault = error.what();
    }
    return entry;
}

loaded_item_t host_tree_t::Load(const tree_entry_t& entry, const std::string& target, const load_options_t& options,
                                std::vector<copy_note_t>& warnings) {
    util::meta_problems_t problems;
    loaded_item_t loaded = entry.brief.kind == EEntryKind::eFile ? load_file(*root_, entry.name, options, problems)
                           : entry.brief.kind == EEntryKind::eDirectory ? load_directory(*root_, entry.name, problems)
                                                                        : load_link(*root_, entry.name);
    add_warnings(problems, warnings);
    loaded.item.path = target;
    return loaded;
}

}  // namespace agent::copy
