#include "kpl/ipc/IpcClientPipeImpl.h"

#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/time.h>
#include <unistd.h>

#include "ipc/Announcement.h"
#include "ipc/Breaker.h"
#include "ipc/Fifo.h"
#include "ipc/PathLimit.h"
#include "kpl/ipc/IpcStreamerPipeImpl.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/tools/DebugLog.h"
#include "os/Deadline.h"

namespace kpl::ipc {

using tools::DumpDbgMsg;

namespace {

// The process's one sequence of connection ids, and whether it was seeded. The generator itself has
// no lock of its own either.
os::CCritSec randomLock;
bool randomSeeded = false;

void SeedRandomOnce() {
    os::CAutoLock lock(&randomLock);
    if (randomSeeded) {
        return;
    }
    DumpDbgMsg("IpcClientPipeImpl::IpcClientPipeImpl(): Init random....\n");
    randomSeeded = true;
    timeval now{};
    gettimeofday(&now, nullptr);
    const int64_t ms = int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
    srand48(static_cast<long>(static_cast<int32_t>(ms)));
}

int DrawConnectionId() {
    os::CAutoLock lock(&randomLock);
    return static_cast<int>(lrand48());
}

}  // namespace

IpcClientPipeImpl::IpcClientPipeImpl() : m_streamer(nullptr), m_breaker(new Breaker) {
    DumpDbgMsg("IpcClientPipeImpl::IpcClientPipeImpl(): .....\n");
    SeedRandomOnce();
}

IpcClientPipeImpl::~IpcClientPipeImpl() {
    IpcClientPipeImpl::Disconnect();
    DumpDbgMsg("IpcClientPipeImpl::~IpcClientPipeImpl(): .....\n");
}

bool IpcClientPipeImpl::Connect(const char* serverName, void* param) {
    return Connect(serverName, param, -1);
}

bool IpcClientPipeImpl::Connect(const char* serverName, void*, long timeoutMs) {
    const os::Deadline deadline(timeoutMs);
    DumpDbgMsg("IpcClientPipeImpl::Connect(): Server=%s\n",
               serverName != nullptr ? serverName : "(null)");
    char rootPath[kPathSize] = {};
    if (!GetPipeServerRootPath(serverName, rootPath, kPathSize) || !PathsFit(serverName)) {
        return false;
    }
    Outcome outcome = Outcome::IdInUse;
    while (outcome == Outcome::IdInUse) {
        outcome = ConnectOnce(serverName, rootPath, deadline);
    }
    return outcome == Outcome::Connected;
}

// Under an id that is drawn anew.
IpcClientPipeImpl::Outcome IpcClientPipeImpl::ConnectOnce(const char* serverName,
                                                          const char* rootPath,
                                                          const os::Deadline& deadline) {
    DumpDbgMsg("IpcClientPipeImpl::Connect(): Open root pipe=%s\n", rootPath);
    const int rootDescriptor =
        OpenFifoForWriting(rootPath, WaitLimit(m_breaker.get(), deadline.LeftMs()));
    if (rootDescriptor == -1) {
        return Outcome::Failed;
    }
    const int id = DrawConnectionId();
    // The second number is the calling thread, not the id again.
    DumpDbgMsg("IpcClientPipeImpl::Connect(): ID=%d(0x%x)\n", id,
               static_cast<unsigned>(pthread_self()));
    const bool announced = Announce(rootDescriptor, id, deadline.LeftMs());
    return announced ? OpenConnection(serverName, id, deadline.LeftMs()) : Outcome::Failed;
}

// Closes the descriptor in any case.
bool IpcClientPipeImpl::Announce(int rootDescriptor, int id, long timeoutMs) {
    const Announcement message{kAnnouncementMagic, static_cast<uint32_t>(id), 0, 0};
    const int written = WriteFifo(rootDescriptor, reinterpret_cast<const char*>(&message),
                                  sizeof(message), WaitLimit(m_breaker.get(), timeoutMs));
    close(rootDescriptor);
    DumpDbgMsg("IpcClientPipeImpl::Connect(): Write=%d\n", written);
    return written == static_cast<int>(sizeof(message));
}

IpcClientPipeImpl::Outcome IpcClientPipeImpl::OpenConnection(const char* serverName, int id,
                                                             long timeoutMs) {
    auto* streamer =
        static_cast<IpcStreamerPipeImpl*>(IpcStreamerPipeImpl::Create(serverName, id, false));
    {
        os::CAutoLock lock(&m_openingLock);
        m_opening = streamer;
        if (m_breaker->IsBroken()) {
            streamer->CancelOpen();
        }
    }
    DumpDbgMsg("IpcClientPipeImpl::Connect(): Open Connection...\n");
    const bool opened = streamer->OpenWithin(timeoutMs);
    const bool goesOn = EndOpening();
    if (goesOn && streamer->IsAnothers()) {
        streamer->Close();
        return Outcome::IdInUse;
    }
    if (!goesOn || !opened) {
        tools::ForceDumpDbgMsg("IpcClientPipeImpl::Connect(): ??????? Open Connection failed\n");
        if (opened) {
            streamer->Close();
        }
        streamer->Close();
        return Outcome::Failed;
    }
    m_streamer = streamer;
    return Outcome::Connected;
}

// False when the connect was cancelled: one that comes later finds nothing to cancel any more.
bool IpcClientPipeImpl::EndOpening() {
    os::CAutoLock lock(&m_openingLock);
    m_opening = nullptr;
    return !m_breaker->IsBroken();
}

void IpcClientPipeImpl::CancelConnect() {
    os::CAutoLock lock(&m_openingLock);
    m_breaker->Break();
    if (m_opening != nullptr) {
        m_opening->CancelOpen();
    }
}

void IpcClientPipeImpl::Disconnect() {
    if (m_streamer != nullptr) {
        // The reference of the open and the creator's: together they end the connection.
        m_streamer->Close();
        m_streamer->Close();
    }
    m_streamer = nullptr;
    DumpDbgMsg("IpcClientPipeImpl::Disconnect(): .....\n");
}

IpcStreamer* IpcClientPipeImpl::GetStreamer() {
    return m_streamer;
}

}  // namespace kpl::ipc
