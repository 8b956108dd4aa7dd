#include <signal.h>

#include "cli/RecordFile.h"
#include "kpl/rpc/RpcParam.h"
#include "tests/cli/Tool.h"
#include "tests/support/ScriptedServer.h"

namespace {

using kpl::cli::EntryKind;
using kpl::cli::RecordEntry;
using kpl::test::Program;
using kpl::test::ProgramResult;

class ReplayTest : public kpl::test::ToolTest {
protected:
    // Runs the calls through a recorder against a fresh server, which ends with it.
    void Record(const std::vector<Words>& calls) const {
        const auto server = StartServer("Real");
        const auto recorder = Start({"record", "Public", "Real", m_file});
        ASSERT_TRUE(recorder->WaitForOutput("Ctrl-C stops\n")) << recorder->Errors();
        AwaitReader("Public");
        for (const Words& call : calls) {
            Words words = {"call", "Public"};
            words.insert(words.end(), call.begin(), call.end());
            EXPECT_EQ(0, Run(words).code) << call[0];
        }
        recorder->Kill(SIGINT);
        EXPECT_EQ(0, recorder->Wait());
        server->Kill(SIGTERM);
        EXPECT_EQ(0, server->Wait());
    }

    // A recording of one connection.
    void WriteRecording(const std::vector<RecordEntry>& entries) const {
        std::string bytes = kpl::cli::RecordHeader(0);
        for (const RecordEntry& entry : entries) {
            bytes += kpl::cli::RecordEntryBytes(entry);
        }
        WriteFile("recording", bytes);
    }

    template <class... Args>
    static RecordEntry Invoke(unsigned int id, const char* function, Args... args) {
        char buffer[1024];
        kpl::rpc::RpcCommandMuxer muxer(buffer, sizeof(buffer));
        EXPECT_TRUE((muxer.Push(args) && ...));
        const int size = muxer.Finish(kpl::rpc::RPC_COMMAND_INVOKE, function, id);
        return {EntryKind::FromClient, 1, 0, std::string(buffer, static_cast<size_t>(size))};
    }

    template <class... Args>
    static RecordEntry Result(unsigned int id, Args... args) {
        return {EntryKind::FromServer, 1, 0, kpl::test::ResultBytes(id, args...)};
    }

