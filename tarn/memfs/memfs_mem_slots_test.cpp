#include "tarn/memfs/memfs_mem_slots.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/guid/guid.h"
#include "mirrowen/util/random.h"
#include "tests/support/caught.h"

namespace {

using tarn::memfs::memfs_mem_slots_t;

static_assert(!std::is_copy_constructible_v<memfs_mem_slots_t> && !std::is_default_constructible_v<memfs_mem_slots_t>);

class MemfsMemSlotsTest : public testing::Test {
  protected:
    ~MemfsMemSlotsTest() override { slots_.Clear(); }

    memfs_mem_slots_t& slots_ = memfs_mem_slots_t::Inst();
};

TEST_F(MemfsMemSlotsTest, ThereIsOneRegistry) {
    EXPECT_EQ(&memfs_mem_slots_t::Inst(), &slots_);
}

TEST_F(MemfsMemSlotsTest, ANewSlotIsEmptyAndFoundByItsName) {
    const auto buffer = slots_.CreateSlot("a");
    ASSERT_NE(buffer, nullptr);
    EXPECT_TRUE(buffer->empty());
    EXPECT_TRUE(slots_.IsSlotExists("a"));
    EXPECT_EQ(slots_.GetSlotExc("a"), buffer);
}

TEST_F(MemfsMemSlotsTest, NamesAreBytesAndKeepTheirCase) {
    const auto lower = slots_.CreateSlot("a");
    EXPECT_FALSE(slots_.IsSlotExists("A"));
    const auto upper = slots_.CreateSlot("A");
    EXPECT_NE(lower, upper);
    const auto empty = slots_.CreateSlot("");
    EXPECT_EQ(slots_.GetSlotExc(""), empty);
    const std::string zero("a\0b", 3);
    slots_.CreateSlot(zero);
    EXPECT_TRUE(slots_.IsSlotExists(zero));
}

TEST_F(MemfsMemSlotsTest, CreatingAgainReplacesTheBufferAndNotItsBytes) {
    const auto first = slots_.CreateSlot("a");
    first->assign({'o', 'l', 'd'});
    const auto second = slots_.CreateSlot("a");
    EXPECT_NE(second, first);
    EXPECT_TRUE(slots_.GetSlotExc("a")->empty());
    EXPECT_EQ(first->size(), 3U) << "whoever holds the old buffer still has its bytes";
}

TEST_F(MemfsMemSlotsTest, AMissingSlotIsNamedAndTheRegistryGoesOn) {
    const auto caught = tests::Catch([&] { slots_.GetSlotExc("no%1such"); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.what, "Memory slot does not exist: [no%1such].");
    EXPECT_FALSE(slots_.IsSlotExists("no%1such")) << "a lock that stayed would block here";
}

TEST_F(MemfsMemSlotsTest, DeletingDropsTheRegistrysReferenceOnly) {
    auto held = slots_.CreateSlot("a");
    const std::weak_ptr<memfs_mem_slots_t::buffer_t> watch = held;
    slots_.DeleteSlot("a");
    slots_.DeleteSlot("a");
    slots_.DeleteSlot("never there");
    EXPECT_FALSE(slots_.IsSlotExists("a"));
    EXPECT_FALSE(watch.expired());
    held.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(MemfsMemSlotsTest, ClearingDropsEverySlot) {
    const std::weak_ptr<memfs_mem_slots_t::buffer_t> watch = slots_.CreateSlot("a");
    slots_.CreateSlot("b");
    slots_.Clear();
    EXPECT_FALSE(slots_.IsSlotExists("a"));
    EXPECT_FALSE(slots_.IsSlotExists("b"));
    EXPECT_TRUE(watch.expired());
}

TEST_F(MemfsMemSlotsTest, ATemporaryNameIsPrefixAndGuidAndMakesNoSlot) {
    const std::string name = slots_.GetTempSlotName("tmp");
    EXPECT_EQ(name.rfind("tmp_{", 0), 0U);
    EXPECT_EQ(name.size(), 4 + guid::guid_t().ToAStr().size());
    EXPECT_FALSE(slots_.IsSlotExists(name));
    EXPECT_NE(slots_.GetTempSlotName("tmp"), name);
}

// Gives the same bytes for a number of calls, then others.
class repeating_random_t final : public util::IRandom {
  public:
    explicit repeating_random_t(int repeats) : repeats_(repeats) {}
    void Fill(std::span<std::byte> out) override {
        std::memset(out.data(), repeats_-- > 0 ? 1 : 2, out.size());
        ++calls;
    }
    int calls = 0;

  private:
    int repeats_;
};

TEST_F(MemfsMemSlotsTest, ATemporaryNameIsNeverOneThatIsTaken) {
    repeating_random_t random(4);
    const util::scoped_random_t scope(random);
    const std::string taken = slots_.GetTempSlotName("tmp");
    slots_.CreateSlot(taken);
    EXPECT_NE(slots_.GetTempSlotName("tmp"), taken);
    EXPECT_EQ(random.calls, 5) << "each taken name costs another guid";
}

TEST_F(MemfsMemSlotsTest, ManyThreadsShareTheRegistry) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 500;
    std::atomic<int> failures = 0;
    std::vector<std::vector<std::string>> names(kThreads);
    {
        std::vector<std::jthread> threads;
        for (int id = 0; id != kThreads; ++id) {
            threads.emplace_back([&, id] {
                const std::string own = "own" + std::to_string(id);
                for (int round = 0; round != kRounds; ++round) {
                    const auto buffer = slots_.CreateSlot(own);
                    failures += slots_.GetSlotExc(own) != buffer;
                    slots_.CreateSlot("shared")->push_back('x');
                    slots_.DeleteSlot(round % 2 == 0 ? own : "shared");
                    failures += slots_.IsSlotExists(own) != (round % 2 != 0);
                    names[static_cast<std::size_t>(id)].push_back(slots_.GetTempSlotName("tmp"));
                }
            });
        }
    }
    EXPECT_EQ(failures, 0);
    std::set<std::string> distinct;
    for (const auto& ofThread : names) {
        distinct.insert(ofThread.begin(), ofThread.end());
    }
    EXPECT_EQ(distinct.size(), std::size_t{kThreads} * kRounds);
}

TEST_F(MemfsMemSlotsTest, ReadersKeepTheirBufferWhileOthersClear) {
    std::atomic<bool> stop = false;
    std::jthread clearer([&] {
        while (!stop) {
            slots_.Clear();
        }
    });
    for (int round = 0; round != 2000; ++round) {
        const auto buffer = slots_.CreateSlot("a");
        buffer->assign(100, 'x');
        ASSERT_EQ(std::count(buffer->begin(), buffer->end(), 'x'), 100);
    }
    stop = true;
}

}  // namespace
