#include "tests/support/temp_dir.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace tests {

std::string temp_dir_t::Usual() {
    return std::filesystem::temp_directory_path().string();
}

temp_dir_t::temp_dir_t(const std::string& parent)
    : path_((std::filesystem::path(parent) / "tarn-test-XXXXXX").string()) {
    ::umask(022);  // whoever runs the tests may have another one; the modes that they expect are those of this one
    if (::mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("no temporary directory at " + path_);
    }
}

temp_dir_t::~temp_dir_t() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    // A test may have left directories without permissions.
    for (fs::recursive_directory_iterator it(path_, ignored), end; it != end; it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
    fs::remove_all(path_, ignored);
}

std::string temp_dir_t::operator/(std::string_view name) const {
    return std::string(path_).append("/").append(name);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(in), {}};
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return content;
}

void WriteFile(const std::string& path, std::string_view content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace tests
