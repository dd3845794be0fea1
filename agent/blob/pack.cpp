#include "agent/blob/pack.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>

#include "agent/blob/blob_files.h"
#include "agent/blob/blob_folder.h"
#include "agent/blob/packer.h"
#include "agent/copy/open_tree.h"
#include "agent/path/location.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_exc.h"
#include "mirrowen/util/fs.h"
#include "tarn/blobfs/blob_creater.h"

namespace agent::blob {

namespace {

namespace fs = std::filesystem;

copy::opened_tree_t open_source(const std::string& text) {
    std::optional<copy::opened_tree_t> opened;
    if (!ParseLocation(text).isRemote) {
        opened = copy::TryOpenTree(text, {}, io::block::EBufTransformType::eNone);
    }
    if (!opened) {
        throw exc::CRuntimeExc("[%1] cannot be packed: it is no host path, nor one of a restore view.", text);
    }
    return *std::move(opened);
}

std::vector<copy::opened_tree_t> open_sources(const std::vector<std::string>& texts) {
    std::vector<copy::opened_tree_t> opened;
    std::set<std::string> names;
    for (const std::string& text : texts) {
        opened.push_back(open_source(text));
        const std::string& name = opened.back().baseName;
        if (name.empty() && texts.size() > 1) {
            throw exc::CRuntimeExc("[%1] has no name of its own, so it cannot be packed together with others.", text);
        }
        if (!names.insert(name).second) {
            throw exc::CRuntimeExc("[%1] would go where another source named [%2] goes.", text, name);
        }
    }
    return opened;
}

// The walk would find its own results.
void refuse_folder_in_source(const std::string& source, const std::string& folder) {
    const fs::path from = fs::weakly_canonical(source);
    const fs::path to = fs::weakly_canonical(folder);
    if (std::mismatch(from.begin(), from.end(), to.begin(), to.end()).first == from.end()) {
        throw exc::CRuntimeExc("[%1] cannot be packed into itself, [%2].", source, folder);
    }
}

void prepare_folder(const std::string& folder) {
    util::fs_make_directory(folder);
    const std::vector<std::string> found = BlobFilesIn(folder);
    if (!found.empty()) {
        throw exc::CRuntimeExc("[%1] is there already: blob files go into a directory without any.", found.front());
    }
}

void check_target(const std::string& target) {
    if (target.empty()) {
        throw exc::CRuntimeExc("The target has no path.");
    }
    if (target.size() > kMaxTarget) {
        throw exc::CRuntimeExc("The target has [%1] bytes; a path has at most [%2].", target.size(), kMaxTarget);
    }
}

// On the way out with an error that matters more than one of these.
void remove_blob_files(const std::string& folder) noexcept {
    try {
        for (const std::string& path : BlobFilesIn(folder)) {
            util::fs_file_delete(path);
        }
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to remove blob files.");
    }
}

void pack_all(const std::vector<copy::opened_tree_t>& sources, const pack_options_t& options, pack_report_t& report) {
    const auto folder = std::make_shared<blob_folder_t>(options.folder);
    tarn::blobfs::BlobCreater creater(folder);
    packer_t packer(options, creater, report);
    for (const copy::opened_tree_t& source : sources) {
        packer.Run(source);
    }
    creater.Finish();
    report.blobFiles = folder->TakePaths();
}

}  // namespace

pack_report_t Pack(const std::vector<std::string>& sources, const pack_options_t& options) {
    check_target(options.target);
    const std::vector<copy::opened_tree_t> opened = open_sources(sources);
    for (const std::string& source : sources) {
        refuse_folder_in_source(source, options.folder);
    }
    prepare_folder(options.folder);
    pack_report_t report;
    try {
        pack_all(opened, options, report);
    } catch (...) {
        remove_blob_files(options.folder);
        throw;
    }
    return report;
}

}  // namespace agent::blob
