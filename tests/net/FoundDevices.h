#ifndef KPL_TESTS_NET_FOUNDDEVICES_H_
#define KPL_TESTS_NET_FOUNDDEVICES_H_

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kpl/net/UPnPFinder.h"
#include "tests/support/Process.h"

namespace kpl::test {

// Keeps what a finder reports, one text each: "add LOCATION|USN|SERVER|ST", "complete", "error N".
class FoundDevices : public net::UPnPFinderObserver {
public:
    // `then` is called with each of them.
    explicit FoundDevices(std::function<void(const std::string&)> then = {})
        : m_then(std::move(then)) {}

    void OnAddDevice(const char* location, const char* usn, const char* server,
                     const char* st) override {
        Keep(std::string("add ") + location + "|" + usn + "|" + server + "|" + st);
    }
    void OnSearchDeviceComplete() override { Keep("complete"); }
    void OnError(int code) override { Keep("error " + std::to_string(code)); }

    std::vector<std::string> Events() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    bool WaitForEvents(size_t count, long timeoutMs = 20000) const {
        return WaitUntil([&] { return Events().size() >= count; }, timeoutMs);
    }

private:
    void Keep(const std::string& event) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(event);
        }
        if (m_then) {
            m_then(event);
        }
    }

    const std::function<void(const std::string&)> m_then;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_events;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_FOUNDDEVICES_H_
