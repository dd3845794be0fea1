#pragma once

#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/batch/batch.h"
#include "agent/batch/batch_format.h"
#include "agent/token/item.h"
#include "mirrowen/cnt/array.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/mem_dev.h"
#include "tarn/blobfs/blob_command_reader.h"
#include "tarn/blobfs/blob_layout.h"
#include "tarn/blobfs/lz4.h"

namespace agent::batch {

/// One entry of a batch, for tests of those who pack it.
struct unpacked_entry_t {
    item_t item;
    std::string content;                ///< holes filled
    std::vector<std::uint64_t> writes;  ///< the offsets of the write commands
    std::string commands;               ///< a letter for each: d, f, w, m
    std::uint64_t value = 0;            ///< of the token
};

/// Takes batches apart by their documented form, beside the receiver's way of doing it. Throws `std::runtime_error` and
/// the errors of the frame and of the commands.
class unpacked_batch_t {
  public:
    explicit unpacked_batch_t(const batch_t& batch) {
        const std::shared_ptr<cnt::array_t<char>> stream = StreamOf(batch);
        streamBytes = stream->size();
        tarn::blobfs::blob_command_reader_t reader(*stream);
        std::string path;
        while (const auto command = reader.Next()) {
            if (!command->path.empty() && command->path != path) {
                path = command->path;
                Begin(batch, path);
            }
            Take(*command);
        }
        if (entries.size() != batch.items.size()) {
            throw std::runtime_error("the commands are not those of the token's items");
        }
    }

    std::vector<unpacked_entry_t> entries;
    std::uint64_t streamBytes = 0;

  private:
    using array_ptr_t = std::shared_ptr<cnt::array_t<char>>;

    static array_ptr_t StreamOf(const batch_t& batch) {
        batch.file->SeekFromBegin(0);
        tarn::blobfs::BlockHeader header{};
        const auto block = std::make_shared<cnt::array_t<char>>(batch.file->GetSize() - sizeof header);
        batch.file->Read(&header, sizeof header);
        batch.file->Read(block->data(), block->size());
        array_ptr_t stream;
        tarn::blobfs::CLz4::decompress(header, block, stream);
        return stream;
    }

    void Begin(const batch_t& batch, const std::string& path) {
        if (entries.size() >= batch.items.size()) {
            throw std::runtime_error("more entries than items");
        }
        const tarn::batch::SFileItemSpec& spec = *std::next(batch.items.begin(), static_cast<long>(entries.size()));
        if (spec.firstPath != path) {
            throw std::runtime_error("[" + path + "] is not [" + spec.firstPath + "]");
        }
        const batch_name_t name = ParseBatchName(path);
        unpacked_entry_t entry;
        entry.item.copy = name.copy;
        entry.item.entry = name.entry;
        entry.item.path = spec.secondPath;
        entry.item.deferred = true;
        entry.item.unsynced = batch.unsynced;
        entry.value = spec.value;
        entry.content.resize(spec.value);
        entries.push_back(std::move(entry));
    }

    void Take(const tarn::blobfs::blob_command_t& command) {
        unpacked_entry_t& entry = entries.back();
        entry.commands += " dfwm"[command.type];
        switch (static_cast<tarn::blobfs::eBlobCmd>(command.type)) {
            case tarn::blobfs::eBlobCmd::eCreateDir:
                entry.item.kind = EItemKind::eDirectory;
                break;
            case tarn::blobfs::eBlobCmd::eCreateFile:
                break;
            case tarn::blobfs::eBlobCmd::eWriteFile: {
                const tarn::blobfs::blob_write_t write = ReadWrite(command);
                entry.writes.push_back(write.offset);
                entry.content.replace(write.offset, write.data.size(), write.data.data(), write.data.size());
                break;
            }
            case tarn::blobfs::eBlobCmd::eSetFileMetadata:
                TakeInfo(entry, ReadMetadata(command));
        }
    }

    static void TakeInfo(unpacked_entry_t& entry, std::span<const char> bytes) {
        const auto buffer = std::make_shared<cnt::array_t<char>>(bytes.begin(), bytes.end());
        io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<cnt::array_t<char>>>(buffer));
        entry.item.info.DeSerialize(stream);
        if (entry.item.info.isSymlink()) {
            entry.item.kind = EItemKind::eLink;
            entry.item.second = entry.content;
        }
    }
};

}  // namespace agent::batch
