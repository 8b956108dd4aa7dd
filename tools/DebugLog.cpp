#include "kpl/tools/DebugLog.h"

#include <android/log.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "kpl/os/CCritSec.h"
#include "tools/FormatMessage.h"

namespace kpl::tools {

namespace {

constexpr int kMaxFileBytes = 0x400000;
constexpr int kMaxFiles = 10;
constexpr size_t kMessageBufferSize = 4096;
constexpr size_t kMaxMessageLength = kMessageBufferSize - 2;

std::atomic<bool> dumpEnabled;
std::atomic<bool> fileEnabled;

// The log file and everything that its lock guards.
class LogFile {
public:
    // The file switch goes off with the lock it relies on: destructors of other static objects may
    // still log after this one has run.
    ~LogFile() { fileEnabled = false; }

    void OpenNextIn(const char* directory) {
        os::CAutoLock lock(&m_lock);
        m_directory = directory;
        m_directory += '/';
        OpenNextLocked();
    }

    void Write(const char* text, size_t length) {
        if (WriteLocked(text, length)) {
            RotateIfFull();
        }
    }

    // Without the lock, as documented.
    void Close() KPL_NO_THREAD_SAFETY_ANALYSIS { CloseCurrent(); }

private:
    // Returns true when the file has grown past its limit.
    bool WriteLocked(const char* text, size_t length) {
        os::CAutoLock lock(&m_lock);
        if (m_file == nullptr) {
            return false;
        }
        fwrite(text, 1, length, m_file);
        m_bytes += static_cast<int>(length);
        return m_bytes > kMaxFileBytes;
    }

    // Tested again under the lock: of two threads that pass the limit together only one rotates.
    void RotateIfFull() {
        os::CAutoLock lock(&m_lock);
        if (m_bytes > kMaxFileBytes) {
            OpenNextLocked();
        }
    }

    void OpenNextLocked() KPL_REQUIRES(m_lock) {
        CloseCurrent();
        if (m_index >= kMaxFiles) {
            unlink(Name(m_index - kMaxFiles).c_str());
        }
        // "e" keeps the file out of child processes.
        m_file = fopen(Name(m_index).c_str(), "wbe");
        ++m_index;
    }

    void CloseCurrent() KPL_REQUIRES(m_lock) {
        if (m_file != nullptr) {
            fclose(m_file);
            m_file = nullptr;
        }
        m_bytes = 0;
    }

    std::string Name(int index) const KPL_REQUIRES(m_lock) {
        return m_directory + "LogTools" + std::to_string(index) + ".txt";
    }

    os::CCritSec m_lock;
    std::string m_directory KPL_GUARDED_BY(m_lock);
    FILE* m_file KPL_GUARDED_BY(m_lock) = nullptr;
    int m_index KPL_GUARDED_BY(m_lock) = 0;
    int m_bytes KPL_GUARDED_BY(m_lock) = 0;
};

LogFile logFile;

void PrintMessage(const char* format, va_list arguments) __attribute__((noinline)) KPL_PRINTF(1, 0);

void PrintMessage(const char* format, va_list arguments) {
    char text[kMessageBufferSize];
    const int length = FormatMessage(text, kMaxMessageLength + 1, format, arguments);
    __android_log_print(ANDROID_LOG_DEBUG, "KPL", "%s", text);
    if (fileEnabled.load(std::memory_order_relaxed) && length >= 1) {
        logFile.Write(text, std::min(static_cast<size_t>(length), kMaxMessageLength));
    }
}

}  // namespace

void DumpDbgMsg(const char* format, ...) {
    if (!dumpEnabled.load(std::memory_order_relaxed)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    PrintMessage(format, arguments);
    va_end(arguments);
}

void ForceDumpDbgMsg(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintMessage(format, arguments);
    va_end(arguments);
}

void EnableDumpLog(bool enable, bool toFile) {
    dumpEnabled = enable;
    fileEnabled = toFile;
    if (toFile) {
        char directory[1024] = {};
        if (getcwd(directory, sizeof(directory)) == nullptr) {
            directory[0] = '\0';
        }
        logFile.OpenNextIn(directory);
    }
}

bool IsDumpLogEnabled() {
    return dumpEnabled.load(std::memory_order_relaxed);
}

void FlushLogFile() {
    logFile.Close();
}

void CollectLogFiles(int) {
    if (fileEnabled) {
        ForceDumpDbgMsg("CollectLogFiles(): ???????? NOT IMPLEMENT!!");
    }
}

void DumpBuffer(char*, int) {
    ForceDumpDbgMsg("DumpBuffer(): ???????? NOT IMPLEMENT!!");
}

}  // namespace kpl::tools
