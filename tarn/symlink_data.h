#pragma once

#include <cstdint>
#include <string>

#include "mirrowen/cnt/array.h"
#include "mirrowen/io/binary_stream.h"
#include "tarn/export.h"

namespace tarn {

/// What kind of link object a record describes. A number that is none of these travels unchanged and cannot be made.
enum class ESymlinkType : std::uint32_t {
    eNone = 0,              ///< an empty record
    eFileLink = 1,          ///< POSIX link to a file, or to nothing that could be examined
    eDirLink = 2,           ///< POSIX link to a directory
    eReparsePointFile = 3,  ///< opaque bytes
    eReparsePointDir = 4,   ///< opaque bytes
};

/// What a caller wants done with a link; only 0 is known here, other values are carried.
enum class ESymlinkAction : std::uint32_t { eDefault = 0 };

/// A link object, whatever the backend: its type, its action, and its target path or reparse data as bytes. A value;
/// one object is not shared between threads without a lock. The serial form is in docs/formats.md ("Symbolic link").
class TARN_API CSymlinkData {
  public:
    /// An empty record, not valid.
    CSymlinkData() = default;
    /// Takes all three as given; `data` is left empty.
    CSymlinkData(ESymlinkType type, ESymlinkAction action, cnt::array_t<char>&& data);
    /// The action is 0, the data the bytes of `target`.
    CSymlinkData(ESymlinkType type, const std::string& target);

    /// Whether the record describes a link at all, and whether that is one that this host can make.
    bool IsValid() const noexcept { return type_ != ESymlinkType::eNone; }
    bool IsPosix() const noexcept { return type_ == ESymlinkType::eFileLink || type_ == ESymlinkType::eDirLink; }
    ESymlinkType GetType() const noexcept { return type_; }
    ESymlinkAction GetAction() const noexcept { return action_; }
    /// The data bytes: the target path of a POSIX link.
    explicit operator std::string() const { return {data_.begin(), data_.end()}; }
    /// Replaces the data; type and action stay.
    void SetTarget(const std::string& target);

    /// One line for logs, for example "[FILELINK->'target']".
    std::string ToLogStr() const;

    /// Writes type and data; the action does not travel. Data above 4294967295 bytes throws `exc::CRuntimeExc`
    /// "Unable to cast value from [%1] to [%2]." after the type was written.
    void Serialize(io::binary_stream_tt& stream) const;
    /// Reads type and data; the action becomes 0. Fewer bytes than announced throw the stream's own error.
    void DeSerialize(io::binary_stream_tt& stream);
    /// A new record, read as by DeSerialize.
    static CSymlinkData fromStream(io::binary_stream_tt& stream);

    /// Reads the link at a host path. Not a link: `exc::CRuntimeExc` "Path %1 is not a symlink or reparse point". A
    /// target that cannot be examined is logged as a warning and counts as a file. Other failures are
    /// Boost.Filesystem's.
    static CSymlinkData fromPath(const std::string& path);

    /// Makes the link at a host path, in place of a link or an empty directory that is there. A target with a NUL byte
    /// throws `exc::CRuntimeExc` "The target of link [%1] contains a NUL byte." and leaves what is there. Types other
    /// than POSIX links throw "Unsupported symlink type: %1" when what is there has already made room. Other failures
    /// are Boost.Filesystem's.
    void Create(const std::string& path) const;

  private:
    ESymlinkType type_ = ESymlinkType::eNone;
    cnt::array_t<char> data_;
    ESymlinkAction action_ = ESymlinkAction::eDefault;
};

}  // namespace tarn
