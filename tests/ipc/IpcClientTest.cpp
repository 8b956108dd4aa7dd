#include "kpl/ipc/IpcClient.h"

#include <gtest/gtest.h>

#include "tests/support/VirtualSlot.h"

namespace {

using kpl::ipc::IpcClient;
using kpl::test::SlotOf;

TEST(IpcClientTest, TheVirtualOperationsKeepTheirSlots) {
    EXPECT_EQ(SlotOf(&IpcClient::Connect), 0);
    EXPECT_EQ(SlotOf(&IpcClient::Disconnect), 1);
    EXPECT_EQ(SlotOf(&IpcClient::GetStreamer), 2);
}

}  // namespace
