#ifndef KPL_TESTS_SUPPORT_SIGNALRAIN_H_
#define KPL_TESTS_SUPPORT_SIGNALRAIN_H_

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <thread>

namespace kpl::test {

// Interrupts the thread that made it every 5 ms, as long as it exists: SIGUSR1 with a handler that
// does not restart calls. One at a time.
class SignalRain {
public:
    SignalRain() {
        Received() = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { ++Received(); };
        sigaction(SIGUSR1, &action, &m_before);
        m_thread = std::thread([this, target = pthread_self()] {
            while (!m_stop) {
                pthread_kill(target, SIGUSR1);
                const timespec pause{0, 5000000};
                nanosleep(&pause, nullptr);  // allow-sleep: the interval of the signals
            }
        });
    }

    ~SignalRain() {
        m_stop = true;
        m_thread.join();
        sigaction(SIGUSR1, &m_before, nullptr);
    }

    SignalRain(const SignalRain&) = delete;
    SignalRain& operator=(const SignalRain&) = delete;

    // How many signals the thread has received.
    int Count() const { return Received(); }

private:
    static std::atomic<int>& Received() {
        static std::atomic<int> received{0};
        return received;
    }

    struct sigaction m_before {};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_SIGNALRAIN_H_
