#include "agent/copy/file_source.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/block/content_buf.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent::copy {

namespace {

bool same_time(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Where the next piece of this kind begins, or `end` when none begins before it. Nothing when the file system keeps no
// map.
std::optional<std::uint64_t> find_next(const posix::posix_file_t& file, std::uint64_t from, int whence,
                                       std::uint64_t end) {
    const off_t found = posix::sys().lseek(file.GetDescriptor(), static_cast<off_t>(from), whence);
    if (found >= 0) {
        return std::clamp(static_cast<std::uint64_t>(found), from, end);
    }
    if (errno == ENXIO) {
        return end;
    }
    if (errno == EINVAL || errno == EOPNOTSUPP) {
        return std::nullopt;
    }
    throw posix::errno_exc_t("Failed to find the holes of file [%1]", file.GetPath(), errno);
}

}  // namespace

file_source_t::file_source_t(std::shared_ptr<posix::posix_file_t> file, const struct stat& examined,
                             std::uint64_t blockSize, std::uint64_t startOffset)
    : file_(std::move(file)),
      examined_(examined),
      end_(static_cast<std::uint64_t>(examined.st_size)),
      blockSize_(blockSize),
      position_(std::min(startOffset, end_)),
      extentEnd_(position_) {
    if (position_ < end_ && !find_next(*file_, position_, SEEK_DATA, end_)) {
        mapped_ = false;
        extentEnd_ = end_;
    }
}

file_source_t::~file_source_t() = default;

std::shared_ptr<io::area::IArea> file_source_t::ReadNext() {
    if (position_ < end_ && position_ >= extentEnd_) {
        if (const std::uint64_t data = FindExtent(); data > position_) {
            return TakeHole(data);
        }
    }
    if (position_ < end_) {
        return ReadBlock();
    }
    if (!std::exchange(finished_, true)) {
        Finish();
    }
    return nullptr;
}

std::string file_source_t::GetDisplayName() {
    return file_->GetPath();
}

void file_source_t::SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) {}

// Where the next data begins; `extentEnd_` is where it ends.
std::uint64_t file_source_t::FindExtent() {
    const auto data = find_next(*file_, position_, SEEK_DATA, end_);
    const auto hole = data && *data < end_ ? find_next(*file_, *data, SEEK_HOLE, end_) : std::nullopt;
    const std::uint64_t begin = data.value_or(position_);
    // Data that has become a hole since the first question is read as data, a block of it.
    extentEnd_ = hole && *hole > begin ? *hole : std::min(end_, begin + blockSize_);
    return begin;
}

std::shared_ptr<io::area::IArea> file_source_t::TakeHole(std::uint64_t end) {
    const std::uint64_t size = end - position_;
    auto area =
        std::make_shared<io::area::CDataArea>(index_, io::block::CFibBlock::NewSparseBlock(position_, index_, size));
    area->GetMeta().SetReadSize(readSize_);
    ++index_;
    position_ = end;
    return area;
}

std::shared_ptr<io::area::IArea> file_source_t::ReadBlock() {
    const auto size = static_cast<std::size_t>(BlockEnd() - position_);
    auto buffer = io::block::CContentBuf::Alloc(size);
    ReadAt(buffer->Data(), size);
    auto area = std::make_shared<io::area::CDataArea>(
        index_, io::block::CFibBlock::NewDataBlock(position_, index_, std::move(buffer)));
    ++index_;
    position_ += size;
    readSize_ += size;
    area->GetMeta().SetReadSize(readSize_);
    return area;
}

std::uint64_t file_source_t::BlockEnd() const noexcept {
    const std::uint64_t toBorder = blockSize_ - position_ % blockSize_;
    return position_ + std::min(toBorder, extentEnd_ - position_);
}

void file_source_t::ReadAt(void* buffer, std::size_t count) const {
    for (std::size_t done = 0; done < count;) {
        const ssize_t got = posix::sys().pread(file_->GetDescriptor(), static_cast<char*>(buffer) + done, count - done,
                                               static_cast<off_t>(position_ + done));
        if (got < 0 && errno != EINTR) {
            throw posix::errno_exc_t("Failed to read from file [%1]", file_->GetPath(), errno);
        }
        if (got == 0) {
            ThrowChanged(file_->GetSize());
        }
        done += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
}

void file_source_t::Finish() {
    struct stat now {};
    if (posix::sys().fstat(file_->GetDescriptor(), &now) < 0) {
        throw posix::errno_exc_t("Failed to examine file [%1]", file_->GetPath(), errno);
    }
    if (now.st_size != examined_.st_size) {
        ThrowChanged(static_cast<std::uint64_t>(now.st_size));
    }
    changed_ = !same_time(now.st_mtim, examined_.st_mtim) || !same_time(now.st_ctim, examined_.st_ctim);
}

void file_source_t::ThrowChanged(std::uint64_t now) const {
    throw exc::CRuntimeExc("File [%1] changed while it was read: it had [%2] bytes and now has [%3].", file_->GetPath(),
                           end_, now);
}

}  // namespace agent::copy
