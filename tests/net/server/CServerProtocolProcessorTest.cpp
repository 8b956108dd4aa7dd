#include "kpl/net/server/CServerProtocolProcessor.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <memory>

#include "tests/net/NetTestSupport.h"
#include "tests/net/server/LineProtocol.h"
#include "tests/support/Process.h"
#include "tests/support/SignalRain.h"
#include "tests/support/VirtualSlot.h"

namespace kpl::net::server {
namespace {

using test::ConnectedPair;
using test::LineProcessor;
using test::LineRequest;
using test::LogCapture;
using test::Missing;
using test::Peer;
using test::Running;
using test::Script;
using test::SlotOf;
using test::WaitUntil;

using Messages = std::vector<std::string>;

constexpr const char* kPrefix = "CServerProtocolProcessor::";

std::string Message(const std::string& text) {
    return kPrefix + text + "\n";
}

Messages All(const std::vector<std::string>& texts) {
    Messages messages;
    for (const std::string& text : texts) {
        messages.push_back(text[0] == '=' ? text.substr(1) + "\n" : Message(text));
    }
    return messages;
}

// One connection, whose processor the test calls itself.
class CServerProtocolProcessorTest : public test::NetTest {
protected:
    void SetUp() override {
        NetTest::SetUp();
        auto pair = std::make_unique<ConnectedPair>();
        m_fd = pair->served;
        m_socket = new CSocket(m_fd);
        m_peer = std::make_unique<Peer>(std::move(pair->peer));
        m_processor = std::make_unique<LineProcessor>(m_socket, nullptr, &m_script);
    }

    void TearDown() override {
        m_processor.reset();
        m_peer.reset();
        EXPECT_TRUE(m_script.AllGone());
        NetTest::TearDown();
    }

    // One call of Process, once all of `bytes` have arrived.
    bool ProcessBytes(const std::string& bytes) {
        EXPECT_TRUE(m_peer->Send(bytes));
        EXPECT_TRUE(WaitUntil(
            [&] { return m_socket->GetAvailableDataLength() >= static_cast<int>(bytes.size()); }));
        return m_processor->Process();
    }

    // What the peer has got once the connection is closed.
    std::string Answers() {
        m_processor.reset();
        return m_peer->ReadToEnd();
    }

