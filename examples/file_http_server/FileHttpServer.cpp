#include "FileHttpServer.h"

#include <memory>

#include "FileResponse.h"
#include "HttpProcessor.h"
#include "kpl/net/server/CServerThread.h"
#include "kpl/net/server/CServerThreadManager.h"

namespace file_http {

namespace {

using namespace kpl::net::server;

class HttpThread : public CServerThread {
public:
    explicit HttpThread(const FileHttpOptions& options) : m_options(options) {}

private:
    CServerProtocolProcessor* CreateProtocolProcessor(int fd, kpl::net::CSocket* socket,
                                                      kpl::com::IUnknown*) override {
        return new HttpProcessor(fd, socket, std::make_unique<FileResponse>(m_options.folder),
                                 m_options.sendTimeoutMs);
    }

    const FileHttpOptions& m_options;
};

class HttpThreadManager : public CServerThreadManager {
public:
    explicit HttpThreadManager(const FileHttpOptions& options) : m_options(options) {}

private:
    CServerThread* CreateServerThread() override { return new HttpThread(m_options); }

    const FileHttpOptions& m_options;
};

}  // namespace

FileHttpServer::FileHttpServer(const FileHttpOptions& options)
    : CSocketServerEx(options.port), m_options(options) {}

// The connections use the options, so they end before these do.
FileHttpServer::~FileHttpServer() {
    StopServer();
}

CServerThreadManager* FileHttpServer::CreateThreadManager() {
    return new HttpThreadManager(m_options);
}

}  // namespace file_http
