#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "FileHttpServer.h"
#include "tests/examples/FileHttpPrograms.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::test::FileHttpProgramTest;
using kpl::test::HttpAnswer;
using kpl::test::HttpClient;
using kpl::test::LogCapture;
using kpl::test::OpenDescriptorCount;
using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::Stopwatch;
using kpl::test::ThreadCount;
using kpl::test::WaitUntil;

// `size` bytes without a pattern.
std::string Noise(size_t size) {
    std::string bytes(size + sizeof(uint64_t), '\0');
    std::mt19937_64 random(20);
    for (size_t i = 0; i < size; i += sizeof(uint64_t)) {
        const uint64_t word = random();
        bytes.replace(i, sizeof(word), reinterpret_cast<const char*>(&word), sizeof(word));
    }
    bytes.resize(size);
    return bytes;
}

class FileHttpServerTest : public FileHttpProgramTest {};

TEST_F(FileHttpServerTest, AFileIsServedWithItsHead) {
    Start();
    HttpClient client(m_port);
    const HttpAnswer answer = client.Fetch("/a.txt");
    EXPECT_EQ(200, answer.status);
    EXPECT_EQ("The text of a.\n", answer.body);
    EXPECT_TRUE(answer.HasField("Content-Length: 15"));
    EXPECT_TRUE(answer.HasField("Content-Type: text/plain"));
    EXPECT_TRUE(answer.HasField("Connection: keep-alive"));
    EXPECT_NE(std::string::npos, answer.head.find(" GMT\r\n"));
    EXPECT_EQ("", client.Fetch("/empty").body);
    EXPECT_EQ("<p>index</p>\n", client.Fetch("/sub/").body);
}

TEST_F(FileHttpServerTest, HeadHasTheSameHeadWithoutABody) {
    Start();
    HttpClient client(m_port);
    ASSERT_TRUE(client.Send("HEAD /a.txt HTTP/1.1\r\nHost: h\r\n\r\n"));
    const HttpAnswer answer = client.Read(true);
    EXPECT_EQ(200, answer.status);
    EXPECT_TRUE(answer.HasField("Content-Length: 15"));
    ASSERT_TRUE(client.Send("HEAD /none HTTP/1.1\r\nHost: h\r\n\r\n"));
    EXPECT_EQ(404, client.Read(true).status);
    EXPECT_EQ(200, client.Fetch("/a.txt").status);
}

TEST_F(FileHttpServerTest, TheConnectionIsKeptAlsoAfterWhatIsNotThere) {
    Start();
    HttpClient client(m_port);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(200, client.Fetch("/a.txt").status);
        EXPECT_EQ(404, client.Fetch("/none").status);
        EXPECT_EQ(403, client.Fetch("/../a.txt").status);
    }
}

TEST_F(FileHttpServerTest, RequestsInOnePieceAreAnsweredInTheirOrder) {
    Start();
    HttpClient client(m_port);
    std::string requests;
    for (int i = 0; i < 300; ++i) {
        Write(std::to_string(i), "file " + std::to_string(i));
        requests += HttpClient::Get("/" + std::to_string(i));
    }
    ASSERT_TRUE(client.Send(requests));
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ("file " + std::to_string(i), client.Read().body);
    }
}

TEST_F(FileHttpServerTest, ARequestByteByByteIsAnswered) {
    Start();
    HttpClient client(m_port);
    for (const char c : HttpClient::Get("/a.txt")) {
        ASSERT_TRUE(client.Send(std::string(1, c)));
    }
    EXPECT_EQ("The text of a.\n", client.Read().body);
}

