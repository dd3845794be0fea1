#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "tarn/fs_operations.h"
#include "tests/contract/traits.h"

namespace contract {

/// One backend with a place of its own, made for one test and gone with it.
class backend_t {
  public:
    backend_t() = default;
    backend_t(const backend_t&) = delete;
    backend_t& operator=(const backend_t&) = delete;
    virtual ~backend_t() = default;

    /// The operations object for `path`.
    virtual std::shared_ptr<tarn::fs_operations_t> Operations(const std::string& path) = 0;
    /// The path of the object `name` of this test's place; the place itself for an empty name.
    virtual std::string Path(const std::string& name) const = 0;
    /// What streams opened on Path(name) say of themselves.
    virtual std::string StreamPath(const std::string& name) const { return Path(name); }
    /// A path that the backend cannot have.
    virtual std::string InvalidPath() const = 0;
};

/// A backend to run the suite over.
struct subject_t {
    traits_t (*traits)();
    std::unique_ptr<backend_t> (*make)();
};

/// Keeps GoogleTest from printing the bytes of a subject.
inline void PrintTo(const subject_t& /*subject*/, std::ostream* out) {
    *out << "backend";
}

}  // namespace contract
