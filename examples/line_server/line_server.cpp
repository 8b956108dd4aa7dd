// The smallest protocol on the TCP server: every line is answered by the same line in capitals.
//
// What a protocol of your own needs is all here: a request, a demuxer that cuts requests out of the
// bytes, an executor that answers them, a processor that holds both, and three small factories.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <utility>

#include "kpl/com/CUnknownBase.h"
#include "kpl/net/server/CServerProtocolProcessor.h"
#include "kpl/net/server/CServerThread.h"
#include "kpl/net/server/CServerThreadManager.h"
#include "kpl/net/server/CSocketServerEx.h"
#include "kpl/tools/StringTools.h"

namespace {

using namespace kpl::net::server;
using kpl::com::CUnknownBase;
using kpl::com::IUnknown;
using kpl::net::CSocket;

// Requests are counted: whoever has a reference releases it, nobody deletes.
class Line : public CUnknownBase {
public:
    explicit Line(std::string text) : m_text(std::move(text)) {}
    const std::string& Text() const { return m_text; }

private:
    const std::string m_text;
};

class LineDemuxer : public IProtocolDemuxer {
public:
    IUnknown* Demux(char* data, int length, int& consumed) override {
        const auto* end = static_cast<char*>(memchr(data, '\n', static_cast<size_t>(length)));
        if (end == nullptr) {
            consumed = 0;  // not complete yet: offered again when more has come
            return nullptr;
        }
        consumed = static_cast<int>(end - data) + 1;
        return new Line(std::string(data, static_cast<size_t>(consumed)));
    }
    int GetDemuxedType() override { return 0; }
};

class LineExecutor : public IProtocolExecutor {
public:
    int Execute(IUnknown* request) override {
        m_answer = static_cast<Line*>(request)->Text();
        kpl::tools::strupr(m_answer.data());
        return 0;
    }
    bool IsResponseReady() override { return true; }
    bool HasResponseData() override { return !m_answer.empty(); }
    int ReadResponse(char* buffer, int size) override {
        const size_t count = std::min(m_answer.size(), static_cast<size_t>(size));
        memcpy(buffer, m_answer.data(), count);
        m_answer.erase(0, count);
        return static_cast<int>(count);
    }
    void EndResponse() override { m_answer.clear(); }

private:
    std::string m_answer;
};

// One for each connection.
class LineProcessor : public CServerProtocolProcessor {
public:
    explicit LineProcessor(CSocket* socket) : CServerProtocolProcessor(socket, nullptr) {}

private:
    bool PrepareDemuxer(char*, int) override { return true; }
    IProtocolDemuxer* GetDemuxer() override { return &m_demuxer; }
    bool IsHandshakeRequired() override { return false; }
    IProtocolHandshaker* GetHandshaker() override { return nullptr; }
    IProtocolExecutor* GetExecutor() override { return &m_executor; }
    IProtocolMuxer* GetMuxer() override { return nullptr; }

    // There is no muxer: what the executor says goes out as it is.
    bool PostProcessRequest(IUnknown* request, IProtocolExecutor* executor) override {
        return WriteResponseWithoutMuxer(request, executor);
    }
    // Without this, the connection ends once everything received is answered.
    bool NeedToKeepConnection() override { return true; }

    LineDemuxer m_demuxer;
    LineExecutor m_executor;
};

class LineThread : public CServerThread {
    CServerProtocolProcessor* CreateProtocolProcessor(int, CSocket* socket, IUnknown*) override {
        return new LineProcessor(socket);
    }
};

class LineThreadManager : public CServerThreadManager {
    CServerThread* CreateServerThread() override { return new LineThread; }
};

class LineServer : public CSocketServerEx {
public:
    using CSocketServerEx::CSocketServerEx;
    CServerThreadManager* CreateThreadManager() override { return new LineThreadManager; }
};

}  // namespace

int main(int argc, char** argv) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);  // in all threads; sigwait below takes them

    LineServer server(argc > 1 ? static_cast<unsigned int>(atoi(argv[1])) : 7000);
    if (!server.StartServer()) {
        fputs("line_server: cannot have the port\n", stderr);
        return 1;
    }
    printf("line_server: ready on port %d\n", server.GetListeningPort());
    fflush(stdout);
    int signal = 0;
    sigwait(&stop, &signal);
    server.StopServer();
    return 0;
}
