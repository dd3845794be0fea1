#include "agent/blob/pack.h"
#include "cli/exit_code.h"
#include "cli/maps.h"
#include "cli/notes.h"
#include "cli/print.h"
#include "cli/verbs.h"
#include "mirrowen/util/str_format.h"

namespace cli {

namespace {

std::string summary(const agent::blob::pack_report_t& report) {
    return util::str_format("%1 files, %2 directories, %3 bytes in %4 blob files; %5 skipped, %6 warnings, %7 failed",
                            report.files, report.directories, report.bytes, report.blobFiles.size(),
                            report.skipped.size(), report.warnings.size(), report.failed.size());
}

}  // namespace

int RunBlobPack(const blob_pack_args_t& args, bool quiet) {
    ApplyMaps(args.maps);
    const agent::blob::pack_report_t report =
        agent::blob::Pack(args.sources, {args.folder, args.target, args.overwrite});
    if (!quiet) {
        PrintNotes(report.skipped, "skipped");
        PrintNotes(report.warnings, "warning");
    }
    PrintNotes(report.failed, "failed");
    if (!quiet) {
        for (const std::string& file : report.blobFiles) {
            PrintLine(Printable(file));
        }
        PrintLine(summary(report));
    }
    return report.failed.empty() ? kDone : kPartlyFailed;
}

}  // namespace cli
