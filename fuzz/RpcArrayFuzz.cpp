// Reads any bytes as the serialised form of an array, and as a parameter of a command. What can be
// read is written back, and gives the bytes that it was read from.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>

#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"

namespace {

using namespace kpl::rpc;

constexpr int kHeader = 8;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

int IntAt(const char* bytes) {
    int value = 0;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

// The bytes that `array` takes, or 0 where they would not lie inside.
int ExpectedSize(const char* bytes, int size) {
    if (size < kHeader) {
        return 0;
    }
    const int64_t total = IntAt(bytes + 4);
    return total < 0 || total + kHeader > size ? 0 : static_cast<int>(total) + kHeader;
}

void WriteBack(const RpcArray& array, const char* bytes, int size) {
    Require(array.GetSize() == size && array.GetElementCounts() == IntAt(bytes));
    std::string written(static_cast<size_t>(size), '.');
    Require(array.Convert(written.data(), size - 1) == 0);
    Require(array.Convert(written.data(), size) == size);
    Require(memcmp(written.data(), bytes, static_cast<size_t>(size)) == 0);
}

void Travel(const RpcArray& array) {
    static char buffer[1 << 16];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    if (!muxer.Push(array)) {
        return;
    }
    Require(muxer.Finish(RPC_COMMAND_INVOKE, "Take", 1) > 0);
    const RpcCommandDemuxer command(buffer, sizeof(buffer));
    const auto taken = command.Get<RpcArray>(0);
    const auto size = static_cast<size_t>(array.GetTotalSizeInBytes());
    Require(taken.GetElementCounts() == array.GetElementCounts());
    Require(taken.GetTotalSizeInBytes() == array.GetTotalSizeInBytes());
    Require(size == 0 || memcmp(taken.GetData(), array.GetData(), size) == 0);
    Require(strcmp(command.GetFunctionName(), "Take") == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t dataSize) {
    const std::unique_ptr<char[]> bytes(new char[dataSize]);
    std::copy(data, data + dataSize, bytes.get());
    const int size = static_cast<int>(dataSize);
    RpcArray array;
    const int consumed = array.Retrieve(bytes.get(), size);
    Require(consumed == ExpectedSize(bytes.get(), size));
    if (consumed > 0) {
        WriteBack(array, bytes.get(), consumed);
        Travel(array);
    }
    return 0;
}
