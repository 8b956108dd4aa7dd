// sd-bus, once with both sides on one Unix socket, once with a dbus-daemon in between.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <fstream>

#include "bench/rpc/Peer.h"
#include "bench/rpc/Process.h"

namespace kpl::bench {

namespace {

constexpr char kPath[] = "/Calculator";
constexpr char kInterface[] = "bench.Calculator";
constexpr char kBusName[] = "bench.Calculator";

int Check(int result, const char* what) {
    if (result < 0) {
        Fail("sd-bus", what);
    }
    return result;
}

int OnAdd(sd_bus_message* call, void*, sd_bus_error*) {
    int a = 0;
    int b = 0;
    const int read = sd_bus_message_read(call, "ii", &a, &b);
    return read < 0 ? read : sd_bus_reply_method_return(call, "i", a + b);
}

const sd_bus_vtable kVtable[] = {SD_BUS_VTABLE_START(0),
                                 SD_BUS_METHOD("Add", "ii", "i", OnAdd, SD_BUS_VTABLE_UNPRIVILEGED),
                                 SD_BUS_VTABLE_END};

void ServeOn(sd_bus* bus) {
    for (;;) {
        const int done = sd_bus_process(bus, nullptr);
        if (done < 0 || (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) {
            return;  // The client has gone.
        }
    }
}

sd_bus* New() {
    sd_bus* bus = nullptr;
    Check(sd_bus_new(&bus), "sd_bus_new");
    return bus;
}

class SdBusAdder : public Adder {
public:
    SdBusAdder(const std::string& address, const char* destination)
        : m_bus(New()), m_destination(destination) {
        Check(sd_bus_set_address(m_bus, address.c_str()), "sd_bus_set_address");
        Check(sd_bus_set_bus_client(m_bus, destination != nullptr ? 1 : 0), "set_bus_client");
        Check(sd_bus_start(m_bus), "sd_bus_start");
    }
    ~SdBusAdder() override { sd_bus_flush_close_unref(m_bus); }
    SdBusAdder(const SdBusAdder&) = delete;
    SdBusAdder& operator=(const SdBusAdder&) = delete;

    int Add(int a, int b) override {
        sd_bus_message* reply = nullptr;
        Check(sd_bus_call_method(m_bus, m_destination, kPath, kInterface, "Add", nullptr, &reply,
                                 "ii", a, b),
              "sd_bus_call_method");
        int sum = 0;
        Check(sd_bus_message_read(reply, "i", &sum), "the result");
        sd_bus_message_unref(reply);
        return sum;
    }

private:
    sd_bus* const m_bus;
    const char* const m_destination;
};

// --- On one socket ---

std::string SocketPath(const std::string& directory) {
    return directory + "/socket";
}

int Listen(const std::string& path) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        Fail("sd-bus", "bind");
    }
    Check(listen(listener, 1), "listen");
    return listener;
}

void Serve(const std::string& directory, const std::function<void()>& ready) {
    const int listener = Listen(SocketPath(directory));
    ready();
    const int client = Check(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept");
    sd_bus* const bus = New();
    sd_id128_t id{};
    Check(sd_id128_randomize(&id), "sd_id128_randomize");
    Check(sd_bus_set_fd(bus, client, client), "sd_bus_set_fd");
    Check(sd_bus_set_server(bus, 1, id), "sd_bus_set_server");
    Check(sd_bus_set_trusted(bus, 1), "sd_bus_set_trusted");
    Check(sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kVtable, nullptr), "vtable");
    Check(sd_bus_start(bus), "sd_bus_start");
    ServeOn(bus);
}

std::unique_ptr<Adder> Connect(const std::string& directory) {
    return std::make_unique<SdBusAdder>("unix:path=" + SocketPath(directory), nullptr);
}

// --- Over a bus ---

std::string WriteConfig(const std::string& directory) {
    const std::string path = directory + "/bus.conf";
    std::ofstream(path) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-BUS Bus "
                           "Configuration 1.0//EN\"\n"
                           "  \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                           "<busconfig>\n"
                           "  <listen>unix:path="
                        << SocketPath(directory)
                        << "</listen>\n"
                           "  <auth>EXTERNAL</auth>\n"
                           "  <policy context=\"default\">\n"
                           "    <allow send_destination=\"*\"/>\n"
                           "    <allow receive_sender=\"*\"/>\n"
                           "    <allow own=\"*\"/>\n"
                           "  </policy>\n"
                           "</busconfig>\n";
    return path;
}

void ServeOverBus(const std::string& directory, const std::function<void()>& ready) {
    // It prints its address once it listens.
    const Process daemon(
        {"dbus-daemon", "--config-file=" + WriteConfig(directory), "--nofork", "--print-address"});
    daemon.AwaitOutput();
    sd_bus* const bus = New();
    const std::string address = "unix:path=" + SocketPath(directory);
    Check(sd_bus_set_address(bus, address.c_str()), "sd_bus_set_address");
    Check(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
    Check(sd_bus_set_trusted(bus, 1), "sd_bus_set_trusted");
    Check(sd_bus_start(bus), "sd_bus_start");
    Check(sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kVtable, nullptr), "vtable");
    Check(sd_bus_request_name(bus, kBusName, 0), "sd_bus_request_name");
    ready();
    ServeOn(bus);
}

std::unique_ptr<Adder> ConnectOverBus(const std::string& directory) {
    return std::make_unique<SdBusAdder>("unix:path=" + SocketPath(directory), kBusName);
}

}  // namespace

const Peer kSdBus{"sd-bus peer to peer", Serve, Connect};
const Peer kSdBusOverBus{"sd-bus over a bus", ServeOverBus, ConnectOverBus};

}  // namespace kpl::bench
