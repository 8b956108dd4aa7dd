#include "GuideWatcher.h"

#include <limits>
#include <utility>

namespace tv_box {

using guide::GuideConnection;
using kpl::os::CAutoLock;

namespace {

constexpr long kAskMs = 500;
constexpr long kReconnectMs = 200;
constexpr long kCancelMs = 20;

}  // namespace

GuideWatcher::GuideWatcher(std::string serverName, long timeoutMs, BoxState* state)
    : m_serverName(std::move(serverName)), m_timeoutMs(timeoutMs), m_state(state) {}

GuideWatcher::~GuideWatcher() {
    Stop();
}

bool GuideWatcher::Start() {
    m_done.Reset();
    const bool started = m_thread.Run(0);
    if (!started) {
        m_done.Set();
    }
    return started;
}

// Cancelled again and again: the thread may be about to begin its next wait.
void GuideWatcher::Stop() {
    m_stop.Set();
    m_wake->Set();
    while (!m_done.Wait(kCancelMs)) {
        CancelConnection();
    }
    m_thread.Exit(true);
}

void GuideWatcher::ThreadProc(void* self) {
    auto* const watcher = static_cast<GuideWatcher*>(self);
    watcher->Run();
    watcher->m_done.Set();
}

void GuideWatcher::Run() {
    while (!m_stop.Wait(0)) {
        const auto server = std::make_shared<GuideConnection>(m_timeoutMs);
        SetConnection(server);
        if (server->Connect(m_serverName)) {
            Follow(server.get());
        }
        SetConnection(nullptr);
        m_state->SetGuideOffline();
        m_stop.Wait(kReconnectMs);
    }
}

// As long as the server answers.
void GuideWatcher::Follow(GuideConnection* server) {
    GuideView view;
    if (!AskOnce(server, &view) || !LoadSchedules(server, view) ||
        !server->Follow([wake = m_wake](const guide::Programme&) { wake->Set(); })) {
        return;
    }
    while (!m_stop.Wait(0)) {
        m_wake->Reset();  // before the question: a start that comes after it is asked for again
        if (!AskOnce(server, &view)) {
            return;
        }
        m_state->SetGuide(view);
        if (!m_stop.Wait(0)) {  // set before it wakes
            m_wake->Wait(kAskMs);
        }
    }
}

bool GuideWatcher::AskOnce(GuideConnection* server, GuideView* view) {
    if (view->channels.empty()) {
        auto channels = server->ListChannels();
        if (!channels) {
            return false;
        }
        view->channels = std::move(channels->channels);
    }
    auto answer = server->NowAndNext();
    if (!answer) {
        return false;
    }
    view->isOnline = true;
    view->now = answer->now;
    view->nowAndNext = std::move(answer->list.programmes);
    return true;
}

// Once a connection: a guide server that is given another guide is another server.
bool GuideWatcher::LoadSchedules(GuideConnection* server, const GuideView& view) {
    Schedules schedules;
    for (const guide::Channel& channel : view.channels) {
        auto programmes =
            server->ListProgrammes(channel.number, 0, std::numeric_limits<guide::GuideTime>::max());
        if (!programmes) {
            return false;
        }
        schedules[channel.number] = std::move(*programmes);
    }
    m_state->SetSchedules(std::move(schedules));
    return true;
}

void GuideWatcher::SetConnection(const ConnectionPtr& connection) {
    CAutoLock lock(&m_lock);
    m_connection = connection;
}

void GuideWatcher::CancelConnection() {
    ConnectionPtr connection;
    {
        CAutoLock lock(&m_lock);
        connection = m_connection;
    }
    if (connection != nullptr) {
        connection->Cancel();
    }
}

}  // namespace tv_box
