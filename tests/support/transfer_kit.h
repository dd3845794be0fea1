#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "brannock/transmission/areas_recv_channel.h"
#include "brannock/transmission/areas_send_channel.h"
#include "brannock/transmission/session.h"
#include "brannock/transmission/transmit.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/blocks.h"
#include "tests/support/duplex_dev.h"
#include "tests/support/raw_peer.h"

namespace tests {

/// One end of a connection in memory that belongs to a session. Counts the work that it runs; a fault makes writing
/// fail after a number of bytes.
class session_dev_t final : public io::io_dev_t, public brannock::transmission::ISession {
  public:
    explicit session_dev_t(std::shared_ptr<duplex_dev_t::end_t> end) : end_(std::move(end)) {}

    std::size_t Read(void* buffer, std::size_t count) override {
        const std::size_t part = end_->Read(buffer, count);
        {
            const std::lock_guard lock(mutex_);
            read_ += part;
        }
        changed_.notify_all();
        return part;
    }
    std::size_t Write(const void* buffer, std::size_t count) override {
        if (!NoteWrite(static_cast<const char*>(buffer), count)) {
            throw exc::CRuntimeExc("The wire is cut.");
        }
        return end_->Write(buffer, count);
    }
    void Flush() override { end_->Flush(); }
    void Cancel() noexcept override { end_->Close(); }

    std::future<void> Run(std::function<void()> work) override {
        ++runs_;
        return std::async(std::launch::async, [this, work = std::move(work)] {
            ++running_;
            work();
            --running_;
        });
    }
    std::stop_token GetStopToken() const override { return stop_.get_token(); }
    std::uint64_t NextItemNumber() override { return items_++; }
    std::chrono::milliseconds GetIdleTimeout() const override { return std::chrono::seconds(120); }
    std::uint64_t GetMinimumRate() const override { return rate_; }

    void FailWritesAfter(std::size_t bytes) { writable_ = bytes; }
    void SetMinimumRate(std::uint64_t rate) { rate_ = rate; }
    void RequestStop() { stop_.request_stop(); }
    int GetRuns() const { return runs_; }
    int GetRunning() const { return running_; }
    std::string GetWritten() const {
        const std::lock_guard lock(mutex_);
        return written_;
    }

    /// Waits until more than `size` bytes were written; false when that never comes.
    bool WaitForMoreThan(std::size_t size) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return written_.size() > size; });
    }

    /// Waits until a write has failed; false when none does.
    bool WaitForCut() const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return cut_; });
    }

    /// Waits until `size` bytes were read; false when that never comes.
    bool WaitForRead(std::size_t size) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return read_ >= size; });
    }

  private:
    bool NoteWrite(const char* bytes, std::size_t count) {
        const std::lock_guard lock(mutex_);
        const bool fits = count <= writable_;
        cut_ = cut_ || !fits;
        if (fits) {
            writable_ -= count;
            written_.append(bytes, count);
        }
        changed_.notify_all();
        return fits;
    }

    const std::shared_ptr<duplex_dev_t::end_t> end_;
    std::size_t writable_ = SIZE_MAX;
    std::uint64_t rate_ = 0;
    std::uint64_t items_ = 0;
    std::stop_source stop_;
    std::atomic<int> runs_ = 0;
    std::atomic<int> running_ = 0;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::string written_;
    std::size_t read_ = 0;
    bool cut_ = false;
};

/// A source of blocks of one size; `block` makes the bytes of each, an empty text a sparse one.
class block_source_dev_t : public io::area::area_read_dev_t {
  public:
    block_source_dev_t(std::uint64_t count, std::uint64_t size, std::function<std::string(std::uint64_t)> block)
        : count_(count), size_(size), block_(std::move(block)) {}

    std::shared_ptr<io::area::IArea> ReadNext() override {
        if (next_ == count_) {
            return nullptr;
        }
        const std::uint64_t index = next_++;
        const std::string bytes = block_(index);
        auto block = bytes.empty() ? io::block::CFibBlock::NewSparseBlock(offset_, index, size_)
                                   : DataBlock(offset_, bytes, index);
        offset_ += block->GetIdentity().size;
        return std::make_shared<io::area::CDataArea>(index, std::move(block));
    }
    std::string GetDisplayName() override { return "blocks"; }
    void SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) override {}

  private:
    const std::uint64_t count_;
    const std::uint64_t size_;
    const std::function<std::string(std::uint64_t)> block_;
    std::uint64_t next_ = 0;
    std::uint64_t offset_ = 0;
};

