#pragma once

#include <map>
#include <string>
#include <vector>

#include "mirrowen/guid/guid.h"
#include "tarn/export.h"
#include "tarn/extentfs/extent_fs_path.h"

namespace tarn::extentfs {

/// The text form of extent paths:
///
///     PATH                                  on this machine: everything without one of the prefixes
///     ExtentExFS[LOCATION]PATH              in a remote location
///     ExtentExFS[LOCATION,arch=ARCHIVE]PATH in an archive there
///     ExtentFS[...]PATH                     the same in an older form, which is read and never written
///
/// LOCATION and ARCHIVE are identifiers, written without curly brackets and read with or without them. The first "]"
/// ends the arguments; further names than "arch" are read and mean nothing. Any thread.
struct TARN_API SExtentFsPathParser {
    using arguments_t = std::vector<std::string>;
    using named_arguments_t = std::map<std::string, std::string>;

    static std::string Serial(const SExtentFsPath& path);

    /// Throws `exc::CRuntimeExc` "Failed to parse externalFs path '%1'." for a remote form that cannot be read, over
    /// its cause: "There is no close bracket in path.", "Invalid location is specified", or that of
    /// `guid::guid_t::FromAStr`.
    static SExtentFsPath Unserial(const std::string& text);

    static std::string ToStrWithoutBrackets(const guid::guid_t& id);

    /// The location that the arguments name, the first one taken as it is. Throws `exc::CRuntimeExc` "Invalid location
    /// is specified" when there are none, and that of `guid::guid_t::FromAStr`.
    static SExtentLocation ParseLocationArgs(const arguments_t& arguments);

    /// Adds every argument of the form KEY=VALUE to `values`, spaces around both dropped; a later one replaces an
    /// earlier one.
    static void SelectKeyValuePairs(const arguments_t& arguments, named_arguments_t& values);

    /// Whether there is a value of that key; `value` is left alone otherwise.
    static bool TryFindArgVal(const named_arguments_t& values, const std::string& key, std::string& value);
    /// The same for an identifier; throws that of `guid::guid_t::FromAStr`.
    static bool TryFindUidArgVal(const named_arguments_t& values, const std::string& key, guid::guid_t& value);
};

}  // namespace tarn::extentfs
