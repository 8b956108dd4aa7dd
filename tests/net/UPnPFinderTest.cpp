#include "kpl/net/UPnPFinder.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "tests/net/FoundDevices.h"
#include "tests/net/UdpTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/SignalRain.h"
#include "tests/support/SsdpResponder.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TestNetwork.h"
#include "tests/support/VirtualSlot.h"

namespace {

using kpl::net::FindAndCopyString;
using kpl::net::UPNP_DEV_MEDIA_RENDERER;
using kpl::net::UPNP_DEV_ROOT;
using kpl::net::UPnPDevType;
using kpl::net::UPnPFinder;
using kpl::net::UPnPFinderObserver;
using kpl::test::FoundDevices;
using kpl::test::kCeilingMs;
using kpl::test::LogCapture;
using kpl::test::NetHost;
using kpl::test::OnTwoHosts;
using kpl::test::OpenDescriptorCount;
using kpl::test::SignalRain;
using kpl::test::SlotOf;
using kpl::test::SsdpAnswer;
using kpl::test::SsdpResponder;
using kpl::test::Stopwatch;
using kpl::test::WaitUntil;
using Events = std::vector<std::string>;

constexpr char kTimeout[] = "UPnPFinder::ReadSSDPRespond(): Timeout!\n";

// The system calls of a search, with failures on demand. The program's own functions take
// precedence over those of the C library, also for the library under test.
struct SystemCalls {
    std::atomic<int> receives{0};
    std::atomic<int> failingReceive{0};  // the number of the one that fails, from 1; 0 for none
    std::atomic<int> receiveError{0};
    std::atomic<int> selects{0};
    std::atomic<int> interruptedSelect{0};
    std::atomic<int> selectedDescriptors{-1};
    std::atomic<bool> hasResolver{true};
};
SystemCalls calls;

template <typename Function>
Function Original(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* from,
                            socklen_t* length) {
    static const auto original = Original<decltype(&recvfrom)>("recvfrom");
    if (++calls.receives == calls.failingReceive) {
        errno = calls.receiveError;
        return -1;
    }
    return original(fd, buffer, size, flags, from, length);
}

extern "C" int select(int count, fd_set* reads, fd_set* writes, fd_set* errors, timeval* timeout) {
    static const auto original = Original<decltype(&select)>("select");
    calls.selectedDescriptors = count;
    if (++calls.selects == calls.interruptedSelect) {
        errno = EINTR;
        return -1;
    }
    return original(count, reads, writes, errors, timeout);
}

extern "C" hostent* gethostbyname(const char* name) {
    static const auto original = Original<decltype(&gethostbyname)>("gethostbyname");
    return calls.hasResolver ? original(name) : nullptr;
}

namespace {

void ResetCalls() {
    calls.receives = 0;
    calls.failingReceive = 0;
    calls.selects = 0;
    calls.interruptedSelect = 0;
    calls.selectedDescriptors = -1;
    calls.hasResolver = true;
}

// What an observer is told about the device with this number.
std::string Added(int number) {
    const std::string text = std::to_string(number);
    return "add http://10.77.3.2:8080/" + text + ".xml|uuid:00000000-0000-0000-0000-" + text +
           "::upnp:rootdevice|Linux/6.1 UPnP/1.0 Responder/1." + text + "|upnp:rootdevice";
}

// What is made of the status line for each header that is missing.
const char kNothingFound[] = "add 200 OK|/1.1 200 OK|1 200 OK|P/1.1 200 OK";

// `body` runs on one host, `far` is the other.
void OnNetwork(const std::function<void(const NetHost& far)>& body) {
    ResetCalls();
    OnTwoHosts("10.77.3.1/16", "10.77.3.2/16",
               [&](const NetHost&, const NetHost& far) { body(far); });
}

// A search on a thread of its own.
class Search {
public:
    // Lets answers gather for `seconds`.
    Search(UPnPFinder* finder, int seconds)
        : m_finder(finder),
          m_result(
              std::async(std::launch::async, [=] { return finder->ReadSSDPRespond(seconds); })) {}
    ~Search() {
        if (m_result.valid()) {
            Stop();
        }
    }

