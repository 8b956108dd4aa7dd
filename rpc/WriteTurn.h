#ifndef KPL_RPC_WRITETURN_H_
#define KPL_RPC_WRITETURN_H_

#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "os/Deadline.h"

namespace kpl::rpc {

// One thread writes at a time. Unlike a lock it can be waited for with a limit: the one whose turn
// it is may be stuck behind a peer that does not read. Any thread.
class WriteTurn {
public:
    // False when the time is over.
    bool Take(const os::Deadline& deadline);
    void Give();

private:
    bool TakeIfFree();
    bool TryTake();

    os::CCritSec m_lock;
    bool m_taken KPL_GUARDED_BY(m_lock) = false;
    int m_waiters KPL_GUARDED_BY(m_lock) = 0;
    os::CEvent m_free{false};  // set by Give while somebody waits, reset by who finds it taken
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_WRITETURN_H_
