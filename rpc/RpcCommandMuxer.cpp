#include "kpl/rpc/RpcCommandMuxer.h"

#include <string.h>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/tools/DebugLog.h"
#include "rpc/CommandFormat.h"

namespace kpl::rpc {

RpcCommandMuxer::RpcCommandMuxer(char* buf, int len)
    : m_buffer(buf), m_capacity(len), m_size(0), m_count(0), m_finishedSize(0) {}

// Where the value of the next parameter goes; null, with the command discarded, if `length` bytes
// and the parameter's header do not fit. Nothing is written, so a value that lies in this buffer
// can still be moved to its place.
char* RpcCommandMuxer::BeginParam(int64_t length) {
    if (m_size == 0) {
        m_size = kHeaderSize;
        m_finishedSize = 0;
    }
    if (m_buffer == nullptr || int64_t{m_capacity} - m_size < length + kParamHeaderSize) {
        Discard();
        return nullptr;
    }
    return m_buffer + m_size + kParamHeaderSize;
}

// Completes the parameter whose value has been written.
bool RpcCommandMuxer::EndParam(RpcParamType type, int64_t length) {
    StoreInt(m_buffer + m_size, type);
    StoreInt(m_buffer + m_size + kParamLengthOffset, static_cast<int32_t>(length));
    m_size += static_cast<int>(length) + kParamHeaderSize;
    ++m_count;
    return true;
}

// What every failed push does.
bool RpcCommandMuxer::Discard() {
    m_size = 0;
    m_count = 0;
    m_finishedSize = 0;
    return false;
}

bool RpcCommandMuxer::PushBytes(RpcParamType type, const void* value, int length) {
    if (length < 0 || (value == nullptr && length > 0)) {
        return Discard();
    }
    char* to = BeginParam(length);
    if (to == nullptr) {
        return false;
    }
    if (length > 0) {
        memmove(to, value, static_cast<size_t>(length));
    }
    return EndParam(type, length);
}

bool RpcCommandMuxer::PushString(const char* text) {
    const size_t characters = text != nullptr ? strlen(text) : 0;
    const auto length = static_cast<int64_t>(characters) + 1;
    char* to = BeginParam(length);
    if (to == nullptr) {
        return false;
    }
    if (characters > 0) {
        memmove(to, text, characters);
    }
    to[characters] = '\0';
    return EndParam(RPC_PARAM_STRING, length);
}

bool RpcCommandMuxer::PushCallback(const RpcCallbackContext& context) {
    if (context.IsLost()) {
        return Discard();
    }
    return PushBytes(RPC_PARAM_CALLBACK, &context, static_cast<int>(sizeof(context)));
}

bool RpcCommandMuxer::PushStruct(const RpcArray& array) {
    char* to = BeginParam(array.GetHeaderSize());
    if (to == nullptr) {
        return false;
    }
    const int written = array.Convert(to, m_capacity - m_size - kParamHeaderSize);
    return written > 0 ? EndParam(RPC_PARAM_STRUCT, written) : Discard();
}

bool RpcCommandMuxer::PushStruct(const EpgDataList& list) {
    constexpr int kListHeaderSize = 8;
    char* to = BeginParam(kListHeaderSize);
    if (to == nullptr) {
        return false;
    }
    EpgDataList source = list;
    const int size =
        ConvertEpgDataList::ConvertToBytes(source, to, m_capacity - m_size - kParamHeaderSize);
    if (size <= 0) {
        return Discard();
    }
    if (list.items == nullptr) {
        // The size counts records that are not there; what the buffer held before is not sent.
        memset(to + kListHeaderSize, 0, static_cast<size_t>(size - kListHeaderSize));
    }
    return EndParam(RPC_PARAM_STRUCT, size);
}

int RpcCommandMuxer::Finish(int type, const char* functionName, unsigned int id) {
    if (type == RPC_COMMAND_INVOKE) {
        if (functionName == nullptr || *functionName == '\0' || !PushString(functionName)) {
            return 0;
        }
    }
    if (m_buffer == nullptr || m_capacity < kHeaderSize) {
        tools::ForceDumpDbgMsg("RpcCommandMuxer::Finish(): ?????????? Buffer is too small\n");
        Reset();
        return 0;
    }
    if (m_size == 0 && m_count == 0) {
        m_size = kHeaderSize;
    }
    StoreInt(m_buffer + kTypeOffset, type);
    StoreWord(m_buffer + kIdOffset, id);
    StoreInt(m_buffer + kTotalSizeOffset, m_size);
    StoreInt(m_buffer + kCountOffset, m_count);
    m_finishedSize = m_size;
    Reset();
    return m_finishedSize;
}

bool RpcCommandMuxer::IsValidCommand() const {
    return m_size >= kHeaderSize;
}

void RpcCommandMuxer::Reset() {
    m_size = 0;
    m_count = 0;
}

}  // namespace kpl::rpc
