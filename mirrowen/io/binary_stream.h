#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "mirrowen/export.h"
#include "mirrowen/io/io_dev.h"

namespace io {

/// Reads and writes the house's binary encoding over a device, as docs/formats.md ("Binary encoding") gives it:
/// integers little-endian without padding, booleans as u32 0 or 1, strings as a u32 byte count and the bytes. One
/// thread at a time.
///
/// Errors, all `exc::CRuntimeExc`, besides the device's own:
/// - "Failed to retrieve value from the binary stream: received less bytes (%1) than expected (%2)."
/// - "Failed to write value to the binary stream: written less bytes (%1) than expected (%2)."
/// - "Unable to cast value from [%1] to [%2]." for a string of more than 4294967295 bytes.
class MIRROWEN_API binary_stream_tt {
  public:
    /// `device` is shared with whoever else speaks on it and may not be empty.
    explicit binary_stream_tt(std::shared_ptr<io_dev_t> device);
    virtual ~binary_stream_tt();
    binary_stream_tt(const binary_stream_tt&) = delete;
    binary_stream_tt& operator=(const binary_stream_tt&) = delete;

    const std::shared_ptr<io_dev_t>& GetDevice() const noexcept { return device_; }

    /// Reads all `count` bytes, in as many pieces as the device gives; only the device's end makes a read short.
    void ReadExact(void* buffer, std::size_t count);
    std::uint8_t ReadU8();
    std::uint16_t ReadU16();
    std::uint32_t ReadU32();
    std::uint64_t ReadU64();
    /// A u32; zero is false, anything else true.
    bool ReadFlag();
    /// Room is made as the bytes arrive, 64 KiB at a time, so a length that lies allocates nothing.
    std::string ReadString();
    /// As ReadString, and a length above `maximum` throws "String of [%1] bytes in the binary stream is longer than the
    /// allowed [%2]." before its bytes are read.
    std::string ReadString(std::uint32_t maximum);
    /// `count` raw bytes, read with the same care.
    std::string ReadBytes(std::uint64_t count);

    /// Writes all bytes with one call of the device; one that takes fewer is full, and is not asked again.
    void WriteExact(const void* buffer, std::size_t count);
    void WriteU8(std::uint8_t value);
    void WriteU16(std::uint16_t value);
    void WriteU32(std::uint32_t value);
    void WriteU64(std::uint64_t value);
    void WriteFlag(bool value);
    void WriteString(std::string_view text);
    /// Hands what was written on to the far end.
    void Flush();

  private:
    std::shared_ptr<io_dev_t> device_;
};

}  // namespace io
