// Devices of other makers, found on a network of the test's own. Their descriptions, read from
// where they say, are the judge of what the finder reports.
#include <arpa/inet.h>
#include <glob.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "kpl/net/UPnPFinder.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestNetwork.h"

namespace {

using kpl::net::UPNP_DEV_MEDIA_RENDERER;
using kpl::net::UPNP_DEV_ROOT;
using kpl::net::UPnPDevType;
using kpl::net::UPnPFinder;
using kpl::net::UPnPFinderObserver;
using kpl::test::ChildProcess;
using kpl::test::LogCapture;
using kpl::test::NetHost;
using kpl::test::OnTwoHosts;
using kpl::test::Stopwatch;
using kpl::test::TempDir;
using kpl::test::WaitUntil;

constexpr char kRendererTarget[] = "urn:schemas-upnp-org:device:MediaRenderer:1";

// A device of another maker, and where it describes itself.
struct Peer {
    std::string name;
    int port;
    std::string path;
    std::string uuid;

    std::string Location() const { return "http://10.77.3.2:" + std::to_string(port) + path; }
};

const Peer kRenderer{"gmediarender", 49494, "/description.xml",
                     "11111111-2222-3333-4444-555555555555"};
const Peer kServer{"minidlnad", 8200, "/rootDesc.xml", "4d696e69-444c-164e-9d41-0123456789ab"};

bool Exists(const char* pattern) {
    glob_t found{};
    const bool any = glob(pattern, 0, nullptr, &found) == 0;
    globfree(&found);
    return any;
}

// Needs GStreamer's player beside itself, which is a package of its own.
bool HasRenderer() {
    return Exists("/usr/bin/gmediarender") && Exists("/usr/lib/*/gstreamer-1.0/libgstplayback.so");
}

bool HasServer() {
    return Exists("/usr/sbin/minidlnad");
}

std::unique_ptr<ChildProcess> StartRenderer(const NetHost& host, const TempDir& dir) {
    return host.Start(
        {"env", "GST_REGISTRY=" + dir.Path() + "/registry", "gmediarender", "-I", "eth0", "-p",
         std::to_string(kRenderer.port), "-u", kRenderer.uuid, "-f", "Parlour", "--logfile",
         "stdout", "--gstout-audiosink", "fakesink", "--gstout-videosink", "fakesink"},
        dir.Path() + "/gmediarender.log");
}

std::unique_ptr<ChildProcess> StartServer(const NetHost& host, const TempDir& dir) {
    std::ofstream(dir.Path() + "/minidlna.conf")
        << "network_interface=eth0\nport=" << kServer.port << "\nuuid=" << kServer.uuid
        << "\nfriendly_name=Attic\ninotify=no\nmedia_dir=" << dir.Path()
        << "\ndb_dir=" << dir.Path() << "\nlog_dir=" << dir.Path() << "\n";
    return host.Start({"/usr/sbin/minidlnad", "-d", "-f", dir.Path() + "/minidlna.conf", "-P",
                       dir.Path() + "/minidlna.pid"},
                      dir.Path() + "/minidlnad.log");
}

// The peer's own description of itself with the head that it comes with; empty if it does not
// answer.
std::string Fetch(const Peer& peer) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(peer.port));
    address.sin_addr.s_addr = inet_addr("10.77.3.2");
    std::string answer;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
        const std::string request = "GET " + peer.path +
                                    " HTTP/1.0\r\nHost: 10.77.3.2:" + std::to_string(peer.port) +
                                    "\r\n\r\n";
        send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        char bytes[4096];
        for (ssize_t n = 0; (n = recv(fd, bytes, sizeof(bytes), 0)) > 0;) {
            answer.append(bytes, static_cast<size_t>(n));
        }
    }
    close(fd);
    return answer;
}

std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
    const size_t start = text.find(begin);
    if (start == std::string::npos) {
        return "<no " + begin + ">";
    }
    const size_t from = start + begin.size();
    return text.substr(from, text.find(end, from) - from);
}

// The server header of HTTP, which each writes as it likes.
std::string ServerIn(const std::string& answer) {
    const std::string upper = Between(answer, "\r\nSERVER: ", "\r\n");
    return upper[0] == '<' ? Between(answer, "\r\nServer: ", "\r\n") : upper;
}

struct Device {
    std::string location;
    std::string usn;
    std::string server;
    std::string st;
    long foundMs;
};

// By location.
class Devices : public UPnPFinderObserver {
public:
    void OnAddDevice(const char* location, const char* usn, const char* server,
                     const char* st) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_found[location] = Device{location, usn, server, st, m_watch.ElapsedMs()};
    }
    void OnSearchDeviceComplete() override {}
    void OnError(int code) override { ADD_FAILURE() << "error " << code; }

    std::map<std::string, Device> Found() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_found;
    }

