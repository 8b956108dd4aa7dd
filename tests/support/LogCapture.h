// Captures what the library logs, so that tests can compare whole messages.
#ifndef KPL_TESTS_SUPPORT_LOGCAPTURE_H_
#define KPL_TESTS_SUPPORT_LOGCAPTURE_H_

#include <string>
#include <vector>

namespace kpl::test {

// Collects every message from construction on, from all threads. While one exists, nothing is
// printed. `enable` also switches the debug log on, and off again at the end.
class LogCapture {
public:
    enum class Debug { Off, On };

    explicit LogCapture(Debug debug = Debug::On);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> Messages() const;
    bool Contains(const std::string& message) const;
    int Count(const std::string& message) const;
    void Clear();

    // Waits until `message` has been logged; false after `timeoutMs`.
    bool WaitFor(const std::string& message, long timeoutMs = 10000) const;

    // The kernel's id of the thread that logged `message` last; 0 if none has.
    int ThreadOf(const std::string& message) const;

    // Priority and tag of the last message.
    int LastPriority() const;
    std::string LastTag() const;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_LOGCAPTURE_H_
