#include "kpl/io/FilePath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using kpl::io::ConvertToCorrectFilePath;
using kpl::io::GetFilePathSeparator;
using kpl::io::IsFilePathSeparator;

TEST(FilePathTest, SlashAndBackslashSeparateAndNothingElse) {
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(byte == '/' || byte == '\\', IsFilePathSeparator(static_cast<char>(byte)))
            << byte;
    }
}

TEST(FilePathTest, TheSeparatorIsASlash) {
    EXPECT_EQ('/', GetFilePathSeparator());
}

TEST(FilePathTest, BackslashesBecomeSlashes) {
    char path[] = "a\\b\\c";
    ConvertToCorrectFilePath(path);
    EXPECT_STREQ("a/b/c", path);
    char mixed[] = "\\\\a/b\\\xDC\xAF\\";
    ConvertToCorrectFilePath(mixed);
    EXPECT_STREQ("//a/b/\xDC\xAF/", mixed);
}

TEST(FilePathTest, NullAndTheEmptyPathAreLeftAlone) {
    ConvertToCorrectFilePath(nullptr);
    char path[] = {'\0', '\\', '\0'};
    ConvertToCorrectFilePath(path);
    EXPECT_EQ('\\', path[1]);
}

TEST(FilePathTest, PathsOfOneAndOfTenThousandCharactersAreConvertedWhole) {
    char one[] = "\\";
    ConvertToCorrectFilePath(one);
    EXPECT_STREQ("/", one);
    std::string path(10000, '\\');
    ConvertToCorrectFilePath(path.data());
    EXPECT_EQ(10000, std::count(path.begin(), path.end(), '/'));
}

}  // namespace
