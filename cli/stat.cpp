#include <nlohmann/json.hpp>
#include <optional>

#include "agent/path/location.h"
#include "agent/query/query_client.h"
#include "cli/exit_code.h"
#include "cli/maps.h"
#include "cli/plaintext.h"
#include "cli/print.h"
#include "cli/text.h"
#include "cli/verbs.h"
#include "mirrowen/util/str_format.h"
#include "tarn/fs_operations.h"

namespace cli {

namespace {

using json_t = nlohmann::ordered_json;

json_t principal_json(const util::SPrincipal& principal) {
    return {{"name", Printable(principal.name)}, {"id", principal.id}};
}

/// What is known of a file, wherever it is.
struct found_t {
    util::CFileInfo info;  ///< unset where a backend keeps no attributes
    std::uint64_t size = 0;
    std::optional<std::string> target;  ///< of a link
};

found_t look_here(const std::string& path) {
    const auto operations = tarn::fs_operations_t::RecognizeFsPath(path, 0);
    found_t found;
    tarn::CSymlinkData link;
    if (operations->TryGetSymLinkInfo(path, link)) {
        found.target = static_cast<std::string>(link);
    }
    found.info = operations->GetFileMetadata(path, tarn::EFileInfoType::eFileInfoBasic);
    found.size = found.info.isSet() ? found.info.size : operations->OpenFile4Read(path)->GetFileSize();
    return found;
}

found_t look_there(const agent::location_t& location) {
    agent::query::query_client_t client(location.endpoint, {});
    found_t found;
    found.info = client.ReadInfo(location.path);
    found.size = found.info.size;
    if (found.info.isSymlink()) {
        const auto link = client.Examine({location.path}).front();
        found.target = link ? link->target : std::string();
    }
    return found;
}

json_t describe(const std::string& path, const found_t& found) {
    const util::CFileInfo& info = found.info;
    json_t out;
    out["path"] = Printable(path);
    if (info.isSet()) {
        out["type"] = TypeText(info.type);
        out["size"] = found.size;
        out["mode"] = ModeText(info.mode);
        out["owner"] = principal_json(info.owner);
        out["group"] = principal_json(info.group);
        out["modified"] = TimeText(info.modificationTime);
        out["accessed"] = TimeText(info.accessTime);
        out["changed"] = TimeText(info.changeTime);
    } else {
        out["size"] = found.size;
    }
    if (found.target) {
        out["target"] = Printable(*found.target);
    }
    for (const auto& attribute : info.attributes) {
        out["attributes"].push_back({{"name", Printable(attribute.name)}, {"value", Printable(attribute.value)}});
    }
    return out;
}

std::string plain(const json_t& value) {
    if (value.is_object() && value.contains("id")) {
        return util::str_format("%1 (%2)", value["name"].get<std::string>(), value["id"].get<std::uint32_t>());
    }
    return value.is_string() ? value.get<std::string>() : value.dump();
}

}  // namespace

int RunStat(const stat_args_t& args) {
    ApplyMaps(args.maps);
    const agent::location_t location = agent::ParseLocation(args.path);
    if (location.isRemote && !MayTalkPlainly("stat", args.plaintext)) {
        return kWrongUsage;
    }
    const json_t description = describe(args.path, location.isRemote ? look_there(location) : look_here(args.path));
    if (args.json) {
        PrintLine(description.dump(2));
        return kDone;
    }
    for (const auto& [name, value] : description.items()) {
        PrintLine(util::str_format("%1: %2", name, plain(value)));
    }
    return kDone;
}

}  // namespace cli
