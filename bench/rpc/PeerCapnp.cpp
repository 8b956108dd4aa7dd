// Cap'n Proto: its two-party protocol over a Unix socket, one event loop on each side.
#include <capnp/ez-rpc.h>

#include "Calculator.capnp.h"
#include "bench/rpc/Peer.h"

namespace kpl::bench {

namespace {

std::string Address(const std::string& directory) {
    return "unix:" + directory + "/socket";
}

// The base class of the generated header has no virtual destructor.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class Service final : public schema::Calculator::Server {
    kj::Promise<void> add(AddContext context) override {
        const auto params = context.getParams();
        context.getResults().setSum(params.getA() + params.getB());
        return kj::READY_NOW;
    }
};
#pragma GCC diagnostic pop

class CapnpAdder : public Adder {
public:
    explicit CapnpAdder(const std::string& directory)
        : m_client(Address(directory)), m_calculator(m_client.getMain<schema::Calculator>()) {}
    ~CapnpAdder() noexcept override {}  // its members' may throw

    int Add(int a, int b) override {
        auto request = m_calculator.addRequest();
        request.setA(a);
        request.setB(b);
        return request.send().wait(m_client.getWaitScope()).getSum();
    }

private:
    capnp::EzRpcClient m_client;
    schema::Calculator::Client m_calculator;
};

void Serve(const std::string& directory, const std::function<void()>& ready) {
    capnp::EzRpcServer server(kj::heap<Service>(), Address(directory));
    auto& scope = server.getWaitScope();
    (void)server.getPort().wait(scope);  // It listens by then.
    ready();
    kj::NEVER_DONE.wait(scope);
}

std::unique_ptr<Adder> Connect(const std::string& directory) {
    return std::make_unique<CapnpAdder>(directory);
}

}  // namespace

const Peer kCapnp{"Cap'n Proto", Serve, Connect};

}  // namespace kpl::bench
