#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/area/area_dev_token.h"
#include "mirrowen/io/binary_stream.h"
#include "tarn/export.h"

namespace tarn {

/// Names one file, by any path that `fs_operations_t::RecognizeFsPath` accepts. Its serial form, the file's moniker, is
/// in docs/formats.md ("File moniker"). Immutable, so it may be shared between threads.
class TARN_API CFileAreaDevToken : public io::area::IAreaDevToken {
  public:
    /// A moniker that is read may announce a path of this many bytes at most.
    static constexpr std::uint32_t kMaxPathBytes = 65536;

    /// Keeps the bytes of `path` exactly as they are.
    explicit CFileAreaDevToken(std::string path);
    ~CFileAreaDevToken() override;

    /// "file".
    std::string GetType() override;
    /// The path, unmasked.
    std::string Path4Log() override;
    /// Writes the moniker. Any failure is thrown as `exc::CRuntimeExc` "Failed to serialize moniker for file reader.
    /// File path: '%1'." with what went wrong as its cause: the stream's own error, also for a path whose length does
    /// not fit into 32 bits.
    void Serial(io::binary_stream_tt& stream) const override;

    std::string GetPath() const { return path_; }

    /// "file": the word that travels outside the moniker and selects the factory.
    static std::string GetTypeString();

    /// Reads a moniker. Any failure is thrown as `exc::CRuntimeExc` "Failed to de-serialize moniker of file reader
    /// object." with its cause: the stream's error when fewer bytes follow than announced, or "Path of [%1] bytes is
    /// longer than the allowed [%2]." Memory grows with the bytes that arrive, so a length that lies costs nothing.
    static std::shared_ptr<io::area::IAreaDevToken> Unserial(io::binary_stream_tt& stream);

  private:
    const std::string path_;
};

}  // namespace tarn
