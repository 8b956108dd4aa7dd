// nng: req and rep over a Unix socket, its messages handed over without a copy. The numbers travel
// as they are.
#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <string.h>

#include "bench/rpc/Peer.h"

namespace kpl::bench {

namespace {

void Check(int error, const char* what) {
    if (error != 0) {
        Fail(kNng.name, what);
    }
}

std::string Address(const std::string& directory) {
    return "ipc://" + directory + "/socket";
}

class NngAdder : public Adder {
public:
    explicit NngAdder(const std::string& directory) {
        Check(nng_req0_open(&m_socket), "nng_req0_open");
        Check(nng_dial(m_socket, Address(directory).c_str(), nullptr, 0), "nng_dial");
    }
    ~NngAdder() override { nng_close(m_socket); }
    NngAdder(const NngAdder&) = delete;
    NngAdder& operator=(const NngAdder&) = delete;

    int Add(int a, int b) override {
        const int numbers[2] = {a, b};
        nng_msg* message = nullptr;
        Check(nng_msg_alloc(&message, 0), "nng_msg_alloc");
        Check(nng_msg_append(message, numbers, sizeof(numbers)), "nng_msg_append");
        Check(nng_sendmsg(m_socket, message, 0), "nng_sendmsg");
        Check(nng_recvmsg(m_socket, &message, 0), "nng_recvmsg");
        int sum = 0;
        if (nng_msg_len(message) != sizeof(sum)) {
            Fail(kNng.name, "a reply");
        }
        memcpy(&sum, nng_msg_body(message), sizeof(sum));
        nng_msg_free(message);
        return sum;
    }

private:
    nng_socket m_socket{};
};

void Serve(const std::string& directory, const std::function<void()>& ready) {
    nng_socket socket{};
    Check(nng_rep0_open(&socket), "nng_rep0_open");
    Check(nng_listen(socket, Address(directory).c_str(), nullptr, 0), "nng_listen");
    ready();
    nng_msg* message = nullptr;
    while (nng_recvmsg(socket, &message, 0) == 0) {
        int numbers[2];
        if (nng_msg_len(message) != sizeof(numbers)) {
            Fail(kNng.name, "a request");
        }
        memcpy(numbers, nng_msg_body(message), sizeof(numbers));
        const int sum = numbers[0] + numbers[1];
        nng_msg_clear(message);
        Check(nng_msg_append(message, &sum, sizeof(sum)), "nng_msg_append");
        Check(nng_sendmsg(socket, message, 0), "nng_sendmsg");
    }
}

std::unique_ptr<Adder> Connect(const std::string& directory) {
    return std::make_unique<NngAdder>(directory);
}

}  // namespace

const Peer kNng{"nng", Serve, Connect};

}  // namespace kpl::bench
