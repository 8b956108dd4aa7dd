#include "ipc/Breaker.h"

#include <stdint.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "os/WaitReadable.h"

namespace kpl::ipc {

Breaker::Breaker() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Breaker::~Breaker() {
    if (m_descriptor != -1) {
        close(m_descriptor);
    }
}

void Breaker::Break() {
    const uint64_t one = 1;
    // Fails only when it is broken to the brim already.
    (void)!write(m_descriptor, &one, sizeof(one));
}

bool Breaker::IsBroken() const {
    const timespec atOnce{};
    return os::WaitReadable(m_descriptor, &atOnce) != 0;
}

void Breaker::Mend() {
    uint64_t count = 0;
    (void)!read(m_descriptor, &count, sizeof(count));
}

}  // namespace kpl::ipc
