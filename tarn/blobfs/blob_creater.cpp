#include "tarn/blobfs/blob_creater.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "mirrowen/io/binary_stream.h"
#include "mirrowen/util/fs.h"
#include "mirrowen/util/numeric_cast.h"
#include "tarn/blobfs/lz4.h"
#include "tarn/fs_log.h"

namespace tarn::blobfs {

namespace {

constexpr std::uint64_t kRotationThreshold = 31457280;
constexpr std::uint64_t kMaxWriteChunk = 31457280;

template <class Body>
std::string_view BytesOf(const Body& body) {
    return {reinterpret_cast<const char*>(&body), sizeof body};
}

}  // namespace

BlobCreater::BlobCreater(std::shared_ptr<CBlobFsConnnection> connection) : connection_(std::move(connection)) {
    fs_log.tr("BlobCreater");
    fs_log.tr("Lz4 compressing for traffic used.");
    _OpenFile();
}

BlobCreater::~BlobCreater() {
    fs_log.tr("~BlobCreater");
    try {
        _CloseFile();
    } catch (const std::exception& error) {
        fs_log.err("Failed to finish the last blob file; its commands are lost.", error);
    } catch (...) {
        fs_log.err("Failed to finish the last blob file; its commands are lost.");
    }
}

void BlobCreater::CreateDir(const std::string& path, bool overwrite) {
    const BlobBody_CreateDir body{overwrite};
    Put(eBlobCmd::eCreateDir, path, BytesOf(body), {});
}

void BlobCreater::CreateFile(const std::string& path, bool overwrite) {
    const BlobBody_CreateFile body{overwrite};
    Put(eBlobCmd::eCreateFile, path, BytesOf(body), {});
}

void BlobCreater::WriteFile(const std::string& path, std::uint64_t offset, const void* data, std::uint64_t size) {
    std::uint64_t done = 0;
    do {
        const std::uint64_t chunk = std::min(size - done, kMaxWriteChunk);
        BlobBody_WriteFile body;
        body.offset = offset + done;
        body.length = static_cast<std::uint32_t>(chunk);
        Put(eBlobCmd::eWriteFile, path, BytesOf(body), {static_cast<const char*>(data) + done, chunk});
        done += chunk;
    } while (done < size);
}

void BlobCreater::SetFileMetadata(const util::CFileInfo& info, const std::string& path) {
    const auto serialized = std::make_shared<io::mem_dev_tt<buffer_t>>();
    io::binary_stream_tt stream(serialized);
    info.Serialize(stream);
    const buffer_t& bytes = *serialized->GetBuffer();
    BlobBody_SetFileMetadata body;
    body.length = util::numeric_cast<std::uint32_t>(bytes.size());
    Put(eBlobCmd::eSetFileMetadata, path, BytesOf(body), {bytes.data(), bytes.size()});
}

void BlobCreater::Finish() {
    _NextFile();
}

void BlobCreater::Put(eBlobCmd type, const std::string& path, std::string_view head, std::string_view data) {
    try {
        BlobCmd command(type, _GetActualPathLength(path), path.data(),
                        static_cast<std::uint32_t>(head.size() + data.size()));
        std::copy(data.begin(), data.end(), std::copy(head.begin(), head.end(), command.body()));
        _PutToFile(command);
    } catch (...) {
        lastPath_.clear();  // it may stand in no command, so the next one brings its own
        throw;
    }
}

// NOLINTBEGIN(bugprone-reserved-identifier)

std::size_t BlobCreater::_GetActualPathLength(const std::string& path) {
    if (path == lastPath_) {
        return 0;
    }
    lastPath_ = path;
    return path.size();
}

void BlobCreater::_PutToFile(BlobCmd& command) {
    if (buffer_ == nullptr) {
        _OpenFile();
    }
    buffer_->Write(command.buffer(), command.length());
    currentSize_ += command.length();
    if (currentSize_ > kRotationThreshold) {
        _NextFile();
    }
}

void BlobCreater::_OpenFile() {
    buffer_ = std::make_shared<io::mem_dev_tt<buffer_t>>();
}

void BlobCreater::_CloseFile() {
    fs_log.tr("Blob file created. size=%1.", currentSize_);
    if (buffer_ == nullptr || buffer_->GetBuffer()->empty()) {
        return;
    }
    try {
        _FlushToFile();
        lastPath_.clear();
        if (currentSize_ != 0) {
            connection_->OnBlobFileCreated(currentBlobFile_);
            currentSize_ = 0;
        } else {
            fs_log.tr("blob file is empty.");
        }
        currentBlobFile_.clear();
    } catch (...) {
        Abandon();
        throw;
    }
}

void BlobCreater::_NextFile() {
    _CloseFile();
    _OpenFile();
}

void BlobCreater::_FlushToFile() {
    currentBlobFile_ = connection_->NextBlobFile();
    CLz4::compressToFile(buffer_->GetBuffer(),
                         util::fs_merge_path_slash_sense(connection_->GetLocalTempFolder(), currentBlobFile_));
    buffer_.reset();
}

// NOLINTEND(bugprone-reserved-identifier)

void BlobCreater::Abandon() noexcept {
    buffer_.reset();
    lastPath_.clear();
    currentSize_ = 0;
    currentBlobFile_.clear();
}

}  // namespace tarn::blobfs
