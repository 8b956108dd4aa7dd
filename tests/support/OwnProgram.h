// Programs of this build, started by this program: on another port than the host's, by its
// emulator.
#ifndef KPL_TESTS_SUPPORT_OWNPROGRAM_H_
#define KPL_TESTS_SUPPORT_OWNPROGRAM_H_

#include <string>
#include <vector>

namespace kpl::test {

// Becomes the program at `path`, which gets `arguments`. Returns 127 if it cannot.
int BecomeProgram(const std::string& path, const std::vector<std::string>& arguments);

// The same for a script, which needs no emulator.
int BecomeScript(const std::string& path, const std::vector<std::string>& arguments);

// What a shell is told to start the program at `path`; arguments may follow.
std::string ShellCommand(const std::string& path);

// True where an emulator runs the programs of this build.
bool IsEmulated();

// For tests of what happens once in a process. True in a process that has run nothing else;
// otherwise runs the current test in such a one, expects that it passes, and returns false.
bool RunsInFreshProcess();

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_OWNPROGRAM_H_