    bool Stop() {
        m_finder->Stop();
        return Result();
    }
    bool Result() { return m_result.get(); }

private:
    UPnPFinder* m_finder;
    std::future<bool> m_result;
};

// Searches among `answers` until `count` events have come, and stops.
Events Find(const NetHost& far, const std::vector<std::string>& answers, size_t count,
            int seconds = 0) {
    const LogCapture log;
    const SsdpResponder responder(far, answers);
    UPnPFinder finder;
    FoundDevices found;
    finder.AddObserver(&found);
    EXPECT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
    Search search(&finder, seconds);
    EXPECT_TRUE(found.WaitForEvents(count));
    EXPECT_FALSE(search.Stop());
    return found.Events();
}

// --- observers ---

TEST(UPnPFinderObserverTest, TheOperationsFollowTheDestructorInTheirOrder) {
    EXPECT_EQ(SlotOf(&UPnPFinderObserver::OnAddDevice), 2);
    EXPECT_EQ(SlotOf(&UPnPFinderObserver::OnSearchDeviceComplete), 3);
    EXPECT_EQ(SlotOf(&UPnPFinderObserver::OnError), 4);
}

TEST(UPnPFinderTest, NullIsNoObserver) {
    UPnPFinder finder;
    EXPECT_FALSE(finder.AddObserver(nullptr));
    EXPECT_FALSE(finder.RemoveObserver(nullptr));
    finder.DispatchSearchDeviceCompleteEvent();
}

TEST(UPnPFinderTest, RegisteringTheSameObserverTwiceKeepsOneEntry) {
    UPnPFinder finder;
    FoundDevices found;
    EXPECT_TRUE(finder.AddObserver(&found));
    EXPECT_TRUE(finder.AddObserver(&found));
    finder.DispatchErrorEvent(7);
    EXPECT_EQ(found.Events(), Events{"error 7"});
    EXPECT_TRUE(finder.RemoveObserver(&found));
    EXPECT_FALSE(finder.RemoveObserver(&found));
    finder.DispatchErrorEvent(8);
    EXPECT_EQ(found.Events(), Events{"error 7"});
}

TEST(UPnPFinderTest, ObserversAreCalledInTheirOrder) {
    UPnPFinder finder;
    Events order;
    FoundDevices first([&](const std::string& event) { order.push_back("1 " + event); });
    FoundDevices gone([&](const std::string& event) { order.push_back("2 " + event); });
    FoundDevices last([&](const std::string& event) { order.push_back("3 " + event); });
    for (FoundDevices* observer : {&first, &gone, &last}) {
        finder.AddObserver(observer);
    }
    finder.RemoveObserver(&gone);
    finder.DispatchErrorEvent(5);
    finder.DispatchSearchDeviceCompleteEvent();
    finder.DispatchAddDeviceEvent("HTTP/1.1 200 OK\r\n");
    EXPECT_EQ(order,
              (Events{"1 error 5", "3 error 5", "1 complete", "3 complete",
                      std::string("1 ") + kNothingFound, std::string("3 ") + kNothingFound}));
}

TEST(UPnPFinderTest, RemoveAllObserversLeavesNone) {
    UPnPFinder finder;
    FoundDevices first;
    FoundDevices second;
    finder.AddObserver(&first);
    finder.AddObserver(&second);
    finder.RemoveAllObservers();
    finder.DispatchErrorEvent(5);
    EXPECT_TRUE(first.Events().empty());
    EXPECT_TRUE(second.Events().empty());
}

// --- what is cut out of an answer ---

Events Dispatched(const char* response) {
    UPnPFinder finder;
    FoundDevices found;
    finder.AddObserver(&found);
    finder.DispatchAddDeviceEvent(response);
    return found.Events();
}

TEST(UPnPFinderTest, ALocationLineYieldsItsAddressWithoutTheLineEnd) {
    EXPECT_EQ(Dispatched(SsdpAnswer(3).c_str()), Events{Added(3)});
}

TEST(UPnPFinderTest, AnAnswerWithoutALocationYields200OK) {
    EXPECT_EQ(Dispatched("HTTP/1.1 200 OK\r\nUSN: u\r\nSERVER: s\r\nST: t\r\n\r\n"),
              Events{"add 200 OK|u|s|t"});
}

TEST(UPnPFinderTest, LowerCaseHeadersAreMissingOnes) {
    EXPECT_EQ(Dispatched("HTTP/1.1 200 OK\r\nlocation: l\r\nusn: u\r\nserver: s\r\nst: t\r\n\r\n"),
              Events{kNothingFound});
}

TEST(UPnPFinderTest, AHeaderWithoutABlankIsAMissingOne) {
    EXPECT_EQ(Dispatched("HTTP/1.1 200 OK\r\nLOCATION:l\r\nUSN:\tu\r\nSERVER:s\r\nST:t\r\n\r\n"),
              Events{kNothingFound});
}

TEST(UPnPFinderTest, AValueIsWhateverStandsBetweenTheKeyAndTheLineEnd) {
    EXPECT_EQ(Dispatched("HTTP/1.1 200 OK\r\nLOCATION:   l \r\nUSN: \r\nSERVER: a\nb\r\nST: t\r\n"),
              Events{"add   l ||a\nb|t"});
}

TEST(UPnPFinderTest, AKeyIsFoundWhereItFirstOccurs) {
    EXPECT_EQ(Dispatched("HTTP/1.1 200 OK\r\nHOST: h\r\nST: t\r\nLOCATION: 1\r\nLOCATION: 2\r\n"),
              Events{"add 1|/1.1 200 OK|1 200 OK|h"});
}

TEST(UPnPFinderTest, AnAnswerThatEndsWithinALineHasNoSuchValue) {
    EXPECT_EQ(Dispatched("HTTP/1.1 200 OK\r\nLOCATION: l"),
              Events{"add |/1.1 200 OK|1 200 OK|P/1.1 200 OK"});
    EXPECT_EQ(Dispatched(""), Events{"add |||"});
}

TEST(UPnPFinderTest, NullIsNoAnswer) {
    EXPECT_EQ(Dispatched(nullptr), Events{});
}

TEST(FindAndCopyStringTest, TheValueStandsBetweenBeginAndEnd) {
    std::string text = "a=1;b=2;c=3";
    std::string value;
    EXPECT_TRUE(FindAndCopyString(text, value, "b=", ";"));
    EXPECT_EQ(value, "2");
    EXPECT_TRUE(FindAndCopyString(text, value, "", "="));
    EXPECT_EQ(value, "a");
    EXPECT_TRUE(FindAndCopyString(text, value, "c=", ""));
    EXPECT_EQ(value, "");
    EXPECT_EQ(text, "a=1;b=2;c=3");
}

TEST(FindAndCopyStringTest, WithoutAnEndTheValueStays) {
    std::string text = "a=1;b=2";
    std::string value = "before";
    EXPECT_FALSE(FindAndCopyString(text, value, "b=", ";"));
    EXPECT_FALSE(FindAndCopyString(text, value, "a=", "\r\n"));
    EXPECT_EQ(value, "before");
}

TEST(FindAndCopyStringTest, NullIsRefused) {
    std::string text = "a=1;";
    std::string value = "before";
    EXPECT_FALSE(FindAndCopyString(text, value, nullptr, ";"));
    EXPECT_FALSE(FindAndCopyString(text, value, "a=", nullptr));
    EXPECT_EQ(value, "before");
}

TEST(FindAndCopyStringTest, ABeginThatDoesNotOccurCountsFromItsLengthLessOne) {
    std::string text = "0123456;";
    std::string value;
    EXPECT_TRUE(FindAndCopyString(text, value, "xxxx", ";"));
    EXPECT_EQ(value, "3456");
    EXPECT_TRUE(FindAndCopyString(text, value, "xxxxxxxx", ";"));
    EXPECT_EQ(value, "");
    value = "before";
    EXPECT_FALSE(FindAndCopyString(text, value, "xxxxxxxxx", ";"));
    EXPECT_FALSE(FindAndCopyString(text, value, "xxxxxxxxxxxxxxxxxxxx", ";"));
    EXPECT_EQ(value, "before");
}

// --- searches that do not begin ---

TEST(UPnPFinderTest, ADeviceTypeOf2IsError4AndNothingIsSent) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {});
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        EXPECT_FALSE(finder.Start(static_cast<UPnPDevType>(2)));
        EXPECT_FALSE(finder.Start(static_cast<UPnPDevType>(-1)));
        EXPECT_EQ(found.Events(), (Events{"error 4", "error 4"}));
        // What is sent next is the first that arrives.
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        ASSERT_TRUE(responder.WaitForRequests(1));
        EXPECT_EQ(responder.Requests().size(), 1u);
    });
}

