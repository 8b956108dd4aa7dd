#include "DeviceSearch.h"

#include <string.h>

#include <algorithm>

namespace tv_box {

namespace {

constexpr size_t kMaxDevices = 64;  // whoever answers is believed; so many fit on the page
constexpr int kTickMs = 50;

// A name is the device's own, "::", and what it answers for, which is what we asked for.
std::string NameOf(const char* usn) {
    const std::string name = usn;
    return name.substr(0, name.find("::"));
}

}  // namespace

DeviceSearch::DeviceSearch(int roundMs, BoxState* state) : m_roundMs(roundMs), m_state(state) {
    m_finder.AddObserver(this);
}

DeviceSearch::~DeviceSearch() {
    Stop();
}

bool DeviceSearch::Start() {
    return m_thread.Run(0);
}

void DeviceSearch::Stop() {
    m_stop.Set();
    m_thread.Exit(true);
}

void DeviceSearch::ThreadProc(void* self) {
    static_cast<DeviceSearch*>(self)->Run();
}

void DeviceSearch::Run() {
    Show(SearchState::Searching);
    while (!m_stop.Wait(0)) {
        const bool hasNetwork = SearchOnce();
        Show(hasNetwork ? SearchState::Searching : SearchState::NoNetwork);
        m_stop.Wait(hasNetwork ? 0 : m_roundMs);
    }
}

// The two halves of a search rather than UPnPFinder::Start, which first lets answers gather for ten
// seconds. The timer ends it.
bool DeviceSearch::SearchOnce() {
    m_answered.clear();
    if (!m_finder.SendSSDPRequest(kpl::net::UPNP_DEV_ROOT)) {
        return false;
    }
    kpl::tools::TimerObject timer;
    timer.Start(kTickMs, &DeviceSearch::EndRound, this, 0, false, 0);
    m_finder.ReadSSDPRespond(0);
    timer.Stop();
    auto& devices = m_view.devices;
    devices.erase(
        std::remove_if(devices.begin(), devices.end(),
                       [&](const Device& device) { return m_answered.count(device.name) == 0; }),
        devices.end());
    return true;
}

// On the timer's thread.
void DeviceSearch::EndRound(void* self, int tick) {
    auto* const search = static_cast<DeviceSearch*>(self);
    if (search->m_stop.Wait(0) || tick >= search->m_roundMs / kTickMs) {
        search->m_finder.Stop();
    }
}

void DeviceSearch::OnAddDevice(const char* location, const char* usn, const char* server,
                               const char*) {
    const std::string name = NameOf(usn);
    const bool isKnown = std::any_of(m_view.devices.begin(), m_view.devices.end(),
                                     [&](const Device& device) { return device.name == name; });
    if (m_answered.size() < kMaxDevices) {
        m_answered.insert(name);
    }
    if (isKnown || m_view.devices.size() >= kMaxDevices) {
        return;
    }
    // Where the header is missing there is something else.
    const bool isAddress = strncmp(location, "http", 4) == 0;
    m_view.devices.push_back({isAddress ? location : "", name, server});
    Show(SearchState::Searching);
}

void DeviceSearch::Show(SearchState search) {
    m_view.search = search;
    m_state->SetDevices(m_view);
}

}  // namespace tv_box
