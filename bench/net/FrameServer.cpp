#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>

#include "bench/net/TcpServers.h"
#include "kpl/com/CUnknownBase.h"
#include "kpl/net/server/CServerProtocolProcessor.h"
#include "kpl/net/server/CServerThread.h"
#include "kpl/net/server/CServerThreadManager.h"
#include "kpl/net/server/CSocketServerEx.h"

namespace kpl::bench {

namespace {

using namespace net::server;

struct Line : com::CUnknownBase {
    explicit Line(std::string line) : text(std::move(line)) {}
    const std::string text;
};

class LineDemuxer : public IProtocolDemuxer {
public:
    com::IUnknown* Demux(char* data, int length, int& consumed) override {
        const auto* end = static_cast<char*>(memchr(data, '\n', static_cast<size_t>(length)));
        consumed = end != nullptr ? static_cast<int>(end - data) + 1 : 0;
        return end != nullptr ? new Line(std::string(data, static_cast<size_t>(consumed)))
                              : nullptr;
    }
    int GetDemuxedType() override { return 0; }
};

class EchoExecutor : public IProtocolExecutor {
public:
    int Execute(com::IUnknown* request) override {
        m_answer = static_cast<Line*>(request)->text;
        return 0;
    }
    bool IsResponseReady() override { return true; }
    bool HasResponseData() override { return true; }
    int ReadResponse(char* buffer, int size) override {
        const size_t count = std::min(m_answer.size(), static_cast<size_t>(size));
        memcpy(buffer, m_answer.data(), count);
        m_answer.erase(0, count);
        return static_cast<int>(count);
    }
    void EndResponse() override {}

private:
    std::string m_answer;
};

class EchoProcessor : public CServerProtocolProcessor {
public:
    explicit EchoProcessor(net::CSocket* socket) : CServerProtocolProcessor(socket, nullptr) {}

private:
    bool PrepareDemuxer(char*, int) override { return true; }
    IProtocolDemuxer* GetDemuxer() override { return &m_demuxer; }
    bool IsHandshakeRequired() override { return false; }
    IProtocolHandshaker* GetHandshaker() override { return nullptr; }
    IProtocolExecutor* GetExecutor() override { return &m_executor; }
    IProtocolMuxer* GetMuxer() override { return nullptr; }
    bool NeedToKeepConnection() override { return true; }
    bool PostProcessRequest(com::IUnknown* request, IProtocolExecutor* executor) override {
        return WriteResponseWithoutMuxer(request, executor);
    }

    LineDemuxer m_demuxer;
    EchoExecutor m_executor;
};

class EchoThread : public CServerThread {
    CServerProtocolProcessor* CreateProtocolProcessor(int, net::CSocket* socket,
                                                      com::IUnknown*) override {
        return new EchoProcessor(socket);
    }
};

class EchoThreadManager : public CServerThreadManager {
    CServerThread* CreateServerThread() override { return new EchoThread; }
};

class EchoServer : public CSocketServerEx {
public:
    EchoServer() : CSocketServerEx(0) {}

private:
    CServerThreadManager* CreateThreadManager() override { return new EchoThreadManager; }
};

}  // namespace

void ServeWithFrame(int said, int end) {
    EchoServer server;
    const int port = server.StartServer() ? server.GetListeningPort() : 0;
    (void)!write(said, &port, sizeof(port));
    char byte = 0;
    (void)!read(end, &byte, 1);
    server.StopServer();
}

}  // namespace kpl::bench