TEST(UPnPFinderTest, ReadingWithoutASearchIsError3) {
    UPnPFinder finder;
    FoundDevices found;
    finder.AddObserver(&found);
    const LogCapture log;
    EXPECT_FALSE(finder.ReadSSDPRespond(10));
    EXPECT_EQ(found.Events(), Events{"error 3"});
    EXPECT_TRUE(log.Messages().empty());
}

TEST(UPnPFinderTest, StopWithoutASearchIsTrue) {
    UPnPFinder finder;
    EXPECT_TRUE(finder.Stop());
}

TEST(UPnPFinderTest, ASecondRequestWhileASearchIsOpenIsError3) {
    OnNetwork([](const NetHost&) {
        const int descriptors = OpenDescriptorCount();
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        EXPECT_FALSE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        EXPECT_EQ(found.Events(), Events{"error 3"});
        EXPECT_TRUE(finder.Stop());
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
        EXPECT_FALSE(finder.ReadSSDPRespond(0));
        EXPECT_EQ(found.Events(), (Events{"error 3", "error 3"}));
        EXPECT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
    });
}

TEST(UPnPFinderTest, WithoutARouteTheRequestIsError2) {
    OnTwoHosts("10.77.3.1/16", "10.77.3.2/16", [](const NetHost& near, const NetHost&) {
        ASSERT_TRUE(near.Ip("route del 224.0.0.0/4"));
        const int descriptors = OpenDescriptorCount();
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        EXPECT_FALSE(finder.Start(UPNP_DEV_ROOT));
        EXPECT_FALSE(finder.Start(UPNP_DEV_MEDIA_RENDERER));
        EXPECT_EQ(found.Events(), (Events{"error 2", "error 2"}));
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    });
}

