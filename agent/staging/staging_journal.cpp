#include "agent/staging/staging_journal.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string_view>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/crc32c.h"

namespace agent {

namespace {

constexpr std::string_view kRunWord = "run";
constexpr std::string_view kPartialWord = "partial";
constexpr std::size_t kNameLength = 32;
constexpr std::size_t kCheckLength = 8;

/// More is not read: some hundred thousand runs that all crashed.
constexpr std::uint64_t kMaxJournalBytes = std::uint64_t{16} << 20;

constexpr const char* kReadFailed = "Failed to read the journal of [%1]";
constexpr const char* kWriteFailed = "Failed to write the journal of [%1]";

std::string_view WordOf(EJournalWord word) noexcept {
    return word == EJournalWord::eRun ? kRunWord : kPartialWord;
}

std::string CheckOf(std::string_view text) {
    char digits[kCheckLength + 1];
    std::snprintf(digits, sizeof digits, "%08x", util::crc32c(0, text.data(), text.size()));
    return digits;
}

std::string LineOf(const journal_note_t& note) {
    const std::string text = std::string(WordOf(note.word)) + " " + note.name;
    return CheckOf(text) + " " + text + "\n";
}

bool IsName(std::string_view name) noexcept {
    return name.size() == kNameLength && name.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::optional<journal_note_t> Parse(std::string_view line) {
    if (line.size() <= kCheckLength + 1 || line[kCheckLength] != ' ') {
        return std::nullopt;
    }
    const std::string_view text = line.substr(kCheckLength + 1);
    if (line.substr(0, kCheckLength) != CheckOf(text)) {
        return std::nullopt;
    }
    const std::string_view word = text.substr(0, text.find(' '));
    const std::string_view name = text.substr(std::min(word.size() + 1, text.size()));
    if (!IsName(name) || (word != kRunWord && word != kPartialWord)) {
        return std::nullopt;
    }
    return journal_note_t{word == kRunWord ? EJournalWord::eRun : EJournalWord::ePartial, std::string(name)};
}

[[noreturn]] void Throw(const char* format, const confined_root_t& folder) {
    throw posix::errno_exc_t(format, folder.Shown({}), errno);
}

posix::unique_fd_t Open(const confined_root_t& folder, const char* name, int flags) {
    return posix::unique_fd_t(
        posix::sys().openat(folder.GetDescriptor(), name, flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
}

bool EndsInTheMiddleOfALine(int fd, off_t size) {
    char last = '\n';
    return size > 0 && posix::sys().pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

void SyncFolder(const confined_root_t& folder) {
    if (posix::sys().fsync(folder.OpenTop().get()) != 0) {
        Throw(kWriteFailed, folder);
    }
}

}  // namespace

std::vector<journal_note_t> ReadJournal(const confined_root_t& folder) {
    posix::unique_fd_t fd = Open(folder, kJournalName, O_RDONLY);
    if (!fd) {
        if (errno == ENOENT) {
            return {};
        }
        Throw(kReadFailed, folder);
    }
    posix::posix_file_t file(folder.Shown(kJournalName), std::move(fd));
    std::string text(static_cast<std::size_t>(std::min(file.GetSize(), kMaxJournalBytes)), '\0');
    text.resize(file.Read(text.data(), text.size()));
    std::vector<journal_note_t> notes;
    std::string_view rest = text;
    // What comes after the last end of a line was torn.
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        if (auto note = Parse(rest.substr(0, end))) {
            notes.push_back(std::move(*note));
        }
        rest.remove_prefix(end + 1);
    }
    return notes;
}

void AppendToJournal(const confined_root_t& folder, const journal_note_t& note) {
    const posix::unique_fd_t fd = Open(folder, kJournalName, O_RDWR | O_CREAT | O_APPEND);
    struct stat found {};
    if (!fd || posix::sys().fstat(fd.get(), &found) != 0) {
        Throw(kWriteFailed, folder);
    }
    // One write a line: others may append at the same time.
    const std::string line = (EndsInTheMiddleOfALine(fd.get(), found.st_size) ? "\n" : "") + LineOf(note);
    const ssize_t written = posix::sys().write(fd.get(), line.data(), line.size());
    if (written >= 0 && static_cast<std::size_t>(written) != line.size()) {
        errno = ENOSPC;
    }
    if (static_cast<std::size_t>(written) != line.size() || posix::sys().fsync(fd.get()) != 0) {
        Throw(kWriteFailed, folder);
    }
    SyncFolder(folder);
}

void RewriteJournal(const confined_root_t& folder, const std::vector<journal_note_t>& notes) {
    const int dir = folder.GetDescriptor();
    if (notes.empty()) {
        for (const char* name : {kNewJournalName, kJournalName}) {
            if (posix::sys().unlinkat(dir, name, 0) != 0 && errno != ENOENT) {
                Throw(kWriteFailed, folder);
            }
        }
        return;
    }
    std::string text;
    for (const journal_note_t& note : notes) {
        text += LineOf(note);
    }
    posix::unique_fd_t fd = Open(folder, kNewJournalName, O_WRONLY | O_CREAT | O_TRUNC);
    if (!fd) {
        Throw(kWriteFailed, folder);
    }
    posix::posix_file_t file(folder.Shown(kNewJournalName), std::move(fd));
    file.Write(text.data(), text.size());
    file.Flush();
    if (posix::sys().renameat2(dir, kNewJournalName, dir, kJournalName, 0) != 0) {
        Throw(kWriteFailed, folder);
    }
    SyncFolder(folder);
}

}  // namespace agent
