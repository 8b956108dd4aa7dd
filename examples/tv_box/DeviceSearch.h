#ifndef KPL_EXAMPLES_TV_BOX_DEVICESEARCH_H_
#define KPL_EXAMPLES_TV_BOX_DEVICESEARCH_H_

#include <atomic>
#include <set>
#include <string>

#include "BoxState.h"
#include "kpl/net/UPnPFinder.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"
#include "kpl/tools/TimerObject.h"

namespace tv_box {

// Searches the local network for UPnP devices, again and again, on a thread of its own. A device is
// shown when it answers, and until the end of a search that it has not answered.
class DeviceSearch : private kpl::net::UPnPFinderObserver {
public:
    // `state` outlives it. Each search takes `roundMs`, and the next one follows it.
    DeviceSearch(int roundMs, BoxState* state);
    ~DeviceSearch() override;  // stops
    DeviceSearch(const DeviceSearch&) = delete;
    DeviceSearch& operator=(const DeviceSearch&) = delete;

    // False if there is no thread to be had. Controlling thread.
    bool Start();

    // Controlling thread.
    void Stop();

private:
    void OnAddDevice(const char* location, const char* usn, const char* server,
                     const char* st) override;
    void OnSearchDeviceComplete() override {}
    void OnError(int) override {}

    static void ThreadProc(void* self);
    static void EndRound(void* self, int tick);
    void Run();
    bool SearchOnce();
    void Show(SearchState search);

    const int m_roundMs;
    BoxState* const m_state;
    kpl::net::UPnPFinder m_finder;
    kpl::os::CEvent m_stop{false};
    kpl::os::CThread m_thread{&DeviceSearch::ThreadProc, this};

    // The searching thread's own.
    DeviceView m_view;
    std::set<std::string> m_answered;  // in this round, by name
};

}  // namespace tv_box

#endif  // KPL_EXAMPLES_TV_BOX_DEVICESEARCH_H_
