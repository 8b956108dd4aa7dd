#include "cli/StopSignals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace kpl::cli {

namespace {

constexpr int kRepeatMs = 100;

bool IsIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t SignalsThatStop() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!IsIgnored(SIGHUP)) {  // nohup
        sigaddset(&signals, SIGHUP);
    }
    return signals;
}

void Raise(int eventDescriptor) {
    const uint64_t one = 1;
    (void)!write(eventDescriptor, &one, sizeof(one));
}

}  // namespace

StopSignals::StopSignals()
    : m_before(),
      m_signals(-1),
      m_stopEvent(eventfd(0, EFD_CLOEXEC)),
      m_endEvent(eventfd(0, EFD_CLOEXEC)) {
    const sigset_t signals = SignalsThatStop();
    pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    m_signals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    m_thread = std::thread(&StopSignals::Watch, this);
}

StopSignals::~StopSignals() {
    Raise(m_endEvent);
    m_thread.join();
    for (const int descriptor : {m_signals, m_stopEvent, m_endEvent}) {
        close(descriptor);
    }
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

void StopSignals::RequestStop() {
    m_stopped = true;
    Raise(m_stopEvent);
}

bool StopSignals::Wait(long ms) const {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(ms);
    while (!m_stopped) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (ms >= 0 && left <= 0) {
            return false;
        }
        pollfd descriptor{m_stopEvent, POLLIN, 0};
        constexpr int64_t kLongest = 60000;
        (void)poll(&descriptor, 1,
                   ms < 0 ? -1 : static_cast<int>(std::min<int64_t>(left, kLongest)));
    }
    return true;
}

void StopSignals::SetAction(std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(m_lock);
    m_action = std::move(action);
}

void StopSignals::Watch() {
    for (;;) {
        pollfd descriptors[2] = {{m_signals, POLLIN, 0}, {m_endEvent, POLLIN, 0}};
        // Stopped already, it only comes back for the action.
        (void)poll(descriptors, 2, kRepeatMs);
        if ((descriptors[1].revents & POLLIN) != 0) {
            return;
        }
        if ((descriptors[0].revents & POLLIN) != 0) {
            TakeSignal();
        }
        if (m_stopped) {
            RunAction();
        }
    }
}

void StopSignals::TakeSignal() {
    signalfd_siginfo info{};
    if (read(m_signals, &info, sizeof(info)) != static_cast<ssize_t>(sizeof(info))) {
        return;
    }
    const int signal = static_cast<int>(info.ssi_signo);
    int none = 0;
    if (!m_signal.compare_exchange_strong(none, signal)) {
        _exit(128 + signal);
    }
    RequestStop();
}

void StopSignals::RunAction() {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (m_action) {
        m_action();
    }
}

}  // namespace kpl::cli
