// The bytes of docs/one-call.md, compared with those of a call that is really made.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>

#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RawClient.h"
#include "tests/support/RawConnection.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;

constexpr long kLimitMs = 60000;
constexpr char kName[] = "Calculator";

std::string Documented(const std::string& name) {
    return DocumentedBytes("one-call.md", name);
}

std::string ReadBytes(int fd, size_t size) {
    std::string bytes(size, '\0');
    return ReadAll(fd, bytes.data(), size) ? bytes : "";
}

class OneCallDocTest : public testing::Test {
protected:
    OneCallDocTest() : log(LogCapture::Debug::Off) { kpl::ipc::SetPipeRootPath(directory.c_str()); }

    // Opens the server's side of the connection that these bytes announce.
    RawConnection Accept(const std::string& announcement) const {
        int way[2] = {-1, -1};
        EXPECT_EQ(pipe2(way, O_CLOEXEC), 0);
        EXPECT_TRUE(WriteAll(way[1], announcement.data(), announcement.size()));
        int id = -1;
        const RawConnection connection = RawAccept(way[0], directory.Path(), kName, &id);
        close(way[0]);
        close(way[1]);
        return connection;
    }

    TempDir directory;
    LogCapture log;
};

// The client is the library's, the server's side is system calls.
TEST_F(OneCallDocTest, WhatTheClientWritesAndReads) {
    const std::string rootPath = directory.Path() + "/" + kName + "Root";
    ASSERT_EQ(mkfifo(rootPath.c_str(), 0600), 0);
    const int root = open(rootPath.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(root, -1);
    std::optional<int> sum;
    std::thread caller([&sum] {
        RpcClient client;
        if (client.Connect(kName, nullptr, kLimitMs)) {
            sum = Call<int>(client, kLimitMs, "Add", 19, 23);
        }
    });

    const std::string announcement = ReadBytes(root, 16);
    // The id is drawn at random: only its range is known.
    std::string expected = Documented("announcement");
    EXPECT_EQ(expected.size(), 16U);
    EXPECT_GE(announcement[7], 0);
    expected.replace(4, 4, announcement, 4, 4);
    EXPECT_EQ(expected, announcement);

    RawConnection connection = Accept(announcement);
    ASSERT_TRUE(connection.IsOpen());
    const std::string invoke = Documented("invoke");
    EXPECT_EQ(invoke, ReadBytes(connection.readFd, invoke.size()));
    const std::string result = Documented("result");
    EXPECT_TRUE(WriteAll(connection.writeFd, result.data(), result.size()));
    caller.join();
    EXPECT_EQ(sum, 42);
    connection.Close();
    close(root);
}

// The server is the library's, the client's side is system calls.
TEST_F(OneCallDocTest, WhatTheServerReadsAndWrites) {
    RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    RpcServer server;
    ASSERT_TRUE(server.Start(kName, nullptr));
    {
        const std::string announcement = Documented("announcement");
        int32_t id = 0;
        memcpy(&id, announcement.data() + 4, sizeof(id));
        RawClient client(directory.Path(), kName, id);
        EXPECT_TRUE(client.Write(Documented("invoke")));
        EXPECT_EQ(Documented("result"), client.ReadCommand());
        // The page says what the names of the two FIFOs are.
        const std::string page = DocumentText("one-call.md");
        EXPECT_NE(page.find("`/tmp/CalculatorServer" + std::to_string(id) + "`"), page.npos);
        EXPECT_NE(page.find("`/tmp/CalculatorClient" + std::to_string(id) + "`"), page.npos);
    }
    server.Stop();
    RpcExecutorManager::GetInstance()->UnregisterExecutor(&table);
}

}  // namespace
