#include "agent/staging/receiver_scope.h"

#include <gtest/gtest.h>

#include <thread>

namespace agent {
namespace {

class no_receiver_t final : public IItemReceiver {
  public:
    std::shared_ptr<io::area::area_write_dev_t> Receive(item_t, std::uint64_t, EReplace) override { return nullptr; }
};

TEST(ReceiverScope, InnermostReceives) {
    const auto outer = std::make_shared<no_receiver_t>();
    const auto inner = std::make_shared<no_receiver_t>();
    EXPECT_EQ(receiver_scope_t::Current(), nullptr);
    {
        const receiver_scope_t first(outer);
        EXPECT_EQ(receiver_scope_t::Current(), outer);
        {
            const receiver_scope_t second(inner);
            EXPECT_EQ(receiver_scope_t::Current(), inner);
        }
        EXPECT_EQ(receiver_scope_t::Current(), outer);
    }
    EXPECT_EQ(receiver_scope_t::Current(), nullptr);
    EXPECT_EQ(outer.use_count(), 1);
}

TEST(ReceiverScope, HoldsForItsOwnThreadOnly) {
    const receiver_scope_t scope(std::make_shared<no_receiver_t>());
    std::thread([] { EXPECT_EQ(receiver_scope_t::Current(), nullptr); }).join();
}

}  // namespace
}  // namespace agent