TEST(UPnPFinderTest, WithoutAnAddressTheRequestIsError2) {
    OnNetwork([](const NetHost&) {
        const int descriptors = OpenDescriptorCount();
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        calls.hasResolver = false;
        EXPECT_FALSE(finder.Start(UPNP_DEV_ROOT));
        EXPECT_EQ(found.Events(), Events{"error 2"});
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    });
}

TEST(UPnPFinderTest, WithoutDescriptorsTheRequestIsError5) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of virtual calls needs a descriptor of its own";
#endif
    OnNetwork([](const NetHost&) {
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        rlimit before{};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
        rlimit none = before;
        none.rlim_cur = 0;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        const bool started = finder.Start(UPNP_DEV_ROOT);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_FALSE(started);
        EXPECT_EQ(found.Events(), Events{"error 5"});
    });
}

// --- searches ---

TEST(UPnPFinderTest, TheRequestNamesTheSearchTarget) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {});
        UPnPFinder finder;
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        ASSERT_TRUE(responder.WaitForRequests(1));
        finder.Stop();
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_MEDIA_RENDERER));
        ASSERT_TRUE(responder.WaitForRequests(2));
        const auto request = [](const std::string& target) {
            return "M-SEARCH * HTTP/1.1\r\nHost: 239.255.255.250:1900\r\n"
                   "Man: \"ssdp:discover\"\r\nST: " +
                   target + "\r\nMX: 3\r\n\r\n";
        };
        EXPECT_EQ(responder.Requests(),
                  (Events{request("upnp:rootdevice"),
                          request("urn:schemas-upnp-org:device:MediaRenderer:1")}));
        EXPECT_EQ(responder.HopsOfRequest(), 1);  // what the system gives a multicast by itself
    });
}