    const std::string m_file = m_files.Path() + "/recording";
};

TEST_F(ReplayTest, TheSameResultsAreFound) {
    Record({{"Add", "int:19", "int:23"},
            {"Largest"},
            {"Odd"},
            {"Count"},
            {"Count"},
            {"Text", "str:hello"}});
    const auto server = StartServer("Other");
    Expect({"replay", m_file, "Other"}, 0, "6 calls, 0 results differ\n", "");
}

TEST_F(ReplayTest, WhatOnlyMeansSomethingInOneProcessIsNotCompared) {
    Record({{"List"}, {"List"}, {"--callbacks", "1", "Notify", "int:1"}});
    const auto server = StartServer("Other");
    Expect({"replay", m_file, "Other"}, 0, "3 calls, 0 results differ\n", "");
}

TEST_F(ReplayTest, OtherResultsAreShown) {
    Record({{"Add", "int:1", "int:2"}, {"Count"}});
    const auto server = StartServer("Other");
    EXPECT_EQ(0, Run({"call", "Other", "Count"}).code);
    Expect({"replay", m_file, "Other"}, 1,
           "#2 invoke 0 Count differs\n  parameter 0\n    recorded int 1\n    now      int 2\n"
           "2 calls, 1 results differ\n",
           "");
}

TEST_F(ReplayTest, AnotherTypeOrNumberOfParametersDiffers) {
    WriteRecording({Invoke(0, "Add", 1, 2), Result(0, 3LL), Invoke(1, "Add", 1, 2), Result(1, 3, 4),
                    Invoke(2, "Nope"), Result(2, 5)});
    const auto server = StartServer("Foo");
    Expect({"replay", m_file, "Foo"}, 1,
           "#1 invoke 0 Add differs\n  parameter 0\n    recorded longlong 3\n"
           "    now      int 3\n"
           "#1 invoke 1 Add differs\n  parameter 1\n    recorded int 4\n    now      nothing\n"
           "#1 invoke 2 Nope differs\n  parameter 0\n    recorded int 5\n    now      nothing\n"
           "3 calls, 3 results differ\n",
           "");
}

TEST_F(ReplayTest, ACallWithoutARecordedResultIsSent) {
    WriteRecording({Invoke(0, "Count"), Invoke(1, "Count"), Result(1, 2)});
    const auto server = StartServer("Foo");
    Expect({"replay", m_file, "Foo"}, 0, "2 calls, 0 results differ, 1 had no recorded result\n",
           "");
}

// Each recorded connection is one of its own, and ends where it ended.
TEST_F(ReplayTest, ConnectionsComeAndGoAsRecorded) {
    RecordEntry second = Invoke(0, "Count");
    second.connection = 2;
    WriteRecording({Invoke(0, "Count"), second, {EntryKind::Closed, 1, 0, ""}, Invoke(0, "Hang")});
    const auto server = StartServer("Foo");
    const auto replay = Start({"replay", m_file, "Foo"});
    // Two connections with two FIFOs each: the first one's end came before its second beginning.
    EXPECT_TRUE(kpl::test::WaitUntil([&] { return m_root.Entries().size() == 5; }, 30000));
    replay->Kill(SIGINT);
    EXPECT_EQ(130, replay->Wait());
}

// In its file the words of a callback are addresses of a process that has gone.
TEST_F(ReplayTest, CallbackWordsAreNotUsed) {
    const std::string words(8, '\x41');
    char buffer[256];
    kpl::rpc::RpcCommandMuxer muxer(buffer, sizeof(buffer));
    ASSERT_TRUE(muxer.Push(3) && muxer.PushBytes(kpl::rpc::RPC_PARAM_CALLBACK, words.data(), 8));
    const int size = muxer.Finish(kpl::rpc::RPC_COMMAND_INVOKE, "Notify", 0);
    WriteRecording({{EntryKind::FromClient, 1, 0, std::string(buffer, static_cast<size_t>(size))},
                    Result(0, 3),
                    Invoke(1, "Count"),
                    Result(1, 1)});
    const auto server = StartServer("Foo");
    const ProgramResult result = Run({"replay", "--verbose", m_file, "Foo"});
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("2 calls, 0 results differ\n", result.output);
    EXPECT_EQ(std::string::npos, result.errors.find("Invalid callback proxy"));
}

TEST_F(ReplayTest, NoAnswerEndsIt) {
    WriteRecording({Invoke(0, "Hang"), Invoke(1, "Count")});
    const auto server = StartServer("Foo");
    Expect({"replay", "--timeout", "300", m_file, "Foo"}, 4, "#1 invoke 0 Hang was not answered\n",
           "kpl-rpc: no answer from 'Foo' within 300 ms; --timeout waits longer, `kpl-rpc ping` "
           "shows whether it answers at all\n");
}

TEST_F(ReplayTest, AServerThatDiesEndsIt) {
    WriteRecording({Invoke(0, "Die"), Invoke(1, "Count")});
    const auto server = StartServer("Foo");
    Expect({"replay", m_file, "Foo"}, 5, "#1 invoke 0 Die was not answered\n",
           "kpl-rpc: server 'Foo' went away; `kpl-rpc list " + m_root.Path() +
               "` shows whether it is back\n");
}

TEST_F(ReplayTest, WithoutAServerNothingIsSent) {
    WriteRecording({Invoke(0, "Count")});
    Expect({"replay", m_file, "Foo"}, 3, "",
           "kpl-rpc: no server 'Foo' in " + m_root.Path() + "; `kpl-rpc list " + m_root.Path() +
               "` shows the ones there are\n");
}

TEST_F(ReplayTest, ADamagedFileIsNotSent) {
    WriteRecording({Invoke(0, "Count"), Invoke(1, "Count")});
    const std::string whole = kpl::test::ReadWhole(m_file);
    WriteFile("recording", whole.substr(0, whole.size() - 1));
    const auto server = StartServer("Foo");
    const ProgramResult result = Run({"replay", m_file, "Foo"});
    EXPECT_EQ(6, result.code);
    EXPECT_EQ("", result.output);
    EXPECT_NE(std::string::npos, result.errors.find("; nothing was sent\n")) << result.errors;
    Expect({"call", "Foo", "Count"}, 0, "int 1\n", "");
}

TEST_F(ReplayTest, AnEmptyRecordingHasNothingToSend) {
    WriteRecording({});
    Expect({"replay", m_file, "Foo"}, 0, "0 calls, 0 results differ\n", "");
}

}  // namespace
