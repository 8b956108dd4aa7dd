// A worker thread that executes posted commands one at a time, in the order of posting.
#ifndef KPL_TOOLS_COMMANDPROCESSOR_H_
#define KPL_TOOLS_COMMANDPROCESSOR_H_

#include <stddef.h>

#include <atomic>
#include <list>
#include <optional>
#include <utility>

#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"

namespace kpl::tools {

// What a command does; the user derives from it.
template <typename T>
class CommandProcessor {
public:
    // Performs one command. False means "not now": the command stays first in line and is offered
    // again after the next post. Worker thread only.
    virtual bool Execute(T command) = 0;

    // Called with each command that has left the queue: after it was executed, or when the queue
    // stops. A processor whose commands own something releases it here. Worker thread, or the
    // thread that stops the queue; a command posted to a stopped queue comes back on its poster's.
    virtual void OnCommandDone(T command) { (void)command; }

    virtual ~CommandProcessor() = default;
};

// The queue and its worker thread, which the first post starts. Commands are copied.
//
// Who waits where, and who wakes whom:
// - the worker on `wake`, for a command; a post and Stop set it. It is reset only under the lock,
//   where the worker copies the head or finds nothing, so that no post is lost in between.
// - a poster on `space`, when the queue is full; a pop and Stop set it.
// - Stop for the worker (join), then on `postersGone`, set by the last blocked poster to leave.
// A command whose poster was blocked when the stop came is handed back, never executed.
// The lock is never held while the processor runs.
template <typename T>
class CommandQueue {
public:
    // `processor` is not owned and must outlive the queue. With null, commands only pile up.
    explicit CommandQueue(CommandProcessor<T>* processor)
        : m_space(false), m_processor(processor), m_wake(new os::CEvent(false)) {
        m_space.Set();
    }

    ~CommandQueue() { Stop(); }

    CommandQueue(const CommandQueue&) = delete;
    CommandQueue& operator=(const CommandQueue&) = delete;

    // Appends a command and wakes the worker. With a limit set and reached, waits until one command
    // has been executed; from inside Execute that would be a wait for itself. After Stop the
    // command goes straight to OnCommandDone. Any thread, also from inside Execute.
    void Post(T command) {
        if (!WaitForSpaceAndAppend(command)) {
            HandBack(std::move(command));
        }
    }

    // True when a limit is set and reached. Any thread.
    bool IsFull() {
        os::CAutoLock lock(&m_lock);
        return IsFullLocked();
    }

    // False as long as no thread could be created for the commands: before the first post, when the
    // system had none left since, without a processor, and after Stop. Each post tries again.
    // Any thread.
    bool HasWorker() {
        os::CAutoLock lock(&m_lock);
        return m_worker != nullptr;
    }

    // At most `limit` commands wait in the queue; below 1 means no limit, as at the start. Any
    // thread.
    void SetLimit(int limit) {
        os::CAutoLock lock(&m_lock);
        m_limit = limit;
        UpdateSpace();
    }

    // Waits for a running Execute, then hands every waiting command to OnCommandDone. Releases
    // blocked posters and returns after they have left. Can be repeated.
    // Controlling thread, never from inside Execute.
    void Stop() {
        if (m_wake == nullptr) {
            return;
        }
        JoinWorker();
        Drain();
        m_postersGone.Wait(-1);
        Drain();
        delete m_wake;
        m_wake = nullptr;
    }

private:
    static void WorkerEntry(void* self) { static_cast<CommandQueue*>(self)->Work(); }

    // Returns false once the queue was stopped.
    bool WaitForSpaceAndAppend(const T& command) {
        {
            os::CAutoLock lock(&m_lock);
            if (m_stop) {
                return false;
            }
            StartWorker();
            if (!IsFullLocked()) {
                Append(command);
                return true;
            }
            if (m_blockedPosters++ == 0) {
                m_postersGone.Reset();
            }
        }
        // Once, not in a loop: of several posters that one pop releases, all append.
        m_space.Wait(-1);
        os::CAutoLock lock(&m_lock);
        Append(command);
        if (--m_blockedPosters == 0) {
            m_postersGone.Set();
        }
        return true;
    }

    void Append(const T& command) KPL_REQUIRES(m_lock) {
        m_commands.push_back(command);
        UpdateSpace();
        m_wake->Set();
    }

    void UpdateSpace() KPL_REQUIRES(m_lock) {
        if (m_stop || !IsFullLocked()) {
            m_space.Set();
        } else {
            m_space.Reset();
        }
    }

    bool IsFullLocked() const KPL_REQUIRES(m_lock) {
        return m_limit >= 1 && m_commands.size() >= static_cast<size_t>(m_limit);
    }

    // Under the lock, so that two first posts make one worker. If no thread can be created the
    // command waits, and the next post tries again.
    void StartWorker() KPL_REQUIRES(m_lock) {
        if (m_worker != nullptr || m_processor == nullptr) {
            return;
        }
        m_worker = new os::CThread(&CommandQueue::WorkerEntry, this);
        if (!m_worker->Run(0)) {
            delete m_worker;
            m_worker = nullptr;
        }
    }

    void Work() {
        while (!m_stop) {
            m_wake->Wait(-1);
            ExecutePending();
        }
    }

    // Until the queue is empty, a command is refused, or the queue stops.
    void ExecutePending() {
        while (!m_stop) {
            const std::optional<T> head = CopyHead();
            if (!head || !m_processor->Execute(*head)) {
                return;
            }
            std::optional<T> done = Pop();
            if (!done) {
                return;
            }
            m_processor->OnCommandDone(std::move(*done));
        }
    }

    std::optional<T> CopyHead() {
        os::CAutoLock lock(&m_lock);
        m_wake->Reset();
        if (m_commands.empty()) {
            return std::nullopt;
        }
        return m_commands.front();
    }

    std::optional<T> Pop() {
        os::CAutoLock lock(&m_lock);
        if (m_commands.empty()) {
            return std::nullopt;
        }
        std::optional<T> head(std::move(m_commands.front()));
        m_commands.pop_front();
        UpdateSpace();
        return head;
    }

    void JoinWorker() {
        os::CThread* worker = nullptr;
        {
            os::CAutoLock lock(&m_lock);
            m_stop = true;
            m_wake->Set();
            m_space.Set();
            worker = m_worker;
            m_worker = nullptr;
        }
        if (worker != nullptr) {
            worker->Exit(true);
            delete worker;
        }
    }

    void Drain() {
        while (std::optional<T> command = Pop()) {
            HandBack(std::move(*command));
        }
    }

    void HandBack(T command) {
        if (m_processor != nullptr) {
            m_processor->OnCommandDone(std::move(command));
        }
    }

    std::list<T> m_commands KPL_GUARDED_BY(m_lock);
    os::CCritSec m_lock;
    os::CEvent m_space;
    int m_limit KPL_GUARDED_BY(m_lock) = -1;
    os::CThread* m_worker KPL_GUARDED_BY(m_lock) = nullptr;
    CommandProcessor<T>* const m_processor;
    std::atomic<bool> m_stop{false};  // changed under the lock
    os::CEvent* m_wake;               // null once stopped

    int m_blockedPosters KPL_GUARDED_BY(m_lock) = 0;
    os::CEvent m_postersGone{true};
};

}  // namespace kpl::tools

#endif  // KPL_TOOLS_COMMANDPROCESSOR_H_