TEST(UPnPFinderTest, StartReportsAfterTenSecondsAndThenWhatComesUntilStop) {
    OnNetwork([](const NetHost& far) {
        SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        UPnPFinder finder;
        const Stopwatch watch;
        std::atomic<long> firstMs{0};
        FoundDevices found([&](const std::string& event) {
            firstMs = event == Added(1) ? watch.ElapsedMs() : firstMs.load();
        });
        finder.AddObserver(&found);
        const LogCapture log(LogCapture::Debug::Off);
        auto result = std::async(std::launch::async, [&] { return finder.Start(UPNP_DEV_ROOT); });
        ASSERT_TRUE(found.WaitForEvents(2));
        EXPECT_GE(firstMs, 10000);
        EXPECT_LT(firstMs, 10000 + kCeilingMs);
        EXPECT_EQ(calls.selectedDescriptors, 0);
        const Stopwatch second;
        ASSERT_TRUE(responder.Send(SsdpAnswer(3)));
        ASSERT_TRUE(found.WaitForEvents(3));
        EXPECT_LT(second.ElapsedMs(), 5000);  // the wait is not begun again
        EXPECT_TRUE(log.Messages().empty());
        EXPECT_TRUE(finder.Stop());
        EXPECT_FALSE(result.get());
        EXPECT_EQ(found.Events(), (Events{Added(1), Added(2), Added(3), "complete"}));
        EXPECT_EQ(log.Messages(), Events{kTimeout});
    });
}

TEST(UPnPFinderTest, ASearchWithNoDeviceIsError0OnceTheLoopEnds) {
    OnNetwork([](const NetHost&) {
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        const LogCapture log(LogCapture::Debug::Off);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        Search search(&finder, 0);
        EXPECT_TRUE(WaitUntil([] { return calls.receives == 1; }));
        EXPECT_TRUE(found.Events().empty());
        EXPECT_FALSE(search.Stop());
        EXPECT_EQ(found.Events(), Events{"error 0"});
        EXPECT_EQ(log.Messages(), Events{kTimeout});
    });
}

TEST(UPnPFinderTest, StopEndsABlockedSearchAtOnceAndLeavesNoDescriptor) {
    OnNetwork([](const NetHost&) {
        const int descriptors = OpenDescriptorCount();
        const LogCapture log;
        UPnPFinder finder;
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        Search search(&finder, 0);
        EXPECT_TRUE(WaitUntil([] { return calls.receives == 1; }));
        const Stopwatch watch;
        EXPECT_FALSE(search.Stop());
        EXPECT_LT(watch.ElapsedMs(), 2000);
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    });
}

// The wait watches no descriptor, so nothing but its end shows it the stop.
TEST(UPnPFinderTest, StopWhileAnswersGatherTakesEffectAtTheEndOfTheWait) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1)});
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        const Stopwatch watch;
        Search search(&finder, 1);
        EXPECT_TRUE(WaitUntil([] { return calls.selects == 1; }));
        EXPECT_FALSE(search.Stop());
        EXPECT_GE(watch.ElapsedMs(), 1000);
        EXPECT_EQ(found.Events(), Events{"error 0"});
    });
}

TEST(UPnPFinderTest, AnObserverMayStopTheSearch) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found([&](const std::string&) { finder.Stop(); });
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        EXPECT_FALSE(finder.ReadSSDPRespond(0));
        EXPECT_EQ(found.Events(), (Events{Added(1), "complete"}));
    });
}

TEST(UPnPFinderTest, AStoppedFinderSearchesAgain) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1)});
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        for (const size_t round : {1u, 2u, 3u}) {
            ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
            Search search(&finder, 0);
            EXPECT_TRUE(found.WaitForEvents(2 * round - 1));
            EXPECT_FALSE(search.Stop());
        }
        EXPECT_EQ(found.Events(),
                  (Events{Added(1), "complete", Added(1), "complete", Added(1), "complete"}));
    });
}

// The search before ends as one that was stopped, and takes nothing from the new one.
TEST(UPnPFinderTest, ANewSearchEndsAnOpenOneOfTheSameFinder) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1)});
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        Search first(&finder, 0);
        EXPECT_TRUE(found.WaitForEvents(1));
        finder.Stop();
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        EXPECT_FALSE(first.Result());
        Search second(&finder, 0);
        EXPECT_TRUE(found.WaitForEvents(3));
        EXPECT_FALSE(second.Stop());
        EXPECT_EQ(found.Events(), (Events{Added(1), "complete", Added(1), "complete"}));
    });
}

TEST(UPnPFinderTest, StartEndsTheOpenSearch) {
    OnNetwork([](const NetHost&) {
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        calls.interruptedSelect = 1;
        EXPECT_FALSE(finder.Start(UPNP_DEV_ROOT));
        EXPECT_EQ(found.Events(), Events{"error 0"});
    });
}

