#include "mirrowen/pool/obj_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

namespace {

struct item_t {
    int value = 0;
    void Recycle() noexcept { value = 0; }
};

using item_pool_t = pool::CObjPool<item_t>;
using item_ptr_t = pool::CPoolPtr<item_t>;

TEST(ObjPool, ObjectIsRecycledAndUsedAgain) {
    const auto items = item_pool_t::Create(2);
    item_ptr_t first = items->Get();
    first->value = 5;
    const item_t* const address = first.get();
    first.reset();
    EXPECT_FALSE(first);
    EXPECT_EQ(items->FreeCount(), 1U);
    const item_ptr_t second = items->Get();
    EXPECT_EQ(second.get(), address);
    EXPECT_EQ(second->value, 0);
    EXPECT_EQ(items->FreeCount(), 0U);
}

TEST(ObjPool, ObjectReturnsWithTheLastPointer) {
    const auto items = item_pool_t::Create(2);
    item_ptr_t first = items->Get();
    item_ptr_t copy = first;
    first.reset();
    EXPECT_EQ(items->FreeCount(), 0U);
    copy.reset();
    EXPECT_EQ(items->FreeCount(), 1U);
}

TEST(ObjPool, KeepsNoMoreThanItsMaximum) {
    const auto items = item_pool_t::Create(2);
    std::vector<item_ptr_t> held;
    for (int i = 0; i < 5; ++i) {
        held.push_back(items->Get());
    }
    held.clear();
    EXPECT_EQ(items->FreeCount(), 2U);
}

TEST(ObjPool, ReleaseOnAnotherThread) {
    const auto items = item_pool_t::Create(1);
    std::jthread([item = items->Get()]() mutable { item.reset(); }).join();
    EXPECT_EQ(items->FreeCount(), 1U);
}

TEST(ObjPool, PointersKeepThePoolAlive) {
    auto items = item_pool_t::Create(1);
    const std::weak_ptr<item_pool_t> watch = items;
    item_ptr_t item = items->Get();
    items.reset();
    EXPECT_FALSE(watch.expired());
    item->value = 1;
    item.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(ObjPool, ManyThreadsShareOnePool) {
    const auto items = item_pool_t::Create(3);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < 500; ++turn) {
                const item_ptr_t item = items->Get();
                EXPECT_EQ(item->value, 0);
                item->value = turn + 1;
            }
        });
    }
    threads.clear();
    EXPECT_LE(items->FreeCount(), 3U);
    EXPECT_GE(items->FreeCount(), 1U);
}

}  // namespace
