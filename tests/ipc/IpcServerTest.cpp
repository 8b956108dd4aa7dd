#include "kpl/ipc/IpcServer.h"

#include <gtest/gtest.h>

#include "tests/support/VirtualSlot.h"

namespace {

using kpl::ipc::IpcServer;
using kpl::ipc::IpcServerObserver;
using kpl::test::SlotOf;

TEST(IpcServerTest, TheVirtualOperationsKeepTheirSlots) {
    EXPECT_EQ(SlotOf(&IpcServer::Start), 0);
    EXPECT_EQ(SlotOf(&IpcServer::Stop), 1);
    EXPECT_EQ(SlotOf(&IpcServer::RegisterObserver), 2);
    EXPECT_EQ(SlotOf(&IpcServer::UnregisterObserver), 3);
    EXPECT_EQ(SlotOf(&IpcServer::GetServerName), 4);
    EXPECT_EQ(SlotOf(&IpcServer::GetParameter), 5);
}

TEST(IpcServerObserverTest, TheVirtualOperationsKeepTheirSlots) {
    EXPECT_EQ(SlotOf(&IpcServerObserver::ServerOpened), 0);
    EXPECT_EQ(SlotOf(&IpcServerObserver::ClientAccepted), 1);
    EXPECT_EQ(SlotOf(&IpcServerObserver::ServerClosed), 2);
}

}  // namespace
