#include "kpl/rpc/RpcCommandDemuxer.h"

#include <string.h>

#include <algorithm>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandFormat.h"
#include "kpl/rpc/RpcParamWalk.h"

namespace kpl::rpc {

using namespace detail;

namespace {

constexpr int kEpgHeaderSize = 8;

// A list without records is empty whatever its two words say.
bool HasEpgRecords(const char* block) {
    return LoadInt(block) >= 1 && LoadWord(block + 4) != 0;
}

bool HoldsEpgRecords(const char* block, int length) {
    return kEpgHeaderSize + int64_t{LoadInt(block)} * int64_t{sizeof(EpgData)} <= length;
}

}  // namespace

bool RpcCommandDemuxer::IsValidCommand() const {
    const int type = GetCommandType();
    if (type != RPC_COMMAND_INVOKE && type != RPC_COMMAND_RESULT && type != RPC_COMMAND_CALLBACK) {
        return false;
    }
    const int total = HeaderInt(kTotalSizeOffset);
    if (total > m_length || GetCommandCounts() < 0) {
        return false;
    }
    ParamWalk walk = Walk();
    while (walk.HasHeader()) {
        walk.Next();
    }
    return walk.Left() == 0 && walk.Offset() == total;
}

int RpcCommandDemuxer::GetCommandCounts(RpcParamType type) const {
    int counts = 0;
    ParamWalk walk = Walk();
    while (walk.HasParam()) {
        counts += walk.Code() == type ? 1 : 0;
        if (!walk.HasHeader()) {
            break;
        }
        walk.Next();
    }
    return counts;
}

int RpcCommandDemuxer::GetParamType(int index) const {
    ParamWalk walk = Walk();
    return walk.SkipTo(index) ? walk.Code() : 0;
}

bool RpcCommandDemuxer::HasParamType(RpcParamType type) const {
    return GetCommandCounts(type) > 0;
}

char* RpcCommandDemuxer::GetBytes(int index, int* length) const {
    ParamWalk walk = Walk();
    *length = 0;
    if (!walk.SkipTo(index) || !walk.HasHeader()) {
        return nullptr;
    }
    *length = static_cast<int>(std::min(walk.Length(), walk.Space()));
    return walk.Value();
}

void RpcCommandDemuxer::ReadStruct(int index, RpcArray* array) const {
    int length = 0;
    char* value = GetBytes(index, &length);
    if (array->Retrieve(value, length) == 0) {
        *array = RpcArray();
    }
}

void RpcCommandDemuxer::ReadStruct(int index, EpgDataList* list) const {
    int length = 0;
    char* block = GetBytes(index, &length);
    const bool readable = block != nullptr && length >= kEpgHeaderSize && HasEpgRecords(block) &&
                          HoldsEpgRecords(block, length);
    if (!readable || RetrieveEpgDataList::RetrieveFromBytes(*list, block, length) == 0) {
        *list = EpgDataList();
    }
}

}  // namespace kpl::rpc
