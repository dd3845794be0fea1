#include "mirrowen/io/block/volatile_zero_buf.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "mirrowen/posix/errno_exc.h"

namespace io::block {

namespace {

// Whole pages for `count` bytes, at least one; too large a count becomes one that no mapping can have.
std::size_t RoundToPages(std::size_t count) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (count > std::numeric_limits<std::size_t>::max() - page) {
        return std::numeric_limits<std::size_t>::max() - page + 1;
    }
    return std::max<std::size_t>((count + page - 1) / page, 1) * page;
}

}  // namespace

CVolatileZeroBuf::~CVolatileZeroBuf() {
    if (base_ != nullptr) {
        ::munmap(base_, size_);
    }
}

const void* CVolatileZeroBuf::Get(std::size_t count) {
    if (base_ != nullptr && count <= size_) {
        return base_;
    }
    const std::size_t size = RoundToPages(count);
    void* const base = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) {
        throw posix::errno_exc_t("Failed to map zero bytes", std::string(), errno);
    }
    // With the huge zero page even the page tables of a giant run stay small; where there is none this does nothing.
    ::madvise(base, size, MADV_HUGEPAGE);
    if (base_ != nullptr) {
        ::munmap(base_, size_);
    }
    base_ = base;
    size_ = size;
    return base_;
}

}  // namespace io::block
