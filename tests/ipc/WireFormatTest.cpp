// The worked examples of the documents are what the library writes and reads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/ipc/IpcServerPipeImpl.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/ipc/PipePath.h"
#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using kpl::ipc::IpcClientPipeImpl;
using kpl::ipc::IpcServerPipeImpl;
using kpl::ipc::IpcStreamerPipeImpl;
using kpl::test::IpcTest;

class WireFormatTest : public IpcTest {
protected:
    // What one step of a server makes of these bytes.
    static int AnnouncedId(IpcServerPipeImpl* server, int root, const std::string& bytes) {
        EXPECT_TRUE(kpl::test::WriteAll(root, bytes.data(), bytes.size()));
        auto* streamer = static_cast<IpcStreamerPipeImpl*>(server->DoAccept());
        return streamer != nullptr ? streamer->GetId() : -1;
    }
};

TEST_F(WireFormatTest, TheClientWritesTheDocumentedAnnouncement) {
    ASSERT_EQ(mkfifo(Path("FooRoot").c_str(), 0700), 0);
    const int root = open(Path("FooRoot").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    IpcClientPipeImpl client;
    srand48(1);
    const auto id = static_cast<uint32_t>(lrand48());
    srand48(1);
    EXPECT_FALSE(client.Connect("Foo", nullptr, 0));
    char buf[64];
    const ssize_t got = read(root, buf, sizeof(buf));
    ASSERT_EQ(got, 16);
    std::string expected = kpl::test::WireFormatsExample("announcement");
    ASSERT_EQ(expected.size(), 16U);
    for (size_t i = 0; i < 4; ++i) {
        expected[4 + i] = static_cast<char>(id >> (8 * i) & 0xff);
    }
    EXPECT_EQ(std::string(buf, 16), expected);
    close(root);
    unlink(Path("FooRoot").c_str());
}

TEST_F(WireFormatTest, TheServerReadsTheDocumentedAnnouncements) {
    IpcServerPipeImpl server;
    ASSERT_TRUE(server.DoStart("Foo", nullptr));
    const int root = open(Path("FooRoot").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(AnnouncedId(&server, root, kpl::test::WireFormatsExample("announcement")), 17);
    const std::string extended = kpl::test::WireFormatsExample("announcement-with-extra-data");
    ASSERT_EQ(extended.size(), 24U);
    EXPECT_EQ(AnnouncedId(&server, root, extended), 17);
    EXPECT_EQ(AnnouncedId(&server, root, kpl::test::GoodAnnouncement(18)), 18) << "24 were skipped";
    close(root);
    EXPECT_TRUE(server.DoStop());
}

TEST_F(WireFormatTest, TheDocumentedPathsAreTheOnesInUse) {
    kpl::ipc::SetPipeRootPath("/tmp");
    const std::string text = kpl::test::WireFormatsPage();
    char buf[64];
    ASSERT_TRUE(kpl::ipc::GetPipeServerRootPath("Foo", buf, sizeof(buf)));
    EXPECT_NE(text.find(std::string("`") + buf + "`"), std::string::npos) << buf;
    ASSERT_TRUE(kpl::ipc::GetPipeServerPath("Foo", 17, buf, sizeof(buf)));
    EXPECT_NE(text.find(std::string("`") + buf + "`"), std::string::npos) << buf;
    ASSERT_TRUE(kpl::ipc::GetPipeClientPath("Foo", 17, buf, sizeof(buf)));
    EXPECT_NE(text.find(std::string("`") + buf + "`"), std::string::npos) << buf;
    kpl::ipc::SetPipeRootPath(Dir().c_str());
}

TEST_F(WireFormatTest, TheDocumentedLimitOfRootAndNameHolds) {
    const std::string fits(238 - Dir().Path().size(), 'n');
    IpcServerPipeImpl server;
    EXPECT_TRUE(server.DoStart(fits.c_str(), nullptr));
    EXPECT_TRUE(server.DoStop());
    EXPECT_FALSE(server.DoStart((fits + "n").c_str(), nullptr));
}

}  // namespace
