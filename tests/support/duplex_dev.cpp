#include "tests/support/duplex_dev.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace tests {

namespace {

class byte_queue_t {
  public:
    byte_queue_t(std::size_t capacity, std::chrono::milliseconds limit) : capacity_(capacity), limit_(limit) {}

    std::size_t Read(char* buffer, std::size_t count) {
        std::unique_lock lock(mutex_);
        if (count != 0) {
            Wait(lock, [&] { return !bytes_.empty() || closed_; });
        }
        const std::size_t taken = bytes_.copy(buffer, count);
        bytes_.erase(0, taken);
        lock.unlock();
        changed_.notify_all();
        return taken;
    }

    void Write(std::string_view bytes) {
        std::unique_lock lock(mutex_);
        while (!bytes.empty()) {
            Wait(lock, [&] { return bytes_.size() < capacity_ || closed_; });
            if (closed_) {
                throw exc::CRuntimeExc("The test connection is closed.");
            }
            const std::size_t room = std::min(bytes.size(), capacity_ - bytes_.size());
            bytes_.append(bytes.substr(0, room));
            bytes.remove_prefix(room);
            changed_.notify_all();
        }
    }

    void Close() {
        {
            const std::scoped_lock lock(mutex_);
            closed_ = true;
        }
        changed_.notify_all();
    }

  private:
    template <class Condition>
    void Wait(std::unique_lock<std::mutex>& lock, Condition condition) {
        if (!changed_.wait_for(lock, limit_, condition)) {
            throw exc::CRuntimeExc("Timed out on the test connection.");
        }
    }

    const std::size_t capacity_;
    const std::chrono::milliseconds limit_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string bytes_;
    bool closed_ = false;
};

class queue_end_t final : public duplex_dev_t::end_t {
  public:
    queue_end_t(std::shared_ptr<byte_queue_t> in, std::shared_ptr<byte_queue_t> out)
        : in_(std::move(in)), out_(std::move(out)) {}
    ~queue_end_t() override { Shut(); }

    std::size_t Read(void* buffer, std::size_t count) override { return in_->Read(static_cast<char*>(buffer), count); }

    std::size_t Write(const void* buffer, std::size_t count) override {
        out_->Write({static_cast<const char*>(buffer), count});
        return count;
    }

    void Flush() override {}
    void Close() override { Shut(); }
    void CloseWrite() override { out_->Close(); }

  private:
    void Shut() {
        in_->Close();
        out_->Close();
    }

    std::shared_ptr<byte_queue_t> in_;
    std::shared_ptr<byte_queue_t> out_;
};

}  // namespace

duplex_dev_t::duplex_dev_t(std::size_t capacity, std::chrono::milliseconds limit) {
    auto toRight = std::make_shared<byte_queue_t>(capacity, limit);
    auto toLeft = std::make_shared<byte_queue_t>(capacity, limit);
    left_ = std::make_shared<queue_end_t>(toLeft, toRight);
    right_ = std::make_shared<queue_end_t>(std::move(toRight), std::move(toLeft));
}

}  // namespace tests
