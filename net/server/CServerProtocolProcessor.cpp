#include "kpl/net/server/CServerProtocolProcessor.h"

#include <string.h>

#include <algorithm>
#include <memory>
#include <new>

#include "kpl/tools/DebugLog.h"
#include "net/Closings.h"

namespace kpl::net::server {

using tools::DumpDbgMsg;
using tools::ForceDumpDbgMsg;

namespace {

constexpr int kBufferSize = 8192;
constexpr int kTransferSize = 262144;

void ReleaseIfAny(com::IUnknown* request) {
    if (request != nullptr) {
        request->Release();
    }
}

// `source` is a muxer or an executor: both give a response in the same way.
template <typename Source>
bool SendResponse(CSocket* socket, Source* source) {
    if (!source->IsResponseReady() || !source->HasResponseData()) {
        return false;
    }
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kTransferSize]);
    if (buffer == nullptr) {
        return false;
    }
    for (;;) {
        const int length =
            std::min(source->ReadResponse(buffer.get(), kTransferSize), kTransferSize);
        // A short send is not continued: what is left of the piece is dropped.
        if (length < 1 || socket->Write(buffer.get(), static_cast<unsigned int>(length), 0) < 0) {
            break;
        }
    }
    source->EndResponse();
    return true;
}

}  // namespace

CServerProtocolProcessor::CServerProtocolProcessor(CSocket* socket, com::IUnknown*)
    : m_socket(socket), m_buffer(new char[kBufferSize]) {}

CServerProtocolProcessor::~CServerProtocolProcessor() {
    delete[] m_buffer;
    if (m_socket != nullptr) {
        m_socket->Disconnect();
        delete m_socket;
    }
}

void CServerProtocolProcessor::ProcessDisconnect() {}

bool CServerProtocolProcessor::NeedToKeepConnection() {
    return false;
}

bool CServerProtocolProcessor::PostProcessRequest(com::IUnknown* request,
                                                  IProtocolExecutor* executor) {
    return WriteResponse(request, executor);
}

bool CServerProtocolProcessor::Process() {
    return m_connected && m_socket != nullptr && Receive() && ServeReceived();
}

bool CServerProtocolProcessor::Receive() {
    const int available = m_socket->GetAvailableDataLength();
    if (available == 0) {
        DumpDbgMsg("CServerProtocolProcessor::Process(): Socket shutdown by peer.\n");
        ProcessDisconnect();
        return false;
    }
    if (kBufferSize - m_length <= 0) {
        ForceDumpDbgMsg("CServerProtocolProcessor::Process(): ???????? Buffer is too small.\n");
        return false;
    }
    // One byte is left for the zero. In a full buffer that makes a read of 0 bytes, which fails.
    const int count = std::min(available, kBufferSize - 1 - m_length);
    const int received = m_socket->Read(m_buffer + m_length, static_cast<unsigned int>(count), 0);
    DumpDbgMsg("CServerProtocolProcessor::Process(): Read=%d(offset=%d)\n", received, m_length);
    if (received < 1) {
        return false;
    }
    m_hasReadAll = received == available;
    m_length += received;
    m_buffer[m_length] = '\0';
    return true;
}

bool CServerProtocolProcessor::ServeReceived() {
    int offset = 0;
    do {
        int consumed = 0;
        com::IUnknown* const request = Demux(m_buffer + offset, m_length, consumed);
        DumpDbgMsg("CServerProtocolProcessor::Process(): Demuxed(Ret=%d, Offset=%d)\n", consumed,
                   offset);
        if (consumed == 0) {
            return KeepForLater(offset, request);
        }
        if (consumed < 0) {
            ReleaseIfAny(request);
            return false;
        }
        if (request == nullptr) {
            return false;
        }
        const Outcome outcome = ServeRequest(request);
        if (outcome == Outcome::Incomplete) {
            return KeepForLater(offset, request);
        }
        if (outcome == Outcome::Failed) {
            return false;
        }
        offset += consumed;
        m_length -= consumed;
        DumpDbgMsg("CServerProtocolProcessor::Process(): Demuxed=%d, Rest=%d\n", consumed,
                   m_length);
        if (m_interrupted) {
            return false;  // What else was received is not executed any more.
        }
    } while (m_length > 0);
    m_length = 0;  // A demuxer may claim more than there was.
    return NeedToKeepConnection();
}

bool CServerProtocolProcessor::KeepForLater(int offset, com::IUnknown* request) {
    MoveDataToBeginOfBuffer(offset, m_length);
    ReleaseIfAny(request);
    return true;
}

