#pragma once

#include <string>
#include <vector>

namespace tests {

struct tree_compare_t {
    bool owners = true;     ///< user and group, by number
    bool hardLinks = true;  ///< the same names lead to the same file
    bool holes = true;      ///< holes lie at the same places, as the file system tells them
    /// Attributes by the start of their name that are not compared ("trusted.").
    std::vector<std::string> ignoredAttributes = {};
};

/// Compares two trees (or files, or links) by nothing but system calls, object by object: names, types, modes, owners,
/// modification times to the nanosecond, contents, holes, link targets, extended attributes with access-control lists,
/// and which names are hard links of each other. The two places themselves are compared, too. Contents are compared
/// where either file has data, so holes cost no time; paths may be longer than the kernel takes in one call.
///
/// Returns the differences, "PATH: what", with bytes that cannot be printed escaped; none when the trees are the same.
/// Throws `std::system_error` for what cannot be looked at.
std::vector<std::string> CompareTrees(const std::string& first, const std::string& second,
                                      const tree_compare_t& what = {});

}  // namespace tests
