#include "cli/Param.h"

#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"

namespace kpl::cli {

using rpc::RpcCommandDemuxer;

Params ReadParams(const RpcCommandDemuxer& command, int first) {
    const bool isInvoke = command.GetCommandType() == rpc::RPC_COMMAND_INVOKE;
    const int end = command.GetCommandCounts() - (isInvoke ? 1 : 0);
    Params params;
    for (int index = first; index < end; ++index) {
        int length = 0;
        const char* const bytes = command.GetBytes(index, &length);
        Param param;
        param.code = command.GetParamType(index);
        if (bytes != nullptr) {
            param.bytes.assign(bytes, static_cast<size_t>(length));
        }
        params.push_back(std::move(param));
    }
    return params;
}

bool PushParam(rpc::RpcCommandMuxer* muxer, const Param& param) {
    return muxer->PushBytes(static_cast<rpc::RpcParamType>(param.code), param.bytes.data(),
                            static_cast<int>(param.bytes.size()));
}

size_t InvokeSize(const Params& params, const std::string& function) {
    constexpr size_t kHeader = 16;
    constexpr size_t kParamHeader = 8;
    size_t size = kHeader + kParamHeader + function.size() + 1;
    for (const Param& param : params) {
        size += kParamHeader + param.bytes.size();
    }
    return size;
}

}  // namespace kpl::cli
