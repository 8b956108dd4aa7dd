#include <signal.h>
#include <unistd.h>

#include <fstream>

#include "tests/cli/Tool.h"
#include "tests/support/RawClient.h"

namespace {

using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::WaitUntil;

class RecordTest : public kpl::test::ToolTest {
protected:
    std::unique_ptr<Program> StartRecorder() const {
        auto recorder = Start({"record", "Public", "Real", m_file});
        EXPECT_TRUE(recorder->WaitForOutput("Ctrl-C stops\n")) << recorder->Errors();
        AwaitReader("Public");
        return recorder;
    }

    // Stops it and compares what it printed at its end.
    void StopRecorder(Program* recorder, const std::string& summary) const {
        recorder->Kill(SIGINT);
        EXPECT_EQ(0, recorder->Wait());
        EXPECT_EQ("recording Public -> Real in " + m_file + "; Ctrl-C stops\n" + summary + "\n",
                  recorder->Output());
        EXPECT_EQ("", recorder->Errors());
    }

    // The dump of the file without its times.
    std::string Dump() const {
        const ProgramResult dump = RunBare({"dump", m_file});
        EXPECT_EQ(0, dump.code);
        EXPECT_EQ("", dump.errors);
        std::string text;
        for (std::string line : kpl::test::Lines(dump.output)) {
            if (line.compare(0, 4, "    ") != 0) {
                line.erase(0, line.find('#'));
            }
            const size_t after = line.find(", after ");
            text += line.substr(0, after) + "\n";
        }
        return text;
    }