    Script m_script;
    int m_fd = -1;
    CSocket* m_socket = nullptr;  // the processor's
    std::unique_ptr<Peer> m_peer;
    std::unique_ptr<LineProcessor> m_processor;
};

TEST(CServerProtocolProcessorSlots, StandInTheirOrder) {
    using P = CServerProtocolProcessor;
    EXPECT_EQ(SlotOf(&P::PrepareDemuxer), 2);  // behind the two destructors
    EXPECT_EQ(SlotOf(&P::GetDemuxer), 3);
    EXPECT_EQ(SlotOf(&P::IsHandshakeRequired), 4);
    EXPECT_EQ(SlotOf(&P::GetHandshaker), 5);
    EXPECT_EQ(SlotOf(&P::GetExecutor), 6);
    EXPECT_EQ(SlotOf(&P::GetMuxer), 7);
    EXPECT_EQ(SlotOf(&P::ProcessDisconnect), 8);
    EXPECT_EQ(SlotOf(&P::NeedToKeepConnection), 9);
    EXPECT_EQ(SlotOf(&P::PostProcessRequest), 10);
}

TEST_F(CServerProtocolProcessorTest, AnswersARequestAndLogsEachStep) {
    const LogCapture log;
    EXPECT_TRUE(ProcessBytes("one\n"));
    EXPECT_EQ(log.Messages(),
              All({"Process(): Read=4(offset=0)", "Process(): Demuxed(Ret=4, Offset=0)",
                   "Process(): Demuxed Type(100)", "ProcessRequest(): Executor return(0)",
                   "Process(): Demuxed=4, Rest=0"}))
        << "the type is asked before the first request was seen";
    EXPECT_EQ(m_script.ended, 1);
    EXPECT_EQ(m_script.requests, 0);
    EXPECT_EQ(Answers(), ">one\n");
}

TEST_F(CServerProtocolProcessorTest, ARequestSplitOverTwoReadsIsKeptAndCompleted) {
    const LogCapture log;
    EXPECT_TRUE(ProcessBytes("one\ntw"));
    EXPECT_EQ(log.Messages(),
              All({"Process(): Read=6(offset=0)", "Process(): Demuxed(Ret=4, Offset=0)",
                   "Process(): Demuxed Type(100)", "ProcessRequest(): Executor return(0)",
                   "Process(): Demuxed=4, Rest=2", "Process(): Demuxed(Ret=0, Offset=4)",
                   "MoveDataToBeginOfBuffer(): Offset=4, Len=2"}));
    EXPECT_EQ(m_script.Lines(), Messages{"one"});
    log.Messages();
    const LogCapture second;
    EXPECT_TRUE(ProcessBytes("o\n"));
    EXPECT_EQ(second.Messages(),
              All({"Process(): Read=2(offset=2)", "Process(): Demuxed(Ret=4, Offset=0)",
                   "Process(): Demuxed Type(101)", "ProcessRequest(): Executor return(0)",
                   "Process(): Demuxed=4, Rest=0"}));
    EXPECT_EQ(m_script.Lines(), (Messages{"one", "two"}));
    EXPECT_EQ(m_script.prepared, 1);
}

TEST_F(CServerProtocolProcessorTest, TwoRequestsInOneReadAreProcessedInOrder) {
    EXPECT_TRUE(ProcessBytes("one\ntwo\n"));
    EXPECT_EQ(m_script.Lines(), (Messages{"one", "two"}));
    EXPECT_EQ(Answers(), ">one\n>two\n");
}

TEST_F(CServerProtocolProcessorTest, WithoutKeepingTheConnectionEndsWhenTheBufferIsEmpty) {
    m_script.keep = false;
    EXPECT_TRUE(ProcessBytes("one\ntw")) << "something is left";
    EXPECT_FALSE(ProcessBytes("o\n"));
    EXPECT_EQ(Answers(), ">one\n>two\n") << "answered before";
}

// Overrides nothing that has a default.
class PlainProcessor : public LineProcessor {
public:
    using LineProcessor::LineProcessor;
    bool NeedToKeepConnection() override {
        return CServerProtocolProcessor::NeedToKeepConnection();  // NOLINT: the default is meant
    }
};

TEST_F(CServerProtocolProcessorTest, TheDefaultDoesNotKeepTheConnection) {
    ConnectedPair pair;
    PlainProcessor processor(new CSocket(pair.served), nullptr, &m_script);
    ASSERT_TRUE(pair.peer.Send("one\n"));
    EXPECT_TRUE(WaitUntil([&] {
        char bytes[4];
        return recv(pair.served, bytes, sizeof(bytes), MSG_PEEK | MSG_DONTWAIT) == 4;
    }));
    EXPECT_FALSE(processor.Process());
    EXPECT_EQ(m_script.Lines(), Messages{"one"});
}

TEST_F(CServerProtocolProcessorTest, APeerThatClosesIsSeenOnce) {
    m_peer->Close();
    ASSERT_TRUE(m_socket->IsDataAvailable(0));
    const LogCapture log;
    EXPECT_FALSE(m_processor->Process());
    EXPECT_EQ(log.Messages(), All({"Process(): Socket shutdown by peer."}));
    EXPECT_EQ(m_script.disconnects, 1);
}

TEST_F(CServerProtocolProcessorTest, APeerThatClosesInTheMiddleOfARequestEndsTheConnection) {
    EXPECT_TRUE(ProcessBytes("on"));
    m_peer->Close();
    ASSERT_TRUE(m_socket->IsDataAvailable(0));
    EXPECT_FALSE(m_processor->Process());
    EXPECT_EQ(m_script.disconnects, 1);
    EXPECT_EQ(m_script.Lines(), Messages{});
}

TEST_F(CServerProtocolProcessorTest, ARequestThatFillsTheBufferDropsTheConnection) {
    EXPECT_TRUE(ProcessBytes(std::string(8191, 'x')));
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("x"));
    EXPECT_EQ(log.Messages(), All({"Process(): Read=-3(offset=8191)"}));
}

TEST_F(CServerProtocolProcessorTest, AtMost8191BytesAreTakenAtOnce) {
    const LogCapture log;
    EXPECT_TRUE(ProcessBytes(std::string(9000, 'x')));
    EXPECT_EQ(log.Messages(),
              All({"Process(): Read=8191(offset=0)", "Process(): Demuxed(Ret=0, Offset=0)",
                   "MoveDataToBeginOfBuffer(): Offset=0, Len=8191"}));
    EXPECT_EQ(m_socket->GetAvailableDataLength(), 9000 - 8191);
}

TEST_F(CServerProtocolProcessorTest, ARequestOfTheLargestSizeIsServed) {
    const std::string line(8190, 'x');
    EXPECT_TRUE(ProcessBytes(line));
    EXPECT_TRUE(ProcessBytes("\n"));
    EXPECT_EQ(m_script.Lines(), Messages{line});
}

TEST_F(CServerProtocolProcessorTest, ZeroBytesAreBytes) {
    const std::string line("a\0b\0", 4);
    EXPECT_TRUE(ProcessBytes(line + "\n"));
    EXPECT_EQ(m_script.Lines(), Messages{line});
    EXPECT_EQ(Answers(), ">" + line + "\n");
}

TEST_F(CServerProtocolProcessorTest,
       BytesThatAreNoRequestDropTheConnectionAndTheRequestIsReleased) {
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("bad\n"));
    EXPECT_EQ(log.Messages(),
              All({"Process(): Read=4(offset=0)", "Process(): Demuxed(Ret=-7, Offset=0)"}));
    EXPECT_EQ(m_script.requests, 0);
}

