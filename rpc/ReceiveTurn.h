#ifndef KPL_RPC_RECEIVETURN_H_
#define KPL_RPC_RECEIVETURN_H_

#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"

namespace kpl::rpc {

// Who receives from a connection: one thread at a time, either its reader or a caller that waits
// for its result. A caller that takes its result itself saves the hop from the reader's thread to
// its own, which is most of what a call costs. While calls follow one another the reader keeps
// back; it receives again when no call has come for a moment, and at once when a long one ends.
class ReceiveTurn {
public:
    // A connection begins: the turn is free. Before that, and after End, nobody gets it.
    void Begin();

    // Waits until the reader should receive. False after End. The reader's thread only.
    bool TakeAsReader();

    // For a caller: true if it receives from now on. Any thread.
    bool TryTake();

    // By whoever has it.
    void Give();

    // Nobody gets the turn any more; who has it keeps it until Give. Any thread.
    void End();

    // After End: waits until nobody has the turn.
    void AwaitGiven();

private:
    os::CCritSec m_lock;
    bool m_taken KPL_GUARDED_BY(m_lock) = false;
    bool m_ended KPL_GUARDED_BY(m_lock) = true;
    bool m_readerSleeps KPL_GUARDED_BY(m_lock) = false;   // until Give, not only for a moment
    unsigned int m_tries KPL_GUARDED_BY(m_lock) = 0;      // of callers, that got it or not
    unsigned int m_seenTries KPL_GUARDED_BY(m_lock) = 0;  // when the reader last looked
    os::CEvent m_readerWakes{false};
    os::CEvent m_given{true};
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RECEIVETURN_H_
