#include "kpl/rpc/RpcArray.h"

#include <gtest/gtest.h>
#include <limits.h>

#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "tests/rpc/CommandBytes.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

TEST(RpcArrayTest, ADefaultArrayIsAllZero) {
    const RpcArray array;
    EXPECT_EQ(array.GetData(), nullptr);
    EXPECT_EQ(array.GetElementCounts(), 0);
    EXPECT_EQ(array.GetTotalSizeInBytes(), 0);
    EXPECT_EQ(array.GetHeaderSize(), 8);
    EXPECT_EQ(array.GetSize(), 8);
}

TEST(RpcArrayTest, ConvertWritesCountSizeAndBytes) {
    char data[] = {1, 2, 3, 4, 5, 6};
    const RpcArray array(data, 3, 6);
    char buf[14];
    EXPECT_EQ(array.Convert(buf, sizeof(buf)), 14);
    EXPECT_EQ(std::string(buf, 14), Words({3, 6}) + std::string(data, 6));
    EXPECT_EQ(array.GetSize(), 14);
}

TEST(RpcArrayTest, ConvertOfAnEmptyArrayWritesTheHeaderAlone) {
    char buf[8];
    EXPECT_EQ(RpcArray().Convert(buf, sizeof(buf)), 8);
    EXPECT_EQ(std::string(buf, 8), Words({0, 0}));
}

TEST(RpcArrayTest, ConvertWithoutRoomOrBufferReturnsZeroAndWritesNothing) {
    char data[4] = {};
    const RpcArray array(data, 1, 4);
    char buf[12];
    memset(buf, 'x', sizeof(buf));
    EXPECT_EQ(array.Convert(nullptr, 100), 0);
    for (const int len : {INT_MIN, -1, 0, 1, 7, 8, 11}) {
        EXPECT_EQ(array.Convert(buf, len), 0) << len;
    }
    EXPECT_EQ(std::string(buf, 12), std::string(12, 'x'));
}

TEST(RpcArrayTest, ConvertRefusesANegativeSizeAndABlockThatIsNotThere) {
    char data[4] = {};
    char buf[64];
    EXPECT_EQ(RpcArray(data, 1, -1).Convert(buf, sizeof(buf)), 0);
    EXPECT_EQ(RpcArray(data, 1, INT_MIN).Convert(buf, sizeof(buf)), 0);
    EXPECT_EQ(RpcArray(data, 1, INT_MAX).Convert(buf, sizeof(buf)), 0);
    EXPECT_EQ(RpcArray(nullptr, 1, 4).Convert(buf, sizeof(buf)), 0);
}

TEST(RpcArrayTest, RetrieveDescribesTheBlockInPlace) {
    const ExactBytes bytes(Words({3, 6}) + "abcdef");
    RpcArray array;
    EXPECT_EQ(array.Retrieve(bytes.Data(), bytes.Size()), 14);
    EXPECT_EQ(array.GetData(), bytes.Data() + 8);
    EXPECT_EQ(array.GetElementCounts(), 3);
    EXPECT_EQ(array.GetTotalSizeInBytes(), 6);
}

TEST(RpcArrayTest, RetrieveWithLen8AndAHeaderThatAnnounces0BytesReturns8) {
    const ExactBytes bytes(Words({0, 0}));
    RpcArray array;
    EXPECT_EQ(array.Retrieve(bytes.Data(), 8), 8);
    EXPECT_EQ(array.GetData(), bytes.Data() + 8);
}

TEST(RpcArrayTest, RetrieveWithoutBufferOrHeaderLeavesTheArrayAlone) {
    char data[4] = {};
    RpcArray array(data, 1, 4);
    const ExactBytes bytes(Words({2, 2}));
    EXPECT_EQ(array.Retrieve(nullptr, 100), 0);
    EXPECT_EQ(array.Retrieve(bytes.Data(), 7), 0);
    EXPECT_EQ(array.Retrieve(bytes.Data(), -1), 0);
    EXPECT_TRUE(array == RpcArray(data, 1, 4));
}

TEST(RpcArrayTest, RetrieveOfATooLargeBlockReturnsZeroButOverwritesCountAndSize) {
    char data[4] = {};
    for (const int size : {3, INT_MAX, -1, INT_MIN}) {
        RpcArray array(data, 1, 4);
        const ExactBytes bytes(Words({9, static_cast<uint32_t>(size)}) + "ab");
        EXPECT_EQ(array.Retrieve(bytes.Data(), bytes.Size()), 0);
        EXPECT_TRUE(array == RpcArray(data, 9, size));
    }
}

