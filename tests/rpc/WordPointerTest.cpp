#include "kpl/rpc/WordPointer.h"

#include <gtest/gtest.h>

#include <memory>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "tests/support/Process.h"

namespace {

using kpl::rpc::RpcCallbackContext;
using kpl::rpc::RpcCommandMuxer;
using kpl::rpc::WordPointer;
using kpl::test::ChildProcess;

constexpr bool kWide = sizeof(void*) > sizeof(uint32_t);

// A pointer into page `page` of 1 MiB, never followed.
const void* InPage(uintptr_t page) {
    return reinterpret_cast<const void*>((page << 20) + 0x12345);
}

TEST(WordPointerTest, NullIsWordZeroBothWays) {
    EXPECT_EQ(WordPointer::Pack(nullptr), 0U);
    EXPECT_EQ(WordPointer::Unpack(0), nullptr);
    EXPECT_EQ(WordPointer().Get(), nullptr);
    EXPECT_EQ(WordPointer().Word(), 0U);
    EXPECT_FALSE(WordPointer().IsLost());
}

TEST(WordPointerTest, PointersOfEveryKindOfMemoryComeBack) {
    static int inData = 0;
    int onStack = 0;
    const auto onHeap = std::make_unique<int>(0);
    for (const void* pointer :
         {static_cast<const void*>(&inData), static_cast<const void*>(&onStack),
          static_cast<const void*>(onHeap.get()), static_cast<const void*>("text")}) {
        const WordPointer word(pointer);
        EXPECT_EQ(word.Get(), pointer);
        EXPECT_NE(word.Word(), 0U);
        EXPECT_FALSE(word.IsLost());
    }
}

TEST(WordPointerTest, EqualPointersHaveEqualWords) {
    int value = 0;
    EXPECT_EQ(WordPointer::Pack(&value), WordPointer::Pack(&value));
}

TEST(WordPointerTest, AWordThatWasNeverGivenOutIsNull) {
    if (!kWide) {
        GTEST_SKIP() << "every word is a pointer here";
    }
    EXPECT_EQ(WordPointer::Unpack(1), nullptr);
    EXPECT_EQ(WordPointer::Unpack((1U << 20) - 1), nullptr);
    EXPECT_EQ(WordPointer::Unpack(0xFFFFFFFF), nullptr);
}

// What a process sees that has used up its pages. Runs in a child, because pages are used up for
// good. The result names the first thing that is wrong.
int UseUpPagesAndLook() {
    int known = 0;
    const uint32_t knownWord = WordPointer::Pack(&known);
    uintptr_t page = uintptr_t{1} << 30;
    while (!WordPointer::IsLost(WordPointer::Pack(InPage(page)))) {
        ++page;
    }
    const auto* text = static_cast<const char*>(InPage(page));
    if (!WordPointer(text).IsLost() || WordPointer(text).Get() != nullptr) {
        return 1;
    }
    if (WordPointer::Pack(&known) != knownWord || WordPointer::Unpack(knownWord) != &known) {
        return 2;
    }
    const RpcCallbackContext context(const_cast<char*>(text), nullptr);
    char buffer[128];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    if (!context.IsLost() || context.GetProxy() != nullptr || !muxer.Push(1) ||
        muxer.Push(context) || muxer.IsValidCommand()) {
        return 3;
    }
    EpgData record{};
    record.text[2] = text;
    EpgDataList list{1, &record};
    if (!record.text[2].IsLost() || record.text[2] != nullptr ||
        GetSizeEpgDataList::GetSize(list) != 0 ||
        ConvertEpgDataList::ConvertToBytes(list, buffer, sizeof(buffer)) != 0) {
        return 4;
    }
    return !muxer.Push(1) || muxer.Push(list) || muxer.IsValidCommand() ? 5 : 0;
}

TEST(WordPointerTest, WithAllPagesUsedUpNewPointersAreLostVisiblyAndKnownOnesStay) {
    if (!kWide) {
        GTEST_SKIP() << "pointers are never lost here";
    }
    ChildProcess child(&UseUpPagesAndLook);
    EXPECT_EQ(child.Wait(), 0);
}

// A received list whose texts lie in a page that gets no number any more.
int RetrieveWithoutPages() {
    uintptr_t page = uintptr_t{1} << 30;
    while (!WordPointer::IsLost(WordPointer::Pack(InPage(page)))) {
        ++page;
    }
    constexpr size_t kFreshBytes = size_t{4} << 20;  // no small allocation: pages of its own
    const std::unique_ptr<char[]> fresh(new char[kFreshBytes]());
    char* block = fresh.get() + kFreshBytes / 2;
    block[0] = 1;   // count
    block[4] = 1;   // there are records
    block[16] = 1;  // text 1 follows, and is empty
    EpgDataList list;
    return RetrieveEpgDataList::RetrieveFromBytes(list, block, 8 + 48 + 1);
}

TEST(WordPointerTest, WithAllPagesUsedUpAReceivedListIsRefused) {
    if (!kWide) {
        GTEST_SKIP() << "pointers are never lost here";
    }
    ChildProcess child(&RetrieveWithoutPages);
    EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
