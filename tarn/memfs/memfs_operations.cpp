#include "tarn/memfs/memfs_operations.h"

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/trace.h"
#include "mirrowen/util/str.h"
#include "tarn/fs_log.h"
#include "tarn/mem_rstream.h"
#include "tarn/memfs/memfs_file_wstream.h"
#include "tarn/memfs/memfs_mem_slots.h"
#include "tarn/memfs/memfs_path.h"

namespace tarn::memfs {
namespace {

[[noreturn]] void Refuse(const char* operation) {
    throw exc::CRuntimeExc("MEMFS: operation does not supported. Operation: [%1].", operation);
}

}  // namespace

memfs_operations_t::memfs_operations_t() = default;

memfs_operations_t::~memfs_operations_t() = default;

std::shared_ptr<file_rstream_t> memfs_operations_t::OpenFile4Read(const std::string& path) {
    try {
        const memfs_path_t parsed(path);
        return std::make_shared<mem_rstream_t>(path, memfs_mem_slots_t::Inst().GetSlotExc(parsed.GetSlotName()));
    } catch (...) {
        exc::RegenExc("MemFS: Cannot open file. File path: [%1].", path);
    }
}

std::shared_ptr<file_rstream_t> memfs_operations_t::OpenFile4ReadWithoutWriteShare(const std::string& path) {
    return OpenFile4Read(path);
}

std::shared_ptr<file_rstream_t> memfs_operations_t::OpenDisk4Read(const std::string& path) {
    throw exc::CRuntimeExc("MemFS doesn't support disk operations. Disk path: [%1].", path);
}

std::shared_ptr<file_wstream_t> memfs_operations_t::OpenFile4Write(const std::string& path, std::uint64_t /*length*/) {
    throw exc::CRuntimeExc("Failed to open file '%1' for incremental update.", path);
}

std::shared_ptr<file_wstream_t> memfs_operations_t::CreateNewFile(const std::string& path, std::uint64_t length,
                                                                  bool /*overwrite*/) {
    try {
        logging::trace_t trace(fs_log, "MemFS: Creating new file. File path: [%1]. File size: [%2].", path,
                               util::str_from_streamsize(length));
        auto stream = std::make_shared<memfs_file_wstream_t>(memfs_path_t(path));
        trace.ok("MemFS: File created.");
        return stream;
    } catch (...) {
        exc::RegenTraceExc("MemFS: Cannot create new file: [%1]. File size: [%2].", path,
                           util::str_from_streamsize(length));
    }
}

void memfs_operations_t::CreateDir(const std::string& /*path*/) {
    Refuse("CreateDir");
}

bool memfs_operations_t::IsObjectExist(const std::string& path) {
    try {
        return memfs_mem_slots_t::Inst().IsSlotExists(memfs_path_t(path).GetSlotName());
    } catch (...) {
        exc::RegenTraceExc("MemFS: Cannot check whether file exitst: [%1].", path);  // the spelling is established
    }
}

void memfs_operations_t::DeleteFile(const std::string& path) {
    try {
        logging::trace_t trace(fs_log, "MemFS: Deleting file: [%1].", path);
        memfs_mem_slots_t::Inst().DeleteSlot(memfs_path_t(path).GetSlotName());
        trace.ok("MemFS: File deleted.");
    } catch (...) {
        exc::RegenTraceExc("MemFS: Cannot delete file: [%1].", path);
    }
}

bool memfs_operations_t::IsRenameSupported() const {
    return false;
}

void memfs_operations_t::RenameFile(const std::string& /*oldPath*/, const std::string& /*newPath*/) {
    Refuse("RenameFile");
}

std::shared_ptr<backup_media_t> memfs_operations_t::GetBackupMedia() {
    Refuse("GetBackupMedia");
}

util::CFileInfo memfs_operations_t::GetFileMetadata(const std::string& /*path*/, EFileInfoType /*type*/) {
    return {};
}

void memfs_operations_t::SetFileMetadata(const util::CFileInfo& /*info*/, const std::string& /*path*/) {
    Refuse("SetFileMetadata");
}

bool memfs_operations_t::TryGetSymLinkInfo(const std::string& /*path*/, CSymlinkData& /*out*/) {
    return false;
}

void memfs_operations_t::CreateSymLink(const std::string& /*path*/, const CSymlinkData& /*data*/) {
    Refuse("CreateSymLink");
}

}  // namespace tarn::memfs
