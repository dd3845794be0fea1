#include "cli/notes.h"

#include "cli/print.h"
#include "mirrowen/util/str_format.h"

namespace cli {

void PrintNotes(const std::vector<agent::copy::copy_note_t>& notes, std::string_view what) {
    for (const auto& note : notes) {
        PrintNote(util::str_format("%1 %2: %3", what, Printable(note.path), note.text));
    }
}

}  // namespace cli
