#include "kpl/net/server/CServerThread.h"

#include <poll.h>

#include <algorithm>
#include <vector>

#include "kpl/tools/DebugLog.h"
#include "net/Closings.h"
#include "net/server/Arrivals.h"
#include "os/WaitReadable.h"

// Who waits where, and who wakes whom:
//   server thread   for its connections, half a millisecond at a time, up to two while they keep it
//                   busy; whoever ends some from outside wakes it. In Process, which is
//                   user code: in a send that the peer does not take, it is woken by shutting the
//                   socket down; nothing else ends user code.
//   AddSocket       for a new thread to set m_running, under the lock, which that does not need.
//   Join            for the server thread, without the lock.
//   AddSocket       for calls of other threads that use a duplicate's socket, which its end wakes.
// The lock is held for no other wait.
//
// A processor is deleted by whoever takes it out of m_connections, outside the lock (but for a
// duplicate, which goes before its successor is made); while its Process runs, it is only marked,
// and the server thread deletes it afterwards. A descriptor that was waited for may belong to
// another connection when the wait has ended: serials tell.

namespace kpl::net::server {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

constexpr int kMaxConnections = 32;
constexpr int kPollTimeoutMs = 500;  // waits 0.5 ms, as all sub-second time-outs do
constexpr unsigned int kCyclesPerLook = 64;

// The end of the stream is told apart because it stays ready, however much is read.
constexpr short kEvents = POLLIN | POLLRDHUP;

}  // namespace

// What is waited for, and what of it can be read. Kept from one wait to the next, and only made
// anew when connections have come or gone, so that an idle thread allocates nothing.
struct CServerThread::WatchList {
    std::vector<pollfd> descriptors;  // ascending; revents: what is ready and not served yet
    std::vector<uint64_t> serials;    // of their connections
    uint64_t changes = 0;             // m_changes when it was made; 0: to be made anew
    unsigned int closings = 0;        // Closings() when its connections were last looked through
    bool isBlind = false;             // there is one that is not watched
    bool isNew = false;               // made anew, and not looked at yet
    size_t first = 0;                 // where the one stands that FirstReady found

    void Clear() {
        descriptors.clear();
        serials.clear();
    }

    void Add(int fd, uint64_t serial) {
        descriptors.push_back(pollfd{fd, kEvents, 0});
        serials.push_back(serial);
    }

    // Looks at every descriptor. Negative: that failed. Otherwise how many are ready.
    int Look(const timespec* timeout) {
        return os::PollThroughSignals(descriptors.data(), descriptors.size(), timeout);
    }

    bool HasReady() const {
        return std::any_of(descriptors.begin(), descriptors.end(),
                           [](const pollfd& watched) { return watched.revents != 0; });
    }
};

// The thread's own list. Instead of looking at every descriptor in each cycle, it has the kernel
// tell what has become ready since the last one. Some things are not told: what a connection has
// left unread, and a descriptor that is not open any more; therefore a look now and then.
struct CServerThread::ArrivalList : WatchList {
    Arrivals* arrivals;  // null: all has to be looked at each time
    bool needsLook = true;
    unsigned int cycles = 0;

    explicit ArrivalList(Arrivals* theArrivals)
        : arrivals(theArrivals->IsUsable() ? theArrivals : nullptr) {}

    // What is ready by now. False if the look failed.
    bool Refresh() {
        if (isNew || needsLook || isBlind || ++cycles % kCyclesPerLook == 0) {
            constexpr timespec kNoWait{};
            isNew = false;
            needsLook = false;
            if (Look(&kNoWait) < 0) {
                return false;
            }
        }
        return true;
    }

    // The first one has been.
    void Served(bool hasReadAll) {
        short& events = descriptors[first].revents;
        needsLook = needsLook || !hasReadAll || events != POLLIN;
        events = 0;
    }

