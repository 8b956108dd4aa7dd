#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tests/cli/Tool.h"
#include "tests/support/WireFormatsPage.h"

namespace {

using kpl::test::ProgramResult;

class DumpTest : public kpl::test::ToolTest {
protected:
    static void ExpectDump(const Words& words, int code, const std::string& output,
                           const std::string& errors) {
        const ProgramResult result = RunBare(words);
        EXPECT_EQ(code, result.code);
        EXPECT_EQ(output, result.output);
        EXPECT_EQ(errors, result.errors);
    }

    static std::string Example() { return kpl::test::WireFormatsExample("recording"); }
};

TEST_F(DumpTest, TheWorkedExample) {
    ExpectDump({"dump", WriteFile("file", Example())}, 0,
               "0.000010 #1 opened\n0.000020 #1 > invoke 0 Add\n"
               "0.000030 #1 < result 0 Add, after 0.000010 s\n0.000040 #1 closed\n",
               "");
}

TEST_F(DumpTest, TheWorkedExampleAsJson) {
    ExpectDump({"dump", "--json", WriteFile("file", Example() + Example().substr(24))}, 0,
               "{\"us\":10,\"connection\":1,\"event\":\"opened\"}\n"
               "{\"us\":20,\"connection\":1,\"from\":\"client\",\"event\":\"invoke\",\"id\":0,"
               "\"function\":\"Add\",\"params\":[]}\n"
               "{\"us\":30,\"connection\":1,\"from\":\"server\",\"event\":\"result\",\"id\":0,"
               "\"function\":\"Add\",\"params\":[]}\n"
               "{\"us\":40,\"connection\":1,\"event\":\"closed\"}\n"
               "{\"us\":10,\"connection\":1,\"event\":\"opened\"}\n"
               "{\"us\":20,\"connection\":1,\"from\":\"client\",\"event\":\"invoke\",\"id\":0,"
               "\"function\":\"Add\",\"params\":[]}\n"
               "{\"us\":30,\"connection\":1,\"from\":\"server\",\"event\":\"result\",\"id\":0,"
               "\"function\":\"Add\",\"params\":[]}\n"
               "{\"us\":40,\"connection\":1,\"event\":\"closed\"}\n",
               "");
}

TEST_F(DumpTest, BadBytesAreShown) {
    std::string bytes = Example();
    bytes[64] = 'x';  // the first byte of the invoke
    const std::string path = WriteFile("file", bytes);
    const ProgramResult text = RunBare({"dump", path});
    EXPECT_EQ(0, text.code);
    EXPECT_NE(std::string::npos,
              text.output.find("0.000020 #1 > no command, 28 bytes: "
                               "78270000000000001c0000000100000032000000040000004164640"
                               "0\n"));
    const ProgramResult json = RunBare({"dump", "--json", path});
    EXPECT_NE(std::string::npos, json.output.find("\"event\":\"bytes\",\"hex\":\"7827"));
}

TEST_F(DumpTest, ACutFileIsShownUpToThereAndSaid) {
    const std::string path = WriteFile("file", Example().substr(0, 100));
    ExpectDump({"dump", path}, 6, "0.000010 #1 opened\n0.000020 #1 > invoke 0 Add\n",
               "kpl-rpc: '" + path + "': an entry is cut off at byte 92\n");
}

TEST_F(DumpTest, WhatIsNoRecordingIsSaid) {
    const std::string path = WriteFile("file", "hello");
    ExpectDump({"dump", path}, 6, "", "kpl-rpc: '" + path + "': is no recording of kpl-rpc\n");
    ExpectDump({"dump", Path("none")}, 6, "",
               "kpl-rpc: cannot read '" + Path("none") + "': No such file or directory\n");
    MakeFifo("fifo");
    ExpectDump({"dump", Path("fifo")}, 6, "",
               "kpl-rpc: '" + Path("fifo") + "' is no regular file\n");
}

// Much more than a pipe takes.
std::string ManyEntries() {
    const std::string example = kpl::test::WireFormatsExample("recording");
    std::string bytes = example.substr(0, 24);
    for (int i = 0; i < 5000; ++i) {
        bytes += example.substr(24);
    }
    return bytes;
}

// The tool with its output into a pipe, of which `take` bytes are read before it is closed.
int DumpIntoPipe(const std::string& path, size_t take, std::string* got) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, pipe(ends));
    kpl::test::ChildProcess dump([&] {
        signal(SIGPIPE, SIG_DFL);
        close(ends[0]);
        dup2(ends[1], STDOUT_FILENO);
        const std::string command = "exec " KPL_EMULATOR " " KPL_BIN_DIR "/kpl-rpc dump " + path;
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        return 127;
    });
    close(ends[1]);
    got->resize(take);
    size_t size = 0;
    while (size < take) {
        const ssize_t more = read(ends[0], got->data() + size, take - size);
        if (more <= 0) {
            break;
        }
        size += static_cast<size_t>(more);
    }
    close(ends[0]);
    return dump.Wait();
}

TEST_F(DumpTest, AReaderThatHasSeenEnoughEndsItQuietly) {
    std::string got;
    EXPECT_EQ(0, DumpIntoPipe(WriteFile("file", ManyEntries()), 19, &got));
    EXPECT_EQ("0.000010 #1 opened\n", got);
}

TEST_F(DumpTest, ASignalEndsItWhenNobodyReads) {
    const std::string path = WriteFile("file", ManyEntries());
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, pipe(ends));
    kpl::test::ChildProcess dump([&] {
        dup2(ends[1], STDOUT_FILENO);
        const std::string command = "exec " KPL_EMULATOR " " KPL_BIN_DIR "/kpl-rpc dump " + path;
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        return 127;
    });
    close(ends[1]);
    // Until nothing more goes into the pipe; a page or so of it is left then.
    const int full = fcntl(ends[0], F_GETPIPE_SZ) - 2 * 4096;
    EXPECT_TRUE(kpl::test::WaitUntil(
        [&] {
            int held = 0;
            return ioctl(ends[0], FIONREAD, &held) == 0 && held > 0 && held >= full;
        },
        30000));
    dump.Kill(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, dump.Wait());
    close(ends[0]);
}

TEST_F(DumpTest, OutputThatCannotBeWrittenIsSaid) {
    const std::string path = WriteFile("file", Example());
    const std::string errors = m_files.Path() + "/errors";
    const std::string command = "exec 2>" + errors +
                                "; exec " KPL_EMULATOR " " KPL_BIN_DIR "/kpl-rpc dump " + path +
                                " >/dev/full";
    const int status = system(command.c_str());
    EXPECT_EQ(6, WEXITSTATUS(status));
    EXPECT_EQ("kpl-rpc: cannot write the output: No space left on device\n",
              kpl::test::ReadWhole(errors));
}

}  // namespace
