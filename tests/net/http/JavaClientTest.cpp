// The client with a real Java machine and real servers.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kpl/net/http/CHttpClient.h"
#include "kpl/os/android/JniContext.h"
#include "tests/net/http/HttpServers.h"
#include "tests/net/http/JavaMachine.h"
#include "tests/net/http/JavaTest.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"

namespace {

using kpl::net::http::CHttpClient;
using kpl::net::http::IHttpClient;
using kpl::os::android::JniContext;
using kpl::test::ExpectSame;
using kpl::test::JavaClass;
using kpl::test::JavaMachine;
using kpl::test::JdkServer;
using kpl::test::kCeilingMs;
using kpl::test::LogCapture;
using kpl::test::MakeContent;
using kpl::test::NginxServer;
using kpl::test::Stopwatch;
using kpl::test::TrustedCertificate;
using kpl::test::WaitUntil;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StrEq;

constexpr auto kBegin = IHttpClient::SEEK_FLAG_BEGIN;
constexpr auto kCurrent = IHttpClient::SEEK_FLAG_CURRENT;
constexpr auto kEnd = IHttpClient::SEEK_FLAG_END;

constexpr char kCannotRead[] = "CHttpClientAndroid::Read(): ?????? Ret=-1\n";

using JavaClientTest = kpl::test::JavaTest;
using JavaClientAndNginxTest = kpl::test::JavaAndNginxTest;

// Reads to the end, or to an error, in pieces of odd sizes.
std::string ReadAll(IHttpClient& client) {
    std::string all;
    std::string piece;
    for (size_t size = 1;; size = size * 7 % 600011 + 1) {
        piece.resize(size);
        const int count = client.Read(piece.data(), static_cast<int>(size));
        if (count < 1) {
            return all;
        }
        all.append(piece, 0, static_cast<size_t>(count));
    }
}

std::string Read(IHttpClient& client, int size) {
    std::string bytes(static_cast<size_t>(size), '\0');
    const int count = client.Read(bytes.data(), size);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

// How an application begins.

TEST_F(JavaClientTest, ALibraryThatJavaLoadsGivesTheClientItsMachineAndClass) {
    static bool loaded = false;
    if (std::exchange(loaded, true)) {
        GTEST_SKIP() << "Java loads a library once in a process";
    }
    JniContext::GetInstance().Finalize(machine.Vm());
    JdkServer server("hello");
    jvalue file{};
    file.l = machine.Env()->NewStringUTF(KPL_ON_LOAD_LIBRARY);
    JavaClass("kpl/test/TestServer").CallVoid("load", "(Ljava/lang/String;)V", {file});
    machine.Env()->DeleteLocalRef(file.l);
    EXPECT_EQ(JniContext::GetInstance().GetJVM(), machine.Vm());
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/file").c_str()));
    EXPECT_EQ(ReadAll(client), "hello");
}

// Whole resources.

TEST_F(JavaClientAndNginxTest, ALargeFileInOddPiecesIsEqualToTheByte) {
    const std::string content = MakeContent(20 * 1024 * 1024 + 13);
    server->AddFile("large", content);
    for (const std::string& url : {server->Url("/large"), server->SecureUrl("/large")}) {
        CHttpClient client;
        ASSERT_TRUE(client.Open(url.c_str()));
        EXPECT_EQ(client.GetResposnseCode(), 200);
        EXPECT_EQ(client.GetTotalLength(), static_cast<int>(content.size()));
        ExpectSame(ReadAll(client), content);
        EXPECT_THAT(log.Messages(), Each("CHttpClientAndroid::Read(): ?????? Ret=0\n"));
    }
}

TEST_F(JavaClientAndNginxTest, SeekGoesToStartMiddleAndEndAndNotBeyond) {
    const std::string content = MakeContent(3 * 1024 * 1024 + 7);
    const int size = static_cast<int>(content.size());
    server->AddFile("large", content);
    for (const std::string& url : {server->Url("/large"), server->SecureUrl("/large")}) {
        CHttpClient client;
        ASSERT_TRUE(client.Open(url.c_str()));
        EXPECT_EQ(Read(client, 10), content.substr(0, 10));
        EXPECT_EQ(client.Seek(size / 2, kBegin), 0);
        EXPECT_EQ(Read(client, 1000), content.substr(content.size() / 2, 1000));
        EXPECT_EQ(client.Seek(0, kBegin), 0);
        EXPECT_EQ(Read(client, 1000), content.substr(0, 1000));
        EXPECT_EQ(client.Seek(-5, kEnd), 0);
        EXPECT_EQ(Read(client, 1000), content.substr(content.size() - 5));
        EXPECT_EQ(client.Seek(0, kEnd), 0);
        EXPECT_EQ(Read(client, 1000), "");
        EXPECT_EQ(client.Seek(size, kBegin), 0);
        EXPECT_EQ(client.Seek(size - 3, kBegin), 0);
        // Refused, and nothing moves.
        EXPECT_EQ(client.Seek(size + 1, kBegin), -1);
        EXPECT_EQ(client.Seek(1, kEnd), -1);
        EXPECT_EQ(client.Seek(-1, kBegin), -1);
        EXPECT_EQ(client.Seek(-size - 1, kEnd), -1);
        EXPECT_EQ(client.Seek(2147483647, kBegin), -1);
        EXPECT_EQ(client.Seek(0, static_cast<IHttpClient::SeekFlag>(3)), -1);
        EXPECT_EQ(Read(client, 1000), content.substr(content.size() - 3));
        // The answer to Open is still what is asked for.
        EXPECT_EQ(client.GetTotalLength(), size);
        EXPECT_EQ(client.GetResposnseCode(), 200);
        EXPECT_THAT(client.GetResponseProperty("content-length"),
                    StrEq(std::to_string(content.size())));
    }
}

TEST_F(JavaClientAndNginxTest, ARedirectFromHttpToHttpsIsFollowedAndNotBack) {
    server->AddFile("small", "hello");
    CHttpClient client;
    ASSERT_TRUE(client.Open(server->Url("/to-https/small").c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 200);
    EXPECT_THAT(client.GetUrl(), StrEq(server->Url("/to-https/small")));
    EXPECT_THAT(client.GetConnectedUrl(), StrEq(server->SecureUrl("/small")));
    EXPECT_EQ(ReadAll(client), "hello");
    ASSERT_TRUE(client.Open(server->SecureUrl("/to-http/small").c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 302);
    EXPECT_THAT(client.GetConnectedUrl(), StrEq(server->SecureUrl("/to-http/small")));
    EXPECT_EQ(ReadAll(client), "");
}

TEST_F(JavaClientAndNginxTest, ACertificateThatIsNotTrustedGetsNoAnswer) {
    trust.reset();
    before = machine.CountReferences();
    server->AddFile("small", "hello");
    CHttpClient client;
    EXPECT_TRUE(client.Open(server->SecureUrl("/small").c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 0);
    EXPECT_EQ(ReadAll(client), "");
}

// Answers of every kind.

TEST_F(JavaClientTest, AnAnswerHasACodeATextAndProperties) {
    JdkServer server("x");
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/echo").c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 200);
    EXPECT_THAT(client.GetResponseText(), StrEq("OK"));
    EXPECT_THAT(client.GetResponseProperty("X-Answer"), StrEq("forty-two"));
    EXPECT_THAT(client.GetResponseProperty("x-answer"), StrEq("forty-two"));
    EXPECT_EQ(client.GetResponseProperty("X-Question"), nullptr);
    EXPECT_THAT(client.GetUrl(), StrEq(server.Url("/echo")));
    EXPECT_THAT(client.GetConnectedUrl(), StrEq(server.Url("/echo")));
    EXPECT_TRUE(WaitUntil([&] { return client.IsDataAvailable(); }));
    const std::string text = ReadAll(client);
    EXPECT_EQ(static_cast<int>(text.size()), client.GetTotalLength());
    EXPECT_THAT(text, HasSubstr("Accept-encoding: identity\n"));
    EXPECT_FALSE(client.IsDataAvailable());
    client.Close();
    EXPECT_EQ(client.GetResposnseCode(), 0);
    EXPECT_EQ(client.GetUrl(), nullptr);
}

TEST_F(JavaClientTest, AResourceThatIsMissingHasACodeAndNothingToRead) {
    JdkServer server("x");
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/missing").c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 404);
    EXPECT_THAT(client.GetResponseText(), StrEq("Not Found"));
    EXPECT_EQ(client.GetTotalLength(), -1);
    char byte = 0;
    EXPECT_EQ(client.Read(&byte, 1), -1);
    EXPECT_EQ(client.Seek(0, kBegin), -1);
    EXPECT_FALSE(client.IsDataAvailable());
    EXPECT_EQ(log.Count(kCannotRead), 1);
}

TEST_F(JavaClientTest, AnEmptyResourceEndsAtOnce) {
    JdkServer server("");
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/empty").c_str()));
    EXPECT_EQ(client.GetTotalLength(), 0);
    char byte = 0;
    EXPECT_EQ(client.Read(&byte, 1), 0);
    EXPECT_EQ(client.Seek(0, kEnd), 0);
}

TEST_F(JavaClientTest, RedirectsAreFollowed) {
    const std::string content = MakeContent(5000);
    JdkServer server(content);
    JdkServer first("");
    CHttpClient client;
    const std::string url = first.Url("/absolute?") + server.Url("/to/to/to/ranges");
    ASSERT_TRUE(client.Open(url.c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 200);
    EXPECT_THAT(client.GetUrl(), StrEq(url));
    EXPECT_THAT(client.GetConnectedUrl(), StrEq(server.Url("/ranges")));
    ExpectSame(ReadAll(client), content);
    // Seeking asks where the answer came from.
    EXPECT_EQ(client.Seek(4990, kBegin), 0);
    EXPECT_EQ(Read(client, 100), content.substr(4990));
    EXPECT_EQ(first.Requests(), 1);
    EXPECT_EQ(server.Requests(), 5);
    ASSERT_TRUE(client.Open(server.Url("/absolute?file").c_str()));
    EXPECT_THAT(client.GetConnectedUrl(), StrEq(server.Url("/file")));
}

TEST_F(JavaClientTest, RedirectsInACircleEndWithoutAnAnswer) {
    JdkServer server("x");
    CHttpClient client;
    EXPECT_TRUE(client.Open(server.Url("/loop").c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 0);
    EXPECT_EQ(server.Requests(), 21);
}

TEST_F(JavaClientTest, WhereNobodyListensThereIsNoAnswer) {
    std::string url;
    {
        JdkServer server("x");
        url = server.Url("/file");
    }
    CHttpClient client;
    EXPECT_TRUE(client.Open(url.c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 0);
    char byte = 0;
    EXPECT_EQ(client.Read(&byte, 1), -1);
    EXPECT_EQ(client.Seek(0, kBegin), -3);
}

TEST_F(JavaClientTest, WhatIsNoHttpUrlGetsNoAnswer) {
    CHttpClient client;
    for (const char* url : {"", "nonsense", "http://", "file:///etc/hostname", "gopher://h/x"}) {
        EXPECT_EQ(client.Open(url), *url != '\0') << url;
        EXPECT_EQ(client.GetResposnseCode(), 0) << url;
    }
}

TEST_F(JavaClientTest, ALengthThatIsNotToldIsMinusOne) {
    const std::string content = MakeContent(300001);
    JdkServer server(content);
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/chunked").c_str()));
    EXPECT_EQ(client.GetTotalLength(), -1);
    ExpectSame(ReadAll(client), content);
    EXPECT_EQ(client.Seek(0, kEnd), -1);
    EXPECT_EQ(client.Seek(5, kEnd), -1);
    EXPECT_EQ(client.Seek(300000, kBegin), 0);
    EXPECT_EQ(Read(client, 10), content.substr(300000));
    EXPECT_EQ(client.Seek(300002, kBegin), -1);
}

// Seeking.

TEST_F(JavaClientTest, SeekAsksForARange) {
    const std::string content = MakeContent(1000000);
    JdkServer server(content);
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/ranges").c_str()));
    EXPECT_EQ(client.Seek(999990, kBegin), 0);
    EXPECT_EQ(server.LastRange(), "bytes=999990-");
    EXPECT_EQ(Read(client, 4), content.substr(999990, 4));
    EXPECT_EQ(client.Seek(0, kBegin), 0);
    EXPECT_EQ(server.LastRange(), "");
    // Behind the end there is nothing to ask for.
    EXPECT_EQ(client.Seek(1000000, kBegin), 0);
    EXPECT_EQ(client.Seek(1000001, kBegin), -1);
    EXPECT_EQ(client.Seek(-1, kBegin), -1);
    EXPECT_EQ(server.Requests(), 3);
    EXPECT_EQ(client.Seek(0, kBegin), 0);
    ExpectSame(ReadAll(client), content);
}

TEST_F(JavaClientTest, SeekFromTheCurrentPositionCountsFromWhatJavaHasDelivered) {
    const std::string content = MakeContent(2000);
    JdkServer server(content);
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/ranges").c_str()));
    EXPECT_EQ(ReadAll(client), content);
    EXPECT_EQ(client.Seek(-500, kCurrent), 0);
    EXPECT_EQ(Read(client, 10), content.substr(1500, 10));
    EXPECT_EQ(client.Seek(-2001, kCurrent), -1);
}

TEST_F(JavaClientTest, AServerWithoutRangesIsReadUpToThePosition) {
    const std::string content = MakeContent(200000);
    JdkServer server(content);
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/file").c_str()));
    EXPECT_EQ(client.Seek(150000, kBegin), 0);
    EXPECT_EQ(Read(client, 1000), content.substr(150000, 1000));
    EXPECT_EQ(client.Seek(10, kBegin), 0);
    EXPECT_EQ(Read(client, 1000), content.substr(10, 1000));
}

TEST_F(JavaClientTest, ASeekThatTheServerAnswersWronglyFailsAndReadingGoesOn) {
    const std::string content = MakeContent(600000);
    for (const char* path : {"/liar", "/grows", "/shrinks"}) {
        JdkServer server(content);
        CHttpClient client;
        ASSERT_TRUE(client.Open(server.Url(path).c_str()));
        EXPECT_EQ(Read(client, 300000), content.substr(0, 300000));
        EXPECT_EQ(client.Seek(10, kBegin), -1) << path;
        ExpectSame(ReadAll(client), content.substr(300000));
    }
}

// Servers that are slow, or give up.

TEST_F(JavaClientTest, ASlowServerIsReadToTheEnd) {
    const std::string content = MakeContent(20 * 37);
    JdkServer server(content);
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/dribbles").c_str()));
    EXPECT_EQ(ReadAll(client), content);
}

TEST_F(JavaClientTest, AServerThatStallsEndsTheReadAfterTheTimeOut) {
    const std::string content = MakeContent(5000);
    JdkServer server(content);
    CHttpClient client;
    // Both ends have then loaded what they need, and the head of the answer comes in time.
    ASSERT_TRUE(client.Open(server.Url("/file").c_str()));
    ASSERT_EQ(ReadAll(client), content);
    log.Clear();
    SetTimeouts(10000, 1000);
    ASSERT_TRUE(client.Open(server.Url("/stalls").c_str()));
    const Stopwatch watch;
    EXPECT_EQ(ReadAll(client), content.substr(0, 1000));
    EXPECT_GE(watch.ElapsedMs(), 1000);
    EXPECT_LT(watch.ElapsedMs(), 8000);
    EXPECT_EQ(log.Count(kCannotRead), 2);
}

TEST_F(JavaClientTest, AServerThatNeverAnswersEndsTheOpenAfterTheTimeOut) {
    SetTimeouts(10000, 200);
    JdkServer server("x");
    CHttpClient client;
    const Stopwatch watch;
    EXPECT_TRUE(client.Open(server.Url("/silent").c_str()));
    EXPECT_GE(watch.ElapsedMs(), 200);
    EXPECT_LT(watch.ElapsedMs(), 8000);
    EXPECT_EQ(client.GetResposnseCode(), 0);
}

TEST_F(JavaClientTest, ABodyThatEndsEarlyIsAnErrorAndNoEnd) {
    const std::string content = MakeContent(10000);
    JdkServer server(content);
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/short").c_str()));
    EXPECT_EQ(client.GetTotalLength(), 10000);
    EXPECT_EQ(ReadAll(client), content.substr(0, 5000));
    char byte = 0;
    EXPECT_EQ(client.Read(&byte, 1), -1);
    EXPECT_EQ(client.Seek(0, kBegin), 0);
    EXPECT_EQ(Read(client, 10), content.substr(0, 10));
}

// Several clients and threads.

// Answers one request, with this status and what follows it, and then waits for the client to
// leave. No connection is to be kept, so that Java does not wait for the rest of an answer.
class OneAnswer {
public:
    explicit OneAnswer(std::string answer)
        : m_answer("HTTP/1.1 " + answer.insert(answer.find('\n') + 1, "Connection: close\r\n")),
          m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(m_address);
        auto* generic = reinterpret_cast<sockaddr*>(&m_address);
        EXPECT_EQ(bind(m_listener, generic, size), 0);
        EXPECT_EQ(listen(m_listener, 1), 0);
        EXPECT_EQ(getsockname(m_listener, generic, &size), 0);
        m_thread = std::thread([this] { Serve(); });
    }
    ~OneAnswer() {
        m_thread.join();
        close(m_listener);
        EXPECT_TRUE(m_left) << "the client keeps the connection";
    }
    OneAnswer(const OneAnswer&) = delete;
    OneAnswer& operator=(const OneAnswer&) = delete;

    std::string Url() const {
        return "http://127.0.0.1:" + std::to_string(ntohs(m_address.sin_port)) + "/x";
    }

private:
    static bool IsReadable(int fd) {
        pollfd poller{fd, POLLIN, 0};
        return poll(&poller, 1, kCeilingMs) == 1;
    }

    void Serve() {
        const int fd = IsReadable(m_listener) ? accept(m_listener, nullptr, nullptr) : -1;
        char bytes[4096];
        std::string request;
        ssize_t count = 1;
        while (count > 0 && request.find("\r\n\r\n") == std::string::npos) {
            count = IsReadable(fd) ? recv(fd, bytes, sizeof(bytes), 0) : 0;
            request.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        }
        send(fd, m_answer.data(), m_answer.size(), MSG_NOSIGNAL);
        // The end, or a reset where bytes of the answer were not read.
        m_left = IsReadable(fd) && recv(fd, bytes, sizeof(bytes), 0) <= 0;
        close(fd);
    }

    const std::string m_answer;
    const int m_listener;
    sockaddr_in m_address{};
    std::atomic<bool> m_left{false};
    std::thread m_thread;
};

TEST_F(JavaClientTest, AChunkOfANegativeSizeIsAnErrorAndThrowsNothing) {
    OneAnswer server("200 OK\r\nTransfer-Encoding: chunked\r\n\r\n-5\r\nhello\r\n");
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url().c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 200);
    char byte = 0;
    EXPECT_EQ(client.Read(&byte, 1), -1);
    EXPECT_EQ(client.Read(&byte, 1), -1);
}

TEST_F(JavaClientTest, ARedirectToNoUrlGetsNoAnswerAndEndsTheConnection) {
    OneAnswer server("302 Found\r\nLocation: foo:bar\r\nContent-Length: 100000\r\n\r\nhello");
    CHttpClient client;
    EXPECT_TRUE(client.Open(server.Url().c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 0);
}

TEST_F(JavaClientTest, TwoClientsAtOnceDoNotDisturbEachOther) {
    const std::string content = MakeContent(700000);
    JdkServer server(content);
    CHttpClient a;
    CHttpClient b;
    ASSERT_TRUE(a.Open(server.Url("/ranges").c_str()));
    ASSERT_TRUE(b.Open(server.Url("/ranges").c_str()));
    EXPECT_EQ(b.Seek(350000, kBegin), 0);
    for (size_t position = 0; position < 350000; position += 7000) {
        ASSERT_EQ(Read(a, 7000), content.substr(position, 7000));
        ASSERT_EQ(Read(b, 7000), content.substr(350000 + position, 7000));
    }
}

TEST_F(JavaClientTest, ThreadsAttachAndDetachWithEveryCall) {
    const std::string content = MakeContent(500000);
    JdkServer server(content);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 3; ++round) {
                CHttpClient client;
                ASSERT_TRUE(client.Open(server.Url("/ranges").c_str()));
                ExpectSame(ReadAll(client), content);
                void* env = nullptr;
                EXPECT_EQ(machine.Vm()->GetEnv(&env, JNI_VERSION_1_4), JNI_EDETACHED);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(JavaClientTest, WhatOneThreadOpensOthersReadAndClose) {
    const std::string content = MakeContent(500000);
    JdkServer server(content);
    CHttpClient client;
    std::thread([&] { EXPECT_TRUE(client.Open(server.Url("/file").c_str())); }).join();
    std::thread([&] { EXPECT_EQ(Read(client, 300000), content.substr(0, 300000)); }).join();
    EXPECT_EQ(Read(client, 100), content.substr(300000, 100));
    std::thread([&] { client.Close(); }).join();
}

TEST_F(JavaClientTest, AThreadThatTheApplicationAttachedIsDetachedByACall) {
    JdkServer server("x");
    std::thread([&] {
        void* env = nullptr;
        ASSERT_EQ(machine.Vm()->AttachCurrentThread(&env, nullptr), JNI_OK);
        CHttpClient client;
        EXPECT_TRUE(client.Open(server.Url("/file").c_str()));
        EXPECT_EQ(machine.Vm()->GetEnv(&env, JNI_VERSION_1_4), JNI_EDETACHED);
        // What the application does if it goes on with Java here.
        ASSERT_EQ(machine.Vm()->AttachCurrentThread(&env, nullptr), JNI_OK);
        EXPECT_NE(static_cast<JNIEnv*>(env)->GetVersion(), 0);
        EXPECT_EQ(machine.Vm()->DetachCurrentThread(), JNI_OK);
    }).join();
}

// References.

TEST_F(JavaClientTest, AHundredThousandCallsOnTheInitialisingThreadKeepTheReferencesAsTheyAre) {
    const std::string content = MakeContent(40000);
    JdkServer server(content);
    CHttpClient client;
    ASSERT_TRUE(client.Open(server.Url("/file").c_str()));
    const JavaMachine::References open = machine.CountReferences();
    EXPECT_EQ(open.local, before.local);
    EXPECT_EQ(open.global, before.global + 2);  // connection and buffer
    char byte = 0;
    for (int i = 0; i < 20000; ++i) {
        ASSERT_EQ(client.GetTotalLength(), 40000);
        ASSERT_NE(client.GetUrl(), nullptr);
        ASSERT_NE(client.GetResponseProperty("Content-Length"), nullptr);
        ASSERT_EQ(client.Read(&byte, 1), 1);
        ASSERT_EQ(client.GetResponseProperty("X-Question"), nullptr);
    }
    const JavaMachine::References after = machine.CountReferences();
    printf("references before 100000 calls: %d local, %d global; after: %d local, %d global\n",
           open.local, open.global, after.local, after.global);
    EXPECT_EQ(after.local, open.local);
    EXPECT_EQ(after.global, open.global);
}

TEST_F(JavaClientTest, OpeningAndClosingAgainAndAgainKeepsTheReferencesAsTheyAre) {
    JdkServer server("x");
    const JavaMachine::References closed = machine.CountReferences();
    machine.FindPropertyMap(true);
    for (int i = 0; i < 200; ++i) {
        CHttpClient client;
        client.SetRequestProperty("X-Colour", "blue");
        ASSERT_TRUE(client.Open(server.Url(i % 2 == 0 ? "/file" : "/missing").c_str()));
        ASSERT_TRUE(client.Open(server.Url("/file").c_str()));
        client.Seek(0, kEnd);
    }
    const JavaMachine::References after = machine.CountReferences();
    printf("references before 400 connections: %d local, %d global; after: %d local, %d global\n",
           closed.local, closed.global, after.local, after.global);
    EXPECT_EQ(after.local, closed.local);
    EXPECT_EQ(after.global, closed.global);
}

// Request properties and exceptions.

TEST_F(JavaClientTest, RequestPropertiesTravelWhereTheMachineFindsTheirMap) {
    machine.FindPropertyMap(true);
    JdkServer server("x");
    JdkServer other("x");
    CHttpClient client;
    const auto setAll = [&] {
        client.SetRequestProperty("X-Colour", "bl\xc3\xa4ulich");
        client.SetRequestProperty("Authorization", "Basic c2VjcmV0");
        client.SetRequestProperty("X-Empty", nullptr);
    };
    setAll();
    EXPECT_THAT(client.GetRequestProperty("x-colour"), StrEq("bl\xc3\xa4ulich"));
    EXPECT_THAT(client.GetRequestProperty("X-Empty"), StrEq(""));
    EXPECT_EQ(client.GetRequestProperty("X-Shape"), nullptr);
    ASSERT_TRUE(client.Open(server.Url("/to/echo").c_str()));
    const std::string request = ReadAll(client);
    EXPECT_THAT(request, HasSubstr("X-colour: "));
    EXPECT_THAT(request, HasSubstr("Authorization: Basic c2VjcmV0\n"));
    // Closing drops them. A secret does not go to the server of a redirect.
    client.Close();
    setAll();
    ASSERT_TRUE(client.Open(other.Url("/absolute?").append(server.Url("/echo")).c_str()));
    const std::string redirected = ReadAll(client);
    EXPECT_THAT(redirected, HasSubstr("X-colour: "));
    EXPECT_THAT(redirected, testing::Not(HasSubstr("Authorization")));
}

TEST_F(JavaClientTest, ARangeOfTheApplicationsOwnIsReadAndNotSought) {
    machine.FindPropertyMap(true);
    const std::string content = MakeContent(1000);
    JdkServer server(content);
    CHttpClient client;
    client.SetRequestProperty("Range", "bytes=900-");
    ASSERT_TRUE(client.Open(server.Url("/ranges").c_str()));
    EXPECT_EQ(client.GetResposnseCode(), 206);
    EXPECT_EQ(client.GetTotalLength(), 100);
    EXPECT_EQ(client.Seek(50, kBegin), -1);
    EXPECT_EQ(ReadAll(client), content.substr(900));
}

TEST_F(JavaClientTest, OnAUsualMachineTheMapIsNotFoundAndTheExceptionStaysUntilItIsCleared) {
    JdkServer server("x");
    JNIEnv* env = machine.Env();
    CHttpClient client;
    client.SetRequestProperty("X-Colour", "blue");
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"CHttpClientAndroid::SetRequestProperty(): ?????? Cannot "
                                       "find method CreateRequestPropertyMap\n"});
    EXPECT_TRUE(env->ExceptionCheck());
    EXPECT_THAT(machine.TakeWarnings(), IsEmpty());
    EXPECT_EQ(client.GetRequestProperty("X-Colour"), nullptr);
    client.SetRequestProperty("X-Colour", "blue");
    EXPECT_TRUE(env->ExceptionCheck());
    // A call made with the exception pending is a mistake of the application.
    const std::vector<std::string> warnings = machine.TakeWarnings();
    EXPECT_THAT(warnings, testing::SizeIs(testing::Ge(1u)));
    EXPECT_THAT(warnings, Each(HasSubstr("JNI call made with exception pending")));
    // So the application takes it.
    jthrowable exception = env->ExceptionOccurred();
    env->ExceptionClear();
    jclass expected = env->FindClass("java/lang/NoSuchMethodError");
    EXPECT_TRUE(env->IsInstanceOf(exception, expected));
    env->DeleteLocalRef(expected);
    env->DeleteLocalRef(exception);
    EXPECT_TRUE(client.Open(server.Url("/file").c_str()));
    EXPECT_EQ(ReadAll(client), "x");
}

TEST_F(JavaClientTest, OnAnyOtherThreadThePendingExceptionEndsWithTheDetaching) {
    JdkServer server("x");
    JavaClass tools("kpl/test/TestServer");
    tools.CallVoid("catchUncaught", "()V");
    std::thread([&] {
        CHttpClient client;
        client.SetRequestProperty("X-Colour", "blue");
        EXPECT_TRUE(client.Open(server.Url("/file").c_str()));
        EXPECT_EQ(ReadAll(client), "x");
    }).join();
    // It went where the application's uncaught exceptions go.
    EXPECT_THAT(tools.CallText("lastUncaught", "()Ljava/lang/String;"),
                HasSubstr("java.lang.NoSuchMethodError"));
}

TEST_F(JavaClientTest, AClassThatIsNotFoundLeavesAnExceptionThatTheApplicationClears) {
    JNIEnv* env = machine.Env();
    EXPECT_EQ(LoadJavaClass(env, "com/kapelo/net/Nothing"), nullptr);
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{
                  "LoadJavaClass(): ????????? Cannot find class com/kapelo/net/Nothing\n"});
    EXPECT_TRUE(env->ExceptionCheck());
    env->ExceptionClear();
    jclass cls = LoadJavaClass(env, "java/lang/String");
    EXPECT_NE(cls, nullptr);
    FreeJavaClass(env, cls);
    before.local += 1;  // the look-up's, which stays
}

TEST_F(JavaClientTest, TheOnlyWarningOfXcheckIsThatExceptionsAreNotLookedFor) {
    machine.LookForExceptions(false);
    const std::string content = MakeContent(1000);
    JdkServer server(content);
    {
        CHttpClient client;
        EXPECT_TRUE(client.Open(server.Url("/ranges").c_str()));
        EXPECT_EQ(client.GetResposnseCode(), 200);
        EXPECT_EQ(Read(client, 100), content.substr(0, 100));
        EXPECT_EQ(client.Seek(10, kBegin), 0);
        EXPECT_NE(client.GetResponseText(), nullptr);
    }
    machine.Env()->ExceptionCheck();
    const std::vector<std::string> warnings = machine.TakeWarnings();
    EXPECT_THAT(warnings, testing::Not(IsEmpty()));
    EXPECT_THAT(warnings,
                Each(testing::StartsWith("WARNING in native method: JNI call made without checking "
                                         "exceptions when required to from CallStatic")));
}

}  // namespace
