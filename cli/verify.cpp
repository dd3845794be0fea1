#include "agent/verify/verify.h"

#include "agent/path/location.h"
#include "cli/exit_code.h"
#include "cli/maps.h"
#include "cli/plaintext.h"
#include "cli/print.h"
#include "cli/verbs.h"
#include "mirrowen/util/str_format.h"

namespace cli {

int RunVerify(const verify_args_t& args, bool quiet) {
    const bool remote = agent::ParseLocation(args.first).isRemote || agent::ParseLocation(args.second).isRemote;
    if (remote && !MayTalkPlainly("verify", args.plaintext)) {
        return kWrongUsage;
    }
    ApplyMaps(args.maps);
    agent::verify::verify_options_t options;
    options.owners = !args.ignoreOwner;
    options.numericOwner = args.numericOwner;
    const agent::verify::verify_report_t report = agent::verify::Verify(args.first, args.second, options);
    for (const auto& difference : report.differences) {
        PrintLine(difference.path.empty() ? difference.text : Printable(difference.path) + ": " + difference.text);
    }
    if (!quiet) {
        PrintLine(util::str_format("%1 files, %2 directories, %3 links, %4 bytes compared%5; %6 differences",
                                   report.files, report.directories, report.links, report.bytes,
                                   options.owners ? "" : ", owner and group left out", report.differences.size()));
    }
    return report.differences.empty() ? kDone : kFailed;
}

}  // namespace cli
