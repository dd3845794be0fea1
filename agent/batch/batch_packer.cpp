#include "agent/batch/batch_packer.h"

#include <unistd.h>

#include <exception>
#include <utility>

#include "agent/batch/batch_format.h"
#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/mem_dev.h"
#include "tarn/blobfs/lz4.h"

namespace agent::batch {

namespace {

/// What an item's commands take besides content and attributes, nearly.
constexpr std::uint64_t kCommandBytes = 128;

std::span<const std::byte> bytes_of(const std::string& text) {
    return std::as_bytes(std::span(text));
}

std::uint64_t measure(const util::CFileInfo& info) {
    const auto device = std::make_shared<io::mem_dev_tt<cnt::array_t<char>>>();
    io::binary_stream_tt stream(device);
    info.Serialize(stream);
    return device->GetBuffer()->size();
}

/// The file at `path`, which has no name from now on: nothing is left of it when this process is killed.
std::shared_ptr<posix::posix_file_t> take_file(const std::string& path) {
    auto file = posix::posix_file_t::Open4Read(path);
    ::unlink(path.c_str());
    return file;
}

std::uint64_t unpacked_length(posix::posix_file_t& file) {
    tarn::blobfs::BlockHeader header{};
    if (file.Read(&header, sizeof header) != sizeof header) {
        throw exc::CRuntimeExc("Blob file [%1] is cut off.", file.GetPath());
    }
    return header.uncompressedLength;
}

}  // namespace

batch_packer_t::batch_packer_t()
    : connection_(std::make_shared<batch_connection_t>(folder_.GetPath())),
      creater_(std::make_shared<tarn::blobfs::BlobCreater>(connection_)),
      backend_(creater_) {}

batch_packer_t::~batch_packer_t() = default;

bool batch_packer_t::Takes(const item_t& item) noexcept {
    const bool fits =
        item.kind == EItemKind::eFile || item.kind == EItemKind::eDirectory || item.kind == EItemKind::eLink;
    return fits && item.info.isSet() && item.startOffset == 0 && !item.resumable;
}

void batch_packer_t::Add(const item_t& item, std::span<const extent_t> content, std::uint64_t size) {
    CheckItem(item);
    const std::uint64_t infoBytes = measure(item.info);
    const std::string name = FormatBatchName({item.copy, item.entry});
    const std::uint64_t value = item.kind == EItemKind::eFile ? size : item.second.size();
    items_.push_back({name, item.path, value});
    bytes_ += kCommandBytes + infoBytes;
    unsynced_ = item.unsynced;
    try {
        Pack(item, connection_->GetPrefix() + name, content);
    } catch (const std::exception& error) {
        fault_ = error.what();  // some of its commands are in the stream already
        throw;
    }
}

void batch_packer_t::Pack(const item_t& item, const std::string& name, std::span<const extent_t> content) {
    if (item.kind == EItemKind::eDirectory) {
        backend_.CreateDir(name);
        backend_.SetFileMetadata(item.info, name);
        return;
    }
    const extent_t target{0, bytes_of(item.second)};
    const auto stream = backend_.CreateNewFile(name, 0, true);
    for (const extent_t& extent : item.kind == EItemKind::eLink ? std::span(&target, 1) : content) {
        stream->SeekTo(extent.offset);
        stream->WriteExc(extent.data.data(), extent.data.size());
        bytes_ += extent.data.size();
    }
    backend_.SetFileMetadata(item.info, name);
}

bool batch_packer_t::IsFull() const noexcept {
    return items_.size() >= kMaxBatchEntries || bytes_ >= kBatchPayload;
}

batch_t batch_packer_t::Finish() {
    batch_t batch;
    batch.items = std::exchange(items_, {});
    batch.unsynced = unsynced_;
    bytes_ = 0;
    const std::string fault = std::exchange(fault_, {});
    creater_->Finish();
    const std::string path = connection_->TakePath();
    batch.file = take_file(path);
    if (!fault.empty()) {
        throw exc::CRuntimeExc("%1", fault);
    }
    batch.total = unpacked_length(*batch.file);
    return batch;
}

}  // namespace agent::batch