TEST(UPnPFinderTest, ASignalEndsTheSearchWhileAnswersGather) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1)});
        const LogCapture log;
        const int descriptors = OpenDescriptorCount();
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        const SignalRain rain;
        const Stopwatch watch;
        EXPECT_FALSE(finder.ReadSSDPRespond(600));
        EXPECT_LT(watch.ElapsedMs(), kCeilingMs);
        EXPECT_EQ(found.Events(), Events{"error 0"});
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    });
}

TEST(UPnPFinderTest, ASearchThatFoundDevicesAndWasNotStoppedIsTrue) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        const LogCapture log;
        const int descriptors = OpenDescriptorCount();
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        calls.interruptedSelect = 3;
        EXPECT_TRUE(finder.ReadSSDPRespond(0));
        EXPECT_EQ(found.Events(), (Events{Added(1), Added(2), "complete"}));
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
        EXPECT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
    });
}

TEST(UPnPFinderTest, ANegativeTimeOutEndsTheSearch) {
    OnNetwork([](const NetHost&) {
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        EXPECT_FALSE(finder.ReadSSDPRespond(-1));
        EXPECT_EQ(found.Events(), Events{"error 0"});
    });
}

TEST(UPnPFinderTest, ASignalDoesNotEndTheReceive) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        calls.failingReceive = 2;
        calls.receiveError = EINTR;
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        Search search(&finder, 0);
        EXPECT_TRUE(found.WaitForEvents(2));
        EXPECT_FALSE(search.Stop());
        EXPECT_EQ(found.Events(), (Events{Added(1), Added(2), "complete"}));
    });
}

TEST(UPnPFinderTest, AfterAFailedReceiveTheAnswerBeforeIsReportedAgain) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        calls.failingReceive = 2;
        calls.receiveError = EIO;
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        Search search(&finder, 0);
        EXPECT_TRUE(found.WaitForEvents(3));
        EXPECT_FALSE(search.Stop());
        EXPECT_EQ(found.Events(), (Events{Added(1), Added(1), Added(2), "complete"}));
    });
}

TEST(UPnPFinderTest, AFailedFirstReceiveReportsNothing) {
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1)});
        calls.failingReceive = 1;
        calls.receiveError = EIO;
        const LogCapture log;
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        Search search(&finder, 0);
        EXPECT_TRUE(found.WaitForEvents(1));
        EXPECT_FALSE(search.Stop());
        EXPECT_EQ(found.Events(), (Events{Added(1), "complete"}));
    });
}

// --- answers of all kinds; the last of each is one that is reported ---

TEST(UPnPFinderTest, AnAnswerThatIsNot200IsReadAndIgnored) {
    OnNetwork([](const NetHost& far) {
        const std::string rest = SsdpAnswer(1).substr(15);
        EXPECT_EQ(Find(far,
                       {"HTTP/1.1 404 Not Found" + rest, "HTTP/1.0 200 OK" + rest,
                        "http/1.1 200 ok" + rest, " HTTP/1.1 200 OK" + rest, "HTTP/1.1 200 O",
                        "NOTIFY * HTTP/1.1" + rest, SsdpAnswer(2)},
                       1),
                  (Events{Added(2), "complete"}));
    });
}

TEST(UPnPFinderTest, MoreMayFollowTheFirst15Bytes) {
    OnNetwork([](const NetHost& far) {
        EXPECT_EQ(
            Find(far, {"HTTP/1.1 200 OKAY\r\nLOCATION: l\r\nUSN: u\r\nSERVER: s\r\nST: t\r\n"}, 1),
            (Events{"add l|u|s|t", "complete"}));
    });
}

TEST(UPnPFinderTest, LowerCaseAndMissingHeadersArriveAsTheyAre) {
    OnNetwork([](const NetHost& far) {
        EXPECT_EQ(Find(far,
                       {"HTTP/1.1 200 OK\r\nlocation: l\r\nusn: u\r\nserver: s\r\nst: t\r\n\r\n",
                        "HTTP/1.1 200 OK\r\nUSN: u\r\nSERVER: s\r\nST: t\r\n\r\n"},
                       2),
                  (Events{kNothingFound, "add 200 OK|u|s|t", "complete"}));
    });
}

