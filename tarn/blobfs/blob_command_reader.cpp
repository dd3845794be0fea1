#include "tarn/blobfs/blob_command_reader.h"

#include <cstring>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blobfs/blob_layout.h"

namespace tarn::blobfs {

namespace {

BlobCmd_Header ReadHeader(std::span<const char> bytes) {
    BlobCmd_Header header;
    std::memcpy(&header, bytes.data(), sizeof header);
    return header;
}

void CheckLength(const BlobCmd_Header& header, std::size_t offset, std::size_t left) {
    const std::uint32_t length = header.totalLength;
    const std::uint16_t pathLength = header.pathLength;
    if (length < sizeof header) {
        throw exc::CRuntimeExc("Blob command at offset [%1] has length [%2], less than its header.", offset, length);
    }
    if (length - sizeof header < pathLength) {
        throw exc::CRuntimeExc("Blob command at offset [%1] has length [%2], too short for its path of [%3] bytes.",
                               offset, length, pathLength);
    }
    if (length > left) {
        throw exc::CRuntimeExc("Blob command at offset [%1] has length [%2], only [%3] bytes are left.", offset, length,
                               left);
    }
}

/// The fixed part of a body.
template <class Body>
Body ReadBody(const blob_command_t& command) {
    Body body;
    if (command.body.size() < sizeof body) {
        throw exc::CRuntimeExc("Blob command of type [%1] with a body of [%2] bytes is too short.", command.type,
                               command.body.size());
    }
    std::memcpy(&body, command.body.data(), sizeof body);
    return body;
}

/// The `announced` bytes behind a fixed part of `fixed` bytes.
std::span<const char> ReadTail(const blob_command_t& command, std::size_t fixed, std::uint32_t announced) {
    const std::span<const char> tail = command.body.subspan(fixed);
    if (announced > tail.size()) {
        throw exc::CRuntimeExc("Blob command of type [%1] announces [%2] bytes, only [%3] follow.", command.type,
                               announced, tail.size());
    }
    return tail.first(announced);
}

}  // namespace

blob_command_reader_t::blob_command_reader_t(std::span<const char> payload) : payload_(payload) {}

std::optional<blob_command_t> blob_command_reader_t::Next() {
    if (payload_.size() < sizeof(BlobCmd_Header)) {
        throw exc::CRuntimeExc("Blob payload of [%1] bytes is shorter than a command.", payload_.size());
    }
    const std::span<const char> rest = payload_.subspan(offset_);
    if (rest.empty()) {
        return std::nullopt;
    }
    if (rest.size() < sizeof(BlobCmd_Header)) {
        throw exc::CRuntimeExc("Blob payload ends within the header of the command at offset [%1].", offset_);
    }
    const BlobCmd_Header header = ReadHeader(rest);
    CheckLength(header, offset_, rest.size());
    const std::uint32_t length = header.totalLength;
    const auto behindHeader = rest.first(length).subspan(sizeof header);
    const auto path = behindHeader.first(header.pathLength);
    const blob_command_t command{header.type, std::string_view(path.data(), path.size()),
                                 behindHeader.subspan(path.size()), offset_, length};
    offset_ += length;
    return command;
}

bool ReadOverwriteFlag(const blob_command_t& command) {
    return ReadBody<BlobBody_CreateFile>(command).overwrite != 0;
}

blob_write_t ReadWrite(const blob_command_t& command) {
    const auto body = ReadBody<BlobBody_WriteFile>(command);
    return {body.offset, ReadTail(command, sizeof body, body.length)};
}

std::span<const char> ReadMetadata(const blob_command_t& command) {
    const auto body = ReadBody<BlobBody_SetFileMetadata>(command);
    return ReadTail(command, sizeof body, body.length);
}

}  // namespace tarn::blobfs
