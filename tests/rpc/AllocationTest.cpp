// Building and reading commands must not need any allocation.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "tests/rpc/AllocationCounter.h"

namespace {

using namespace kpl::rpc;
using kpl::test::allocations;

char buffer[1024];
EpgData records[2];
char block[32];

// Everything that a caller or an executor does with a command; true when all of it worked.
bool BuildCommand() {
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    records[0].text[0] = "News";
    records[1].text[3] = "Film";
    return muxer.Push(true) && muxer.Push('c') && muxer.Push(7) && muxer.Push(7L) &&
           muxer.Push(7ULL) && muxer.Push(1.5) && muxer.Push(1.5F) && muxer.Push("a string") &&
           muxer.Push(RpcCallbackContext(block, nullptr)) && muxer.Push(RpcArray(block, 4, 32)) &&
           muxer.Push(EpgDataList{2, records}) &&
           muxer.Finish(RPC_COMMAND_INVOKE, "Function", 1) > 0;
}

bool ReadCommand() {
    const RpcCommandDemuxer demuxer(buffer, sizeof(buffer));
    const auto list = demuxer.Get<EpgDataList>(10);
    const char* title = list.items != nullptr ? list.items[1].text[3] : EpgText(nullptr);
    return demuxer.IsValidCommand() && demuxer.GetSize() > 0 && demuxer.GetId() == 1 &&
           demuxer.GetFunctionName() != nullptr && demuxer.HasParamType(RPC_PARAM_CALLBACK) &&
           demuxer.GetCommandCounts(RPC_PARAM_STRUCT) == 2 && demuxer.Get<int>(2) == 7 &&
           demuxer.Get<double>(5) > 1 && demuxer.Get<const char*>(7) != nullptr &&
           demuxer.Get<RpcCallbackContext>(8).GetProxy() == block &&
           demuxer.Get<RpcArray>(9).GetElementCounts() == 4 && title != nullptr;
}

TEST(AllocationTest, TheCountersSeeAllocations) {
    const int before = allocations;
    char* volatile one = new char;
    delete one;
    EXPECT_GT(allocations, before);
#if KPL_COUNTS_MALLOC
    const int between = allocations;
    void* volatile two = malloc(1);
    free(two);
    EXPECT_EQ(allocations, between + 1);
#endif
}

TEST(AllocationTest, BuildingACommandAllocatesNothing) {
    const int before = allocations;
    const bool built = BuildCommand();
    EXPECT_EQ(allocations, before);
    EXPECT_TRUE(built);
}

TEST(AllocationTest, ReadingACommandAllocatesNothing) {
    ASSERT_TRUE(BuildCommand());
    const int before = allocations;
    const bool read = ReadCommand();
    EXPECT_EQ(allocations, before);
    EXPECT_TRUE(read);
}

TEST(AllocationTest, PackingPointersIntoNewPagesAllocatesNothing) {
    const int before = allocations;
    bool packed = true;
    for (uintptr_t page = 1; page <= 1000; ++page) {
        const auto* pointer = reinterpret_cast<const void*>(page << 20);  // never followed
        packed = packed && WordPointer(pointer).Get() == pointer;
    }
    EXPECT_EQ(allocations, before);
    EXPECT_TRUE(packed);
}

}  // namespace
