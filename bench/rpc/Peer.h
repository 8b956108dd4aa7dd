#ifndef KPL_BENCH_RPC_PEER_H_
#define KPL_BENCH_RPC_PEER_H_

#include <functional>
#include <memory>
#include <string>

namespace kpl::bench {

// Has a process of its own add two numbers.
class Adder {
public:
    virtual ~Adder() = default;

    // One round trip. Ends the program if it fails.
    virtual int Add(int a, int b) = 0;
};

// One way of calls between processes. Both sides meet in a directory that is theirs alone.
struct Peer {
    const char* name;

    // The server's process: calls `ready` once clients may come, and serves until it is killed.
    void (*serve)(const std::string& directory, const std::function<void()>& ready);

    // A connection of the calling process.
    std::unique_ptr<Adder> (*connect)(const std::string& directory);
};

// Any number of threads may call on one Adder of ours or of gRPC, and any number of their clients
// come; of the others one thread and one client.
extern const Peer kOurs;

// No library at all: the same bytes there and back, through two FIFOs. One blocks in read(2), the
// other waits in select(2) before each read, as a caller must that can be told to give up.
extern const Peer kFifos;
extern const Peer kFifosWithSelect;

extern const Peer kSdBus;
extern const Peer kSdBusOverBus;  // with a private message bus in between

extern const Peer kZeroMq;
extern const Peer kNng;
extern const Peer kGrpc;
extern const Peer kCapnp;

// Several pairs of FIFOs and one server process, which has a thread for each. Before it starts.
void MakeFifoPairs(const std::string& directory, int count);
// The one with that number, counted from 0; number 0 is the one of kFifos.
std::unique_ptr<Adder> ConnectFifoPair(const std::string& directory, int number);

// Ends the program: what cannot happen, and would make the numbers worthless.
[[noreturn]] void Fail(const char* peer, const char* what);

}  // namespace kpl::bench

#endif  // KPL_BENCH_RPC_PEER_H_