    // Adds what has become ready; waits for it until the next tick if it may.
    void Take(bool mayWait) {
        const bool canGoOn = arrivals->Take(mayWait, [this](uint64_t serial, short events) {
            const auto place = std::find(serials.begin(), serials.end(), serial);
            if (place != serials.end()) {  // else it is a tick, or a connection that has ended
                descriptors[static_cast<size_t>(place - serials.begin())].revents |= events;
            }
        });
        if (!canGoOn) {
            arrivals = nullptr;
        }
    }
};

// Deletes processors when it goes out of scope; made before the lock is taken.
class CServerThread::Removed {
public:
    Removed() = default;
    ~Removed() {
        for (CServerProtocolProcessor* processor : m_processors) {
            delete processor;
        }
    }
    Removed(const Removed&) = delete;
    Removed& operator=(const Removed&) = delete;

    void Add(CServerProtocolProcessor* processor) { m_processors.push_back(processor); }

private:
    std::vector<CServerProtocolProcessor*> m_processors;
};

CServerThread::CServerThread() {
    DumpDbgMsg("CServerThread::CServerThread(): ....\n");
}

CServerThread::~CServerThread() {
    DumpDbgMsg("CServerThread::~CServerThread(): ....\n");
    Stop();
    Join();
    DumpDbgMsg("CServerThread::~CServerThread(): Done....\n");
}

int CServerThread::GetMaxAcceptableCounts() {
    return kMaxConnections;
}

bool CServerThread::CanAcceptClient() {
    os::CAutoLock lock(&m_lock);
    return HasRoom();
}

bool CServerThread::HasRoom() {
    return static_cast<int>(m_connections.size()) < GetMaxAcceptableCounts();
}

bool CServerThread::AddSocket(int fd, CSocket* socket, com::IUnknown* param) {
    if (fd == -1 || socket == nullptr) {
        return false;
    }
    os::CAutoLock lock(&m_lock);
    if (!HasRoom() || !StartThread()) {
        return false;
    }
    const auto duplicate = m_connections.find(fd);
    if (duplicate != m_connections.end()) {
        ForceDumpDbgMsg("CServerThread::AddSocket(): ?????? Duplicated client\n");
        Removed removed;  // deleted before the new one is made
        Remove(duplicate, &removed);
    }
    CServerProtocolProcessor* const processor = CreateProtocolProcessor(fd, socket, param);
    if (processor == nullptr) {
        return false;
    }
    m_connections[fd] = Connection{processor, socket, ++m_changes};
    m_isBlind = !m_arrivals->Watch(fd, m_changes) || m_isBlind;
    DumpDbgMsg("CServerThread::AddSocket(): iSocketFd=%d, pSocket=%p\n", fd,
               static_cast<void*>(socket));
    return true;
}

// The thread cannot end again before the lock is released.
bool CServerThread::StartThread() {
    if (m_running) {
        return true;
    }
    if (m_thread != nullptr) {
        DumpDbgMsg("CServerThread::AddSocket(): Delete(%p)\n", static_cast<void*>(m_thread));
        delete m_thread;
    }
    m_started.Reset();
    m_arrivals = new Arrivals(os::UnscaledTimeout(kPollTimeoutMs).tv_nsec);
    m_isBlind = false;
    for (const auto& [fd, connection] : m_connections) {  // left by a wait that failed
        m_isBlind = !m_arrivals->Watch(fd, connection.serial) || m_isBlind;
    }
    m_thread = new os::CThread(&CServerThread::ThreadProc, this);
    DumpDbgMsg("CServerThread::AddSocket(): Create(%p)\n", static_cast<void*>(m_thread));
    if (!m_thread->Run(0)) {
        delete m_thread;
        m_thread = nullptr;
        DropArrivals();
        return false;
    }
    m_started.Wait(-1);
    return true;
}

void CServerThread::ThreadProc(void* self) {
    static_cast<CServerThread*>(self)->Serve();
}

