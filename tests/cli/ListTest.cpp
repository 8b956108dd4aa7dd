#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/cli/Terminal.h"
#include "tests/cli/Tool.h"

namespace {

using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::UserText;

class ListTest : public kpl::test::ToolTest {
protected:
    ProgramResult List() const { return RunBare({"list", m_root.Path()}); }

    void ExpectList(const std::string& output) const {
        const ProgramResult result = List();
        EXPECT_EQ(0, result.code);
        EXPECT_EQ(output, result.output);
        EXPECT_EQ("", result.errors);
    }
};

TEST_F(ListTest, AnEmptyRootHasNoServers) {
    ExpectList("no servers in " + m_root.Path() + "\n");
}

TEST_F(ListTest, ShowsServersWithTheirProcesses) {
    const auto foo = StartServer("Foo");
    const auto bar = StartServer("Bar");
    ExpectList("alive   Bar, " + UserText(bar->Pid()) + "\nalive   Foo, " + UserText(foo->Pid()) +
               "\n");
}

TEST_F(ListTest, ShowsTheConnectionsOfAServer) {
    const auto server = StartServer("Foo");
    const auto client = Start({"call", "--callbacks", "2", "Foo", "Notify", "int:1"});
    ASSERT_TRUE(client->WaitForOutput("event"));
    std::string id;
    for (const std::string& entry : m_root.Entries()) {
        if (entry.compare(0, 9, "FooServer") == 0) {
            id = entry.substr(9);
        }
    }
    std::string first = UserText(server->Pid());
    std::string second = UserText(client->Pid());
    if (client->Pid() < server->Pid()) {
        std::swap(first, second);
    }
    ExpectList("alive   Foo, " + UserText(server->Pid()) + "\n  open    connection " + id + ", " +
               first + ", " + second.substr(4) + "\n");
}

TEST_F(ListTest, AKilledServerIsStaleAndSoAreItsConnections) {
    MakeFifo("FooRoot");
    MakeFifo("FooServer17");
    MakeFifo("FooClient17");
    MakeFifo("LostClient4");
    ExpectList(
        "stale   Foo, nobody reads its Root FIFO\n  unused  connection 17\n"
        "stale   Lost, no Root FIFO, only connections are left\n  unused  connection 4\n");
}

TEST_F(ListTest, WhatIsNoFifoIsForeign) {
    std::ofstream(Path("FileRoot")) << "x";
    ASSERT_EQ(0, mkdir(Path("FolderRoot").c_str(), 0700));
    MakeFifo("fifo");
    ASSERT_EQ(0, symlink("fifo", Path("LinkRoot").c_str()));
    std::ofstream(Path("PlainServer5")) << "x";
    ExpectList("foreign File, no FIFO\nforeign Folder, no FIFO\nforeign Link, no FIFO\n");
    ASSERT_EQ(0, rmdir(Path("FolderRoot").c_str()));
}

TEST_F(ListTest, AnothersFifoIsForeign) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    MakeFifo("FooRoot");
    ASSERT_EQ(0, chown(Path("FooRoot").c_str(), 65534, 65534));
    ExpectList("foreign Foo, of nobody\n");
}

TEST_F(ListTest, AProcessThatIsBlockedInItsOpenIsSeen) {
    MakeFifo("FooRoot");
    kpl::test::ChildProcess reader([&] {
        const int fd = open(Path("FooRoot").c_str(), O_RDONLY);  // waits for a writer
        return fd != -1 ? 0 : 1;
    });
    // It has no descriptor yet, so only the attempt to write shows it. That attempt lets it go on.
    EXPECT_TRUE(kpl::test::WaitUntil(
        [&] { return List().output == "alive   Foo, process not seen\n"; }, 30000));
    EXPECT_EQ(0, reader.Wait());
}

