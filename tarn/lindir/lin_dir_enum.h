#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mirrowen/xml/xml_document.h"
#include "tarn/export.h"
#include "tarn/lindir/lin_dir_handle.h"
#include "tarn/lindir/search_mask.h"

namespace tarn::lindir {

/// Describes host objects: what the host knows of one becomes an XML document, one element "lists" with the object's
/// properties as attributes (docs/formats.md, "Description of a host object"). The context hands the descriptions out
/// by session.
///
/// A path comes as a wide string in which bytes that are not UTF-8 stand as U+DC80 to U+DCFF; such a path is opened,
/// but its description fails, since a document is UTF-8.
///
/// On this platform there are no directory descriptors, so only single objects that are no directories can be
/// described; walking and whatever needs it throws `std::runtime_error` "FILE:OPERATION -- not supported on this
/// platform". One thread at a time.
class TARN_API lin_dir_enum {
  public:
    /// What is known of one object. Texts are the host's bytes.
    struct SEntryInfo {
        std::string name;       ///< last component of the path
        std::string dir;        ///< the rest of it, with a '/' at the end
        std::string link_to;    ///< a link's target as stored
        std::string user_name;  ///< empty when there is no such account
        std::string group_name;
        std::string mode;  ///< see formatPermissions; "lrwxrwxrwx" for a link
        bool is_reg = false;
        bool is_dir = false;  ///< for a link, whether its target is a directory
        bool is_link = false;
        bool is_chr = false;
        bool is_blk = false;
        bool is_fifo = false;
        bool is_sock = false;
        bool has_sub_dirs = false;
        std::uint64_t access_error = 0;  ///< errno of a look into the directory that failed
        std::uint64_t size = 0;          ///< bytes
        std::uint64_t mtime = 0;         ///< seconds since 1970
        std::uint64_t uid = 0;
        std::uint64_t gid = 0;
    };

    lin_dir_enum();
    virtual ~lin_dir_enum();
    lin_dir_enum(const lin_dir_enum&) = delete;
    lin_dir_enum& operator=(const lin_dir_enum&) = delete;

    /// Describes what is at `path`, links followed, into `xml`; returns a new session identifier. Throws
    /// `boost::filesystem::filesystem_error` when the path cannot be examined, `posix::errno_exc_t` "Failed to open
    /// file [%1] for reading" (a missing one too) and those of CLinFileOp, `exc::CRuntimeExc` of convertUtf8ToUnicode.
    /// A directory is opened and then refused: see the class.
    std::string StartEnum(const std::wstring& path, std::wstring& xml);

    /// Begins a walk over the names that match `mask`, wildcards, letter case ignored. Opens the directory
    /// (`posix::errno_exc_t` "Failed to open dir: %1"), compiles the mask (see search_mask_t) and is then refused: see
    /// the class. Neither `mask` nor `xml` is changed.
    std::string StartEnumRecursive(const std::wstring& path, std::wstring& mask, std::wstring& xml);
    /// The same without a session identifier.
    void RBegin(const std::wstring& path, const std::wstring& mask);

    /// Refused: see the class.
    virtual bool GetNext(std::wstring& xml);
    virtual bool GetNextRecursive(std::wstring& xml);
    bool RNext();
    virtual bool IsDirEmpty(const std::wstring& path, bool subDirectoriesOnly);

    /// The permission bits as `ls` shows them without the type: "rwsr-xr-x", and a "+" behind it for an extended
    /// access-control list.
    static std::string formatPermissions(unsigned int mode, bool extendedAcl);

    /// Turns a list of wildcard masks ("*.txt; *.log") into a regular expression, in place; false when every name
    /// passes ("", "*", "*.*"). Blanks around it are dropped; masks are separated by a semicolon and a blank. Letters,
    /// "|", "(", ")", "+" and the backslash keep the meaning that they have in an expression, and braces come out
    /// crossed: "{" as an escaped "}", "}" as an escaped backslash and "}"; masks in use depend on it.
    static bool GenerateNewRegexMask(std::string& mask);

    /// UTF-8 to wide; anything else throws `exc::CRuntimeExc` "Unable to convert string to Unicode: %1".
    static std::wstring convertUtf8ToUnicode(const std::string& text);

    /// Cuts `path` behind its last '/' and moves what follows to `name`; without a '/' what is left is ".".
    static void splitPathToDirAndName(std::string& path, std::string& name);

    /// The document's one element, "lists".
    static xml::xml_holder_t createRootElement(std::shared_ptr<tinyxml2::XMLDocument> document);
    /// Sets the entry's attributes on `element`.
    static void createXmlContent(xml::xml_holder_t& element, const SEntryInfo& info);

  protected:
    /// Fills `info` for the object `name` in `dir`, whose attributes are `attributes`. What cannot be found out stays
    /// empty and leaves a warning in `fs_log`.
    void fillEntryInfo(SEntryInfo& info, const struct stat& attributes, const std::string& dir,
                       const std::string& name);

  private:
    /// One level of a walk.
    struct CFindData {
        std::shared_ptr<CLinDirHandle> handle;
        std::string path;
    };

    void BeginWalk(const std::wstring& path, const std::wstring& mask);
    void checkSubDirectories(SEntryInfo& info, const std::string& path);
    static void checkLinkProps(SEntryInfo& info, const std::string& path, std::uint64_t size);

    std::vector<CFindData> levels_;
    std::shared_ptr<const search_mask_t> mask_;
};

}  // namespace tarn::lindir
