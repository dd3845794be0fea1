#include "agent/copy/copy_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <optional>
#include <utility>

#include "agent/copy/descriptor_rstream.h"
#include "agent/copy/open_tree.h"
#include "mirrowen/posix/errno_exc.h"
#include "tarn/blocks/seq_fileblocks_reader.h"
#include "tarn/fs_operations.h"

namespace agent::copy {

namespace {

std::string base_name(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

posix::unique_fd_t duplicate_input() {
    posix::unique_fd_t fd(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!fd) {
        throw posix::errno_exc_t("Failed to open [%1]", "standard input", errno);
    }
    return fd;
}

}  // namespace

copy_source_t OpenCopySource(const std::string& text, const copy_options_t& options) {
    if (text == "-") {
        return {copy_source_t::EForm::eInput, text, "", nullptr, ""};
    }
    std::optional<opened_tree_t> opened = TryOpenTree(text, options.remote, options.compression);
    if (!opened) {
        return {copy_source_t::EForm::ePath, text, base_name(text), nullptr, ""};
    }
    return {copy_source_t::EForm::eTree, text, std::move(opened->baseName), std::move(opened->tree),
            std::move(opened->top)};
}

loaded_item_t LoadSingle(const copy_source_t& source, const std::string& name, std::uint64_t blockSize,
                         const net::remote_options_t& limits) {
    loaded_item_t loaded;
    loaded.item.kind = EItemKind::eFile;
    loaded.item.path = name;
    std::shared_ptr<tarn::file_rstream_t> stream;
    std::uint64_t end = std::numeric_limits<std::uint64_t>::max();
    if (source.form == copy_source_t::EForm::eInput) {
        stream = std::make_shared<descriptor_rstream_t>("standard input", duplicate_input(), limits);
    } else {
        stream = tarn::fs_operations_t::RecognizeFsPath(source.text, 0)->OpenFile4Read(source.text);
        loaded.size = stream->GetFileSize();
        end = loaded.size;
    }
    loaded.source = std::make_shared<tarn::seq_fileblocks_reader_t>(std::move(stream), blockSize, end);
    return loaded;
}

}  // namespace agent::copy
