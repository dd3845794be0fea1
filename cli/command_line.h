#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "agent/batch/batch_format.h"
#include "mirrowen/io/block/block_math.h"
#include "mirrowen/logging/log_level.h"

/// What a person typed, taken apart. Nothing here does anything yet.
namespace cli {

/// A restore view: the mount point `mount` of a backup stands for the host directory `real`.
struct mapping_t {
    std::string real;
    std::string mount;
};

struct serve_args_t {
    std::string listen;
    std::string root;
    bool plaintext = false;
    std::size_t maxSessions = 64;
    std::uint32_t idleSeconds = 120;
    std::uint32_t keepPartialDays = 7;
    bool numericOwner = false;
    bool unconfined = false;
};

struct cp_args_t {
    std::vector<std::string> sources;
    std::string destination;
    bool recursive = false;
    bool overwrite = false;
    bool numericOwner = false;
    bool plaintext = false;
    std::vector<mapping_t> maps;
    std::string compress = "lz4";
    std::uint64_t blockSize = io::block::kDefaultBlockSize;
    std::uint64_t batchLimit = agent::batch::kDefaultBatchFile;
    bool noBatch = false;
    std::string durable = "tree";
    bool strict = false;
    bool force = false;
    bool checksum = false;
    bool verify = false;
    bool dryRun = false;
    std::uint32_t keepPartialDays = 7;
};

struct verify_args_t {
    std::string first;
    std::string second;
    bool ignoreOwner = false;
    bool numericOwner = false;
    bool plaintext = false;
    std::vector<mapping_t> maps;
};

struct cat_args_t {
    std::string path;
    bool plaintext = false;
    std::vector<mapping_t> maps;
};

struct stat_args_t {
    std::string path;
    bool json = false;
    bool plaintext = false;
    std::vector<mapping_t> maps;
};

struct list_args_t {
    std::string path;
    std::string mask;
    bool recursive = false;
    bool json = false;
    bool xml = false;
    bool plaintext = false;
    std::vector<mapping_t> maps;
};

struct exists_args_t {
    std::vector<std::string> paths;
    bool plaintext = false;
    std::vector<mapping_t> maps;
};

struct rm_args_t {
    std::string path;
    bool plaintext = false;
};

struct mkdir_args_t {
    std::string path;
    bool plaintext = false;
};

struct mv_args_t {
    std::string from;
    std::string to;
    bool overwrite = false;
    bool plaintext = false;
};

struct ln_args_t {
    std::string target;
    std::string link;
    bool overwrite = false;
    bool plaintext = false;
};

struct path_args_t {
    std::string text;
    bool json = false;
};

struct blob_pack_args_t {
    std::vector<std::string> sources;
    std::string folder;
    std::string target;
    bool overwrite = false;
    std::vector<mapping_t> maps;
};

struct blob_show_args_t {
    std::string file;
    bool json = false;
};

struct blob_apply_args_t {
    std::vector<std::string> files;
};

/// The parser has answered by itself (`--help`, `--version`, wrong usage): print and leave.
struct answered_t {
    int exitCode = 0;
    std::string output;  ///< for standard output
    std::string error;   ///< for standard error
};

using verb_t = std::variant<answered_t, serve_args_t, cp_args_t, verify_args_t, cat_args_t, stat_args_t, list_args_t,
                            exists_args_t, rm_args_t, mkdir_args_t, mv_args_t, ln_args_t, path_args_t, blob_pack_args_t,
                            blob_show_args_t, blob_apply_args_t>;

struct command_line_t {
    logging::ELevel logLevel = logging::ELevel::eOff;
    bool quiet = false;
    verb_t verb;
};

/// Takes the arguments after the program's name. Never throws for what a person typed: wrong usage is an `answered_t`
/// with exit code 2.
command_line_t ParseCommandLine(const std::vector<std::string>& arguments);

}  // namespace cli
