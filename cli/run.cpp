#include "cli/run.h"

#include <cstdio>

#include "cli/command_line.h"
#include "cli/exit_code.h"
#include "cli/print.h"
#include "cli/verbs.h"
#include "mirrowen/logging/log_sink.h"

namespace cli {

namespace {

/// Calls the function of the verb that was chosen.
struct dispatcher_t {
    bool quiet;

    int operator()(const answered_t& answer) const {
        std::fputs(answer.output.c_str(), stdout);
        std::fputs(answer.error.c_str(), stderr);
        return answer.exitCode;
    }
    int operator()(const serve_args_t& args) const { return RunServe(args, quiet); }
    int operator()(const cp_args_t& args) const { return RunCp(args, quiet); }
    int operator()(const verify_args_t& args) const { return RunVerify(args, quiet); }
    int operator()(const cat_args_t& args) const { return RunCat(args); }
    int operator()(const stat_args_t& args) const { return RunStat(args); }
    int operator()(const list_args_t& args) const { return RunList(args); }
    int operator()(const exists_args_t& args) const { return RunExists(args, quiet); }
    int operator()(const rm_args_t& args) const { return RunRm(args); }
    int operator()(const mkdir_args_t& args) const { return RunMkdir(args); }
    int operator()(const mv_args_t& args) const { return RunMv(args); }
    int operator()(const ln_args_t& args) const { return RunLn(args); }
    int operator()(const path_args_t& args) const { return RunPath(args); }
    int operator()(const blob_pack_args_t& args) const { return RunBlobPack(args, quiet); }
    int operator()(const blob_show_args_t& args) const { return RunBlobShow(args); }
    int operator()(const blob_apply_args_t& args) const { return RunBlobApply(args, quiet); }
};

}  // namespace

int Run(const std::vector<std::string>& arguments) {
    const command_line_t line = ParseCommandLine(arguments);
    logging::SetThreshold(line.logLevel);
    try {
        return std::visit(dispatcher_t{line.quiet}, line.verb);
    } catch (const std::exception& error) {
        PrintError(error);
        return kFailed;
    }
}

}  // namespace cli
