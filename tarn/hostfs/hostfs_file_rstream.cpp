#include "tarn/hostfs/hostfs_file_rstream.h"

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/trace.h"
#include "mirrowen/util/str_format.h"
#include "tarn/fs_log.h"

namespace tarn::hostfs {

hostfs_file_rstream_t::hostfs_file_rstream_t(const std::string& path, bool withoutWriteShare) : path_(path) {
    OpenFileForRead(path, withoutWriteShare);
}

hostfs_file_rstream_t::~hostfs_file_rstream_t() = default;

std::string hostfs_file_rstream_t::GetPath() {
    return path_;
}

std::uint64_t hostfs_file_rstream_t::GetFileSize() {
    return OpenFileExc().GetSize();
}

void hostfs_file_rstream_t::SeekTo(std::uint64_t offset) {
    OpenFileExc().SeekFromBegin(offset);
}

std::uint64_t hostfs_file_rstream_t::ReadExc(void* buffer, std::uint64_t count) {
    try {
        const std::uint64_t got = OpenFileExc().Read(buffer, count);
        if (got != count) {
            throw exc::CRuntimeExc("The file ended after [%1] bytes.", got);
        }
        return count;
    } catch (const std::exception&) {
        exc::RegenTraceExc("Read operation has failed. File: [%1]. Size of data: [%2].", path_, count);
    }
}

void hostfs_file_rstream_t::FinishRead() {
    lock_.reset();
    file_.reset();
}

void hostfs_file_rstream_t::OpenFileForRead(const std::string& path, bool withoutWriteShare) {
    logging::trace_t trace(fs_log, "Opening file [%1] for reading.", path);
    try {
        file_ = posix::posix_file_t::Open4Read(path);
        if (withoutWriteShare) {
            lock_ = hostfs_file_lock_t::GetExclusiveLockPtrForFile(file_);
        }
        trace.ok(util::str_format("File [%1] was opened.", path));
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to open file [%1] for reading.", path);
    }
}

posix::posix_file_t& hostfs_file_rstream_t::OpenFileExc() const {
    if (!file_) {
        throw exc::CRuntimeExc("The stream of file [%1] is closed.", path_);
    }
    return *file_;
}

}  // namespace tarn::hostfs
