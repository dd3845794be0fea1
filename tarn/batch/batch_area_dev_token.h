#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "mirrowen/io/area/area_dev_token.h"
#include "mirrowen/io/binary_stream.h"
#include "tarn/batch/file_item_spec.h"
#include "tarn/export.h"

namespace tarn::batch {

/// Describes many files that travel as one upload item. Its serial form is in docs/formats.md ("Batch token").
/// Immutable, so it may be shared between threads.
class TARN_API CBatchAreaDevToken : public io::area::IAreaDevToken {
  public:
    /// A token that is read may have this many bytes in its serial form at most, and each of its paths this many.
    static constexpr std::uint64_t kMaxSerialBytes = std::uint64_t{32} << 20;
    static constexpr std::uint32_t kMaxPathBytes = 65536;

    /// Copies the list; everything is kept exactly as it is given.
    CBatchAreaDevToken(const std::list<SFileItemSpec>& items, std::uint64_t total, bool flagA, bool flagB);
    ~CBatchAreaDevToken() override;

    /// "BatchFileUploadToken".
    std::string GetType() override;
    /// "N/A": a batch has no single path.
    std::string Path4Log() override;
    /// Writes the token. Any failure is thrown as `exc::CRuntimeExc` "Failed to serialize batch file upload area
    /// token." with what went wrong as its cause: the stream's own error, or "Unable to cast value from [%1] to [%2]."
    /// for more items than 32 bits count.
    void Serial(io::binary_stream_tt& stream) const override;

    /// "BatchFileUploadToken": the word that travels outside the serial form and selects the factory.
    static std::string GetTokenType();

    /// Reads a token. Any failure is thrown as `exc::CRuntimeExc` "Failed to deserialize batch file upload area token."
    /// with its cause: the stream's error when it ends early, "String of [%1] bytes in the binary stream is longer than
    /// the allowed [%2]." for a path, or "Batch token is longer than the allowed [%1] bytes." Memory grows with the
    /// items that arrive, so a count or a length that lies costs nothing.
    static std::shared_ptr<io::area::IAreaDevToken> Unserial(io::binary_stream_tt& stream);

    /// The files, in order.
    const std::list<SFileItemSpec>& GetItems() const noexcept { return items_; }
    std::uint64_t GetTotal() const noexcept { return total_; }
    bool GetFlagA() const noexcept { return flagA_; }
    bool GetFlagB() const noexcept { return flagB_; }

  private:
    const std::list<SFileItemSpec> items_;
    const std::uint64_t total_;
    const bool flagA_;
    const bool flagB_;
};

}  // namespace tarn::batch
