// The debug output of a command: one message a piece, so that a reader of the log can put a line
// together without the library building it in a buffer.
#include <limits.h>

#include <algorithm>

#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcParamWalk.h"
#include "kpl/tools/DebugLog.h"

namespace kpl::rpc {

using namespace detail;

namespace {

using tools::ForceDumpDbgMsg;

// What a callback parameter holds.
struct CallbackWords {
    uint32_t proxy;
    uint32_t function;
};

// The value here as a T, zero when the command ends before it does.
template <class T>
T Value(const ParamWalk& walk) {
    T value{};
    if (walk.Space() >= static_cast<int64_t>(sizeof(T))) {
        memcpy(&value, walk.Value(), sizeof(T));
    }
    return value;
}

// Truncates; what int cannot hold becomes its nearest value, and what is no number 0.
int ToInt(double value) {
    if (value != value) {
        return 0;
    }
    if (value >= INT_MAX) {
        return INT_MAX;
    }
    return value <= INT_MIN ? INT_MIN : static_cast<int>(value);
}

const char* Printable(const char* text) {
    return text != nullptr ? text : "(null)";
}

// The number to print; false for a code that is not a number's.
bool NumberAt(const ParamWalk& walk, int* number) {
    switch (walk.Code()) {
        case RPC_PARAM_BOOL:
        case RPC_PARAM_CHAR:
        case RPC_PARAM_UCHAR:
            *number = Value<uint8_t>(walk);
            return true;
        case RPC_PARAM_INT:
        case RPC_PARAM_LONG:
        case RPC_PARAM_UINT:
        case RPC_PARAM_ULONG:
            *number = Value<int32_t>(walk);
            return true;
        case RPC_PARAM_LONGLONG:
        case RPC_PARAM_ULONGLONG:
            *number = static_cast<int32_t>(Value<int64_t>(walk));
            return true;
        case RPC_PARAM_SHORT:
            *number = Value<int16_t>(walk);
            return true;
        case RPC_PARAM_USHORT:
            *number = Value<uint16_t>(walk);
            return true;
        case RPC_PARAM_DOUBLE:
            *number = ToInt(Value<double>(walk));
            return true;
        case RPC_PARAM_FLOAT:
            *number = ToInt(static_cast<double>(Value<float>(walk)));
            return true;
        default:
            return false;
    }
}

void DumpParam(const ParamWalk& walk) {
    int number = 0;
    if (NumberAt(walk, &number)) {
        ForceDumpDbgMsg("%d", number);
        return;
    }
    switch (walk.Code()) {
        case RPC_PARAM_STRING:
            ForceDumpDbgMsg("%s", Printable(walk.String()));
            break;
        case RPC_PARAM_STRUCT:
            ForceDumpDbgMsg("CLASS/STRUCTURE");
            break;
        case RPC_PARAM_CALLBACK:
            // The first of two words, and only if both are there.
            ForceDumpDbgMsg("0x%x", Value<CallbackWords>(walk).proxy);
            break;
        default:
            ForceDumpDbgMsg("?????");
            break;
    }
}

}  // namespace

void RpcCommandDemuxer::DumpParams(int count) const {
    ParamWalk walk = Walk();
    for (int i = 0; i < count && walk.HasParam(); ++i) {
        if (i > 0) {
            ForceDumpDbgMsg(", ");
        }
        DumpParam(walk);
        if (!walk.HasHeader()) {
            break;
        }
        walk.Next();
    }
}

void RpcCommandDemuxer::Dump() const {
    if (!tools::IsDumpLogEnabled()) {
        return;
    }
    int listed = std::max(GetCommandCounts(), 0);
    switch (GetCommandType()) {
        case RPC_COMMAND_INVOKE:
            ForceDumpDbgMsg("RpcCommandDemuxer::Dump(): Invoke %s(", Printable(GetFunctionName()));
            --listed;  // the name itself, its last parameter
            break;
        case RPC_COMMAND_RESULT:
            ForceDumpDbgMsg("RpcCommandDemuxer::Dump(): Result (");
            break;
        default:
            // Callbacks too: they have always been dumped like this.
            ForceDumpDbgMsg("RpcCommandDemuxer::Dump(): ????? Invalid command type\n");
            return;
    }
    DumpParams(listed);
    ForceDumpDbgMsg(")\n");
}

}  // namespace kpl::rpc
