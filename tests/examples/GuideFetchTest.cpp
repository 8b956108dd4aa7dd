#include <gtest/gtest.h>

#include <fstream>

#include "tests/examples/FileHttpPrograms.h"

namespace {

using kpl::test::FileHttpProgramTest;
using kpl::test::LinesOfFile;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::SourcePath;

constexpr char kOne[] = "One\t2026-03-14 20:00\t60\tFilm\t12\tTitle\tText";
constexpr char kTwo[] = "One\t2026-03-14 21:00\t60\tFilm\t12\tOther\tText";

class GuideFetchTest : public FileHttpProgramTest {
protected:
    GuideFetchTest() {
        Write("guide.tsv", std::string("# two\r\n\n") + kOne + "\r\n" + kTwo + "\n");
        Write("bad.tsv", std::string(kOne) + "\nno columns\n");
    }

    std::string File(const std::string& name) const { return m_folder + "/" + name; }

    // With "OUT" as the last argument.
    ProgramResult Fetch(std::vector<std::string> arguments) const {
        arguments.push_back(m_out);
        return RunProgram("guide_fetch", arguments);
    }

    void ExpectStored(const ProgramResult& result, const std::string& source) const {
        EXPECT_EQ(0, result.code) << result.errors;
        EXPECT_EQ("guide_fetch: 1 channels, 2 programmes from " + source + "\n", result.output);
        EXPECT_EQ((std::vector<std::string>{"# two", kOne, kTwo}), LinesOfFile(m_out));
    }

    void ExpectNothing(const ProgramResult& result, int code, const std::string& fault) const {
        EXPECT_EQ(code, result.code);
        EXPECT_EQ("", result.output);
        EXPECT_EQ("guide_fetch: " + fault + "\n", result.errors);
        EXPECT_FALSE(std::filesystem::exists(m_out));
        EXPECT_FALSE(std::filesystem::exists(m_out + ".new"));
    }

    const std::string m_out = m_directory.Path() + "/out";
};

TEST_F(GuideFetchTest, AFileIsStored) {
    const ProgramResult result = Fetch({File("guide.tsv")});
    ExpectStored(result, File("guide.tsv"));
    EXPECT_EQ("", result.errors);
}

TEST_F(GuideFetchTest, WhatIsNoGuideIsNotStored) {
    std::ofstream(m_out) << "before";
    const ProgramResult result = Fetch({File("bad.tsv")});
    EXPECT_EQ(1, result.code);
    EXPECT_EQ("guide_fetch: " + File("bad.tsv") + ":2: 7 columns expected, 1 found\n",
              result.errors);
    EXPECT_EQ((std::vector<std::string>{"before"}), LinesOfFile(m_out));
}

TEST_F(GuideFetchTest, TheFallbackIsStoredInItsPlaceAndTheReasonSaid) {
    ExpectStored(Fetch({"--fallback", File("guide.tsv"), File("bad.tsv")}), File("guide.tsv"));
    ExpectStored(Fetch({"--fallback", File("guide.tsv"), File("none")}), File("guide.tsv"));
    const ProgramResult result =
        Fetch({"--fallback", File("guide.tsv"), "http://127.0.0.1:9/guide.tsv"});
    ExpectStored(result, File("guide.tsv"));
    EXPECT_EQ(
        "guide_fetch: http://127.0.0.1:9/guide.tsv: an address needs the Java bridge, and this "
        "process has no Java machine\n",
        result.errors);
}

TEST_F(GuideFetchTest, WhatCannotBeHadOrStoredIsSaidSo) {
    ExpectNothing(Fetch({File("none")}), 1, File("none") + ": cannot be opened");
    const std::string out = m_folder + "/no/such";
    EXPECT_EQ("guide_fetch: cannot write '" + out + "'\n",
              RunProgram("guide_fetch", {File("guide.tsv"), out}).errors);
}

TEST_F(GuideFetchTest, CalledTheWrongWayItSaysHow) {
    ExpectNothing(Fetch({}), 2, "a source and a file to write are needed (--help says more)");
    ExpectNothing(Fetch({"--jaav", "x", "y"}), 2, "unknown option '--jaav' (--help lists them)");
    EXPECT_EQ(0u, RunProgram("guide_fetch", {"--help"}).output.find("usage: guide_fetch"));
}

#ifdef KPL_JAVA_CLASSES

TEST_F(GuideFetchTest, AnAddressIsFetchedByJava) {
    Start();
    ExpectStored(Fetch({"--java", KPL_JAVA_CLASSES, Url("/guide.tsv")}), Url("/guide.tsv"));
}

TEST_F(GuideFetchTest, AnAddressThatCannotBeFetchedLeavesTheFallback) {
    Start();
    const ProgramResult result = Fetch(
        {"--java", KPL_JAVA_CLASSES, "--fallback", File("guide.tsv"), Url("/there_is_none.tsv")});
    ExpectStored(result, File("guide.tsv"));
    EXPECT_NE(std::string::npos, result.errors.find(Url("/there_is_none.tsv") + ": "));
}

#endif  // KPL_JAVA_CLASSES

}  // namespace
