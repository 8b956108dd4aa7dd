// What stands at the places of the FIFOs, who made it, and who may use it.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcClient.h"
#include "kpl/rpc/RpcServer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/RawConnection.h"
#include "tests/support/TempDir.h"

namespace {

using kpl::rpc::RpcClient;
using kpl::rpc::RpcServer;
using kpl::test::ChildProcess;
using kpl::test::LogCapture;
using kpl::test::WaitUntil;

class FifoPlacesTest : public testing::Test {
protected:
    FifoPlacesTest() { kpl::ipc::SetPipeRootPath(m_directory.c_str()); }
    ~FifoPlacesTest() override { umask(m_mask); }

    std::string Path(const std::string& entry) const { return m_directory.Path() + "/" + entry; }

    // Of what a server and a client make under that mask.
    void ExpectModes(mode_t mask, mode_t expected) {
        umask(mask);
        RpcServer server;
        ASSERT_TRUE(server.Start("S", nullptr));
        RpcClient client;
        ASSERT_TRUE(client.Connect("S", nullptr, 10000));
        ASSERT_EQ(m_directory.Entries().size(), 3U);
        for (const std::string& entry : m_directory.Entries()) {
            struct stat status {};
            ASSERT_EQ(lstat(Path(entry).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFIFO) | expected) << entry;
        }
    }

    // What `body` returns in a child process of a user without rights; -1 where this process cannot
    // make one.
    static int AsNobody(const std::function<int()>& body) {
        const passwd* const nobody = getpwnam("nobody");
        if (geteuid() != 0 || nobody == nullptr) {
            return -1;
        }
        const uid_t user = nobody->pw_uid;
        const gid_t group = nobody->pw_gid;
        ChildProcess child([&] {
            const bool isNobody =
                setgroups(0, nullptr) == 0 && setgid(group) == 0 && setuid(user) == 0;
            return isNobody ? body() : 99;
        });
        return child.Wait();
    }

    kpl::test::TempDir m_directory;

private:
    LogCapture m_quiet{LogCapture::Debug::Off};
    const mode_t m_mask = umask(022);
};

TEST_F(FifoPlacesTest, TheUmaskAloneDecidesWhoMayUseAFifo) {
    ExpectModes(0, 0777);
    ExpectModes(022, 0755);
    ExpectModes(077, 0700);
}

TEST_F(FifoPlacesTest, ASymbolicLinkAtTheRootFifosPlaceIsRefused) {
    ASSERT_EQ(mkfifo(Path("elsewhere").c_str(), 0700), 0);
    ASSERT_EQ(symlink(Path("elsewhere").c_str(), Path("SRoot").c_str()), 0);
    RpcServer server;
    EXPECT_FALSE(server.Start("S", nullptr));

    const int elsewhere = open(Path("elsewhere").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(elsewhere, -1);
    RpcClient client;
    EXPECT_FALSE(client.Connect("S", nullptr, 10000));
    char byte = 0;
    EXPECT_EQ(read(elsewhere, &byte, 1), -1) << "a client announced itself through the link";
    close(elsewhere);
}

// Links where a connection's FIFOs will stand: they are neither followed nor written through.
TEST_F(FifoPlacesTest, SymbolicLinksAtAConnectionsPlacesLeadNowhere) {
    for (const char* entry : {"SServer7", "SClient7"}) {
        const std::string target = Path(std::string("of_") + entry);
        ASSERT_EQ(mkfifo(target.c_str(), 0700), 0);
        ASSERT_EQ(symlink(target.c_str(), Path(entry).c_str()), 0);
    }
    const int written = open(Path("of_SClient7").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const int read = open(Path("of_SServer7").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_TRUE(written != -1 && read != -1);
    RpcServer server;
    ASSERT_TRUE(server.Start("S", nullptr));
    ASSERT_TRUE(kpl::test::WriteToRoot(Path("SRoot"), kpl::test::GoodAnnouncement(7)));
    // The server gives the connection up and removes the links, not what they led to.
    EXPECT_TRUE(WaitUntil([&] {
        struct stat status {};
        return lstat(Path("SServer7").c_str(), &status) != 0 &&
               lstat(Path("SClient7").c_str(), &status) != 0;
    }));
    EXPECT_EQ(server.GetConnectionCount(), 0);
    struct stat status {};
    EXPECT_EQ(stat(Path("of_SClient7").c_str(), &status), 0);
    close(written);
    close(read);
}

TEST_F(FifoPlacesTest, AFileAtTheRootFifosPlaceIsRefusedAndLeftAsItIs) {
    std::ofstream(Path("SRoot")) << "precious";
    RpcServer server;
    EXPECT_FALSE(server.Start("S", nullptr));
    RpcClient client;
    EXPECT_FALSE(client.Connect("S", nullptr, 10000));
    std::ifstream file(Path("SRoot"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "precious");
}

TEST_F(FifoPlacesTest, APrivatePipeRootKeepsOtherUsersOut) {
    ASSERT_EQ(chmod(m_directory.c_str(), 0700), 0);
    umask(0);  // the directory alone must do it
    const std::string root = Path("SRoot");
    ASSERT_EQ(mkfifo(root.c_str(), 0777), 0);  // as a server makes it
    const int result = AsNobody([&] {
        const bool canAnnounce = open(root.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC) != -1;
        const bool canMake = mkfifo(Path("SServer1").c_str(), 0777) == 0;
        const bool canRemove = unlink(root.c_str()) == 0;
        return (canAnnounce ? 1 : 0) + (canMake ? 2 : 0) + (canRemove ? 4 : 0);
    });
    if (result == -1) {
        GTEST_SKIP() << "only root can become another user";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(FifoPlacesTest, UnderAUmaskOf022OtherUsersCannotAnnounceThemselves) {
    ASSERT_EQ(chmod(m_directory.c_str(), 01777), 0);
    umask(022);
    const std::string root = Path("SRoot");
    ASSERT_EQ(mkfifo(root.c_str(), 0777), 0);  // as a server makes it
    const int reader = open(root.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    const int result = AsNobody([&] {
        return kpl::ipc::IpcClientPipeImpl().Connect("S", nullptr, 100) ||
                       open(root.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC) != -1
                   ? 1
                   : 0;
    });
    close(reader);
    if (result == -1) {
        GTEST_SKIP() << "only root can become another user";
    }
    EXPECT_EQ(result, 0);
}

}  // namespace
