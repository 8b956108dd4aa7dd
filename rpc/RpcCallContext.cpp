#include "kpl/rpc/RpcClient.h"
#include "kpl/tools/DebugLog.h"
#include "rpc/CommandBuffer.h"

namespace kpl::rpc {

// One buffer for both directions: the command is built and sent from it, the result overwrites it.
RpcClient::CallContext::CallContext()
    : m_buffer(new char[kMaxCommandSize]()),
      m_muxer(new RpcCommandMuxer(m_buffer, kMaxCommandSize)),
      m_demuxer(new RpcCommandDemuxer(m_buffer, kMaxCommandSize)),
      m_resultEvent(new os::CEvent(false)),
      m_early(new char[kMaxCommandSize]) {}

RpcClient::CallContext::~CallContext() {
    delete m_demuxer;
    delete m_muxer;
    delete[] m_buffer;
    delete[] m_early;
    m_resultEvent->Set();
    delete m_resultEvent;
    tools::DumpDbgMsg("RpcClient::CallContext::~CallContext(): ...\n");
}

void RpcClient::CallContext::Detach() {
    m_detached = true;
    m_resultEvent->Set();
}

}  // namespace kpl::rpc
