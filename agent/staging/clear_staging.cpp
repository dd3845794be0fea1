#include "agent/staging/clear_staging.h"

#include <fcntl.h>

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "agent/staging/partial_store.h"
#include "agent/staging/staging_journal.h"
#include "agent/staging/staging_names.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("agent");

void RemoveContents(const confined_root_t& folder, const std::string& run) {
    for (const std::string& name : folder.List(run, EOrder::eRaw)) {
        std::string path = run;
        folder.RemoveFile(path.append("/").append(name));
    }
}

/// Whether nothing has the name any more.
bool RemoveRun(const confined_root_t& folder, const std::string& run) {
    try {
        const auto found = folder.TryStat(run);
        if (!found) {
            return true;
        }
        if (S_ISDIR(found->st_mode)) {
            RemoveContents(folder, run);
            folder.RemoveDirectory(run);
        } else {
            folder.RemoveFile(run);
        }
        g_log.info("Removed [%1], which an earlier run left behind.", folder.Shown(run));
        return true;
    } catch (const std::exception& error) {
        g_log.warn("Failed to remove what an earlier run left behind.", error);
        return false;
    }
}

/// Whether nothing is kept under the name any more.
bool RemoveOldPartial(const confined_root_t& folder, const journal_note_t& note, std::chrono::seconds keep) {
    try {
        const std::string place = std::string(kPartialFolder) + "/" + note.name;
        if (!folder.TryStat(place)) {
            return true;
        }
        if (IsPartialKept(folder, note, keep)) {
            return false;
        }
        folder.RemoveFile(place);
        g_log.info("Removed [%1], which was kept long enough.", folder.Shown(place));
        return true;
    } catch (const std::exception& error) {
        g_log.warn("Failed to remove what an earlier run left behind.", error);
        return false;
    }
}

bool IsGone(const confined_root_t& folder, const journal_note_t& note, std::chrono::seconds keepPartial) {
    return note.word == EJournalWord::eRun ? RemoveRun(folder, note.name) : RemoveOldPartial(folder, note, keepPartial);
}

bool IsNoted(const std::vector<journal_note_t>& notes, EJournalWord word, const std::string& name) {
    return std::find(notes.begin(), notes.end(), journal_note_t{word, name}) != notes.end();
}

void WarnOf(const confined_root_t& folder, const std::string& name) {
    g_log.warn("[%1] is none of the staging folder's and is left alone.", folder.Shown(name));
}

void WarnOfForeignPartials(const confined_root_t& folder, const std::vector<journal_note_t>& notes) {
    const auto found = folder.TryStat(kPartialFolder);
    if (!found || !S_ISDIR(found->st_mode)) {
        return;
    }
    for (const std::string& name : folder.List(kPartialFolder, EOrder::eSorted)) {
        if (!IsNoted(notes, EJournalWord::ePartial, name)) {
            WarnOf(folder, std::string(kPartialFolder) + "/" + name);
        }
    }
}

}  // namespace

void ClearStaging(const confined_root_t& folder, std::chrono::seconds keepPartial) {
    std::vector<journal_note_t> notes = ReadJournal(folder);
    std::erase_if(notes, [&](const journal_note_t& note) { return IsGone(folder, note, keepPartial); });
    // One note is enough for a file that came and went under its name.
    std::vector<journal_note_t> kept;
    for (const journal_note_t& note : notes) {
        if (!IsNoted(kept, note.word, note.name)) {
            kept.push_back(note);
        }
    }
    RewriteJournal(folder, kept);
    // Goes when it is empty.
    posix::sys().unlinkat(folder.GetDescriptor(), kPartialFolder, AT_REMOVEDIR);
}

void WarnOfForeignNames(const confined_root_t& folder) {
    const std::vector<journal_note_t> notes = ReadJournal(folder);
    for (const std::string& name : folder.ListTop(EOrder::eSorted)) {
        const bool ours = name == kStagingLockName || name == kJournalName || name == kNewJournalName ||
                          name == kPartialFolder || IsNoted(notes, EJournalWord::eRun, name);
        if (!ours) {
            WarnOf(folder, name);
        }
    }
    WarnOfForeignPartials(folder, notes);
}

}  // namespace agent
