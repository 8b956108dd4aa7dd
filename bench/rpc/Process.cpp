#include "bench/rpc/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/rpc/Peer.h"

namespace kpl::bench {

namespace {

void DieWithParent(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(1);  // It was gone before that.
    }
}

}  // namespace

void Fail(const char* peer, const char* what) {
    fprintf(stderr, "%s: %s failed\n", peer, what);
    _exit(1);
}

Process::Process(const std::vector<std::string>& command) : m_name(command.front()) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        Fail(m_name.c_str(), "pipe");
    }
    const pid_t parent = getpid();
    m_id = fork();
    if (m_id == 0) {
        DieWithParent(parent);
        dup2(ends[1], STDOUT_FILENO);
        execvp(arguments[0], arguments.data());
        Fail(arguments[0], "exec");
    }
    close(ends[1]);
    m_output = ends[0];
}

Process::~Process() {
    kill(m_id, SIGKILL);
    waitpid(m_id, nullptr, 0);
    close(m_output);
}

void Process::AwaitOutput() const {
    char byte = 0;
    if (read(m_output, &byte, 1) != 1) {
        Fail(m_name.c_str(), "the start");
    }
}

bool RunApart(const std::function<void()>& body) {
    fflush(stdout);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        DieWithParent(parent);
        body();
        fflush(stdout);
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

double ValueApart(const std::function<double()>& body) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        Fail("call_bench", "pipe");
    }
    double value = 0;
    const auto tell = [&body, &ends] {
        const double found = body();
        (void)!write(ends[1], &found, sizeof(found));
    };
    if (!RunApart(tell) || read(ends[0], &value, sizeof(value)) != sizeof(value)) {
        Fail("call_bench", "a measurement");
    }
    close(ends[0]);
    close(ends[1]);
    return value;
}

}  // namespace kpl::bench
