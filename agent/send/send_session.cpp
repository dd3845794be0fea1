#include "agent/send/send_session.h"

#include <optional>
#include <utility>
#include <vector>

#include "agent/copy/host_tree.h"
#include "agent/send/send_request.h"
#include "agent/token/item_token.h"
#include "agent/tree/entry_kind.h"
#include "mirrowen/compat/compatibility_info.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/acknowledge_protocol.h"
#include "tarn/upload/file_upload_cli.h"

namespace agent::send {

namespace {

constexpr std::uint32_t kEndOfUpload = 2;

/// An item that was asked for, ready to go.
struct opened_item_t {
    copy::loaded_item_t loaded;
    std::uint64_t size = 0;  ///< of the content that goes
    std::vector<copy::copy_note_t> notes;
};

void CheckRequest(const send_request_t& request) {
    if (request.blockSize < io::block::kMinBlockSize || request.blockSize > io::block::kMaxBlockSize) {
        throw exc::CRuntimeExc("Block size [%1] is out of range.", request.blockSize);
    }
    if (request.compression != io::block::EBufTransformType::eNone && !io::block::IsCompression(request.compression)) {
        throw exc::CRuntimeExc("Compression [%1] is not known.", static_cast<std::uint32_t>(request.compression));
    }
}

EEntryKind KindAt(const confined_root_t& root, const std::string& path) {
    const EEntryKind kind = path == kRootName ? EEntryKind::eDirectory : KindOf(root.Stat(path).st_mode);
    if (IsSpecial(kind)) {
        throw exc::CRuntimeExc("[%1] is a %2, which is not sent.", root.Shown(path), NameOfKind(kind));
    }
    return kind;
}

void CheckOffset(const send_request_t& request, EEntryKind kind, std::uint64_t size, const std::string& shown) {
    if (kind != EEntryKind::eFile && request.startOffset != 0) {
        throw exc::CRuntimeExc("[%1] is a %2, so it cannot be sent from [%3] on.", shown, NameOfKind(kind),
                               request.startOffset);
    }
    if (request.startOffset > size) {
        throw exc::CRuntimeExc("[%1] has [%2] bytes, so it cannot be sent from [%3] on.", shown, size,
                               request.startOffset);
    }
}

// What is examined, told and read of a file is one and the same open file.
opened_item_t Open(const std::shared_ptr<const confined_root_t>& root, const send_request_t& request) {
    CheckRequest(request);
    tree_entry_t entry;
    entry.name = request.path == kRootName ? "" : request.path;
    entry.brief.kind = KindAt(*root, request.path);
    opened_item_t opened;
    opened.loaded = copy::host_tree_t(root).Load(
        entry, request.path, {.blockSize = request.blockSize, .startOffset = request.startOffset}, opened.notes);
    CheckOffset(request, entry.brief.kind, opened.loaded.size, root->Shown(entry.name));
    opened.size = opened.loaded.size - request.startOffset;
    if (entry.brief.kind == EEntryKind::eFile) {
        opened.loaded.item.info.size = opened.loaded.size;
    }
    return opened;
}

class send_session_t {
  public:
    send_session_t(const std::shared_ptr<net::session_channel_t>& channel, std::uint32_t transportVersion,
                   std::shared_ptr<const confined_root_t> root)
        : root_(std::move(root)), client_(channel, transportVersion, compat::SCompatibilityInfo{}) {}

    void Run() {
        for (;;) {
            const std::uint32_t request = client_.ReadU32();
            switch (static_cast<ERequest>(request)) {
                case ERequest::eItem:
                    Serve(ReadRequest(client_));
                    break;
                case ERequest::eEnd:
                    return;
                default:
                    throw exc::CRuntimeExc("Request [%1] of the send service is not known.", request);
            }
        }
    }

  private:
    void Serve(const send_request_t& request) {
        auto opened = TryOpen(request);
        if (!opened) {
            return;
        }
        acks_.SendOk();
        WriteNotes(client_, opened->notes);
        const auto& loaded = opened->loaded;
        client_.UploadItem(request.blockSize, loaded.source, std::make_shared<item_token_t>(loaded.item), opened->size,
                           request.compression, {}, 0, nullptr);
        client_.WriteU32(kEndOfUpload);
        client_.WriteFlag(loaded.hasChanged && loaded.hasChanged());
        client_.Flush();
    }

    // Why it cannot be opened is the far end's business; the next one may go well.
    std::optional<opened_item_t> TryOpen(const send_request_t& request) {
        try {
            return Open(root_, request);
        } catch (const std::exception& error) {
            acks_.SendErr(error.what());
            client_.Flush();
            return std::nullopt;
        }
    }

    const std::shared_ptr<const confined_root_t> root_;
    tarn::file_upload_cli_t client_;
    io::acknowledge_protocol_t acks_{client_};
};

}  // namespace

void RunSendSession(const std::shared_ptr<net::session_channel_t>& channel, std::uint32_t transportVersion,
                    const std::shared_ptr<const confined_root_t>& root) {
    send_session_t(channel, transportVersion, root).Run();
}

}  // namespace agent::send
