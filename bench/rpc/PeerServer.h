#ifndef KPL_BENCH_RPC_PEERSERVER_H_
#define KPL_BENCH_RPC_PEERSERVER_H_

#include <memory>
#include <string>
#include <vector>

#include "bench/rpc/Peer.h"
#include "bench/rpc/Process.h"

namespace kpl::bench {

// All there are, ours first.
const std::vector<const Peer*>& Peers();

// The server of a peer in a process of its own, with a directory of its own; ready for clients. It
// stays on the cores that the calling thread may use.
class PeerServer {
public:
    explicit PeerServer(const Peer& peer) : PeerServer(peer, 0) {}

    // kFifos, with that many pairs.
    static PeerServer OfFifoPairs(int count) { return PeerServer(kFifos, count); }

    std::unique_ptr<Adder> Connect() const { return m_peer.connect(m_directory); }
    std::unique_ptr<Adder> ConnectPair(int number) const {
        return ConnectFifoPair(m_directory, number);
    }
    pid_t Id() const { return m_process.Id(); }

private:
    PeerServer(const Peer& peer, int pairs);

    const Peer& m_peer;
    const std::string m_directory;
    const Process m_process;
};

// What its process runs, as "serve" with these arguments. Does not return.
void ServePeer(const std::string& name, const std::string& directory);

// A directory for all of them, removed with this object.
class Site {
public:
    Site();
    ~Site();
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;
};

}  // namespace kpl::bench

#endif  // KPL_BENCH_RPC_PEERSERVER_H_
