#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Which names the agent takes from a peer or from a listing. Names are bytes: what is not UTF-8 passes, and so do
/// control bytes (whoever prints a name escapes it). Any thread.
namespace agent {

/// The folder at the top of a root in which files are written before they get their names. Nobody but the staging code
/// reaches it: it is refused by name and left out of listings.
inline constexpr std::string_view kStagingFolder = ".tarn-staging";

/// The longest component and the longest name that the kernel takes, in bytes (NAME_MAX, and PATH_MAX without its NUL).
inline constexpr std::size_t kMaxComponentBytes = 255;
inline constexpr std::size_t kMaxNameBytes = 4095;

/// Whether the top of the names is one where the staging folder lies.
enum class EStagingFolder { eHidden, eOrdinary };

/// What is wrong with `name` as the name of an object below a root, as the end of a sentence ("it is absolute"); empty
/// for a good name. Refused are: the empty name, a leading '/', "." and ".." and empty components (so a trailing '/',
/// too), NUL, a component over kMaxComponentBytes, more than kMaxNameBytes in all, and, with `eHidden`, the staging
/// folder in any letter case (a file system may fold it) and what lies below it.
std::string_view FindNameFault(std::string_view name, EStagingFolder staging = EStagingFolder::eHidden) noexcept;

/// Throws `exc::CRuntimeExc` "Path [%1] is refused: %2." when FindNameFault finds something, with
/// ShownName.
void CheckName(std::string_view name, EStagingFolder staging = EStagingFolder::eHidden);

/// A name that nobody has judged yet, as messages show it: cut after 300 bytes, and with "\x00" for a NUL, which would
/// end the text of an exception.
std::string ShownName(std::string_view name);

/// Throws the error of CheckName for a fault that the caller found itself.
[[noreturn]] void ThrowRefused(std::string_view name, std::string_view fault);

/// Whether `component` is the staging folder's name when ASCII letter case is ignored.
bool IsStagingFolder(std::string_view component) noexcept;

}  // namespace agent