TEST_F(CServerProtocolProcessorTest, ConsumedBytesWithoutARequestDropTheConnection) {
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("none\n"));
    EXPECT_EQ(log.Messages(),
              All({"Process(): Read=5(offset=0)", "Process(): Demuxed(Ret=5, Offset=0)"}));
}

TEST_F(CServerProtocolProcessorTest, AFailedExecutorDropsTheConnectionWithoutAResponse) {
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("fail\none\n"));
    EXPECT_EQ(log.Messages().back(), Message("ProcessRequest(): Executor return(-1)"));
    EXPECT_EQ(m_script.Lines(), Messages{"fail"}) << "nothing after it is executed";
    EXPECT_EQ(m_script.requests, 0);
    EXPECT_EQ(Answers(), "");
}

TEST_F(CServerProtocolProcessorTest, AnExecutorWithoutAResponseDropsTheConnection) {
    EXPECT_FALSE(ProcessBytes("silent\n"));
    EXPECT_EQ(m_script.ended, 0);
    m_script.muxed = false;
    EXPECT_FALSE(ProcessBytes("silent\n"));
    EXPECT_EQ(m_script.ended, 0);
    EXPECT_EQ(m_script.requests, 0);
}

TEST_F(CServerProtocolProcessorTest, AFailedPreparationDropsTheConnection) {
    m_script.missing = Missing::Preparation;
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("one\n"));
    EXPECT_EQ(log.Messages(),
              All({"Process(): Read=4(offset=0)", "Process(): Demuxed(Ret=-1, Offset=0)"}));
}

TEST_F(CServerProtocolProcessorTest, WithoutADemuxerTheConnectionEndsWithItsMessage) {
    m_script.missing = Missing::Demuxer;
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("one\n"));
    EXPECT_EQ(log.Messages(), All({"Process(): Read=4(offset=0)", "Demux(): ????? Invalid demuxer",
                                   "Process(): Demuxed(Ret=-1, Offset=0)"}));
}

