#include "kpl/net/UPnPFinder.h"

#include <netdb.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>

#include "kpl/tools/DebugLog.h"
#include "net/UdpSocket.h"

// Who waits where, and who wakes whom:
// - the searching thread, while answers gather, for the end of its time-out; only a signal ends it
//   earlier.
// - the searching thread for a datagram. Stop shuts the socket down, which ends the receive; the
//   thread then sees that its socket is not the finder's any more.
// A search's socket is closed when both the finder and the searching thread have let go of it, so
// that its number cannot become somebody else's under the receive.
namespace kpl::net {

namespace {

constexpr int kSearchSeconds = 10;
constexpr int kAreaSize = 1024;
constexpr char kGroup[] = "239.255.255.250";
constexpr int kPort = 1900;
constexpr char kSuccess[] = "HTTP/1.1 200 OK";

enum ErrorCode { kNoAnswer = 0, kNotSent = 2, kWrongState = 3, kUnknownType = 4, kNoSocket = 5 };

const char* SearchTarget(UPnPDevType type) {
    switch (type) {
        case UPNP_DEV_ROOT:
            return "upnp:rootdevice";
        case UPNP_DEV_MEDIA_RENDERER:
            return "urn:schemas-upnp-org:device:MediaRenderer:1";
    }
    return nullptr;
}

std::string Request(const char* target) {
    char text[1024] = {};
    snprintf(text, sizeof(text),
             "M-SEARCH * HTTP/1.1\r\n"
             "Host: 239.255.255.250:1900\r\n"
             "Man: \"ssdp:discover\"\r\n"
             "ST: %s\r\n"
             "MX: 3\r\n"
             "\r\n",
             target);
    return text;
}

// False if the resolver has no IPv4 address for the group.
bool ResolveGroup(sockaddr_in* group) {
    const hostent* const host = gethostbyname(kGroup);
    if (host == nullptr || host->h_addrtype != AF_INET || host->h_addr_list[0] == nullptr) {
        return false;
    }
    in_addr_t address = 0;
    memcpy(&address, host->h_addr_list[0], sizeof(address));
    *group = UdpAddress(address, kPort);
    return true;
}

bool IsSuccess(const char* answer) {
    return strncmp(answer, kSuccess, sizeof(kSuccess) - 1) == 0;
}

std::string Header(std::string& text, const char* key) {
    std::string value;
    FindAndCopyString(text, value, key, "\r\n");
    return value;
}

}  // namespace

class UPnPFinder::SearchSocket {
public:
    explicit SearchSocket(int fd) : m_fd(fd) {}
    ~SearchSocket() { CloseUdpSocket(&m_fd); }
    SearchSocket(const SearchSocket&) = delete;
    SearchSocket& operator=(const SearchSocket&) = delete;

