#pragma once

#include <cstdint>
#include <cstring>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "agent/batch/batch_format.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/mem_dev.h"
#include "mirrowen/util/file_info.h"
#include "tarn/batch/batch_area_dev_token.h"
#include "tarn/blobfs/blob_layout.h"
#include "tarn/blobfs/lz4.h"

/// Batches byte by byte, so that a test can write what no sender does.
namespace tests {

/// The bytes of one of the layout's structs.
template <class Struct>
std::string BytesOf(const Struct& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline std::string BlobCommand(tarn::blobfs::eBlobCmd type, std::string_view path, std::string_view body) {
    tarn::blobfs::BlobCmd_Header header;
    header.totalLength = static_cast<std::uint32_t>(sizeof header + path.size() + body.size());
    header.type = static_cast<std::uint32_t>(type);
    header.pathLength = static_cast<std::uint16_t>(path.size());
    return BytesOf(header).append(path).append(body);
}

inline std::string CreateDirectoryCommand(std::string_view name, char overwrite = 0) {
    return BlobCommand(tarn::blobfs::eBlobCmd::eCreateDir, name, {&overwrite, 1});
}

inline std::string CreateFileCommand(std::string_view name, char overwrite = 1) {
    return BlobCommand(tarn::blobfs::eBlobCmd::eCreateFile, name, {&overwrite, 1});
}

inline std::string WriteCommand(std::uint64_t offset, std::string_view data, std::string_view name = {}) {
    tarn::blobfs::BlobBody_WriteFile body;
    body.offset = offset;
    body.length = static_cast<std::uint32_t>(data.size());
    return BlobCommand(tarn::blobfs::eBlobCmd::eWriteFile, name, BytesOf(body).append(data));
}

inline std::string SerialOf(const util::CFileInfo& info) {
    const auto bytes = std::make_shared<std::string>();
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>(bytes));
    info.Serialize(stream);
    return *bytes;
}

inline std::string MetadataCommand(std::string_view serial, std::string_view name = {}) {
    tarn::blobfs::BlobBody_SetFileMetadata body;
    body.length = static_cast<std::uint32_t>(serial.size());
    return BlobCommand(tarn::blobfs::eBlobCmd::eSetFileMetadata, name, BytesOf(body).append(serial));
}

inline std::string MetadataCommand(const util::CFileInfo& info) {
    return MetadataCommand(SerialOf(info));
}

/// The frame of a blob file.
inline std::string BatchFrame(const std::string& stream) {
    using buffer_t = cnt::array_t<char>;
    tarn::blobfs::BlockHeader header;
    std::shared_ptr<buffer_t> block;
    tarn::blobfs::CLz4::compress(std::make_shared<buffer_t>(stream.begin(), stream.end()), block, header);
    return BytesOf(header).append(block->data(), block->size());
}

/// A batch as a sender makes it, of one copy and with the entry numbers 0, 1, 2 ...; every part may be spoilt.
struct batch_maker_t {
    explicit batch_maker_t(const guid::guid_t& itsCopy = {}) : copy(itsCopy) {}

    std::string NextName() const { return agent::batch::FormatBatchName({copy, next}); }

    void AddFile(const std::string& path, const util::CFileInfo& info, const std::string& content) {
        const std::string writes = content.empty() ? "" : WriteCommand(0, content);
        Add(path, content.size(), CreateFileCommand(NextName()) + writes + MetadataCommand(info));
    }

    void AddDirectory(const std::string& path, const util::CFileInfo& info) {
        Add(path, 0, CreateDirectoryCommand(NextName()) + MetadataCommand(info));
    }

    /// An entry of these commands.
    void Add(const std::string& path, std::uint64_t size, const std::string& commands) {
        items.push_back({NextName(), path, size});
        stream += commands;
        ++next;
    }

    std::shared_ptr<tarn::batch::CBatchAreaDevToken> Token() const {
        return std::make_shared<tarn::batch::CBatchAreaDevToken>(items, stream.size(), overwrite, unsynced);
    }

    guid::guid_t copy;
    std::uint64_t next = 0;  ///< number of the next entry
    std::list<tarn::batch::SFileItemSpec> items;
    std::string stream;
    bool overwrite = false;
    bool unsynced = false;
};

}  // namespace tests
