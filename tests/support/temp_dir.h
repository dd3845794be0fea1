#pragma once

#include <string>
#include <string_view>

namespace tests {

/// A fresh empty directory, removed with its contents at the end.
class temp_dir_t {
  public:
    /// Below `parent`.
    explicit temp_dir_t(const std::string& parent = Usual());
    ~temp_dir_t();
    temp_dir_t(const temp_dir_t&) = delete;
    temp_dir_t& operator=(const temp_dir_t&) = delete;

    /// Absolute, without a slash at its end.
    const std::string& path() const noexcept { return path_; }
    /// Path of `name` below the directory.
    std::string operator/(std::string_view name) const;

    /// Where temporary files go.
    static std::string Usual();

  private:
    std::string path_;
};

/// The whole content of a file, and a file with this content; both throw `std::runtime_error` naming the path.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, std::string_view content);

}  // namespace tests
