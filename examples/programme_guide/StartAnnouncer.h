#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_STARTANNOUNCER_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_STARTANNOUNCER_H_

#include <map>

#include "Guide.h"
#include "GuideClock.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"
#include "kpl/rpc/RpcFunctionTable.h"

namespace guide {

// Tells its followers about each programme when it starts. It has one thread, which sleeps from one
// start to the next. Telling does not wait for the follower: one that does not listen any more
// holds nobody up, and the server drops it.
class StartAnnouncer {
public:
    // Both must outlive it.
    StartAnnouncer(const Guide& guide, const GuideClock& clock);
    ~StartAnnouncer();  // stops
    StartAnnouncer(const StartAnnouncer&) = delete;
    StartAnnouncer& operator=(const StartAnnouncer&) = delete;

    // False if there is no thread to be had. Controlling thread.
    bool Start();

    // Waits for the thread, and forgets the followers. Controlling thread.
    void Stop();

    // Adds a follower: `callback` is called with each programme from now on, until its client has
    // gone. Returns the follower's number, counted from 1. Any thread.
    int Follow(const kpl::rpc::RpcRemoteCallback& callback);

private:
    using Followers = std::map<int, kpl::rpc::RpcRemoteCallback>;

    static void ThreadProc(void* self);
    void Run();
    bool WaitFor(GuideTime time);
    void Announce(const Programme& programme);
    Followers CopyFollowers();
    void Drop(int number);

    const Guide& m_guide;
    const GuideClock& m_clock;
    kpl::os::CEvent m_stop{false};
    kpl::os::CThread m_thread{&StartAnnouncer::ThreadProc, this};

    kpl::os::CCritSec m_lock;
    Followers m_followers KPL_GUARDED_BY(m_lock);
    int m_lastNumber KPL_GUARDED_BY(m_lock) = 0;
};

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_STARTANNOUNCER_H_
