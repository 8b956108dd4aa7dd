#include "kpl/tools/StringTools.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using kpl::tools::ExtractFileExtension;
using kpl::tools::ExtractFileName;
using kpl::tools::ExtractFilePath;
using kpl::tools::IsFileExt;
using kpl::tools::StrCmpIgnoreCase;
using kpl::tools::strlwr;
using kpl::tools::strupr;

// What an extractor returned, released; "(null)" for null.
std::string Take(char* s) {
    const std::unique_ptr<char[]> owned(s);
    return s != nullptr ? s : "(null)";
}

std::string PathOf(const std::string& path) {
    return Take(ExtractFilePath(path.c_str()));
}

std::string NameOf(const std::string& path) {
    return Take(ExtractFileName(path.c_str()));
}

std::string ExtensionOf(const std::string& path) {
    return Take(ExtractFileExtension(path.c_str()));
}

TEST(StringToolsTest, CaseIsConvertedInPlaceAndTheArgumentReturned) {
    char text[] = "aB1 [`{@Zz";
    EXPECT_EQ(text, strlwr(text));
    EXPECT_STREQ("ab1 [`{@zz", text);
    EXPECT_EQ(text, strupr(text));
    EXPECT_STREQ("AB1 [`{@ZZ", text);
}

TEST(StringToolsTest, CaseConversionIgnoresNullAndTheEmptyString) {
    EXPECT_EQ(nullptr, strlwr(nullptr));
    EXPECT_EQ(nullptr, strupr(nullptr));
    char text[] = "";
    EXPECT_STREQ("", strlwr(text));
    EXPECT_STREQ("", strupr(text));
}

TEST(StringToolsTest, BytesAbove127KeepTheirValueInTheDefaultLocale) {
    std::string all;
    for (int byte = 128; byte < 256; ++byte) {
        all.push_back(static_cast<char>(byte));
    }
    std::string lower = all + "Q";
    std::string upper = all + "q";
    strlwr(lower.data());
    strupr(upper.data());
    EXPECT_EQ(all + "q", lower);
    EXPECT_EQ(all + "Q", upper);
}

TEST(StringToolsTest, ThePathIsWhatStandsBeforeTheLastSeparator) {
    EXPECT_EQ("/usr/lib", PathOf("/usr/lib/a.so"));
    EXPECT_EQ("a", PathOf("a/b"));
    EXPECT_EQ("/usr", PathOf("/usr/"));
    EXPECT_EQ("a/", PathOf("a//"));
    EXPECT_EQ("/", PathOf("//"));
}

TEST(StringToolsTest, ThePathOfANameAloneIsNull) {
    EXPECT_EQ("(null)", PathOf("a.so"));
    EXPECT_EQ("(null)", PathOf(""));
    EXPECT_EQ(nullptr, ExtractFilePath(nullptr));
}

TEST(StringToolsTest, ASeparatorAtTheFirstCharacterDoesNotCount) {
    EXPECT_EQ("(null)", PathOf("/a"));
    EXPECT_EQ("(null)", PathOf("/a.so"));
    EXPECT_EQ("(null)", NameOf("/a"));
    EXPECT_EQ("(null)", PathOf("/"));
    EXPECT_EQ("(null)", NameOf("/"));
}

TEST(StringToolsTest, ABackslashSeparatesNothing) {
    EXPECT_EQ("(null)", PathOf("a\\b"));
    EXPECT_EQ("(null)", NameOf("a\\b"));
    EXPECT_EQ("b\\c", NameOf("a/b\\c"));
}

TEST(StringToolsTest, TheNameIsWhatStandsBehindTheLastSeparator) {
    EXPECT_EQ("a.so", NameOf("/usr/lib/a.so"));
    EXPECT_EQ("b", NameOf("/a/b"));
    EXPECT_EQ("b", NameOf("a/b"));
}

TEST(StringToolsTest, TheNameOfANameAloneOrOfADirectoryIsNull) {
    EXPECT_EQ("(null)", NameOf("a"));
    EXPECT_EQ("(null)", NameOf("dir/"));
    EXPECT_EQ("(null)", NameOf(""));
    EXPECT_EQ(nullptr, ExtractFileName(nullptr));
}

TEST(StringToolsTest, TheExtensionRunsFromTheLastDotToTheEnd) {
    EXPECT_EQ(".MP3", ExtensionOf("song.MP3"));
    EXPECT_EQ(".c", ExtensionOf("a.b.c"));
    EXPECT_EQ(".b", ExtensionOf("..b"));
    EXPECT_EQ(".d/file", ExtensionOf("a.d/file"));
    EXPECT_EQ(".so", Take(ExtractFileExtension<char>("/usr/lib/a.so")));
}

