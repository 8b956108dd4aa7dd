#include <gtest/gtest.h>
#include <stdio.h>

#include <fstream>
#include <string>

#include "tests/examples/FileHttpPrograms.h"
#include "tests/examples/Program.h"
#include "tests/support/TempDir.h"

namespace {

using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::TempDir;

class FetchLinesTest : public testing::Test {
protected:
    // Runs it on a file with that text.
    ProgramResult RunOn(const std::string& text) {
        std::ofstream(m_path, std::ios::binary | std::ios::trunc) << text;
        return RunProgram("fetch_lines", {m_path});
    }

    void ExpectFailure(const ProgramResult& result, const std::string& message) {
        EXPECT_EQ(1, result.code);
        EXPECT_EQ("", result.output);
        EXPECT_EQ("fetch_lines: " + message + "\n", result.errors);
    }

    TempDir m_directory;
    const std::string m_path = m_directory.Path() + "/text";
};

TEST_F(FetchLinesTest, TheLinesOfALocalFileAreNumbered) {
    const ProgramResult result = RunOn("one\r\n\ntwo\n\xC3\xA4");
    EXPECT_EQ(0, result.code);
    EXPECT_EQ("     1  one\n     2  two\n     3  \xC3\xA4\n", result.output);
    EXPECT_EQ("", result.errors);
}

TEST_F(FetchLinesTest, AnAddressWithoutAJavaMachineIsSaidSo) {
    ExpectFailure(RunProgram("fetch_lines", {"http://127.0.0.1:9/x"}),
                  "http://127.0.0.1:9/x: an address needs the Java bridge, and this process has no "
                  "Java machine");
}

TEST_F(FetchLinesTest, AFileThatIsNotThereIsSaidSo) {
    ExpectFailure(RunProgram("fetch_lines", {m_path}), m_path + ": cannot be opened");
}

TEST_F(FetchLinesTest, AFileWithoutLinesIsSaidSo) {
    ExpectFailure(RunOn("\n\n"), m_path + ": has no lines");
    ExpectFailure(RunOn(""), m_path + ": is empty or cannot be read");
    ExpectFailure(RunProgram("fetch_lines", {"/proc/self/status"}),
                  "/proc/self/status: has no known length");
}

TEST_F(FetchLinesTest, CalledTheWrongWayItSaysHow) {
    const ProgramResult result = RunProgram("fetch_lines", {});
    EXPECT_EQ(2, result.code);
    EXPECT_EQ(0u, result.errors.find("usage: fetch_lines [--java CLASSES] FILE|ADDRESS\n"));
}

#ifdef KPL_JAVA_CLASSES

// All of it together: a server on the TCP frame, the HTTP client in Java, CFile and LineParser.
class FetchLinesOverHttpTest : public kpl::test::FileHttpProgramTest {};

TEST_F(FetchLinesOverHttpTest, AnAddressIsReadByJava) {
    std::string text;
    std::string expected;
    for (int i = 1; i <= 100000; ++i) {
        char line[32];
        snprintf(line, sizeof(line), "%6d  ", i);
        text += "line " + std::to_string(i) + "\r\n\n";
        expected += line + ("line " + std::to_string(i)) + "\n";
    }
    Write("lines", text);
    Start();
    const ProgramResult result =
        RunProgram("fetch_lines", {"--java", KPL_JAVA_CLASSES, Url("/lines")});
    EXPECT_EQ(0, result.code) << result.errors;
    EXPECT_TRUE(result.output == expected);
}

TEST_F(FetchLinesOverHttpTest, AnAddressThatNobodyServesIsSaidSo) {
    const std::string url = "http://127.0.0.1:1/none";
    const ProgramResult result = RunProgram("fetch_lines", {"--java", KPL_JAVA_CLASSES, url});
    EXPECT_EQ(1, result.code);
    EXPECT_NE(std::string::npos,
              result.errors.find("fetch_lines: " + url + ": is empty or cannot be read\n"))
        << result.errors;
}

TEST_F(FetchLinesOverHttpTest, ClassesThatAreNotThereAreSaidSo) {
    const ProgramResult result = RunProgram("fetch_lines", {"--java", m_folder, "http://h/x"});
    EXPECT_EQ(1, result.code);
    EXPECT_NE(std::string::npos,
              result.errors.find("fetch_lines: " + m_folder + ": has no class CHttpClient\n"))
        << result.errors;
}

#endif  // KPL_JAVA_CLASSES

}  // namespace
