#include "kpl/io/CFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"
#include "tests/support/ThreadState.h"

namespace {

using kpl::io::CFile;
using kpl::test::LogCapture;
using kpl::test::OpenDescriptorCount;
using kpl::test::TempDir;
using kpl::test::WaitUntil;
using kpl::test::WaitUntilAsleep;

// A local file with these bytes.
class CFileTest : public testing::Test {
protected:
    CFileTest() : m_bytes("abc\0def\xFF\x80\n0123456789", 20), m_path(m_directory.Path() + "/f") {
        std::ofstream(m_path, std::ios::binary) << m_bytes;
    }
    ~CFileTest() override { std::filesystem::current_path(m_workingDirectory); }

    std::string Read(CFile* file, unsigned int size) {
        std::string text(size, '#');
        const int count = file->Read(reinterpret_cast<unsigned char*>(text.data()), size);
        return count < 0 ? "(error)" : text.substr(0, static_cast<size_t>(count));
    }

    const std::filesystem::path m_workingDirectory = std::filesystem::current_path();
    TempDir m_directory;
    const std::string m_bytes;
    const std::string m_path;
};

TEST_F(CFileTest, NothingIsOpenAtFirst) {
    CFile file;
    unsigned char byte = 0;
    EXPECT_EQ(0, file.Read(&byte, 1));
    EXPECT_EQ(-1, file.Seek(0, SEEK_SET));
    EXPECT_EQ(-1, file.GetFileSize());
    file.Close();
    file.Close();
}

TEST_F(CFileTest, ALocalFileIsReadToItsEnd) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ(m_bytes.substr(0, 7), Read(&file, 7));
    EXPECT_EQ(m_bytes.substr(7), Read(&file, 100));
    EXPECT_EQ("", Read(&file, 1));
    EXPECT_EQ("", Read(&file, 0));
}

TEST_F(CFileTest, SeekMovesFromStartPositionAndEnd) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ(0, file.Seek(10, SEEK_SET));
    EXPECT_EQ("01", Read(&file, 2));
    EXPECT_EQ(0, file.Seek(3, SEEK_CUR));
    EXPECT_EQ("5", Read(&file, 1));
    EXPECT_EQ(0, file.Seek(-2, SEEK_END));
    EXPECT_EQ("89", Read(&file, 9));
    EXPECT_EQ(0, file.Seek(0, SEEK_SET));
    EXPECT_EQ(m_bytes, Read(&file, 100));
}

TEST_F(CFileTest, SeekBeyondTheEndSucceedsAndReadsNothing) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ(0, file.Seek(1000, SEEK_SET));
    EXPECT_EQ("", Read(&file, 1));
}

TEST_F(CFileTest, AFailedSeekKeepsThePosition) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    ASSERT_EQ(0, file.Seek(10, SEEK_SET));
    EXPECT_EQ(-1, file.Seek(-1, SEEK_SET));
    EXPECT_EQ(-1, file.Seek(-11, SEEK_CUR));
    EXPECT_EQ(-1, file.Seek(0, 17));
    EXPECT_EQ("0", Read(&file, 1));
}

TEST_F(CFileTest, GetFileSizeLeavesTheReadPositionUnchanged) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ(20, file.GetFileSize());
    EXPECT_EQ("ab", Read(&file, 2));
    EXPECT_EQ(20, file.GetFileSize());
    EXPECT_EQ(m_bytes.substr(2), Read(&file, 100));
    EXPECT_EQ(20, file.GetFileSize());
    EXPECT_EQ("", Read(&file, 1));
}

// A hole: the size is there without the bytes.
TEST_F(CFileTest, PositionsAbove32BitsAreReachedWhereLongHas64) {
    const long long size = 0x100000000LL + 20;
    const int descriptor = open(m_path.c_str(), O_WRONLY | O_CLOEXEC | O_LARGEFILE);
    ASSERT_EQ(0, ftruncate64(descriptor, size));
    ASSERT_EQ(1, pwrite64(descriptor, "!", 1, size - 1));
    close(descriptor);
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ(-1, file.GetFileSize());  // not the low half of it
    EXPECT_EQ(m_bytes.substr(0, 3), Read(&file, 3));
    if (sizeof(long) == 4) {
        EXPECT_EQ(0, file.Seek(0x100000000LL + 1, SEEK_SET));  // cut to 1
        EXPECT_EQ(m_bytes.substr(1, 3), Read(&file, 3));
        return;
    }
    EXPECT_EQ(0, file.Seek(size - 1, SEEK_SET));
    EXPECT_EQ("!", Read(&file, 9));
    EXPECT_EQ(0, file.Seek(-size, SEEK_CUR));
    EXPECT_EQ("abc", Read(&file, 3));
}

