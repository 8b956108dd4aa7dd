#ifndef KPL_OS_SLEEP_H_
#define KPL_OS_SLEEP_H_

#include "kpl/Export.h"

namespace kpl::os {

// Sleeps `ms` milliseconds, also when signals arrive meanwhile; 0 and below return at once.
// Any thread.
KPL_EXPORT void osal_Sleep(long ms);

}  // namespace kpl::os

#endif  // KPL_OS_SLEEP_H_
