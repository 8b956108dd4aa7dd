// Files that a server holds, with a stand-in for the HTTP client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>

#include <memory>
#include <string>

#include "kpl/io/CFile.h"
#include "tests/support/HttpStandIn.h"

namespace {

using kpl::io::CFile;
using kpl::test::HttpStandIn;
using testing::ElementsAre;

class RemoteFileTest : public testing::Test {
protected:
    RemoteFileTest() { HttpStandIn::Get() = HttpStandIn(); }
    ~RemoteFileTest() override { EXPECT_EQ(0, HttpStandIn::Get().alive); }

    HttpStandIn& m_server = HttpStandIn::Get();
};

TEST_F(RemoteFileTest, EveryOperationIsTheClients) {
    m_server.content = "abc";
    m_server.length = 77;
    m_server.seekResult = 5;
    CFile file;
    unsigned char bytes[10] = {};
    EXPECT_TRUE(file.Open("http://h/x"));
    EXPECT_EQ(77, file.GetFileSize());
    EXPECT_EQ(2, file.Read(bytes, 2));
    EXPECT_EQ(1, file.Read(bytes + 2, 8));
    EXPECT_STREQ("abc", reinterpret_cast<char*>(bytes));
    EXPECT_EQ(0, file.Read(bytes, 1));
    EXPECT_EQ(5, file.Seek(-3, SEEK_END));
    EXPECT_EQ(5, file.Seek(0, SEEK_SET));
    EXPECT_EQ(5, file.Seek(1, SEEK_CUR));
    file.Close();
    EXPECT_THAT(m_server.calls,
                ElementsAre("Open http://h/x", "GetTotalLength", "Read 2", "Read 8", "Read 1",
                            "Seek -3 2", "Seek 0 0", "Seek 1 1", "Close", "destroy"));
}

TEST_F(RemoteFileTest, TheLettersOfTheSchemeMayHaveEitherCase) {
    for (const char* path : {"HTTP://h/x", "hTTp://x", "HTTPS://h/x", "httpS://x", "http:///"}) {
        m_server.calls.clear();
        CFile file;
        EXPECT_TRUE(file.Open(path));
        EXPECT_THAT(m_server.calls, ElementsAre(std::string("Open ") + path));
    }
}

TEST_F(RemoteFileTest, WhatIsNotQuiteAnAddressIsNotTheClients) {
    for (const char* path : {"http://", "https://", "HTTP://", "http:/x/y/z", "http//:xyz",
                             "https:x//yz", "httpss://xyz", "xhttp://xyz", "http:\\\\xyz"}) {
        CFile file;
        EXPECT_FALSE(file.Open(path)) << path;
    }
    EXPECT_TRUE(m_server.calls.empty());
}

TEST_F(RemoteFileTest, OpenIsTrueEvenWhenTheClientFails) {
    m_server.opens = false;
    CFile file;
    EXPECT_TRUE(file.Open("http://h/x"));
    EXPECT_EQ(1, m_server.alive);
}

TEST_F(RemoteFileTest, CloseAndDestructionDestroyTheClient) {
    {
        CFile file;
        EXPECT_TRUE(file.Open("http://h/a"));
        EXPECT_TRUE(file.Open("https://h/b"));
        EXPECT_EQ(1, m_server.alive);
        file.Close();
        EXPECT_EQ(0, m_server.alive);
        file.Close();
        EXPECT_TRUE(file.Open("https://h/c"));
    }
    EXPECT_THAT(m_server.calls,
                ElementsAre("Open http://h/a", "Close", "destroy", "Open https://h/b", "Close",
                            "destroy", "Open https://h/c", "Close", "destroy"));
}

TEST_F(RemoteFileTest, ALocalFileAfterARemoteOneIsLocal) {
    CFile file;
    EXPECT_TRUE(file.Open("http://h/a"));
    EXPECT_TRUE(file.Open("/dev/zero"));
    EXPECT_EQ(0, m_server.alive);
    unsigned char byte = 1;
    EXPECT_EQ(1, file.Read(&byte, 1));
    EXPECT_EQ(0, byte);
}

TEST_F(RemoteFileTest, AnOffsetThatDoesNotFitIsRefusedInsteadOfCut) {
    CFile file;
    EXPECT_TRUE(file.Open("http://h/a"));
    m_server.calls.clear();
    EXPECT_EQ(-1, file.Seek(0x100000005LL, SEEK_SET));
    EXPECT_EQ(-1, file.Seek(INT_MAX + 1LL, SEEK_SET));
    EXPECT_EQ(-1, file.Seek(INT_MIN - 1LL, SEEK_END));
    EXPECT_EQ(-1, file.Seek(0, 3));
    EXPECT_EQ(-1, file.Seek(0, -1));
    EXPECT_TRUE(m_server.calls.empty());
    EXPECT_EQ(0, file.Seek(INT_MAX, SEEK_SET));
    EXPECT_EQ(0, file.Seek(INT_MIN, SEEK_END));
    EXPECT_THAT(m_server.calls, ElementsAre("Seek 2147483647 0", "Seek -2147483648 2"));
}

TEST_F(RemoteFileTest, ASizeThatDoesNotFitIsCutToTheLargest) {
    m_server.content = "abc";
    CFile file;
    EXPECT_TRUE(file.Open("http://h/a"));
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[1000]);
    EXPECT_EQ(3, file.Read(bytes.get(), UINT_MAX));
    EXPECT_EQ("Read 2147483647", m_server.calls.back());
}

}  // namespace
