#include <cstdio>
#include <exception>
#include <utility>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_exc.h"
#include "mirrowen/logging/trace.h"
#include "mirrowen/progress/cout_progress.h"
#include "mirrowen/util/str.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tarn/blocks/open_blocks_writer.h"
#include "tarn/fs_log.h"
#include "tarn/fs_operations.h"
#include "tarn/upload/file_upload_srv.h"
#include "tarn/upload/upload_commands.h"

/// Commands 1, 4, 5, 6 and 8: files and items.
namespace tarn {

namespace {

/// Names where they travel, numbers where not.
std::string PrincipalText(const util::SPrincipal& principal) {
    return principal.name.empty() ? std::to_string(principal.id) : principal.name;
}

std::string ModeText(std::uint32_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

}  // namespace

/// An item as its message describes it.
struct file_upload_srv_t::item_t {
    std::shared_ptr<io::area::IAreaDevFactory> factory;
    std::shared_ptr<io::area::IAreaDevToken> token;
    std::uint64_t size = 0;
    bool incremental = false;
};

/// Runs one receive; its failure is told to the sender and wrapped. That something already exists is left to the loop,
/// which answers it in its own way.
template <class Receive>
void file_upload_srv_t::ReceiveOrReport(const Receive& receive) {
    try {
        receive();
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception&) {
        acks_.SafeSendErr("Unable to receive file.");
        exc::RegenExc("Unable to receive file.");
    }
}

void file_upload_srv_t::HandleRecvFileCmd(bool withPermissions, const progress_ptr_t& progress) {
    ReceiveOrReport([&] { ReceiveFile(withPermissions, progress); });
}

void file_upload_srv_t::HandleRecvItemCmd(bool withPermissions, const progress_ptr_t& progress) {
    ReceiveOrReport([&] { ReceiveItem(withPermissions, progress); });
}

void file_upload_srv_t::HandleHVIRRecvItemCmd() {
    ReceiveOrReport([&] { ReceiveItemHVIR(); });
}

void file_upload_srv_t::ReceiveFile(bool withPermissions, const progress_ptr_t& progress) {
    logging::trace_t trace(fs_log, "Receiving file...");
    const std::string path = ReadString(upload::kMaxPathBytes);
    const std::uint64_t size = ReadU64();
    const bool incremental = ReadFlag();
    fs_log.info("File path: [%1]. Size: [%2]. Is incremental: [%3].", path, util::str_from_streamsize(size),
                util::str_from_bool(incremental));
    const std::uint32_t blockSize = ReadU32();
    const util::CFileInfo info = withPermissions ? util::CFileInfo::fromStream(*this) : util::CFileInfo();

    DoRecv(CreateFileWithAck(path, size, incremental), progress, blockSize);
    if (withPermissions) {
        ApplyMetadata(info, path);
    }
    acks_.SendOk();
    trace.ok("File was received.");
}

void file_upload_srv_t::ReceiveItem(bool withPermissions, const progress_ptr_t& progress) {
    logging::trace_t trace(fs_log, "Receiving file...");
    item_t item = ReadItemToken();
    ReadItemSize(item);
    const bool overwrite = ReadFlag();
    LogItem(item);
    fs_log.info("Overwrite flag: [%1].", util::str_from_bool(overwrite));
    const std::uint32_t blockSize = ReadU32();
    const util::CFileInfo info = withPermissions ? util::CFileInfo::fromStream(*this) : util::CFileInfo();

    DoRecv(CreateItemWithAck(item, overwrite), progress, blockSize);
    // Only a file's token says where the attributes belong.
    const auto file = std::dynamic_pointer_cast<CFileAreaDevToken>(item.token);
    if (withPermissions && file) {
        ApplyMetadata(info, file->GetPath());
    }
    acks_.SendOk();
    trace.ok("File was received.");
}

void file_upload_srv_t::ReceiveItemHVIR() {
    logging::trace_t trace(fs_log, "Receiving file...");
    item_t item = ReadItemToken();
    ReadItemSize(item);
    LogItem(item);
    const std::uint32_t blockSize = ReadU32();

    const auto progress = std::make_shared<progress::cout_progress_t>(item.size, true, console_);
    DoRecv(CreateItemHVIRWithAck(item), progress, blockSize);
    acks_.SendOk();
    trace.ok("File was received.");
}

file_upload_srv_t::item_t file_upload_srv_t::ReadItemToken() {
    const std::string type = ReadString(upload::kMaxTypeBytes);
    if (!onlyType_.empty() && type != onlyType_) {
        throw exc::CRuntimeExc("Items of type [%1] are not served here.", type);
    }
    item_t item;
    item.factory = CCorvelCtx::Inst()->GetAreaDevFactory(type);
    item.token = item.factory->LoadToken(type, *this);
    return item;
}

void file_upload_srv_t::ReadItemSize(item_t& item) {
    item.size = ReadU64();
    item.incremental = ReadFlag();
}

void file_upload_srv_t::LogItem(const item_t& item) {
    fs_log.info("Item type: [%1]. Path: [%2]. Size: [%3]. Is incremental: [%4].", item.token->GetType(),
                item.token->Path4Log(), util::str_from_streamsize(item.size), util::str_from_bool(item.incremental));
}

std::shared_ptr<io::area::area_write_dev_t> file_upload_srv_t::CreateFileWithAck(const std::string& path,
                                                                                 std::uint64_t size, bool incremental) {
    auto writer = presetWriter_;
    try {
        if (!writer) {
            writer = blocks::OpenBlocksWriter(path, size, incremental, true);
        }
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception& error) {
        acks_.SafeSendErr(error.what());
        throw;
    }
    acks_.SendOk();
    return writer;
}

std::shared_ptr<io::area::area_write_dev_t> file_upload_srv_t::CreateItemWithAck(const item_t& item, bool overwrite) {
    auto writer = presetWriter_;
    try {
        if (!writer) {
            std::uint64_t size = item.size;
            writer = item.factory->CreateWriteDev(item.token, item.incremental, &size, overwrite);
        }
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to open the item for writing.");
        acks_.SafeSendErr(error.what());
        throw;
    }
    acks_.SendOk();
    return writer;
}

std::shared_ptr<io::area::area_write_dev_t> file_upload_srv_t::CreateItemHVIRWithAck(const item_t& item) {
    std::shared_ptr<io::area::area_write_dev_t> writer;
    try {
        std::uint64_t size = item.size;
        writer = item.factory->CreateWriteDevForHVIR(item.token, &size);
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to open the item for writing.");
        acks_.SafeSendErr(error.what());
        throw;
    }
    acks_.SendOk();
    return writer;
}

void file_upload_srv_t::ApplyMetadata(const util::CFileInfo& info, const std::string& path) {
    fs_log.info("Changing permissions for the file. Owner: [%1]. Group: [%2]. Permissions: [%3].",
                PrincipalText(info.owner), PrincipalText(info.group), ModeText(info.mode));
    fs_operations_t::RecognizeFsPath(path, 0)->SetFileMetadata(info, path);
}

}  // namespace tarn
