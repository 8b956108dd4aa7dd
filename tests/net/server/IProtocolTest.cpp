#include "kpl/net/server/IProtocol.h"

#include <gtest/gtest.h>

#include "tests/support/VirtualSlot.h"

namespace kpl::net::server {
namespace {

using test::SlotOf;

// Each begins with the two destructors.
TEST(IProtocolTest, DemuxerSlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&IProtocolDemuxer::Demux), 2);
    EXPECT_EQ(SlotOf(&IProtocolDemuxer::GetDemuxedType), 3);
}

TEST(IProtocolTest, HandshakerSlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&IProtocolHandshaker::ProcessHandshake), 2);
    EXPECT_EQ(SlotOf(&IProtocolHandshaker::GetAnswerLength), 3);
    EXPECT_EQ(SlotOf(&IProtocolHandshaker::GetAnswerData), 4);
}

TEST(IProtocolTest, ExecutorSlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&IProtocolExecutor::Execute), 2);
    EXPECT_EQ(SlotOf(&IProtocolExecutor::Abort), 3);
    EXPECT_EQ(SlotOf(&IProtocolExecutor::IsResponseReady), 4);
    EXPECT_EQ(SlotOf(&IProtocolExecutor::HasResponseData), 5);
    EXPECT_EQ(SlotOf(&IProtocolExecutor::ReadResponse), 6);
    EXPECT_EQ(SlotOf(&IProtocolExecutor::EndResponse), 7);
}

TEST(IProtocolTest, MuxerSlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&IProtocolMuxer::SetExecutor), 2);
    EXPECT_EQ(SlotOf(&IProtocolMuxer::IsResponseReady), 3);
    EXPECT_EQ(SlotOf(&IProtocolMuxer::HasResponseData), 4);
    EXPECT_EQ(SlotOf(&IProtocolMuxer::ReadResponse), 5);
    EXPECT_EQ(SlotOf(&IProtocolMuxer::EndResponse), 6);
}

}  // namespace
}  // namespace kpl::net::server
