#include "kpl/rpc/RpcCall.h"

#include "kpl/tools/DebugLog.h"

namespace kpl::rpc {

void ComplainAboutCallback(unsigned int id) {
    tools::ForceDumpDbgMsg("RpcCall: ????? The arguments of a callback do not fit. ID(%d)\n",
                           static_cast<int>(id));
}

}  // namespace kpl::rpc
