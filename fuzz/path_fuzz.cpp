// Any bytes taken as a path: every parser refuses them with an exception of the house, or takes them apart so that the
// text that comes back from the parts means the same again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "agent/path/describe_path.h"
#include "agent/path/location.h"
#include "mirrowen/exc/exception.h"
#include "tarn/extentfs/extent_fs_path.h"
#include "tarn/flr/flr_context.h"
#include "tarn/flr/view_resolver.h"
#include "tarn/memfs/memfs_path.h"
#include "tarn/tdatafs/tdatafs_path.h"

namespace {

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Runs one parser; what it refuses is fine.
template <class Parse>
void Try(const Parse& parse) {
    try {
        parse();
    } catch (const exc::CException&) {
    }
}

void CheckLocation(const std::string& text) {
    const agent::location_t location = agent::ParseLocation(text);
    Require(!location.isRemote || agent::ParseLocation(agent::ToString(location)) == location);
}

void CheckExtent(const std::string& text) {
    const auto path = tarn::extentfs::SExtentFsPath::Unserial(text);
    // A local path is written bare, so only remote ones come back as they were.
    if (!path.location.IsLocal()) {
        const auto back = tarn::extentfs::SExtentFsPath::Unserial(path.Serialize());
        Require(back.location == path.location && back.path == path.path);
    }
}

void CheckTape(const std::string& text) {
    const tarn::tdatafs::tdatafs_path_t path(text);
    const tarn::tdatafs::tdatafs_path_t back(path.ToString());
    Require(back.GetName() == path.GetName() && back.GetFirst() == path.GetFirst() &&
            back.GetSecond() == path.GetSecond());
}

void CheckView(const std::string& text) {
    tarn::CFLRContext rules;
    rules.AddMappingRule("/real/directory", "/mount/point");
    std::string real;
    if (rules.TryMapPath(text, real)) {
        Require(real.starts_with("/real/directory/"));
    }
    Require(tarn::view_resolver_t::Normalise("/" + text).find("/../") == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Try([&] { CheckLocation(text); });
    Try([&] { CheckExtent(text); });
    Try([&] { CheckTape(text); });
    Try([&] { CheckView(text); });
    Try([&] { Require(tarn::memfs::memfs_path_t(text).GetSlotName().size() < text.size()); });
    Try([&] { Require(!agent::DescribePath(text).backend.empty()); });
    return 0;
}
