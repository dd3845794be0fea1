#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "mirrowen/logging/log_level.h"
#include "mirrowen/util/fs.h"
#include "tarn/blobfs/blob_parser.h"
#include "tests/support/blob_frame.h"
#include "tests/support/blob_stream.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace tests {

/// Applies blob files to the folder "target" of a temporary directory; the blob file lies beside it.
class blob_fixture_t : public testing::Test {
  protected:
    blob_fixture_t() { util::fs_make_directory(target_); }

    std::string Path(const std::string& name) const { return target_ + "/" + name; }
    void Put(const std::string& name, std::string_view content) const { WriteFile(Path(name), content); }
    std::string Content(const std::string& name) const { return ReadFile(Path(name)); }

    /// Applies a blob file with exactly this content.
    caught_error_t ApplyBytes(std::string_view content) {
        WriteFile(blob_, content);
        return CatchError([&] { parser_.Execute(blob_); });
    }
    caught_error_t Apply(const blob_stream_t& stream) { return ApplyBytes(BlobFrame(stream.Bytes())); }

    /// The text of a whole chain when `count` commands failed.
    std::string Fails(int count) const {
        return "Failed to parse file [" + blob_ + "].\n" + std::to_string(count) + " fails found .";
    }
    bool BlobStays() const { return util::fs_file_exists(blob_); }

    struct error_line_t {
        std::string text;
        std::string failure;
        friend bool operator==(const error_line_t&, const error_line_t&) = default;
    };
    /// The errors in the library's log with what was attached.
    std::vector<error_line_t> Errors() const {
        std::vector<error_line_t> errors;
        for (const log_line_t& line : log_.Lines()) {
            if (line.section == "fs_log" && line.level == logging::ELevel::eErr) {
                errors.push_back({line.text, line.error});
            }
        }
        return errors;
    }
    /// The library's traces.
    std::vector<std::string> Traces() const {
        std::vector<std::string> traces;
        for (const log_line_t& line : log_.Lines()) {
            if (line.section == "fs_log" && line.level == logging::ELevel::eTrace) {
                traces.push_back(line.text);
            }
        }
        return traces;
    }

    const temp_dir_t dir_;
    const std::string target_ = dir_ / "target";
    const std::string blob_ = dir_ / "blobfs0";
    log_capture_t log_;
    /// Path and text of each failure that the observer was told.
    std::vector<std::pair<std::string, std::string>> observed_;
    tarn::blobfs::BlobParser parser_{[this](const std::string& path, const std::exception& failure) {
        observed_.emplace_back(path, failure.what());
    }};
};

}  // namespace tests
