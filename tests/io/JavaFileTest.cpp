// Files and lines over http and https: with a real Java machine and real servers.
#include <stdio.h>

#include <string>

#include "kpl/io/CFile.h"
#include "kpl/parser/LineParser.h"
#include "tests/net/http/JavaTest.h"

namespace {

using kpl::io::CFile;
using kpl::parser::LineParser;
using kpl::test::ExpectSame;
using kpl::test::JdkServer;
using kpl::test::MakeContent;
using JavaFileTest = kpl::test::JavaTest;
using JavaFileAndNginxTest = kpl::test::JavaAndNginxTest;

std::string Read(CFile& file, size_t size) {
    std::string bytes(size, '\0');
    const int count =
        file.Read(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned int>(size));
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

std::string ReadAll(CFile& file, size_t pieceSize) {
    std::string all;
    for (;;) {
        const std::string piece = Read(file, pieceSize);
        if (piece.empty()) {
            return all;
        }
        all += piece;
    }
}

TEST_F(JavaFileAndNginxTest, AFileIsTheSameByHttpAndByHttps) {
    const std::string content = MakeContent(2 * 1024 * 1024 + 3);
    server->AddFile("file", content);
    for (const std::string& url : {server->Url("/file"), server->SecureUrl("/file")}) {
        CFile file;
        ASSERT_TRUE(file.Open(url.c_str()));
        EXPECT_EQ(file.GetFileSize(), static_cast<int>(content.size()));
        ExpectSame(ReadAll(file, 70001), content);
        EXPECT_EQ(file.Seek(-7, SEEK_END), 0);
        EXPECT_EQ(Read(file, 100), content.substr(content.size() - 7));
        EXPECT_EQ(file.Seek(1000, SEEK_SET), 0);
        EXPECT_EQ(Read(file, 100), content.substr(1000, 100));
    }
}

TEST_F(JavaFileAndNginxTest, LettersOfTheSchemeMayBeInEitherCase) {
    server->AddFile("file", "hello");
    CFile file;
    ASSERT_TRUE(file.Open(("HtTp" + server->Url("/file").substr(4)).c_str()));
    EXPECT_EQ(Read(file, 10), "hello");
    ASSERT_TRUE(file.Open(("hTTPs" + server->SecureUrl("/file").substr(5)).c_str()));
    EXPECT_EQ(Read(file, 10), "hello");
}

TEST_F(JavaFileAndNginxTest, LinesAreReadByHttpAndByHttps) {
    std::string text;
    for (int i = 0; i < 20000; ++i) {
        text += "line " + std::to_string(i) + "\r\n\r\n";
    }
    server->AddFile("lines", text);
    for (const std::string& url : {server->Url("/lines"), server->SecureUrl("/lines")}) {
        LineParser lines;
        ASSERT_TRUE(lines.SetContent(url.c_str()));
        EXPECT_STREQ(lines[0], "line 0");
        EXPECT_STREQ(lines[19999], "line 19999");
        EXPECT_EQ(lines[20000], nullptr);
    }
}

TEST_F(JavaFileTest, AResourceWithoutALengthHasNoLinesButCanBeRead) {
    const JdkServer server("a\nb\n");
    CFile file;
    ASSERT_TRUE(file.Open(server.Url("/chunked").c_str()));
    EXPECT_EQ(file.GetFileSize(), -1);
    EXPECT_EQ(ReadAll(file, 3), "a\nb\n");
    LineParser lines;
    EXPECT_FALSE(lines.SetContent(server.Url("/chunked").c_str()));
    EXPECT_EQ(lines[0], nullptr);
}

TEST_F(JavaFileTest, AMissingResourceOpensAndHasNothingToRead) {
    const JdkServer server("hello");
    CFile file;
    EXPECT_TRUE(file.Open(server.Url("/missing").c_str()));
    EXPECT_EQ(Read(file, 10), "");
    EXPECT_LT(file.GetFileSize(), 1);
    LineParser lines;
    EXPECT_FALSE(lines.SetContent(server.Url("/missing").c_str()));
}

}  // namespace
