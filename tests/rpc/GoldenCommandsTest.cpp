// The bytes of tests/golden, written and read: a build for either word size makes and understands
// exactly these, so any two builds understand each other.
#include <gtest/gtest.h>
#include <limits.h>

#include <string>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "tests/rpc/CommandBytes.h"
#include "tests/support/GoldenBytes.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

constexpr unsigned int kId = 4000000001U;

// Where the words of an EPG block's pointers lie in epg.hex: that of the records, and those of the
// three texts that are there.
constexpr size_t kEpgPointers[] = {28, 40, 48, 52};

TEST(GoldenCommandsTest, AnInvokeWithEveryKindOfParameterIsWritten) {
    short elements[] = {1, 2, -1};
    char buf[1024];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(true) && muxer.Push(-2) && muxer.Push(static_cast<long>(INT_MIN)));
    ASSERT_TRUE(muxer.Push('A') && muxer.Push(static_cast<unsigned char>(200)));
    ASSERT_TRUE(muxer.Push(LLONG_MIN) && muxer.Push(ULLONG_MAX));
    ASSERT_TRUE(muxer.Push(static_cast<short>(SHRT_MIN)));
    ASSERT_TRUE(muxer.Push(static_cast<unsigned short>(USHRT_MAX)));
    ASSERT_TRUE(muxer.Push(UINT_MAX) && muxer.Push(4294967294UL));
    ASSERT_TRUE(muxer.Push(0.1) && muxer.Push(-1.5F));
    ASSERT_TRUE(
        muxer.Push("Gr\xC3\xBC\xC3\x9F"
                   "e"));
    ASSERT_TRUE(muxer.Push(static_cast<const char*>(nullptr)));
    ASSERT_TRUE(muxer.Push(RpcArray(elements, 3, sizeof(elements))));
    ASSERT_TRUE(muxer.Push(RpcCallbackContext()));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_INVOKE, "Everything", kId), 0);
    EXPECT_EQ(GoldenBytes("invoke"), Finished(muxer));
}

TEST(GoldenCommandsTest, AnInvokeWithEveryKindOfParameterIsRead) {
    const ExactBytes exact(GoldenBytes("invoke"));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    ASSERT_TRUE(demuxer.IsValidCommand());
    EXPECT_EQ(demuxer.GetCommandType(), RPC_COMMAND_INVOKE);
    EXPECT_EQ(demuxer.GetId(), kId);
    EXPECT_EQ(demuxer.GetSize(), exact.Size());
    EXPECT_EQ(demuxer.GetCommandCounts(), 18);
    EXPECT_STREQ(demuxer.GetFunctionName(), "Everything");
    EXPECT_EQ(demuxer.Get<bool>(0), true);
    EXPECT_EQ(demuxer.Get<int>(1), -2);
    EXPECT_EQ(demuxer.Get<long>(2), static_cast<long>(INT_MIN));
    EXPECT_EQ(demuxer.Get<char>(3), 'A');
    EXPECT_EQ(demuxer.Get<unsigned char>(4), 200);
    EXPECT_EQ(demuxer.Get<long long>(5), LLONG_MIN);
    EXPECT_EQ(demuxer.Get<unsigned long long>(6), ULLONG_MAX);
    EXPECT_EQ(demuxer.Get<short>(7), SHRT_MIN);
    EXPECT_EQ(demuxer.Get<unsigned short>(8), USHRT_MAX);
    EXPECT_EQ(demuxer.Get<unsigned int>(9), UINT_MAX);
    EXPECT_EQ(demuxer.Get<unsigned long>(10), 4294967294UL);
    EXPECT_EQ(demuxer.Get<double>(11), 0.1);
    EXPECT_EQ(demuxer.Get<float>(12), -1.5F);
    EXPECT_STREQ(demuxer.Get<const char*>(13),
                 "Gr\xC3\xBC\xC3\x9F"
                 "e");
    EXPECT_STREQ(demuxer.Get<const char*>(14), "");
    const auto array = demuxer.Get<RpcArray>(15);
    EXPECT_EQ(array.GetElementCounts(), 3);
    ASSERT_EQ(array.GetTotalSizeInBytes(), 6);
    EXPECT_EQ(memcmp(array.GetData(), "\x01\x00\x02\x00\xFF\xFF", 6), 0);
    EXPECT_EQ(demuxer.Get<RpcCallbackContext>(16).GetProxy(), nullptr);
    EXPECT_EQ(demuxer.Get<RpcCallbackContext>(16).GetFunction(), nullptr);
}

