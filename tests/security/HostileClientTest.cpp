// What a client that means harm, and may use the FIFOs, can do to a server: nothing that costs the
// others their service, or the server its life or memory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OwnProgram.h"
#include "tests/support/Process.h"
#include "tests/support/RawClient.h"
#include "tests/support/RawConnection.h"
#include "tests/support/TempDir.h"

namespace {

using namespace kpl::rpc;
using kpl::test::AnnouncementBytes;
using kpl::test::GoodAnnouncement;
using kpl::test::LogCapture;
using kpl::test::RawClient;
using kpl::test::RawConnection;
using kpl::test::ThreadCount;
using kpl::test::WaitUntil;
using kpl::test::WriteToRoot;

constexpr uint32_t kMagic = 0x49504320;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
constexpr uint32_t kFlood = 2000;  // everything takes long
#else
constexpr bool kIsSanitized = false;
constexpr uint32_t kFlood = 10000;
#endif

// A sanitizer keeps freed memory, and so does valgrind; an emulator keeps some for every thread
// there ever was. The process's size then says nothing about us.
bool MemoryTells() {
    return !kIsSanitized && getenv("KPL_UNDER_VALGRIND") == nullptr && !kpl::test::IsEmulated();
}

// Resident memory in KiB.
long ResidentKib() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long kib = 0;
            status >> kib;
            return kib;
        }
    }
    return -1;
}

class HostileClientTest : public testing::Test {
protected:
    HostileClientTest() {
        kpl::ipc::SetPipeRootPath(m_directory.c_str());
        m_table.Bind("Add", [](int a, int b) { return a + b; });
        m_table.Bind("Echo", [](const std::string& text) { return text; });
        RpcExecutorManager::GetInstance()->RegisterExecutor(&m_table);
        EXPECT_TRUE(server.Start("S", nullptr));
    }
    ~HostileClientTest() override {
        EXPECT_TRUE(server.Stop());
        RpcExecutorManager::GetInstance()->UnregisterExecutor(&m_table);
        EXPECT_TRUE(m_directory.Entries().empty());
    }

    std::string Root() const { return m_directory.Path() + "/SRoot"; }
    const kpl::test::TempDir& Directory() const { return m_directory; }

    // Whether somebody else connects and is answered.
    static bool Serves() {
        RpcClient client;
        // Thousands of announcements may be in front of ours.
        return client.Connect("S", nullptr, 120000) && Call<int>(client, 60000, "Add", 2, 3) == 5;
    }

    bool IsForgotten() {
        return WaitUntil([&] { return m_directory.Entries() == std::vector<std::string>{"SRoot"}; },
                         20000);
    }

    RpcServer server;

private:
    kpl::test::TempDir m_directory;
    LogCapture m_quiet{LogCapture::Debug::Off};
    RpcFunctionTable m_table;
};

TEST_F(HostileClientTest, GarbageInTheRootFifoCostsNobodyAConnection) {
    std::string garbage;
    for (int i = 0; i < 4000; ++i) {
        garbage.push_back(static_cast<char>(i * 7919 >> 3));
    }
    for (int round = 0; round < 50; ++round) {
        // Also cut short, so that the next one begins anywhere.
        ASSERT_TRUE(WriteToRoot(Root(), garbage.substr(0, 3999 - static_cast<size_t>(round))));
        if (round % 10 == 0) {
            EXPECT_TRUE(Serves()) << round;
        }
    }
    EXPECT_TRUE(Serves());
}

TEST_F(HostileClientTest, HugeLengthsInAnnouncementsCostNobodyAConnection) {
    for (const uint32_t length : {0x7fffffffU, 0x80000000U, 0xffffffffU, 0x40000U}) {
        ASSERT_TRUE(WriteToRoot(Root(), AnnouncementBytes(kMagic, 5, 0, length)));
        EXPECT_TRUE(Serves()) << length;
        ASSERT_TRUE(WriteToRoot(Root(), AnnouncementBytes(kMagic + 1, 5, 0, length)));
        EXPECT_TRUE(Serves()) << length;
    }
}

