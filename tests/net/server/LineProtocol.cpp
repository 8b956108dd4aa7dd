#include "tests/net/server/LineProtocol.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

namespace kpl::test {

using net::server::IProtocolDemuxer;
using net::server::IProtocolExecutor;
using net::server::IProtocolHandshaker;
using net::server::IProtocolMuxer;

void Script::Note(const std::string& line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(line);
}

std::vector<std::string> Script::Lines() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

LineRequest::LineRequest(Script* script, std::string text)
    : m_script(script), m_text(std::move(text)) {
    ++m_script->requests;
}

LineRequest::~LineRequest() {
    --m_script->requests;
}

class LineProcessor::Demuxer : public IProtocolDemuxer {
public:
    explicit Demuxer(Script* script) : m_script(script) {}

    com::IUnknown* Demux(char* data, int length, int& consumed) override {
        EXPECT_EQ(data[length], '\0');
        const auto* end = static_cast<char*>(memchr(data, '\n', static_cast<size_t>(length)));
        consumed = end == nullptr ? 0 : static_cast<int>(end - data) + 1;
        if (end == nullptr) {
            return nullptr;
        }
        text.assign(data, static_cast<size_t>(consumed - 1));
        ++m_type;
        if (text == "bad") {
            consumed = -7;
        }
        return text == "none" ? nullptr : new LineRequest(m_script, text);
    }

    int GetDemuxedType() override { return m_type; }

    std::string text;  // of the last line

private:
    Script* m_script;
    int m_type = 100;
};

class LineProcessor::Handshaker : public IProtocolHandshaker {
public:
    explicit Handshaker(Script* script) : m_script(script) {}

    int ProcessHandshake(com::IUnknown* request) override {
        const std::string& text = static_cast<LineRequest*>(request)->Text();
        if (text == "more" && !m_asked) {
            m_asked = true;
            return 0;
        }
        return text == "refuse" ? -3 : 1;
    }
    int GetAnswerLength() override {
        return m_script->missing == Missing::AnswerLength ? 0 : static_cast<int>(strlen(kAnswer));
    }
    const char* GetAnswerData() override {
        return m_script->missing == Missing::AnswerData ? nullptr : kAnswer;
    }

private:
    static constexpr const char* kAnswer = "welcome\n";

    Script* m_script;
    bool m_asked = false;
};

class LineProcessor::Executor : public IProtocolExecutor {
public:
    Executor(LineProcessor* processor, Script* script) : m_processor(processor), m_script(script) {}

    int Execute(com::IUnknown* request) override {
        const std::string& text = static_cast<LineRequest*>(request)->Text();
        m_script->Note(text);
        if (m_script->onExecute) {
            m_script->onExecute(m_processor);
        }
        if (text == "hold") {
            ++m_script->holding;
            m_script->release.Wait(-1);
        }
        m_hasResponse = text != "silent";
        m_isBig = text.compare(0, 4, "big ") == 0;
        m_left = m_isBig ? static_cast<size_t>(std::stoul(text.substr(4))) : 0;
        m_text = m_isBig ? std::string() : text + "\n";
        return text == "fail" ? -1 : 0;
    }
    bool IsResponseReady() override { return true; }
    bool HasResponseData() override { return m_hasResponse; }

    int ReadResponse(char* buffer, int size) override {
        ++m_script->pieces;
        const auto room = static_cast<size_t>(size);
        if (m_isBig) {
            const size_t length = std::min(room, m_left);
            memset(buffer, 'x', length);
            m_left -= length;
            return static_cast<int>(length);
        }
        const size_t length = std::min(room, m_text.size());
        memcpy(buffer, m_text.data(), length);
        m_text.erase(0, length);
        return static_cast<int>(length);
    }
    void EndResponse() override { ++m_script->ended; }

    bool IsBig() const { return m_isBig; }

private:
    LineProcessor* m_processor;
    Script* m_script;
    bool m_hasResponse = false;
    bool m_isBig = false;
    size_t m_left = 0;
    std::string m_text;
};

class LineProcessor::Muxer : public IProtocolMuxer {
public:
    void SetExecutor(IProtocolExecutor* executor) override {
        m_executor = executor;
        m_begun = static_cast<Executor*>(executor)->IsBig();
    }
    bool IsResponseReady() override { return m_executor->IsResponseReady(); }
    bool HasResponseData() override { return m_executor->HasResponseData(); }
    int ReadResponse(char* buffer, int size) override {
        if (m_begun) {
            return m_executor->ReadResponse(buffer, size);
        }
        m_begun = true;
        buffer[0] = '>';
        return 1 + m_executor->ReadResponse(buffer + 1, size - 1);  // in one piece, for the network
    }
    void EndResponse() override { m_executor->EndResponse(); }

private:
    IProtocolExecutor* m_executor = nullptr;
    bool m_begun = false;
};

LineProcessor::LineProcessor(net::CSocket* socket, com::IUnknown* param, Script* script)
    : CServerProtocolProcessor(socket, param),
      m_script(script),
      m_demuxer(new Demuxer(script)),
      m_handshaker(new Handshaker(script)),
      m_executor(new Executor(this, script)),
      m_muxer(new Muxer) {
    ++m_script->processors;
    ++m_script->created;
    m_script->lastParam = param;
}

LineProcessor::~LineProcessor() {
    { const std::lock_guard<std::mutex> lock(m_script->lifetime); }
    delete m_muxer;
    delete m_executor;
    delete m_handshaker;
    delete m_demuxer;
    --m_script->processors;
}

bool LineProcessor::PrepareDemuxer(char*, int length) {
    EXPECT_GT(length, 0);
    ++m_script->prepared;
    return m_script->missing != Missing::Preparation;
}

IProtocolDemuxer* LineProcessor::GetDemuxer() {
    return m_script->missing == Missing::Demuxer ? nullptr : m_demuxer;
}

bool LineProcessor::IsHandshakeRequired() {
    const std::string& text = m_demuxer->text;
    return m_script->handshake && (text == "hello" || text == "refuse" || text == "more");
}

IProtocolHandshaker* LineProcessor::GetHandshaker() {
    return m_script->missing == Missing::Handshaker ? nullptr : m_handshaker;
}

IProtocolExecutor* LineProcessor::GetExecutor() {
    return m_script->missing == Missing::Executor ? nullptr : m_executor;
}

IProtocolMuxer* LineProcessor::GetMuxer() {
    return m_script->missing == Missing::Muxer ? nullptr : m_muxer;
}

void LineProcessor::ProcessDisconnect() {
    ++m_script->disconnects;
}

bool LineProcessor::NeedToKeepConnection() {
    return m_script->keep;
}

bool LineProcessor::PostProcessRequest(com::IUnknown* request, IProtocolExecutor* executor) {
    return m_script->muxed ? CServerProtocolProcessor::PostProcessRequest(request, executor)
                           : WriteResponseWithoutMuxer(request, executor);
}

net::server::CServerProtocolProcessor* LineThread::CreateProtocolProcessor(int,
                                                                           net::CSocket* socket,
                                                                           com::IUnknown* param) {
    if (m_script->missing == Missing::Processor) {
        return nullptr;
    }
    m_script->lastThread = this;
    return new LineProcessor(socket, param, m_script);
}

net::server::CServerThread* LineManager::CreateServerThread() {
    if (m_script->missing == Missing::ServerThread) {
        return nullptr;
    }
    ++m_script->threadsCreated;
    return new LineThread(m_script);
}

net::server::CServerThreadManager* LineServer::CreateThreadManager() {
    return m_script->missing == Missing::Manager ? nullptr : new LineManager(m_script);
}

}  // namespace kpl::test
