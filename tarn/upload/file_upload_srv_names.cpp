#include <exception>
#include <utility>
#include <vector>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/trace.h"
#include "tarn/fs_log.h"
#include "tarn/fs_operations.h"
#include "tarn/symlink_data.h"
#include "tarn/upload/file_upload_srv.h"
#include "tarn/upload/path_list.h"
#include "tarn/upload/upload_commands.h"

/// Commands 9 and 10, existing files and symbolic links, and the refusal of 3 and 7, disks.
namespace tarn {

void file_upload_srv_t::HandleEnumExistingFiles() {
    try {
        std::vector<std::string> existing;
        for (std::string& path : upload::ReadPathList(*this, upload::kMaxListedPaths)) {
            if (fs_operations_t::RecognizeFsPath(path, 0)->IsObjectExist(path)) {
                existing.push_back(std::move(path));
            }
        }
        acks_.SendOk();
        upload::WritePathList(*this, existing);
        Flush();
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception& error) {
        acks_.SendErr(error.what());
        exc::RegenExc("Failed to enumerate existing files.");
    }
}

void file_upload_srv_t::HandleSymLinkUpload() {
    try {
        logging::trace_t trace(fs_log, "Receiving symbolic link...");
        const std::string path = ReadString(upload::kMaxPathBytes);
        const std::string contents = ReadString(upload::kMaxPathBytes);
        fs_log.info("Link path: [%1]. Link contents: [%2].", path, contents);
        CreateSymLink(path, contents);
        acks_.SendOk();
        trace.ok();
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception& error) {
        acks_.SafeSendErr(error.what());
        exc::RegenExc("Failed to receive symbolic link.");
    }
}

void file_upload_srv_t::CreateSymLink(const std::string& path, const std::string& contents) {
    const auto backend = fs_operations_t::RecognizeFsPath(path, 0);
    CSymlinkData present;
    if (backend->TryGetSymLinkInfo(path, present) || backend->IsObjectExist(path)) {
        fs_log.info("Removing existing file [%1].", path);
        backend->DeleteFile(path);
    }
    backend->CreateSymLink(path, CSymlinkData(ESymlinkType::eFileLink, contents));
}

void file_upload_srv_t::HandleRecvDiskContentCmd() {
    std::string descriptor;
    std::string body;
    try {
        descriptor = ReadString(upload::kMaxPathBytes);
        body = ReadString(upload::kMaxPathBytes);
        ReadU64();  // size of the disk
        ReadU32();  // block size
        throw exc::CRuntimeExc("Disks are not supported.");
    } catch (const std::exception&) {
        exc::RegenTraceExc("Unable to receive disk content. Path to disk descriptor: [%1]. Path to disk content: [%2].",
                           descriptor, body);
    }
}

void file_upload_srv_t::HandleRecvDiskCacheCmd() {
    std::string descriptor;
    std::string cache;
    try {
        descriptor = ReadString(upload::kMaxPathBytes);
        ReadString(upload::kMaxPathBytes);  // path of the disk's body
        cache = ReadString(upload::kMaxPathBytes);
        ReadU64();  // size of the disk
        ReadU32();  // block size
        throw exc::CRuntimeExc("Disks are not supported.");
    } catch (const std::exception&) {
        exc::RegenTraceExc("Unable to receive disk cache. Path to disk: [%1]. Path to cache: [%2].", descriptor, cache);
    }
}

}  // namespace tarn
