// The suite of backends that are written, over blob files that are applied, and over the host, which both must equal.
#include <optional>

#include "tarn/blobfs/blob_parser.h"
#include "tarn/hostfs/hostfs_operations.h"
#include "tests/contract/writer_contract.h"
#include "tests/support/plain_blobfs_operations.h"

namespace contract {

class host_writer_t final : public writer_t {
  public:
    std::shared_ptr<tarn::fs_operations_t> Operations(const std::string& /*path*/) override {
        return std::make_shared<tarn::hostfs::hostfs_operations_t>();
    }
    std::string Path(const std::string& hostPath) const override { return hostPath; }
    std::string StreamPath(const std::string& hostPath) const override { return hostPath; }
    void Settle() override {}
};

/// Chosen by the dispatcher. Settling ends the batch, applies its files in turn and begins the next batch.
class blob_writer_t final : public writer_t {
  public:
    std::shared_ptr<tarn::fs_operations_t> Operations(const std::string& path) override {
        return tarn::fs_operations_t::RecognizeFsPath(path, 0);
    }
    std::string Path(const std::string& hostPath) const override { return "batch://" + hostPath; }
    std::string StreamPath(const std::string& hostPath) const override { return hostPath; }
    void Settle() override {
        tarn::blobfs::blobfs_operations_t::CloseBlobFsOp("batch://");
        for (const std::string& name : batch_->connection->names) {
            tarn::blobfs::BlobParser().Execute(batch_->connection->dir / name);
        }
        batch_.emplace("batch://");
    }

  private:
    std::optional<tests::blob_batch_t> batch_{std::in_place, "batch://"};
};

template <class Writer>
writer_subject_t WriterOf() {
    return {[]() -> std::unique_ptr<writer_t> { return std::make_unique<Writer>(); }};
}

INSTANTIATE_TEST_SUITE_P(Host, WriterContract, testing::Values(WriterOf<host_writer_t>()));
INSTANTIATE_TEST_SUITE_P(Blob, WriterContract, testing::Values(WriterOf<blob_writer_t>()));

}  // namespace contract