TEST_F(CServerProtocolProcessorTest, WithoutAnExecutorTheConnectionEndsWithItsMessage) {
    m_script.missing = Missing::Executor;
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("one\n"));
    EXPECT_EQ(log.Messages().back(), Message("ProcessRequest(): ??????? Invalud executor"));
    EXPECT_EQ(m_script.requests, 0);
}

TEST_F(CServerProtocolProcessorTest, OnlyTheSmallBufferIsReportedByForce) {
    // These messages have question marks, but are not printed while the log is off.
    const LogCapture log(LogCapture::Debug::Off);
    m_script.missing = Missing::Demuxer;
    EXPECT_FALSE(ProcessBytes("one\n"));
    m_script.missing = Missing::Executor;
    EXPECT_FALSE(ProcessBytes("one\n"));
    EXPECT_EQ(log.Messages(), Messages{});
}

TEST_F(CServerProtocolProcessorTest, WithoutAMuxerTheConnectionEnds) {
    m_script.missing = Missing::Muxer;
    EXPECT_FALSE(ProcessBytes("one\n"));
    EXPECT_EQ(m_script.requests, 0);
    EXPECT_EQ(Answers(), "");
}

TEST_F(CServerProtocolProcessorTest, AHandshakeIsAnsweredAndRequestsFollow) {
    m_script.handshake = true;
    const LogCapture log;
    EXPECT_TRUE(ProcessBytes("hello\none\n"));
    EXPECT_EQ(log.Messages(),
              All({"Process(): Read=10(offset=0)", "Process(): Demuxed(Ret=6, Offset=0)",
                   "Process(): Demuxed Type(100)", "=CWebSyncCmdProcessor::Process(): Handshake(8)",
                   "Process(): Demuxed=6, Rest=4", "Process(): Demuxed(Ret=4, Offset=6)",
                   "Process(): Demuxed Type(101)", "ProcessRequest(): Executor return(0)",
                   "Process(): Demuxed=4, Rest=0"}));
    EXPECT_EQ(m_script.Lines(), Messages{"one"}) << "the handshake is not executed";
    EXPECT_EQ(m_script.requests, 0);
    EXPECT_EQ(Answers(), "welcome\n>one\n");
}

TEST_F(CServerProtocolProcessorTest, AHandshakeThatNeedsMoreIsOfferedAgainWithAllItsBytes) {
    m_script.handshake = true;
    EXPECT_TRUE(ProcessBytes("one\nmore\n"));
    const LogCapture log;
    EXPECT_TRUE(ProcessBytes("two\n"));
    EXPECT_EQ(log.Messages()[0], Message("Process(): Read=4(offset=5)"));
    EXPECT_EQ(m_script.requests, 0);
    EXPECT_EQ(Answers(), ">one\nwelcome\n>two\n");
}

TEST_F(CServerProtocolProcessorTest, ARefusedHandshakeDropsTheConnection) {
    m_script.handshake = true;
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("refuse\n"));
    EXPECT_EQ(log.Messages().back(), "CWebSyncCmdProcessor::Process(): Handshake(-3)\n");
    EXPECT_EQ(m_script.requests, 0);
}

TEST_F(CServerProtocolProcessorTest, ASecondHandshakeIsRefused) {
    m_script.handshake = true;
    EXPECT_TRUE(ProcessBytes("hello\n"));
    const LogCapture log;
    EXPECT_FALSE(ProcessBytes("hello\n"));
    EXPECT_EQ(log.Messages().back(), "CWebSyncCmdProcessor::Process(): Handshake(-1)\n");
    EXPECT_EQ(m_script.requests, 0);
    EXPECT_EQ(Answers(), "welcome\n");
}

TEST_F(CServerProtocolProcessorTest, WithoutAHandshakerOrAnAnswerTheConnectionEnds) {
    m_script.handshake = true;
    for (const Missing missing :
         {Missing::Handshaker, Missing::AnswerLength, Missing::AnswerData}) {
        m_script.missing = missing;
        EXPECT_FALSE(ProcessBytes("hello\n"));
    }
    EXPECT_EQ(m_script.requests, 0);
    EXPECT_EQ(Answers(), "");
}

