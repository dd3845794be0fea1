#include "tarn/hostfs/hostfs_extent_operations.h"

#include <cerrno>
#include <ios>

#include <boost/iostreams/device/file_descriptor.hpp>
#include <boost/system/system_error.hpp>

#include "mirrowen/exc/regen.h"
#include "mirrowen/logging/trace.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/fs.h"
#include "mirrowen/util/str.h"
#include "tarn/fs_log.h"
#include "tarn/hostfs/hostfs_file_wstream.h"
#include "tarn/hostfs/hostfs_stg_operations.h"

namespace tarn::hostfs {
namespace {

// Opening empties the file on purpose: a resized extent reads as zeroes, whatever it held.
void EmptyAndSetSize(const std::string& path, std::uint64_t size) {
    const boost::iostreams::file_descriptor file(path, std::ios_base::in | std::ios_base::out | std::ios_base::trunc);
    // A size that no file can have turns negative here and is refused by the system.
    if (posix::sys().ftruncate(file.handle(), static_cast<off_t>(size)) != 0) {
        throw boost::system::system_error(errno, boost::system::system_category(), "set_size failed");
    }
}

}  // namespace

hostfs_backup_media_t::extent_operations_t::~extent_operations_t() = default;

std::shared_ptr<file_wstream_t> hostfs_backup_media_t::extent_operations_t::ExtCreate(const std::string& path,
                                                                                      std::uint64_t size) {
    return hostfs_file_wstream_t::CreateNew(path, size, true, true);
}

std::uint64_t hostfs_backup_media_t::extent_operations_t::ExtSize(const std::string& path) {
    return util::fs_file_size(path);
}

std::shared_ptr<io::file::random_access_dev_t> hostfs_backup_media_t::extent_operations_t::ExtOpen4RndRwSafe(
    std::uint64_t templateParam, const std::string& path) {
    return hostfs_backup_media_t::stg_operations_t().StgOpen4Rw(templateParam, path);
}

std::shared_ptr<io::file::random_access_dev_t> hostfs_backup_media_t::extent_operations_t::ExtOpen4RndRead(
    const std::string& path) {
    return hostfs_backup_media_t::stg_operations_t().StgOpen4Read(path);
}

void hostfs_backup_media_t::extent_operations_t::ResizeExtent(const std::string& path, std::uint64_t size) {
    const std::uint64_t current = util::fs_file_size(path);
    if (current == size) {
        return;
    }
    const std::string from = util::str_fsize(current);
    const std::string to = util::str_fsize(size);
    logging::trace_fail_t trace(fs_log, "Truncating file [%1]. Current size: [%2]. New size: [%3].", path, from, to);
    try {
        EmptyAndSetSize(path, size);
        trace.ok(util::str_format("File [%1] truncated. Current size: [%2]. New size: [%3].", path, from, to));
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to truncate file [%1]. Current size: [%2]. New size: [%3].", path, from, to);
    }
}

}  // namespace tarn::hostfs
