#include "mirrowen/io/area/area.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace io::area {

namespace {

const block::CFibBlock& Present(const pool::CPoolPtr<block::CFibBlock>& block) {
    if (!block) {
        throw exc::CRuntimeExc("Data area needs a block.");
    }
    return *block;
}

}  // namespace

IArea::~IArea() = default;

CDataArea::CDataArea(std::uint64_t id, pool::CPoolPtr<block::CFibBlock> block)
    : id_(id), identity_(Present(block).GetIdentity()), sparse_(block->IsSparseBlock()), block_(std::move(block)) {}

CDataArea::~CDataArea() = default;

EAreaKind CDataArea::GetKind() const {
    return sparse_ ? EAreaKind::eSparse : EAreaKind::eData;
}

pool::CPoolPtr<block::CFibBlock> CDataArea::GetBlock(std::uint64_t index) const {
    return index == 0 ? block_ : pool::CPoolPtr<block::CFibBlock>();
}

void CDataArea::ReleaseBlock(std::uint64_t index) {
    if (index == 0) {
        block_.reset();
    }
}

}  // namespace io::area
