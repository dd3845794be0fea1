#include "tarn/upload/file_upload_cli.h"

#include <exception>
#include <utility>

#include "brannock/transmission/digest_registrator_channel.h"
#include "brannock/transmission/transmit.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/logging/trace.h"
#include "mirrowen/util/numeric_cast.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tarn/fs_log.h"
#include "tarn/upload/path_list.h"
#include "tarn/upload/upload_commands.h"

/// The exchanges as the caller sees them; how an item's content is sent is agreed on in file_upload_cli_bulk.cpp.
namespace tarn {

using upload::ECommand;

namespace {

constexpr std::string_view kOpenItem =
    "Uploading item. Datasource: [%1]. Target item type: [%2]. Target file path: [%3].";
constexpr std::string_view kItemFailed =
    "Failed to upload item. Datasource: [%1]. Target item type: [%2]. Target path: [%3].";
constexpr std::string_view kItemDone = "File uploaded.";

}  // namespace

/// One item on its way out, with the names that its messages use.
struct file_upload_cli_t::item_t {
    item_t(source_ptr_t itemSource, token_ptr_t itemToken, std::uint64_t itemSize, std::uint64_t itemBlockSize,
           const inc_upload_options_t& itemOptions)
        : source(std::move(itemSource)),
          token(std::move(itemToken)),
          size(itemSize),
          blockSize(itemBlockSize),
          options(itemOptions),
          sourceName(source->GetDisplayName()),
          type(token->GetType()),
          path(token->Path4Log()) {}

    /// Runs `send` inside the item's trace and gives its failure the item's text.
    template <class Send>
    void Frame(const Send& send) const {
        try {
            logging::trace_t trace(fs_log, kOpenItem, sourceName, type, path);
            send();
            trace.ok(kItemDone);
        } catch (const exc::CAlreadyExistsExc&) {
            throw;
        } catch (const std::exception&) {
            exc::RegenExc(kItemFailed, sourceName, type, path);
        }
    }

    std::uint32_t WireBlockSize() const { return util::numeric_cast<std::uint32_t>(blockSize); }

