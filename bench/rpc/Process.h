#ifndef KPL_BENCH_RPC_PROCESS_H_
#define KPL_BENCH_RPC_PROCESS_H_

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace kpl::bench {

// Another program, killed with this object; it does not outlive the thread that started it either.
class Process {
public:
    // The program and its arguments; the program is looked up in PATH.
    explicit Process(const std::vector<std::string>& command);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Waits until it has printed something. Ends the program if it ends instead.
    void AwaitOutput() const;

    pid_t Id() const { return m_id; }

private:
    pid_t m_id = -1;
    int m_output = -1;
    std::string m_name;
};

// Runs `body` in a process of its own, so that neither threads nor cores that it was kept on are
// left behind. Before this process has threads. False if it failed.
bool RunApart(const std::function<void()>& body);

// The same for what gives a value. Ends the program if it failed.
double ValueApart(const std::function<double()>& body);

}  // namespace kpl::bench

#endif  // KPL_BENCH_RPC_PROCESS_H_
