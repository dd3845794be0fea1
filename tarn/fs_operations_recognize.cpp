// The dispatcher. It stands apart from the interface's own source because it alone knows every backend: a program that
// links only the interface and one backend does not drag in the others.
#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"
#include "tarn/blobfs/blobfs_operations.h"
#include "tarn/flr/flrfs_operations.h"
#include "tarn/fs_operations.h"
#include "tarn/hostfs/hostfs_operations.h"
#include "tarn/memfs/memfs_operations.h"
#include "tarn/memfs/memfs_path.h"
#include "tarn/relative/relative_fs_operations.h"
#include "tarn/tdatafs/tdatafs_path.h"

namespace tarn {
namespace {

constexpr int kCallersPath = 0;
constexpr int kMappedPath = 1;

/// The order of the tests is part of the contract: the restore view wins, the host takes what nobody else knows.
std::shared_ptr<fs_operations_t> RecognizeByForm(const std::string& path) {
    if (flrfs_operations_t::IsFlrFsPath(path)) {
        return std::make_shared<flrfs_operations_t>();
    }
    if (tdatafs::tdatafs_path_t::IsTapeDataFsPath(path)) {
        throw exc::CRuntimeExc("TapeDataFs not supported.");
    }
    if (memfs::memfs_path_t::IsMemFsPath(path)) {
        return std::make_shared<memfs::memfs_operations_t>();
    }
    if (blobfs::blobfs_operations_t::IsBlobFsPath(path)) {
        return blobfs::blobfs_operations_t::GetByFsPath(path);
    }
    return std::make_shared<hostfs::hostfs_operations_t>();
}

}  // namespace

std::shared_ptr<fs_operations_t> fs_operations_t::RecognizeFsPath(const std::string& path, int mode) {
    if (mode == kCallersPath) {
        const std::shared_ptr<CCorvelCtx> context = CCorvelCtx::Inst();
        const std::string mapped = context->TryMapRelativePath(path);
        if (mapped != path) {
            return std::make_shared<relative::relative_fs_operations>(RecognizeFsPath(mapped, kMappedPath));
        }
        // Every path that was not mapped is refused, whatever its prefix: the switch's name promises less than it does.
        if (context->IsNonPrefixPathesDisabled()) {
            throw exc::CRuntimeExc("Non prefix paths are disabled.");
        }
    }
    return RecognizeByForm(path);
}

}  // namespace tarn