TEST_F(CServerProtocolProcessorTest, HandshakeWithoutARequestIsRefused) {
    EXPECT_EQ(m_processor->Handshake(nullptr), -1);
}

TEST_F(CServerProtocolProcessorTest, DemuxOfNothingLeavesConsumedUntouched) {
    int consumed = 42;
    char byte = 'x';
    EXPECT_EQ(m_processor->Demux(nullptr, 1, consumed), nullptr);
    EXPECT_EQ(m_processor->Demux(&byte, 0, consumed), nullptr);
    EXPECT_EQ(consumed, 42);
    EXPECT_EQ(m_script.prepared, 0);
}

TEST_F(CServerProtocolProcessorTest, AFailedPreparationIsTriedAgain) {
    int consumed = 42;
    char line[] = "one\n";
    m_script.missing = Missing::Preparation;
    EXPECT_EQ(m_processor->Demux(line, 4, consumed), nullptr);
    EXPECT_EQ(consumed, -1);
    m_script.missing = Missing::Nothing;
    com::IUnknown* request = m_processor->Demux(line, 4, consumed);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(consumed, 4);
    EXPECT_EQ(m_script.prepared, 2);
    request->Release();
}

TEST_F(CServerProtocolProcessorTest, ProcessRequestReleasesTheRequestInEveryCase) {
    EXPECT_FALSE(m_processor->ProcessRequest(nullptr));
    EXPECT_TRUE(m_processor->ProcessRequest(new LineRequest(&m_script, "one")));
    EXPECT_FALSE(m_processor->ProcessRequest(new LineRequest(&m_script, "fail")));
    m_script.missing = Missing::Executor;
    EXPECT_FALSE(m_processor->ProcessRequest(new LineRequest(&m_script, "one")));
    EXPECT_EQ(m_script.requests, 0);
}

TEST_F(CServerProtocolProcessorTest, RequestsOfTwoThreadsAreProcessedOneAtATime) {
    Running first([&] { m_processor->ProcessRequest(new LineRequest(&m_script, "hold")); });
    ASSERT_TRUE(WaitUntil([&] { return m_script.holding == 1; }));
    Running second([&] { m_processor->ProcessRequest(new LineRequest(&m_script, "two")); });
    ASSERT_TRUE(second.WaitUntilBlocked());
    EXPECT_EQ(m_script.Lines(), Messages{"hold"});
    m_script.release.Set();
    EXPECT_TRUE(second.EndsWithin(10000));
    EXPECT_EQ(m_script.Lines(), (Messages{"hold", "two"}));
}

TEST_F(CServerProtocolProcessorTest, WriteResponseNeedsARequestAndAnExecutor) {
    auto* request = new LineRequest(&m_script, "one");
    EXPECT_FALSE(m_processor->WriteResponse(request, nullptr));
    EXPECT_FALSE(m_processor->WriteResponseWithoutMuxer(request, nullptr));
    EXPECT_FALSE(m_processor->WriteResponse(nullptr, m_processor->GetExecutor()));
    EXPECT_FALSE(m_processor->WriteResponseWithoutMuxer(nullptr, m_processor->GetExecutor()));
    request->Release();
}

TEST_F(CServerProtocolProcessorTest, AnExecutorCanSendItsOwnBytes) {
    m_script.muxed = false;
    EXPECT_TRUE(ProcessBytes("one\n"));
    EXPECT_EQ(m_script.ended, 1);
    EXPECT_EQ(Answers(), "one\n");
}

TEST_F(CServerProtocolProcessorTest, ALongResponseArrivesWhole) {
    constexpr size_t kSize = 1000003;  // several pieces and a rest
    std::string answer;
    Running reading([&] { answer = m_peer->Read(kSize); });
    EXPECT_TRUE(ProcessBytes("big " + std::to_string(kSize) + "\n"));
    ASSERT_TRUE(reading.EndsWithin(10000));
    EXPECT_EQ(answer, std::string(kSize, 'x'));
}

