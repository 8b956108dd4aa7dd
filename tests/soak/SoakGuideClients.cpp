// Twenty clients of a guide server that come, call, subscribe, stall and die, each a process of its
// own, until the time is over:
//
//   soak_guide_clients SECONDS SEED PIPE_ROOT NAME
//
// With the same seed every client gets the same fate at the same time. It prints how many there
// were of each.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "GuideConnection.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/tools/DebugLog.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t kClients = 20;
constexpr long kTimeoutMs = 10000;

class Dice {
public:
    explicit Dice(unsigned int seed) : m_engine(seed) {}
    int Throw(int from, int to) { return std::uniform_int_distribution<>(from, to)(m_engine); }

private:
    std::mt19937 m_engine;
};

// One client's life, if nobody ends it before.
int RunClient(unsigned int seed, const char* name) {
    Dice dice(seed);
    kpl::tools::EnableDumpLog(false, false);
    for (int connections = dice.Throw(1, 3); connections > 0; --connections) {
        guide::GuideConnection guide(kTimeoutMs);
        if (!guide.Connect(name)) {
            return 1;
        }
        for (int calls = dice.Throw(0, 40); calls > 0; --calls) {
            switch (dice.Throw(0, 9)) {
                case 0:
                    (void)guide.Follow([](const guide::Programme&) {});
                    break;
                case 1:
                    (void)guide.FindProgrammes("the");
                    break;
                case 2:
                    (void)guide.ListChannels();
                    break;
                default:
                    (void)guide.NowAndNext();
                    break;
            }
            std::this_thread::sleep_for(milliseconds(dice.Throw(0, 60)));  // allow-sleep: the load
        }
    }
    return 0;
}

// What happens to a client.
enum class Fate { Lives, IsKilled, Stalls, StallsAndIsKilled };
constexpr const char* kFates[] = {"lived", "killed", "stalled", "stalled and killed"};

class Client {
public:
    Client(unsigned int seed, const char* program, char** argv) {
        Dice dice(seed);
        m_fate = static_cast<Fate>(dice.Throw(0, 3));
        m_next = Clock::now() + milliseconds(dice.Throw(1, 2500));
        m_stallMs = dice.Throw(100, 8000);
        const std::string text = std::to_string(seed);
        m_process = fork();
        if (m_process == 0) {
            execl(program, program, argv[1], text.c_str(), argv[3], argv[4], "one", nullptr);
            _exit(127);
        }
    }

    Fate TheFate() const { return m_fate; }

    // False once it has gone.
    bool Watch() {
        int status = 0;
        if (waitpid(m_process, &status, WNOHANG) != 0) {
            return false;
        }
        if (Clock::now() >= m_next) {
            Meet();
        }
        return true;
    }

    void End() const {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }

private:
    void Meet() {
        m_next = Clock::now() + milliseconds(m_stallMs);
        const bool stalls = m_fate == Fate::Stalls || m_fate == Fate::StallsAndIsKilled;
        if (stalls && !m_hasStalled) {
            m_hasStalled = true;
            kill(m_process, SIGSTOP);
        } else if (m_fate == Fate::Stalls) {
            kill(m_process, SIGCONT);
        } else if (m_fate != Fate::Lives) {
            kill(m_process, SIGKILL);
        }
    }

    pid_t m_process;
    Fate m_fate;
    Clock::time_point m_next;
    int m_stallMs;
    bool m_hasStalled = false;
};

int RunAll(char** argv) {
    const auto end = Clock::now() + std::chrono::seconds(atoi(argv[1]));
    auto seed = static_cast<unsigned int>(strtoul(argv[2], nullptr, 10));
    std::vector<Client> clients;
    std::map<Fate, int> met;
    while (Clock::now() < end) {
        while (clients.size() < kClients) {
            clients.emplace_back(++seed, "/proc/self/exe", argv);
            ++met[clients.back().TheFate()];
        }
        clients.erase(std::remove_if(clients.begin(), clients.end(),
                                     [](Client& client) { return !client.Watch(); }),
                      clients.end());
        std::this_thread::sleep_for(milliseconds(50));  // allow-sleep: the load
    }
    for (const Client& client : clients) {
        client.End();
    }
    printf("soak_guide_clients:");
    for (const auto& fate : met) {
        printf(" %d %s;", fate.second, kFates[static_cast<size_t>(fate.first)]);
    }
    printf("\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        fputs("usage: soak_guide_clients SECONDS SEED PIPE_ROOT NAME\n", stderr);
        return 2;
    }
    kpl::ipc::SetPipeRootPath(argv[3]);
    const bool isOne = argc == 6 && strcmp(argv[5], "one") == 0;
    return isOne ? RunClient(static_cast<unsigned int>(strtoul(argv[2], nullptr, 10)), argv[4])
                 : RunAll(argv);
}
