#include "bench/rpc/PeerServer.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

namespace kpl::bench {

namespace {

std::string root;

std::string NewDirectory(int pairs) {
    std::string directory = root + "/XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) {
        Fail("call_bench", "mkdtemp");
    }
    MakeFifoPairs(directory, pairs);
    return directory;
}

}  // namespace

const std::vector<const Peer*>& Peers() {
    static const std::vector<const Peer*> peers{&kOurs,  &kFifos,        &kFifosWithSelect,
                                                &kSdBus, &kSdBusOverBus, &kZeroMq,
                                                &kNng,   &kGrpc,         &kCapnp};
    return peers;
}

PeerServer::PeerServer(const Peer& peer, int pairs)
    : m_peer(peer),
      m_directory(NewDirectory(pairs)),
      m_process({"/proc/self/exe", "serve", peer.name, m_directory}) {
    m_process.AwaitOutput();
}

void ServePeer(const std::string& name, const std::string& directory) {
    for (const Peer* peer : Peers()) {
        if (peer->name == name) {
            peer->serve(directory, [] { (void)!write(STDOUT_FILENO, "r", 1); });
            _exit(0);  // Its only client has gone.
        }
    }
    Fail(name.c_str(), "to serve");
}

Site::Site() {
    root = (std::filesystem::temp_directory_path() / "kpl-bench-XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr) {
        Fail("call_bench", "mkdtemp");
    }
}

Site::~Site() {
    std::filesystem::remove_all(root);
}

}  // namespace kpl::bench
