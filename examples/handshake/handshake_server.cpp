// Serves the protocol of Protocol.h on a TCP port.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "Protocol.h"
#include "kpl/net/server/CServerThread.h"
#include "kpl/net/server/CServerThreadManager.h"
#include "kpl/net/server/CSocketServerEx.h"

namespace {

using namespace kpl::net::server;

// One thread of the server makes a processor for each of its connections, ...
class Thread : public CServerThread {
    CServerProtocolProcessor* CreateProtocolProcessor(int, kpl::net::CSocket* socket,
                                                      kpl::com::IUnknown* param) override {
        return new handshake::Processor(socket, param);
    }
};

// ... the manager makes the threads, ...
class ThreadManager : public CServerThreadManager {
    CServerThread* CreateServerThread() override { return new Thread; }
};

// ... and the server makes the manager.
class Server : public CSocketServerEx {
public:
    using CSocketServerEx::CSocketServerEx;

private:
    CServerThreadManager* CreateThreadManager() override { return new ThreadManager; }
};

}  // namespace

int main(int argc, char** argv) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);  // in all threads; sigwait below takes them

    Server server(static_cast<unsigned int>(argc > 1 ? atoi(argv[1]) : 0));
    if (!server.StartServer()) {
        fputs("handshake_server: cannot have that port\n", stderr);
        return 1;
    }
    printf("handshake_server: ready on port %d\n", server.GetListeningPort());
    fflush(stdout);
    int signal = 0;
    sigwait(&stop, &signal);
    server.StopServer();
}
