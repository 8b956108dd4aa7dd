#include "FolderPath.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace {

using file_http::DecodeTarget;
using file_http::FolderFile;
using file_http::OpenInFolder;
using kpl::test::TempDir;

std::string Decoded(const std::string& target) {
    std::string path;
    const int status = DecodeTarget(target, &path);
    return status == 200 ? path : std::to_string(status);
}

TEST(FolderPathTest, TargetsAreDecoded) {
    EXPECT_EQ("/a/b", Decoded("/a/b"));
    EXPECT_EQ("/", Decoded("/"));
    EXPECT_EQ("/a b/\xC3\xA4", Decoded("/a%20b/%c3%A4?q=%zz"));
    EXPECT_EQ("/a/b", Decoded("/a%2Fb"));
    EXPECT_EQ("400", Decoded("/%"));
    EXPECT_EQ("400", Decoded("/%4"));
    EXPECT_EQ("400", Decoded("/%4g"));
    EXPECT_EQ("400", Decoded("/a%00b"));
    EXPECT_EQ("400", Decoded("a"));
    EXPECT_EQ("400", Decoded(""));
    EXPECT_EQ("400", Decoded("?"));
}

TEST(FolderPathTest, DotsAreResolvedAndMayNotLeadAboveTheStart) {
    EXPECT_EQ("/b", Decoded("/a/../b"));
    EXPECT_EQ("/a/b", Decoded("/./a/./b"));
    EXPECT_EQ("/...", Decoded("/..."));
    EXPECT_EQ("", Decoded("/a/.."));
    EXPECT_EQ("403", Decoded("/.."));
    EXPECT_EQ("403", Decoded("/../x"));
    EXPECT_EQ("403", Decoded("/a/../../a/x"));
    EXPECT_EQ("403", Decoded("/%2e%2E/x"));
    EXPECT_EQ("403", Decoded("/..%2fx"));
    EXPECT_EQ("/..\\x", Decoded("/..\\x"));
}

// A folder to serve beside a secret.
class OpenInFolderTest : public testing::Test {
protected:
    OpenInFolderTest() {
        Write("secret", "secret");
        Write("folder2/secret", "secret");
        Write("folder/a.txt", "text");
        Write("folder/sub/index.html", "index");
        std::filesystem::create_directory(m_base + "/folder/bare");
    }

    void Write(const std::string& path, const std::string& text) {
        const std::filesystem::path whole = m_base + "/" + path;
        std::filesystem::create_directories(whole.parent_path());
        std::ofstream(whole) << text;
    }

    void Link(const std::string& to, const std::string& name) {
        std::filesystem::create_symlink(to, m_base + "/folder/" + name);
    }

    // The file's bytes, or the status.
    std::string Open(const std::string& target) {
        const FolderFile file = OpenInFolder(m_base + "/folder", target);
        if (file.status != 200) {
            EXPECT_EQ(-1, file.descriptor);
            return std::to_string(file.status);
        }
        std::string text(100, '#');
        const ssize_t count = read(file.descriptor, text.data(), text.size());
        close(file.descriptor);
        EXPECT_EQ(file.size, count);
        return text.substr(0, static_cast<size_t>(count));
    }

    TempDir m_directory;
    const std::string m_base = std::filesystem::canonical(m_directory.Path());
};

TEST_F(OpenInFolderTest, FilesAndIndexesAreOpened) {
    EXPECT_EQ("text", Open("/a.txt"));
    EXPECT_EQ("text", Open("//a.txt?x"));
    EXPECT_EQ("text", Open("/sub/../a.txt"));
    EXPECT_EQ("index", Open("/sub"));
    EXPECT_EQ("index", Open("/sub/"));
    EXPECT_EQ("404", Open("/"));
    EXPECT_EQ("404", Open("/bare"));
    EXPECT_EQ("404", Open("/none"));
    EXPECT_EQ("404", Open("/a.txt/"));
}

TEST_F(OpenInFolderTest, PathsThatLeaveTheFolderAreRefused) {
    EXPECT_EQ("403", Open("/../secret"));
    EXPECT_EQ("403", Open("/%2e%2e/secret"));
    EXPECT_EQ("403", Open("/..%2fsecret"));
    EXPECT_EQ("403", Open("/../folder2/secret"));
    EXPECT_EQ("403", Open("/../folder/a.txt"));
    EXPECT_EQ("404", Open("/" + m_base + "/secret"));
}

TEST_F(OpenInFolderTest, SymbolicLinksThatLeaveTheFolderAreNotThere) {
    Link(m_base + "/secret", "absolute");
    Link("../secret", "relative");
    Link("..", "up");
    Link("../folder2", "beside");  // its name begins like the folder's
    Link("relative", "chain");
    Write("outside/index.html", "secret");
    Link("../outside", "indexed");
    Link(m_base + "/secret", "bare/index.html");
    for (const char* target : {"/absolute", "/relative", "/up/secret", "/beside/secret", "/chain",
                               "/indexed", "/bare", "/bare/index.html", "/up/none"}) {
        EXPECT_EQ("404", Open(target)) << target;
    }
}

TEST_F(OpenInFolderTest, SymbolicLinksThatStayInsideAreFollowed) {
    Link("sub/index.html", "inside");
    Link("../folder/a.txt", "back");
    EXPECT_EQ("index", Open("/inside"));
    EXPECT_EQ("text", Open("/back"));
    Link("none", "dangling");
    Link("loop", "loop");
    EXPECT_EQ("404", Open("/dangling"));
    EXPECT_EQ("404", Open("/loop"));
}

TEST_F(OpenInFolderTest, OnlyRegularFilesAreOpened) {
    ASSERT_EQ(0, mkfifo((m_base + "/folder/fifo").c_str(), 0600));
    EXPECT_EQ("404", Open("/fifo"));
}

TEST_F(OpenInFolderTest, LongNamesAreNotThere) {
    EXPECT_EQ("404", Open("/" + std::string(4000, 'x')));
    EXPECT_EQ("text", Open(std::string(3000, '/') + "a.txt"));
}

TEST_F(OpenInFolderTest, AFailureLeavesNoDescriptor) {
    ASSERT_EQ(0, mkfifo((m_base + "/folder/fifo").c_str(), 0600));
    const int before = kpl::test::OpenDescriptorCount();
    Open("/fifo");
    Open("/none");
    Open("/../secret");
    EXPECT_EQ(before, kpl::test::OpenDescriptorCount());
}

TEST(OpenInRootTest, TheRootItselfCanBeServed) {
    const FolderFile file = OpenInFolder("/", "/proc/self/status");
    EXPECT_EQ(200, file.status);
    close(file.descriptor);
}

}  // namespace