TEST(GoldenCommandsTest, ResultsAreWritten) {
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(42) && muxer.Push("out"));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, kId), 0);
    EXPECT_EQ(GoldenBytes("result"), Finished(muxer));
    ASSERT_EQ(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 0), 16);
    EXPECT_EQ(GoldenBytes("empty_result"), Finished(muxer));
}

TEST(GoldenCommandsTest, ResultsAreRead) {
    const ExactBytes exact(GoldenBytes("result"));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    ASSERT_TRUE(demuxer.IsValidCommand());
    EXPECT_EQ(demuxer.GetCommandType(), RPC_COMMAND_RESULT);
    EXPECT_EQ(demuxer.GetId(), kId);
    EXPECT_EQ(demuxer.Get<int>(0), 42);
    EXPECT_STREQ(demuxer.Get<const char*>(1), "out");
    const ExactBytes empty(GoldenBytes("empty_result"));
    const RpcCommandDemuxer emptyDemuxer(empty.Data(), empty.Size());
    ASSERT_TRUE(emptyDemuxer.IsValidCommand());
    EXPECT_EQ(emptyDemuxer.GetCommandCounts(), 0);
}

TEST(GoldenCommandsTest, ACallbackIsWrittenAndRead) {
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(1) && muxer.Push(1099511627776LL));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_CALLBACK, nullptr, 7), 0);
    EXPECT_EQ(GoldenBytes("callback"), Finished(muxer));
    const ExactBytes exact(GoldenBytes("callback"));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    ASSERT_TRUE(demuxer.IsValidCommand());
    EXPECT_EQ(demuxer.GetCommandType(), RPC_COMMAND_CALLBACK);
    EXPECT_EQ(demuxer.GetId(), 7U);
    EXPECT_EQ(demuxer.Get<int>(0), 1);
    EXPECT_EQ(demuxer.Get<long long>(1), 1099511627776LL);
}

TEST(GoldenCommandsTest, AnEpgListIsWrittenUpToItsPointers) {
    EpgData records[] = {
        {{1, 0xFFFFFFFF}, {"News", nullptr, "", "x"}, {3, 4, 5, 6, 7, 0x80000000}},
        {{9, 10}, {nullptr, nullptr, nullptr, nullptr}, {11, 12, 13, 14, 15, 16}},
    };
    char buf[256];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(EpgDataList{2, records}));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 9), 0);
    std::string bytes = Finished(muxer);
    for (const size_t pointer : kEpgPointers) {
        EXPECT_NE(bytes.substr(pointer, 4), Words({0}));
        SetWord(&bytes, pointer, 1);
    }
    EXPECT_EQ(GoldenBytes("epg"), bytes);
}

TEST(GoldenCommandsTest, AnEpgListIsRead) {
    const ExactBytes exact(GoldenBytes("epg"));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    ASSERT_TRUE(demuxer.IsValidCommand());
    const auto list = demuxer.Get<EpgDataList>(0);
    ASSERT_EQ(list.count, 2);
    const EpgData first = list.items[0];
    EXPECT_EQ(first.head[0], 1U);
    EXPECT_EQ(first.head[1], 0xFFFFFFFF);
    EXPECT_STREQ(first.text[0], "News");
    EXPECT_EQ(static_cast<const char*>(first.text[1]), nullptr);
    EXPECT_STREQ(first.text[2], "");
    EXPECT_STREQ(first.text[3], "x");
    EXPECT_EQ(first.tail[5], 0x80000000);
    const EpgData second = list.items[1];
    EXPECT_EQ(second.head[1], 10U);
    EXPECT_EQ(static_cast<const char*>(second.text[0]), nullptr);
    EXPECT_EQ(second.tail[0], 11U);
    EXPECT_EQ(second.tail[5], 16U);
}

}  // namespace
