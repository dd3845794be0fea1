#include "tarn/upload/file_upload_srv.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/trace.h"
#include "tarn/blocks/seq_fileblocks_writer.h"
#include "tarn/fs_log.h"
#include "tarn/upload/upload_commands.h"

/// The session: which command is served by whom, and how a session ends. What the commands do stands in
/// file_upload_srv_items.cpp (files and items), file_upload_srv_bulk.cpp (the transfer inside an item) and
/// file_upload_srv_names.cpp (links, existing files, disks).
namespace tarn {

using upload::ECommand;

file_upload_srv_t::file_upload_srv_t(std::shared_ptr<io::io_dev_t> channel, io::IInOut& console, bool diskWriterFlag,
                                     std::uint32_t transportVersion, const compat::SCompatibilityInfo& compatibility)
    : io::binary_stream_tt(std::move(channel)),
      console_(console),
      diskWriterFlag_(diskWriterFlag),
      transportVersion_(transportVersion),
      offsetHolder_(std::make_shared<brannock::transmission::processed_offset_holder_t>()),
      compatibility_(compatibility) {}

file_upload_srv_t::file_upload_srv_t(std::shared_ptr<io::io_dev_t> channel, io::IInOut& console, bool diskWriterFlag,
                                     std::uint32_t transportVersion, std::shared_ptr<file_wstream_t> stream,
                                     const compat::SCompatibilityInfo& compatibility)
    : file_upload_srv_t(std::move(channel), console, diskWriterFlag, transportVersion, compatibility) {
    presetWriter_ = std::make_shared<seq_fileblocks_writer_t>(std::move(stream));
}

file_upload_srv_t::~file_upload_srv_t() = default;

// NOLINTNEXTLINE(performance-unnecessary-value-param): it is called like that
void file_upload_srv_t::HandleCmds(progress_ptr_t progress) {
    try {
        logging::trace_t trace(fs_log, "Handling file upload commands.");
        RunCommands(progress);
        trace.ok("File upload commands were processed.");
    } catch (const exc::CAlreadyExistsExc& error) {
        AnswerAlreadyExists(error);
        throw;
    } catch (const std::exception&) {
        exc::RegenTraceExc("Unable to process file upload commands.");
    }
}

void file_upload_srv_t::RunCommands(const progress_ptr_t& progress) {
    unsigned invalid = 0;
    for (;;) {
        const std::uint32_t code = ReadU32();
        if (code == static_cast<std::uint32_t>(ECommand::eEndOfSession)) {
            return;
        }
        CheckServed(code);
        if (Dispatch(code, progress)) {
            invalid = 0;
            continue;
        }
        fs_log.err("HandleCmds: invalid command [%1]", code);
        if (++invalid == upload::kMaxInvalidCommands) {
            throw exc::CRuntimeExc("[%1] invalid commands were received one after another.", invalid);
        }
    }
}

void file_upload_srv_t::CheckServed(std::uint32_t code) const {
    if (!onlyType_.empty() && code != static_cast<std::uint32_t>(ECommand::eItem)) {
        throw exc::CRuntimeExc("Command [%1] is not served here.", code);
    }
}

bool file_upload_srv_t::Dispatch(std::uint32_t code, const progress_ptr_t& progress) {
    switch (static_cast<ECommand>(code)) {
        case ECommand::eFile:
            HandleRecvFileCmd(false, progress);
            return true;
        case ECommand::eDiskContent:
            HandleRecvDiskContentCmd();
            return true;
        case ECommand::eFileWithPermissions:
            HandleRecvFileCmd(true, progress);
            return true;
        case ECommand::eItem:
            HandleRecvItemCmd(false, progress);
            return true;
        case ECommand::eItemWithPermissions:
            HandleRecvItemCmd(true, progress);
            return true;
        case ECommand::eDiskCache:
            HandleRecvDiskCacheCmd();
            return true;
        case ECommand::eItemHvir:
            HandleHVIRRecvItemCmd();
            return true;
        case ECommand::eExistingFiles:
            HandleEnumExistingFiles();
            return true;
        case ECommand::eSymLink:
            HandleSymLinkUpload();
            return true;
        case ECommand::eEndOfSession:
            break;
    }
    return false;
}

void file_upload_srv_t::AnswerAlreadyExists(const std::exception& error) noexcept {
    fs_log.info("File already exists in file_upload_srv_t::HandleCmds");
    try {
        acks_.SendAlreadyExistsErr(error.what());
        // The peer's next command: it is answered by the end of the session.
        ReadU32();
    } catch (const std::exception& failure) {
        fs_log.warn("Failed to tell the sender that the file already exists.", failure);
    }
}

}  // namespace tarn
