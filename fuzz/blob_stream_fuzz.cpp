// Any bytes taken as the commands of a blob file: the reader gives commands that lie within them, one behind the other,
// and the parser applies all of them or refuses them with an exception of the house. The file system that the parser
// sees is made up: nothing that a command names is touched.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_level.h"
#include "mirrowen/logging/log_sink.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/posix/unique_fd.h"
#include "tarn/blobfs/blob_command_reader.h"
#include "tarn/blobfs/blob_layout.h"
#include "tarn/blobfs/blob_parser.h"
#include "tests/support/blob_frame.h"

namespace {

using tarn::blobfs::blob_command_reader_t;
using tarn::blobfs::blob_command_t;

constexpr const char* kBlob = "blob";

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

int Blob() {
    static const posix::unique_fd_t file(::memfd_create("blob", MFD_CLOEXEC));
    return file.get();
}

bool IsBlob(const char* path) {
    return std::strcmp(path, kBlob) == 0;
}

int Refuse(int error) {
    errno = error;
    return -1;
}

/// The last byte of a path decides what is there: nothing, a file, a folder.
int Describe(const char* path, struct stat* out) {
    if (IsBlob(path)) {
        return ::fstat(Blob(), out);
    }
    const std::size_t length = std::strlen(path);
    const int kind = length == 0 ? 0 : path[length - 1] % 3;
    std::memset(out, 0, sizeof *out);
    out->st_mode = kind == 1 ? S_IFREG : S_IFDIR;
    return kind == 0 ? Refuse(ENOENT) : 0;
}

/// Files swallow what is written.
int Open(const char* path, int /*flags*/, mode_t /*mode*/) {
    if (IsBlob(path)) {
        ::lseek(Blob(), 0, SEEK_SET);
        return ::dup(Blob());
    }
    return std::strlen(path) % 7 == 0 ? Refuse(EACCES) : ::open("/dev/null", O_RDWR | O_CLOEXEC);
}

posix::syscalls_t MadeUpFileSystem() {
    posix::syscalls_t table = posix::real_syscalls();
    table.open = Open;
    table.stat = Describe;
    table.lstat = Describe;
    table.openat = [](int, const char*, int, mode_t) { return Refuse(EPERM); };
    table.openat2 = [](int, const char*, std::uint64_t, std::uint64_t, std::uint64_t) { return Refuse(EPERM); };
    table.fstatat = [](int, const char*, struct stat*, int) { return Refuse(EPERM); };
    table.mkdirat = [](int, const char* path, mode_t) { return std::strlen(path) % 5 == 0 ? Refuse(EROFS) : 0; };
    table.unlinkat = [](int, const char* path, int) { return std::strlen(path) % 5 == 1 ? Refuse(EBUSY) : 0; };
    table.renameat2 = [](int, const char*, int, const char*, unsigned) { return Refuse(EPERM); };
    table.linkat = [](int, const char*, int, const char*, int) { return Refuse(EPERM); };
    table.symlinkat = [](const char*, int, const char*) { return Refuse(EPERM); };
    table.fchownat = [](int, const char*, uid_t, gid_t, int) { return Refuse(EPERM); };
    table.fchmodat = [](int, const char*, mode_t, int) { return Refuse(EPERM); };
    table.utimensat = [](int, const char*, const timespec*, int) { return Refuse(EPERM); };
    table.llistxattr = [](const char*, char*, std::size_t) -> ssize_t { return Refuse(ENOTSUP); };
    table.lsetxattr = [](const char*, const char*, const void*, std::size_t, int) { return Refuse(ENOTSUP); };
    table.lremovexattr = [](const char*, const char*) { return Refuse(ENOTSUP); };
    table.fchmod = [](int, mode_t) { return Refuse(EPERM); };
    table.futimens = [](int, const timespec*) { return Refuse(EPERM); };
    table.fsetxattr = [](int, const char*, const void*, std::size_t, int) { return Refuse(ENOTSUP); };
    table.fremovexattr = [](int, const char*) { return Refuse(ENOTSUP); };
    return table;
}

/// Every line is put together, none is printed.
class silent_sink_t final : public logging::ILogSink {
  public:
    void Write(const logging::record_t& /*record*/) noexcept override {}
};

/// A body either is refused or lies within its command.
void CheckBody(const blob_command_t& command) {
    const auto within = [&](std::span<const char> part) {
        return part.data() >= command.body.data() &&
               part.data() + part.size() <= command.body.data() + command.body.size();
    };
    try {
        ReadOverwriteFlag(command);
        Require(!command.body.empty());
        Require(within(ReadMetadata(command)));
        Require(within(ReadWrite(command).data));
    } catch (const exc::CRuntimeExc&) {
    }
}

/// Whether the bytes are a row of commands.
bool CheckReads(std::span<const char> payload) {
    std::uint64_t end = 0;
    try {
        blob_command_reader_t reader(payload);
        while (const auto command = reader.Next()) {
            Require(command->offset == end);
            Require(command->length ==
                    sizeof(tarn::blobfs::BlobCmd_Header) + command->path.size() + command->body.size());
            CheckBody(*command);
            end += command->length;
        }
    } catch (const exc::CRuntimeExc&) {
        return false;
    }
    Require(end == payload.size());
    return true;
}

/// What the parser threw, or nothing.
std::string Apply(std::string_view payload) {
    const std::string frame = tests::BlobFrame(payload);
    Require(::ftruncate(Blob(), 0) == 0);
    Require(::pwrite(Blob(), frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size()));
    const posix::syscalls_t table = MadeUpFileSystem();
    const posix::scoped_syscalls_t inForce(table);
    try {
        tarn::blobfs::BlobParser().Execute(kBlob);
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
    return {};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto standardError = logging::SetSink(std::make_shared<silent_sink_t>());
    logging::SetThreshold(logging::ELevel::eTrace);
    const std::string_view payload(reinterpret_cast<const char*>(data), size);
    const bool areCommands = CheckReads(payload);
    const std::string failure = Apply(payload);
    // Commands may fail; a row of them is applied either way.
    Require(areCommands == (failure.empty() || failure.ends_with(" fails found .")));
    return 0;
}
