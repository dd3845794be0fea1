#include "tarn/lindir/lin_dir_handle.h"

#include <utility>

namespace tarn::lindir {

CLinDirHandle::CLinDirHandle(DIR* directory) noexcept : directory_(directory) {}

CLinDirHandle::~CLinDirHandle() {
    closeHandle();
}

void CLinDirHandle::closeHandle() noexcept {
    if (directory_ != nullptr) {
        ::closedir(std::exchange(directory_, nullptr));
    }
}

}  // namespace tarn::lindir