TEST_F(FileHttpServerTest, AConnectionThatIsNotToBeKeptIsClosed) {
    Start();
    for (const char* request : {"GET /a.txt HTTP/1.0\r\n\r\n",
                                "GET /a.txt HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n"}) {
        HttpClient client(m_port);
        ASSERT_TRUE(client.Send(request + HttpClient::Get("/a.txt")));
        const HttpAnswer answer = client.Read();
        EXPECT_EQ("The text of a.\n", answer.body);
        EXPECT_TRUE(answer.HasField("Connection: close"));
        EXPECT_TRUE(client.IsEnded());
    }
    HttpClient kept(m_port);
    ASSERT_TRUE(kept.Send("GET /a.txt HTTP/1.0\r\nConnection: keep-alive\r\n\r\n"));
    EXPECT_TRUE(kept.Read().HasField("Connection: keep-alive"));
    EXPECT_EQ(200, kept.Fetch("/a.txt").status);
}

TEST_F(FileHttpServerTest, OverLongRequestsAreRefusedAndTheirConnectionsClosed) {
    Start();
    const std::string target = "/" + std::string(5000, 'x');
    const std::string fields = "X: " + std::string(9000, 'x') + "\r\n";
    // Some end, some do not, and some are so long that more comes behind the answer.
    const std::vector<std::pair<int, std::string>> requests = {
        {414, HttpClient::Get(target)},
        {414, "GET " + target},
        {414, "GET /" + std::string(1000000, 'x')},
        {431, HttpClient::HalfGet("/a.txt") + fields + "\r\n"},
        {431, HttpClient::HalfGet("/a.txt") + fields},
        {431, HttpClient::HalfGet("/a.txt") + "X: " + std::string(1000000, 'x')}};
    for (const auto& request : requests) {
        HttpClient client(m_port);
        ASSERT_TRUE(client.Send(request.second));
        const HttpAnswer answer = client.Read();
        EXPECT_EQ(request.first, answer.status);
        EXPECT_TRUE(answer.HasField("Connection: close"));
        EXPECT_TRUE(client.IsEnded());
    }
}

TEST_F(FileHttpServerTest, WhatAClientStillSendsBehindItsLastAnswerIsThrownAwayUpToALimit) {
    Start();
    HttpClient client(m_port);
    const std::string more(65536, 'x');
    ASSERT_TRUE(client.Send("GET /" + more));
    EXPECT_EQ(414, client.Read().status);
    EXPECT_TRUE(client.IsEnded());
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(client.Send(more));
    }
    int sent = 0;
    while (sent < 1000 && client.Send(more)) {
        ++sent;
    }
    EXPECT_LT(sent, 1000);
    HttpClient other(m_port);
    EXPECT_EQ(200, other.Fetch("/a.txt").status);
}

TEST_F(FileHttpServerTest, WhatIsNoRequestIsRefused) {
    Start();
    const std::vector<std::pair<int, std::string>> requests = {
        {400, "nonsense\r\n\r\n"},
        {400, std::string("\0\0\0\r\n\r\n", 7)},
        {405, "POST /a.txt HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\nabc"},
        {505, "GET / HTTP/3.0\r\n\r\n"}};
    for (const auto& request : requests) {
        HttpClient client(m_port);
        ASSERT_TRUE(client.Send(request.second));
        EXPECT_EQ(request.first, client.Read().status) << request.second;
        EXPECT_TRUE(client.IsEnded());
    }
}

TEST_F(FileHttpServerTest, ALargeFileArrivesWholeAndTheConnectionGoesOn) {
    const std::string bytes = Noise(20 << 20);
    Write("large", bytes);
    Start();
    HttpClient client(m_port);
    EXPECT_TRUE(client.Fetch("/large").body == bytes);
    EXPECT_EQ("The text of a.\n", client.Fetch("/a.txt").body);
}

TEST_F(FileHttpServerTest, CalledTheWrongWayItSaysHow) {
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {}, {m_folder, "x"}, {m_folder, ""}, {m_folder, "65536"}, {m_folder, "0", "0"}}) {
        const ProgramResult result = RunProgram("file_http_server", arguments);
        EXPECT_EQ(2, result.code);
        EXPECT_EQ(0u, result.errors.find("usage: file_http_server FOLDER [PORT]\n"));
    }
    const ProgramResult result = RunProgram("file_http_server", {m_folder + "/none"});
    EXPECT_EQ(1, result.code);
    EXPECT_EQ("file_http_server: there is no folder '" + m_folder + "/none'\n", result.errors);
}

