#include <map>
#include <set>

#include "agent/path/location.h"
#include "agent/query/query_client.h"
#include "cli/exit_code.h"
#include "cli/maps.h"
#include "cli/plaintext.h"
#include "cli/print.h"
#include "cli/verbs.h"
#include "tarn/fs_operations.h"

namespace cli {

namespace {

using questions_t = std::map<std::string, std::vector<std::string>>;  // agent -> paths below its root

std::set<std::string> ask(const std::string& address, const std::vector<std::string>& paths) {
    const auto found = agent::query::query_client_t(agent::net::ParseEndpoint(address), {}).Examine(paths);
    std::set<std::string> existing;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (found[i]) {
            existing.insert(paths[i]);
        }
    }
    return existing;
}

}  // namespace

int RunExists(const exists_args_t& args, bool quiet) {
    ApplyMaps(args.maps);
    questions_t questions;
    for (const std::string& path : args.paths) {
        const agent::location_t location = agent::ParseLocation(path);
        if (location.isRemote) {
            questions[ToString(location.endpoint)].push_back(location.path);
        }
    }
    if (!questions.empty() && !MayTalkPlainly("exists", args.plaintext)) {
        return kWrongUsage;
    }
    std::map<std::string, std::set<std::string>> answers;
    for (const auto& [address, paths] : questions) {
        answers[address] = ask(address, paths);
    }
    bool all = true;
    for (const std::string& path : args.paths) {
        const agent::location_t location = agent::ParseLocation(path);
        const bool exists = location.isRemote ? answers[ToString(location.endpoint)].count(location.path) != 0
                                              : tarn::fs_operations_t::RecognizeFsPath(path, 0)->IsObjectExist(path);
        all = all && exists;
        if (!quiet) {
            PrintLine((exists ? "yes " : "no  ") + Printable(path));
        }
    }
    return all ? kDone : kFailed;
}

}  // namespace cli
