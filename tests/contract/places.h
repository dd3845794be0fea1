#pragma once

#include <memory>
#include <string>

#include "tests/contract/backend.h"
#include "tests/support/temp_dir.h"

namespace contract {

/// Gives the lack of `feature` this refusal, whether the backend lacked it before or not.
void SetRefusal(traits_t& traits, EFeature feature, const std::string& text, const std::string& reason);

/// A directory of the host, removed with the test.
class host_place_t : public backend_t {
  public:
    static traits_t Traits();
    std::string Path(const std::string& name) const override;
    std::string InvalidPath() const override;

  private:
    tests::temp_dir_t dir_;
};

/// The slots of this process; all of them go with the test.
class memory_place_t : public backend_t {
  public:
    ~memory_place_t() override;
    static traits_t Traits();
    std::string Path(const std::string& name) const override;
    std::string InvalidPath() const override;
};

/// `Place`, served by one object of `Backend`.
template <class Place, class Backend>
class direct_t final : public Place {
  public:
    std::shared_ptr<tarn::fs_operations_t> Operations(const std::string& /*path*/) override {
        return std::make_shared<Backend>();
    }
};

/// `Place`, served by what the dispatcher chooses for the path.
template <class Place>
class dispatched_t final : public Place {
  public:
    std::shared_ptr<tarn::fs_operations_t> Operations(const std::string& path) override {
        return tarn::fs_operations_t::RecognizeFsPath(path, 0);
    }
};

/// The subject of a backend class that is made without arguments.
template <class Backend>
subject_t SubjectOf() {
    return {[] { return Backend::Traits(); },
            []() -> std::unique_ptr<backend_t> { return std::make_unique<Backend>(); }};
}

}  // namespace contract
