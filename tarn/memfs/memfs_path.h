#pragma once

#include <string>

#include "tarn/export.h"

namespace tarn::memfs {

/// A path of the memory backend: "MemFs://" in any letter case, then the slot's name. A value.
///
/// The name is everything after the prefix, as it stands: it may be empty, may hold slashes (there are no directories)
/// and keeps its case.
class TARN_API memfs_path_t {
  public:
    memfs_path_t() = default;
    /// Parses `path`; throws as Parse does.
    explicit memfs_path_t(const std::string& path);

    /// "MemFs://".
    static std::string GetMemFsPrefix();

    /// Whether `path` starts with the prefix, ASCII case ignored.
    static bool IsMemFsPath(const std::string& path);

    /// Takes the slot's name from `path`. A path without the prefix throws `exc::CRuntimeExc`
    /// "Invalid MemFS path: [%1]." (the placeholder stays as it is) and leaves this object unchanged.
    void Parse(const std::string& path);

    std::string GetSlotName() const;
    /// Any bytes will do.
    void SetSlotName(const std::string& name);

    /// The prefix in its own spelling and the slot's name.
    std::string ToString() const;

  private:
    std::string slotName_;
};

}  // namespace tarn::memfs