// Releases the request, unless it is incomplete.
CServerProtocolProcessor::Outcome CServerProtocolProcessor::ServeRequest(com::IUnknown* request) {
    DumpDbgMsg("CServerProtocolProcessor::Process(): Demuxed Type(%d)\n", m_demuxedType);
    if (IsHandshakeRequired()) {
        return AnswerHandshake(request);
    }
    return ProcessRequest(request) ? Outcome::Done : Outcome::Failed;
}

CServerProtocolProcessor::Outcome CServerProtocolProcessor::AnswerHandshake(
    com::IUnknown* request) {
    const int result = Handshake(request);
    // The class name in this message has always been another one; log readers look for it.
    DumpDbgMsg("CWebSyncCmdProcessor::Process(): Handshake(%d)\n", result);
    if (result == 0) {
        return Outcome::Incomplete;
    }
    request->Release();
    return result < 0 ? Outcome::Failed : Outcome::Done;
}

com::IUnknown* CServerProtocolProcessor::Demux(char* data, int length, int& consumed) {
    if (m_socket == nullptr || data == nullptr || length < 1) {
        return nullptr;
    }
    consumed = -1;
    if (!m_demuxerPrepared) {
        m_demuxerPrepared = PrepareDemuxer(data, length);
        if (!m_demuxerPrepared) {
            return nullptr;
        }
    }
    IProtocolDemuxer* const demuxer = GetDemuxer();
    if (demuxer == nullptr) {
        DumpDbgMsg("CServerProtocolProcessor::Demux(): ????? Invalid demuxer\n");
        return nullptr;
    }
    m_demuxedType = demuxer->GetDemuxedType();
    return demuxer->Demux(data, length, consumed);
}

int CServerProtocolProcessor::Handshake(com::IUnknown* request) {
    if (m_handshaken || m_socket == nullptr || request == nullptr) {
        return -1;
    }
    IProtocolHandshaker* const handshaker = GetHandshaker();
    if (handshaker == nullptr) {
        return -1;
    }
    const int result = handshaker->ProcessHandshake(request);
    if (result < 1) {
        return result;
    }
    const int length = handshaker->GetAnswerLength();
    const char* const data = handshaker->GetAnswerData();
    if (length < 1 || data == nullptr) {
        return -1;
    }
    m_handshaken = true;
    return m_socket->Write(data, static_cast<unsigned int>(length), 0);
}

bool CServerProtocolProcessor::ProcessRequest(com::IUnknown* request) {
    os::CAutoLock lock(&m_lock);
    if (request == nullptr) {
        return false;
    }
    const bool done = Execute(request);
    request->Release();
    return done;
}

bool CServerProtocolProcessor::Execute(com::IUnknown* request) {
    IProtocolExecutor* const executor = GetExecutor();
    if (executor == nullptr) {
        DumpDbgMsg("CServerProtocolProcessor::ProcessRequest(): ??????? Invalud executor\n");
        return false;
    }
    const int result = executor->Execute(request);
    DumpDbgMsg("CServerProtocolProcessor::ProcessRequest(): Executor return(%d)\n", result);
    return result >= 0 && PostProcessRequest(request, executor);
}

bool CServerProtocolProcessor::WriteResponse(com::IUnknown* request, IProtocolExecutor* executor) {
    if (executor == nullptr || m_socket == nullptr || request == nullptr) {
        return false;
    }
    IProtocolMuxer* const muxer = GetMuxer();
    if (muxer == nullptr) {
        return false;
    }
    muxer->SetExecutor(executor);
    return SendResponse(m_socket, muxer);
}

bool CServerProtocolProcessor::WriteResponseWithoutMuxer(com::IUnknown* request,
                                                         IProtocolExecutor* executor) {
    if (executor == nullptr || m_socket == nullptr || request == nullptr) {
        return false;
    }
    return SendResponse(m_socket, executor);
}

void CServerProtocolProcessor::MoveDataToBeginOfBuffer(int offset, int length) {
    DumpDbgMsg("CServerProtocolProcessor::MoveDataToBeginOfBuffer(): Offset=%d, Len=%d\n", offset,
               length);
    if (offset <= 0 || length <= 0 || length > kBufferSize - offset) {
        return;
    }
    memmove(m_buffer, m_buffer + offset, static_cast<size_t>(length));
}

void CServerProtocolProcessor::Disconnect() {
    if (m_socket != nullptr) {
        m_socket->Disconnect();
    }
    m_connected = false;
    CountClosing();  // also of one without a socket
    DumpDbgMsg("CServerProtocolProcessor::Disconnect(): .....\n");
}

bool CServerProtocolProcessor::IsConnected() const {
    return m_connected && (m_socket == nullptr || m_socket->IsOpen());
}

// For a processor that is to be deleted once its Process returns; any thread.
void CServerProtocolProcessor::Interrupt() {
    m_interrupted = true;
    if (m_socket != nullptr) {
        m_socket->Interrupt();
    }
}

}  // namespace kpl::net::server
