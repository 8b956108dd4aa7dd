#include "kpl/rpc/RpcTypedParam.h"

#include <string.h>

#include "kpl/rpc/RpcCommandFormat.h"

namespace kpl::rpc {

using namespace detail;

namespace {

// Every code stands for its group: readers treat the members of a group alike.
int Group(int type) {
    switch (type) {
        case RPC_PARAM_CHAR:
        case RPC_PARAM_UCHAR:
            return RPC_PARAM_BOOL;
        case RPC_PARAM_UINT:
        case RPC_PARAM_ULONG:
            return RPC_PARAM_LONG;
        case RPC_PARAM_ULONGLONG:
            return RPC_PARAM_LONGLONG;
        default:
            return type;
    }
}

// The value's bytes if the parameter has that code; null otherwise.
char* BytesOf(const RpcCommandDemuxer& command, int index, RpcParamType type, int* length) {
    *length = 0;
    return command.GetParamType(index) == type ? command.GetBytes(index, length) : nullptr;
}

}  // namespace

bool HasScalar(const RpcCommandDemuxer& command, int index, RpcParamType type, int length) {
    int found = 0;
    return Group(command.GetParamType(index)) == Group(type) &&
           command.GetBytes(index, &found) != nullptr && found == length;
}

bool HasString(const RpcCommandDemuxer& command, int index) {
    int length = 0;
    const char* const bytes = BytesOf(command, index, RPC_PARAM_STRING, &length);
    return bytes != nullptr && memchr(bytes, '\0', static_cast<size_t>(length)) != nullptr;
}

bool HasArray(const RpcCommandDemuxer& command, int index) {
    int length = 0;
    char* const bytes = BytesOf(command, index, RPC_PARAM_STRUCT, &length);
    RpcArray array;
    return bytes != nullptr && array.Retrieve(bytes, length) > 0;
}

bool HasEpgDataList(const RpcCommandDemuxer& command, int index) {
    int length = 0;
    const char* const bytes = BytesOf(command, index, RPC_PARAM_STRUCT, &length);
    if (bytes == nullptr || length < 8) {
        return false;
    }
    // A list without records and a refused one both come out empty; only the first says so itself.
    const bool announcesRecords = LoadInt(bytes) > 0 && LoadWord(bytes + 4) != 0;
    return !announcesRecords || command.Get<EpgDataList>(index).count > 0;
}

}  // namespace kpl::rpc
