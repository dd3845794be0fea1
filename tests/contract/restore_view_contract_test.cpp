// The suite of read-only views over the restore view.
#include "tarn/flr/flr_context.h"
#include "tarn/tarn_context.h"
#include "tests/contract/view_contract.h"

namespace contract {

class restore_view_t final : public view_t {
  public:
    explicit restore_view_t(const std::string& directory) {
        writeRefusal = "FLR FS is read-only platform.";
        diskRefusal = "Disks are not supported by FLR FS platform.";
        mediaRefusal = "Not supported.";
        tarn::CTarnContext::Instance().GetFLRContext()->AddMappingRule(directory, "/");
    }
    ~restore_view_t() override { tarn::CTarnContext::Instance().GetFLRContext()->Reset(); }

    std::shared_ptr<tarn::fs_operations_t> Operations() override {
        return tarn::fs_operations_t::RecognizeFsPath(Path("file"), 0);
    }
    std::string Path(const std::string& name) const override { return "FlrFS:///" + name; }
};

INSTANTIATE_TEST_SUITE_P(RestoreView, ViewContract,
                         testing::Values(view_subject_t{[](const std::string& directory) -> std::unique_ptr<view_t> {
                             return std::make_unique<restore_view_t>(directory);
                         }}));

}  // namespace contract
