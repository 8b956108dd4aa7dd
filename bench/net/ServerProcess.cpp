#include "bench/net/ServerProcess.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace kpl::bench {

ServerProcess::ServerProcess(TcpServer* serve) {
    int says[2];
    if (pipe(says) != 0 || pipe(m_end) != 0) {
        abort();
    }
    m_child = fork();
    if (m_child == 0) {
        close(m_end[1]);
        serve(says[1], m_end[0]);
        _exit(0);
    }
    close(says[1]);
    close(m_end[0]);
    if (read(says[0], &m_port, sizeof(m_port)) != sizeof(m_port) || m_port == 0) {
        fputs("a server does not start\n", stderr);
        exit(1);
    }
    close(says[0]);
}

ServerProcess::~ServerProcess() {
    close(m_end[1]);
    waitpid(m_child, nullptr, 0);
}

double ServerProcess::ResidentKiB() const {
    std::ifstream status("/proc/" + std::to_string(m_child) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return atof(line.c_str() + 6);
        }
    }
    return 0;
}

}  // namespace kpl::bench