    const std::string m_file = m_files.Path() + "/recording";
};

TEST_F(RecordTest, PassesCallsOnAndRecordsThem) {
    const auto server = StartServer("Real");
    const auto recorder = StartRecorder();
    Expect({"call", "Public", "Add", "int:19", "int:23"}, 0, "int 42\n", "");
    Expect({"call", "--callbacks", "1", "Public", "Notify", "int:1"}, 0,
           "int 1\ncallback\n  int 1\n  str \"event\"\n", "");
    // The recorder sees the end of a connection after its client has gone.
    ASSERT_TRUE(WaitUntil([&] { return m_root.Entries().size() == 2; }, 30000));
    const std::string words = "    callback ";
    std::string dump;
    ASSERT_TRUE(WaitUntil(
        [&] {
            dump = Dump();
            return dump.find("#2 closed") != std::string::npos;
        },
        30000))
        << dump;
    const size_t at = dump.find(words);
    ASSERT_NE(std::string::npos, at) << dump;
    dump.replace(at, dump.find('\n', at) - at, words + "WORDS");
    EXPECT_EQ(
        "#1 opened\n#1 > invoke 0 Add\n    int 19\n    int 23\n#1 < result 0 Add\n    int 42\n"
        "#1 closed\n"
        "#2 opened\n#2 > invoke 0 Notify\n    int 1\n    callback WORDS\n"
        "#2 < callback 0 Notify\n    int 0\n    int 1\n    str \"event\"\n"
        "#2 < result 0 Notify\n    int 1\n#2 closed\n",
        dump);
    recorder->Kill(SIGTERM);
    EXPECT_EQ(0, recorder->Wait());
    EXPECT_EQ(std::vector<std::string>{"RealRoot"}, m_root.Entries());
}

TEST_F(RecordTest, BytesThatAreNoCommandPassToo) {
    const auto server = StartServer("Real");
    const auto recorder = StartRecorder();
    {
        kpl::test::RawClient client(m_root.Path(), "Public", 17);
        ASSERT_TRUE(client.Write("hello"));
        EXPECT_TRUE(client.AwaitEnd()) << "the server ends such a connection";
    }
    ASSERT_TRUE(WaitUntil([&] { return Dump().find("closed") != std::string::npos; }, 30000));
    StopRecorder(recorder.get(), "recorded 1 connection, 3 entries");
    EXPECT_EQ("#1 opened\n#1 > no command, 5 bytes: 68656c6c6f\n#1 closed\n", Dump());
}

TEST_F(RecordTest, AStopEndsOpenConnectionsAndRemovesTheFifos) {
    const auto server = StartServer("Real");
    const auto recorder = StartRecorder();
    const auto client = Start({"call", "Public", "Hang"});
    ASSERT_TRUE(WaitUntil([&] { return Dump().find("Hang") != std::string::npos; }, 30000));
    StopRecorder(recorder.get(), "recorded 1 connection, 3 entries");
    EXPECT_EQ(5, client->Wait());
    EXPECT_EQ("#1 opened\n#1 > invoke 0 Hang\n#1 closed\n", Dump());
    server->Kill(SIGKILL);
    EXPECT_EQ(128 + SIGKILL, server->Wait());
    for (const std::string& entry : m_root.Entries()) {
        EXPECT_NE("PublicRoot", entry);
        EXPECT_NE(0, entry.compare(0, 6, "Public")) << entry;
    }
}

TEST_F(RecordTest, ARealServerThatDiesEndsItsConnections) {
    const auto server = StartServer("Real");
    const auto recorder = StartRecorder();
    Expect({"call", "Public", "Die"}, 5, "",
           "kpl-rpc: server 'Public' went away; `kpl-rpc list " + m_root.Path() +
               "` shows whether it is back\n");
    ASSERT_TRUE(WaitUntil([&] { return Dump().find("closed") != std::string::npos; }, 30000));
    StopRecorder(recorder.get(), "recorded 1 connection, 3 entries");
    EXPECT_EQ("#1 opened\n#1 > invoke 0 Die\n#1 closed\n", Dump());
}

TEST_F(RecordTest, AClientThatTheRealServerDoesNotTakeIsRefused) {
    auto server = StartServer("Real");
    const auto recorder = StartRecorder();
    server->Kill(SIGTERM);
    EXPECT_EQ(0, server->Wait());
    EXPECT_EQ(5, Run({"call", "Public", "Add"}).code);
    ASSERT_TRUE(WaitUntil([&] { return Dump().find("refused") != std::string::npos; }, 30000));
    StopRecorder(recorder.get(), "recorded 1 connection, 2 entries");
    EXPECT_EQ("#1 opened\n#1 refused by the real server\n", Dump());
}

// The file would be opened as descriptor 1 or 2, and get what is printed there.
TEST_F(RecordTest, ClosedStandardStreamsDoNotGetIntoTheFile) {
    const auto server = StartServer("Real");
    kpl::test::ChildProcess recorder([&] {
        const std::string command = "exec " KPL_EMULATOR " " KPL_BIN_DIR "/kpl-rpc record --root " +
                                    m_root.Path() + " Public Real " + m_file + " <&- >&- 2>&-";
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        return 127;
    });
    ASSERT_TRUE(WaitUntil([&] { return Run({"call", "Public", "Count"}).code == 0; }, 30000));
    ASSERT_TRUE(WaitUntil([&] { return Dump().find("closed") != std::string::npos; }, 30000));
    recorder.Kill(SIGINT);
    EXPECT_EQ(0, recorder.Wait());
    EXPECT_EQ("#1 opened\n#1 > invoke 0 Count\n#1 < result 0 Count\n    int 1\n#1 closed\n",
              Dump());
}

TEST_F(RecordTest, AServerThatIsThereIsNotReplaced) {
    const auto server = StartServer("Real");
    const auto other = StartServer("Public");
    Expect({"record", "Public", "Real", m_file}, 7, "",
           "kpl-rpc: there is a server 'Public' already; start it under another name and record "
           "that\n");
    EXPECT_FALSE(std::ifstream(m_file).good());
}

TEST_F(RecordTest, WhatCannotBeRecordedIsSaid) {
    Expect({"record", "Public", "Real", m_file}, 3, "",
           "kpl-rpc: no server 'Real' in " + m_root.Path() + "; `kpl-rpc list " + m_root.Path() +
               "` shows the ones there are\n");
    Expect({"record", "Real", "Real", m_file}, 2, "",
           "kpl-rpc: the two names are the same: the relay would call itself; see `kpl-rpc help "
           "record`\n");
    const auto server = StartServer("Real");
    const std::string existing = WriteFile("existing", "x");
    Expect(
        {"record", "Public", "Real", existing}, 6, "",
        "kpl-rpc: cannot make '" + existing + "': File exists; remove it, or take another name\n");
    EXPECT_EQ("x", kpl::test::ReadWhole(existing));
}

}  // namespace
