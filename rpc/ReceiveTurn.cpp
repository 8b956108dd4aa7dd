#include "rpc/ReceiveTurn.h"

#include "os/WaitReadable.h"

namespace kpl::rpc {

namespace {

// How long the reader keeps back after a call, and so how long what the server sends by itself can
// lie there when no further call comes.
constexpr long kQuietMs = 1;

}  // namespace

void ReceiveTurn::Begin() {
    os::CAutoLock lock(&m_lock);
    m_ended = false;
    m_taken = false;
    m_readerSleeps = false;
    m_seenTries = m_tries;
}

bool ReceiveTurn::TakeAsReader() {
    for (;;) {
        bool sleeps = false;
        {
            os::CAutoLock lock(&m_lock);
            const bool isQuiet = m_tries == m_seenTries;
            if (m_ended) {
                return false;
            }
            if (!m_taken && isQuiet) {
                m_taken = true;
                return true;
            }
            // A call that was there at the last look is a long one, and tells when it is over.
            sleeps = m_taken && isQuiet;
            m_readerSleeps = sleeps;
            m_seenTries = m_tries;
            m_readerWakes.Reset();
        }
        if (sleeps) {
            (void)m_readerWakes.Wait(-1);
        } else {
            const timespec quiet = os::MsTimeout(kQuietMs);
            (void)os::PollThroughSignals(nullptr, 0, &quiet);
        }
    }
}

bool ReceiveTurn::TryTake() {
    os::CAutoLock lock(&m_lock);
    ++m_tries;
    if (m_taken || m_ended) {
        return false;
    }
    m_taken = true;
    return true;
}

void ReceiveTurn::Give() {
    os::CAutoLock lock(&m_lock);
    m_taken = false;
    if (m_readerSleeps) {
        m_readerSleeps = false;
        m_readerWakes.Set();
    }
    if (m_ended) {
        m_given.Set();
    }
}

void ReceiveTurn::End() {
    os::CAutoLock lock(&m_lock);
    m_ended = true;
    m_readerWakes.Set();
    if (m_taken) {
        m_given.Reset();
    } else {
        m_given.Set();
    }
}

void ReceiveTurn::AwaitGiven() {
    (void)m_given.Wait(-1);
}

}  // namespace kpl::rpc
