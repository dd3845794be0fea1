#include "agent/serve/serve.h"

#include <csignal>
#include <utility>

#include "cli/exit_code.h"
#include "cli/interrupt.h"
#include "cli/print.h"
#include "cli/verbs.h"
#include "mirrowen/util/str_format.h"

namespace cli {

namespace {

void print_session(const agent::net::session_report_t& report) noexcept {
    try {
        PrintLine(util::str_format("session %1 %2 ms %3", report.peer, report.duration.count(),
                                   report.error.empty() ? std::string("ended") : "failed: " + Printable(report.error)));
    } catch (...) {  // whoever read the lines has gone; the sessions go on
    }
}

agent::serve::serve_options_t options_of(const serve_args_t& args, bool quiet) {
    agent::serve::serve_options_t options;
    options.endpoint = agent::net::ParseEndpoint(args.listen);
    options.root = args.root;
    options.maxSessions = args.maxSessions;
    options.idleTimeout = std::chrono::seconds(args.idleSeconds);
    options.keepPartial = std::chrono::hours(24) * args.keepPartialDays;
    options.numericOwner = args.numericOwner;
    options.confinement = args.unconfined ? agent::serve::EConfinement::eNone : agent::serve::EConfinement::eKernel;
    if (!quiet) {
        options.onSessionEnd = print_session;
    }
    return options;
}

void print_notes(const agent::serve::server_t& server) {
    PrintNote("warning: --plaintext: whoever can connect to " + ToString(server.GetEndpoint()) +
              " can read and write below the root as this user; nothing is encrypted");
    const std::optional<agent::confinement_t>& confinement = server.GetConfinement();
    if (!confinement) {
        PrintNote("warning: --unconfined: no kernel barrier keeps sessions below the root, only this program's checks");
    } else if (confinement->by == agent::EConfinedBy::eUserNamespace) {
        PrintNote("confined in a user namespace: files can belong to this user and group only");
    }
    if (confinement && confinement->landlock == 0) {
        PrintNote("the kernel offers no Landlock: the root is confined by namespaces alone");
    }
}

int serve(agent::serve::serve_options_t options, bool quiet) {
    agent::serve::server_t server(std::move(options));
    const interrupt_t interrupt;  // before the line that tells others that we are there
    if (!quiet) {
        print_notes(server);
    }
    PrintLine("listening on " + ToString(server.GetEndpoint()));
    server.Run(interrupt.GetToken());
    return kDone;
}

}  // namespace

int RunServe(const serve_args_t& args, bool quiet) {
    if (!args.plaintext) {
        PrintNote("serve needs --plaintext: encrypted connections are not there yet");
        return kWrongUsage;
    }
    // Whoever reads our lines may leave; that must not end the sessions.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return serve(options_of(args, quiet), quiet);
    } catch (const agent::confine_exc_t& error) {
        PrintError(error);
        PrintNote(
            "serve lets the kernel confine it to the root, as root or in a user namespace; where that cannot be,"
            " --unconfined serves this machine without");
        return kFailed;
    }
}

}  // namespace cli
