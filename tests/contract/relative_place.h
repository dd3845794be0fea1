#pragma once

#include <string>

#include "tests/contract/places.h"
#include "tests/support/scoped_path_mapper.h"

namespace contract {

/// `Place` reached by relative paths: "RelativePath://name" is mapped to its path of that name.
template <class Place>
class relative_place_t : public Place {
  public:
    static traits_t Traits();

    std::string Path(const std::string& name) const override { return Prefix() + name; }
    std::string StreamPath(const std::string& name) const override { return Place::Path(name); }

  private:
    static std::string Prefix() { return "RelativePath://"; }

    std::string Map(const std::string& path) const {
        return path.rfind(Prefix(), 0) == 0 ? Place::Path(path.substr(Prefix().size())) : path;
    }

    tests::scoped_path_mapper_t mapper_{[this](const std::string& path) { return Map(path); }};
};

template <class Place>
traits_t relative_place_t<Place>::Traits() {
    traits_t traits = Place::Traits();
    const std::string wrapped = "the wrapper puts its own text over the backend's";
    traits.diskRefusal = "Failed to open disk for read by relative path [%1].";
    const std::string unmapped = "the wrapper hands on the caller's own path, which the backend does not know";
    SetRefusal(traits, EFeature::eExclusiveRead, traits.openFailure, unmapped);
    traits.openFailure = "Failed to open file for read by relative path [%1].";
    SetRefusal(traits, EFeature::eLinks, "Not supported.", "links are not served by relative path");
    if (traits.Without(EFeature::eUpdate) != nullptr) {
        SetRefusal(traits, EFeature::eUpdate, "Failed to open file for write by relative path [%1].", wrapped);
    }
    if (traits.Without(EFeature::eRename) != nullptr) {
        SetRefusal(traits, EFeature::eRename, "Failed to rename file by relative path [%1] to [%2].", wrapped);
    }
    return traits;
}

}  // namespace contract
