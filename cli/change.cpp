#include "agent/net/remote_session.h"
#include "agent/path/location.h"
#include "agent/query/query_client.h"
#include "cli/exit_code.h"
#include "cli/plaintext.h"
#include "cli/verbs.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/fs_operations.h"

/// The verbs that change one name: rm, mkdir, mv, ln.
namespace cli {

namespace {

std::shared_ptr<tarn::fs_operations_t> backend(const std::string& path) {
    return tarn::fs_operations_t::RecognizeFsPath(path, 0);
}

void refuse_existing(const std::string& path) {
    if (backend(path)->IsObjectExist(path)) {
        throw exc::CAlreadyExistsExc("[" + path + "] exists already.");
    }
}

template <class Change>
int at_agent(std::string_view verb, bool plaintext, const agent::location_t& location, const Change& change) {
    if (!MayTalkPlainly(verb, plaintext)) {
        return kWrongUsage;
    }
    agent::query::query_client_t client(location.endpoint, {});
    change(client);
    return kDone;
}

void link_remotely(const ln_args_t& args, const agent::location_t& link) {
    agent::net::remote_session_t session(link.endpoint, {});
    if (!args.overwrite) {
        std::set<std::string> existing;
        session.Client().CheckWhatFilesExist({link.path}, existing);
        if (!existing.empty()) {
            throw exc::CAlreadyExistsExc("[" + args.link + "] exists already.");
        }
    }
    session.Client().UploadSymLink(link.path, args.target);
    session.End();
}

}  // namespace

int RunRm(const rm_args_t& args) {
    const agent::location_t location = agent::ParseLocation(args.path);
    if (location.isRemote) {
        return at_agent("rm", args.plaintext, location, [&](auto& client) { client.Remove(location.path); });
    }
    backend(args.path)->DeleteFile(args.path);
    return kDone;
}

int RunMkdir(const mkdir_args_t& args) {
    const agent::location_t location = agent::ParseLocation(args.path);
    if (location.isRemote) {
        return at_agent("mkdir", args.plaintext, location, [&](auto& client) { client.MakeDirectory(location.path); });
    }
    refuse_existing(args.path);
    backend(args.path)->CreateDir(args.path);
    return kDone;
}

int RunMv(const mv_args_t& args) {
    const agent::location_t from = agent::ParseLocation(args.from);
    const agent::location_t to = agent::ParseLocation(args.to);
    if (from.isRemote != to.isRemote || from.endpoint != to.endpoint) {
        throw exc::CRuntimeExc("[%1] and [%2] are at different places: tarn mv only renames, tarn cp copies.",
                               args.from, args.to);
    }
    if (from.isRemote) {
        const auto replace = args.overwrite ? agent::EReplace::eYes : agent::EReplace::eNo;
        return at_agent("mv", args.plaintext, from, [&](auto& client) { client.Move(from.path, to.path, replace); });
    }
    const auto operations = backend(args.from);
    if (!operations->IsRenameSupported()) {
        throw exc::CRuntimeExc("The place of [%1] cannot rename.", args.from);
    }
    if (!args.overwrite) {
        refuse_existing(args.to);
    }
    operations->RenameFile(args.from, args.to);
    return kDone;
}

int RunLn(const ln_args_t& args) {
    const agent::location_t link = agent::ParseLocation(args.link);
    if (link.isRemote) {
        if (!MayTalkPlainly("ln", args.plaintext)) {
            return kWrongUsage;
        }
        link_remotely(args, link);
        return kDone;
    }
    const auto operations = backend(args.link);
    if (!args.overwrite) {
        refuse_existing(args.link);
    }
    operations->CreateSymLink(args.link, tarn::CSymlinkData(tarn::ESymlinkType::eFileLink, args.target));
    return kDone;
}

}  // namespace cli
