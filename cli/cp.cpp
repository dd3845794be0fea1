#include "agent/copy/copy.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "agent/path/location.h"
#include "cli/exit_code.h"
#include "cli/interrupt.h"
#include "cli/maps.h"
#include "cli/notes.h"
#include "cli/plaintext.h"
#include "cli/print.h"
#include "cli/progress_bar.h"
#include "cli/verbs.h"
#include "mirrowen/util/str_format.h"

namespace cli {

namespace {

io::block::EBufTransformType transform_named(const std::string& name) {
    if (name == "lz4") {
        return io::block::EBufTransformType::eLz4;
    }
    return name == "zstd" ? io::block::EBufTransformType::eZstd : io::block::EBufTransformType::eNone;
}

// A figure that is rarely worth a word.
std::string when_any(std::uint64_t count, std::string_view what) {
    return count == 0 ? "" : util::str_format(", %1 %2", count, what);
}

std::string summary(const agent::copy::copy_report_t& report, std::chrono::duration<double> time) {
    const double rate = static_cast<double>(report.bytes) / 1e6 / std::max(time.count(), 1e-3);
    char timing[64];
    std::snprintf(timing, sizeof timing, "%.1f s, %.1f MB/s", time.count(), rate);
    return util::str_format("%1 files, %2 directories, %3 links%4, %5 bytes%6, %7; %8 skipped%9", report.files,
                            report.directories, report.links, when_any(report.hardLinks, "hard links"), report.bytes,
                            when_any(report.resumedBytes, "resumed"), std::string_view(timing), report.skipped.size(),
                            when_any(report.unchanged, "unchanged")) +
           util::str_format(", %1 warnings, %2 failed", report.warnings.size(), report.failed.size());
}

agent::copy::EDurability durability_named(const std::string& name) {
    if (name == "each") {
        return agent::copy::EDurability::eEach;
    }
    return name == "none" ? agent::copy::EDurability::eNone : agent::copy::EDurability::eTree;
}

agent::copy::copy_options_t options_of(const cp_args_t& args, const interrupt_t& interrupt) {
    agent::copy::copy_options_t options;
    options.recursive = args.recursive;
    options.overwrite = args.overwrite;
    options.numericOwner = args.numericOwner;
    options.durability = durability_named(args.durable);
    options.strict = args.strict;
    options.force = args.force;
    options.checksum = args.checksum;
    options.verify = args.verify;
    options.dryRun = args.dryRun;
    options.keepPartial = std::chrono::hours(24) * args.keepPartialDays;
    options.compression = transform_named(args.compress);
    options.blockSize = args.blockSize;
    options.batchLimit = args.noBatch ? 0 : args.batchLimit;
    options.remote.stop = interrupt.GetToken();
    return options;
}

void print_outcome(const agent::copy::copy_report_t& report, bool quiet) {
    if (!quiet) {
        PrintNotes(report.skipped, "skipped");
        PrintNotes(report.warnings, "warning");
    }
    PrintNotes(report.failed, "failed");
}

/// Prints what a dry run would do.
class decision_printer_t final : public agent::copy::copy_observer_t {
  public:
    void OnDecision(const std::string& action, const std::string& path) override {
        PrintLine(action + " " + Printable(path));
    }
};

int dry_run(const cp_args_t& args, const agent::copy::copy_options_t& options) {
    decision_printer_t printer;
    const agent::copy::copy_report_t report = agent::copy::Copy(args.sources, args.destination, options, printer);
    PrintNotes(report.failed, "failed");
    return report.failed.empty() ? kDone : kPartlyFailed;
}

int copy_for_real(const cp_args_t& args, const agent::copy::copy_options_t& options, bool quiet) {
    const auto begin = std::chrono::steady_clock::now();
    agent::copy::copy_report_t report;
    {
        progress_bar_t bar(quiet);
        report = agent::copy::Copy(args.sources, args.destination, options, bar);
    }
    print_outcome(report, quiet);
    if (!quiet) {
        PrintLine(summary(report, std::chrono::steady_clock::now() - begin));
    }
    return report.failed.empty() ? kDone : kPartlyFailed;
}

bool reaches_agent(const cp_args_t& args) {
    const auto isRemote = [](const std::string& place) { return agent::ParseLocation(place).isRemote; };
    return isRemote(args.destination) || std::any_of(args.sources.begin(), args.sources.end(), isRemote);
}

}  // namespace

int RunCp(const cp_args_t& args, bool quiet) {
    if (reaches_agent(args) && !MayTalkPlainly("cp", args.plaintext)) {
        return kWrongUsage;
    }
    if (args.checksum && !args.overwrite) {
        PrintNote("--checksum looks for files that need not be replaced: it goes with --overwrite");
        return kWrongUsage;
    }
    ApplyMaps(args.maps);
    const interrupt_t interrupt;
    const agent::copy::copy_options_t options = options_of(args, interrupt);
    try {
        return args.dryRun ? dry_run(args, options) : copy_for_real(args, options, quiet);
    } catch (const std::exception&) {
        if (interrupt.GetSignal() != 0) {
            PrintNote("interrupted");
            return kInterrupted;
        }
        throw;
    }
}

}  // namespace cli
