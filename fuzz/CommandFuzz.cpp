// Feeds the demuxer, and what reads structures through it, bytes as a hostile peer would send them.
#include <android/log.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>

#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "kpl/tools/DebugLog.h"

// Takes the library's messages and drops them.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using namespace kpl::rpc;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// Touches every byte, so that the sanitizer sees where it lies.
size_t Touch(const void* bytes, size_t size) {
    const auto* at = static_cast<const unsigned char*>(bytes);
    size_t sum = 0;
    for (size_t i = 0; i < size; ++i) {
        sum += at[i];
    }
    return sum;
}

size_t TouchText(const char* text) {
    return text != nullptr ? strlen(text) : 0;
}

size_t ReadScalars(const RpcCommandDemuxer& demuxer, int index) {
    return static_cast<size_t>(demuxer.Get<bool>(index)) +
           static_cast<size_t>(demuxer.Get<unsigned short>(index)) +
           static_cast<size_t>(demuxer.Get<unsigned int>(index)) +
           static_cast<size_t>(demuxer.Get<unsigned long>(index)) +
           static_cast<size_t>(demuxer.Get<unsigned long long>(index)) +
           static_cast<size_t>(demuxer.Get<double>(index) > 0) +
           static_cast<size_t>(demuxer.Get<RpcCallbackContext>(index).IsLost()) +
           TouchText(demuxer.Get<const char*>(index));
}

size_t ReadList(const EpgDataList& list) {
    Require(list.count >= 0 && (list.count > 0) == (list.items != nullptr));
    size_t sum = 0;
    for (int i = 0; i < list.count; ++i) {
        for (const EpgText& text : list.items[i].text) {
            sum += TouchText(text);
        }
        sum += list.items[i].tail[5];
    }
    return sum;
}

// What was read can be written, and reads the same again.
void WriteBack(const EpgDataList& list, const RpcArray& array, const char* text) {
    static char buffer[1 << 16];
    RpcCommandMuxer muxer(buffer, sizeof(buffer));
    if (!muxer.Push(list) || !muxer.Push(array) || !muxer.Push(text)) {
        return;
    }
    Require(muxer.Finish(RPC_COMMAND_RESULT, nullptr, 1) > 0);
    const RpcCommandDemuxer demuxer(buffer, sizeof(buffer));
    Require(demuxer.IsValidCommand() && demuxer.GetSize() == muxer.GetFinishedSize());
    Require(demuxer.Get<EpgDataList>(0).count == list.count);
    const auto again = demuxer.Get<RpcArray>(1);
    const auto size = static_cast<size_t>(array.GetTotalSizeInBytes());
    Require(again.GetTotalSizeInBytes() == array.GetTotalSizeInBytes());
    Require(size == 0 || memcmp(again.GetData(), array.GetData(), size) == 0);
    Require(strcmp(demuxer.Get<const char*>(2), text != nullptr ? text : "") == 0);
}

size_t ReadStructures(const RpcCommandDemuxer& demuxer, int index) {
    int length = 0;
    const char* bytes = demuxer.GetBytes(index, &length);
    size_t sum = bytes != nullptr ? Touch(bytes, static_cast<size_t>(length)) : 0;
    const auto array = demuxer.Get<RpcArray>(index);
    sum += Touch(array.GetData(), static_cast<size_t>(array.GetTotalSizeInBytes()));
    const auto list = demuxer.Get<EpgDataList>(index);
    sum += ReadList(list) + ReadList(demuxer.Get<EpgDataList>(index));
    WriteBack(list, array, demuxer.Get<const char*>(index));
    return sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpl::tools::EnableDumpLog(true, false);
    const std::unique_ptr<char[]> bytes(new char[size]);
    std::copy(data, data + size, bytes.get());
    const RpcCommandDemuxer demuxer(bytes.get(), static_cast<int>(size));
    const bool valid = demuxer.IsValidCommand();
    Require((demuxer.GetSize() != 0) == valid && static_cast<size_t>(demuxer.GetSize()) <= size);
    Require(demuxer.HasParamType(RPC_PARAM_STRUCT) ==
            (demuxer.GetCommandCounts(RPC_PARAM_STRUCT) > 0));
    volatile size_t sum = TouchText(demuxer.GetFunctionName());
    demuxer.Dump();
    const int last = std::min(demuxer.GetCommandCounts(), 16);
    for (int index = -1; index <= last; ++index) {
        sum = sum + static_cast<size_t>(demuxer.GetParamType(index)) + ReadScalars(demuxer, index);
        sum = sum + ReadStructures(demuxer, index);
    }
    return 0;
}