TEST_F(CFileTest, AskingForTheSizeKeepsAPositionAbove2GiB) {
    const long long size = 0x80000000LL + 20;
    const int descriptor = open(m_path.c_str(), O_WRONLY | O_CLOEXEC | O_LARGEFILE);
    ASSERT_EQ(0, ftruncate64(descriptor, size));
    ASSERT_EQ(3, pwrite64(descriptor, "xyz", 3, size - 3));
    close(descriptor);
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    ASSERT_EQ(0, file.Seek(-3, SEEK_END));
    EXPECT_EQ("x", Read(&file, 1));
    EXPECT_EQ(-1, file.GetFileSize());
    EXPECT_EQ("yz", Read(&file, 9));
}

TEST_F(CFileTest, TheLargestSizeIs2147483647) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    ASSERT_EQ(0, truncate(m_path.c_str(), INT_MAX));
    EXPECT_EQ(INT_MAX, file.GetFileSize());
    if (sizeof(long) > 4) {
        ASSERT_EQ(0, truncate64(m_path.c_str(), INT_MAX + 1LL));
        EXPECT_EQ(-1, file.GetFileSize());
    }
}

TEST_F(CFileTest, OpenOfNullOrNothingKeepsWhatIsOpen) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ("abc", Read(&file, 3));
    EXPECT_FALSE(file.Open(nullptr));
    EXPECT_FALSE(file.Open(""));
    EXPECT_EQ(m_bytes.substr(3), Read(&file, 100));
}

TEST_F(CFileTest, AFailedOpenClosesWhatWasOpen) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_FALSE(file.Open((m_directory.Path() + "/none").c_str()));
    EXPECT_EQ("", Read(&file, 3));
    EXPECT_EQ(-1, file.Seek(0, SEEK_SET));
    EXPECT_EQ(-1, file.GetFileSize());
    file.Close();
    EXPECT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ("abc", Read(&file, 3));
}

TEST_F(CFileTest, OpenEndsTheOneBefore) {
    const int before = OpenDescriptorCount();
    {
        CFile file;
        for (int i = 0; i < 5; ++i) {
            ASSERT_TRUE(file.Open(m_path.c_str()));
            EXPECT_EQ(before + 1, OpenDescriptorCount());
        }
        EXPECT_EQ(m_bytes, Read(&file, 100));
        file.Close();
        EXPECT_EQ(before, OpenDescriptorCount());
        EXPECT_EQ(-1, file.GetFileSize());
        ASSERT_TRUE(file.Open(m_path.c_str()));
    }
    EXPECT_EQ(before, OpenDescriptorCount());
}

TEST_F(CFileTest, ADescriptorIsNotInheritedByPrograms) {
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(next, 0);
    close(next);
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ(FD_CLOEXEC, fcntl(next, F_GETFD));
}

TEST_F(CFileTest, PathsOfOneAndOfTenThousandCharactersAreLocalFiles) {
    ASSERT_EQ(0, chdir(m_directory.c_str()));
    CFile file;
    EXPECT_TRUE(file.Open("f"));
    EXPECT_FALSE(file.Open("g"));
    EXPECT_FALSE(file.Open(std::string(10000, 'x').c_str()));
    // Longer than a path may be.
    EXPECT_FALSE(file.Open(("/" + std::string(9999, '/')).c_str()));
}

TEST_F(CFileTest, BytesAbove127AreAllowedInPaths) {
    const std::string path = m_directory.Path() + "/\xC3\xA4\xFF\x80";
    ASSERT_EQ(0, rename(m_path.c_str(), path.c_str()));
    CFile file;
    ASSERT_TRUE(file.Open(path.c_str()));
    EXPECT_EQ("abc", Read(&file, 3));
}

