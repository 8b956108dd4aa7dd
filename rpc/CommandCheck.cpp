#include "rpc/CommandCheck.h"

#include "kpl/rpc/RpcCommandFormat.h"
#include "kpl/rpc/RpcParam.h"
#include "rpc/CommandBuffer.h"

namespace kpl::rpc {

using namespace detail;

namespace {

bool IsHeaderPossible(const char* bytes, int size) {
    if (size >= kIdOffset && LoadInt(bytes + kTypeOffset) != RPC_COMMAND_INVOKE) {
        return false;
    }
    if (size < kCountOffset) {
        return true;
    }
    const int total = LoadInt(bytes + kTotalSizeOffset);
    if (total < kHeaderSize || total > kMaxCommandSize || size >= total) {
        return false;
    }
    const int count = size < kHeaderSize ? 1 : LoadInt(bytes + kCountOffset);
    return count >= 1 && count <= (total - kHeaderSize) / kParamHeaderSize;
}

// The parameters as far as they have arrived.
bool AreParamsPossible(const char* bytes, int size) {
    const int64_t total = LoadInt(bytes + kTotalSizeOffset);
    const int count = LoadInt(bytes + kCountOffset);
    int64_t offset = kHeaderSize;
    int seen = 0;
    while (seen < count && offset + kParamHeaderSize <= size) {
        offset += int64_t{kParamHeaderSize} + LoadWord(bytes + offset + kParamLengthOffset);
        ++seen;
    }
    return seen < count ? offset < total : offset == total;
}

}  // namespace

bool CanBecomeInvoke(const char* bytes, int size) {
    return IsHeaderPossible(bytes, size) && (size < kHeaderSize || AreParamsPossible(bytes, size));
}

}  // namespace kpl::rpc