TEST(RpcArrayTest, ConvertAfterAFailedRetrieveIsRefused) {
    const ExactBytes bytes(Words({1, 0x7FFFFFFF}));
    RpcArray array;
    EXPECT_EQ(array.Retrieve(bytes.Data(), bytes.Size()), 0);
    char buf[64];
    EXPECT_EQ(array.Convert(buf, sizeof(buf)), 0);
    EXPECT_EQ(array.Convert(buf, INT_MAX), 0);
    EXPECT_EQ(array.GetSize(), INT_MAX);
}

TEST(RpcArrayTest, ArraysAreEqualWhenTheyDescribeTheSameBlockNotTheSameContents) {
    char one[4] = {};
    char two[4] = {};
    EXPECT_TRUE(RpcArray(one, 1, 4) == RpcArray(one, 1, 4));
    EXPECT_FALSE(RpcArray(one, 1, 4) == RpcArray(two, 1, 4));
    EXPECT_FALSE(RpcArray(one, 1, 4) == RpcArray(one, 2, 4));
    EXPECT_FALSE(RpcArray(one, 1, 4) == RpcArray(one, 1, 3));
}

TEST(RpcArrayTest, ACopyDescribesTheSameBlock) {
    char data[4] = {};
    const RpcArray array(data, 2, 4);
    const RpcArray copy(array);
    EXPECT_TRUE(copy == array);
}

TEST(RpcArrayTest, TravelsThroughACommandAsOneParameter) {
    char data[] = {1, 2, 3};
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(RpcArray(data, 3, 3)));
    ASSERT_TRUE(muxer.Push(7));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 5), 0);
    EXPECT_EQ(Finished(muxer),
              Command(10002, 5, 2,
                      Param(51, Words({3, 3}) + std::string(data, 3)) + Param(2, Words({7}))));
    const RpcArray array = RpcCommandDemuxer(buf, sizeof(buf)).Get<RpcArray>(0);
    EXPECT_TRUE(array == RpcArray(buf + 32, 3, 3));
}

TEST(RpcArrayTest, PushOfAnArrayThatDoesNotFitDiscardsTheCommand) {
    char data[64] = {};
    char buf[16 + 12 + 8 + 8 + 63];
    for (const RpcArray& array : {RpcArray(data, 1, 64), RpcArray(data, 1, -1),
                                  RpcArray(nullptr, 1, 4), RpcArray(data, 1, INT_MAX)}) {
        RpcCommandMuxer muxer(buf, sizeof(buf));
        ASSERT_TRUE(muxer.Push(1));
        EXPECT_FALSE(muxer.Push(array));
        EXPECT_FALSE(muxer.IsValidCommand());
    }
    RpcCommandMuxer muxer(buf, sizeof(buf));
    EXPECT_TRUE(muxer.Push(1) && muxer.Push(RpcArray(data, 1, 63)));
}

TEST(RpcArrayTest, AReceivedArrayCanBePushedIntoTheBufferItLiesIn) {
    char buf[64];
    memset(buf, 0, sizeof(buf));
    memcpy(buf + 30, "0123456789", 10);  // the new place starts at 32
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(RpcArray(buf + 30, 10, 10)));
    EXPECT_EQ(std::string(buf + 32, 10), "0123456789");
}

TEST(RpcArrayTest, GetNeverLeavesTheParameterEvenWhenTheCommandGoesOn) {
    // The array announces 5 bytes; its parameter has room for 4, the next one follows.
    const ExactBytes bytes(
        Command(10002, 1, 2, Param(51, Words({1, 5}) + "abcd") + Param(50, Text("next"))));
    const RpcCommandDemuxer demuxer(bytes.Data(), bytes.Size());
    ASSERT_TRUE(demuxer.IsValidCommand());
    EXPECT_TRUE(demuxer.Get<RpcArray>(0) == RpcArray());
}

TEST(RpcArrayTest, GetOfAMissingParameterIsAnEmptyArray) {
    const ExactBytes bytes(Command(10002, 1, 1, Param(2, Words({1}))));
    const RpcCommandDemuxer demuxer(bytes.Data(), bytes.Size());
    EXPECT_TRUE(demuxer.Get<RpcArray>(0) == RpcArray());
    EXPECT_TRUE(demuxer.Get<RpcArray>(1) == RpcArray());
    EXPECT_TRUE(demuxer.Get<RpcArray>(-1) == RpcArray());
}

}  // namespace
