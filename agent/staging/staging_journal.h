#pragma once

#include <string>
#include <vector>

#include "agent/root/confined_root.h"

namespace agent {

/// What a line of the journal says lies in the staging folder.
enum class EJournalWord {
    eRun,      ///< the folder with the staged names of one process
    ePartial,  ///< a file in "partial" that may be resumed
};

struct journal_note_t {
    EJournalWord word = EJournalWord::eRun;
    std::string name;  ///< 32 lower-case hexadecimal digits
    friend bool operator==(const journal_note_t&, const journal_note_t&) = default;
};

/// The journal of a staging folder: every name that may lie in it was written here, and synced, before it was made, so
/// that whoever clears the folder knows what is ours. The layout is in docs/formats.md ("Staging journal"). `folder` is
/// the staging folder. Several processes may append at a time; reading to rewrite takes the folder's lock alone.
inline constexpr const char* kJournalName = "journal";
/// The new journal until it takes the old one's place.
inline constexpr const char* kNewJournalName = "journal.new";

/// The notes in their order; none when there is no journal. A line that is torn, damaged or not known is left out.
/// Throws `posix::errno_exc_t` "Failed to read the journal of [%1]".
std::vector<journal_note_t> ReadJournal(const confined_root_t& folder);

/// Adds a note and returns when it is durable. Throws `posix::errno_exc_t` "Failed to write the journal of [%1]".
void AppendToJournal(const confined_root_t& folder, const journal_note_t& note);

/// Puts a journal with just these notes in the place of the old one, in one step; without notes it is removed. Errors
/// as above.
void RewriteJournal(const confined_root_t& folder, const std::vector<journal_note_t>& notes);

}  // namespace agent
