#pragma once

#include <dirent.h>

#include "tarn/export.h"

namespace tarn::lindir {

/// Owns an open directory. One thread at a time.
class TARN_API CLinDirHandle {
  public:
    /// Takes `directory` over; it may be null.
    explicit CLinDirHandle(DIR* directory) noexcept;
    CLinDirHandle(const CLinDirHandle&) = delete;
    CLinDirHandle& operator=(const CLinDirHandle&) = delete;
    ~CLinDirHandle();

    DIR* GetHandle() const noexcept { return directory_; }
    bool IsValid() const noexcept { return directory_ != nullptr; }
    /// Closes the directory, once.
    void closeHandle() noexcept;

  private:
    DIR* directory_;
};

}  // namespace tarn::lindir
