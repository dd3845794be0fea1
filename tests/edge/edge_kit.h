#pragma once

#include <algorithm>
#include <exception>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent/copy/copy.h"
#include "tests/support/serve_child.h"
#include "tests/support/temp_dir.h"

namespace tests {

/// What a copy came to, without exceptions.
struct copy_outcome_t {
    agent::copy::copy_report_t report;
    std::string thrown;  ///< what() of what ended the copy as a whole

    bool IsClean() const { return thrown.empty() && report.failed.empty(); }
    /// Every text about a failure.
    std::string Failure() const {
        std::string text = thrown;
        for (const auto& note : report.failed) {
            text += note.path + ": " + note.text + "\n";
        }
        return text;
    }
};

inline copy_outcome_t CopyAll(const std::vector<std::string>& sources, const std::string& destination,
                              const agent::copy::copy_options_t& options) {
    copy_outcome_t outcome;
    agent::copy::copy_observer_t observer;
    try {
        outcome.report = agent::copy::Copy(sources, destination, options, observer);
    } catch (const std::exception& error) {
        outcome.thrown = error.what();
    }
    return outcome;
}

inline std::string Remote(std::uint16_t port, const std::string& path) {
    return "tarn://127.0.0.1:" + std::to_string(port) + "/" + path;
}

/// The names below a directory, the staging folder's own apart, and how many files lie staged.
struct root_view_t {
    explicit root_view_t(const std::string& root) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            const std::string name = entry.path().lexically_relative(root).string();
            if (name.compare(0, kStaging.size(), kStaging) != 0) {
                names.push_back(name);
            } else if (!entry.is_directory() && !IsOfTheFolder(name)) {
                ++staged;
            }
        }
        std::sort(names.begin(), names.end());
    }

    static bool IsOfTheFolder(const std::string& name) {
        const std::string_view below = std::string_view(name).substr(std::min(name.size(), kStaging.size()));
        return below == "/lock" || below == "/journal";
    }

    static constexpr std::string_view kStaging = ".tarn-staging";

    std::vector<std::string> names;
    std::size_t staged = 0;
};

/// Sources, a root that a child process serves, and beside it a directory that nobody may touch.
class edge_fixture_t : public testing::Test {
  protected:
    edge_fixture_t() {
        for (const char* const name : {"source", "root", "canary"}) {
            std::filesystem::create_directory(Place(name));
        }
        WriteFile(Place("canary/file"), "canary");
    }

    std::string Place(const std::string& name) const { return dir_ / name; }
    std::string Source(const std::string& name) const { return Place("source/" + name); }
    std::string Root() const { return Place("root"); }
    root_view_t ViewRoot() const { return root_view_t(Root()); }

    void ClearRoot() const {
        for (const std::string& name : ViewRoot().names) {
            std::filesystem::remove_all(Root() + "/" + name);
        }
    }

  private:
    temp_dir_t dir_;
};

}  // namespace tests
