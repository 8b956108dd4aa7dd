// gRPC: the synchronous API on both sides, over a Unix socket, without encryption.
#include <grpcpp/grpcpp.h>

#include "Calculator.grpc.pb.h"
#include "bench/rpc/Peer.h"

namespace kpl::bench {

namespace {

std::string Address(const std::string& directory) {
    return "unix:" + directory + "/socket";
}

class Service final : public Calculator::Service {
    grpc::Status Add(grpc::ServerContext*, const AddRequest* request, AddReply* reply) override {
        reply->set_sum(request->a() + request->b());
        return grpc::Status::OK;
    }
};

class GrpcAdder : public Adder {
public:
    explicit GrpcAdder(const std::string& directory)
        : m_stub(Calculator::NewStub(
              grpc::CreateChannel(Address(directory), grpc::InsecureChannelCredentials()))) {}

    int Add(int a, int b) override {
        grpc::ClientContext context;
        AddRequest request;
        request.set_a(a);
        request.set_b(b);
        AddReply reply;
        if (!m_stub->Add(&context, request, &reply).ok()) {
            Fail(kGrpc.name, "Add");
        }
        return reply.sum();
    }

private:
    const std::unique_ptr<Calculator::Stub> m_stub;
};

void Serve(const std::string& directory, const std::function<void()>& ready) {
    Service service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(Address(directory), grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (server == nullptr) {
        Fail(kGrpc.name, "BuildAndStart");
    }
    ready();
    server->Wait();
}

std::unique_ptr<Adder> Connect(const std::string& directory) {
    return std::make_unique<GrpcAdder>(directory);
}

}  // namespace

const Peer kGrpc{"gRPC", Serve, Connect};

}  // namespace kpl::bench
