#include "kpl/os/CThread.h"

#include "os/EventRecord.h"

namespace kpl::os {

namespace {

constexpr unsigned char kRunning = 1;
constexpr unsigned char kAskedToExit = 2;

}  // namespace

CThread::CThread(void (*fn)(void*), void* arg) : m_fn(fn), m_arg(arg), m_thread(), m_flags(0) {}

CThread::~CThread() {
    if (IsRun()) {
        Exit(true);
    }
}

void* CThread::StartRoutine(void* record) {
    auto* thread = static_cast<ThreadRecord*>(record);
    thread->fn(thread->arg);
    SetEvent(&thread->completion);
    return nullptr;
}

bool CThread::CreateThread(int stackSize) {
    if (stackSize < 0) {
        return false;
    }
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (stackSize != 0) {
        // Refused only when it is below the platform's minimum; the default serves then as well.
        pthread_attr_setstacksize(&attributes, static_cast<size_t>(stackSize));
    }
    const bool created =
        pthread_create(&m_thread.handle, &attributes, &CThread::StartRoutine, &m_thread) == 0;
    pthread_attr_destroy(&attributes);
    return created;
}

bool CThread::Run(int stackSize) {
    // First, before the running test: even a refused Run withdraws a pending request to exit.
    m_flags.fetch_and(static_cast<unsigned char>(~kAskedToExit));
    if (IsRun()) {
        return false;
    }
    m_thread.tag = 0;
    m_thread.fn = m_fn;
    m_thread.arg = m_arg;
    InitEvent(&m_thread.completion, false);
    if (!CreateThread(stackSize)) {
        DestroyEvent(&m_thread.completion);
        return false;
    }
    m_thread.tag = kThreadTag;
    m_flags.fetch_or(kRunning);
    return true;
}

bool CThread::IsRun() const {
    return (m_flags.load() & kRunning) != 0;
}

void CThread::Exit(bool wait) {
    if (!IsRun()) {
        return;
    }
    m_flags.fetch_or(kAskedToExit);
    if (!wait) {
        return;
    }
    pthread_join(m_thread.handle, nullptr);
    DestroyEvent(&m_thread.completion);
    m_thread.tag = 0;
    m_flags.fetch_and(static_cast<unsigned char>(~kRunning));
}

bool CThread::IsAskToExit() const {
    return (m_flags.load() & kAskedToExit) != 0;
}

}  // namespace kpl::os
