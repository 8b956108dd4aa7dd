#include <gtest/gtest.h>

#include <fstream>
#include <string>

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
    EXPECT_EQ("usage: fetch_lines FILE|ADDRESS\n", result.errors);
}

}  // namespace
