#include "kpl/rpc/RpcCommandMuxer.h"

#include <string.h>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::rpc {

using namespace detail;

bool RpcCommandMuxer::PushBytes(RpcParamType type, const void* value, int length) {
    if (length < 0 || (value == nullptr && length > 0)) {
        return Discard();
    }
    if (!HasRoom(int64_t{kParamHeaderSize} + length)) {
        return false;
    }
    if (length > 0) {
        memmove(NextValue(), value, static_cast<size_t>(length));
    }
    return EndParam(type, length);
}

bool RpcCommandMuxer::PushCallback(const RpcCallbackContext& context) {
    if (context.IsLost()) {
        return Discard();
    }
    return PushBytes(RPC_PARAM_CALLBACK, &context, static_cast<int>(sizeof(context)));
}

bool RpcCommandMuxer::PushStruct(const RpcArray& array) {
    if (!HasRoom(kParamHeaderSize + array.GetHeaderSize())) {
        return false;
    }
    const int written = array.Convert(NextValue(), m_capacity - m_size - kParamHeaderSize);
    return written > 0 ? EndParam(RPC_PARAM_STRUCT, written) : Discard();
}

bool RpcCommandMuxer::PushStruct(const EpgDataList& list) {
    constexpr int kListHeaderSize = 8;
    if (!HasRoom(kParamHeaderSize + kListHeaderSize)) {
        return false;
    }
    EpgDataList source = list;
    char* const to = NextValue();
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
    if (m_capacity < kHeaderSize) {
        tools::ForceDumpDbgMsg("RpcCommandMuxer::Finish(): ?????????? Buffer is too small\n");
        Reset();
        return 0;
    }
    m_finishedSize = m_size;
    StoreInt(m_buffer + kTotalSizeOffset, m_size);
    StoreInt(m_buffer + kCountOffset, m_count);
    StoreInt(m_buffer + kTypeOffset, type);
    StoreWord(m_buffer + kIdOffset, id);
    m_size = kHeaderSize;
    m_count = 0;
    return m_finishedSize;
}

}  // namespace kpl::rpc
