#include "BoxServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <memory>

#include "BoxResponse.h"
#include "HttpProcessor.h"
#include "kpl/net/server/CServerThread.h"
#include "kpl/net/server/CServerThreadManager.h"

namespace tv_box {

namespace {

using namespace kpl::net::server;

constexpr unsigned int kLookForLateMs = 100;

// 127.0.0.0/8.
bool IsFromThisMachine(int fd) {
    sockaddr_in peer{};
    socklen_t length = sizeof(peer);
    return getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
           peer.sin_family == AF_INET && ntohl(peer.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
}

class BoxThread : public CServerThread {
public:
    BoxThread(const BoxServerOptions& options, BoxState* state)
        : m_options(options), m_state(state) {}

private:
    CServerProtocolProcessor* CreateProtocolProcessor(int fd, kpl::net::CSocket* socket,
                                                      kpl::com::IUnknown*) override {
        if (!m_options.servesOthers && !IsFromThisMachine(fd)) {
            return nullptr;
        }
        return new file_http::HttpProcessor(fd, socket, std::make_unique<BoxResponse>(m_state, fd),
                                            m_options.sendTimeoutMs);
    }

    const BoxServerOptions& m_options;
    BoxState* const m_state;
};

class BoxThreadManager : public CServerThreadManager {
public:
    BoxThreadManager(const BoxServerOptions& options, BoxState* state)
        : m_options(options), m_state(state) {}

private:
    CServerThread* CreateServerThread() override { return new BoxThread(m_options, m_state); }

    const BoxServerOptions& m_options;
    BoxState* const m_state;
};

}  // namespace

BoxServer::BoxServer(const BoxServerOptions& options, BoxState* state)
    : CSocketServerEx(options.port), m_options(options), m_state(state) {}

// The connections use the options, so they end before these do.
BoxServer::~BoxServer() {
    m_timer.Stop();
    StopServer();
}

bool BoxServer::Start() {
    const auto answerLate = [](void* state, int) {
        static_cast<BoxState*>(state)->AnswerLate(BoxState::Clock::now());
    };
    return StartServer() && m_timer.Start(kLookForLateMs, answerLate, m_state, 0, false, 0);
}

CServerThreadManager* BoxServer::CreateThreadManager() {
    return new BoxThreadManager(m_options, m_state);
}

}  // namespace tv_box
