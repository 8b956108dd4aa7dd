#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/cli/Terminal.h"
#include "tests/cli/Tool.h"

namespace {

using kpl::test::ProgramResult;
using kpl::test::TerminalTool;

class CleanTest : public kpl::test::ToolTest {
protected:
    using Names = std::vector<std::string>;

    void ExpectClean(const Words& more, int code, const std::string& output,
                     const std::string& errors) const {
        Words words = {"clean", m_root.Path()};
        words.insert(words.end(), more.begin(), more.end());
        const ProgramResult result = RunBare(words);
        EXPECT_EQ(code, result.code);
        EXPECT_EQ(output, result.output);
        EXPECT_EQ(errors, result.errors);
    }

    std::string Lines(const Names& names) const {
        std::string text;
        for (const std::string& name : names) {
            text += Path(name) + "\n";
        }
        return text;
    }

    // What a killed server and its client leave.
    void LeaveStale() const {
        MakeFifo("FooRoot");
        MakeFifo("FooServer17");
        MakeFifo("FooClient17");
    }
};

TEST_F(CleanTest, WithoutAnythingStaleThereIsNothingToAsk) {
    ExpectClean({}, 0, "nothing to remove in " + m_root.Path() + "\n", "");
}

TEST_F(CleanTest, WithYesTheStaleOnesGo) {
    LeaveStale();
    MakeFifo("LostServer4");
    ExpectClean({"--yes"}, 0,
                Lines({"FooRoot", "FooClient17", "FooServer17", "LostServer4"}) + "4 removed\n",
                "");
    EXPECT_EQ(Names{}, m_root.Entries());
}

TEST_F(CleanTest, WithoutATerminalItRefuses) {
    LeaveStale();
    ExpectClean({}, 7, Lines({"FooRoot", "FooClient17", "FooServer17"}),
                "kpl-rpc: nothing removed: there is no terminal to ask at; --yes removes the "
                "above\n");
    EXPECT_EQ(3u, m_root.Entries().size());
}

TEST_F(CleanTest, OnATerminalItAsks) {
    for (const char* answer : {"n\n", "\n", "yess\n"}) {
        LeaveStale();
        TerminalTool clean({"clean", m_root.Path()}, "1");
        ASSERT_TRUE(clean.WaitFor("remove 3 FIFOs? [y/N] "));
        clean.Type(answer);
        EXPECT_EQ(7, clean.Wait());
        EXPECT_NE(std::string::npos, clean.Text().find("kpl-rpc: nothing removed\r\n"));
        EXPECT_EQ(3u, m_root.Entries().size());
        for (const std::string& entry : m_root.Entries()) {
            unlink(Path(entry).c_str());
        }
    }
    LeaveStale();
    TerminalTool clean({"clean", m_root.Path()}, "1");
    ASSERT_TRUE(clean.WaitFor("remove 3 FIFOs? [y/N] "));
    clean.Type("y\n");
    EXPECT_EQ(0, clean.Wait());
    EXPECT_NE(std::string::npos, clean.Text().find("3 removed\r\n"));
    EXPECT_EQ(Names{}, m_root.Entries());
}

TEST_F(CleanTest, CtrlCAtTheQuestionRemovesNothing) {
    LeaveStale();
    TerminalTool clean({"clean", m_root.Path()}, "1");
    ASSERT_TRUE(clean.WaitFor("[y/N] "));
    clean.Type("\003");
    EXPECT_EQ(130, clean.Wait());
    EXPECT_EQ(3u, m_root.Entries().size());
}

TEST_F(CleanTest, ALivingServerAndAllOfItsConnectionsStay) {
    const auto server = StartServer("Foo");
    MakeFifo("FooServer17");
    ExpectClean({"--yes"}, 0, "nothing to remove in " + m_root.Path() + "\n", "");
    EXPECT_EQ((Names{"FooRoot", "FooServer17"}), m_root.Entries());
}

TEST_F(CleanTest, AConnectionThatSomebodyHasOpenStays) {
    LeaveStale();
    const int client = open(Path("FooClient17").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ExpectClean({"--yes"}, 0, Lines({"FooRoot"}) + "1 removed\n", "");
    EXPECT_EQ((Names{"FooClient17", "FooServer17"}), m_root.Entries());
    close(client);
}

TEST_F(CleanTest, WhatIsNoFifoStays) {
    std::ofstream(Path("FileRoot")) << "x";
    std::ofstream(Path("FileServer5")) << "x";
    MakeFifo("fifo");
    ASSERT_EQ(0, symlink("fifo", Path("LinkRoot").c_str()));
    ExpectClean({"--yes"}, 0, "nothing to remove in " + m_root.Path() + "\n", "");
    EXPECT_EQ((Names{"FileRoot", "FileServer5", "LinkRoot", "fifo"}), m_root.Entries());
}

TEST_F(CleanTest, AnothersFifosStay) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    LeaveStale();
    for (const char* name : {"FooRoot", "FooServer17"}) {
        ASSERT_EQ(0, chown(Path(name).c_str(), 65534, 65534));
    }
    MakeFifo("LostServer4");
    ASSERT_EQ(0, chown(Path("LostServer4").c_str(), 65534, 65534));
    ExpectClean({"--yes"}, 0, "nothing to remove in " + m_root.Path() + "\n", "");
    EXPECT_EQ(4u, m_root.Entries().size());
}

TEST_F(CleanTest, WhatIsTakenIntoUseMeanwhileStays) {
    MakeFifo("FooRoot");
    TerminalTool clean({"clean", m_root.Path()}, "1");
    ASSERT_TRUE(clean.WaitFor("[y/N] "));
    const int server = open(Path("FooRoot").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    clean.Type("y\n");
    EXPECT_EQ(0, clean.Wait());
    EXPECT_NE(std::string::npos,
              clean.Text().find(Path("FooRoot") + " is in use by now, or gone: kept\r\n0 removed"));
    EXPECT_EQ(Names{"FooRoot"}, m_root.Entries());
    close(server);
}

TEST_F(CleanTest, AnotherFifoUnderTheNameStays) {
    MakeFifo("FooRoot");
    TerminalTool clean({"clean", m_root.Path()}, "1");
    ASSERT_TRUE(clean.WaitFor("[y/N] "));
    // Made before the old one goes, so that it is another file for certain.
    MakeFifo("new");
    ASSERT_EQ(0, rename(Path("new").c_str(), Path("FooRoot").c_str()));
    clean.Type("y\n");
    EXPECT_EQ(0, clean.Wait());
    EXPECT_EQ(Names{"FooRoot"}, m_root.Entries());
}

TEST_F(CleanTest, ADirectoryThatCannotBeReadIsSaid) {
    const ProgramResult result = RunBare({"clean", "--yes", Path("none")});
    EXPECT_EQ(6, result.code);
    EXPECT_EQ(
        "kpl-rpc: cannot read the directory '" + Path("none") + "': No such file or directory\n",
        result.errors);
}

}  // namespace