TEST(StringToolsTest, NoExtensionIsNull) {
    EXPECT_EQ("(null)", ExtensionOf("a."));
    EXPECT_EQ("(null)", ExtensionOf("a.b."));
    EXPECT_EQ("(null)", ExtensionOf("file"));
    EXPECT_EQ("(null)", ExtensionOf(".profile"));
    EXPECT_EQ("(null)", ExtensionOf("."));
    EXPECT_EQ("(null)", ExtensionOf(""));
    EXPECT_EQ(nullptr, ExtractFileExtension(static_cast<const char*>(nullptr)));
}

TEST(StringToolsTest, PathsOfOneCharacterHaveNothingToExtract) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string path(1, static_cast<char>(byte));
        EXPECT_EQ("(null)", PathOf(path));
        EXPECT_EQ("(null)", NameOf(path));
        EXPECT_EQ("(null)", ExtensionOf(path));
    }
}

TEST(StringToolsTest, PathsOfTenThousandCharactersAreTakenWhole) {
    const std::string directory(4999, 'd');
    const std::string name = std::string(4990, 'n') + ".tail-ext";
    const std::string path = directory + "/" + name;
    ASSERT_EQ(9999u, path.size());
    EXPECT_EQ("/" + directory, PathOf("/" + path));
    EXPECT_EQ(name, NameOf("/" + path));
    EXPECT_EQ(".tail-ext", ExtensionOf("/" + path));
    EXPECT_EQ("(null)", PathOf("/" + std::string(9999, 'x')));
}

TEST(StringToolsTest, BytesAbove127BelongToTheNames) {
    EXPECT_EQ("\xC3\xA4", PathOf("\xC3\xA4/\xFF\x80.\xE9"));
    EXPECT_EQ("\xFF\x80.\xE9", NameOf("\xC3\xA4/\xFF\x80.\xE9"));
    EXPECT_EQ(".\xE9", ExtensionOf("\xC3\xA4/\xFF\x80.\xE9"));
    // 0xAF and 0xAE are "/" and "." with the highest bit set.
    EXPECT_EQ("(null)", PathOf("a\xAF"
                               "b"));
    EXPECT_EQ("(null)", ExtensionOf("a\xAE"
                                    "b"));
}

TEST(StringToolsTest, TheExtractedStringIsNewMemory) {
    char path[] = "dir/name.ext";
    const std::unique_ptr<char[]> directory(ExtractFilePath(path));
    const std::unique_ptr<char[]> name(ExtractFileName(path));
    const std::unique_ptr<char[]> extension(ExtractFileExtension(path));
    std::fill(path, path + sizeof(path) - 1, '#');
    EXPECT_STREQ("dir", directory.get());
    EXPECT_STREQ("name.ext", name.get());
    EXPECT_STREQ(".ext", extension.get());
}

TEST(StringToolsTest, IsFileExtComparesWithTheDotAndWithoutCase) {
    EXPECT_TRUE(IsFileExt("x.Mp3", ".MP3"));
    EXPECT_TRUE(IsFileExt("/d/x.tar.gz", ".gz"));
    EXPECT_FALSE(IsFileExt("x.mp3", "mp3"));
    EXPECT_FALSE(IsFileExt("x.mp3", ".mp"));
    EXPECT_FALSE(IsFileExt("x.mp", ".mp3"));
    EXPECT_FALSE(IsFileExt("x.tar.gz", ".tar.gz"));
}

TEST(StringToolsTest, IsFileExtIsFalseWithoutAnExtensionOrArgument) {
    EXPECT_FALSE(IsFileExt("x", ".mp3"));
    EXPECT_FALSE(IsFileExt("x", ""));
    EXPECT_FALSE(IsFileExt("", ""));
    EXPECT_FALSE(IsFileExt(nullptr, ".mp3"));
    EXPECT_FALSE(IsFileExt("x.mp3", nullptr));
    EXPECT_FALSE(IsFileExt(nullptr, nullptr));
}

TEST(StringToolsTest, StrCmpIgnoreCaseOrdersAsWithSmallLetters) {
    EXPECT_EQ(0, StrCmpIgnoreCase("", ""));
    EXPECT_EQ(0, StrCmpIgnoreCase("aBc", "AbC"));
    EXPECT_LT(StrCmpIgnoreCase("abc", "ABD"), 0);
    EXPECT_GT(StrCmpIgnoreCase("abd", "ABC"), 0);
    EXPECT_LT(StrCmpIgnoreCase("ab", "ABC"), 0);
    EXPECT_LT(StrCmpIgnoreCase("_", "A"), 0);
    EXPECT_GT(StrCmpIgnoreCase("\xE4", "z"), 0);
}

}  // namespace
