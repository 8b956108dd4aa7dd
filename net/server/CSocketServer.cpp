#include "kpl/net/server/CSocketServer.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <vector>

#include "kpl/os/CCritSec.h"
#include "kpl/os/Sleep.h"
#include "kpl/tools/DebugLog.h"

// Who waits where, and who wakes whom:
//   accept thread   in accept: a client, or Stop, which shuts the listening socket down. Out of
//                   descriptors, 10 ms at a time. In the factory and the observer, user code.
//   Stop            for the accept thread, before it closes the listening descriptor: the number
//                   must not become another's while accept may still be called with it.

namespace kpl::net::server {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

constexpr int kBacklog = 128;
constexpr int kAcceptCommand = 0;
constexpr long kPauseWithoutDescriptorsMs = 10;

// Tells a socket from a later one under the same number.
std::optional<ino_t> IdentityOf(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return std::nullopt;
    }
    return status.st_ino;
}

// errno is 0 after success.
int AcceptClient(int listener) {
    int fd = -1;
    do {
        errno = 0;
        fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int Bind(int fd, unsigned int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

}  // namespace

struct CSocketServer::PrivateData {
    explicit PrivateData(unsigned int thePort) : port(thePort) {}

    tools::CommandQueue<int>* queue = nullptr;  // null while not running
    std::atomic<int> listener{-1};
    const unsigned int port;
    std::atomic<IServerObserver*> observer{nullptr};

    os::CCritSec lock;
    std::vector<CSocket*> clients KPL_GUARDED_BY(lock);  // owned
};

CSocketServer::CSocketServer(unsigned int port) : m_data(new PrivateData(port)) {}

CSocketServer::~CSocketServer() {
    DumpDbgMsg("CSocketServer::~CSocketServer(): .....\n");
    CSocketServer::Stop();
    delete m_data;
    DumpDbgMsg("CSocketServer::~CSocketServer(): Done.....\n");
}

void CSocketServer::SetObserver(IServerObserver* observer) {
    m_data->observer = observer;
}

int CSocketServer::GetPort() const {
    return static_cast<int>(m_data->port);
}

int CSocketServer::GetListeningPort() const {
    const int listener = m_data->listener;
    int listening = 0;
    socklen_t length = sizeof(listening);
    if (getsockopt(listener, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) != 0 ||
        listening == 0) {
        return -1;
    }
    sockaddr_in address{};
    length = sizeof(address);
    if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return -1;
    }
    return ntohs(address.sin_port);
}

bool CSocketServer::Run() {
    Stop();
    m_data->queue = new tools::CommandQueue<int>(this);
    if (!BindAndListen()) {
        return false;
    }
    m_data->queue->Post(kAcceptCommand);
    if (!m_data->queue->HasWorker()) {
        return false;  // As after any failure, the next Stop closes what is open.
    }
    IServerObserver* const observer = m_data->observer;
    if (observer != nullptr) {
        observer->StartToAccept();
    }
    return true;
}

bool CSocketServer::BindAndListen() {
    DumpDbgMsg("CSocketServer::BindAndListen(): Max pending connection(%d).....\n", kBacklog);
    if (m_data->listener != -1) {
        Stop();
    }
    if (!OpenListener()) {
        return false;
    }
    DumpDbgMsg("CSocketServer::BindAndListen(): Done.....\n");
    return true;
}

// After a failure the next Stop closes the descriptor.
bool CSocketServer::OpenListener() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        ForceDumpDbgMsg("CSocketServer::Bind(): ????????????? Fail to open socket\n");
        return false;
    }
    m_data->listener = fd;
    const int yes = 1;
    (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    const int bound = Bind(fd, m_data->port);
    if (bound != 0) {
        ForceDumpDbgMsg("CSocketServer::Bind(): ??????????????? Fail to bind(%d-%d)\n", bound,
                        errno);
        return false;
    }
    if (listen(fd, kBacklog) != 0) {
        ForceDumpDbgMsg("CSocketServer::Bind(): ??????????????? Fail to listen\n");
        return false;
    }
    return true;
}

bool CSocketServer::Execute(int command) {
    if (command != kAcceptCommand || !Accept()) {
        return false;
    }
    if (m_data->queue != nullptr) {
        m_data->queue->Post(kAcceptCommand);
    }
    return true;
}

void CSocketServer::OnCommandDone(int) {}

bool CSocketServer::Accept() {
    const int listener = m_data->listener;
    if (listener == -1) {
        return false;
    }
    DumpDbgMsg("CSocketServer::Accept(): Wait for connection....\n");
    const int fd = AcceptClient(listener);
    const int error = errno;
    DumpDbgMsg("CSocketServer::Accept(): Wait for connection done(Ret=%d)(Err=%d)....\n", fd,
               error);
    if (fd >= 0) {
        return TakeClient(fd);
    }
    ForceDumpDbgMsg("CSocketServer::Accept(): ??????????????? Fail to accept(Err=%d)\n", error);
    if (error != EMFILE) {
        return false;
    }
    // The client still waits to be accepted, so accept would fail again at once.
    os::osal_Sleep(kPauseWithoutDescriptorsMs);
    return true;
}

// Always true: a client that is refused does not end the accepting.
bool CSocketServer::TakeClient(int fd) {
    const std::optional<ino_t> identity = IdentityOf(fd);
    CSocket* const client = CreateClientSocket(fd);
    if (client == nullptr) {
        ForceDumpDbgMsg("CSocketServer::Accept(): ??????????????? Fail to create client socket\n");
        // A factory that refuses may have closed it, and the number may be another's by now.
        if (identity && IdentityOf(fd) == identity) {
            shutdown(fd, SHUT_RDWR);
            close(fd);
        }
        return true;
    }
    IServerObserver* const observer = m_data->observer;
    if (observer == nullptr || !observer->ClientAccepted(client)) {
        os::CAutoLock lock(&m_data->lock);
        m_data->clients.push_back(client);
    }
    return true;
}

CSocket* CSocketServer::CreateClientSocket(int fd) {
    return new CSocket(fd);
}

void CSocketServer::ReleaseAllClients() {
    std::vector<CSocket*> clients;
    {
        os::CAutoLock lock(&m_data->lock);
        clients.swap(m_data->clients);
    }
    for (CSocket* client : clients) {
        client->Disconnect();
        delete client;
    }
}

bool CSocketServer::Stop() {
    DumpDbgMsg("CSocketServer::Stop(): .....\n");
    ReleaseAllClients();
    const int listener = m_data->listener;
    if (listener != -1) {
        shutdown(listener, SHUT_RDWR);
    }
    const bool ran = m_data->queue != nullptr;
    if (ran) {
        delete m_data->queue;  // joins the accept thread
        m_data->queue = nullptr;
        ReleaseAllClients();  // those accepted meanwhile
    }
    if (listener != -1) {
        close(listener);
        m_data->listener = -1;
    }
    IServerObserver* const observer = m_data->observer;
    if (ran && observer != nullptr) {
        observer->ServerClosed();
    }
    DumpDbgMsg("CSocketServer::Stop(): Done.....\n");
    return true;
}

}  // namespace kpl::net::server
