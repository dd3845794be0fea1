#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "brannock/transmission/net/netmngr_cfg.h"
#include "mirrowen/cnt/array.h"
#include "mirrowen/io/area/area_dev_factory.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/in_out.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/support/blocks.h"

/// What tests of the file upload dialogue need: messages byte by byte, and a kind of item that notes what is done with
/// it.
namespace tests {

/// Bytes of a message, put together by hand.
class message_t {
  public:
    message_t& U32(std::uint64_t value) { return Number(value, 4); }
    message_t& U64(std::uint64_t value) { return Number(value, 8); }
    message_t& Text(std::string_view text) {
        U32(text.size());
        bytes_.append(text);
        return *this;
    }
    message_t& Raw(std::string_view bytes) {
        bytes_.append(bytes);
        return *this;
    }
    message_t& Ok() { return U32(0); }
    message_t& Error(std::string_view text) { return U32(1).Text(text); }
    message_t& AlreadyExists(std::string_view text) { return U32(2).Text(text); }

    const std::string& Bytes() const { return bytes_; }
    operator std::string() const { return bytes_; }  // NOLINT: a message is its bytes

  private:
    message_t& Number(std::uint64_t value, int count) {
        for (int i = 0; i < count; ++i) {
            bytes_.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
        }
        return *this;
    }

    std::string bytes_;
};

/// What `value.Serial` or another writer puts into a stream.
inline std::string BytesWritten(const std::function<void(io::binary_stream_tt&)>& write) {
    const auto bytes = std::make_shared<cnt::array_t<char>>();
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<cnt::array_t<char>>>(bytes));
    write(stream);
    return {bytes->begin(), bytes->end()};
}

inline std::string BytesOf(const brannock::transmission::net::netmngr_cfg_t& cfg) {
    return BytesWritten([&](io::binary_stream_tt& stream) { cfg.Serial(stream); });
}

/// A console that keeps what is printed.
class recording_console_t final : public io::IInOut {
  public:
    void Print(std::string_view text) override { text_ += text; }
    const std::string& Text() const { return text_; }

  private:
    std::string text_;
};

/// A target in memory that takes plain blocks at their offsets.
class probe_device_t final : public io::area::area_write_dev_t {
  public:
    explicit probe_device_t(std::string name) : name_(std::move(name)) {}

    std::string GetDisplayName() override { return name_; }
    void Write(std::shared_ptr<io::area::area_t> /*area*/) override { throw std::logic_error("bare bytes"); }
    void Write(std::shared_ptr<io::area::IArea> area) override {
        if (failure) {
            failure();
        }
        for (std::uint64_t i = 0; i < area->GetBlockCount(); ++i) {
            const auto block = area->GetBlock(i);
            const auto offset = static_cast<std::size_t>(block->GetIdentity().offset);
            const std::string bytes = block->IsSparseBlock()
                                          ? std::string(static_cast<std::size_t>(block->GetIdentity().size), '\0')
                                          : BytesOf(*block);
            content.resize(std::max(content.size(), offset + bytes.size()));
            content.replace(offset, bytes.size(), bytes);
            area->ReleaseBlock(i);
        }
    }
    void Finish(std::shared_ptr<synch::completion_port_t> /*port*/) override {
        if (finishFailure) {
            finishFailure();
        }
        ++finished;
    }

    std::string content;
    int finished = 0;
    std::function<void()> failure;        ///< called before each area; throws to refuse it
    std::function<void()> finishFailure;  ///< called by Finish

  private:
    std::string name_;
};

/// A token of type "probe": its serial form is a string.
class probe_token_t final : public io::area::IAreaDevToken {
  public:
    explicit probe_token_t(std::string path) : path_(std::move(path)) {}

    std::string GetType() override { return "probe"; }
    std::string Path4Log() override { return "<" + path_ + ">"; }
    void Serial(io::binary_stream_tt& stream) const override { stream.WriteString(path_); }

  private:
    std::string path_;
};

/// Opens `device` for every token of type "probe" and notes the calls.
class probe_factory_t final : public io::area::IAreaDevFactory {
  public:
    void EnumTokenTypes(std::vector<std::string>& types) override { types.emplace_back("probe"); }

    std::shared_ptr<io::area::IAreaDevToken> LoadToken(const std::string& type,
                                                       io::binary_stream_tt& stream) const override {
        auto token = std::make_shared<probe_token_t>(stream.ReadString());
        calls.push_back("LoadToken " + type + " " + token->Path4Log());
        return token;
    }

    std::shared_ptr<io::area::area_read_dev_t> CreateReadDev(
        std::shared_ptr<io::area::IAreaDevToken> /*token*/) const override {
        throw std::logic_error("nobody reads");
    }

    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDev(std::shared_ptr<io::area::IAreaDevToken> token,
                                                               bool incremental, unsigned long* size,
                                                               bool overwrite) override {
        calls.push_back("CreateWriteDev " + token->Path4Log() + (incremental ? " incremental" : "") +
                        (overwrite ? " overwrite " : " ") + std::to_string(*size));
        return Open();
    }

    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDevForHVIR(std::shared_ptr<io::area::IAreaDevToken> token,
                                                                      unsigned long* size) override {
        calls.push_back("CreateWriteDevForHVIR " + token->Path4Log() + " " + std::to_string(*size));
        return Open();
    }

    mutable std::vector<std::string> calls;
    std::shared_ptr<probe_device_t> device = std::make_shared<probe_device_t>("probe device");
    std::function<void()> failure;  ///< called before a device is opened; throws to refuse it

  private:
    std::shared_ptr<io::area::area_write_dev_t> Open() {
        if (failure) {
            failure();
        }
        return device;
    }
};

/// A source of bytes in memory, cut into blocks.
class probe_source_t final : public io::area::area_read_dev_t {
  public:
    explicit probe_source_t(std::string content, std::size_t blockSize = 4096)
        : content_(std::move(content)), blockSize_(blockSize) {}

    std::shared_ptr<io::area::IArea> ReadNext() override {
        if (position_ == content_.size()) {
            return nullptr;
        }
        const std::string bytes = content_.substr(position_, blockSize_);
        auto block = DataBlock(start_ + position_, bytes, index_);
        position_ += bytes.size();
        return std::make_shared<io::area::CDataArea>(index_++, std::move(block));
    }
    std::string GetDisplayName() override { return "probe source"; }
    void SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) override {}

    /// The offset of the first byte in the target.
    void StartAt(std::uint64_t offset) { start_ = offset; }

  private:
    std::string content_;
    std::size_t blockSize_;
    std::size_t position_ = 0;
    std::uint64_t start_ = 0;
    std::uint64_t index_ = 0;
};

}  // namespace tests
