#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "agent/blob/blob_contents.h"
#include "cli/exit_code.h"
#include "cli/print.h"
#include "cli/text.h"
#include "cli/verbs.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/str_format.h"
#include "tarn/blobfs/blob_layout.h"

namespace cli {

namespace {

using agent::blob::blob_contents_t;
using agent::blob::EChecksum;
using agent::blob::shown_command_t;
using tarn::blobfs::eBlobCmd;
using json_t = nlohmann::ordered_json;

std::string hex_text(std::uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", number);
    return text;
}

const char* checksum_text(EChecksum checksum) {
    switch (checksum) {
        case EChecksum::eAbsent:
            return "absent";
        case EChecksum::eGood:
            return "good";
        case EChecksum::eWrong:
            return "wrong";
        case EChecksum::eUnknown:
            break;
    }
    return "unknown";
}

std::string type_text(std::uint32_t type) {
    switch (static_cast<eBlobCmd>(type)) {
        case eBlobCmd::eCreateDir:
            return "create directory";
        case eBlobCmd::eCreateFile:
            return "create file";
        case eBlobCmd::eWriteFile:
            return "write file";
        case eBlobCmd::eSetFileMetadata:
            return "set metadata";
    }
    return "command " + std::to_string(type);
}

struct totals_t {
    std::uint64_t commands = 0;
    std::uint64_t directories = 0;
    std::uint64_t files = 0;
    std::uint64_t writes = 0;
    std::uint64_t bytes = 0;
    std::uint64_t metadata = 0;
    std::uint64_t faults = 0;

    void Add(const shown_command_t& command) {
        ++commands;
        if (!command.fault.empty()) {
            ++faults;
            return;
        }
        const auto type = static_cast<eBlobCmd>(command.type);
        directories += type == eBlobCmd::eCreateDir ? 1 : 0;
        files += type == eBlobCmd::eCreateFile ? 1 : 0;
        writes += type == eBlobCmd::eWriteFile ? 1 : 0;
        metadata += type == eBlobCmd::eSetFileMetadata ? 1 : 0;
        bytes += command.bytes;
    }
};

/// Prints what it is told, a command at a time, so that many commands take no memory.
class shower_t {
  public:
    virtual ~shower_t() = default;
    virtual void Begin(const std::string& file, const blob_contents_t& contents) = 0;
    virtual void Command(const shown_command_t& command) = 0;
    /// `error` is empty when nothing was wrong.
    virtual void End(const totals_t& totals, const std::string& error) = 0;
};

std::string name_of(const util::SPrincipal& principal) {
    return principal.name.empty() ? std::to_string(principal.id) : Printable(principal.name);
}

std::string details(const shown_command_t& command) {
    if (!command.fault.empty()) {
        return " (" + Printable(command.fault) + ")";
    }
    if (command.offset) {
        return util::str_format(": %1 bytes at %2", command.bytes, *command.offset);
    }
    if (command.info) {
        const util::CFileInfo& info = *command.info;
        return util::str_format(": %1 %2 %3 %4 %5 %6", TypeText(info.type), ModeText(info.mode), name_of(info.owner),
                                name_of(info.group), info.size, TimeText(info.modificationTime));
    }
    return command.overwrite.value_or(false) ? ", made anew" : "";
}

class table_t final : public shower_t {
  public:
    void Begin(const std::string& file, const blob_contents_t& contents) override {
        std::string line = util::str_format("%1: %2 bytes", Printable(file), contents.fileSize);
        if (contents.header) {
            line += util::str_format(", %1 unpacked, magic %2, checksum %3 (%4)",
                                     std::uint32_t{contents.header->uncompressedLength},
                                     hex_text(contents.header->magicAndFlags), hex_text(contents.header->checksum),
                                     checksum_text(contents.checksum));
        }
        PrintLine(line);
    }

    void Command(const shown_command_t& command) override {
        std::string type = type_text(command.type);
        type.resize(std::max<std::size_t>(type.size(), kTypeWidth), ' ');
        PrintLine(type + "  " + (command.path.empty() ? "(no path)" : Printable(command.path)) + details(command));
    }

    void End(const totals_t& totals, const std::string& /*error*/) override {
        PrintLine(util::str_format("%1 commands: %2 directories, %3 files, %4 writes of %5 bytes, %6 metadata",
                                   totals.commands, totals.directories, totals.files, totals.writes, totals.bytes,
                                   totals.metadata));
    }

