// What a round trip between two processes costs at least: a request and a reply of given sizes over
// two FIFOs, with plain blocking system calls.
#ifndef KPL_BENCH_RPC_PINGPONG_H_
#define KPL_BENCH_RPC_PINGPONG_H_

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace kpl::bench {

// The bytes of one round trip.
struct Sizes {
    int request;
    int reply;
};

// The two FIFOs of a ping-pong; one end of them, once it is open.
class FifoPair {
public:
    // Makes the FIFOs, in that directory.
    static void Make(const std::string& directory);

    // Both block until the other side opens too.
    static FifoPair OpenServer(const std::string& directory);
    static FifoPair OpenClient(const std::string& directory);

    FifoPair(FifoPair&& other) noexcept;
    ~FifoPair();  // closes
    FifoPair(const FifoPair&) = delete;
    FifoPair& operator=(const FifoPair&) = delete;

    // Whole messages; false when the other side has gone.
    bool Read(int size) const;
    bool Write(int size) const;

private:
    FifoPair(int reader, int writer) : m_reader(reader), m_writer(writer) {}

    int m_reader;
    int m_writer;
};

// Answers requests until the client goes.
void ServePingPong(const std::string& directory, Sizes sizes);

// The caller reads the reply itself.
class PingPong {
public:
    PingPong(const std::string& directory, Sizes sizes)
        : m_fifos(FifoPair::OpenClient(directory)), m_sizes(sizes) {}

    bool RoundTrip() { return m_fifos.Write(m_sizes.request) && m_fifos.Read(m_sizes.reply); }

private:
    FifoPair m_fifos;
    Sizes m_sizes;
};

// A thread reads the replies and wakes the caller, as any client must that takes replies for
// several threads.
class HandedOverPingPong {
public:
    HandedOverPingPong(const std::string& directory, Sizes sizes);
    ~HandedOverPingPong();

    bool RoundTrip();

private:
    void ReadReplies();

    FifoPair m_fifos;
    Sizes m_sizes;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_replied = false;
    bool m_ended = false;
    bool m_stop = false;
    std::thread m_reader;
};

}  // namespace kpl::bench

#endif  // KPL_BENCH_RPC_PINGPONG_H_
