#include "agent/blob/apply_blob.h"

#include "agent/blob/blob_files.h"
#include "cli/exit_code.h"
#include "cli/print.h"
#include "cli/verbs.h"
#include "mirrowen/util/str_format.h"

namespace cli {

namespace {

void print_fault(const std::exception_ptr& fault) {
    try {
        std::rethrow_exception(fault);
    } catch (const std::exception& error) {
        PrintError(error);
    }
}

void print_failure(const std::string& path, const std::string& text) {
    PrintNote(util::str_format("failed %1: %2", Printable(path), text));
}

}  // namespace

int RunBlobApply(const blob_apply_args_t& args, bool quiet) {
    const std::vector<std::string> files = agent::blob::ExpandBlobPaths(args.files);
    std::size_t consumed = 0;
    std::uint64_t failures = 0;
    for (const std::string& file : files) {
        const agent::blob::applied_t applied = agent::blob::ApplyBlob(file, print_failure);
        failures += applied.failures;
        if (applied.fault) {
            print_fault(applied.fault);
        }
        if (!applied.isConsumed) {  // those behind it may go on with what it would have begun
            break;
        }
        ++consumed;
    }
    if (!quiet) {
        PrintLine(util::str_format("%1 blob files applied, %2 left; %3 failures", consumed, files.size() - consumed,
                                   failures));
    }
    if (consumed == files.size()) {
        return failures == 0 ? kDone : kPartlyFailed;
    }
    return consumed == 0 ? kFailed : kPartlyFailed;
}

}  // namespace cli
