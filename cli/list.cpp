#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "agent/copy/open_tree.h"
#include "agent/path/location.h"
#include "agent/tree/list_tree.h"
#include "cli/exit_code.h"
#include "cli/maps.h"
#include "cli/plaintext.h"
#include "cli/print.h"
#include "cli/text.h"
#include "cli/verbs.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"
#include "mirrowen/util/str_format.h"
#include "tarn/lindir/lin_dir_enum.h"
#include "tarn/tarn_context.h"

namespace cli {

namespace {

using agent::EEntryKind;
using agent::object_brief_t;
using agent::tree_entry_t;
using json_t = nlohmann::ordered_json;

char kind_letter(EEntryKind kind) {
    switch (kind) {
        case EEntryKind::eFile:
            return '-';
        case EEntryKind::eDirectory:
            return 'd';
        case EEntryKind::eLink:
            return 'l';
        case EEntryKind::eFifo:
            return 'p';
        case EEntryKind::eSocket:
            return 's';
        case EEntryKind::eDevice:
            break;
    }
    return 'v';
}

std::string name_of(const util::SPrincipal& principal) {
    return principal.name.empty() ? std::to_string(principal.id) : Printable(principal.name);
}

// As `ls -l` shows it, the time in UTC.
std::string line(const std::string& name, const object_brief_t& brief) {
    char numbers[64];
    std::snprintf(numbers, sizeof numbers, "%3llu", static_cast<unsigned long long>(brief.links));
    char size[32];
    std::snprintf(size, sizeof size, "%12llu", static_cast<unsigned long long>(brief.size));
    std::string text = kind_letter(brief.kind) + tarn::lindir::lin_dir_enum::formatPermissions(brief.mode, false);
    text +=
        util::str_format(" %1 %2 %3 %4 %5Z %6", std::string_view(numbers), name_of(brief.owner), name_of(brief.group),
                         std::string_view(size), TimeText(brief.modificationTime).substr(0, 19), Printable(name));
    return brief.kind == EEntryKind::eLink ? text + " -> " + Printable(brief.target) : text;
}

json_t principal_json(const util::SPrincipal& principal) {
    return {{"name", Printable(principal.name)}, {"id", principal.id}};
}

json_t describe(const std::string& name, const object_brief_t& brief) {
    json_t out;
    out["name"] = Printable(name);
    out["type"] = agent::NameOfKind(brief.kind);
    out["size"] = brief.size;
    out["mode"] = ModeText(brief.mode);
    out["owner"] = principal_json(brief.owner);
    out["group"] = principal_json(brief.group);
    out["modified"] = TimeText(brief.modificationTime);
    out["links"] = brief.links;
    if (brief.kind == EEntryKind::eLink) {
        out["target"] = Printable(brief.target);
    }
    return out;
}

/// Prints what it is told, an entry at a time, so a large tree takes no memory.
class printer_t {
  public:
    printer_t(const std::string& top, bool json) : top_(top), json_(json) {}

    void Tell(const tree_entry_t& entry) {
        const std::string name = NameOf(entry.name);
        if (!entry.fault.empty()) {
            ++faults_;
            PrintNote(Printable(name) + ": " + entry.fault);
        } else if (!json_) {
            PrintLine(line(name, entry.brief));
        } else {
            WriteOut(++told_ == 1 ? "[\n" : ",\n");
            WriteOut(describe(name, entry.brief).dump());
        }
    }

    int End() {
        if (json_) {
            WriteOut(told_ == 0 ? "[]\n" : "\n]\n");
        }
        return faults_ == 0 ? kDone : kPartlyFailed;
    }

  private:
    // Below the listed directory; an object that is listed alone has its own name.
    std::string NameOf(const std::string& name) const {
        if (name == top_) {
            return name.substr(name.find_last_of('/') + 1);
        }
        return top_.empty() ? name : name.substr(top_.size() + 1);
    }

    const std::string top_;
    const bool json_;
    std::size_t told_ = 0;
    std::size_t faults_ = 0;
};

int print_xml(const std::string& path) {
    tarn::CTarnContext& context = tarn::CTarnContext::Instance();
    std::wstring xml;
    context.CloseFilesEnum(context.StartEnumFiles(util::str_utf82w(path), xml));
    WriteOut(util::str_w2utf8(xml) + "\n");
    return kDone;
}

}  // namespace

int RunList(const list_args_t& args) {
    const bool remote = agent::ParseLocation(args.path).isRemote;
    if (remote && !MayTalkPlainly("list", args.plaintext)) {
        return kWrongUsage;
    }
    if (remote && args.xml) {
        throw exc::CRuntimeExc("[%1] cannot be described as XML: it is an object of another agent.", args.path);
    }
    if (args.xml) {
        return print_xml(args.path);
    }
    ApplyMaps(args.maps);
    const std::optional<agent::copy::opened_tree_t> opened =
        agent::copy::TryOpenTree(args.path, {}, io::block::EBufTransformType::eNone);
    if (!opened) {
        throw exc::CRuntimeExc("[%1] cannot be listed: it is no host path, nor one of a restore view or of an agent.",
                               args.path);
    }
    printer_t printer(opened->top, args.json);
    agent::ListTree(*opened->tree, opened->top, {args.recursive, args.mask},
                    [&](const tree_entry_t& entry) { printer.Tell(entry); });
    return printer.End();
}

}  // namespace cli
