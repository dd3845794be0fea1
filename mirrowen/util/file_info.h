#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mirrowen/export.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/util/posix_acl_value.h"

namespace util {

/// What kind of object the attributes belong to. The numbers stand in the serial form.
enum class EFileType : std::uint32_t {
    eUnset = 0,
    eRegular = 1,
    eDirectory = 2,
    eSymlink = 3,
    eFifo = 4,
    eSocket = 5,
    eCharDevice = 6,
    eBlockDevice = 7,
};

/// A moment with nanoseconds; seconds count from 1970-01-01T00:00:00Z and may be negative.
struct SFileTime {
    std::int64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    friend bool operator==(const SFileTime&, const SFileTime&) = default;
};

/// An owner or group: the name where one is known, and the number.
struct SPrincipal {
    std::string name;
    std::uint32_t id = 0;
    friend bool operator==(const SPrincipal&, const SPrincipal&) = default;
};

/// One extended attribute; the value is bytes. POSIX access-control lists travel as "system.posix_acl_access" and
/// "system.posix_acl_default".
struct SExtendedAttribute {
    std::string name;
    std::string value;
    friend bool operator==(const SExtendedAttribute&, const SExtendedAttribute&) = default;
};

/// The most that a file info may hold; what is larger is neither written nor accepted.
inline constexpr std::uint32_t kMaxPrincipalName = 256;
inline constexpr std::uint32_t kMaxAclText = std::uint32_t{64} << 10;
inline constexpr std::uint32_t kMaxAttributeName = 255;
inline constexpr std::uint32_t kMaxAttributeValue = std::uint32_t{64} << 10;
inline constexpr std::uint32_t kMaxAttributes = 1024;
/// Bytes of all names and values together.
inline constexpr std::uint32_t kMaxAttributeBytes = std::uint32_t{1} << 20;

/// The attributes of a file: type, size, owner, group, mode, times, access-control parts and extended attributes. A
/// value; default-constructed it is "unset". The serial form is in docs/formats.md ("File info").
class MIRROWEN_API CFileInfo {
  public:
    /// Reads the attributes of what is at `path`; with `followLinks` false a link's own. Extended attributes that
    /// cannot be read or do not fit are left out with a warning in the log. Throws `posix::errno_exc_t` "Failed to get
    /// attributes of [%1]".
    static CFileInfo getInfoForFile(const std::string& path, bool followLinks);

    /// Applies owner, attributes, mode and times, in this order, links not followed. Goes as far as it can; what failed
    /// is thrown at the end as one `exc::CRuntimeExc` "Failed to apply attributes to [%1]." with the first failure as
    /// cause. An owner whose name is not known here gets its number, which is no failure. Does nothing when unset.
    void applyMetaForFile(const std::string& path) const;

    bool isSet() const noexcept { return type != EFileType::eUnset; }
    bool isSymlink() const noexcept { return type == EFileType::eSymlink; }

    /// Writes the serial form. A value out of range throws `exc::CRuntimeExc` "Invalid file info: %1." before anything
    /// is written.
    void Serialize(io::binary_stream_tt& stream) const;
    /// Reads the serial form. Everything is bounded; a value out of range throws `exc::CRuntimeExc`
    /// "Invalid file info: %1.", a form that ends early throws as the stream does; both leave this object unchanged.
    void DeSerialize(io::binary_stream_tt& stream);
    /// A new record, read as by DeSerialize.
    static CFileInfo fromStream(io::binary_stream_tt& stream);

    friend bool operator==(const CFileInfo&, const CFileInfo&) = default;

    EFileType type = EFileType::eUnset;
    std::uint64_t size = 0;
    SPrincipal owner;
    SPrincipal group;
    std::uint32_t mode = 0;  ///< permission bits with setuid, setgid and sticky (07777)
    SFileTime accessTime;
    SFileTime modificationTime;
    SFileTime changeTime;
    CPosixAclValue posixAcl;
    std::vector<std::uint8_t> nfs4Acl;
    std::vector<SExtendedAttribute> attributes;
};

/// Applies an NFSv4 access-control list in its binary form ("system.nfs4_acl" attribute) to `path`. Throws
/// `posix::errno_exc_t` "Failed to set NFSv4 access-control list of [%1]".
MIRROWEN_API void setFileNaclSafe(const std::string& path, const std::vector<std::uint8_t>& acl);

}  // namespace util
