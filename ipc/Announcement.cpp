#include "ipc/Announcement.h"

#include <unistd.h>

#include "ipc/Fifo.h"
#include "ipc/PathLimit.h"
#include "kpl/ipc/PipePath.h"

namespace kpl::ipc {

void WakeAcceptStep(const char* serverName) {
    char path[kPathSize] = {};
    const Breaker breaker;
    const WaitLimit atOnce(&breaker, 0);
    if (!GetPipeServerRootPath(serverName, path, kPathSize)) {
        return;
    }
    const int descriptor = OpenFifoForWriting(path, atOnce);
    if (descriptor != -1) {
        const Announcement wake{};
        (void)WriteFifo(descriptor, reinterpret_cast<const char*>(&wake), sizeof(wake), atOnce);
        close(descriptor);
    }
}

}  // namespace kpl::ipc
