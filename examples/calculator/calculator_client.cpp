#include <stdio.h>

#include "kpl/ipc/PipePath.h"
#include "kpl/rpc/RpcCall.h"

int main(int argc, char** argv) {
    kpl::ipc::SetPipeRootPath(argc > 1 ? argv[1] : "/tmp");
    kpl::rpc::RpcClient client;
    if (!client.Connect("Calculator", nullptr, 2000)) {
        fputs("calculator_client: there is no calculator\n", stderr);
        return 1;
    }
    const std::optional<int> sum = kpl::rpc::Call<int>(client, "Add", 19, 23);
    if (!sum) {
        fputs("calculator_client: no answer\n", stderr);
        return 1;
    }
    printf("19 + 23 = %d\n", *sum);
}
