#ifndef KPL_EXAMPLES_TV_BOX_GUIDEWATCHER_H_
#define KPL_EXAMPLES_TV_BOX_GUIDEWATCHER_H_

#include <memory>
#include <string>

#include "BoxState.h"
#include "GuideConnection.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"

namespace tv_box {

// Keeps the state up to date with a guide server, on a thread of its own. It asks twice a second,
// and at once when the server calls back because a programme starts. When the server has gone or
// does not answer, it connects again, as often as it takes.
class GuideWatcher {
public:
    // `state` outlives it. No wait for the server is longer than `timeoutMs`.
    GuideWatcher(std::string serverName, long timeoutMs, BoxState* state);
    ~GuideWatcher();  // stops
    GuideWatcher(const GuideWatcher&) = delete;
    GuideWatcher& operator=(const GuideWatcher&) = delete;

    // False if there is no thread to be had. Controlling thread.
    bool Start();

    // Ends what waits for the server, and joins the thread. Controlling thread.
    void Stop();

private:
    using ConnectionPtr = std::shared_ptr<guide::GuideConnection>;

    static void ThreadProc(void* self);
    void Run();
    void Follow(guide::GuideConnection* server);
    bool AskOnce(guide::GuideConnection* server, GuideView* view);
    bool LoadSchedules(guide::GuideConnection* server, const GuideView& view);
    void SetConnection(const ConnectionPtr& connection);
    void CancelConnection();

    const std::string m_serverName;
    const long m_timeoutMs;
    BoxState* const m_state;
    kpl::os::CEvent m_stop{false};
    // A programme has started, or it is to stop. Shared with the callback, which may still be
    // called while its connection ends.
    const std::shared_ptr<kpl::os::CEvent> m_wake = std::make_shared<kpl::os::CEvent>(false);
    kpl::os::CEvent m_done{true};  // the thread has ended, or was not started
    kpl::os::CThread m_thread{&GuideWatcher::ThreadProc, this};

    kpl::os::CCritSec m_lock;
    ConnectionPtr m_connection KPL_GUARDED_BY(m_lock);
};

}  // namespace tv_box

#endif  // KPL_EXAMPLES_TV_BOX_GUIDEWATCHER_H_