// They announce themselves and do not come. The open limit of five seconds would make that fourteen
// hours, if the server waited for one after the other.
TEST_F(HostileClientTest, TenThousandAnnouncementsStopNobodyAndAreForgotten) {
    const int threads = ThreadCount();
    const long before = ResidentKib();
    std::atomic<bool> isOver{false};
    std::atomic<int> most{0};
    std::thread flood([&] {
        for (uint32_t id = 1; id <= kFlood; ++id) {
            ASSERT_TRUE(WriteToRoot(Root(), GoodAnnouncement(id)));
            if (id % 100 == 0) {
                most = std::max(most.load(), ThreadCount());
            }
        }
        isOver = true;
    });
    int served = 0;
    do {
        EXPECT_TRUE(Serves());
        ++served;
    } while (!isOver);
    flood.join();
    EXPECT_GT(served, 0);
    EXPECT_TRUE(Serves());
    EXPECT_LT(most, threads + 100) << "64 are waited for at a time";
    server.SetOpenTimeout(0);
    EXPECT_TRUE(WaitUntil([&] { return ThreadCount() <= threads + 2; }, 30000));
    EXPECT_TRUE(IsForgotten());
    if (MemoryTells()) {
        EXPECT_LT(ResidentKib() - before, 32 * 1024);
    }
}

// A client whose other side was seen is not given up for one that only announces itself.
TEST_F(HostileClientTest, AClientThatIsComingKeepsItsPlaceInAFlood) {
    server.SetOpenTimeout(60000);
    const std::string toClient = Directory().Path() + "/SClient77";
    RawConnection slow = kpl::test::RawConnect(Directory().Path(), "S", 77, 4);
    slow.readFd = open(toClient.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(slow.readFd, -1);
    // It is seen once the server has opened the other end of this FIFO.
    ASSERT_TRUE(WaitUntil([&] {
        char byte = 0;
        return read(slow.readFd, &byte, 1) == -1 && errno == EAGAIN;
    }));
    for (uint32_t id = 100; id < 400; ++id) {
        ASSERT_TRUE(WriteToRoot(Root(), GoodAnnouncement(id)));
    }
    EXPECT_TRUE(Serves());
    slow.writeFd = open((Directory().Path() + "/SServer77").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_NE(slow.writeFd, -1);
    EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 1; }));
    slow.Close();
}

// Each asks for more than its FIFO holds and reads nothing.
TEST_F(HostileClientTest, ClientsThatNeverReadStopNobodyAndCostLittle) {
    server.SetWriteTimeout(3000);
    const long before = ResidentKib();
    char buffer[16384];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    ASSERT_TRUE(muxer.Push(std::string(15000, 'x').c_str()));
    const int size = muxer.Finish(RPC_COMMAND_INVOKE, "Echo", 1);
    const std::string command(buffer, static_cast<size_t>(size));
    {
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int id = 1; id <= 10; ++id) {
            clients.push_back(std::make_unique<RawClient>(Directory().Path(), "S", id));
            for (int i = 0; i < 6; ++i) {  // four answers fit into the FIFO
                ASSERT_TRUE(clients.back()->Write(command));
            }
        }
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(Serves());
        }
        if (MemoryTells()) {
            EXPECT_LT(ResidentKib() - before, 16 * 1024);
        }
        EXPECT_TRUE(WaitUntil([&] { return server.GetConnectionCount() == 0; }, 20000));
    }
    EXPECT_TRUE(IsForgotten());
}

// 16384 bytes is the largest command. One that claims more, or counts more parameters than fit,
// ends its connection before more of it is read.
TEST_F(HostileClientTest, HugeLengthsInACommandEndItsConnectionAlone) {
    for (const int total : {16385, 0x7fffffff, -1}) {
        RawClient client(Directory().Path(), "S", 9);
        std::string header = kpl::test::RawInvoke(1, "Add", 1).substr(0, 16);
        header.replace(8, 4, reinterpret_cast<const char*>(&total), 4);
        ASSERT_TRUE(client.Write(header));
        EXPECT_TRUE(client.AwaitEnd()) << total;
        EXPECT_TRUE(Serves());
        client.Close();
        EXPECT_TRUE(IsForgotten());
    }
}

TEST_F(HostileClientTest, AnIdThatIsInUseTakesNothingFromItsOwner) {
    RawClient owner(Directory().Path(), "S", 5);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(WriteToRoot(Root(), GoodAnnouncement(5)));
    }
    EXPECT_TRUE(Serves());
    ASSERT_TRUE(owner.Write(kpl::test::RawInvoke(3, "Echo", 1)));
    EXPECT_FALSE(owner.ReadCommand().empty());
}

}  // namespace
