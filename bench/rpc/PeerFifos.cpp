#include <fcntl.h>
#include <string.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "bench/rpc/Peer.h"
#include "kpl/rpc/RpcCommandMuxer.h"

namespace kpl::bench {

namespace {

// The bytes of one round trip: as many as our commands have, the numbers in front.
struct Sizes {
    size_t request;
    size_t reply;
};

Sizes SizesOfAdd() {
    char buffer[128];
    rpc::RpcCommandMuxer muxer(buffer, sizeof(buffer));
    (void)(muxer.Push(1) && muxer.Push(2));
    const int request = muxer.Finish(rpc::RPC_COMMAND_INVOKE, "Add", 1);
    (void)muxer.Push(3);
    const int reply = muxer.Finish(rpc::RPC_COMMAND_RESULT, nullptr, 1);
    return {static_cast<size_t>(request), static_cast<size_t>(reply)};
}

constexpr size_t kLargest = 128;

std::string Requests(const std::string& directory, int number) {
    return directory + "/requests" + std::to_string(number);
}

std::string Replies(const std::string& directory, int number) {
    return directory + "/replies" + std::to_string(number);
}

// One side of a pair.
class Fifos {
public:
    Fifos(int reader, int writer, bool selects)
        : m_reader(reader), m_writer(writer), m_selects(selects) {}
    ~Fifos() {
        close(m_writer);
        close(m_reader);
    }
    Fifos(const Fifos&) = delete;
    Fifos& operator=(const Fifos&) = delete;

    // Messages this short are never cut in two.
    bool Read(char* bytes, size_t size) const {
        return (!m_selects || WaitReadable()) &&
               read(m_reader, bytes, size) == static_cast<ssize_t>(size);
    }
    bool Write(const char* bytes, size_t size) const {
        return write(m_writer, bytes, size) == static_cast<ssize_t>(size);
    }

private:
    bool WaitReadable() const {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(m_reader, &set);
        timeval timeout{1, 0};
        return select(m_reader + 1, &set, nullptr, nullptr, &timeout) == 1;
    }

    const int m_reader;
    const int m_writer;
    const bool m_selects;
};

class FifoAdder : public Adder {
public:
    FifoAdder(const std::string& directory, int number, bool selects) {
        const int writer = open(Requests(directory, number).c_str(), O_WRONLY | O_CLOEXEC);
        const int reader = open(Replies(directory, number).c_str(), O_RDONLY | O_CLOEXEC);
        m_fifos = std::make_unique<Fifos>(reader, writer, selects);
    }

    int Add(int a, int b) override {
        char bytes[kLargest] = {};
        memcpy(bytes, &a, sizeof(a));
        memcpy(bytes + sizeof(a), &b, sizeof(b));
        if (!m_fifos->Write(bytes, m_sizes.request) || !m_fifos->Read(bytes, m_sizes.reply)) {
            Fail(kFifos.name, "a round trip");
        }
        int sum = 0;
        memcpy(&sum, bytes, sizeof(sum));
        return sum;
    }

private:
    const Sizes m_sizes = SizesOfAdd();
    std::unique_ptr<Fifos> m_fifos;
};

void ServePair(const std::string& directory, int number, bool selects) {
    const Sizes sizes = SizesOfAdd();
    const int reader = open(Requests(directory, number).c_str(), O_RDONLY | O_CLOEXEC);
    const int writer = open(Replies(directory, number).c_str(), O_WRONLY | O_CLOEXEC);
    const Fifos fifos(reader, writer, selects);
    char bytes[kLargest] = {};
    while (fifos.Read(bytes, sizes.request)) {
        int numbers[2];
        memcpy(numbers, bytes, sizeof(numbers));
        const int sum = numbers[0] + numbers[1];
        memcpy(bytes, &sum, sizeof(sum));
        if (!fifos.Write(bytes, sizes.reply)) {
            return;
        }
    }
}

void Serve(const std::string& directory, const std::function<void()>& ready) {
    if (!std::filesystem::exists(Replies(directory, 0))) {
        MakeFifoPairs(directory, 1);
    }
    ready();
    std::vector<std::thread> others;
    for (int i = 1; std::filesystem::exists(Replies(directory, i)); ++i) {
        others.emplace_back([&directory, i] { ServePair(directory, i, false); });
    }
    ServePair(directory, 0, false);
    for (std::thread& thread : others) {
        thread.join();
    }
}

std::unique_ptr<Adder> Connect(const std::string& directory) {
    return ConnectFifoPair(directory, 0);
}

void ServeWithSelect(const std::string& directory, const std::function<void()>& ready) {
    MakeFifoPairs(directory, 1);
    ready();
    ServePair(directory, 0, true);
}

std::unique_ptr<Adder> ConnectWithSelect(const std::string& directory) {
    return std::make_unique<FifoAdder>(directory, 0, true);
}

}  // namespace

void MakeFifoPairs(const std::string& directory, int count) {
    for (int i = 0; i < count; ++i) {
        if (mkfifo(Requests(directory, i).c_str(), 0700) != 0 ||
            mkfifo(Replies(directory, i).c_str(), 0700) != 0) {
            Fail(kFifos.name, "mkfifo");
        }
    }
}

std::unique_ptr<Adder> ConnectFifoPair(const std::string& directory, int number) {
    return std::make_unique<FifoAdder>(directory, number, false);
}

const Peer kFifos{"raw: FIFO ping-pong", Serve, Connect};
const Peer kFifosWithSelect{"raw: select and read", ServeWithSelect, ConnectWithSelect};

}  // namespace kpl::bench
