#include "tarn/hostfs/hostfs_file_wstream.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/trace.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/fs.h"
#include "mirrowen/util/str.h"
#include "tarn/fs_log.h"

namespace tarn::hostfs {
namespace {

// Whether `offset + count < limit`, for any values.
bool EndsBelow(std::uint64_t offset, std::uint64_t count, std::uint64_t limit) {
    return offset < limit && count < limit - offset;
}

[[noreturn]] void RefuseExisting() {
    throw exc::CAlreadyExistsExc("File already exists in hostfs_file_wstream_t::CreateNew()");
}

void MakeRoomFor(const std::string& path, bool overwrite) {
    if (!util::fs_file_exists(path)) {
        return;
    }
    if (!overwrite) {
        RefuseExisting();
    }
    fs_log.info("There is file [%1]. It will be removed.", path);
    util::fs_file_delete(path);
}

std::shared_ptr<posix::posix_file_t> CreateFile(const std::string& path, std::uint64_t length, bool overwrite) {
    try {
        return posix::posix_file_t::CreateNew(path, length);
    } catch (const posix::errno_exc_t& error) {
        // Somebody else was faster: to the caller the file was there, unless it was to be replaced anyway.
        if (error.GetErrno() == EEXIST && !overwrite) {
            RefuseExisting();
        }
        throw;
    }
}

}  // namespace

std::shared_ptr<hostfs_file_wstream_t> hostfs_file_wstream_t::CreateNew(const std::string& path, std::uint64_t length,
                                                                        bool overwrite, bool /*flag*/) {
    logging::trace_t trace(fs_log, "Creating output stream for [%1]...", path);
    try {
        MakeRoomFor(path, overwrite);
        auto stream = std::make_shared<hostfs_file_wstream_t>(CreateFile(path, length, overwrite), length);
        trace.ok("Output stream was successfully created.");
        return stream;
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to create file [%1].", path);
    }
}

std::shared_ptr<hostfs_file_wstream_t> hostfs_file_wstream_t::OpenExisting(const std::string& path,
                                                                           const std::uint64_t* expected,
                                                                           const std::uint64_t* zeroLength) {
    logging::trace_fail_t trace(fs_log, "Opening file stream for existing file [%1]", path);
    std::shared_ptr<posix::posix_file_t> file;
    std::uint64_t actual = 0;
    try {
        file = posix::posix_file_t::Open4Write(path);
        actual = expected != nullptr ? file->GetSize() : 0;
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to open file [%1].", path);
    }
    if (expected != nullptr && actual != *expected) {
        throw exc::CRuntimeExc("The actual length [%1] of the file [%2] differs from the expected [%3].", actual, path,
                               *expected);
    }
    auto stream = std::make_shared<hostfs_file_wstream_t>(std::move(file), zeroLength != nullptr ? *zeroLength : 0);
    trace.ok();
    return stream;
}

std::shared_ptr<hostfs_file_wstream_t> hostfs_file_wstream_t::OpenExistingAndResize(const std::string& path,
                                                                                    std::uint64_t length) {
    logging::trace_fail_t trace(fs_log,
                                "Opening  existing file for update [%1]. Requested length of the file is [%2] bytes",
                                path, util::str_from_streamsize(length));
    try {
        auto file = posix::posix_file_t::Open4Write(path);
        file->SetSize(length);
        auto stream = std::make_shared<hostfs_file_wstream_t>(std::move(file), 0);
        trace.ok();
        return stream;
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to open file [%1].", path);
    }
}

hostfs_file_wstream_t::hostfs_file_wstream_t(std::shared_ptr<posix::posix_file_t> file, std::uint64_t zeroLength)
    : file_(std::move(file)), path_(file_->GetPath()), zeroLength_(zeroLength) {}

hostfs_file_wstream_t::~hostfs_file_wstream_t() {
    try {
        hostfs_file_wstream_t::Close(nullptr);
    } catch (const std::exception& error) {
        fs_log.err("Failed to close hostfs file stream", error);
    }
}

void hostfs_file_wstream_t::SeekTo(std::uint64_t offset) {
    OpenFileExc().SeekFromBegin(offset);
}

std::uint64_t hostfs_file_wstream_t::WriteExc(const void* buffer, std::uint64_t count) {
    try {
        posix::posix_file_t& file = OpenFileExc();
        NoteWrite(count);
        const char* next = static_cast<const char*>(buffer);
        for (std::uint64_t left = count; left != 0;) {
            const std::uint64_t piece = std::min<std::uint64_t>(left, posix::kMaxIoCount);
            file.Write(next, piece);
            next += piece;
            left -= piece;
        }
    } catch (const std::exception&) {
        exc::RegenTraceExc("Write operation has failed. File [%1]. Size of data: [%2].", path_, count);
    }
    position_ += count;
    return count;
}

std::uint64_t hostfs_file_wstream_t::WriteZeroes(std::uint64_t count) {
    return SkipZeroes(count) ? count : WriteExc(zeroes_.Get(count), count);
}

std::string hostfs_file_wstream_t::GetPath() {
    return path_;
}

void hostfs_file_wstream_t::Flush() {
    if (!file_) {
        return;
    }
    try {
        file_->Flush();
    } catch (const std::exception&) {
        exc::RegenTraceExc("Unable to flush file buffers. File: [%1].", path_);
    }
}

void hostfs_file_wstream_t::Close(std::shared_ptr<synch::completion_port_t> /*port*/) {
    Flush();
    file_.reset();
}

posix::posix_file_t& hostfs_file_wstream_t::OpenFileExc() const {
    if (!file_) {
        throw exc::CRuntimeExc("The stream of file [%1] is closed.", path_);
    }
    return *file_;
}

bool hostfs_file_wstream_t::SkipZeroes(std::uint64_t count) {
    // Strictly below: a run that reaches the known-zero length is written, so the file's last bytes are always there.
    if (!EndsBelow(position_, count, zeroLength_)) {
        return false;
    }
    try {
        posix::posix_file_t& file = OpenFileExc();
        // After SeekTo the byte count says nothing about where the run lies, so the real offset decides as well: a skip
        // must neither leave older data in place of zeroes nor end beyond the known-zero length.
        const std::uint64_t offset = file.GetPosition();
        if (offset < highWaterMark_ || !EndsBelow(offset, count, zeroLength_)) {
            return false;
        }
        file.SeekFromCurr(count);
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to write sparse block to the file.");
    }
    position_ += count;
    return true;
}

// Called before the write: one that fails half-way has left data too. Without known zeroes nobody asks for the mark.
void hostfs_file_wstream_t::NoteWrite(std::uint64_t count) {
    if (zeroLength_ == 0) {
        return;
    }
    const std::uint64_t offset = file_->GetPosition();
    const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - offset;
    highWaterMark_ = std::max(highWaterMark_, offset + std::min(count, room));
}

}  // namespace tarn::hostfs
