// The worked examples of docs/wire-formats.md, compared with what the library writes and reads.
#include <gtest/gtest.h>

#include <string>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "tests/rpc/CommandBytes.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

// The parameters of a finished command, without its header.
std::string Params(const RpcCommandMuxer& muxer) {
    return Finished(muxer).substr(16);
}

// A command around an example that is one parameter.
std::string CommandAround(const std::string& param) {
    return Command(10002, 1, 1, param);
}

TEST(WireFormatsDocTest, Invoke) {
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(19) && muxer.Push(23));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_INVOKE, "Add", 7), 0);
    EXPECT_EQ(WireFormatsExample("invoke"), Finished(muxer));
}

TEST(WireFormatsDocTest, Result) {
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(42));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 7), 0);
    EXPECT_EQ(WireFormatsExample("result"), Finished(muxer));
}

TEST(WireFormatsDocTest, Callback) {
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(0) && muxer.Push("half"));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_CALLBACK, nullptr, 7), 0);
    EXPECT_EQ(WireFormatsExample("callback"), Finished(muxer));
}

TEST(WireFormatsDocTest, Array) {
    short elements[] = {1, 2, -1};
    char buf[128];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(RpcArray(elements, 3, sizeof(elements))));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    EXPECT_EQ(WireFormatsExample("array"), Params(muxer));
}

TEST(WireFormatsDocTest, EpgListAsItIsWritten) {
    EpgData record = {{1, 2}, {"News", nullptr, "", nullptr}, {3, 4, 5, 6, 7, 8}};
    char buf[256];
    RpcCommandMuxer muxer(buf, sizeof(buf));
    ASSERT_TRUE(muxer.Push(EpgDataList{1, &record}));
    ASSERT_GT(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1), 0);
    std::string bytes = Params(muxer);
    for (const size_t pointer : {12U, 24U, 32U}) {
        EXPECT_NE(bytes.substr(pointer, 4), Words({0}));
        SetWord(&bytes, pointer, 1);
    }
    EXPECT_EQ(WireFormatsExample("epg"), bytes);
}

TEST(WireFormatsDocTest, EpgListAsItIsRead) {
    const ExactBytes exact(CommandAround(WireFormatsExample("epg")));
    const RpcCommandDemuxer demuxer(exact.Data(), exact.Size());
    ASSERT_TRUE(demuxer.IsValidCommand());
    const auto list = demuxer.Get<EpgDataList>(0);
    ASSERT_EQ(list.count, 1);
    EXPECT_EQ(list.items[0].head[0], 1U);
    EXPECT_STREQ(list.items[0].text[0], "News");
    EXPECT_STREQ(list.items[0].text[1], nullptr);
    EXPECT_STREQ(list.items[0].text[2], "");
    EXPECT_EQ(list.items[0].tail[5], 8U);
}

}  // namespace
