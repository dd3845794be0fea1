#include "agent/copy/open_tree.h"

#include <cerrno>
#include <utility>

#include "agent/copy/host_tree.h"
#include "agent/copy/view_tree.h"
#include "agent/path/describe_path.h"
#include "agent/path/location.h"
#include "agent/send/agent_tree.h"
#include "agent/tree/opened_place.h"
#include "mirrowen/posix/errno_exc.h"
#include "tarn/flr/flrfs_operations.h"
#include "tarn/flr/view_resolver.h"
#include "tarn/tarn_context.h"

namespace agent::copy {

namespace {

opened_tree_t open_host(const std::string& text) {
    opened_place_t place = OpenPlace(text);
    return {std::make_shared<host_tree_t>(std::move(place.root)), std::move(place.top), std::move(place.baseName)};
}

std::string last_component(const std::string& path) {
    const std::size_t end = path.find_last_not_of('/');
    return end == std::string::npos ? std::string() : path.substr(0, end + 1).substr(path.find_last_of('/', end) + 1);
}

opened_tree_t open_view(const std::string& text) {
    using last_link_t = tarn::view_resolver_t::ELastLink;
    const auto rules = tarn::CTarnContext::Instance().GetFLRContext();
    const std::string path = text.substr(tarn::flrfs_operations_t::GetFlrFsPrefix().size());
    const std::string place = tarn::view_resolver_t(*rules).ResolveInView(
        path, path.ends_with('/') ? last_link_t::eFollow : last_link_t::eKeep);
    opened_tree_t opened{std::make_shared<view_tree_t>(rules), place.substr(1),
                         last_component(tarn::view_resolver_t::Normalise(path))};
    if (!opened.tree->TryExamine(opened.top)) {
        throw posix::errno_exc_t("Failed to open [%1]", text, ENOENT);
    }
    return opened;
}

opened_tree_t open_agent(const location_t& location, const net::remote_options_t& remote,
                         io::block::EBufTransformType compression) {
    opened_tree_t opened{std::make_shared<send::agent_tree_t>(location.endpoint, remote, compression), location.path,
                         last_component(location.path)};
    if (!opened.tree->TryExamine(opened.top)) {
        throw posix::errno_exc_t("Failed to open [%1]", ToString(location), ENOENT);
    }
    return opened;
}

}  // namespace

std::optional<opened_tree_t> TryOpenTree(const std::string& text, const net::remote_options_t& remote,
                                         io::block::EBufTransformType compression) {
    if (const location_t location = ParseLocation(text); location.isRemote) {
        return open_agent(location, remote, compression);
    }
    const std::string backend = DescribePath(text).backend;
    if (backend == "host") {
        return open_host(text);
    }
    if (backend == "restore view") {
        return open_view(text);
    }
    return std::nullopt;
}

}  // namespace agent::copy
