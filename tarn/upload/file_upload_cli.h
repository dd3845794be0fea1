#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/compat/compatibility_info.h"
#include "mirrowen/digest/digests.h"
#include "mirrowen/io/acknowledge_protocol.h"
#include "mirrowen/io/area/area_dev_token.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/block/buf_transform.h"
#include "mirrowen/io/io_dev.h"
#include "mirrowen/progress/progress_base.h"
#include "mirrowen/util/file_info.h"
#include "tarn/export.h"
#include "tarn/upload/inc_upload_options.h"

namespace tarn {

/// The sending end of the file upload dialogue (docs/protocol.md) over one connected channel. Each operation is one
/// whole exchange with the server; after a failed one the session is over, since the server ends it. The caller ends a
/// good session itself by writing command 2 on the channel. One client is driven by one thread.
///
/// Sizes and block sizes are bytes; a block size that does not fit into the 32 bits of the wire throws "Unable to cast
/// value from [%1] to [%2]." before anything is sent. `progress` may be empty. `overwrite` travels as it is: not zero
/// means that what is there may be replaced.
///
/// Errors of the uploads: `exc::CAlreadyExistsExc`, unwrapped, when the server reports that the target exists; anything
/// else as `exc::CRuntimeExc` "Failed to upload item. Datasource: [%1]. Target item type: [%2]. Target path: [%3]."
/// with its cause, which is the server's text when the server refused.
class TARN_API file_upload_cli_t : public io::binary_stream_tt {
  public:
    using source_ptr_t = std::shared_ptr<io::area::area_read_dev_t>;
    using token_ptr_t = std::shared_ptr<io::area::IAreaDevToken>;
    using progress_ptr_t = std::shared_ptr<progress::progress_base_t>;

    /// `channel` is shared. `transportVersion` is the version of the block stream that both ends agreed on.
    static std::shared_ptr<file_upload_cli_t> Create(std::shared_ptr<io::io_dev_t> channel,
                                                     unsigned int transportVersion,
                                                     const compat::SCompatibilityInfo& compatibility);
    file_upload_cli_t(std::shared_ptr<io::io_dev_t> channel, unsigned int transportVersion,
                      const compat::SCompatibilityInfo& compatibility);
    ~file_upload_cli_t() override;

    /// Sends the `size` bytes of `source` to the place that `token` names. A `transform` other than eNone packs the
    /// blocks on the way.
    void UploadItem(std::uint64_t blockSize, const source_ptr_t& source, const token_ptr_t& token, std::uint64_t size,
                    io::block::EBufTransformType transform, const inc_upload_options_t& options,
                    std::uint32_t overwrite, const progress_ptr_t& progress);

    /// As UploadItem; the server applies `info`, unless it is unset, when the content is there.
    void UploadItemWithPermissions(std::uint64_t blockSize, const source_ptr_t& source, const token_ptr_t& token,
                                   std::uint64_t size, const util::CFileInfo& info,
                                   io::block::EBufTransformType transform, const inc_upload_options_t& options,
                                   std::uint32_t overwrite, const progress_ptr_t& progress);

    /// As UploadItem, to a file that is named by its path on the server.
    void UploadFile(std::uint64_t blockSize, const source_ptr_t& source, const std::string& targetPath,
                    std::uint64_t size, io::block::EBufTransformType transform, const inc_upload_options_t& options,
                    std::uint32_t overwrite, const progress_ptr_t& progress);

    /// As UploadItemWithPermissions, to a file that is named by its path on the server.
    void UploadFileWithPermissions(std::uint64_t blockSize, const source_ptr_t& source, const std::string& targetPath,
                                   std::uint64_t size, const util::CFileInfo& info,
                                   io::block::EBufTransformType transform, const inc_upload_options_t& options,
                                   std::uint32_t overwrite, const progress_ptr_t& progress);

    /// As UploadItem, through the HVIR write path of the token's factory.
    void UploadItemHVIR(std::uint64_t blockSize, const source_ptr_t& source, const token_ptr_t& token,
                        std::uint64_t size, const io::block::SBufCompressionSpec& spec,
                        const inc_upload_options_t& options, const progress_ptr_t& progress);

    /// Makes a symbolic link on the server; a file or link that is there is deleted first. Errors as for the
    /// uploads, with the text "Failed to upload symbolic link on target.".
    void UploadSymLink(const std::string& linkPath, const std::string& linkContents);

    /// Adds those of `paths` that exist on the server to `existing`. The server takes 1,000,000 paths and 64 MiB of
    /// them at once. Errors as for the uploads, with the text "Failed to enumerate existing files on target.".
    void CheckWhatFilesExist(const std::vector<std::string>& paths, std::set<std::string>& existing);

  protected:
    /// Settles with the server how one item is sent, as the server expects it between the item's first acknowledgement
    /// and its content; also for clients with items of their own. `digests` may be empty.
    ///
    /// Errors: those of the channel, "Block size [%1] is out of range.", "Keysets are not supported.", and "The server
    /// chose a network configuration that cannot be run: [%1] streams, a window of [%2] blocks.".
    brannock::transmission::transmission_cfg_t GetSendCfg(const io::block::SBufCompressionSpec& spec,
                                                          std::uint32_t blockSize,
                                                          const std::shared_ptr<digest::digests_t>& digests);

  private:
    struct item_t;

    void SendItem(const item_t& item, const util::CFileInfo& info, const io::block::SBufCompressionSpec& spec,
                  std::uint32_t overwrite, const progress_ptr_t& progress);
    void SendItemHVIR(const item_t& item, const io::block::SBufCompressionSpec& spec, const progress_ptr_t& progress);
    void SendItemToken(std::uint32_t command, const item_t& item);
    void AwaitAck();

    void SendSourceKeySets();
    void NetogiateNetMngrCfg(brannock::transmission::transmission_cfg_t& cfg);
    std::shared_ptr<io::area::area_write_dev_t> CreateSendChannel(
        const brannock::transmission::transmission_cfg_t& cfg);

    unsigned int transportVersion_;
    compat::SCompatibilityInfo compatibility_;
    io::acknowledge_protocol_t acks_{*this};
};

}  // namespace tarn
