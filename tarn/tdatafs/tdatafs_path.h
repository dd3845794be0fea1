#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "tarn/export.h"

namespace tarn::tdatafs {

/// A path of tape data: a name and one or two numbers behind "tdatafs://", for example "tdatafs://name|5|7". A value.
/// The dispatcher only recognises such paths, to refuse them; what name and numbers mean is their users' matter.
class TARN_API tdatafs_path_t {
  public:
    /// The second number of a path that has none.
    static constexpr std::uint64_t kAbsent = std::numeric_limits<std::uint64_t>::max();

    static const std::string s_tdatafsPrefixLin;  ///< "tdatafs://"
    static const std::string s_tdatafsPrefixWin;  ///< "tdatafs:" and two backslashes
    static const std::string s_delimeter;         ///< "|"

    tdatafs_path_t(const std::string& name, std::uint64_t first, std::uint64_t second);

    /// Parses a path with either prefix. The first number is 0 when it is missing; fields after the third are ignored.
    /// Throws `exc::CRuntimeExc` "'%1' is not a valid tdatafs path" without a prefix, and that of
    /// `util::str_to_streamsize` for a number that is none.
    explicit tdatafs_path_t(const std::string& path);

    /// Whether the path begins with one of the prefixes, letter case included.
    static bool IsTapeDataFsPath(const std::string& path);

    const std::string& GetName() const noexcept { return name_; }
    std::uint64_t GetFirst() const noexcept { return first_; }
    /// kAbsent when there is none.
    std::uint64_t GetSecond() const noexcept { return second_; }

    /// Always with the prefix of slashes.
    std::string ToString() const;

  private:
    std::string name_;
    std::uint64_t first_ = 0;
    std::uint64_t second_ = kAbsent;
};

}  // namespace tarn::tdatafs
