#include "agent/batch/batch_contents.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/mem_dev.h"
#include "tarn/blobfs/blob_command_reader.h"
#include "tarn/blobfs/blob_layout.h"

namespace agent::batch {

namespace {

using tarn::blobfs::blob_command_t;
using tarn::blobfs::eBlobCmd;

bool Is(const blob_command_t& command, eBlobCmd type) noexcept {
    return command.type == static_cast<std::uint32_t>(type);
}

/// The commands of one entry, in their order.
class entry_reader_t {
  public:
    entry_reader_t(const batch_plan_t& plan, const planned_entry_t& planned,
                   tarn::blobfs::blob_command_reader_t& reader)
        : planned_(planned), reader_(reader) {
        batch_entry_t& entry = entry_;
        entry.item.copy = plan.copy;
        entry.item.path = planned.path;
        entry.item.entry = planned.number;
        entry.item.deferred = true;
        entry.item.unsynced = plan.unsynced;
        entry.size = planned.size;
    }

    batch_entry_t Read() {
        ReadCreation();
        blob_command_t command = Next();
        for (; Is(command, eBlobCmd::eWriteFile); command = Next()) {
            AddPiece(command);
        }
        ReadAttributes(command);
        CheckItem(entry_.item);
        return std::move(entry_);
    }

  private:
    blob_command_t Next() {
        const auto command = reader_.Next();
        if (!command) {
            throw exc::CRuntimeExc("The commands end before the attributes of entry [%1].", planned_.name);
        }
        return *command;
    }

    [[noreturn]] void Refuse(const blob_command_t& command, std::string_view fault) const {
        throw exc::CRuntimeExc("The command at offset [%1] is refused for entry [%2]: %3.", command.offset,
                               planned_.name, fault);
    }

    void Require(bool holds, const blob_command_t& command, std::string_view fault) const {
        if (!holds) {
            Refuse(command, fault);
        }
    }

    void ReadCreation() {
        const blob_command_t command = Next();
        const bool isDirectory = Is(command, eBlobCmd::eCreateDir);
        Require(isDirectory || Is(command, eBlobCmd::eCreateFile), command, "an entry begins with its creation");
        Require(command.path == planned_.name, command, "its path is not the entry's name");
        Require(tarn::blobfs::ReadOverwriteFlag(command) != isDirectory, command, "its overwrite flag is wrong");
        Require(command.body.size() == sizeof(tarn::blobfs::BlobBody_CreateFile), command, "its body is too long");
        Require(!isDirectory || planned_.size == 0, command, "a directory has no size");
        entry_.item.kind = isDirectory ? EItemKind::eDirectory : EItemKind::eFile;
    }

    void AddPiece(const blob_command_t& command) {
        const tarn::blobfs::blob_write_t write = tarn::blobfs::ReadWrite(command);
        const std::uint64_t length = write.data.size();
        Require(command.path.empty(), command, "it has a path of its own");
        Require(entry_.item.kind == EItemKind::eFile, command, "a directory is not written to");
        Require(command.body.size() == sizeof(tarn::blobfs::BlobBody_WriteFile) + length, command,
                "its body is too long");
        Require(length != 0, command, "it writes nothing");
        Require(write.offset >= end_, command, "it goes back in the file");
        Require(length <= planned_.size && write.offset <= planned_.size - length, command,
                "it writes beyond the file's size");
        end_ = write.offset + length;
        entry_.pieces.push_back({write.offset, write.data});
    }

    void ReadAttributes(const blob_command_t& command) {
        Require(Is(command, eBlobCmd::eSetFileMetadata), command, "its type is none of those that may stand here");
        Require(command.path.empty(), command, "it has a path of its own");
        const std::span<const char> bytes = tarn::blobfs::ReadMetadata(command);
        Require(command.body.size() == sizeof(tarn::blobfs::BlobBody_SetFileMetadata) + bytes.size(), command,
                "its body is too long");
        const auto device =
            std::make_shared<io::mem_dev_tt<std::string>>(std::make_shared<std::string>(bytes.begin(), bytes.end()));
        io::binary_stream_tt stream(device);
        entry_.item.info.DeSerialize(stream);
        Require(device->Remaining() == 0, command, "its attributes are too long");
        TakeKind(command);
    }

    void TakeKind(const blob_command_t& command) {
        item_t& item = entry_.item;
        const util::EFileType type = item.info.type;
        if (item.kind == EItemKind::eDirectory) {
            Require(type == util::EFileType::eDirectory, command, "its attributes are not those of a directory");
        } else if (type == util::EFileType::eSymlink) {
            TakeTarget(command);
        } else {
            Require(type == util::EFileType::eRegular, command, "its attributes are not those of a file or link");
        }
    }

    void TakeTarget(const blob_command_t& command) {
        Require(entry_.pieces.size() == 1 && entry_.pieces[0].data.size() == planned_.size, command,
                "a link's content is one write");
        const std::span<const char> content = entry_.pieces[0].data;
        entry_.item.kind = EItemKind::eLink;
        entry_.item.second.assign(content.begin(), content.end());
        entry_.pieces.clear();
        entry_.size = 0;
    }

    const planned_entry_t& planned_;
    tarn::blobfs::blob_command_reader_t& reader_;
    batch_entry_t entry_;
    std::uint64_t end_ = 0;  ///< of what was written
};

}  // namespace

std::vector<batch_entry_t> CheckContents(const batch_plan_t& plan, std::span<const char> payload) {
    try {
        tarn::blobfs::blob_command_reader_t reader(payload);
        std::vector<batch_entry_t> entries;
        entries.reserve(plan.entries.size());
        for (const planned_entry_t& planned : plan.entries) {
            entries.push_back(entry_reader_t(plan, planned, reader).Read());
        }
        if (const auto command = reader.Next()) {
            throw exc::CRuntimeExc("The command at offset [%1] is refused: the last entry ends before it.",
                                   command->offset);
        }
        return entries;
    } catch (const std::exception&) {
        exc::RegenExc("The commands of a batch are refused.");
    }
}

}  // namespace agent::batch
