#include "tests/support/OwnProgram.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <sstream>

#include "tests/support/Process.h"

namespace kpl::test {

namespace {

constexpr const char* kFreshMark = "KPL_TEST_FRESH_PROCESS";

// The words of a command that starts the program.
std::vector<std::string> CommandWords(const std::string& path) {
    std::istringstream emulator(KPL_EMULATOR);
    std::vector<std::string> words{std::istream_iterator<std::string>(emulator), {}};
    words.push_back(path);
    return words;
}

int Become(std::vector<std::string> words, const std::vector<std::string>& arguments) {
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    return 127;
}

int RunCurrentTestAgain() {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter =
        std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    setenv(kFreshMark, "1", 1);
    // Its name, and not the link: that leads an emulator to itself.
    return BecomeProgram(std::filesystem::read_symlink("/proc/self/exe"),
                         {filter, "--gtest_brief=1"});
}

}  // namespace

int BecomeProgram(const std::string& path, const std::vector<std::string>& arguments) {
    return Become(CommandWords(path), arguments);
}

int BecomeScript(const std::string& path, const std::vector<std::string>& arguments) {
    return Become({path}, arguments);
}

bool IsEmulated() {
    return *KPL_EMULATOR != '\0';
}

std::string ShellCommand(const std::string& path) {
    std::string command;
    for (const std::string& word : CommandWords(path)) {
        command += command.empty() ? word : " " + word;
    }
    return command;
}

bool RunsInFreshProcess() {
    if (getenv(kFreshMark) != nullptr) {
        return true;
    }
    ChildProcess child(&RunCurrentTestAgain);
    EXPECT_EQ(child.Wait(60000), 0);
    return false;
}

}  // namespace kpl::test
