#pragma once

#include "cli/command_line.h"

/// What each verb does: calls into the agent and the library, and prints. Every function returns the exit code and
/// throws what failed; the caller prints that.
namespace cli {

int RunServe(const serve_args_t& args, bool quiet);
int RunCp(const cp_args_t& args, bool quiet);
int RunVerify(const verify_args_t& args, bool quiet);
int RunCat(const cat_args_t& args);
int RunStat(const stat_args_t& args);
int RunList(const list_args_t& args);
int RunExists(const exists_args_t& args, bool quiet);
int RunRm(const rm_args_t& args);
int RunMkdir(const mkdir_args_t& args);
int RunMv(const mv_args_t& args);
int RunLn(const ln_args_t& args);
int RunPath(const path_args_t& args);
int RunBlobPack(const blob_pack_args_t& args, bool quiet);
int RunBlobShow(const blob_show_args_t& args);
int RunBlobApply(const blob_apply_args_t& args, bool quiet);

}  // namespace cli
