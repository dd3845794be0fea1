#include "tarn/blobfs/blob_parser.h"

#include <chrono>
#include <cstddef>
#include <ctime>
#include <utility>

#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/mem_dev.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/clock.h"
#include "mirrowen/util/file_info.h"
#include "mirrowen/util/fs.h"
#include "mirrowen/util/str.h"
#include "tarn/blobfs/blob_command_reader.h"
#include "tarn/blobfs/lz4.h"
#include "tarn/fs_log.h"

namespace tarn::blobfs {

namespace {

using buffer_t = cnt::array_t<char>;
using file_ptr_t = std::shared_ptr<posix::posix_file_t>;

constexpr std::uint64_t kMaxBlobFile = 2'147'483'648;
constexpr unsigned kDurationDecimals = 3;

std::time_t Now() {
    return std::chrono::system_clock::to_time_t(util::clock().SystemNow());
}

/// A device, a pipe or a directory would be deleted where it has no size.
bool IsRegularFile(const std::string& path) {
    struct stat found = {};
    return posix::sys().stat(path.c_str(), &found) == 0 && S_ISREG(found.st_mode);
}

/// Throws when the payload is no row of commands: then none of them is applied.
void CheckCommands(std::span<const char> payload) {
    blob_command_reader_t reader(payload);
    while (reader.Next()) {
    }
}

/// The command whose length the reader has found good.
blob_command_t CommandAt(const BlobCmd_Header& header) {
    const std::span<const char> bytes(reinterpret_cast<const char*>(&header), header.totalLength);
    return blob_command_reader_t(bytes).Next().value();
}

std::string PathOf(const BlobCmd_Header& header) {
    std::string path(CommandAt(header).path);
    if (path.find('\0') != std::string::npos) {  // system calls would see another path
        throw exc::CRuntimeExc("Path of a blob command contains a zero byte.");
    }
    return path;
}

/// The fixed part of a body. It consists of bytes, so it may lie anywhere.
template <class Body>
const Body* BodyOf(const blob_command_t& command) {
    return reinterpret_cast<const Body*>(command.body.data());
}

/// What stands behind the fixed part.
template <class Body>
const char* DataOf(const Body* body) {
    return reinterpret_cast<const char*>(body + 1);
}

/// What stands at the path makes room, a link as such.
file_ptr_t CreateInPlace(const std::string& path, bool exists) {
    if (exists) {
        util::fs_file_delete(path);
    }
    return posix::posix_file_t::CreateNew(path, 0);
}

file_ptr_t OpenExisting(const std::string& path) {
    return posix::posix_file_t::Open4Write(path, false);
}

void WriteData(posix::posix_file_t& file, const BlobBody_WriteFile* body) {
    file.SeekFromBegin(body->offset);
    file.Write(DataOf(body), body->length);
}

}  // namespace

BlobParser::BlobParser(observer_t observer) : observer_(std::move(observer)) {}

BlobParser::~BlobParser() = default;

void BlobParser::Execute(const std::string& path) {
    fs_log.tr("PARSING_OPTIMIZED used.");
    fs_log.tr("Lz4 compressing for traffic used.");
    try {
        const std::uint64_t size = util::fs_file_size(path);
        if (size > kMaxBlobFile) {
            throw exc::CRuntimeExc("File too big! [%1].", size);
        }
        if (!IsRegularFile(path)) {
            throw exc::CRuntimeExc("Blob file is not a regular file.");
        }
        const std::uint32_t fails = size == 0 ? 0 : ApplyFile(path);
        util::fs_file_delete(path);
        if (fails != 0) {
            throw exc::CRuntimeExc("%1 fails found .", fails);
        }
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to parse file [%1].", path);
    }
}

std::uint32_t BlobParser::ApplyFile(const std::string& path) {
    const std::shared_ptr<buffer_t> payload = CLz4::decompressFromFile(path);
    fs_log.tr("read %1 bytes.", payload->size());
    CheckCommands(*payload);
    const std::time_t start = Now();
    const std::uint32_t fails = ApplyPayload(*payload);
    fs_log.tr("File parse duration = %1 seconds.",
              util::str_from_double(std::difftime(Now(), start), kDurationDecimals));
    return fails;
}

std::uint32_t BlobParser::ApplyPayload(std::span<const char> payload) {
    std::uint32_t fails = 0;
    std::list<const BlobCmd_Header*> headers;
    std::size_t offset = 0;
    do {
        const auto* const header = reinterpret_cast<const BlobCmd_Header*>(payload.data() + offset);
        if (header->pathLength != 0 && !headers.empty()) {
            fails += _ApplyListCmds(headers);
        }
        headers.push_back(header);
        offset += header->totalLength;
    } while (offset <= payload.size() - sizeof(BlobCmd_Header));
    if (!headers.empty()) {
        fails += _ApplyListCmds(headers);
    }
    return fails;
}

std::uint32_t BlobParser::_ApplyListCmds(std::list<const BlobCmd_Header*>& headers) {
    std::uint32_t fails = 0;
    std::string path;
    file_ptr_t openFile;
    try {
        for (const BlobCmd_Header* const header : headers) {
            if (header->pathLength != 0) {
                path = PathOf(*header);
                openFile.reset();
            }
            if (path.empty()) {
                throw exc::CRuntimeExc("Cannot create file without name.");
            }
            fails += ApplyCommand(*header, path, openFile);
        }
    } catch (const std::exception& failure) {
        fails += Report("Failed to apply list of commands.", path, failure);
    }
    headers.clear();
    return fails;
}

std::uint32_t BlobParser::ApplyCommand(const BlobCmd_Header& header, const std::string& path, file_ptr_t& openFile) {
    const blob_command_t command = CommandAt(header);
    switch (static_cast<eBlobCmd>(command.type)) {
        case eBlobCmd::eCreateDir:
            ReadOverwriteFlag(command);
            return _CreateFolder(path, BodyOf<BlobBody_CreateDir>(command));
        case eBlobCmd::eCreateFile:
            ReadOverwriteFlag(command);
            return _CreateFileOptimized(path, BodyOf<BlobBody_CreateFile>(command), openFile);
        case eBlobCmd::eWriteFile:
            ReadWrite(command);
            return _WriteFileOptimized(path, BodyOf<BlobBody_WriteFile>(command), openFile);
        case eBlobCmd::eSetFileMetadata:
            openFile.reset();
            ReadMetadata(command);
            return _SetFileMetadata(path, BodyOf<BlobBody_SetFileMetadata>(command));
    }
    throw exc::CRuntimeExc("Invalid command type = %1.", command.type);
}

std::uint32_t BlobParser::_CreateFolder(const std::string& path, const BlobBody_CreateDir* body) {
    const std::string folder = util::fs_merge_path_slash_sense(path, "");
    try {
        if (util::fs_directory_exists(folder)) {
            if (body->overwrite == 0) {
                fs_log.tr("Folder %1 already exist!", folder);
                return 0;
            }
            util::fs_file_delete(folder);
        }
        util::fs_make_directory(folder);
        return 0;
    } catch (const std::exception& failure) {
        return Report(util::str_format("Failed to create folder [%1]", folder), folder, failure);
    }
}

std::uint32_t BlobParser::_CreateFile(const std::string& path, const BlobBody_CreateFile* body) {
    try {
        const bool exists = util::fs_file_exists(path);
        if (exists && body->overwrite == 0) {
            fs_log.tr("File %1 already exist!", path);
        } else {
            CreateInPlace(path, exists);
        }
        return 0;
    } catch (const std::exception& failure) {
        return Report(util::str_format("Failed to create file [%1]", path), path, failure);
    }
}

std::uint32_t BlobParser::_CreateFileOptimized(const std::string& path, const BlobBody_CreateFile* body,
                                               file_ptr_t& openFile) {
    try {
        if (openFile) {
            fs_log.err("File [%1] already opened.", path);
            openFile.reset();
        }
        const bool exists = util::fs_file_exists(path);
        if (exists && body->overwrite == 0) {
            fs_log.tr("File [%1] already exist!", path);
            openFile = OpenExisting(path);
        } else {
            openFile = CreateInPlace(path, exists);
        }
        return 0;
    } catch (const std::exception& failure) {
        return Report(util::str_format("Failed to create file [%1]", path), path, failure);
    }
}

std::uint32_t BlobParser::_WriteFile(const std::string& path, const BlobBody_WriteFile* body) {
    try {
        WriteData(*OpenExisting(path), body);
        return 0;
    } catch (const std::exception& failure) {
        return Report(util::str_format("Failed to write file [%1]", path), path, failure);
    }
}

std::uint32_t BlobParser::_WriteFileOptimized(const std::string& path, const BlobBody_WriteFile* body,
                                              file_ptr_t& openFile) {
    try {
        if (!openFile) {
            openFile = OpenExisting(path);
        }
        WriteData(*openFile, body);
        return 0;
    } catch (const std::exception& failure) {
        return Report(util::str_format("Failed to write file [%1]", path), path, failure);
    }
}

std::uint32_t BlobParser::_SetFileMetadata(const std::string& path, const BlobBody_SetFileMetadata* body) {
    const auto bytes = std::make_shared<buffer_t>(DataOf(body), DataOf(body) + body->length);
    util::CFileInfo info;
    try {
        io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<buffer_t>>(bytes));
        info.DeSerialize(stream);
    } catch (const std::exception& failure) {
        return Report(util::str_format("Failed to deserialize file metadata for file [%1]", path), path, failure);
    }
    try {
        info.applyMetaForFile(path);
        return 0;
    } catch (const std::exception& failure) {
        const std::uint32_t fails =
            Report(util::str_format("Failed to set file metadata for file [%1]", path), path, failure);
        fs_log.tr("deserialized:");
        fs_log.tr("%1", util::str_from_bin(bytes->data(), bytes->size()));
        return fails;
    }
}

std::uint32_t BlobParser::Report(std::string_view text, const std::string& path, const std::exception& failure) const {
    fs_log.err(text, failure);
    if (observer_) {
        observer_(path, failure);
    }
    return 1;
}

}  // namespace tarn::blobfs
