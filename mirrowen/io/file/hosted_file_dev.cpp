#include "mirrowen/io/file/hosted_file_dev.h"

#include <fcntl.h>

#include <cerrno>
#include <limits>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/posix/syscalls.h"

namespace io::file {

namespace {

class hosted_dev_t final : public random_access_dev_t {
  public:
    hosted_dev_t(std::shared_ptr<posix::posix_file_t> file, bool readOnly)
        : file_(std::move(file)), readOnly_(readOnly) {}

    std::uint64_t GetSize() const override { return file_->GetSize(); }

    std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t count) override {
        file_->SeekFromBegin(offset);
        return file_->Read(buffer, count);
    }

    void WriteAt(std::uint64_t offset, const void* buffer, std::size_t count) override {
        if (readOnly_) {
            throw exc::CRuntimeExc("Device [%1] was opened for reading only.", file_->GetPath());
        }
        file_->SeekFromBegin(offset);
        file_->Write(buffer, count);
    }

    void Flush() override { file_->Flush(); }

  private:
    std::shared_ptr<posix::posix_file_t> file_;
    bool readOnly_;
};

std::shared_ptr<posix::posix_file_t> OpenOrCreate(const std::string& path, bool readOnly) {
    constexpr mode_t kOwnerOnly = 0600;
    const int flags = (readOnly ? O_RDONLY : O_RDWR) | O_CREAT | O_CLOEXEC;
    int fd = -1;
    do {
        fd = posix::sys().open(path.c_str(), flags, kOwnerOnly);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        throw posix::errno_exc_t(
            readOnly ? "Failed to open file [%1] for reading" : "Failed to open file [%1] for writing", path, errno);
    }
    return std::make_shared<posix::posix_file_t>(path, posix::unique_fd_t(fd));
}

std::shared_ptr<posix::posix_file_t> Open(const std::string& path, bool readOnly, ECreateMode mode) {
    if (mode == ECreateMode::eOpenOrCreate) {
        return OpenOrCreate(path, readOnly);
    }
    return readOnly ? posix::posix_file_t::Open4Read(path) : posix::posix_file_t::Open4Write(path);
}

// Best effort: the size is only expected, and a file system without reservations still takes the file.
void Reserve(const posix::posix_file_t& file, std::uint64_t size) {
    if (size != 0 && std::in_range<off_t>(size)) {
        ::fallocate(file.GetDescriptor(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size));
    }
}

}  // namespace

std::shared_ptr<random_access_dev_t> hosted_file_dev_t::Create(const std::string& path, bool readOnly, ECreateMode mode,
                                                               const std::optional<file_template_t>& fileTemplate) {
    auto file = Open(path, readOnly, mode);
    if (fileTemplate && !readOnly) {
        Reserve(*file, fileTemplate->GetExpectedSize());
    }
    return std::make_shared<hosted_dev_t>(std::move(file), readOnly);
}

}  // namespace io::file
