#include "cli/CommandStream.h"

#include <stdint.h>
#include <string.h>

#include "cli/Limits.h"
#include "kpl/rpc/RpcCommandDemuxer.h"

namespace kpl::cli {

namespace {

constexpr size_t kHeaderSize = 16;
constexpr size_t kTotalSizeOffset = 8;

uint32_t WordAt(const std::string& bytes, size_t at) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + at, sizeof(word));
    return word;
}

bool IsKnownType(uint32_t type) {
    return type == rpc::RPC_COMMAND_INVOKE || type == rpc::RPC_COMMAND_RESULT ||
           type == rpc::RPC_COMMAND_CALLBACK;
}

bool IsValid(std::string* command) {
    const rpc::RpcCommandDemuxer demuxer(command->data(), static_cast<int>(command->size()));
    const bool named =
        demuxer.GetCommandType() != rpc::RPC_COMMAND_INVOKE || demuxer.GetFunctionName() != nullptr;
    return demuxer.IsValidCommand() && named;
}

// Whether a command may begin with these bytes; `*size` is what it then takes, 0 if it is not known
// yet.
bool CanBegin(const std::string& bytes, size_t* size) {
    *size = 0;
    if (bytes.size() >= sizeof(uint32_t) && !IsKnownType(WordAt(bytes, 0))) {
        return false;
    }
    if (bytes.size() < kHeaderSize) {
        return true;
    }
    *size = WordAt(bytes, kTotalSizeOffset);
    return *size >= kHeaderSize && *size <= kMaxCommandSize;
}

}  // namespace

void CommandStream::Add(const std::string& bytes, const Sink& sink) {
    m_pending += bytes;
    size_t size = 0;
    while (!m_pending.empty()) {
        if (!CanBegin(m_pending, &size)) {
            End(sink);
            return;
        }
        if (size == 0 || size > m_pending.size()) {
            return;
        }
        std::string command = m_pending.substr(0, size);
        if (!IsValid(&command)) {
            End(sink);
            return;
        }
        m_pending.erase(0, size);
        sink({true, std::move(command)});
    }
}

void CommandStream::End(const Sink& sink) {
    if (!m_pending.empty()) {
        std::string rest;
        rest.swap(m_pending);
        sink({false, std::move(rest)});
    }
}

}  // namespace kpl::cli
