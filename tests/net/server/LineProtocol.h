// A protocol of lines for the tests of the TCP server frame. A request is a line; the response is
// the line with '>' before it, which the muxer puts there. Some lines are orders:
//   bad          is no request
//   none         is consumed, but gives no request
//   fail         the executor fails
//   silent       there is no response
//   big N        a response of N bytes 'x', without '>'
//   hold         is executed once Script::release is set
//   hello        is the opening handshake, while Script::handshake is on; answered by "welcome\n"
//   refuse       a handshake that is refused
//   more         a handshake that needs more than the line alone
#ifndef KPL_TESTS_NET_SERVER_LINEPROTOCOL_H_
#define KPL_TESTS_NET_SERVER_LINEPROTOCOL_H_

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "kpl/com/CUnknownBase.h"
#include "kpl/net/server/CServerProtocolProcessor.h"
#include "kpl/net/server/CServerThread.h"
#include "kpl/net/server/CServerThreadManager.h"
#include "kpl/net/server/CSocketServerEx.h"
#include "kpl/os/CEvent.h"

namespace kpl::test {

// The places where something can be missing.
enum class Missing {
    Nothing,
    Manager,
    ServerThread,
    Processor,
    Preparation,
    Demuxer,
    Handshaker,
    AnswerLength,
    AnswerData,
    Executor,
    Muxer,
};

// What a test sets, and what it can look at. Outlives the server.
struct Script {
    std::atomic<bool> keep{true};
    std::atomic<bool> handshake{false};
    std::atomic<bool> muxed{true};
    std::atomic<Missing> missing{Missing::Nothing};
    std::atomic<int> maxPerThread{32};
    std::function<void(net::server::CServerProtocolProcessor*)> onExecute;  // before the start

    os::CEvent release{false};
    std::atomic<int> holding{0};  // executors that wait for `release`, or have waited

    std::mutex lifetime;  // while it is held, no processor goes

    std::atomic<int> managers{0};  // alive
    std::atomic<int> threads{0};
    std::atomic<int> processors{0};
    std::atomic<int> requests{0};
    std::atomic<int> created{0};  // processors, ever
    std::atomic<int> threadsCreated{0};
    std::atomic<int> disconnects{0};
    std::atomic<int> prepared{0};
    std::atomic<int> ended{0};   // responses
    std::atomic<int> pieces{0};  // of responses, asked for
    std::atomic<int> before{0};
    std::atomic<int> after{0};
    std::atomic<void*> lastParam{nullptr};
    std::atomic<net::server::CServerThread*> lastThread{nullptr};  // that made a processor

    void Note(const std::string& line);
    std::vector<std::string> Lines();

    // Nothing that the frame was given is left.
    bool AllGone() const {
        return managers == 0 && threads == 0 && processors == 0 && requests == 0;
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

class LineRequest : public com::CUnknownBase {
public:
    LineRequest(Script* script, std::string text);
    ~LineRequest() override;
    const std::string& Text() const { return m_text; }

private:
    Script* m_script;
    std::string m_text;
};

class LineProcessor : public net::server::CServerProtocolProcessor {
public:
    LineProcessor(net::CSocket* socket, com::IUnknown* param, Script* script);
    ~LineProcessor() override;

    bool PrepareDemuxer(char* data, int length) override;
    net::server::IProtocolDemuxer* GetDemuxer() override;
    bool IsHandshakeRequired() override;
    net::server::IProtocolHandshaker* GetHandshaker() override;
    net::server::IProtocolExecutor* GetExecutor() override;
    net::server::IProtocolMuxer* GetMuxer() override;
    void ProcessDisconnect() override;
    bool NeedToKeepConnection() override;
    bool PostProcessRequest(com::IUnknown* request,
                            net::server::IProtocolExecutor* executor) override;

private:
    class Demuxer;
    class Handshaker;
    class Executor;
    class Muxer;

    Script* m_script;
    Demuxer* m_demuxer;
    Handshaker* m_handshaker;
    Executor* m_executor;
    Muxer* m_muxer;
};

class LineThread : public net::server::CServerThread {
public:
    explicit LineThread(Script* script) : m_script(script) { ++m_script->threads; }
    ~LineThread() override { --m_script->threads; }
    int GetMaxAcceptableCounts() override { return m_script->maxPerThread; }
    net::server::CServerProtocolProcessor* CreateProtocolProcessor(int fd, net::CSocket* socket,
                                                                   com::IUnknown* param) override;

private:
    Script* m_script;
};

class LineManager : public net::server::CServerThreadManager {
public:
    explicit LineManager(Script* script) : m_script(script) { ++m_script->managers; }
    ~LineManager() override { --m_script->managers; }
    com::IUnknown* GetServerThreadParam(int, net::CSocket*) override { return param; }
    net::server::CServerThread* CreateServerThread() override;
    void BeforeStopAllThreads() override { ++m_script->before; }
    void AfterStopAllThreads() override { ++m_script->after; }

    com::IUnknown* param = nullptr;

private:
    Script* m_script;
};

class LineServer : public net::server::CSocketServerEx {
public:
    explicit LineServer(Script* script, unsigned int port = 0)
        : CSocketServerEx(port), m_script(script) {}
    net::server::CServerThreadManager* CreateThreadManager() override;

private:
    Script* m_script;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_SERVER_LINEPROTOCOL_H_
