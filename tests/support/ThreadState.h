#ifndef KPL_TESTS_SUPPORT_THREADSTATE_H_
#define KPL_TESTS_SUPPORT_THREADSTATE_H_

#include <atomic>
#include <functional>

namespace kpl::test {

// Waits until a thread of this process is blocked in the kernel, or `hasEnded`. A thread that waits
// a moment for a lock on its way there sleeps too: only one that has not run for a while is
// blocked. `tid` is 0 until the thread has started.
bool WaitUntilAsleep(const std::atomic<int>& tid, const std::function<bool()>& hasEnded);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_THREADSTATE_H_
