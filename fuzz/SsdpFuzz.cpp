// Feeds the finder answers as a hostile device would send them, and the cutter of values any text,
// key and end.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>

#include "kpl/net/UPnPFinder.h"

namespace {

using kpl::net::FindAndCopyString;
using kpl::net::UPnPFinder;
using kpl::net::UPnPFinderObserver;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// What the value of a key must be, from the rule rather than from the search for it.
std::string Expected(const std::string& text, const std::string& key) {
    const size_t at = text.find(key);
    const size_t start = at == std::string::npos ? key.size() - 1 : at + key.size();
    const size_t stop = start > text.size() ? std::string::npos : text.find("\r\n", start);
    return stop == std::string::npos ? "" : text.substr(start, stop - start);
}

class Checker : public UPnPFinderObserver {
public:
    explicit Checker(const std::string& text) : m_text(text) {}

    void OnAddDevice(const char* location, const char* usn, const char* server,
                     const char* st) override {
        Require(location == Expected(m_text, "LOCATION: "));
        Require(usn == Expected(m_text, "USN: "));
        Require(server == Expected(m_text, "SERVER: "));
        Require(st == Expected(m_text, "ST: "));
        ++m_calls;
    }
    void OnSearchDeviceComplete() override { abort(); }
    void OnError(int) override { abort(); }

    int Calls() const { return m_calls; }

private:
    const std::string m_text;
    int m_calls = 0;
};

void Dispatch(const std::string& text) {
    // Its memory ends just behind its zero.
    const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
    std::copy_n(text.c_str(), text.size() + 1, exact.get());
    UPnPFinder finder;
    Checker checker(text);
    finder.AddObserver(&checker);
    finder.DispatchAddDeviceEvent(exact.get());
    Require(checker.Calls() == 1);
}

// The first line is the key, the second the end, the rest the text, which may hold zeros.
void Cut(const std::string& input) {
    const size_t first = std::min(input.find('\n'), input.size());
    const size_t second = std::min(input.find('\n', first + 1), input.size());
    const std::string key(input, 0, first);
    const std::string end = first < input.size() ? input.substr(first + 1, second - first - 1) : "";
    std::string text = second < input.size() ? input.substr(second + 1) : "";
    const std::string before = text;
    std::string value = "before";
    if (!FindAndCopyString(text, value, key.c_str(), end.c_str())) {
        Require(value == "before");
    } else {
        Require(value.size() + strlen(end.c_str()) <= text.size());
        Require(*end.c_str() == '\0' || value.find(end.c_str()) == std::string::npos);
        Require(text.find(value + end.c_str()) != std::string::npos);
    }
    Require(text == before);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(data, data + size);
    Dispatch(input.c_str());
    Cut(input);
    return 0;
}
