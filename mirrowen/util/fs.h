#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mirrowen/export.h"

/// Files and paths of the host, by path. Failures are `posix::errno_exc_t` naming the path. Any thread.
namespace util {

/// Whether anything is at `path`, links not followed: true for files, directories and dangling links. A path that
/// cannot be examined for another reason than absence throws.
MIRROWEN_API bool fs_file_exists(const std::string& path);

/// Whether a directory is at `path`, links followed.
MIRROWEN_API bool fs_directory_exists(const std::string& path);

/// Removes a file, a link (not its target) or an empty directory; a missing one throws "Failed to delete file [%1]".
MIRROWEN_API void fs_file_delete(const std::string& path);

/// Size in bytes, links followed.
MIRROWEN_API std::uint64_t fs_file_size(const std::string& path);

/// Makes a directory; one that is there already is fine, a missing parent is not: "Failed to create directory [%1]".
MIRROWEN_API void fs_make_directory(const std::string& path);

/// Joins two parts with exactly one '/'; an empty second part returns the first without trailing slashes ("/" stays),
/// an empty first one returns the second.
MIRROWEN_API std::string fs_merge_path(std::string_view directory, std::string_view name);

/// As `fs_merge_path`, with the slash of the host's paths: on POSIX systems '/', where a backslash is a character of
/// the name.
MIRROWEN_API std::string fs_merge_path_slash_sense(std::string_view directory, std::string_view name);

/// Whether `path` lives on a network share: the file system of its nearest existing ancestor is SMB, SMB2 or CIFS
/// (statfs(2) magic numbers).
MIRROWEN_API bool fs_is_smb_path(const std::string& path);

/// The components of a path, split at '/'; empty ones are dropped, so a leading slash makes no difference.
MIRROWEN_API std::vector<std::wstring> fs_split_path(std::wstring_view path);

/// Position of the last '/', or npos.
MIRROWEN_API std::size_t fs_find_last_unix_path_delim(std::wstring_view path) noexcept;

/// Whether the host's paths differ by letter case: true on POSIX systems; a test may change it.
MIRROWEN_API extern bool g_fs_hosted_os_case_sensitive_paths;

/// Operations on whole paths.
class MIRROWEN_API CPathUtils {
  public:
    /// Renames within a file system and replaces a file at `to`: "Failed to rename [%1]".
    static void rename(const std::string& from, const std::string& to);
};

/// The function that tells a file system's type for `fs_is_smb_path`: `statfs(path).f_type`, or -1 with errno set. A
/// test may replace it for the life of a scoped_fs_type_t.
using fs_type_function_t = long (*)(const char* path);

class MIRROWEN_API scoped_fs_type_t {
  public:
    explicit scoped_fs_type_t(fs_type_function_t function) noexcept;
    ~scoped_fs_type_t();
    scoped_fs_type_t(const scoped_fs_type_t&) = delete;
    scoped_fs_type_t& operator=(const scoped_fs_type_t&) = delete;

  private:
    fs_type_function_t previous_;
};

}  // namespace util
