#include <unistd.h>

#include <optional>

#include "bench/rpc/Peer.h"
#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCall.h"
#include "kpl/rpc/RpcExecutorManager.h"
#include "kpl/rpc/RpcFunctionTable.h"
#include "kpl/rpc/RpcServer.h"

namespace kpl::bench {

namespace {

constexpr char kServer[] = "Calculator";

class OurAdder : public Adder {
public:
    OurAdder() {
        if (!m_client.Connect(kServer, nullptr, 10000)) {
            Fail(kOurs.name, "Connect");
        }
    }

    int Add(int a, int b) override {
        const std::optional<int> sum = rpc::Call<int>(m_client, "Add", a, b);
        if (!sum) {
            Fail(kOurs.name, "Call");
        }
        return *sum;
    }

private:
    rpc::RpcClient m_client;
};

void Serve(const std::string& directory, const std::function<void()>& ready) {
    ipc::SetPipeRootPath(directory.c_str());
    rpc::RpcFunctionTable table;
    table.Bind("Add", [](int a, int b) { return a + b; });
    rpc::RpcExecutorManager::GetInstance()->RegisterExecutor(&table);
    rpc::RpcServer server;
    if (!server.Start(kServer, nullptr)) {
        Fail(kOurs.name, "Start");
    }
    ready();
    for (;;) {
        pause();
    }
}

std::unique_ptr<Adder> Connect(const std::string& directory) {
    ipc::SetPipeRootPath(directory.c_str());
    return std::make_unique<OurAdder>();
}

}  // namespace

const Peer kOurs{"ours", Serve, Connect};

}  // namespace kpl::bench
