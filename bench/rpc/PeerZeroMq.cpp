// ZeroMQ: REQ and REP over a Unix socket. The numbers travel as they are.
#include <zmq.h>

#include "bench/rpc/Peer.h"

namespace kpl::bench {

namespace {

int Check(int result, const char* what) {
    if (result < 0) {
        Fail(kZeroMq.name, what);
    }
    return result;
}

std::string Address(const std::string& directory) {
    return "ipc://" + directory + "/socket";
}

class ZeroMqAdder : public Adder {
public:
    explicit ZeroMqAdder(const std::string& directory)
        : m_context(zmq_ctx_new()), m_socket(zmq_socket(m_context, ZMQ_REQ)) {
        Check(zmq_connect(m_socket, Address(directory).c_str()), "zmq_connect");
    }
    ~ZeroMqAdder() override {
        zmq_close(m_socket);
        zmq_ctx_term(m_context);
    }
    ZeroMqAdder(const ZeroMqAdder&) = delete;
    ZeroMqAdder& operator=(const ZeroMqAdder&) = delete;

    int Add(int a, int b) override {
        const int numbers[2] = {a, b};
        Check(zmq_send(m_socket, numbers, sizeof(numbers), 0), "zmq_send");
        int sum = 0;
        if (Check(zmq_recv(m_socket, &sum, sizeof(sum), 0), "zmq_recv") != sizeof(sum)) {
            Fail(kZeroMq.name, "a reply");
        }
        return sum;
    }

private:
    void* const m_context;
    void* const m_socket;
};

void Serve(const std::string& directory, const std::function<void()>& ready) {
    void* const context = zmq_ctx_new();
    void* const socket = zmq_socket(context, ZMQ_REP);
    Check(zmq_bind(socket, Address(directory).c_str()), "zmq_bind");
    ready();
    int numbers[2];
    while (zmq_recv(socket, numbers, sizeof(numbers), 0) == sizeof(numbers)) {
        const int sum = numbers[0] + numbers[1];
        Check(zmq_send(socket, &sum, sizeof(sum), 0), "zmq_send");
    }
}

std::unique_ptr<Adder> Connect(const std::string& directory) {
    return std::make_unique<ZeroMqAdder>(directory);
}

}  // namespace

const Peer kZeroMq{"ZeroMQ", Serve, Connect};

}  // namespace kpl::bench
