#include "mirrowen/io/binary_stream.h"

#include <algorithm>
#include <array>
#include <concepts>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/little_endian.h"
#include "mirrowen/util/numeric_cast.h"

namespace io {

namespace {

// A length from outside never makes more room than this beyond what has arrived.
constexpr std::size_t kReadStep = std::size_t{64} << 10;

// Devices such as sockets deliver in pieces; only their end (0) makes a read short.
std::size_t ReadUpTo(io_dev_t& device, void* buffer, std::size_t count) {
    std::size_t received = 0;
    while (received < count) {
        const std::size_t part = device.Read(static_cast<std::byte*>(buffer) + received, count - received);
        if (part == 0) {
            break;
        }
        received += part;
    }
    return received;
}

void CheckReceived(std::uint64_t received, std::uint64_t expected) {
    if (received != expected) {
        throw exc::CRuntimeExc(
            "Failed to retrieve value from the binary stream: received less bytes (%1) than expected (%2).", received,
            expected);
    }
}

template <std::unsigned_integral T>
T ReadInteger(binary_stream_tt& stream) {
    std::array<std::byte, sizeof(T)> bytes;
    stream.ReadExact(bytes.data(), bytes.size());
    return DecodeLittleEndian<T>(bytes.data());
}

template <std::unsigned_integral T>
void WriteInteger(binary_stream_tt& stream, T value) {
    std::array<std::byte, sizeof(T)> bytes;
    EncodeLittleEndian(value, bytes.data());
    stream.WriteExact(bytes.data(), bytes.size());
}

}  // namespace

binary_stream_tt::binary_stream_tt(std::shared_ptr<io_dev_t> device) : device_(std::move(device)) {
    if (!device_) {
        throw exc::CRuntimeExc("Binary stream needs a device.");
    }
}

binary_stream_tt::~binary_stream_tt() = default;

void binary_stream_tt::ReadExact(void* buffer, std::size_t count) {
    CheckReceived(ReadUpTo(*device_, buffer, count), count);
}

std::uint8_t binary_stream_tt::ReadU8() {
    return ReadInteger<std::uint8_t>(*this);
}

std::uint16_t binary_stream_tt::ReadU16() {
    return ReadInteger<std::uint16_t>(*this);
}

std::uint32_t binary_stream_tt::ReadU32() {
    return ReadInteger<std::uint32_t>(*this);
}

std::uint64_t binary_stream_tt::ReadU64() {
    return ReadInteger<std::uint64_t>(*this);
}

bool binary_stream_tt::ReadFlag() {
    return ReadU32() != 0;
}

std::string binary_stream_tt::ReadString() {
    return ReadBytes(ReadU32());
}

std::string binary_stream_tt::ReadString(std::uint32_t maximum) {
    const std::uint32_t length = ReadU32();
    if (length > maximum) {
        throw exc::CRuntimeExc("String of [%1] bytes in the binary stream is longer than the allowed [%2].", length,
                               maximum);
    }
    return ReadBytes(length);
}

std::string binary_stream_tt::ReadBytes(std::uint64_t count) {
    std::string bytes;
    while (bytes.size() < count) {
        const std::size_t before = bytes.size();
        const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(kReadStep, count - before));
        bytes.resize(before + step);
        const std::size_t received = ReadUpTo(*device_, bytes.data() + before, step);
        if (received != step) {
            CheckReceived(before + received, count);
        }
    }
    return bytes;
}

void binary_stream_tt::WriteExact(const void* buffer, std::size_t count) {
    const std::size_t written = count == 0 ? 0 : device_->Write(buffer, count);
    if (written != count) {
        throw exc::CRuntimeExc(
            "Failed to write value to the binary stream: written less bytes (%1) than expected (%2).", written, count);
    }
}

void binary_stream_tt::WriteU8(std::uint8_t value) {
    WriteInteger(*this, value);
}

void binary_stream_tt::WriteU16(std::uint16_t value) {
    WriteInteger(*this, value);
}

void binary_stream_tt::WriteU32(std::uint32_t value) {
    WriteInteger(*this, value);
}

void binary_stream_tt::WriteU64(std::uint64_t value) {
    WriteInteger(*this, value);
}

void binary_stream_tt::WriteFlag(bool value) {
    WriteU32(value ? 1 : 0);
}

void binary_stream_tt::WriteString(std::string_view text) {
    WriteU32(util::numeric_cast<std::uint32_t>(text.size()));
    WriteExact(text.data(), text.size());
}

void binary_stream_tt::Flush() {
    device_->Flush();
}

}  // namespace io
