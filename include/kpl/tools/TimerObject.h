#ifndef KPL_TOOLS_TIMEROBJECT_H_
#define KPL_TOOLS_TIMEROBJECT_H_

#include <atomic>

#include "kpl/Export.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"

namespace kpl::tools {

// Calls a function on a thread of its own after every interval, a number of times or until it is
// stopped. The interval runs from the end of one callback to the start of the next.
// Start, Stop and the destructor belong to one controlling thread.
class KPL_EXPORT TimerObject {
public:
    TimerObject();
    ~TimerObject();  // stops
    TimerObject(const TimerObject&) = delete;
    TimerObject& operator=(const TimerObject&) = delete;

    // Stops an earlier run and starts anew. Ticks are numbered from 1; `count` below 1 means
    // 4294967295 of them, and the callback sees those above 2147483647 as negative; with
    // `callAtStart` tick 1 comes at once. `intervalMs` above 2147483647 is a wait that only Stop
    // ends. `stackSize` is in bytes, 0 for the default. Returns false only for a null callback, and
    // then changes nothing. It returns once the thread runs: where no thread can be created, it
    // does not return. Controlling thread, never the callback.
    bool Start(unsigned int intervalMs, void (*callback)(void* arg, int tick), void* arg, int count,
               bool callAtStart, int stackSize);

    // Wakes the thread and joins it: a running callback is waited for. Can be repeated.
    // Controlling thread, never the callback.
    void Stop();

    // True while ticks are still to come. Any thread.
    bool IsRunning() const;

    // The thread's entry function; `self` is the TimerObject.
    static void ThreadProc(void* self);

private:
    void Loop();

    os::CEvent* m_stopEvent;
    os::CThread* m_thread;
    unsigned int m_intervalMs;
    void (*m_callback)(void* arg, int tick);
    void* m_arg;
    std::atomic<bool> m_stopRequested;
    std::atomic<bool> m_running;
    int m_count;
    bool m_callAtStart;
    std::atomic<bool> m_started;
};

}  // namespace kpl::tools

#endif  // KPL_TOOLS_TIMEROBJECT_H_
