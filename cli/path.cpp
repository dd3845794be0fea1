#include <nlohmann/json.hpp>

#include "agent/path/describe_path.h"
#include "cli/exit_code.h"
#include "cli/print.h"
#include "cli/verbs.h"

namespace cli {

int RunPath(const path_args_t& args) {
    const agent::path_description_t description = agent::DescribePath(args.text);
    if (args.json) {
        nlohmann::ordered_json out;
        out["backend"] = description.backend;
        for (const auto& [name, value] : description.fields) {
            out[name] = Printable(value);
        }
        PrintLine(out.dump(2));
        return kDone;
    }
    PrintLine("backend: " + description.backend);
    for (const auto& [name, value] : description.fields) {
        PrintLine(name + ": " + Printable(value));
    }
    return kDone;
}

}  // namespace cli
