#include "kpl/ipc/IpcServerPipeImpl.h"

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <map>
#include <string>

#include "ipc/AnnouncementBuffer.h"
#include "ipc/Breaker.h"
#include "ipc/Fifo.h"
#include "ipc/PathLimit.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/os/CCritSec.h"
#include "kpl/tools/DebugLog.h"
#include "os/WaitReadable.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

// The accept thread's pause when the Root FIFO cannot be opened or read, so that it does not spin.
constexpr timespec kPauseAfterError{0, 10000000};

enum RootState { kNeverOpened = 0, kOpening = 1, kOpened = 2, kStopWhileOpening = 3 };

}  // namespace

// Who waits where, and who wakes whom:
//   accept thread   in DoAccept, on the Root FIFO and the breaker: a client or DoStop wakes it.
//                   In an observer's ClientAccepted, opening the connection that it was offered:
//                   the client, or DoStop, which cancels that.
//   DoStop          for the lock only. The caller joins the accept thread afterwards.
// The lock guards the table, the state and the flags, and is held for no wait. The root descriptors
// belong to the accept step that runs; when none runs, to whoever holds the lock.
//
// A streamer that is being offered must not lose its only reference under the observer that opens
// it: a DoStop on another thread leaves it in the table, and DoStopped gives it up once the accept
// thread has ended.
class IpcServerPipeImpl::PrivateImpl {
public:
    ~PrivateImpl() {
        CloseTable();
        CloseRoot();
    }

    bool Start(const char* name, void* param);
    void Stop();
    void CloseTable();
    IpcStreamer* Accept();
    void Free(IpcStreamer* streamer);
    bool IsShutdown();
    bool IsRunning();

private:
    using Table = std::map<uint32_t, IpcStreamerPipeImpl*>;

    void BeginStep();
    void EndStep();
    void RemoveIdleStreamer();
    bool OpenRoot();
    bool BeginOpening();
    bool EndOpening();
    IpcStreamer* AcceptPending();
    IpcStreamer* AcceptReceived();
    int ReadRoot();
    void RenewRoot(bool atOnce);
    IpcStreamer* ParseBufferData(int received);
    IpcStreamer* CreateStreamerByCommand(const Announcement& header);
    bool MakeWayFor(uint32_t id) KPL_REQUIRES(m_lock);
    bool IsOfferedElsewhere(const IpcStreamerPipeImpl* streamer) const KPL_REQUIRES(m_lock);
    void CloseRoot();

    char m_rootPath[kPathSize] = {};
    std::string m_name;
    AnnouncementBuffer m_buffer;  // accept step
    int m_root = -1;              // the Root FIFO while a client has it open
    int m_nextRoot = -1;  // the next one: opened before the old one is closed, because bytes
                          // in a FIFO without a reader are thrown away
    Breaker m_breaker;

    os::CCritSec m_lock;
    RootState m_state KPL_GUARDED_BY(m_lock) = kNeverOpened;
    Table m_table KPL_GUARDED_BY(m_lock);  // holds the creator's reference of each streamer
    IpcStreamerPipeImpl* m_offered KPL_GUARDED_BY(m_lock) = nullptr;  // also in the table
    pthread_t m_offeringThread KPL_GUARDED_BY(m_lock){};
    bool m_running KPL_GUARDED_BY(m_lock) = false;
    bool m_inStep KPL_GUARDED_BY(m_lock) = false;
    bool m_shutdown KPL_GUARDED_BY(m_lock) = false;
};

bool IpcServerPipeImpl::PrivateImpl::Start(const char* name, void* param) {
    if (name == nullptr || name[0] == '\0' || IsRunning() || !PathsFit(name) ||
        m_breaker.Descriptor() == -1) {
        return false;
    }
    DumpDbgMsg("IpcServerPipeImpl::DoStart(): %s(%p)\n", name, param);
    CloseTable();
    CloseRoot();
    m_buffer.Clear();
    m_breaker.Mend();
    m_name = name;
    (void)GetPipeServerRootPath(name, m_rootPath, kPathSize);
    DumpDbgMsg("IpcServerPipeImpl::DoStart(): Pipe path=%s\n", m_rootPath);
    MakeFifo(m_rootPath);
    os::CAutoLock lock(&m_lock);
    m_state = kNeverOpened;
    m_shutdown = false;
    m_running = IsFifo(m_rootPath);
    return m_running;
}

void IpcServerPipeImpl::PrivateImpl::Stop() {
    DumpDbgMsg("IpcServerPipeImpl::DoStop(): .....\n");
    os::CAutoLock lock(&m_lock);
    m_shutdown = true;
    if (m_state == kOpening) {
        m_state = kStopWhileOpening;
    }
    m_breaker.Break();
    for (auto entry = m_table.begin(); entry != m_table.end();) {
        if (IsOfferedElsewhere(entry->second)) {
            m_offered->CancelOpen();
            ++entry;
        } else {
            entry->second->Close();
            entry = m_table.erase(entry);
        }
    }
    if (!m_inStep) {
        CloseRoot();
    }
    if (m_running) {
        unlink(m_rootPath);  // Once: later it may be the FIFO of another server.
        m_running = false;
    }
}