    int Descriptor() const { return m_fd; }
    void ShutDown() { shutdown(m_fd, SHUT_RDWR); }

private:
    int m_fd;
};

UPnPFinder::UPnPFinder() : m_lock(new os::CCritSec) {}

UPnPFinder::~UPnPFinder() {
    RemoveAllObservers();
    Stop();
    delete m_lock;
}

bool UPnPFinder::AddObserver(UPnPFinderObserver* observer) {
    if (observer == nullptr) {
        return false;
    }
    os::CAutoLock lock(m_lock);
    if (std::find(m_observers.begin(), m_observers.end(), observer) == m_observers.end()) {
        m_observers.push_back(observer);
    }
    return true;
}

bool UPnPFinder::RemoveObserver(UPnPFinderObserver* observer) {
    if (observer == nullptr) {
        return false;
    }
    os::CAutoLock lock(m_lock);
    const auto found = std::find(m_observers.begin(), m_observers.end(), observer);
    if (found == m_observers.end()) {
        return false;
    }
    m_observers.erase(found);
    return true;
}

void UPnPFinder::RemoveAllObservers() {
    os::CAutoLock lock(m_lock);
    m_observers.clear();
}

bool UPnPFinder::Start(UPnPDevType type) {
    Stop();
    return SendSSDPRequest(type) && ReadSSDPRespond(kSearchSeconds);
}

bool UPnPFinder::Stop() {
    std::shared_ptr<SearchSocket> socket;
    {
        os::CAutoLock lock(&m_socketLock);
        socket.swap(m_socket);
    }
    if (socket != nullptr) {
        socket->ShutDown();
    }
    return true;
}

bool UPnPFinder::SendSSDPRequest(UPnPDevType type) {
    if (CurrentSocket() != nullptr) {
        DispatchErrorEvent(kWrongState);
        return false;
    }
    const char* const target = SearchTarget(type);
    if (target == nullptr) {
        DispatchErrorEvent(kUnknownType);
        return false;
    }
    const std::string request = Request(target);
    sockaddr_in group{};
    const bool resolved = ResolveGroup(&group);
    std::shared_ptr<SearchSocket> socket;
    if (!OpenSocket(&socket)) {
        DispatchErrorEvent(kNoSocket);
        return false;
    }
    const int length = static_cast<int>(request.size());
    if (!resolved || SendDatagram(socket->Descriptor(), request.data(), length, group) < length) {
        Forget(socket);
        DispatchErrorEvent(kNotSent);
        return false;
    }
    return true;
}

bool UPnPFinder::ReadSSDPRespond(int timeoutSeconds) {
    const std::shared_ptr<SearchSocket> socket = CurrentSocket();
    if (socket == nullptr) {
        DispatchErrorEvent(kWrongState);
        return false;
    }
    const bool found = ReceiveAnswers(socket, timeoutSeconds);
    tools::ForceDumpDbgMsg("UPnPFinder::ReadSSDPRespond(): Timeout!\n");
    if (found) {
        DispatchSearchDeviceCompleteEvent();
    } else {
        DispatchErrorEvent(kNoAnswer);
    }
    return Forget(socket) && found;
}

// Until a signal ends the wait, or the finder has let go of the socket. True if a device was
// reported.
bool UPnPFinder::ReceiveAnswers(const std::shared_ptr<SearchSocket>& socket, int timeoutSeconds) {
    char area[kAreaSize + 1] = {};
    bool found = false;
    timeval left{};
    left.tv_sec = timeoutSeconds;
    // Deliberately a wait for no descriptor at all: the answers gather in the socket meanwhile. The
    // system leaves no time in `left`, so that it is waited for only once.
    while (select(0, nullptr, nullptr, nullptr, &left) >= 0 && CurrentSocket() == socket) {
        const int length = ReceiveDatagram(socket->Descriptor(), area, kAreaSize);
        // After a failure the answer before is still there, and is looked at again.
        if (length >= 0) {
            area[length] = '\0';
        }
        if (IsSuccess(area)) {
            DispatchAddDeviceEvent(area);
            found = true;
        }
    }
    return found;
}

void UPnPFinder::DispatchAddDeviceEvent(const char* response) {
    if (response == nullptr) {
        return;
    }
    std::string text(response);
    const std::string location = Header(text, "LOCATION: ");
    const std::string usn = Header(text, "USN: ");
    const std::string server = Header(text, "SERVER: ");
    const std::string st = Header(text, "ST: ");
    os::CAutoLock lock(m_lock);
    for (UPnPFinderObserver* observer : m_observers) {
        observer->OnAddDevice(location.c_str(), usn.c_str(), server.c_str(), st.c_str());
    }
}

void UPnPFinder::DispatchSearchDeviceCompleteEvent() {
    os::CAutoLock lock(m_lock);
    for (UPnPFinderObserver* observer : m_observers) {
        observer->OnSearchDeviceComplete();
    }
}

void UPnPFinder::DispatchErrorEvent(int code) {
    os::CAutoLock lock(m_lock);
    for (UPnPFinderObserver* observer : m_observers) {
        observer->OnError(code);
    }
}

std::shared_ptr<UPnPFinder::SearchSocket> UPnPFinder::CurrentSocket() {
    os::CAutoLock lock(&m_socketLock);
    return m_socket;
}

// False if there is no socket to be had.
bool UPnPFinder::OpenSocket(std::shared_ptr<SearchSocket>* opened) {
    const int fd = OpenUdpSocket();
    if (fd == -1) {
        return false;
    }
    *opened = std::make_shared<SearchSocket>(fd);
    os::CAutoLock lock(&m_socketLock);
    m_socket = *opened;
    return true;
}

// Lets go of `socket`; false if the finder had done so before.
bool UPnPFinder::Forget(const std::shared_ptr<SearchSocket>& socket) {
    os::CAutoLock lock(&m_socketLock);
    if (m_socket != socket) {
        return false;
    }
    m_socket.reset();
    return true;
}

bool FindAndCopyString(std::string& text, std::string& value, const char* begin, const char* end) {
    if (begin == nullptr || end == nullptr) {
        return false;
    }
    // Deliberately unchecked: a key that does not occur wraps round to its own length less one, and
    // the value is what stands there. Users know "200 OK" as the location of an answer without one.
    const size_t start = text.find(begin) + strlen(begin);
    const size_t stop = text.find(end, start);
    if (start == std::string::npos || stop == std::string::npos) {
        return false;
    }
    value = text.substr(start, stop - start);
    return true;
}

}  // namespace kpl::net
