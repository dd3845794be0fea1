#include "tarn/memfs/memfs_file_wstream.h"

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"
#include "tarn/memfs/memfs_mem_slots.h"

namespace tarn::memfs {

memfs_file_wstream_t::memfs_file_wstream_t(const memfs_path_t& path) : path_(path) {
    try {
        buffer_ = memfs_mem_slots_t::Inst().CreateSlot(path_.GetSlotName());
        device_ = std::make_shared<io::mem_dev_tt<cnt::array_t<char>>>(buffer_);
    } catch (...) {
        exc::RegenExc("MemFS: Unable to initialize write stream. File path: [%1].", path_.ToString());
    }
}

memfs_file_wstream_t::~memfs_file_wstream_t() = default;

void memfs_file_wstream_t::SeekTo(std::uint64_t /*offset*/) {
    throw exc::CRuntimeExc("MemFs does not support seek operation.");
}

std::uint64_t memfs_file_wstream_t::WriteExc(const void* buffer, std::uint64_t count) {
    try {
        device_->Write(buffer, count);
        return count;
    } catch (...) {
        exc::RegenTraceExc(
            "MemFS: Cannot write data to the write stream. File path: [%1]. Data size: [%2]. Current buffer size: "
            "[%3].",
            path_.ToString(), util::str_from_streamsize(count), util::str_from_size_t(buffer_->size()));
    }
}

std::uint64_t memfs_file_wstream_t::WriteZeroes(std::uint64_t count) {
    return WriteExc(zeroes_.Get(count), count);
}

std::string memfs_file_wstream_t::GetPath() {
    return path_.ToString();
}

void memfs_file_wstream_t::Flush() {}

void memfs_file_wstream_t::Close(std::shared_ptr<synch::completion_port_t> /*port*/) {}

}  // namespace tarn::memfs
