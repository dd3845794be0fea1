#include "tarn/blocks/open_blocks_writer.h"

#include "tarn/blocks/rnd_fileblocks_writer.h"
#include "tarn/blocks/seq_fileblocks_writer.h"
#include "tarn/fs_operations.h"

namespace tarn::blocks {

std::shared_ptr<io::area::area_write_dev_t> OpenBlocksWriter(const std::string& path, std::uint64_t size,
                                                             bool incremental, bool overwrite) {
    const auto backend = fs_operations_t::RecognizeFsPath(path, 0);
    if (incremental) {
        return std::make_shared<rnd_fileblocks_writer_t>(backend->OpenFile4Write(path, size));
    }
    return std::make_shared<seq_fileblocks_writer_t>(backend->CreateNewFile(path, size, overwrite));
}

}  // namespace tarn::blocks
