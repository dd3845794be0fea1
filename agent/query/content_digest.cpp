#include "agent/query/content_digest.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <span>

#include "agent/tree/object_brief.h"
#include "mirrowen/digest/stream_digest.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent::query {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

bool IsSameTime(const struct timespec& first, const struct timespec& second) {
    return first.tv_sec == second.tv_sec && first.tv_nsec == second.tv_nsec;
}

/// Adds an open file to a digest, data as data and holes as zeroes.
class digester_t {
  public:
    digester_t(posix::posix_file_t& file, const std::stop_token& stop)
        : file_(file), stop_(stop), buffer_(std::make_unique<std::byte[]>(kPiece)) {}

    content_digest_t Run() {
        const struct stat before = Look();
        const auto size = static_cast<std::uint64_t>(before.st_size);
        ForgetPages();
        while (position_ < size) {
            const std::uint64_t data = FindData(size);
            digest_.AddZeroes(data - position_);
            position_ = data;
            AddData(FindHole(size));
        }
        const struct stat after = Look();
        if (after.st_size != before.st_size || !IsSameTime(after.st_mtim, before.st_mtim)) {
            ThrowChanged();
        }
        return {size, digest_.Get()};
    }

  private:
    struct stat Look() const {
        struct stat found {};
        if (posix::sys().fstat(file_.GetDescriptor(), &found) != 0) {
            throw posix::errno_exc_t("Failed to get attributes of [%1]", file_.GetPath(), errno);
        }
        return found;
    }

    /// Only pages that are on the storage can be given back. The advice is one: a file system may keep them.
    void ForgetPages() const {
        SyncDescriptor(file_.GetDescriptor(), file_.GetPath());
        static_cast<void>(::posix_fadvise(file_.GetDescriptor(), 0, 0, POSIX_FADV_DONTNEED));
    }

    /// Where data begins, at the position or after it; a file system that knows no holes has data everywhere.
    std::uint64_t FindData(std::uint64_t size) const {
        const off_t found = posix::sys().lseek(file_.GetDescriptor(), static_cast<off_t>(position_), SEEK_DATA);
        if (found < 0) {
            return errno == ENXIO ? size : position_;
        }
        return std::clamp(static_cast<std::uint64_t>(found), position_, size);
    }

    std::uint64_t FindHole(std::uint64_t size) const {
        const off_t found = posix::sys().lseek(file_.GetDescriptor(), static_cast<off_t>(position_), SEEK_HOLE);
        return found < 0 ? size : std::clamp(static_cast<std::uint64_t>(found), position_, size);
    }

    void AddData(std::uint64_t end) {
        file_.SeekFromBegin(position_);
        while (position_ < end) {
            if (stop_.stop_requested()) {
                throw exc::CRuntimeExc("The work was cancelled.");
            }
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, end - position_));
            const std::size_t got = file_.Read(buffer_.get(), wanted);
            if (got == 0) {
                ThrowChanged();
            }
            digest_.Add(std::span(buffer_.get(), got));
            position_ += got;
        }
    }

    [[noreturn]] void ThrowChanged() const {
        throw exc::CRuntimeExc("File [%1] changed while it was read.", file_.GetPath());
    }

    posix::posix_file_t& file_;
    const std::stop_token& stop_;
    const std::unique_ptr<std::byte[]> buffer_;
    digest::stream_digest_t digest_;
    std::uint64_t position_ = 0;
};

}  // namespace

std::optional<content_digest_t> DigestFile(const confined_root_t& root, const std::string& name,
                                           const std::stop_token& stop) {
    const std::optional<object_brief_t> found = Examine(root, name);
    if (!found || found->kind != EEntryKind::eFile) {
        return std::nullopt;
    }
    return digester_t(*root.OpenFile(name), stop).Run();
}

}  // namespace agent::query
