#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>

#include "tests/cli/Tool.h"

namespace {

using kpl::test::Program;
using kpl::test::ProgramResult;

class CallTest : public kpl::test::ToolTest {
protected:
    std::string NoServer() const {
        return "kpl-rpc: no server 'Foo' in " + m_root.Path() + "; `kpl-rpc list " + m_root.Path() +
               "` shows the ones there are\n";
    }
};

constexpr char kEmpty[] =
    "kpl-rpc: an empty answer: 'Foo' has no function 'Nope', the arguments do not fit it, or its "
    "result is too large\n";

TEST_F(CallTest, PrintsEveryTypeWithoutLoss) {
    const auto server = StartServer("Foo");
    Expect({"call", "Foo", "Largest"}, 0,
           "bool true\nshort 32767\nushort 65535\nint 2147483647\nuint 4294967295\n"
           "long 2147483647\nulong 4294967295\nlonglong 9223372036854775807\n"
           "ulonglong 18446744073709551615\nchar 65\nuchar 255\ndouble 0.1\nfloat 0.1\n",
           "");
}

TEST_F(CallTest, PrintsJsonWithoutLoss) {
    const auto server = StartServer("Foo");
    Expect({"call", "--json", "Foo", "Largest"}, 0,
           "{\"result\":[{\"type\":\"bool\",\"value\":true},{\"type\":\"short\",\"value\":32767},"
           "{\"type\":\"ushort\",\"value\":65535},{\"type\":\"int\",\"value\":2147483647},"
           "{\"type\":\"uint\",\"value\":4294967295},{\"type\":\"long\",\"value\":2147483647},"
           "{\"type\":\"ulong\",\"value\":4294967295},"
           "{\"type\":\"longlong\",\"value\":9223372036854775807},"
           "{\"type\":\"ulonglong\",\"value\":18446744073709551615},"
           "{\"type\":\"char\",\"value\":65},{\"type\":\"uchar\",\"value\":255},"
           "{\"type\":\"double\",\"value\":0.1},{\"type\":\"float\",\"value\":0.1}]}\n",
           "");
    Expect({"call", "--json", "Foo", "Odd"}, 0,
           "{\"result\":[{\"type\":\"double\",\"value\":\"nan\"},"
           "{\"type\":\"double\",\"value\":\"inf\"},{\"type\":\"float\",\"value\":\"-inf\"},"
           "{\"type\":\"double\",\"value\":-0}]}\n",
           "");
}

TEST_F(CallTest, SendsEveryType) {
    const auto server = StartServer("Foo");
    Expect({"call", "Foo", "Scalars", "bool:1", "short:-1", "ushort:2", "int:-3", "uint:4",
            "long:-5", "ulong:6", "longlong:-7", "ulonglong:8", "char:'z'", "uchar:9",
            "double:0.30000000000000004", "float:-2.5"},
           0,
           "bool true\nshort -1\nushort 2\nint -3\nuint 4\nlong -5\nulong 6\nlonglong -7\n"
           "ulonglong 8\nchar 122\nuchar 9\ndouble 0.30000000000000004\nfloat -2.5\n",
           "");
    Expect({"call", "Foo", "Text", "str:a\"b\xff"}, 0, "str \"a\\\"b\\xff\"\n", "");
    const std::string file = WriteFile("elements", std::string("\1\0\2\0", 4));
    Expect({"call", "Foo", "Array", "file/2:" + file}, 0,
           "int 2\nstruct array of 2, 4 bytes: 01000200\n", "");
    Expect({"call", "Foo", "List"}, 0,
           "struct list of 1: {1 2 \"News\" null \"\" null 0 0 0 0 0 8}\n", "");
}

TEST_F(CallTest, TheLargestCallIsSentAndALargerOneRefused) {
    const auto server = StartServer("Foo");
    // Header, the text with its header and end, the name "Text" with the same.
    const std::string text(16384 - 16 - 9 - 13, 'x');
    Expect({"call", "Foo", "Text", "str:" + text}, 0, "str \"" + text + "\"\n", "");
    Expect({"call", "Foo", "Text", "str:" + text + "x"}, 2, "",
           "kpl-rpc: the call would take 16385 bytes of at most 16384; see `kpl-rpc help call`\n");
    Expect({"call", "--callbacks", "1", "Foo", "Text", "str:" + text}, 2, "",
           "kpl-rpc: the call would take 16400 bytes of at most 16384; see `kpl-rpc help call`\n");
}

TEST_F(CallTest, AnEmptyAnswerIsSaid) {
    const auto server = StartServer("Foo");
    Expect({"call", "Foo", "Nope"}, 1, "", kEmpty);
    Expect({"call", "--json", "Foo", "Nope"}, 1, "{\"result\":[]}\n", kEmpty);
}

TEST_F(CallTest, WithoutAServerItSaysWhereToLook) {
    Expect({"call", "Foo", "Add"}, 3, "", NoServer());
}

TEST_F(CallTest, AKilledServersFifoIsNoServer) {
    MakeFifo("FooRoot");
    Expect({"call", "Foo", "Add"}, 3, "",
           "kpl-rpc: server 'Foo' has gone without removing its FIFO; start it again, or `kpl-rpc "
           "clean " +
               m_root.Path() + "` removes what it left\n");
}

TEST_F(CallTest, AFileOfThatNameIsNoServer) {
    std::ofstream(Path("FooRoot")) << "x";
    Expect({"call", "Foo", "Add"}, 3, "",
           "kpl-rpc: no server 'Foo': " + Path("FooRoot") + " is no FIFO\n");
    EXPECT_EQ("x", kpl::test::ReadWhole(Path("FooRoot"))) << "nothing is written into it";
}

TEST_F(CallTest, NoAnswerInTimeIsSaid) {
    const auto server = StartServer("Foo");
    Expect({"call", "--timeout", "300", "Foo", "Hang"}, 4, "",
           "kpl-rpc: no answer from 'Foo' within 300 ms; --timeout waits longer, `kpl-rpc ping` "
           "shows whether it answers at all\n");
}

TEST_F(CallTest, AServerThatAcceptsNobodyIsSaid) {
    MakeFifo("FooRoot");
    const int reader = open(Path("FooRoot").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    Expect({"call", "--timeout", "300", "Foo", "Add"}, 4, "",
           "kpl-rpc: server 'Foo' did not take the connection within 300 ms; it may hang, or be "
           "busy opening another one\n");
    close(reader);
    EXPECT_EQ(std::vector<std::string>{"FooRoot"}, m_root.Entries()) << "its own FIFOs are gone";
}

TEST_F(CallTest, AServerThatDiesMeanwhileIsSaid) {
    const auto server = StartServer("Foo");
    Expect({"call", "Foo", "Die"}, 5, "",
           "kpl-rpc: server 'Foo' went away; `kpl-rpc list " + m_root.Path() +
               "` shows whether it is back\n");
}

TEST_F(CallTest, CallbacksArePrintedAsTheyCome) {
    const auto server = StartServer("Foo");
    Expect({"call", "--callbacks", "2", "Foo", "Notify", "int:3"}, 0,
           "int 3\ncallback\n  int 1\n  str \"event\"\ncallback\n  int 2\n  str \"event\"\n", "");
    Expect({"call", "--json", "--callbacks", "1", "Foo", "Notify", "int:1"}, 0,
           "{\"result\":[{\"type\":\"int\",\"value\":1}]}\n"
           "{\"callback\":[{\"type\":\"int\",\"value\":1},{\"type\":\"str\",\"value\":\"event\"}]}"
           "\n",
           "");
}

TEST_F(CallTest, TooFewCallbacksAreSaid) {
    const auto server = StartServer("Foo");
    const ProgramResult result =
        Run({"call", "--timeout", "3000", "--callbacks", "2", "Foo", "Notify", "int:1"});
    EXPECT_EQ(4, result.code);
    EXPECT_EQ("int 1\ncallback\n  int 1\n  str \"event\"\n", result.output);
    EXPECT_EQ("kpl-rpc: 1 of 2 callbacks within 3000 ms\n", result.errors);
}

TEST_F(CallTest, AServerThatGoesEndsTheWaitForCallbacks) {
    const auto server = StartServer("Foo");
    const auto call = Start({"call", "--callbacks", "2", "Foo", "Notify", "int:1"});
    ASSERT_TRUE(call->WaitForOutput("event"));
    server->Kill(SIGKILL);
    EXPECT_EQ(5, call->Wait());
}

TEST_F(CallTest, ASignalEndsTheWaitForTheAnswer) {
    const auto server = StartServer("Foo");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const auto call = Start({"call", "Foo", "Hang"});
        ASSERT_TRUE(kpl::test::WaitUntil([&] { return m_root.Entries().size() > 1; }, 30000));
        call->Kill(signal);
        EXPECT_EQ(128 + signal, call->Wait());
        EXPECT_EQ("", call->Errors());
    }
}

TEST_F(CallTest, ASignalEndsTheWaitForCallbacks) {
    const auto server = StartServer("Foo");
    const auto call = Start({"call", "--callbacks", "2", "Foo", "Notify", "int:1"});
    ASSERT_TRUE(call->WaitForOutput("event"));
    call->Kill(SIGINT);
    EXPECT_EQ(130, call->Wait());
}

TEST_F(CallTest, ASignalEndsTheWaitForAServer) {
    MakeFifo("FooRoot");
    const int reader = open(Path("FooRoot").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const auto call = Start({"call", "Foo", "Add"});
    ASSERT_TRUE(kpl::test::WaitUntil([&] { return m_root.Entries().size() > 1; }, 30000));
    call->Kill(SIGINT);
    EXPECT_EQ(130, call->Wait());
    close(reader);
    EXPECT_EQ(std::vector<std::string>{"FooRoot"}, m_root.Entries());
}

TEST_F(CallTest, WhatTheCommandLineLacksIsSaid) {
    const std::string help = "; see `kpl-rpc help call`\n";
    Expect({"call", "Foo"}, 2, "",
           "kpl-rpc: something is missing: kpl-rpc call SERVER FUNCTION [TYPE:VALUE...]" + help);
    Expect({"call", "Foo", ""}, 2, "", "kpl-rpc: a function has a name" + help);
    Expect({"call", "Foo", "Add", "5"}, 2, "",
           "kpl-rpc: '5' is no argument: it has no type, as in str:5" + help);
    Expect({"call", "--timeout", "0", "Foo", "Add"}, 2, "",
           "kpl-rpc: '0' is no value for --timeout (1 to 2147483647)" + help);
    Expect({"call", "a/b", "Add"}, 2, "", "kpl-rpc: 'a/b' is no server name\n");
    const std::string name(300, 'n');
    const size_t length = m_root.Path().size() + 1 + 300 + 16;
    Expect({"call", name, "Add"}, 2, "",
           "kpl-rpc: the server's name is too long: its FIFO paths would take " +
               std::to_string(length) + " characters of 255\n");
}

TEST_F(CallTest, TheLibrarysLogIsShownOnlyWhenAsked) {
    const auto server = StartServer("Foo");
    const ProgramResult result = Run({"call", "--verbose", "Foo", "Add", "int:1", "int:2"});
    EXPECT_EQ("int 3\n", result.output);
    EXPECT_NE(std::string::npos, result.errors.find("KPL: RpcClient::Connect(): ...\n"));
    EXPECT_NE(std::string::npos, result.errors.find("Framework Revision"));
    Expect({"call", "Foo", "Add", "int:1", "int:2"}, 0, "int 3\n", "");
}

TEST_F(CallTest, LeavesNothingBehind) {
    const auto server = StartServer("Foo");
    Expect({"call", "Foo", "Add", "int:1", "int:2"}, 0, "int 3\n", "");
    EXPECT_TRUE(kpl::test::WaitUntil(
        [&] { return m_root.Entries() == std::vector<std::string>{"FooRoot"}; }, 30000));
}

}  // namespace