TEST(UPnPFinderTest, SixtyDevicesAtOnceAreAllReported) {
    OnNetwork([](const NetHost& far) {
        std::vector<std::string> answers;
        Events expected;
        for (int number = 0; number < 60; ++number) {
            answers.push_back(SsdpAnswer(number));
            expected.push_back(Added(number));
        }
        expected.emplace_back("complete");
        EXPECT_EQ(Find(far, answers, 60, 1), expected);
    });
}

TEST(UPnPFinderTest, ADeviceThatAnswersTwiceIsReportedTwice) {
    OnNetwork([](const NetHost& far) {
        EXPECT_EQ(Find(far, {SsdpAnswer(1), SsdpAnswer(1)}, 2),
                  (Events{Added(1), Added(1), "complete"}));
    });
}

// An answer of `size` bytes, whose last ones are its location.
std::string AnswerOf(size_t size) {
    const std::string end = "LOCATION: l\r\n";
    std::string answer = "HTTP/1.1 200 OK\r\nUSN: u\r\nSERVER: s\r\nST: t\r\nX: ";
    answer.append(size - answer.size() - end.size() - 2, 'x');
    return answer + "\r\n" + end;
}

TEST(UPnPFinderTest, AnEmptyDatagramIsIgnored) {
    OnNetwork([](const NetHost& far) {
        // In between, the answer before is not reported again.
        EXPECT_EQ(Find(far, {"", SsdpAnswer(1), "", "", SsdpAnswer(2)}, 2),
                  (Events{Added(1), Added(2), "complete"}));
    });
}

TEST(UPnPFinderTest, AnAnswerOf1024BytesIsWholeAndALongerOneIsCut) {
    OnNetwork([](const NetHost& far) {
        EXPECT_EQ(Find(far, {AnswerOf(1024), AnswerOf(1025), AnswerOf(9000), SsdpAnswer(1)}, 4),
                  (Events{"add l|u|s|t",
                          // The line end of the location is cut in two.
                          "add |u|s|t", "add 200 OK|u|s|t", Added(1), "complete"}));
    });
}

TEST(UPnPFinderTest, BytesThatAreNotTextHarmNothing) {
    OnNetwork([](const NetHost& far) {
        std::string every;
        for (int byte = 255; byte >= 0; --byte) {
            every.push_back(static_cast<char>(byte));
        }
        const std::string bytes = every.substr(0, 255 - '\r') + every.substr(256 - '\r', 3);
        const std::string nul("HTTP/1.1 200 OK\r\nUSN: \0\r\n", 26);
        EXPECT_EQ(
            Find(far,
                 {every, std::string(1024, '\0'), std::string(9000, '\xff'), nul,
                  "HTTP/1.1 200 OK\r\nLOCATION: " + bytes + "\r\n", SsdpAnswer(1)},
                 3),
            (Events{"add 200 OK||1 200 OK|P/1.1 200 OK",
                    "add " + bytes + "|/1.1 200 OK|1 200 OK|P/1.1 200 OK", Added(1), "complete"}));
    });
}

// --- stops ---

TEST(UPnPFinderTest, StopAtAnyMomentEndsTheSearch) {
    constexpr int kRounds = 1000;
    OnNetwork([](const NetHost& far) {
        const SsdpResponder responder(far, {SsdpAnswer(1), SsdpAnswer(2)});
        const LogCapture log;
        const int descriptors = OpenDescriptorCount();
        UPnPFinder finder;
        FoundDevices found;
        finder.AddObserver(&found);
        for (int round = 0; round < kRounds; ++round) {
            ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
            Search search(&finder, 0);
            // From at once to after the answers.
            for (volatile int spin = (round % 50) * (round % 50) * 20; spin > 0;) {
                spin = spin - 1;
            }
            ASSERT_FALSE(search.Stop());
        }
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    });
}

TEST(UPnPFinderTest, TheDestructorClosesAnOpenSearch) {
    OnNetwork([](const NetHost&) {
        const int descriptors = OpenDescriptorCount();
        {
            UPnPFinder finder;
            ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
            EXPECT_EQ(OpenDescriptorCount(), descriptors + 1);
        }
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    });
}

TEST(UPnPFinderTest, AChildProcessDoesNotInheritTheSocket) {
    OnNetwork([](const NetHost&) {
        const int fd = kpl::test::NextDescriptor();
        UPnPFinder finder;
        ASSERT_TRUE(finder.SendSSDPRequest(UPNP_DEV_ROOT));
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    });
}

}  // namespace
