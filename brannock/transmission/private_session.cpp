#include "brannock/transmission/private_session.h"

#include <utility>

namespace brannock::transmission {

namespace {

constexpr std::chrono::milliseconds kIdleTimeout = std::chrono::seconds(120);
constexpr std::uint64_t kMinimumRate = 4096;

class private_session_t final : public ISession {
  public:
    explicit private_session_t(std::shared_ptr<io::io_dev_t> device) : device_(std::move(device)) {}

    void Cancel() noexcept override {
        if (auto* const cancellable = dynamic_cast<ICancellable*>(device_.get())) {
            cancellable->Cancel();
        }
    }

    std::future<void> Run(std::function<void()> work) override {
        return std::async(std::launch::async, std::move(work));
    }

    std::stop_token GetStopToken() const override { return {}; }
    std::uint64_t NextItemNumber() override { return 0; }
    std::chrono::milliseconds GetIdleTimeout() const override { return kIdleTimeout; }
    std::uint64_t GetMinimumRate() const override { return kMinimumRate; }

  private:
    std::shared_ptr<io::io_dev_t> device_;
};

}  // namespace

std::shared_ptr<ISession> GetSessionOf(const std::shared_ptr<io::io_dev_t>& device) {
    if (auto session = std::dynamic_pointer_cast<ISession>(device)) {
        return session;
    }
    return std::make_shared<private_session_t>(device);
}

}  // namespace brannock::transmission