bool IpcServerPipeImpl::PrivateImpl::IsOfferedElsewhere(const IpcStreamerPipeImpl* streamer) const {
    return streamer == m_offered && pthread_equal(m_offeringThread, pthread_self()) == 0;
}

void IpcServerPipeImpl::PrivateImpl::CloseTable() {
    os::CAutoLock lock(&m_lock);
    for (const auto& entry : m_table) {
        entry.second->Close();
    }
    m_table.clear();
    m_offered = nullptr;
}

IpcStreamer* IpcServerPipeImpl::PrivateImpl::Accept() {
    DumpDbgMsg("IpcServerPipeImpl::DoAccept(): .....\n");
    BeginStep();
    RemoveIdleStreamer();
    IpcStreamer* streamer = nullptr;
    if (OpenRoot()) {
        streamer = AcceptPending();
        if (streamer == nullptr) {
            streamer = AcceptReceived();
        }
    }
    EndStep();
    return streamer;
}

void IpcServerPipeImpl::PrivateImpl::BeginStep() {
    os::CAutoLock lock(&m_lock);
    m_inStep = true;
    m_offered = nullptr;
}

void IpcServerPipeImpl::PrivateImpl::EndStep() {
    os::CAutoLock lock(&m_lock);
    m_inStep = false;
    if (m_shutdown) {
        CloseRoot();
    }
}

void IpcServerPipeImpl::PrivateImpl::RemoveIdleStreamer() {
    DumpDbgMsg("IpcServerPipeImpl::RemoveIdleStreamer(): .....\n");
    {
        os::CAutoLock lock(&m_lock);
        for (auto entry = m_table.begin(); entry != m_table.end();) {
            if (entry->second->GetRefCount() < 2) {
                entry->second->Close();
                entry = m_table.erase(entry);
            } else {
                ++entry;
            }
        }
    }
    DumpDbgMsg("IpcServerPipeImpl::RemoveIdleStreamer(): Done.....\n");
}

// Waits until a client has the Root FIFO open. False when a stop came.
bool IpcServerPipeImpl::PrivateImpl::OpenRoot() {
    if (m_root != -1) {
        return true;
    }
    if (BeginOpening()) {
        if (m_nextRoot == -1) {
            m_nextRoot = OpenFifoReader(m_rootPath);
        }
        if (m_nextRoot != -1) {
            (void)os::WaitEitherReadable(m_nextRoot, m_breaker.Descriptor(), nullptr);
        }
    }
    if (!EndOpening()) {
        DumpDbgMsg("IpcServerPipeImpl::DoAccept(): Closing.....\n");
        return false;
    }
    m_root = m_nextRoot;
    m_nextRoot = -1;
    return true;
}

// The flag is looked at where the state is set: a stop either comes before and is seen here, or
// finds the state and ends the wait.
bool IpcServerPipeImpl::PrivateImpl::BeginOpening() {
    os::CAutoLock lock(&m_lock);
    m_state = m_shutdown ? kStopWhileOpening : kOpening;
    return !m_shutdown;
}

bool IpcServerPipeImpl::PrivateImpl::EndOpening() {
    os::CAutoLock lock(&m_lock);
    if (m_state == kStopWhileOpening) {
        return false;
    }
    m_state = kOpened;
    return true;
}

// From what was read before. Goes on past announcements that give no connection: behind them may be
// one that does, and its client waits.
IpcStreamer* IpcServerPipeImpl::PrivateImpl::AcceptPending() {
    int before = 0;
    while (!m_buffer.IsEmpty() && before != m_buffer.Pending()) {
        before = m_buffer.Pending();
        IpcStreamer* streamer = ParseBufferData(0);
        if (streamer != nullptr) {
            return streamer;
        }
    }
    return nullptr;
}

IpcStreamer* IpcServerPipeImpl::PrivateImpl::AcceptReceived() {
    const int received = ReadRoot();
    DumpDbgMsg("IpcServerPipeImpl::DoAccept(): iRet=%d.....\n", received);
    if (received > 0) {
        return ParseBufferData(received);
    }
    RenewRoot(received == 0);
    DumpDbgMsg("IpcServerPipeImpl::DoAccept(): Done.....\n");
    return nullptr;
}

// Without a new descriptor the old one stays: a client may have written into the FIFO by now.
void IpcServerPipeImpl::PrivateImpl::RenewRoot(bool atOnce) {
    m_nextRoot = atOnce ? OpenFifoReader(m_rootPath) : -1;
    if (m_nextRoot == -1) {
        (void)os::WaitReadable(m_breaker.Descriptor(), &kPauseAfterError);
        m_nextRoot = OpenFifoReader(m_rootPath);
    }
    if (m_nextRoot == -1) {
        m_nextRoot = m_root;
    } else if (m_root != -1) {
        close(m_root);
    }
    m_root = -1;
}

