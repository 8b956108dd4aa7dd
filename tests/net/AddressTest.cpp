#include "kpl/net/Address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>

#include "tests/net/NetTestSupport.h"
#include "tests/support/Process.h"

namespace kpl::net {
namespace {

using test::ChildProcess;

constexpr int kNotAllowed = 77;

// No name here is looked up anywhere: addresses, this machine's own name for itself, and names that
// no resolver accepts.
const std::string kImpossibleName(64, 'a');  // a label has at most 63 letters

TEST(GetIpByNameTest, AnAddressIsItself) {
    std::string ip = "old";
    EXPECT_TRUE(GetIpByName("192.0.2.7", "80", ip));
    EXPECT_EQ(ip, "192.0.2.7");
    ip = "old";
    EXPECT_TRUE(GetIpByName(std::string("192.0.2.7"), ip));
    EXPECT_EQ(ip, "192.0.2.7");
}

TEST(GetIpByNameTest, AHostWithOnlyTheLoopbackAddressIsFalseAndEmpty) {
    for (const char* host : {"localhost", "127.0.0.1"}) {
        std::string ip = "old";
        EXPECT_FALSE(GetIpByName(host, "80", ip));
        EXPECT_EQ(ip, "");
        ip = "old";
        EXPECT_FALSE(GetIpByName(std::string(host), ip));
        EXPECT_EQ(ip, "");
    }
}

TEST(GetIpByNameTest, OnlyTheExactLoopbackAddressIsSkipped) {
    std::string ip;
    EXPECT_TRUE(GetIpByName("127.0.0.2", "80", ip));
    EXPECT_EQ(ip, "127.0.0.2");
    EXPECT_TRUE(GetIpByName(std::string("127.0.0.2"), ip));
    EXPECT_EQ(ip, "127.0.0.2");
}

TEST(GetIpByNameTest, AHostAndAServiceAreRequired) {
    std::string ip = "old";
    EXPECT_FALSE(GetIpByName(nullptr, "80", ip));
    EXPECT_EQ(ip, "");
    ip = "old";
    EXPECT_FALSE(GetIpByName("", "80", ip));
    EXPECT_EQ(ip, "");
    ip = "old";
    EXPECT_FALSE(GetIpByName("192.0.2.7", nullptr, ip));
    EXPECT_EQ(ip, "");
    ip = "old";
    EXPECT_FALSE(GetIpByName("192.0.2.7", "", ip));
    EXPECT_EQ(ip, "");
    ip = "old";
    EXPECT_FALSE(GetIpByName(std::string(), ip));
    EXPECT_EQ(ip, "");
}

TEST(GetIpByNameTest, AnUnknownHostOrServiceIsFalseAndEmpty) {
    std::string ip = "old";
    EXPECT_FALSE(GetIpByName(kImpossibleName.c_str(), "80", ip));
    EXPECT_EQ(ip, "");
    ip = "old";
    EXPECT_FALSE(GetIpByName("192.0.2.7", "no-such-service", ip));
    EXPECT_EQ(ip, "");
    ip = "old";
    EXPECT_FALSE(GetIpByName(kImpossibleName, ip));
    EXPECT_EQ(ip, "");
}

TEST(GetIpByNameTest, TheResultMayBeTheStringOfTheHost) {
    std::string both = "192.0.2.7";
    EXPECT_TRUE(GetIpByName(both, both));
    EXPECT_EQ(both, "192.0.2.7");
    EXPECT_TRUE(GetIpByName(both.c_str(), "80", both));
    EXPECT_EQ(both, "192.0.2.7");
}

TEST(GetLocalIPTest, IsTheFirstAddressThatIsNotLoopback) {
    std::string expected;
    ifaddrs* all = nullptr;
    ASSERT_EQ(getifaddrs(&all), 0);
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        sockaddr_in address{};
        memcpy(&address, one->ifa_addr, sizeof(address));
        const std::string text = inet_ntoa(address.sin_addr);
        if (expected.empty() || expected == "127.0.0.1") {
            expected = text;
        }
    }
    freeifaddrs(all);
    std::string ip = "old";
    const int descriptors = test::OpenDescriptorCount();
    EXPECT_TRUE(GetLocalIP(ip));
    EXPECT_EQ(ip, expected.empty() ? "old" : expected);
    EXPECT_EQ(test::OpenDescriptorCount(), descriptors);
}

// Runs `body` in a process with network interfaces of its own, of which only the loopback exists,
// and that one switched off. Returns what it returns.
int InOwnNetwork(const std::function<int()>& body) {
    ChildProcess child(
        [&body] { return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 ? body() : kNotAllowed; });
    return child.Wait();
}

bool Ioctl(unsigned long request, ifreq* record) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool done = ioctl(fd, request, record) == 0;
    close(fd);
    return done;
}

ifreq Record(const char* name) {
    ifreq record{};
    strncpy(record.ifr_name, name, IFNAMSIZ - 1);
    return record;
}

bool SwitchOn(const char* name) {
    ifreq record = Record(name);
    record.ifr_flags = IFF_UP;
    return Ioctl(SIOCSIFFLAGS, &record);
}

bool SetAddress(const char* name, const char* text) {
    ifreq record = Record(name);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_aton(text, &address.sin_addr);
    memcpy(&record.ifr_addr, &address, sizeof(address));
    return Ioctl(SIOCSIFADDR, &record);
}

#define RUN_IN_OWN_NETWORK(body)                                               \
    do {                                                                       \
        const int result = InOwnNetwork(body);                                 \
        if (result == kNotAllowed) {                                           \
            GTEST_SKIP() << "no network namespace of its own is allowed here"; \
        }                                                                      \
        EXPECT_EQ(result, 0);                                                  \
    } while (false)

TEST(GetLocalIPTest, WithoutAnyAddressIsTrueAndUntouched) {
    RUN_IN_OWN_NETWORK([] {
        std::string ip = "old";
        return GetLocalIP(ip) && ip == "old" ? 0 : 1;
    });
}

TEST(GetLocalIPTest, WithOnlyLoopbackIsTrueAndLoopback) {
    RUN_IN_OWN_NETWORK([] {
        std::string ip = "old";
        return SwitchOn("lo") && GetLocalIP(ip) && ip == "127.0.0.1" ? 0 : 1;
    });
}

TEST(GetLocalIPTest, FindsTheAddressBehindTheLoopbackRecord) {
    RUN_IN_OWN_NETWORK([] {
        std::string ip = "old";
        return SwitchOn("lo") && SetAddress("lo:1", "192.0.2.9") &&
                       SetAddress("lo:2", "192.0.2.10") && GetLocalIP(ip) && ip == "192.0.2.9"
                   ? 0
                   : 1;
    });
}

TEST(GetLocalIPTest, WithoutADescriptorIsFalse) {
    std::string ip = "old";
    ::testing::internal::CaptureStderr();
    {
        const test::NoDescriptors none;
        EXPECT_FALSE(GetLocalIP(ip));
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "socket: Too many open files\n");
    EXPECT_EQ(ip, "old");
}

}  // namespace
}  // namespace kpl::net