void CServerThread::Serve() {
    DumpDbgMsg("CServerThread::ThreadProc(): .....\n");
    m_running = true;
    DumpDbgMsg("CServerThread::ThreadProc(): Start....\n");
    m_started.Set();
    ArrivalList list(ArrivalsOfThread());
    int result = 0;
    do {
        result = WaitForNext(&list);
        if (result >= 0) {
            ProcessData(&list, result);
        }
    } while (!EndIfDone(result));
}

// They live until EndIfDone, by that thread, says that it ends.
Arrivals* CServerThread::ArrivalsOfThread() {
    os::CAutoLock lock(&m_lock);
    return m_arrivals;
}

void CServerThread::WakeThread() {
    if (m_arrivals != nullptr && m_arrivals->IsUsable()) {
        m_arrivals->TickNow();
    }
}

// A thread that has ended keeps no descriptors.
void CServerThread::DropArrivals() {
    delete m_arrivals;
    m_arrivals = nullptr;
}

// The look at the connections and the end of m_running are one step: a connection that is added
// finds the thread running and is served, or not running and starts it again.
bool CServerThread::EndIfDone(int waitResult) {
    os::CAutoLock lock(&m_lock);
    if (waitResult != kWaitFailed && !m_stopping && !m_connections.empty()) {
        return false;
    }
    m_running = false;
    DropArrivals();
    DumpDbgMsg("CServerThread::ThreadProc(): Done.....\n");
    return true;
}

int CServerThread::CheckIfDataAvailable(int timeout) {
    WatchList list;
    return WaitForData(&list, timeout);
}

// While the only connection is held there is nothing to wait for: the list is made again each poll.
int CServerThread::WaitForData(WatchList* list, int timeout) {
    const timespec wait = os::UnscaledTimeout(timeout > 0 ? timeout : kPollTimeoutMs);
    int ready = 0;
    do {
        if (!UpdateWatchList(list)) {
            return kNoConnection;
        }
        const bool hasLimit = timeout > 0 || list->descriptors.empty();
        ready = list->Look(hasLimit ? &wait : nullptr);
    } while (ready == 0 && timeout <= 0);
    if (ready < 0) {
        return kWaitFailed;
    }
    return ready == 0 ? kTimedOut : FirstReady(list);
}

// As WaitForData with kPollTimeoutMs.
int CServerThread::WaitForNext(ArrivalList* list) {
    if (list->arrivals == nullptr) {
        return WaitForData(list, kPollTimeoutMs);
    }
    if (!UpdateWatchList(list)) {
        return kNoConnection;
    }
    if (!list->Refresh()) {
        return kWaitFailed;
    }
    list->Take(!list->HasReady());
    return list->HasReady() ? FirstReady(list) : kTimedOut;
}

// False without any connection.
bool CServerThread::UpdateWatchList(WatchList* list) {
    Removed removed;
    os::CAutoLock lock(&m_lock);
    const unsigned int closings = Closings();
    if (list->changes == m_changes && list->closings == closings) {
        return !m_connections.empty();
    }
    list->closings = closings;
    const CSocket* const held = m_held != nullptr ? m_held->load() : nullptr;
    for (auto entry = m_connections.begin(); entry != m_connections.end();) {
        const bool remove = entry->second.socket != held && !entry->second.processor->IsConnected();
        entry = remove ? Remove(entry, &removed) : std::next(entry);
    }
    if (list->changes != m_changes) {
        list->Clear();
        list->isNew = true;
        list->isBlind = m_isBlind;
        list->changes = m_changes;
        for (const auto& [fd, connection] : m_connections) {
            if (connection.socket != held) {
                list->Add(fd, connection.serial);
            } else {
                list->changes = 0;
            }
        }
    }
    return !m_connections.empty();
}