private:
    const Stopwatch m_watch{};
    mutable std::mutex m_mutex;
    std::map<std::string, Device> m_found;
};

// Searches until `count` devices have been found: with Start, after its ten seconds, or with its
// two halves, each as it answers.
std::map<std::string, Device> Search(UPnPDevType type, size_t count, bool asTheyCome) {
    const LogCapture log;
    UPnPFinder finder;
    Devices devices;
    finder.AddObserver(&devices);
    auto end = std::async(std::launch::async, [&] {
        return asTheyCome ? finder.SendSSDPRequest(type) && finder.ReadSSDPRespond(0)
                          : finder.Start(type);
    });
    EXPECT_TRUE(WaitUntil([&] { return devices.Found().size() >= count; }, 20000));
    finder.Stop();
    EXPECT_FALSE(end.get());
    return devices.Found();
}

std::string LogOf(const TempDir& dir, const Peer& peer) {
    std::ifstream file(dir.Path() + "/" + peer.name + ".log");
    return std::string(std::istreambuf_iterator<char>(file), {});
}

bool WaitForDescription(const TempDir& dir, const Peer& peer) {
    const bool there = WaitUntil(
        [&] { return Fetch(peer).find("<UDN>uuid:" + peer.uuid) != std::string::npos; }, 60000);
    EXPECT_TRUE(there) << peer.name << " does not start:\n" << LogOf(dir, peer);
    return there;
}

void ExpectDevice(const std::map<std::string, Device>& found, const Peer& peer,
                  const std::string& target) {
    ASSERT_EQ(found.count(peer.Location()), 1u) << peer.name;
    const Device& device = found.at(peer.Location());
    const std::string description = Fetch(peer);
    EXPECT_EQ(device.usn, Between(description, "<UDN>", "</UDN>") + "::" + target);
    EXPECT_EQ(device.usn, "uuid:" + peer.uuid + "::" + target);
    EXPECT_EQ(device.server, ServerIn(description));
    EXPECT_EQ(device.st, target);
    std::cout << "[   FOUND  ] " << peer.name << " after " << device.foundMs
              << " ms: " << device.server << '\n';
}

TEST(UPnPFinderPeersTest, ARendererIsFoundAsOneAndAsARootDevice) {
    if (!HasRenderer()) {
        GTEST_SKIP() << "no gmediarender with GStreamer's player: scripts/setup --all installs it";
    }
    OnTwoHosts(
        "10.77.3.1/16", "10.77.3.2/16",
        [](const NetHost&, const NetHost& far) {
            const TempDir dir;
            const auto renderer = StartRenderer(far, dir);
            ASSERT_TRUE(WaitForDescription(dir, kRenderer));
            EXPECT_EQ(Between(Fetch(kRenderer), "<deviceType>", "</"), kRendererTarget);
            ExpectDevice(Search(UPNP_DEV_MEDIA_RENDERER, 1, true), kRenderer, kRendererTarget);
            ExpectDevice(Search(UPNP_DEV_ROOT, 1, true), kRenderer, "upnp:rootdevice");
        },
        110000);
}

TEST(UPnPFinderPeersTest, AMediaServerIsFoundAsARootDevice) {
    if (!HasServer()) {
        GTEST_SKIP() << "no minidlnad: scripts/setup --all installs it";
    }
    OnTwoHosts(
        "10.77.3.1/16", "10.77.3.2/16",
        [](const NetHost&, const NetHost& far) {
            const TempDir dir;
            const auto server = StartServer(far, dir);
            ASSERT_TRUE(WaitForDescription(dir, kServer));
            ExpectDevice(Search(UPNP_DEV_ROOT, 1, true), kServer, "upnp:rootdevice");
        },
        110000);
}

TEST(UPnPFinderPeersTest, StartFindsThemTogetherAndTellsTheRendererFromTheServer) {
    if (!HasRenderer() || !HasServer()) {
        GTEST_SKIP() << "no gmediarender, or no minidlnad: scripts/setup --all installs them";
    }
    OnTwoHosts(
        "10.77.3.1/16", "10.77.3.2/16",
        [](const NetHost&, const NetHost& far) {
            const TempDir dir;
            const auto renderer = StartRenderer(far, dir);
            const auto server = StartServer(far, dir);
            ASSERT_TRUE(WaitForDescription(dir, kRenderer));
            ASSERT_TRUE(WaitForDescription(dir, kServer));
            const auto roots = Search(UPNP_DEV_ROOT, 2, false);
            ExpectDevice(roots, kRenderer, "upnp:rootdevice");
            ExpectDevice(roots, kServer, "upnp:rootdevice");
            const auto renderers = Search(UPNP_DEV_MEDIA_RENDERER, 1, false);
            ExpectDevice(renderers, kRenderer, kRendererTarget);
            EXPECT_EQ(renderers.size(), 1u);
        },
        110000);
}

}  // namespace
