#ifndef KPL_CLI_PARAM_H_
#define KPL_CLI_PARAM_H_

#include <string>
#include <vector>

namespace kpl::rpc {
class RpcCommandDemuxer;
class RpcCommandMuxer;
}  // namespace kpl::rpc

namespace kpl::cli {

// A parameter as it stands in a command: its code and the bytes of its value, whatever they are.
struct Param {
    int code = 0;
    std::string bytes;
};

using Params = std::vector<Param>;

// The parameters of a valid command from `first` on; of an invoke without the function's name.
Params ReadParams(const rpc::RpcCommandDemuxer& command, int first);

bool PushParam(rpc::RpcCommandMuxer* muxer, const Param& param);

// What an invoke with these takes, in bytes.
size_t InvokeSize(const Params& params, const std::string& function);

}  // namespace kpl::cli

#endif  // KPL_CLI_PARAM_H_
