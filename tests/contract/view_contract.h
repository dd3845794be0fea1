#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "tarn/fs_operations.h"
#include "tests/support/caught.h"
#include "tests/support/temp_dir.h"

namespace contract {

/// A read-only view of a host directory.
class view_t {
  public:
    view_t() = default;
    view_t(const view_t&) = delete;
    view_t& operator=(const view_t&) = delete;
    virtual ~view_t() = default;

    virtual std::shared_ptr<tarn::fs_operations_t> Operations() = 0;
    /// The view's path of `name`, which is relative to the directory.
    virtual std::string Path(const std::string& name) const = 0;

    std::string writeRefusal;  ///< message of every operation that would change something
    std::string diskRefusal;
    std::string mediaRefusal;
};

struct view_subject_t {
    std::unique_ptr<view_t> (*make)(const std::string& directory);
};

/// Keeps GoogleTest from printing the bytes of a subject.
inline void PrintTo(const view_subject_t& /*subject*/, std::ostream* out) {
    *out << "view";
}

/// The suite of read-only views: whatever changes something is refused and changes nothing, whatever reads agrees with
/// the tree behind the view.
class ViewContract : public testing::TestWithParam<view_subject_t> {
  protected:
    /// Makes the tree, then the view.
    ViewContract();

    tarn::fs_operations_t& Fs() { return *fs_; }
    const view_t& View() const { return *view_; }
    std::string Path(const std::string& name) const { return view_->Path(name); }
    std::string Real(const std::string& name) const { return dir_ / name; }

    /// Every object of the tree with type, size, times and content, for comparing.
    std::string Snapshot() const;
    std::string Get(const std::string& name);

  private:
    tests::temp_dir_t dir_;
    std::unique_ptr<view_t> view_;
    std::shared_ptr<tarn::fs_operations_t> fs_;
};

}  // namespace contract
