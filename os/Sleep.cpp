#include "kpl/os/Sleep.h"

#include <errno.h>
#include <time.h>

namespace kpl::os {

void osal_Sleep(long ms) {
    if (ms <= 0) {
        return;
    }
    timespec left{};
    left.tv_sec = ms / 1000;
    left.tv_nsec = (ms % 1000) * 1000000;
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace kpl::os