  private:
    static constexpr std::size_t kTypeWidth = 16;
};

json_t principal_json(const util::SPrincipal& principal) {
    return {{"name", Printable(principal.name)}, {"id", principal.id}};
}

json_t info_json(const util::CFileInfo& info) {
    json_t out;
    out["type"] = TypeText(info.type);
    out["size"] = info.size;
    out["mode"] = ModeText(info.mode);
    out["owner"] = principal_json(info.owner);
    out["group"] = principal_json(info.group);
    out["modified"] = TimeText(info.modificationTime);
    return out;
}

json_t header_json(const blob_contents_t& contents) {
    if (!contents.header) {
        return nullptr;
    }
    return {{"magic", hex_text(contents.header->magicAndFlags)},
            {"checksum", hex_text(contents.header->checksum)},
            {"verdict", checksum_text(contents.checksum)},
            {"length", std::uint32_t{contents.header->uncompressedLength}}};
}

json_t command_json(const shown_command_t& command) {
    json_t out;
    out["at"] = command.at;
    out["length"] = command.length;
    out["type"] = type_text(command.type);
    out["path"] = Printable(command.path);
    out["inherited"] = command.keepsPath;
    if (!command.fault.empty()) {
        out["error"] = Printable(command.fault);
    }
    if (command.overwrite) {
        out["overwrite"] = *command.overwrite;
    }
    if (command.offset) {
        out["offset"] = *command.offset;
        out["bytes"] = command.bytes;
    }
    if (command.info) {
        out["info"] = info_json(*command.info);
    }
    return out;
}

class document_t final : public shower_t {
  public:
    void Begin(const std::string& file, const blob_contents_t& contents) override {
        WriteOut("{\"file\": " + json_t(Printable(file)).dump() + ",\n\"size\": " + json_t(contents.fileSize).dump() +
                 ",\n\"header\": " + header_json(contents).dump() + ",\n\"commands\": [");
    }

    void Command(const shown_command_t& command) override {
        WriteOut(std::exchange(separator_, ",\n") + command_json(command).dump());
    }

    void End(const totals_t& totals, const std::string& error) override {
        const json_t sums = {{"commands", totals.commands}, {"directories", totals.directories},
                             {"files", totals.files},       {"writes", totals.writes},
                             {"bytes", totals.bytes},       {"metadata", totals.metadata}};
        WriteOut("],\n\"totals\": " + sums.dump() +
                 ",\n\"error\": " + (error.empty() ? json_t(nullptr) : json_t(Printable(error))).dump() + "}\n");
    }

  private:
    std::string separator_ = "\n";
};

std::string text_of(const std::exception_ptr& fault) {
    try {
        std::rethrow_exception(fault);
    } catch (const std::exception& error) {
        return error.what();
    }
}

// What is wrong with the file, told behind what could be read of it. Empty when nothing is.
std::exception_ptr show(const std::string& file, const blob_contents_t& contents, shower_t& shower) {
    totals_t totals;
    std::exception_ptr fault = contents.fault;
    shower.Begin(file, contents);
    try {
        if (contents.payload) {
            agent::blob::TellCommands(*contents.payload, [&](const shown_command_t& command) {
                totals.Add(command);
                shower.Command(command);
            });
        }
        if (totals.faults != 0 && !fault) {
            throw exc::CRuntimeExc("%1 commands cannot be applied.", totals.faults);
        }
    } catch (const posix::errno_exc_t&) {  // of the output
        throw;
    } catch (const std::exception&) {
        fault = fault ? fault : std::current_exception();
    }
    shower.End(totals, fault ? text_of(fault) : "");
    return fault;
}

}  // namespace

int RunBlobShow(const blob_show_args_t& args) {
    const blob_contents_t contents = agent::blob::ReadBlob(args.file);
    std::unique_ptr<shower_t> shower;
    if (args.json) {
        shower = std::make_unique<document_t>();
    } else {
        shower = std::make_unique<table_t>();
    }
    if (const std::exception_ptr fault = show(args.file, contents, *shower)) {
        std::rethrow_exception(fault);
    }
    return kDone;
}

}  // namespace cli
