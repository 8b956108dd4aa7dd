#ifndef KPL_OS_CTHREAD_H_
#define KPL_OS_CTHREAD_H_

#include <pthread.h>
#include <stdint.h>

#include <atomic>

#include "kpl/Export.h"
#include "kpl/os/CEvent.h"

namespace kpl::os {

// A thread that runs a plain function and is stopped by asking: the function polls IsAskToExit().
// Nothing exists until Run; the destructor joins. Everything but IsAskToExit and IsRun belongs to
// the controlling thread.
class KPL_EXPORT CThread {
public:
    // Keeps both for every later Run; starts nothing.
    CThread(void (*fn)(void*), void* arg);

    // Joins a running thread, so it blocks until the function has returned.
    ~CThread();
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    // Starts the thread. `stackSize` is in bytes, 0 for the platform's default, which also stands
    // in for a size that the platform finds too small. Returns false if a thread was started and
    // not joined since, or if none could be created; it can then be tried again. Even a refused
    // call withdraws a pending request to exit. Controlling thread.
    bool Run(int stackSize);

    // True from a successful Run until the join, also after the function has returned. Any thread.
    bool IsRun() const;

    // Asks the thread to stop and, if `wait`, joins it. Without a running thread nothing happens.
    // After Exit(false) the thread stays unjoined: Run returns false until Exit(true).
    // Controlling thread; never the thread itself with `wait`.
    void Exit(bool wait);

    // True once Exit was called, until the next Run. Any thread.
    bool IsAskToExit() const;

private:
    struct ThreadRecord {
        uint32_t tag;  // 0x7ABC0000 while a thread exists, else 0
        void (*fn)(void*);
        void* arg;
        pthread_t handle;
        EventRecord completion;  // set when the function has returned
    };

    static void* StartRoutine(void* record);
    bool CreateThread(int stackSize);

    void (*m_fn)(void*);
    void* m_arg;
    ThreadRecord m_thread;
    std::atomic<unsigned char> m_flags;  // bit 0: running; bit 1: asked to exit
};

}  // namespace kpl::os

#endif  // KPL_OS_CTHREAD_H_