// The server inside the test, where its settings can be smaller.
class FileHttpInProcessTest : public FileHttpProgramTest {
protected:
    void StartHere(int sendTimeoutMs) {
        file_http::FileHttpOptions options;
        options.folder = std::filesystem::canonical(m_folder);
        options.sendTimeoutMs = sendTimeoutMs;
        m_here = std::make_unique<file_http::FileHttpServer>(options);
        ASSERT_TRUE(m_here->StartServer());
        m_port = m_here->GetListeningPort();
    }

    const LogCapture m_log{LogCapture::Debug::Off};
    std::unique_ptr<file_http::FileHttpServer> m_here;
};

TEST_F(FileHttpInProcessTest, AClientThatDoesNotReadIsDroppedAndTheOthersGoOn) {
    Write("large", Noise(20 << 20));
    StartHere(300);
    HttpClient stuck(m_port);
    ASSERT_TRUE(stuck.Send(HttpClient::Get("/large")));
    HttpClient other(m_port);  // on the same server thread
    const Stopwatch watch;
    EXPECT_EQ(200, other.Fetch("/a.txt").status);
    EXPECT_LT(watch.ElapsedMs(), kpl::test::kCeilingMs);
    // Far less than the file comes, and then the end instead of a gap.
    EXPECT_EQ(0, stuck.Read().status);
    EXPECT_TRUE(m_log.Contains("CSocket::Write(): Write error(-1)\n"));
}

TEST_F(FileHttpInProcessTest, AFileThatBecomesShorterEndsItsConnection) {
    Write("large", Noise(40 << 20));
    StartHere(10000);
    HttpClient client(m_port);
    ASSERT_TRUE(client.Send(HttpClient::Get("/large")));
    EXPECT_EQ("HTTP/1.1 200 OK", client.ReadBytes(15));
    std::filesystem::resize_file(m_folder + "/large", 1000);
    EXPECT_FALSE(client.ReadUntilEnd(40 << 20));
    EXPECT_TRUE(client.IsEnded());
}

// Makes every other thread of the process handle a signal.
void SignalOtherThreads() {
    const pid_t self = static_cast<pid_t>(syscall(SYS_gettid));
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const pid_t id = atoi(task.path().filename().c_str());
        if (id != self) {
            syscall(SYS_tgkill, getpid(), id, SIGUSR1);
        }
    }
}

TEST_F(FileHttpInProcessTest, SendsThatSignalsCutShortLoseNothing) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);  // without SA_RESTART
    const std::string bytes = Noise(20 << 20);
    Write("large", bytes);
    StartHere(60000);
    HttpClient client(m_port);
    ASSERT_TRUE(client.Send(HttpClient::Get("/large")));
    const std::string head = client.ReadBytes(4);
    for (int i = 0; i < 200; ++i) {
        SignalOtherThreads();
        client.ReceiveSome();
    }
    const HttpAnswer answer = client.Read();
    EXPECT_EQ("HTTP", head);
    EXPECT_TRUE(answer.body == bytes);
}

TEST_F(FileHttpInProcessTest, AStopInTheMiddleOfAResponseLeavesNothing) {
    Write("large", Noise(20 << 20));
    const int descriptors = OpenDescriptorCount();
    const int threads = ThreadCount();
    {
        StartHere(60000);
        HttpClient stuck(m_port);
        ASSERT_TRUE(stuck.Send(HttpClient::Get("/large")));
        EXPECT_EQ("HTTP/1.1", stuck.ReadBytes(8));
        const Stopwatch watch;
        m_here.reset();
        EXPECT_LT(watch.ElapsedMs(), kpl::test::kCeilingMs);
    }
    EXPECT_TRUE(WaitUntil([&] { return ThreadCount() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptorCount());
}

}  // namespace
