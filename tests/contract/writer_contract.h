#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "tarn/fs_operations.h"
#include "tests/support/temp_dir.h"

namespace contract {

/// A backend that can be written and whose work ends up in a directory of the host, now or when it is told.
class writer_t {
  public:
    writer_t() = default;
    writer_t(const writer_t&) = delete;
    writer_t& operator=(const writer_t&) = delete;
    virtual ~writer_t() = default;

    /// The operations object for `path`.
    virtual std::shared_ptr<tarn::fs_operations_t> Operations(const std::string& path) = 0;
    /// The path under which the backend knows a path of the host.
    virtual std::string Path(const std::string& hostPath) const = 0;
    /// What a stream says of itself that was made for a path of the host.
    virtual std::string StreamPath(const std::string& hostPath) const = 0;
    /// Brings what was written to the host. No stream is open then; writing may go on afterwards.
    virtual void Settle() = 0;
};

struct writer_subject_t {
    std::unique_ptr<writer_t> (*make)();
};

/// Keeps GoogleTest from printing the bytes of a subject.
inline void PrintTo(const writer_subject_t& /*subject*/, std::ostream* out) {
    *out << "writer";
}

/// The suite of backends that are written: the host ends up with what was written, however it gets there.
class WriterContract : public testing::TestWithParam<writer_subject_t> {
  protected:
    WriterContract() : writer_(GetParam().make()) {}

    tarn::fs_operations_t& Fs() {
        fs_ = writer_->Operations(Path("a"));
        return *fs_;
    }
    std::string Path(const std::string& name) const { return writer_->Path(Real(name)); }
    std::string StreamPath(const std::string& name) const { return writer_->StreamPath(Real(name)); }
    std::string Real(const std::string& name) const { return dir_ / name; }
    void Settle() {
        fs_.reset();
        writer_->Settle();
    }

    std::shared_ptr<tarn::file_wstream_t> Create(const std::string& name, bool overwrite = true) {
        return Fs().CreateNewFile(Path(name), 0, overwrite);
    }
    /// A file of this content, closed.
    void Put(const std::string& name, const std::string& content);
    /// What the host has.
    std::string Get(const std::string& name) const { return tests::ReadFile(Real(name)); }

  private:
    tests::temp_dir_t dir_;
    std::unique_ptr<writer_t> writer_;
    std::shared_ptr<tarn::fs_operations_t> fs_;
};

}  // namespace contract
