#include "tests/support/TestNetwork.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

namespace kpl::test {

namespace {

// What the child ends with when it could not even begin.
constexpr int kNotAllowed = 77;
constexpr int kNoCable = 78;

bool WriteFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    return !file.flush().fail();
}

// Not everybody may make a network namespace; in a user namespace of his own, often he may.
bool EnterNewNamespace() {
    if (unshare(CLONE_NEWNET) == 0) {
        return true;
    }
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 &&
           WriteFile("/proc/self/setgroups", "deny") &&
           WriteFile("/proc/self/uid_map", "0 " + user + " 1") &&
           WriteFile("/proc/self/gid_map", "0 " + group + " 1");
}

int OpenOwnNamespace() {
    return open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
}

bool IsRunning() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strcpy(request.ifr_name, "eth0");
    const bool known = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    close(fd);
    return known && (request.ifr_flags & IFF_RUNNING) != 0;
}

bool SetUp(const NetHost& host, const std::string& address) {
    return host.Ip("link set lo up") && host.Ip("link set eth0 up") &&
           (address.empty() || (host.Ip("address add " + address + " broadcast + dev eth0") &&
                                host.Ip("route add 224.0.0.0/4 dev eth0")));
}

bool Connect(const NetHost& near, const NetHost& far, const std::string& nearAddress,
             const std::string& farAddress) {
    const std::string path =
        "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(far.Descriptor());
    if (!near.Ip("link add eth0 type veth peer name eth0 netns " + path) ||
        !SetUp(near, nearAddress) || !SetUp(far, farAddress)) {
        return false;
    }
    bool running = false;
    far.Run([&] { running = WaitUntil(IsRunning); });
    return running && WaitUntil(IsRunning);
}

int RunOnTwoHosts(const std::string& nearAddress, const std::string& farAddress,
                  const std::function<void(const NetHost&, const NetHost&)>& body) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!EnterNewNamespace()) {
        return kNotAllowed;
    }
    const NetHost far(OpenOwnNamespace());
    if (unshare(CLONE_NEWNET) != 0) {
        return kNotAllowed;
    }
    const NetHost near(OpenOwnNamespace());
    if (!Connect(near, far, nearAddress, farAddress)) {
        return kNoCable;
    }
    body(near, far);
    return testing::Test::HasFailure() ? 1 : 0;
}

std::vector<std::string> Words(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

// Becomes the program; returns only if there is none.
int Execute(int network, const std::vector<std::string>& command, const std::string& log) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (setns(network, CLONE_NEWNET) != 0) {
        return 126;
    }
    if (!log.empty()) {
        const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
    }
    std::vector<char*> argv;
    argv.reserve(command.size() + 1);
    for (const std::string& word : command) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    return 127;
}

}  // namespace

NetHost::~NetHost() {
    close(m_descriptor);
}

void NetHost::Run(const std::function<void()>& body) const {
    std::thread([&] {
        ASSERT_EQ(setns(m_descriptor, CLONE_NEWNET), 0);
        body();
    }).join();
}

std::unique_ptr<ChildProcess> NetHost::Start(const std::vector<std::string>& command,
                                             const std::string& log) const {
    return std::make_unique<ChildProcess>([&] { return Execute(m_descriptor, command, log); });
}

bool NetHost::Ip(const std::string& arguments) const {
    return Start(Words("ip " + arguments), "")->Wait() == 0;
}

void OnTwoHosts(const std::string& nearAddress, const std::string& farAddress,
                const std::function<void(const NetHost& near, const NetHost& far)>& body,
                long timeoutMs) {
    ChildProcess child([&] { return RunOnTwoHosts(nearAddress, farAddress, body); });
    const int result = child.Wait(timeoutMs);
    if (result == kNotAllowed) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
    if (result == kNoCable) {
        GTEST_SKIP() << "no pair of connected interfaces: is there the program ip of iproute2?";
    }
    ASSERT_EQ(result, 0) << "in the network of two hosts";
}

}  // namespace kpl::test