/// The blocks of `text`.
inline std::shared_ptr<block_source_dev_t> SourceOf(const std::string& text, std::size_t blockSize = 4096) {
    return std::make_shared<block_source_dev_t>(
        (text.size() + blockSize - 1) / blockSize, blockSize,
        [text, blockSize](std::uint64_t index) { return text.substr(index * blockSize, blockSize); });
}

/// Collects what is written to it. The hooks, when set, run before a block is taken and in Finish.
class collecting_dev_t : public io::area::area_write_dev_t {
  public:
    std::string GetDisplayName() override { return "collector"; }
    void Write(std::shared_ptr<io::area::area_t> /*area*/) override { throw std::logic_error("bare bytes"); }
    void Write(std::shared_ptr<io::area::IArea> area) override {
        const auto block = area->GetBlock(0);
        if (onBlock) {
            onBlock(*block);
        }
        if (keep) {
            bytes += block->IsSparseBlock() ? std::string(block->GetIdentity().size, '\0') : BytesOf(*block);
        }
        sparse += block->IsSparseBlock() ? 1 : 0;
        ++blocks;
    }
    void Finish(std::shared_ptr<synch::completion_port_t> port) override {
        ++finished;
        if (onFinish) {
            onFinish(*port);
        }
    }

    std::function<void(const io::block::CFibBlock&)> onBlock;
    std::function<void(synch::completion_port_t&)> onFinish;
    bool keep = true;
    std::string bytes;
    std::uint64_t blocks = 0;
    std::uint64_t sparse = 0;
    int finished = 0;
};

/// Two sessions with a connection between them, and transfers over it.
class transfer_kit_t {
  public:
    using cfg_t = brannock::transmission::transmission_cfg_t;

    explicit transfer_kit_t(std::size_t capacity = 65536) : wire(capacity) {
        left = std::make_shared<session_dev_t>(wire.Left());
        right = std::make_shared<session_dev_t>(wire.Right());
    }

    void Send(std::shared_ptr<io::area::area_read_dev_t> source,
              std::shared_ptr<progress::progress_base_t> progress = nullptr) {
        namespace bt = brannock::transmission;
        bt::Transmit(std::move(source), bt::areas_send_channel_t::Create(left, cfg.GetNetMngrCfg(), 1), cfg, progress);
    }
    void Receive(std::shared_ptr<io::area::area_write_dev_t> destination) {
        namespace bt = brannock::transmission;
        cfg_t receiving(cfg.GetBlockSize(), 1);
        receiving.EnableCompression(std::make_shared<io::block::buf_transforms_history_t>());
        receiving.SetNetMngrCfg(cfg.GetNetMngrCfg());
        auto channel = std::make_shared<bt::areas_recv_channel_t>("item", right, receiving.GetNetMngrCfg(), 1);
        bt::Transmit(channel, std::move(destination), receiving, nullptr, offset);
    }

    /// Runs both ends and keeps what each threw.
    void Run(std::shared_ptr<io::area::area_read_dev_t> source,
             std::shared_ptr<io::area::area_write_dev_t> destination) {
        auto far = std::async(std::launch::async, [&] { return TextOf([&] { Receive(destination); }); });
        sent = TextOf([&] { Send(source); });
        received = far.get();
    }

    /// What `action` threw; empty when it did not.
    static std::string TextOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }

    cfg_t cfg{4096, 1};
    duplex_dev_t wire;
    std::shared_ptr<session_dev_t> left;
    std::shared_ptr<session_dev_t> right;
    std::shared_ptr<brannock::transmission::processed_offset_holder_t> offset =
        std::make_shared<brannock::transmission::processed_offset_holder_t>();
    std::string sent;
    std::string received;
};

/// Text that no packer shrinks; the same for the same seed.
inline std::string Noise(std::size_t size, std::uint64_t seed = 1) {
    std::string text(size, '\0');
    for (char& c : text) {
        seed = seed * 6364136223846793005U + 1442695040888963407U;
        c = static_cast<char>(seed >> 56);
    }
    return text;
}

}  // namespace tests
