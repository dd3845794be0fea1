#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "brannock/transmission/net/netmngr_cfg.h"
#include "brannock/transmission/processed_offset_holder.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/compat/compatibility_info.h"
#include "mirrowen/io/acknowledge_protocol.h"
#include "mirrowen/io/area/area_dev_factory.h"
#include "mirrowen/io/area/area_dev_token.h"
#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/in_out.h"
#include "mirrowen/io/io_dev.h"
#include "mirrowen/progress/progress_base.h"
#include "mirrowen/util/file_info.h"
#include "tarn/export.h"
#include "tarn/file_wstream.h"

namespace crypto {
class CKeySetCollection;
}
namespace digest {
class file_signature_t;
}
namespace io::disk {
class disk_t;
}

namespace tarn {

/// The receiving end of the file upload dialogue (docs/protocol.md) over one connected channel: files, items described
/// by tokens, symbolic links, and the question which files exist. It trusts the paths that its peer names; whoever
/// embeds it confines them. One server serves one session on one thread; it starts no thread of its own, though the
/// transmission of an item may.
///
/// A file is replaced by deleting it first, and one whose transfer breaks off stays behind, partly written.
class TARN_API file_upload_srv_t : public io::binary_stream_tt {
  public:
    using progress_ptr_t = std::shared_ptr<progress::progress_base_t>;

    /// `channel` is shared; `console` shows the progress of HVIR items and must outlive the server. `transportVersion`
    /// is the version of the block stream that both ends agreed on.
    file_upload_srv_t(std::shared_ptr<io::io_dev_t> channel, io::IInOut& console, bool diskWriterFlag,
                      std::uint32_t transportVersion, const compat::SCompatibilityInfo& compatibility);

    /// Everything that is received goes into `stream`, one item after the other, in order: no file or item but an HVIR
    /// one opens a device of its own. The stream is flushed and closed at the end of each item, so one that is to take
    /// several must bear that, and their block offsets must run on.
    file_upload_srv_t(std::shared_ptr<io::io_dev_t> channel, io::IInOut& console, bool diskWriterFlag,
                      std::uint32_t transportVersion, std::shared_ptr<file_wstream_t> stream,
                      const compat::SCompatibilityInfo& compatibility);
    ~file_upload_srv_t() override;

    /// Senders are asked for the keysets of each item. This build cannot read any, so every item that comes to its
    /// content then ends the session with "Keysets are not supported.". Called before HandleCmds.
    void EnableUploadDecryption() noexcept { decryptionEnabled_ = true; }

    /// From now on only command 5 with tokens of this type is served, for whoever asked for an item and for nothing
    /// else. Any other command ends the session with "Command [%1] is not served here.", another type with "Items of
    /// type [%1] are not served here.". Called before HandleCmds.
    void ServeOnlyItemsOf(std::string type) { onlyType_ = std::move(type); }

    /// Serves the session until the peer ends it. `progress` may be empty.
    ///
    /// An unknown command is logged and skipped. Any failure ends the session: the peer is told as far as the dialogue
    /// provides for it and `exc::CRuntimeExc` "Unable to process file upload commands." is thrown with the failure as
    /// its cause; only `exc::CAlreadyExistsExc` comes through unchanged, after the peer was told and its next command
    /// was discarded.
    void HandleCmds(progress_ptr_t progress);

  protected:
    /// How the content of one item is received; also for servers with items of their own. Throws "Block size [%1] is
    /// out of range.".
    brannock::transmission::transmission_cfg_t GetReceiverCfg(
        std::uint32_t blockSize, const brannock::transmission::net::netmngr_cfg_t& net) const;

  private:
    struct item_t;

    void CheckServed(std::uint32_t code) const;
    bool Dispatch(std::uint32_t code, const progress_ptr_t& progress);
    void RunCommands(const progress_ptr_t& progress);
    void AnswerAlreadyExists(const std::exception& error) noexcept;

    void HandleRecvFileCmd(bool withPermissions, const progress_ptr_t& progress);
    void HandleRecvItemCmd(bool withPermissions, const progress_ptr_t& progress);
    void HandleHVIRRecvItemCmd();
    void HandleRecvDiskContentCmd();
    void HandleRecvDiskCacheCmd();
    void HandleEnumExistingFiles();
    void HandleSymLinkUpload();

    void ReceiveFile(bool withPermissions, const progress_ptr_t& progress);
    void ReceiveItem(bool withPermissions, const progress_ptr_t& progress);
    void ReceiveItemHVIR();
    template <class Receive>
    void ReceiveOrReport(const Receive& receive);
    item_t ReadItemToken();
    void ReadItemSize(item_t& item);
    static void LogItem(const item_t& item);
    void CreateSymLink(const std::string& path, const std::string& contents);

    std::shared_ptr<io::area::area_write_dev_t> CreateFileWithAck(const std::string& path, std::uint64_t size,
                                                                  bool incremental);
    std::shared_ptr<io::area::area_write_dev_t> CreateItemWithAck(const item_t& item, bool overwrite);
    std::shared_ptr<io::area::area_write_dev_t> CreateItemHVIRWithAck(const item_t& item);
    void ApplyMetadata(const util::CFileInfo& info, const std::string& path);

    void DoRecv(const std::shared_ptr<io::area::area_write_dev_t>& writer, const progress_ptr_t& progress,
                std::uint32_t blockSize);
    void ReceiveCryptedItemSpec();
    brannock::transmission::net::netmngr_cfg_t NegotiateTransmissionCfg();

    std::shared_ptr<digest::file_signature_t> signature_;
    std::shared_ptr<io::disk::disk_t> disk_;
    io::IInOut& console_;
    bool diskWriterFlag_;
    std::uint32_t transportVersion_;
    std::shared_ptr<crypto::CKeySetCollection> restoreKeys_;
    bool decryptionEnabled_ = false;
    std::string onlyType_;  ///< empty: everything is served
    std::shared_ptr<brannock::transmission::processed_offset_holder_t> offsetHolder_;
    std::shared_ptr<io::area::area_write_dev_t> presetWriter_;
    compat::SCompatibilityInfo compatibility_;
    io::acknowledge_protocol_t acks_{*this};
};

}  // namespace tarn