    source_ptr_t source;
    token_ptr_t token;
    std::uint64_t size;
    std::uint64_t blockSize;
    const inc_upload_options_t& options;
    std::string sourceName;
    std::string type;
    std::string path;
};

std::shared_ptr<file_upload_cli_t> file_upload_cli_t::Create(std::shared_ptr<io::io_dev_t> channel,
                                                             unsigned int transportVersion,
                                                             const compat::SCompatibilityInfo& compatibility) {
    return std::make_shared<file_upload_cli_t>(std::move(channel), transportVersion, compatibility);
}

file_upload_cli_t::file_upload_cli_t(std::shared_ptr<io::io_dev_t> channel, unsigned int transportVersion,
                                     const compat::SCompatibilityInfo& compatibility)
    : io::binary_stream_tt(std::move(channel)), transportVersion_(transportVersion), compatibility_(compatibility) {}

file_upload_cli_t::~file_upload_cli_t() = default;

void file_upload_cli_t::UploadItem(std::uint64_t blockSize, const source_ptr_t& source, const token_ptr_t& token,
                                   std::uint64_t size, io::block::EBufTransformType transform,
                                   const inc_upload_options_t& options, std::uint32_t overwrite,
                                   const progress_ptr_t& progress) {
    UploadItemWithPermissions(blockSize, source, token, size, util::CFileInfo(), transform, options, overwrite,
                              progress);
}

void file_upload_cli_t::UploadItemWithPermissions(std::uint64_t blockSize, const source_ptr_t& source,
                                                  const token_ptr_t& token, std::uint64_t size,
                                                  const util::CFileInfo& info, io::block::EBufTransformType transform,
                                                  const inc_upload_options_t& options, std::uint32_t overwrite,
                                                  const progress_ptr_t& progress) {
    const item_t item(source, token, size, blockSize, options);
    item.Frame([&] { SendItem(item, info, io::block::SBufCompressionSpec(transform), overwrite, progress); });
}

void file_upload_cli_t::UploadFile(std::uint64_t blockSize, const source_ptr_t& source, const std::string& targetPath,
                                   std::uint64_t size, io::block::EBufTransformType transform,
                                   const inc_upload_options_t& options, std::uint32_t overwrite,
                                   const progress_ptr_t& progress) {
    UploadItem(blockSize, source, std::make_shared<CFileAreaDevToken>(targetPath), size, transform, options, overwrite,
               progress);
}

void file_upload_cli_t::UploadFileWithPermissions(std::uint64_t blockSize, const source_ptr_t& source,
                                                  const std::string& targetPath, std::uint64_t size,
                                                  const util::CFileInfo& info, io::block::EBufTransformType transform,
                                                  const inc_upload_options_t& options, std::uint32_t overwrite,
                                                  const progress_ptr_t& progress) {
    UploadItemWithPermissions(blockSize, source, std::make_shared<CFileAreaDevToken>(targetPath), size, info, transform,
                              options, overwrite, progress);
}

void file_upload_cli_t::UploadItemHVIR(std::uint64_t blockSize, const source_ptr_t& source, const token_ptr_t& token,
                                       std::uint64_t size, const io::block::SBufCompressionSpec& spec,
                                       const inc_upload_options_t& options, const progress_ptr_t& progress) {
    const item_t item(source, token, size, blockSize, options);
    item.Frame([&] { SendItemHVIR(item, spec, progress); });
}

void file_upload_cli_t::UploadSymLink(const std::string& linkPath, const std::string& linkContents) {
    try {
        logging::trace_t trace(fs_log, "Creating symbolic link [%1] pointing to [%2] on target.", linkPath,
                               linkContents);
        WriteU32(static_cast<std::uint32_t>(ECommand::eSymLink));
        WriteString(linkPath);
        WriteString(linkContents);
        AwaitAck();
        trace.ok();
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception&) {
        exc::RegenExc("Failed to upload symbolic link on target.");
    }
}

void file_upload_cli_t::CheckWhatFilesExist(const std::vector<std::string>& paths, std::set<std::string>& existing) {
    try {
        WriteU32(static_cast<std::uint32_t>(ECommand::eExistingFiles));
        upload::WritePathList(*this, paths);
        AwaitAck();
        // No more can exist than were asked for; the list was sent, so its length fits.
        for (std::string& path : upload::ReadPathList(*this, static_cast<std::uint32_t>(paths.size()))) {
            existing.insert(std::move(path));
        }
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception&) {
        exc::RegenExc("Failed to enumerate existing files on target.");
    }
}

void file_upload_cli_t::SendItem(const item_t& item, const util::CFileInfo& info,
                                 const io::block::SBufCompressionSpec& spec, std::uint32_t overwrite,
                                 const progress_ptr_t& progress) {
    const std::uint32_t blockSize = item.WireBlockSize();
    SendItemToken(static_cast<std::uint32_t>(info.isSet() ? ECommand::eItemWithPermissions : ECommand::eItem), item);
    WriteU32(overwrite);
    WriteU32(blockSize);
    if (info.isSet()) {
        info.Serialize(*this);
    }
    AwaitAck();

    const auto cfg = GetSendCfg(spec, blockSize, item.options.digests);
    auto channel = CreateSendChannel(cfg);
    if (item.options.digests) {
        fs_log.info("Digest hook for filter signature will be enabled.");
        channel = brannock::transmission::digest_registrator_channel_t::Create(std::move(channel), item.options.digests,
                                                                               blockSize);
    }
    brannock::transmission::Transmit(item.source, std::move(channel), cfg, progress);
    acks_.WaitAck();
}

void file_upload_cli_t::SendItemHVIR(const item_t& item, const io::block::SBufCompressionSpec& spec,
                                     const progress_ptr_t& progress) {
    const std::uint32_t blockSize = item.WireBlockSize();
    SendItemToken(static_cast<std::uint32_t>(ECommand::eItemHvir), item);
    WriteU32(blockSize);
    AwaitAck();

    const auto cfg = GetSendCfg(spec, blockSize, item.options.digests);
    brannock::transmission::Transmit(item.source, CreateSendChannel(cfg), cfg, progress);
    acks_.WaitAck();
}

void file_upload_cli_t::SendItemToken(std::uint32_t command, const item_t& item) {
    WriteU32(command);
    WriteString(item.type);
    item.token->Serial(*this);
    WriteU64(item.size);
    WriteFlag(item.options.incremental);
}

void file_upload_cli_t::AwaitAck() {
    Flush();
    acks_.WaitAck();
}

}  // namespace tarn