// Claims to have stored more than there is room for.
class BoastfulExecutor : public IProtocolExecutor {
public:
    int Execute(com::IUnknown*) override { return 0; }
    bool IsResponseReady() override { return true; }
    bool HasResponseData() override { return true; }
    int ReadResponse(char* buffer, int size) override {
        memset(buffer, 'x', static_cast<size_t>(size));
        return m_read++ == 0 ? size + 100000 : 0;
    }
    void EndResponse() override {}

private:
    int m_read = 0;
};

TEST_F(CServerProtocolProcessorTest, NoMoreIsSentThanAPieceHolds) {
    BoastfulExecutor executor;
    auto* request = new LineRequest(&m_script, "one");
    std::string answer;
    Running reading([&] { answer = m_peer->ReadToEnd(); });
    EXPECT_TRUE(m_processor->WriteResponseWithoutMuxer(request, &executor));
    request->Release();
    m_processor.reset();
    ASSERT_TRUE(reading.EndsWithin(10000));
    EXPECT_EQ(answer.size(), 262144U);
}

TEST_F(CServerProtocolProcessorTest, AFailedSendEndsTheResponseAndTheResultIsTrue) {
    m_peer->Send("big 100000000\n");
    ASSERT_TRUE(WaitUntil([&] { return m_socket->GetAvailableDataLength() == 14; }));
    std::atomic<int> result{-1};
    Running processing([&] { result = m_processor->Process() ? 1 : 0; });
    ASSERT_TRUE(processing.WaitUntilBlocked());
    m_peer->Reset();
    EXPECT_TRUE(processing.EndsWithin(10000));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(m_script.ended, 1);
}

TEST_F(CServerProtocolProcessorTest, WhatAShortSendLeavesIsDropped) {
    // A send with a time limit gives up in the middle of a piece; the next piece follows at once.
    const timeval limit{0, 50000};
    ASSERT_EQ(m_socket->SetOption(SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)), 0);
    constexpr size_t kSize = 64 * 262144;
    EXPECT_TRUE(ProcessBytes("big " + std::to_string(kSize) + "\n"));
    EXPECT_EQ(m_script.ended, 1);
    EXPECT_LT(Answers().size(), kSize);
}

TEST_F(CServerProtocolProcessorTest, MoveDataLogsAndMovesNothingForZero) {
    const LogCapture log;
    m_processor->MoveDataToBeginOfBuffer(0, 5);
    m_processor->MoveDataToBeginOfBuffer(5, 0);
    EXPECT_EQ(log.Messages(), All({"MoveDataToBeginOfBuffer(): Offset=0, Len=5",
                                   "MoveDataToBeginOfBuffer(): Offset=5, Len=0"}));
}

TEST_F(CServerProtocolProcessorTest, MoveDataBeyondTheBufferMovesNothing) {
    m_processor->MoveDataToBeginOfBuffer(8000, 8000);
    m_processor->MoveDataToBeginOfBuffer(-1, 10);
    m_processor->MoveDataToBeginOfBuffer(10, -1);
    m_processor->MoveDataToBeginOfBuffer(2147483647, 2147483647);
}

// Claims more than it was given.
class GreedyProcessor : public LineProcessor {
public:
    using LineProcessor::LineProcessor;

    class Demuxer : public IProtocolDemuxer {
    public:
        explicit Demuxer(Script* script) : m_script(script) {}
        com::IUnknown* Demux(char*, int length, int& consumed) override {
            consumed = length + 100000;
            return new LineRequest(m_script, "x");
        }
        int GetDemuxedType() override { return 0; }

    private:
        Script* m_script;
    };

    IProtocolDemuxer* GetDemuxer() override { return &m_greedy; }

    explicit GreedyProcessor(CSocket* socket, Script* script)
        : LineProcessor(socket, nullptr, script), m_greedy(script) {}

private:
    Demuxer m_greedy;
};