// A server that is seen in /proc is not touched: no byte, no open, so no end of file either.
TEST_F(ListTest, AServerDoesNotNotice) {
    MakeFifo("FooRoot");
    const int reader = open(Path("FooRoot").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(-1, reader);
    ExpectList("alive   Foo, " + UserText(getpid()) + "\n");
    pollfd descriptor{reader, POLLIN, 0};
    EXPECT_EQ(0, poll(&descriptor, 1, 0)) << "a writer that came and went shows as a hang-up";
    close(reader);
}

// To open one of its FIFOs could pass for the other side.
TEST_F(ListTest, AConnectionThatIsBeingOpenedDoesNotNotice) {
    MakeFifo("FooRoot");
    MakeFifo("FooServer17");
    const int root = open(Path("FooRoot").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int end = open(Path("FooServer17").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ExpectList("alive   Foo, " + UserText(getpid()) + "\n  open    connection 17, " +
               UserText(getpid()) + "\n");
    pollfd descriptor{end, POLLIN, 0};
    EXPECT_EQ(0, poll(&descriptor, 1, 0));
    close(root);
    close(end);
}

bool IsSleeping(pid_t pid) {
    const std::string stat = kpl::test::ReadWhole("/proc/" + std::to_string(pid) + "/stat");
    const size_t nameEnd = stat.rfind(')');
    return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") S") == 0;
}

// Without a descriptor it is not seen, and must be left alone all the same.
TEST_F(ListTest, AnEndThatIsBlockedInItsOpenIsNotReleased) {
    MakeFifo("FooRoot");
    MakeFifo("FooServer17");
    kpl::test::ChildProcess end([&] {
        const int fd = open(Path("FooServer17").c_str(), O_RDONLY);
        char byte = 0;
        return read(fd, &byte, 1) == 1 ? 0 : 1;  // 1: a writer came and went
    });
    ASSERT_TRUE(kpl::test::WaitUntil([&] { return IsSleeping(end.Pid()); }, 30000));
    const int root = open(Path("FooRoot").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ExpectList("alive   Foo, " + UserText(getpid()) + "\n  unused  connection 17\n");
    int peer = -1;
    EXPECT_TRUE(kpl::test::WaitUntil(
        [&] {
            peer = open(Path("FooServer17").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            return peer != -1;
        },
        30000));
    EXPECT_EQ(1, write(peer, "x", 1));
    EXPECT_EQ(0, end.Wait());
    close(peer);
    close(root);
}

TEST_F(ListTest, NamesDoNotReachTheTerminalAsTheyAre) {
    MakeFifo("a\033[31m\nRoot");
    ExpectList("stale   a\\x1b[31m\\n, nobody reads its Root FIFO\n");
}

TEST_F(ListTest, ADirectoryThatCannotBeReadIsSaid) {
    const ProgramResult result = RunBare({"list", Path("none")});
    EXPECT_EQ(6, result.code);
    EXPECT_EQ("", result.output);
    EXPECT_EQ(
        "kpl-rpc: cannot read the directory '" + Path("none") + "': No such file or directory\n",
        result.errors);
}

TEST_F(ListTest, OnATerminalThereAreColours) {
    MakeFifo("FooRoot");
    kpl::test::TerminalTool list({"list", m_root.Path()}, nullptr);
    EXPECT_EQ(0, list.Wait());
    EXPECT_EQ("\033[33mstale  \033[0m Foo, nobody reads its Root FIFO\r\n", list.Text());
}

TEST_F(ListTest, WithNoColorThereAreNone) {
    MakeFifo("FooRoot");
    kpl::test::TerminalTool list({"list", m_root.Path()}, "1");
    EXPECT_EQ(0, list.Wait());
    EXPECT_EQ("stale   Foo, nobody reads its Root FIFO\r\n", list.Text());
    kpl::test::TerminalTool empty({"list", m_root.Path()}, "");
    EXPECT_EQ(0, empty.Wait());
    EXPECT_NE(std::string::npos, empty.Text().find("\033[33m")) << "empty counts as not set";
}

}  // namespace