// Returns the bytes read, 0 at end of file, -1 on an error or when a stop came.
int IpcServerPipeImpl::PrivateImpl::ReadRoot() {
    for (;;) {
        const int ready = os::WaitEitherReadable(m_root, m_breaker.Descriptor(), nullptr);
        if (ready < 0 || (ready & 2) != 0) {
            return -1;
        }
        char* const room = m_buffer.Room();
        const ssize_t received = read(m_root, room, static_cast<size_t>(m_buffer.RoomSize()));
        // EAGAIN: the hang-up that woke us is over, because the next client is there already.
        if (received >= 0 || (errno != EAGAIN && errno != EINTR)) {
            return static_cast<int>(received);
        }
    }
}

IpcStreamer* IpcServerPipeImpl::PrivateImpl::ParseBufferData(int received) {
    const std::optional<Announcement> header = m_buffer.Next(received);
    return header ? CreateStreamerByCommand(*header) : nullptr;
}

IpcStreamer* IpcServerPipeImpl::PrivateImpl::CreateStreamerByCommand(const Announcement& header) {
    if (header.magic != kAnnouncementMagic) {
        return nullptr;
    }
    os::CAutoLock lock(&m_lock);
    if (m_shutdown || !MakeWayFor(header.id)) {
        return nullptr;
    }
    const int id = static_cast<int>(header.id);
    DumpDbgMsg("IpcServerPipeImpl::CreateStreamerByCommand(): Create new streamer(ID=%d)\n", id);
    m_offered =
        static_cast<IpcStreamerPipeImpl*>(IpcStreamerPipeImpl::Create(m_name.c_str(), id, true));
    DumpDbgMsg("IpcServerPipeImpl::CreateStreamerByCommand(): Create new streamer(ID=%d) OK\n", id);
    m_offeringThread = pthread_self();
    m_table[header.id] = m_offered;
    return m_offered;
}

// False when a connection with that id is in use; an idle one is given up.
bool IpcServerPipeImpl::PrivateImpl::MakeWayFor(uint32_t id) {
    const auto entry = m_table.find(id);
    if (entry == m_table.end()) {
        return true;
    }
    if (entry->second->GetRefCount() > 1) {
        ForceDumpDbgMsg("IpcServerPipeImpl::CreateStreamerByCommand(): ?????? Duplicated Pipe\n");
        return false;
    }
    entry->second->Close();
    m_table.erase(entry);
    return true;
}

void IpcServerPipeImpl::PrivateImpl::Free(IpcStreamer* streamer) {
    DumpDbgMsg("IpcServerPipeImpl::FreeIpcStreamer(): .....\n");
    if (streamer == nullptr) {
        return;
    }
    os::CAutoLock lock(&m_lock);
    // Its table entry goes with it.
    for (auto entry = m_table.begin(); entry != m_table.end(); ++entry) {
        if (entry->second == streamer) {
            m_table.erase(entry);
            break;
        }
    }
    m_offered = nullptr;
    streamer->Close();
}

bool IpcServerPipeImpl::PrivateImpl::IsShutdown() {
    os::CAutoLock lock(&m_lock);
    DumpDbgMsg("IpcServerPipeImpl::IsShutdownServer(): (%d)\n", static_cast<int>(m_shutdown));
    return m_shutdown;
}

bool IpcServerPipeImpl::PrivateImpl::IsRunning() {
    os::CAutoLock lock(&m_lock);
    return m_running;
}

void IpcServerPipeImpl::PrivateImpl::CloseRoot() {
    for (int* descriptor : {&m_root, &m_nextRoot}) {
        if (*descriptor != -1) {
            close(*descriptor);
            *descriptor = -1;
        }
    }
}

IpcServerPipeImpl::IpcServerPipeImpl() : m_impl(new PrivateImpl) {
    DumpDbgMsg("IpcServerPipeImpl::IpcServerPipeImpl(): .....\n");
}

IpcServerPipeImpl::~IpcServerPipeImpl() {
    if (IsAccepting() || m_impl->IsRunning()) {
        m_impl->Stop();
    }
    if (IsAccepting()) {
        StopAcceptClient();
    }
    delete m_impl;
    DumpDbgMsg("IpcServerPipeImpl::~IpcServerPipeImpl(): .....\n");
}

bool IpcServerPipeImpl::DoStart(const char* name, void* param) {
    return m_impl->Start(name, param);
}

bool IpcServerPipeImpl::DoStop() {
    m_impl->Stop();
    return true;
}

IpcStreamer* IpcServerPipeImpl::DoAccept() {
    return m_impl->Accept();
}

void IpcServerPipeImpl::FreeIpcStreamer(IpcStreamer* streamer) {
    m_impl->Free(streamer);
}

bool IpcServerPipeImpl::IsShutdownServer() {
    return m_impl->IsShutdown();
}

void IpcServerPipeImpl::DoStopped() {
    m_impl->CloseTable();
}

}  // namespace kpl::ipc
