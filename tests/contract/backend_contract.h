#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "mirrowen/util/str_format.h"
#include "tests/contract/backend.h"
#include "tests/support/caught.h"

namespace contract {

/// The suite that every backend passes, in files by verb. A backend takes part by instantiating it with its subject:
///
///     INSTANTIATE_TEST_SUITE_P(Host, BackendContract, testing::Values(subject_t{...}), SubjectName);
class BackendContract : public testing::TestWithParam<subject_t> {
  protected:
    BackendContract()
        : traits_(GetParam().traits()), backend_(GetParam().make()), fs_(backend_->Operations(Path("a"))) {}

    tarn::fs_operations_t& Fs() { return *fs_; }
    const traits_t& Traits() const { return traits_; }
    const backend_t& Backend() const { return *backend_; }
    std::string Path(const std::string& name) const { return backend_->Path(name); }
    const deviation_t* Without(EFeature feature) const { return traits_.Without(feature); }

    /// A file with this content, made through the interface, flushed and closed.
    void Put(const std::string& name, const std::string& content);
    /// Its content, read through the interface in one go.
    std::string Get(const std::string& name);

    /// A stream over a new file of `length` bytes.
    std::shared_ptr<tarn::file_wstream_t> Create(const std::string& name, std::uint64_t length = 0);
    std::shared_ptr<tarn::file_rstream_t> Open(const std::string& name) { return Fs().OpenFile4Read(Path(name)); }

    /// `action` throws with the deviation's text, its placeholders standing for the paths.
    template <class Action>
    void ExpectRefusal(const deviation_t& deviation, const std::string& path, const std::string& path2, Action action) {
        SCOPED_TRACE(deviation.reason);
        EXPECT_EQ(tests::Catch(action).message, util::str_format(deviation.refusal, path, path2));
    }
    template <class Action>
    void ExpectRefusal(const deviation_t& deviation, const std::string& path, Action action) {
        ExpectRefusal(deviation, path, "", action);
    }

  private:
    traits_t traits_;
    std::unique_ptr<backend_t> backend_;
    std::shared_ptr<tarn::fs_operations_t> fs_;
};

/// Writes a whole string.
inline void WriteText(tarn::file_wstream_t& stream, const std::string& text) {
    EXPECT_EQ(stream.WriteExc(text.data(), text.size()), text.size());
}

/// Reads up to `count` bytes in one call.
inline std::string ReadText(tarn::file_rstream_t& stream, std::uint64_t count) {
    std::string text(count, '?');
    text.resize(stream.ReadExc(text.data(), count));
    return text;
}

}  // namespace contract
