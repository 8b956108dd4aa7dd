#ifndef KPL_CLI_CONNECT_H_
#define KPL_CLI_CONNECT_H_

#include <string>

#include "cli/Command.h"
#include "cli/TimeLimit.h"

namespace kpl::rpc {
class RpcClient;
}  // namespace kpl::rpc

namespace kpl::cli {

// Holds a server's Root FIFO open for writing, if somebody reads it. As long as it does, the server
// is not woken again by a client that opens and closes the FIFO too.
class RootProbe {
public:
    RootProbe(const std::string& directory, const std::string& server);
    ~RootProbe();
    RootProbe(const RootProbe&) = delete;
    RootProbe& operator=(const RootProbe&) = delete;

    bool IsAlive() const { return m_descriptor != -1; }

    // Why it is not, and what to do about it.
    std::string Fault() const { return m_fault; }

private:
    int m_descriptor;
    std::string m_fault;
};

// Whether a server can have that name in that directory; else why not.
std::string FaultOfName(const std::string& directory, const std::string& server);

// Connects to a server of the pipe root. Returns kOk, or the code after saying what is wrong.
int Connect(const Invocation& invocation, rpc::RpcClient* client, const std::string& server,
            long timeoutMs);

// Why a call got no result within `limit`: says it and returns the code.
int FailedCall(const Invocation& invocation, const rpc::RpcClient& client, const TimeLimit& limit,
               const std::string& server, long timeoutMs);

// The value of --root.
std::string RootOf(const Invocation& invocation);

}  // namespace kpl::cli

#endif  // KPL_CLI_CONNECT_H_
