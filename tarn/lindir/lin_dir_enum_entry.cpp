#include <sys/stat.h>

#include <stdexcept>
#include <string>

#include "linuxacl/linux_acl.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/fs.h"
#include "mirrowen/util/str.h"
#include "tarn/fs_log.h"
#include "tarn/lindir/LinFileOp.h"
#include "tarn/lindir/lin_dir_enum.h"

/// What an entry says, and how it becomes XML.
namespace tarn::lindir {

namespace {

constexpr unsigned int kTypeMask = 0xF000;
constexpr unsigned int kDirectoryType = 0x4000;

/// The three characters of one class: read, write, and execute together with the bit that shares its place.
void FormatClass(std::string& text, std::size_t at, unsigned int mode, unsigned int shift, unsigned int special,
                 char specialChar) {
    if ((mode >> shift & 4U) != 0) {
        text[at] = 'r';
    }
    if ((mode >> shift & 2U) != 0) {
        text[at + 1] = 'w';
    }
    const bool executes = (mode >> shift & 1U) != 0;
    if ((mode & special) != 0) {
        text[at + 2] = executes ? specialChar : static_cast<char>(specialChar - 'a' + 'A');
    } else if (executes) {
        text[at + 2] = 'x';
    }
}

void SetTypeFlags(lin_dir_enum::SEntryInfo& info, unsigned int mode) {
    const unsigned int type = mode & kTypeMask;
    info.is_reg = type == 0x8000;
    info.is_dir = type == kDirectoryType;
    info.is_link = type == 0xA000;
    info.is_chr = type == 0x2000;
    info.is_blk = type == 0x6000;
    info.is_fifo = type == 0x1000;
    info.is_sock = type == 0xC000;
}

/// Lists cannot be read on this platform; a description goes without the mark then.
bool HasExtendedAcl(const std::string& path) {
    try {
        return linuxacl::CLinuxAcl::IsExtendedAcl(path);
    } catch (const std::runtime_error&) {
        return false;
    }
}

bool IsAbsolute(const std::string& path) noexcept {
    return !path.empty() && path.front() == '/';
}

/// What the conversion that carries any byte makes of bytes that are not UTF-8.
bool IsCarriedByte(wchar_t c) noexcept {
    return c >= 0xDC80 && c <= 0xDCFF;
}

const char* FlagText(bool flag) noexcept {
    return flag ? "1" : "0";
}

}  // namespace

void lin_dir_enum::fillEntryInfo(SEntryInfo& info, const struct stat& attributes, const std::string& dir,
                                 const std::string& name) {
    info.name = name;
    info.dir = dir;
    if (info.dir.empty() || info.dir.back() != '/') {
        info.dir += '/';
    }
    const std::string path = util::fs_merge_path(info.dir, name);
    info.uid = attributes.st_uid;
    info.gid = attributes.st_gid;
    info.size = static_cast<std::uint64_t>(attributes.st_size);
    info.mtime = static_cast<std::uint64_t>(attributes.st_mtim.tv_sec);
    SetTypeFlags(info, attributes.st_mode);
    info.has_sub_dirs = false;
    info.access_error = 0;
    if (info.is_dir) {
        checkSubDirectories(info, path);
    }
    if (info.is_link) {
        checkLinkProps(info, path, info.size);
    }
    if (const auto user = CLinFileOp::getpwuidSafe(attributes.st_uid, path)) {
        info.user_name = user->pw_name;
    }
    if (const auto group = CLinFileOp::getgrgidSafe(attributes.st_gid, path)) {
        info.group_name = group->gr_name;
    }
    info.mode = info.is_link ? "lrwxrwxrwx" : formatPermissions(attributes.st_mode, HasExtendedAcl(path));
}

void lin_dir_enum::checkSubDirectories(SEntryInfo& info, const std::string& path) {
    try {
        info.has_sub_dirs = !IsDirEmpty(util::str_utf82w(path), true);
    } catch (const posix::errno_exc_t& error) {
        info.access_error = static_cast<std::uint64_t>(error.GetErrno());
        fs_log.warn("Problem with Search. %1", error.Message());
    }
}

void lin_dir_enum::checkLinkProps(SEntryInfo& info, const std::string& path, std::uint64_t size) {
    if (!CLinFileOp::readlinkSafe(path, info.link_to, static_cast<std::size_t>(size))) {
        return;
    }
    const std::string target = IsAbsolute(info.link_to) ? info.link_to : util::fs_merge_path(info.dir, info.link_to);
    struct stat found {};
    if (CLinFileOp::lstatSafe(target, found)) {
        info.is_dir = (found.st_mode & kTypeMask) == kDirectoryType;
    }
}

std::string lin_dir_enum::formatPermissions(unsigned int mode, bool extendedAcl) {
    std::string text(9, '-');
    FormatClass(text, 0, mode, 6, 0x800, 's');
    FormatClass(text, 3, mode, 3, 0x400, 's');
    FormatClass(text, 6, mode, 0, 0x200, 't');
    return extendedAcl ? text + "+" : text;
}

std::wstring lin_dir_enum::convertUtf8ToUnicode(const std::string& text) {
    std::wstring wide = util::str_utf82w(text);
    for (const wchar_t c : wide) {
        if (IsCarriedByte(c)) {
            throw exc::CRuntimeExc("Unable to convert string to Unicode: %1", text);
        }
    }
    return wide;
}

void lin_dir_enum::splitPathToDirAndName(std::string& path, std::string& name) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        name = path;
        path = ".";
        return;
    }
    name = path.substr(slash + 1);
    path.resize(slash + 1);
}

xml::xml_holder_t lin_dir_enum::createRootElement(std::shared_ptr<tinyxml2::XMLDocument> document) {
    return xml::TiXmlCreateChild(std::move(document), "lists");
}

void lin_dir_enum::createXmlContent(xml::xml_holder_t& element, const SEntryInfo& info) {
    xml::TiXmlSetStrAttr(element, "file_name", info.name);
    xml::TiXmlSetStrAttr(element, "file_dir", info.dir);
    xml::TiXmlSetStrAttr(element, "dir", FlagText(info.is_dir));
    xml::TiXmlSetStrAttr(element, "link", FlagText(info.is_link));
    xml::TiXmlSetStrAttr(element, "is_reg", FlagText(info.is_reg));
    xml::TiXmlSetStrAttr(element, "link_to", info.link_to);
    xml::TiXmlSetStrAttr(element, "has_sub_dirs", FlagText(info.has_sub_dirs));
    xml::TiXmlSetStrAttr(element, "user_name", info.user_name);
    xml::TiXmlSetStrAttr(element, "group_name", info.group_name);
    xml::TiXmlSetStrAttr(element, "mode", info.mode);
    xml::TiXmlSetUInt64Attr(element, "size", info.size);
    xml::TiXmlSetUInt64Attr(element, "mtime", info.mtime);
    xml::TiXmlSetUInt64Attr(element, "uid", info.uid);
    xml::TiXmlSetUInt64Attr(element, "gid", info.gid);
    if (info.access_error != 0) {
        xml::TiXmlSetUInt64Attr(element, "AccessError", info.access_error);
    }
}

}  // namespace tarn::lindir
