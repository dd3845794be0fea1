#include "agent/blob/blob_contents.h"

#include <sys/stat.h>

#include <span>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/mem_dev.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/crc32c.h"
#include "mirrowen/util/str_format.h"
#include "tarn/blobfs/blob_layout.h"

namespace agent::blob {

namespace {

using array_t = cnt::array_t<char>;
using tarn::blobfs::blob_command_t;
using tarn::blobfs::BlockHeader;
using tarn::blobfs::CLz4;
using tarn::blobfs::eBlobCmd;

constexpr std::uint32_t kChecked = 0x08000000;

void read_whole(posix::posix_file_t& file, void* target, std::size_t count) {
    const std::size_t got = file.Read(target, count);
    if (got != count) {
        throw exc::CRuntimeExc("File [%1] ends early: [%2] bytes of [%3] are there.", file.GetPath(), got, count);
    }
}

// Opening a pipe would wait for whoever writes to it. What is not there is for the opening to tell.
void refuse_what_is_no_file(const std::string& path) {
    struct stat found {};
    if (posix::sys().stat(path.c_str(), &found) == 0 && !S_ISREG(found.st_mode)) {
        throw exc::CRuntimeExc("[%1] is not a regular file.", path);
    }
}

std::shared_ptr<const array_t> unpack(const BlockHeader& header, const std::shared_ptr<array_t>& block) {
    std::shared_ptr<array_t> payload;
    CLz4::decompress(header, block, payload);
    return payload;
}

// A payload whose checksum is wrong is still worth a look.
void unpack_into(blob_contents_t& contents, const BlockHeader& header, const std::shared_ptr<array_t>& block) {
    const std::uint32_t magicAndFlags = header.magicAndFlags;
    BlockHeader unchecked = header;
    unchecked.magicAndFlags = magicAndFlags & ~kChecked;
    contents.payload = unpack(unchecked, block);
    if ((magicAndFlags & kChecked) == 0) {
        contents.checksum = EChecksum::eAbsent;
    } else if (util::crc32c(0, contents.payload->data(), contents.payload->size()) == header.checksum) {
        contents.checksum = EChecksum::eGood;
    } else {
        contents.checksum = EChecksum::eWrong;
        unpack(header, block);  // has the words for it
    }
}

void read_into(blob_contents_t& contents, posix::posix_file_t& file) {
    if (contents.fileSize < sizeof(BlockHeader)) {
        throw exc::CRuntimeExc("A blob file has at least [%1] bytes, this one has [%2].", sizeof(BlockHeader),
                               contents.fileSize);
    }
    BlockHeader header;
    read_whole(file, &header, sizeof header);
    contents.header = header;
    const auto block = std::make_shared<array_t>(contents.fileSize - sizeof header);
    read_whole(file, block->data(), block->size());
    unpack_into(contents, header, block);
}

util::CFileInfo info_of(std::span<const char> serialised) {
    using device_t = io::mem_dev_tt<array_t>;
    const auto bytes = std::make_shared<array_t>(serialised.begin(), serialised.end());
    io::binary_stream_tt stream(std::make_shared<device_t>(bytes));
    return util::CFileInfo::fromStream(stream);
}

void describe_body(const blob_command_t& command, shown_command_t& shown) {
    switch (static_cast<eBlobCmd>(command.type)) {
        case eBlobCmd::eCreateDir:
        case eBlobCmd::eCreateFile:
            shown.overwrite = tarn::blobfs::ReadOverwriteFlag(command);
            break;
        case eBlobCmd::eWriteFile: {
            const tarn::blobfs::blob_write_t write = tarn::blobfs::ReadWrite(command);
            shown.offset = write.offset;
            shown.bytes = write.data.size();
            break;
        }
        case eBlobCmd::eSetFileMetadata:
            shown.info = info_of(tarn::blobfs::ReadMetadata(command));
            break;
        default:
            throw exc::CRuntimeExc("Invalid command type = %1.", command.type);
    }
}

shown_command_t describe(const blob_command_t& command, const std::string& path) {
    shown_command_t shown;
    shown.at = command.offset;
    shown.length = command.length;
    shown.type = command.type;
    shown.path = path;
    shown.keepsPath = command.path.empty();
    try {
        if (path.empty()) {
            throw exc::CRuntimeExc("Cannot create file without name.");
        }
        describe_body(command, shown);
    } catch (const std::exception& error) {
        shown.fault = error.what();
    }
    return shown;
}

}  // namespace

blob_contents_t ReadBlob(const std::string& path) {
    refuse_what_is_no_file(path);
    const auto file = posix::posix_file_t::Open4Read(path);
    blob_contents_t contents;
    contents.fileSize = file->GetSize();
    if (contents.fileSize == 0) {
        return contents;
    }
    try {
        read_into(contents, *file);
    } catch (const posix::errno_exc_t&) {
        throw;
    } catch (const std::exception&) {
        contents.fault = std::make_exception_ptr(
            exc::CRuntimeExc(util::str_format("Failed to read blob file [%1].", path), std::current_exception()));
    }
    return contents;
}

void TellCommands(const array_t& payload, const std::function<void(const shown_command_t&)>& tell) {
    tarn::blobfs::blob_command_reader_t reader(payload);
    std::string path;
    while (const auto command = reader.Next()) {
        if (!command->path.empty()) {
            path = command->path;
        }
        tell(describe(*command, path));
    }
}

}  // namespace agent::blob
