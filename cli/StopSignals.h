#ifndef KPL_CLI_STOPSIGNALS_H_
#define KPL_CLI_STOPSIGNALS_H_

#include <signal.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

namespace kpl::cli {

// SIGINT, SIGTERM and SIGHUP as a state that everything which waits can look at. They are blocked
// in all threads and read by one of its own, so no handler runs anywhere. The first one asks for a
// stop; a second one ends the process at once, should the stop not come about.
class StopSignals {
public:
    // Before there is any other thread.
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // What a signal does, without one. Any thread.
    void RequestStop();

    // Any thread.
    bool IsStopped() const { return m_stopped; }

    // The signal that asked for the stop; 0 if none did. Any thread.
    int Signal() const { return m_signal; }

    // Readable from the stop on, for a poll beside other descriptors.
    int Descriptor() const { return m_stopEvent; }

    // Waits until the stop, or `ms` milliseconds (-1: without limit). True if it is stopped.
    bool Wait(long ms) const;

    // Runs `action` at the stop, on the signals' thread, and again every 100 ms, because what it
    // interrupts may only have been about to begin. An empty one ends that: it waits for one that
    // runs. One action at a time.
    void SetAction(std::function<void()> action);

private:
    void Watch();
    void TakeSignal();
    void RunAction();

    sigset_t m_before;
    int m_signals;    // signalfd
    int m_stopEvent;  // eventfd, readable once stopped
    int m_endEvent;   // eventfd, readable once the thread is to end
    std::atomic<bool> m_stopped{false};
    std::atomic<int> m_signal{0};
    std::mutex m_lock;
    std::function<void()> m_action;  // guarded by m_lock, which is held while it runs
    std::thread m_thread;
};

// Sets an action for the length of a scope.
class StopAction {
public:
    StopAction(StopSignals* stop, std::function<void()> action) : m_stop(stop) {
        m_stop->SetAction(std::move(action));
    }
    ~StopAction() { m_stop->SetAction(nullptr); }
    StopAction(const StopAction&) = delete;
    StopAction& operator=(const StopAction&) = delete;

private:
    StopSignals* m_stop;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_STOPSIGNALS_H_
