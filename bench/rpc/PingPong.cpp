#include "bench/rpc/PingPong.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace kpl::bench {

namespace {

constexpr size_t kLargest = 16384;

std::string Requests(const std::string& directory) {
    return directory + "/requests";
}

std::string Replies(const std::string& directory) {
    return directory + "/replies";
}

}  // namespace

void FifoPair::Make(const std::string& directory) {
    (void)mkfifo(Requests(directory).c_str(), 0700);
    (void)mkfifo(Replies(directory).c_str(), 0700);
}

FifoPair FifoPair::OpenServer(const std::string& directory) {
    const int reader = open(Requests(directory).c_str(), O_RDONLY | O_CLOEXEC);
    return FifoPair(reader, open(Replies(directory).c_str(), O_WRONLY | O_CLOEXEC));
}

FifoPair FifoPair::OpenClient(const std::string& directory) {
    const int writer = open(Requests(directory).c_str(), O_WRONLY | O_CLOEXEC);
    return FifoPair(open(Replies(directory).c_str(), O_RDONLY | O_CLOEXEC), writer);
}

FifoPair::FifoPair(FifoPair&& other) noexcept
    : m_reader(std::exchange(other.m_reader, -1)), m_writer(std::exchange(other.m_writer, -1)) {}

FifoPair::~FifoPair() {
    close(m_writer);
    close(m_reader);
}

bool FifoPair::Read(int size) const {
    char bytes[kLargest];
    int done = 0;
    while (done < size) {
        const ssize_t received = read(m_reader, bytes, static_cast<size_t>(size - done));
        if (received <= 0) {
            return false;
        }
        done += static_cast<int>(received);
    }
    return true;
}

bool FifoPair::Write(int size) const {
    static const char bytes[kLargest] = {};
    return write(m_writer, bytes, static_cast<size_t>(size)) == size;
}

void ServePingPong(const std::string& directory, Sizes sizes) {
    const FifoPair fifos = FifoPair::OpenServer(directory);
    while (fifos.Read(sizes.request) && fifos.Write(sizes.reply)) {
    }
}

HandedOverPingPong::HandedOverPingPong(const std::string& directory, Sizes sizes)
    : m_fifos(FifoPair::OpenClient(directory)),
      m_sizes(sizes),
      m_reader(&HandedOverPingPong::ReadReplies, this) {}

HandedOverPingPong::~HandedOverPingPong() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    (void)m_fifos.Write(m_sizes.request);  // Its reply is the last one read.
    m_reader.join();
}

void HandedOverPingPong::ReadReplies() {
    bool goesOn = true;
    while (goesOn) {
        const bool received = m_fifos.Read(m_sizes.reply);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_replied = true;
        m_ended = !received;
        goesOn = received && !m_stop;
        m_changed.notify_one();
    }
}

bool HandedOverPingPong::RoundTrip() {
    if (!m_fifos.Write(m_sizes.request)) {
        return false;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_replied; });
    m_replied = false;
    return !m_ended;
}

}  // namespace kpl::bench
