#include "agent/blob/blob_files.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "agent/tree/opened_place.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/fs.h"

namespace agent::blob {

namespace {

constexpr std::string_view kStem = "blobfs";

// The digits of a blob file's name. They sort by length, then by value: a number has no zero in front.
std::optional<std::string> digits_of(const std::string& name) {
    if (!name.starts_with(kStem)) {
        return std::nullopt;
    }
    std::string digits = name.substr(kStem.size());
    const bool isNumber = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos &&
                          (digits.size() == 1 || digits.front() != '0');
    return isNumber ? std::optional(std::move(digits)) : std::nullopt;
}

bool is_lower_number(const std::string& left, const std::string& right) {
    return left.size() != right.size() ? left.size() < right.size() : left < right;
}

}  // namespace

std::vector<std::string> BlobFilesIn(const std::string& directory) {
    std::vector<std::string> numbers;
    for (const std::string& name : OpenPlainRoot(directory)->ListTop(EOrder::eSorted)) {
        if (std::optional<std::string> digits = digits_of(name)) {
            numbers.push_back(*std::move(digits));
        }
    }
    std::sort(numbers.begin(), numbers.end(), is_lower_number);
    for (std::string& number : numbers) {
        number.insert(0, kStem);
        number = util::fs_merge_path(directory, number);
    }
    return numbers;
}

std::vector<std::string> ExpandBlobPaths(const std::vector<std::string>& paths) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        if (!util::fs_directory_exists(path)) {
            files.push_back(path);
            continue;
        }
        const std::vector<std::string> found = BlobFilesIn(path);
        if (found.empty()) {
            throw exc::CRuntimeExc("There is no blob file in [%1].", path);
        }
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

}  // namespace agent::blob
