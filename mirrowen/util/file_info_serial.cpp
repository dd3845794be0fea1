#include "mirrowen/util/file_info.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace util {

namespace {

// The bytes "tFI1": what follows is a file info of the first version.
constexpr std::uint32_t kMagic = 0x31494674;
constexpr std::uint32_t kModeBits = 07777;
constexpr std::uint32_t kNanosecondsPerSecond = 1'000'000'000;

[[noreturn]] void ThrowInvalid(std::string_view what) {
    throw exc::CRuntimeExc("Invalid file info: %1.", what);
}

void Require(bool fine, std::string_view what) {
    if (!fine) {
        ThrowInvalid(what);
    }
}

// Names end up as C strings in system calls, so a NUL inside would make them mean something else.
bool IsName(std::string_view name, std::size_t maximum) {
    return name.size() <= maximum && name.find('\0') == std::string_view::npos;
}

void CheckPrincipal(const SPrincipal& principal) {
    Require(IsName(principal.name, kMaxPrincipalName), "owner or group name is not valid");
}

void CheckTime(const SFileTime& time) {
    Require(time.nanoseconds < kNanosecondsPerSecond, "nanoseconds are out of range");
}

void CheckAttributes(const std::vector<SExtendedAttribute>& attributes) {
    Require(attributes.size() <= kMaxAttributes, "too many extended attributes");
    std::size_t left = kMaxAttributeBytes;
    for (const SExtendedAttribute& attribute : attributes) {
        Require(!attribute.name.empty() && IsName(attribute.name, kMaxAttributeName),
                "name of an extended attribute is not valid");
        Require(attribute.value.size() <= kMaxAttributeValue, "value of an extended attribute is too long");
        const std::size_t size = attribute.name.size() + attribute.value.size();
        Require(size <= left, "extended attributes are too long");
        left -= size;
    }
}

void CheckAll(const CFileInfo& info) {
    Require(info.type <= EFileType::eBlockDevice, "unknown file type");
    CheckPrincipal(info.owner);
    CheckPrincipal(info.group);
    Require((info.mode & ~kModeBits) == 0, "mode is out of range");
    CheckTime(info.accessTime);
    CheckTime(info.modificationTime);
    CheckTime(info.changeTime);
    Require(info.posixAcl.accessText.size() <= kMaxAclText && info.posixAcl.defaultText.size() <= kMaxAclText &&
                info.nfs4Acl.size() <= kMaxAclText,
            "access-control list is too long");
    CheckAttributes(info.attributes);
}

void WritePrincipal(io::binary_stream_tt& stream, const SPrincipal& principal) {
    stream.WriteString(principal.name);
    stream.WriteU32(principal.id);
}

void WriteTime(io::binary_stream_tt& stream, const SFileTime& time) {
    stream.WriteU64(static_cast<std::uint64_t>(time.seconds));
    stream.WriteU32(time.nanoseconds);
}

// A string whose length is checked before anything is read.
std::string ReadBounded(io::binary_stream_tt& stream, std::uint32_t maximum, std::string_view what) {
    const std::uint32_t length = stream.ReadU32();
    Require(length <= maximum, what);
    return stream.ReadBytes(length);
}

SPrincipal ReadPrincipal(io::binary_stream_tt& stream) {
    SPrincipal principal;
    principal.name = ReadBounded(stream, kMaxPrincipalName, "owner or group name is too long");
    principal.id = stream.ReadU32();
    CheckPrincipal(principal);
    return principal;
}

SFileTime ReadTime(io::binary_stream_tt& stream) {
    SFileTime time;
    time.seconds = static_cast<std::int64_t>(stream.ReadU64());
    time.nanoseconds = stream.ReadU32();
    CheckTime(time);
    return time;
}

std::string ReadAcl(io::binary_stream_tt& stream) {
    return ReadBounded(stream, kMaxAclText, "access-control list is too long");
}

std::vector<SExtendedAttribute> ReadAttributes(io::binary_stream_tt& stream) {
    const std::uint32_t count = stream.ReadU32();
    Require(count <= kMaxAttributes, "too many extended attributes");
    std::vector<SExtendedAttribute> attributes;
    std::size_t left = kMaxAttributeBytes;
    for (std::uint32_t i = 0; i < count; ++i) {
        SExtendedAttribute attribute;
        attribute.name = ReadBounded(stream, kMaxAttributeName, "name of an extended attribute is too long");
        attribute.value = ReadBounded(stream, kMaxAttributeValue, "value of an extended attribute is too long");
        const std::size_t size = attribute.name.size() + attribute.value.size();
        Require(size <= left, "extended attributes are too long");
        left -= size;
        attributes.push_back(std::move(attribute));
    }
    return attributes;
}

}  // namespace

void CFileInfo::Serialize(io::binary_stream_tt& stream) const {
    CheckAll(*this);
    stream.WriteU32(kMagic);
    stream.WriteU32(static_cast<std::uint32_t>(type));
    stream.WriteU64(size);
    WritePrincipal(stream, owner);
    WritePrincipal(stream, group);
    stream.WriteU32(mode);
    WriteTime(stream, accessTime);
    WriteTime(stream, modificationTime);
    WriteTime(stream, changeTime);
    stream.WriteFlag(posixAcl.isExtended);
    stream.WriteString(posixAcl.accessText);
    stream.WriteString(posixAcl.defaultText);
    stream.WriteU32(static_cast<std::uint32_t>(nfs4Acl.size()));
    stream.WriteExact(nfs4Acl.data(), nfs4Acl.size());
    stream.WriteU32(static_cast<std::uint32_t>(attributes.size()));
    for (const SExtendedAttribute& attribute : attributes) {
        stream.WriteString(attribute.name);
        stream.WriteString(attribute.value);
    }
}

CFileInfo CFileInfo::fromStream(io::binary_stream_tt& stream) {
    Require(stream.ReadU32() == kMagic, "unknown version");
    CFileInfo info;
    info.type = static_cast<EFileType>(stream.ReadU32());
    Require(info.type <= EFileType::eBlockDevice, "unknown file type");
    info.size = stream.ReadU64();
    info.owner = ReadPrincipal(stream);
    info.group = ReadPrincipal(stream);
    info.mode = stream.ReadU32();
    Require((info.mode & ~kModeBits) == 0, "mode is out of range");
    info.accessTime = ReadTime(stream);
    info.modificationTime = ReadTime(stream);
    info.changeTime = ReadTime(stream);
    info.posixAcl.isExtended = stream.ReadFlag();
    info.posixAcl.accessText = ReadAcl(stream);
    info.posixAcl.defaultText = ReadAcl(stream);
    const std::string nfs4Acl = ReadAcl(stream);
    info.nfs4Acl.assign(nfs4Acl.begin(), nfs4Acl.end());
    info.attributes = ReadAttributes(stream);
    CheckAttributes(info.attributes);
    return info;
}

void CFileInfo::DeSerialize(io::binary_stream_tt& stream) {
    *this = fromStream(stream);
}

}  // namespace util