TEST_F(CServerProtocolProcessorTest, ADemuxerThatClaimsTooMuchEmptiesTheBufferOnly) {
    ConnectedPair pair;
    auto* socket = new CSocket(pair.served);
    GreedyProcessor processor(socket, &m_script);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(pair.peer.Send("abc"));
        ASSERT_TRUE(WaitUntil([&] { return socket->GetAvailableDataLength() == 3; }));
        const LogCapture log;
        EXPECT_TRUE(processor.Process());
        EXPECT_EQ(log.Messages()[0], Message("Process(): Read=3(offset=0)"));
    }
}

TEST_F(CServerProtocolProcessorTest, AfterDisconnectProcessIsFalse) {
    const LogCapture log;
    m_processor->Disconnect();
    EXPECT_EQ(log.Messages(), (Messages{"CSocket::Close(): Done(" + std::to_string(m_fd) + ")\n",
                                        Message("Disconnect(): .....")}));
    EXPECT_FALSE(m_processor->Process());
    EXPECT_EQ(log.Messages().size(), 2U);
    EXPECT_TRUE(m_peer->HasEnded());
}

TEST_F(CServerProtocolProcessorTest, TheDestructorClosesAndDeletesTheSocket) {
    const LogCapture log;
    m_processor.reset();
    EXPECT_EQ(log.Messages(), Messages{"CSocket::Close(): Done(" + std::to_string(m_fd) + ")\n"});
    EXPECT_EQ(fcntl(m_fd, F_GETFD), -1);
    EXPECT_TRUE(m_peer->HasEnded());
}

TEST_F(CServerProtocolProcessorTest, WithoutASocketNothingIsDone) {
    LineProcessor processor(nullptr, nullptr, &m_script);
    EXPECT_FALSE(processor.Process());
    char line[] = "one\n";
    int consumed = 42;
    EXPECT_EQ(processor.Demux(line, 4, consumed), nullptr);
    EXPECT_EQ(consumed, 42);
    auto* request = new LineRequest(&m_script, "one");
    EXPECT_EQ(processor.Handshake(request), -1);
    EXPECT_FALSE(processor.WriteResponse(request, processor.GetExecutor()));
    EXPECT_FALSE(processor.WriteResponseWithoutMuxer(request, processor.GetExecutor()));
    request->Release();
    processor.Disconnect();
}

// A small generator, so that a failing split can be repeated.
class Splits {
public:
    explicit Splits(unsigned int seed) : m_state(seed) {}
    size_t Next(size_t most) {
        m_state = m_state * 1664525U + 1013904223U;
        return 1 + (m_state >> 8) % most;
    }

private:
    unsigned int m_state;
};

TEST_F(CServerProtocolProcessorTest, AnySplitOfAStreamGivesTheSameRequests) {
    Messages lines;
    std::string stream;
    for (int i = 0; i < 40; ++i) {
        lines.push_back("line" + std::string(static_cast<size_t>(i * i), 'y') + std::to_string(i));
        stream += lines.back() + "\n";
    }
    for (unsigned int seed = 0; seed < 40; ++seed) {
        Script script;
        ConnectedPair pair;
        auto* socket = new CSocket(pair.served);
        LineProcessor processor(socket, nullptr, &script);
        Splits splits(seed);
        const size_t most = seed % 2 == 0 ? 7000 : 90;
        size_t sent = 0;
        while (sent < stream.size()) {
            const std::string piece = stream.substr(sent, splits.Next(most));
            ASSERT_TRUE(pair.peer.Send(piece));
            sent += piece.size();
            ASSERT_TRUE(WaitUntil([&] {
                return socket->GetAvailableDataLength() >= static_cast<int>(piece.size());
            }));
            while (socket->GetAvailableDataLength() > 0) {
                ASSERT_TRUE(processor.Process()) << "seed " << seed << ", byte " << sent;
            }
        }
        EXPECT_TRUE(script.Lines() == lines) << "seed " << seed;
    }
}

}  // namespace
}  // namespace kpl::net::server
