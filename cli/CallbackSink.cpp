#include "cli/CallbackSink.h"

#include <stdint.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

#include "kpl/rpc/RpcCommandDemuxer.h"

namespace kpl::cli {

CallbackSink::CallbackSink(size_t limit)
    : m_limit(limit), m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {}

CallbackSink::~CallbackSink() {
    if (m_event != -1) {
        close(m_event);
    }
}

rpc::RpcCallbackContext CallbackSink::Context() {
    return {this, &CallbackSink::Run};
}

void CallbackSink::Run(void* sink, rpc::RpcCommandDemuxer* command) {
    auto* const self = static_cast<CallbackSink*>(sink);
    const std::lock_guard<std::mutex> lock(self->m_lock);
    if (self->m_arrived.size() < self->m_limit) {
        self->m_arrived.push_back(ReadParams(*command, 1));  // parameter 0 is its number
        const uint64_t one = 1;
        (void)!write(self->m_event, &one, sizeof(one));
    }
}

std::optional<Params> CallbackSink::Take() {
    const std::lock_guard<std::mutex> lock(m_lock);
    uint64_t one = 0;
    if (m_arrived.empty() || read(m_event, &one, sizeof(one)) < 0) {
        return std::nullopt;
    }
    Params params = std::move(m_arrived.front());
    m_arrived.pop_front();
    return params;
}

}  // namespace kpl::cli
