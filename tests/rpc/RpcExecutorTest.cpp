#include "kpl/rpc/RpcExecutor.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using namespace kpl::rpc;

TEST(RpcExecutorTest, IsDeletedThroughItsBase) {
    static int destroyed = 0;
    struct Executor : RpcExecutor {
        ~Executor() override { ++destroyed; }
        RpcCommandMuxer* Execute(RpcCommandDemuxer*, RpcCallback*) override { return nullptr; }
    };
    RpcExecutor* executor = new Executor;
    EXPECT_EQ(executor->Execute(nullptr, nullptr), nullptr);
    delete executor;
    EXPECT_EQ(destroyed, 1);
}

TEST(RpcExecutorTest, ACallbackIsDestroyedByItsLastReleaseAlone) {
    EXPECT_FALSE(std::is_destructible_v<RpcCallback>);
    EXPECT_TRUE(std::has_virtual_destructor_v<RpcExecutor>);
}

}  // namespace