// Relative paths that begin like an address, but are none.
TEST_F(CFileTest, WhatIsNotQuiteAnAddressIsALocalFile) {
    ASSERT_EQ(0, chdir(m_directory.c_str()));
    for (const char* scheme : {"http:", "https:", "httpx:", "ftp:"}) {
        ASSERT_EQ(0, mkdir(scheme, 0700));
        for (const char* name : {"a", "b"}) {
            std::ofstream(std::string(scheme) + "/" + name) << name;
        }
    }
    CFile file;
    // Exactly the scheme: a local file (here a directory) of that name.
    EXPECT_TRUE(file.Open("http://"));
    EXPECT_EQ("", Read(&file, 10));
    EXPECT_TRUE(file.Open("https://"));
    for (const char* path : {"http:/a", "https:/a", "httpx://a", "ftp://a"}) {
        ASSERT_TRUE(file.Open(path)) << path;
        EXPECT_EQ("a", Read(&file, 10)) << path;
    }
    EXPECT_FALSE(file.Open("HTTP://"));
    EXPECT_FALSE(file.Open(" http://127.0.0.1/a"));
}

TEST_F(CFileTest, WithoutAJavaMachineAnAddressOpensAndReadsNothing) {
    const LogCapture capture;
    for (const char* path : {"http://127.0.0.1:9/x", "HTTP://h/x", "hTtP://h/x", "https://h/x",
                             "HTTPS://h/x", "httpS://h/x", "http://x", "https://x"}) {
        CFile file;
        EXPECT_TRUE(file.Open(path)) << path;
        unsigned char byte = 0;
        EXPECT_EQ(-1, file.Read(&byte, 1)) << path;
        EXPECT_EQ(-3, file.Seek(0, SEEK_SET)) << path;
        EXPECT_EQ(0, file.GetFileSize()) << path;
        file.Close();
        EXPECT_EQ(-1, file.GetFileSize()) << path;
    }
}

TEST_F(CFileTest, AnyOptionIsTaken) {
    CFile file;
    EXPECT_TRUE(file.SetOption(0, nullptr));
    EXPECT_TRUE(file.SetOption(-1, &file));
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_TRUE(file.SetOption(7, &file));
    EXPECT_EQ(m_bytes, Read(&file, 100));
}

TEST_F(CFileTest, WhatHasNoSizeHasSizeMinusOne) {
    CFile file;
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    ASSERT_EQ(3, write(ends[1], "abc", 3));
    ASSERT_TRUE(file.Open(("/proc/self/fd/" + std::to_string(ends[0])).c_str()));
    EXPECT_EQ(-1, file.GetFileSize());
    EXPECT_EQ("ab", Read(&file, 2));
    EXPECT_EQ(-1, file.Seek(0, SEEK_SET));
    EXPECT_EQ("c", Read(&file, 1));
    close(ends[0]);
    close(ends[1]);
}

// A handler that does not restart system calls, for SIGUSR1, as long as it exists.
class Interruption {
public:
    Interruption() {
        Count() = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { ++Count(); };
        sigaction(SIGUSR1, &action, &m_before);
    }
    ~Interruption() { sigaction(SIGUSR1, &m_before, nullptr); }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    static std::atomic<int>& Count() {
        static std::atomic<int> count{0};
        return count;
    }

private:
    struct sigaction m_before {};
};

TEST_F(CFileTest, ASignalDoesNotEndTheReadOfAFifo) {
    const Interruption interruption;
    const std::string path = m_directory.Path() + "/fifo";
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    const int writer = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(3, write(writer, "abc", 3));
    std::atomic<int> tid{0};
    std::atomic<bool> ended{false};
    std::string text;
    std::thread reader([&] {
        tid = static_cast<int>(syscall(SYS_gettid));
        CFile file;
        EXPECT_TRUE(file.Open(path.c_str()));
        text = Read(&file, 6);
        ended = true;
    });
    for (int i = 1; i <= 2; ++i) {
        EXPECT_TRUE(WaitUntilAsleep(tid, [&] { return ended.load(); }));
        pthread_kill(reader.native_handle(), SIGUSR1);
        EXPECT_TRUE(WaitUntil([&] { return Interruption::Count() == i || ended; }));
    }
    EXPECT_EQ(3, write(writer, "def", 3));
    reader.join();
    close(writer);
    EXPECT_EQ("abcdef", text);
}

TEST_F(CFileTest, ANullBufferReadsNothing) {
    CFile file;
    ASSERT_TRUE(file.Open(m_path.c_str()));
    EXPECT_EQ(0, file.Read(nullptr, 5));
    EXPECT_EQ(m_bytes, Read(&file, 100));
}

}  // namespace
