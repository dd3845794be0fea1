#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace tests {

/// How much of a canary is compared. A test that gives one of its files a second name changes the number of links and
/// the time of change itself.
enum class ECanaryView { eEverything, eWithoutLinkCount };

/// A directory that nothing below a root may reach: files, a directory, an empty one, a link and extended attributes,
/// all of them open to everybody by their permissions, so that only the code under test stands before them. It
/// remembers what everything looked like, the times of access and of change included.
class canary_t {
  public:
    /// Makes the directory at `path`, which must be free; everything belongs to `owner` and the group of this number.
    explicit canary_t(std::string path, uid_t owner);

    const std::string& Path() const noexcept { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    /// A text that stands in every file of the canary and nowhere else.
    const std::string& Secret() const noexcept { return secret_; }

    /// Looks at everything again, for a test that has changed something on purpose.
    void Remember();

    /// What is different from what was remembered, one line an object; empty when nothing was touched or read.
    std::string Damage(ECanaryView view = ECanaryView::eEverything) const;
    /// The files below `directory`, no link followed, in which the secret stands, one a line.
    std::string Leaks(const std::string& directory) const;

    /// Whether reading leaves a trace here: a file system may be mounted without times of access.
    bool NoticesReading() const;

  private:
    std::map<std::string, std::string> View(ECanaryView view) const;

    std::string path_;
    std::string secret_;
    std::map<std::string, std::string> whole_;
    std::map<std::string, std::string> withoutLinkCount_;
};

}  // namespace tests