// Only one connection is served per wait; of several that are ready the lowest descriptor wins, and
// the others are found again by the next wait. A descriptor that is not open is a failure of the
// wait only if its connection believes that it is.
int CServerThread::FirstReady(WatchList* list) {
    os::CAutoLock lock(&m_lock);
    int first = kNoConnection;
    for (size_t i = 0; i < list->descriptors.size(); ++i) {
        const pollfd& watched = list->descriptors[i];
        const bool isOpen = (watched.revents & POLLNVAL) == 0;
        if (watched.revents == 0 || (isOpen && first != kNoConnection)) {
            continue;
        }
        const auto entry = m_connections.find(watched.fd);
        if (entry == m_connections.end() || entry->second.serial != list->serials[i]) {
            continue;
        }
        if (isOpen) {
            first = watched.fd;
            list->first = i;
        } else if (entry->second.processor->IsConnected()) {
            return kWaitFailed;
        }
    }
    return first;
}

void CServerThread::ProcessData(ArrivalList* list, int fd) {
    DumpDbgMsg("CServerThread::ThreadProc(): Data is from socket(%d).....\n", fd);
    CServerProtocolProcessor* const processor = BeginProcess(*list, fd);
    if (processor != nullptr) {
        const bool keep = processor->Process();
        list->Served(processor->m_hasReadAll);
        EndProcess(fd, keep);
    }
}

CServerProtocolProcessor* CServerThread::BeginProcess(const WatchList& list, int fd) {
    os::CAutoLock lock(&m_lock);
    const auto entry = m_connections.find(fd);
    if (m_stopping || entry == m_connections.end() ||
        entry->second.serial != list.serials[list.first]) {
        return nullptr;
    }
    m_processing = entry->second.processor;
    m_processingRemoved = false;
    return m_processing;
}

void CServerThread::EndProcess(int fd, bool keep) {
    Removed removed;
    os::CAutoLock lock(&m_lock);
    CServerProtocolProcessor* const processed = m_processing;
    m_processing = nullptr;
    if (m_processingRemoved) {
        removed.Add(processed);
    } else if (!keep) {
        Remove(m_connections.find(fd), &removed);
    }
}

CServerThread::Connections::iterator CServerThread::Remove(Connections::iterator entry,
                                                           Removed* removed) {
    CServerProtocolProcessor* const processor = entry->second.processor;
    if (processor == m_processing) {
        processor->Interrupt();
        m_processingRemoved = true;
    } else {
        removed->Add(processor);
    }
    ++m_changes;
    return m_connections.erase(entry);
}

void CServerThread::ReleaseSocket(int fd) {
    if (fd < 0) {
        return;
    }
    Removed removed;
    os::CAutoLock lock(&m_lock);
    const auto entry = m_connections.find(fd);
    if (entry != m_connections.end()) {
        Remove(entry, &removed);
        WakeThread();
    }
}

bool CServerThread::Stop() {
    {
        Removed removed;
        os::CAutoLock lock(&m_lock);
        DumpDbgMsg("CServerThread::Stop(): Socket counts=%d\n",
                   static_cast<int>(m_connections.size()));
        while (!m_connections.empty()) {
            Remove(m_connections.begin(), &removed);
        }
        WakeThread();
    }
    DumpDbgMsg("CServerThread::Stop(): Done\n");
    return true;
}

void CServerThread::SetHeld(const std::atomic<const CSocket*>* held) {
    os::CAutoLock lock(&m_lock);
    m_held = held;
}

// No other request is begun, and a response that is being sent fails. For good: the manager deletes
// the object next.
void CServerThread::BeginStop() {
    os::CAutoLock lock(&m_lock);
    m_stopping = true;
    WakeThread();
    if (m_processing != nullptr) {
        m_processing->Interrupt();
    }
}

void CServerThread::Join() {
    os::CThread* thread = nullptr;
    {
        os::CAutoLock lock(&m_lock);
        thread = m_thread;
        m_thread = nullptr;
    }
    delete thread;  // which joins
}

}  // namespace kpl::net::server
