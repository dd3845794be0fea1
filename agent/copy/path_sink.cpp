#include "agent/copy/path_sink.h"

#include <utility>

#include "agent/copy/content_hasher.h"
#include "brannock/transmission/transmit.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/seq_fileblocks_reader.h"
#include "tarn/blocks/seq_fileblocks_writer.h"
#include "tarn/fs_operations.h"

namespace agent::copy {

path_sink_t::path_sink_t(std::string path, const copy_options_t& options) : path_(std::move(path)), options_(options) {}

path_sink_t::~path_sink_t() = default;

bool path_sink_t::IsDirectory(const std::string&) {
    return false;
}

std::optional<std::string> path_sink_t::FindInTheWay(const std::vector<question_t>& questions) {
    if (!questions.empty() && tarn::fs_operations_t::RecognizeFsPath(path_, 0)->IsObjectExist(path_)) {
        return questions.front().path;
    }
    return std::nullopt;
}

std::vector<std::optional<object_brief_t>> path_sink_t::Examine(const std::vector<std::string>& paths) {
    return std::vector<std::optional<object_brief_t>>(paths.size());
}

std::optional<query::content_digest_t> path_sink_t::Digest(const std::string&) {
    const auto operations = tarn::fs_operations_t::RecognizeFsPath(path_, 0);
    if (!operations->IsObjectExist(path_)) {
        return std::nullopt;
    }
    std::shared_ptr<tarn::file_rstream_t> stream = operations->OpenFile4Read(path_);
    const std::uint64_t size = stream->GetFileSize();
    tarn::seq_fileblocks_reader_t content(std::move(stream), options_.blockSize, size);
    content_hasher_t hasher;
    HashFirst(content, size, hasher);
    return hasher.Get();
}

std::optional<partial_t> path_sink_t::FindPartial(const std::string&, std::uint64_t, const util::SFileTime&) {
    return std::nullopt;
}

item_sink_t::committed_t path_sink_t::Commit(const guid::guid_t&, std::uint64_t) {
    throw exc::CNotImplExc("path_sink_t", "Commit");
}

void path_sink_t::Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t size,
                      bool overwrite, std::shared_ptr<progress::progress_base_t> progress,
                      std::vector<copy_note_t>& /*warnings*/) {
    if (item.kind != EItemKind::eFile || !item.path.empty()) {
        throw exc::CRuntimeExc("[%1] takes a single file.", path_);
    }
    auto stream = tarn::fs_operations_t::RecognizeFsPath(path_, 0)->CreateNewFile(path_, size, overwrite);
    brannock::transmission::transmission_cfg_t cfg(options_.blockSize, brannock::transmission::kTransportVersion);
    cfg.EnableSequensor();
    brannock::transmission::Transmit(std::move(source),
                                     std::make_shared<tarn::seq_fileblocks_writer_t>(std::move(stream)), cfg,
                                     std::move(progress));
}

void path_sink_t::End() {}

std::string path_sink_t::Shown(const std::string&) const {
    return path_;
}

}  // namespace agent::copy
