#include "agent/path/describe_path.h"

#include "agent/path/location.h"
#include "corvel/corvel_ctx.h"
#include "tarn/blobfs/blobfs_operations.h"
#include "tarn/extentfs/extent_fs_path.h"
#include "tarn/extentfs/extent_fs_path_parser.h"
#include "tarn/flr/flrfs_operations.h"
#include "tarn/memfs/memfs_path.h"
#include "tarn/tdatafs/tdatafs_path.h"

namespace agent {

namespace {

path_description_t describe_agent(const location_t& location) {
    return {
        "agent",
        {{"host", location.endpoint.host}, {"port", std::to_string(location.endpoint.port)}, {"path", location.path}}};
}

path_description_t describe_tape(const std::string& text) {
    const tarn::tdatafs::tdatafs_path_t path(text);
    path_description_t description{"tape data", {{"name", path.GetName()}, {"first", std::to_string(path.GetFirst())}}};
    if (path.GetSecond() != tarn::tdatafs::tdatafs_path_t::kAbsent) {
        description.fields.emplace_back("second", std::to_string(path.GetSecond()));
    }
    return description;
}

path_description_t describe_blob(const std::string& text) {
    const std::size_t end = text.find("://") + 3;
    return {"blob", {{"prefix", text.substr(0, end)}, {"target", text.substr(end)}}};
}

// The dispatcher takes an extent path for a file's name; the further fields are what an embedding program reads out.
path_description_t describe_host(const std::string& text) {
    path_description_t description{"host", {{"path", text}}};
    try {
        const auto extent = tarn::extentfs::SExtentFsPath::Unserial(text);
        if (!extent.location.IsLocal()) {
            using parser_t = tarn::extentfs::SExtentFsPathParser;
            description.fields.emplace_back("location", parser_t::ToStrWithoutBrackets(extent.location.locationId));
            description.fields.emplace_back("archive", parser_t::ToStrWithoutBrackets(extent.location.archId));
            description.fields.emplace_back("path in the location", extent.path);
        }
    } catch (const std::exception&) {  // only a file's name
    }
    return description;
}

}  // namespace

// The order is the dispatcher's.
path_description_t DescribePath(const std::string& text) {
    const location_t location = ParseLocation(text);
    if (location.isRemote) {
        return describe_agent(location);
    }
    const std::string mapped = CCorvelCtx::Inst()->TryMapRelativePath(text);
    if (mapped != text) {
        return {"relative", {{"path", text}, {"mapped", mapped}}};
    }
    if (tarn::flrfs_operations_t::IsFlrFsPath(text)) {
        return {"restore view", {{"path", text.substr(tarn::flrfs_operations_t::GetFlrFsPrefix().size())}}};
    }
    if (tarn::tdatafs::tdatafs_path_t::IsTapeDataFsPath(text)) {
        return describe_tape(text);
    }
    if (tarn::memfs::memfs_path_t::IsMemFsPath(text)) {
        return {"memory", {{"slot", tarn::memfs::memfs_path_t(text).GetSlotName()}}};
    }
    if (tarn::blobfs::blobfs_operations_t::IsBlobFsPath(text)) {
        return describe_blob(text);
    }
    return describe_host(text);
}

}  // namespace agent
