// What the library does when a certain call fails. Each of these was found by a seed.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "ipc/Announcement.h"
#include "kpl/ipc/IpcServerPipeImpl.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/faults/FaultyCalls.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/Process.h"
#include "tests/support/RawClient.h"
#include "tests/support/TempDir.h"

namespace {

using kpl::test::AllFail;
using kpl::test::FaultKind;
using kpl::test::WaitUntil;

class FaultTest : public ::testing::Test {
protected:
    FaultTest() { kpl::ipc::SetPipeRootPath(m_dir.c_str()); }

    const kpl::test::TempDir m_dir;
};

struct Observer : public kpl::ipc::IpcServerObserver {
    void ServerOpened(const char*) override { ++opened; }
    bool ClientAccepted(kpl::ipc::IpcStreamer*) override { return true; }
    void ServerClosed() override { ++closed; }

    int opened = 0;
    int closed = 0;
};

TEST_F(FaultTest, AnIpcServerWithoutAThreadToAcceptOnDoesNotStart) {
    Observer observer;
    kpl::ipc::IpcServerPipeImpl server;
    ASSERT_TRUE(server.RegisterObserver(&observer));
    {
        const AllFail noThread(FaultKind::Thread, EAGAIN);
        EXPECT_FALSE(server.Start("Foo", nullptr));
        EXPECT_GT(noThread.Count(), 0);
    }
    EXPECT_EQ(observer.closed, observer.opened);
    EXPECT_TRUE(m_dir.Entries().empty()) << "nobody would ever read it";
    EXPECT_TRUE(server.Start("Foo", nullptr));
    EXPECT_TRUE(server.Stop());
}

TEST_F(FaultTest, AnRpcServerWithoutAThreadToAcceptOnCanBeStartedAgain) {
    kpl::rpc::RpcServer server;
    {
        const AllFail noThread(FaultKind::Thread, EAGAIN);
        EXPECT_FALSE(server.Start("Foo", nullptr));
    }
    ASSERT_TRUE(server.Start("Foo", nullptr));
    kpl::rpc::RpcClient client;
    EXPECT_TRUE(client.Connect("Foo", nullptr, 10000));
    client.Disconnect();
    EXPECT_TRUE(server.Stop());
}

TEST_F(FaultTest, AClientWithoutAThreadToReadOnIsNotConnected) {
    kpl::rpc::RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    kpl::rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    {
        kpl::rpc::RpcServer server;
        ASSERT_TRUE(server.Start("Foo", nullptr));
        kpl::rpc::RpcClient client;
        {
            const AllFail noThread(FaultKind::Thread, EAGAIN);
            EXPECT_FALSE(client.Connect("Foo", nullptr, 10000));
            EXPECT_GT(noThread.Count(), 0);
        }
        EXPECT_EQ(client.GetServerName(), nullptr);
        ASSERT_TRUE(client.Connect("Foo", nullptr, 10000));
        EXPECT_EQ(kpl::rpc::Call<int>(client, 10000, "Add", 19, 23), 42);
        client.Disconnect();
        EXPECT_TRUE(server.Stop());
    }
    kpl::rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
}

TEST_F(FaultTest, ATcpServerWithoutAThreadToAcceptOnDoesNotStart) {
    kpl::test::Script script;
    kpl::test::LineServer server(&script);
    {
        const AllFail noThread(FaultKind::Thread, EAGAIN);
        EXPECT_FALSE(server.StartServer());
    }
    EXPECT_TRUE(server.StartServer());
    EXPECT_TRUE(server.StopServer());
}

// An announcement that nobody has read is gone with the last descriptor of the FIFO's readers.
TEST_F(FaultTest, TheRootFifoKeepsItsReaderWhenNoDescriptorIsLeft) {
    kpl::ipc::IpcServerPipeImpl server;
    ASSERT_TRUE(server.DoStart("Foo", nullptr));
    const std::string root = m_dir.Path() + "/FooRoot";
    // Returns the descriptor that it wrote to, -1 if nobody reads.
    const auto announce = [&](uint32_t id) {
        const int writer = open(root.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        const kpl::ipc::Announcement message{kpl::ipc::kAnnouncementMagic, id, 0, 0};
        EXPECT_EQ(write(writer, &message, sizeof(message)), writer == -1 ? -1 : 16);
        return writer;
    };
    const int reader = open(root.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int first = announce(1);
    ASSERT_NE(server.DoAccept(), nullptr);
    close(reader);
    close(first);
    {
        const AllFail noDescriptor(FaultKind::Open, EMFILE);
        EXPECT_EQ(server.DoAccept(), nullptr);  // the end of the file
        EXPECT_GT(noDescriptor.Count(), 0);
    }
    const int second = announce(2);
    ASSERT_NE(second, -1) << "nobody reads the Root FIFO";
    close(second);
    EXPECT_NE(server.DoAccept(), nullptr);
    EXPECT_TRUE(server.DoStop());
    server.DoStopped();
}

// The results of a client that does not read need the outbox's thread.
TEST_F(FaultTest, AConnectionWhoseOutboxHasNoThreadEndsAndTheServerStops) {
    constexpr int kCalls = 10;  // more than a FIFO holds
    kpl::rpc::RpcFunctionTable table;
    table.Bind("Big", [](int length) { return std::string(static_cast<size_t>(length), 'x'); });
    kpl::rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    {
        kpl::rpc::RpcServer server;
        ASSERT_TRUE(server.Start("Foo", nullptr));
        kpl::test::RawClient client(m_dir.Path(), "Foo", 1);
        ASSERT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 1; }));
        const AllFail noThread(FaultKind::Thread, EAGAIN);
        for (unsigned int i = 0; i < kCalls; ++i) {
            (void)client.Write(kpl::test::RawInvoke(i, "Big", 12000));  // it may have ended by now
        }
        ASSERT_TRUE(WaitUntil([&] { return noThread.Count() > 0; }));
        EXPECT_TRUE(client.AwaitEnd());
        EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 0; }));
        EXPECT_TRUE(server.Stop());
    }
    kpl::rpc::RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
}

}  // namespace
