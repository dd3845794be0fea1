#include "cli/command_line.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <sstream>

#include "cli/exit_code.h"
#include "cli/print.h"
#include "cli/version.h"

namespace cli {

namespace {

constexpr const char* kExamples =
    "\nExamples:\n"
    "  tarn serve --listen 127.0.0.1:7070 --root /backup --plaintext\n"
    "  tarn cp -r --plaintext /etc tarn://127.0.0.1:7070/host1\n"
    "  tarn verify --plaintext /etc tarn://127.0.0.1:7070/host1\n"
    "  tarn cp -r --plaintext tarn://127.0.0.1:7070/host1 /restored\n"
    "  tarn path --json MemFs://scratch\n\n"
    "A path is any form that the library knows. tarn://HOST:PORT/PATH names a path below the root of a receiving\n"
    "agent. Exit status: 0 done, 1 failed, 2 wrong usage, 3 part of it failed, 130 interrupted.\n";

const std::map<std::string, logging::ELevel> kLevels = {{"trace", logging::ELevel::eTrace},
                                                        {"info", logging::ELevel::eInfo},
                                                        {"warn", logging::ELevel::eWarn},
                                                        {"error", logging::ELevel::eErr},
                                                        {"off", logging::ELevel::eOff}};

/// One verb: its arguments live as long as the parser that fills them.
template <class Args>
std::shared_ptr<Args> add_verb(CLI::App& app, verb_t& chosen, const std::string& name, const std::string& purpose,
                               const std::string& example, CLI::App*& verb) {
    auto args = std::make_shared<Args>();
    verb = app.add_subcommand(name, purpose);
    verb->footer("\nExample:\n  " + example + "\n");
    verb->callback([args, &chosen] { chosen = *args; });
    return args;
}

void add_maps(CLI::App& verb, std::vector<mapping_t>& maps) {
    verb.add_option_function<std::vector<std::string>>(
            "--map",
            [&maps](const std::vector<std::string>& texts) {
                for (const std::string& text : texts) {
                    const std::size_t equals = text.find('=');
                    if (equals == std::string::npos || equals == 0) {
                        throw CLI::ValidationError("--map", "'" + text + "' is not of the form REAL=MOUNT");
                    }
                    maps.push_back({text.substr(0, equals), text.substr(equals + 1)});
                }
            },
            "A restore view: host directory REAL stands for mount point MOUNT (repeatable)")
        ->type_name("REAL=MOUNT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
}

void add_plaintext(CLI::App& verb, bool& plaintext) {
    verb.add_flag("--plaintext", plaintext, "Talk to a receiving agent without encryption");
}

void add_serve(CLI::App& app, verb_t& chosen) {
    CLI::App* verb = nullptr;
    const auto args = add_verb<serve_args_t>(app, chosen, "serve",
                                             "Receive files of other agents below one directory, and send them back",
                                             "tarn serve --listen 127.0.0.1:7070 --root /backup --plaintext", verb);
    verb->add_option("--listen", args->listen, "Address to listen on; port 0 picks one")
        ->required()
        ->type_name("HOST:PORT");
    verb->add_option("--root", args->root, "Directory below which everything is kept")->required()->type_name("DIR");
    verb->add_flag("--plaintext", args->plaintext, "Serve without encryption or authentication");
    verb->add_flag("--unconfined", args->unconfined,
                   "Serve this machine only, without letting the kernel confine the process to the root");
    verb->add_option("--max-sessions", args->maxSessions, "Sessions at the same time")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    verb->add_option("--idle", args->idleSeconds, "Seconds after which a silent peer is given up")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    verb->add_option("--keep-partial", args->keepPartialDays,
                     "Days for which a large file is kept whose transfer broke off; 0 keeps none")
        ->type_name("DAYS")
        ->check(CLI::Range(0, 36500))
        ->capture_default_str();
    verb->add_flag("--numeric-owner", args->numericOwner, "Set owners by number instead of by name first");
}

void add_cp(CLI::App& app, verb_t& chosen) {
    CLI::App* verb = nullptr;
    const auto args = add_verb<cp_args_t>(app, chosen, "cp", "Copy files and trees",
                                          "tarn cp -r --plaintext /etc tarn://127.0.0.1:7070/host1", verb);
    auto places = std::make_shared<std::vector<std::string>>();
    verb->add_option("places", *places, "Sources and the destination; '-' as source is standard input")
        ->required()
        ->expected(2, 1 << 20)
        ->type_name("SRC... DST");
    verb->add_flag("-r,--recursive", args->recursive, "Copy directories with everything in them");
    verb->add_flag("--overwrite", args->overwrite, "Replace what is there, except for what is unchanged");
    verb->add_flag("--numeric-owner", args->numericOwner, "Set owners by number instead of by name first");
    add_plaintext(*verb, args->plaintext);
    verb->add_option("--compress", args->compress, "How blocks that shrink are packed")
        ->check(CLI::IsMember({"lz4", "zstd", "none"}))
        ->capture_default_str();
    verb->add_option("--block-size", args->blockSize, "Bytes of a block")
        ->check(CLI::Range(io::block::kMinBlockSize, io::block::kMaxBlockSize))
        ->capture_default_str();
    CLI::Option* const batchLimit =
        verb->add_option("--batch-limit", args->batchLimit,
                         "To a receiving agent, files of at most this many bytes travel together in batches")
            ->type_name("BYTES")
            ->check(CLI::Range(std::uint64_t{1}, agent::batch::kMaxBatchFile))
            ->capture_default_str();
    verb->add_flag("--no-batch", args->noBatch, "Let every file travel by itself")->excludes(batchLimit);
    verb->add_option("--durable", args->durable,
                     "What waits for the storage: each item or batch, the items of a tree in groups, or none")
        ->check(CLI::IsMember({"each", "tree", "none"}))
        ->capture_default_str();
    verb->add_flag("--force", args->force, "With --overwrite: copy what is unchanged, too");
    verb->add_flag("--checksum", args->checksum,
                   "With --overwrite: compare contents, not times, to find unchanged files");
    verb->add_flag("--verify", args->verify, "Read every file back where it was put and compare it by digest");
    verb->add_flag("--strict", args->strict, "Count an item as failed when an attribute of it was not kept");
    verb->add_option("--keep-partial", args->keepPartialDays,
                     "Days for which a local place keeps what came of a large file; 0: none")
        ->check(CLI::Range(0, 36500))
        ->type_name("DAYS")
        ->capture_default_str();
    verb->add_flag("--dry-run", args->dryRun, "Print what would be done, one line an item, and change nothing");
    add_maps(*verb, args->maps);
    verb->callback([args, places, &chosen] {
        args->sources.assign(places->begin(), places->end() - 1);
        args->destination = places->back();
        chosen = *args;
    });
}

void add_verify(CLI::App& app, verb_t& chosen) {
    CLI::App* verb = nullptr;
    const auto args =
        add_verb<verify_args_t>(app, chosen, "verify", "Compare two files or trees and name each difference",
                                "tarn verify --plaintext /etc tarn://127.0.0.1:7070/host1", verb);
    verb->add_option("first", args->first, "What is right")->required()->type_name("SRC");
    verb->add_option("second", args->second, "What is compared with it")->required()->type_name("DST");
    verb->add_flag("--ignore-owner", args->ignoreOwner, "Leave owner and group out");
    verb->add_flag("--numeric-owner", args->numericOwner, "Compare owners by number instead of by name");
    add_plaintext(*verb, args->plaintext);
    add_maps(*verb, args->maps);
}

void add_reading_verbs(CLI::App& app, verb_t& chosen) {
    CLI::App* verb = nullptr;
    const auto cat = add_verb<cat_args_t>(app, chosen, "cat", "Print a file", "tarn cat /etc/hostname", verb);
    verb->add_option("path", cat->path, "File of any form")->required()->type_name("PATH");
    add_plaintext(*verb, cat->plaintext);
    add_maps(*verb, cat->maps);

    const auto stat = add_verb<stat_args_t>(app, chosen, "stat", "Print what is known of a file",
                                            "tarn stat --json /etc/hostname", verb);
    verb->add_option("path", stat->path, "File of any form")->required()->type_name("PATH");
    verb->add_flag("--json", stat->json, "As JSON");
    add_plaintext(*verb, stat->plaintext);
    add_maps(*verb, stat->maps);

    const auto list = add_verb<list_args_t>(app, chosen, "list", "List a directory, or describe one object",
                                            "tarn list -r --mask '*.conf; *.cfg' /etc", verb);
    verb->add_option("path", list->path, "Host path, path of a restore view or of a receiving agent")
        ->required()
        ->type_name("PATH");
    verb->add_flag("-r,--recursive", list->recursive, "With everything below it");
    verb->add_option("--mask", list->mask, "Only names like this, letter case ignored: '*.txt; *.log'")
        ->type_name("MASK");
    CLI::Option* const json = verb->add_flag("--json", list->json, "As JSON, an array of objects");
    verb->add_flag("--xml", list->xml, "One object that is no directory, as an XML document")->excludes(json);
    add_plaintext(*verb, list->plaintext);
    add_maps(*verb, list->maps);

    const auto exists = add_verb<exists_args_t>(app, chosen, "exists", "Tell which paths exist; status 0 when all do",
                                                "tarn exists --plaintext tarn://127.0.0.1:7070/host1/etc", verb);
    verb->add_option("paths", exists->paths, "Paths of any form")->required()->type_name("PATH...");
    add_plaintext(*verb, exists->plaintext);
    add_maps(*verb, exists->maps);

    const auto path = add_verb<path_args_t>(app, chosen, "path", "Tell which backend a path reaches, and its fields",
                                            "tarn path --json MemFs://scratch", verb);
    verb->add_option("text", path->text, "The path")->required()->type_name("STRING");
    verb->add_flag("--json", path->json, "As JSON");
}

void add_changing_verbs(CLI::App& app, verb_t& chosen) {
    CLI::App* verb = nullptr;
    const auto rm =
        add_verb<rm_args_t>(app, chosen, "rm", "Remove a file, a link or an empty directory", "tarn rm /tmp/old", verb);
    verb->add_option("path", rm->path)->required()->type_name("PATH");
    add_plaintext(*verb, rm->plaintext);

    const auto mkdir = add_verb<mkdir_args_t>(app, chosen, "mkdir", "Make a directory", "tarn mkdir /tmp/new", verb);
    verb->add_option("path", mkdir->path)->required()->type_name("PATH");
    add_plaintext(*verb, mkdir->plaintext);

    const auto mv = add_verb<mv_args_t>(app, chosen, "mv", "Rename a file or directory", "tarn mv a.txt b.txt", verb);
    verb->add_option("old", mv->from)->required()->type_name("OLD");
    verb->add_option("new", mv->to)->required()->type_name("NEW");
    verb->add_flag("--overwrite", mv->overwrite, "Replace what is there");
    add_plaintext(*verb, mv->plaintext);

    const auto ln = add_verb<ln_args_t>(app, chosen, "ln", "Make a symbolic link", "tarn ln ../docs/a.txt a.txt", verb);
    verb->add_option("target", ln->target, "What the link holds")->required()->type_name("TARGET");
    verb->add_option("link", ln->link, "Where the link is made")->required()->type_name("LINK");
    verb->add_flag("--overwrite", ln->overwrite, "Replace what is there");
    add_plaintext(*verb, ln->plaintext);
}

void add_blob_pack(CLI::App& blob, verb_t& chosen) {
    CLI::App* verb = nullptr;
    const auto args =
        add_verb<blob_pack_args_t>(blob, chosen, "pack", "Pack trees into blob files, for another host to apply",
                                   "tarn blob pack /etc --out blobs --target /restored", verb);
    verb->add_option("sources", args->sources,
                     "Files and trees; each goes below the target under its name, 'DIR/.' straight there")
        ->required()
        ->type_name("SRC...");
    verb->add_option("--out", args->folder, "Directory for the blob files, made if it is not there")
        ->required()
        ->type_name("DIR");
    verb->add_option("--target", args->target, "Where everything goes on the host that applies the blob files")
        ->required()
        ->type_name("PATH");
    verb->add_flag("--overwrite", args->overwrite,
                   "Make files anew that are there by then; without it they are written into");
    add_maps(*verb, args->maps);
    verb->footer(
        "\nOnly files and directories can be packed: links are named and count as failures; pipes, sockets and\n"
        "devices are left out. A file with several names becomes several files.\n\n"
        "Example:\n  tarn blob pack /etc --out blobs --target /restored\n");
}

void add_blob(CLI::App& app, verb_t& chosen) {
    CLI::App* const blob = app.add_subcommand("blob", "Pack trees into blob files, look into these, apply them");
    blob->require_subcommand(1);
    blob->footer(
        "\nExample:\n"
        "  tarn blob pack /etc --out blobs --target /restored\n"
        "  tarn blob show blobs/blobfs0\n"
        "  tarn blob apply blobs\n");
    add_blob_pack(*blob, chosen);

    CLI::App* verb = nullptr;
    const auto show = add_verb<blob_show_args_t>(*blob, chosen, "show", "Print what is in a blob file",
                                                 "tarn blob show blobs/blobfs0", verb);
    verb->add_option("file", show->file, "Blob file")->required()->type_name("FILE");
    verb->add_flag("--json", show->json, "As JSON");

    const auto apply =
        add_verb<blob_apply_args_t>(*blob, chosen, "apply", "Do what blob files say, and remove each that was applied",
                                    "tarn blob apply blobs", verb);
    verb->add_option("files", apply->files, "Blob files, or directories with blob files, in this order")
        ->required()
        ->type_name("FILE...");
    verb->footer(
        "\nThe paths in a blob file are taken as they are: whoever made it decides which files are written, deleted "
        "and\n"
        "given to whom. Only apply what you would run as a program. A blob file is removed when it has been applied,\n"
        "also when some of its commands failed; one that is damaged stays, changes nothing and ends the command.\n"
        "Nothing waits for the storage: keep what was packed until this machine has written it.\n\n"
        "Example:\n  tarn blob apply blobs\n");
}

// "tarn", "tarn blob".
std::string verbs_of(const CLI::App& app) {
    return app.get_parent() == nullptr ? app.get_name() : verbs_of(*app.get_parent()) + " " + app.get_name();
}

// What is wrong, in a line. The parser misses a verb where there is a word that is none.
std::string fault_of(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    const CLI::App& asked = chosen.size() == 1 ? *chosen.front() : app;  // "blob" has verbs of its own
    const std::vector<std::string> unknown = app.remaining(true);
    if (asked.get_subcommands().empty() && asked.get_require_subcommand_min() != 0 && !unknown.empty() &&
        !unknown.front().starts_with('-')) {
        return "'" + Printable(unknown.front()) + "' is no verb of " + verbs_of(asked);
    }
    return error.what();
}

answered_t answer(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream err;
    const bool wanted = app.exit(error, out, err) == 0;
    if (wanted) {
        return {kDone, out.str(), ""};
    }
    return {kWrongUsage, "", "tarn: " + fault_of(app, error) + "\nRun 'tarn --help' for how to use it.\n"};
}

}  // namespace

command_line_t ParseCommandLine(const std::vector<std::string>& arguments) {
    command_line_t result;
    CLI::App app("The file layer of a backup agent, from the command line.", "tarn");
    app.footer(kExamples);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("tarn ") + kVersion);
    app.fallthrough();
    app.add_option("--log-level", result.logLevel, "What the log shows: trace, info, warn, error, off")
        ->transform(CLI::CheckedTransformer(kLevels).description(""))
        ->type_name("LEVEL")
        ->default_str("off");
    app.add_flag("--quiet", result.quiet, "Print errors only");
    add_serve(app, result.verb);
    add_cp(app, result.verb);
    add_verify(app, result.verb);
    add_reading_verbs(app, result.verb);
    add_changing_verbs(app, result.verb);
    add_blob(app, result.verb);
    try {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(std::move(reversed));
    } catch (const CLI::ParseError& error) {
        result.verb = answer(app, error);
    }
    return result;
}

}  // namespace cli
