#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mirrowen/io/area/area_dev_factory.h"
#include "tarn/export.h"

namespace tarn {

/// Opens the file that a `CFileAreaDevToken` names for writing, through the backend of its path. It cannot read.
/// Stateless: one instance serves any number of calls on any threads. An agent registers it in `CCorvelCtx` to serve
/// token type "file".
class TARN_API CFileAreaDevFactory : public io::area::IAreaDevFactory {
  public:
    ~CFileAreaDevFactory() override;

    /// Appends "file"; what is in `types` already stays.
    void EnumTokenTypes(std::vector<std::string>& types) override;

    /// Reads the moniker of a file. A `type` other than "file" (exact bytes) throws `exc::CRuntimeExc` "Specified type
    /// of reader '%1' is not supported by the file factory." before anything is read; otherwise as
    /// `CFileAreaDevToken::Unserial`.
    std::shared_ptr<io::area::IAreaDevToken> LoadToken(const std::string& type,
                                                       io::binary_stream_tt& stream) const override;

    /// Always throws `exc::CRuntimeExc` "CFileAreaDevFactory::CreateReadDev(): not implemented.".
    std::shared_ptr<io::area::area_read_dev_t> CreateReadDev(
        std::shared_ptr<io::area::IAreaDevToken> token) const override;

    /// A device that writes into the file: with `incremental` blocks in any order into the existing file, which is
    /// first set to `*size` bytes; otherwise blocks in order into a new file of `*size` bytes, for which `overwrite`
    /// says whether an existing one may be replaced (it is deleted first). A null `size` counts as 0. The device owns
    /// the stream and closes it.
    ///
    /// Errors: `exc::CRuntimeExc` "Invalid type of the specified token: '%1'." for an empty token or one of another
    /// class; `exc::CAlreadyExistsExc` of the backend, unchanged; any other failure as `exc::CRuntimeExc` "Failed to
    /// create file writer. File path: '%1'." with its cause.
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDev(std::shared_ptr<io::area::IAreaDevToken> token,
                                                               bool incremental, unsigned long* size,
                                                               bool overwrite) override;

    /// Always throws `exc::CRuntimeExc` "CFileAreaDevFactory::CreateWriteDevForHVIR not implemented".
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDevForHVIR(std::shared_ptr<io::area::IAreaDevToken> token,
                                                                      unsigned long* size) override;
};

}  // namespace tarn
