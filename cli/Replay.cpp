#include <limits.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "cli/CallbackSink.h"
#include "cli/Command.h"
#include "cli/Connect.h"
#include "cli/EpgBlock.h"
#include "cli/ExitCode.h"
#include "cli/ParamText.h"
#include "cli/ReadFile.h"
#include "cli/Recording.h"
#include "cli/Text.h"
#include "kpl/rpc/RpcClient.h"

namespace kpl::cli {

namespace {

// A recorded call, or the end of a connection.
struct Step {
    uint32_t connection = 0;
    bool isEnd = false;
    uint32_t id = 0;
    std::string function;
    Params arguments;
    std::optional<Params> result;  // none was recorded
};

// Collects the steps of a recording: each result joins the latest invoke of its id.
class StepList {
public:
    void Add(const RecordedEvent& event) {
        if (event.kind == EntryKind::Closed) {
            m_steps.push_back({event.connection, true, 0, "", {}, std::nullopt});
        } else if (event.isCommand && IsInvoke(event)) {
            m_byId[{event.connection, event.id}] = m_steps.size();
            m_steps.push_back(
                {event.connection, false, event.id, event.function, event.params, std::nullopt});
        } else if (event.isCommand && IsResult(event)) {
            const auto found = m_byId.find({event.connection, event.id});
            if (found != m_byId.end()) {
                m_steps[found->second].result = event.params;
            }
        }
    }

    const std::vector<Step>& Steps() const { return m_steps; }

private:
    // One without a name cannot have come from a client of the library, which could not send it.
    static bool IsInvoke(const RecordedEvent& event) {
        return event.kind == EntryKind::FromClient && event.type == rpc::RPC_COMMAND_INVOKE &&
               !event.function.empty();
    }
    static bool IsResult(const RecordedEvent& event) {
        return event.kind == EntryKind::FromServer && event.type == rpc::RPC_COMMAND_RESULT;
    }

    std::vector<Step> m_steps;
    std::map<std::pair<uint32_t, uint32_t>, size_t> m_byId;
};

bool IsSame(const Param& recorded, const Param& now) {
    if (recorded.code != now.code) {
        return false;
    }
    switch (recorded.code) {
        case rpc::RPC_PARAM_CALLBACK:
            return recorded.bytes.size() == now.bytes.size();
        case rpc::RPC_PARAM_STRUCT:
            return MaskPointers(recorded.bytes) == MaskPointers(now.bytes);
        default:
            return recorded.bytes == now.bytes;
    }
}

std::string LineOf(const Params& params, size_t index) {
    return index < params.size() ? ParamLine(params[index]) : "nothing";
}

// What differs, empty if nothing does.
std::string Differences(const Output& out, const Params& recorded, const Params& now) {
    std::string text;
    for (size_t i = 0; i < std::max(recorded.size(), now.size()); ++i) {
        if (i < recorded.size() && i < now.size() && IsSame(recorded[i], now[i])) {
            continue;
        }
        text += "  parameter " + std::to_string(i) + "\n    " +
                out.Paint(Colour::Bad, "recorded " + LineOf(recorded, i)) + "\n    " +
                out.Paint(Colour::Good, "now      " + LineOf(now, i)) + "\n";
    }
    return text;
}

class Replayer {
public:
    Replayer(const Invocation& invocation, std::string server, long timeoutMs)
        : m_invocation(invocation), m_server(std::move(server)), m_timeoutMs(timeoutMs) {}

    // Returns the exit code.
    int Run(const std::vector<Step>& steps);

    // Ends every wait. Any thread.
    void Stop();

private:
    using ClientPtr = std::shared_ptr<rpc::RpcClient>;

    int Call(const Step& step);
    void Compare(const Step& step, const Params& result);
    bool PushArguments(rpc::RpcClient* client, const Params& arguments);
    ClientPtr ClientOf(uint32_t connection, bool* isNew);
    void EndConnection(uint32_t connection);

    const Invocation& m_invocation;
    const std::string m_server;
    const long m_timeoutMs;
    std::mutex m_lock;
    std::map<uint32_t, ClientPtr> m_clients;  // guarded by m_lock
    size_t m_calls = 0;
    size_t m_different = 0;
    size_t m_unrecorded = 0;
};

int Replayer::Run(const std::vector<Step>& steps) {
    for (const Step& step : steps) {
        if (step.isEnd) {
            EndConnection(step.connection);
            continue;
        }
        const int code = Call(step);
        if (code != kOk) {
            return code;
        }
    }
    std::string text =
        std::to_string(m_calls) + " calls, " + std::to_string(m_different) + " results differ";
    if (m_unrecorded > 0) {
        text += ", " + std::to_string(m_unrecorded) + " had no recorded result";
    }
    m_invocation.out->Print(text + "\n");
    return m_different > 0 ? kDiffers : kOk;
}

int Replayer::Call(const Step& step) {
    bool isNew = false;
    const ClientPtr client = ClientOf(step.connection, &isNew);
    if (m_invocation.stop->IsStopped()) {
        return Interrupted(m_invocation);
    }
    const int connected = isNew ? Connect(m_invocation, client.get(), m_server, m_timeoutMs) : kOk;
    if (connected != kOk) {
        return connected;
    }
    const TimeLimit limit(m_timeoutMs);
    if (!PushArguments(client.get(), step.arguments) ||
        !client->Invoke(step.function.c_str(), m_timeoutMs)) {
        m_invocation.out->Print("#" + std::to_string(step.connection) + " invoke " +
                                std::to_string(step.id) + " " + Printable(step.function) +
                                " was not answered\n");
        return FailedCall(m_invocation, *client, limit, m_server, m_timeoutMs);
    }
    ++m_calls;
    Compare(step, ReadParams(*client->GetCommandDemuxer(), 0));
    return kOk;
}

void Replayer::Compare(const Step& step, const Params& result) {
    if (!step.result) {
        ++m_unrecorded;
        return;
    }
    const std::string differences = Differences(*m_invocation.out, *step.result, result);
    if (differences.empty()) {
        return;
    }
    ++m_different;
    m_invocation.out->Print("#" + std::to_string(step.connection) + " invoke " +
                            std::to_string(step.id) + " " + Printable(step.function) +
                            " differs\n" + differences);
}

// The recorded words of a callback are addresses of another process. Ours lead to where nobody
// listens: callbacks are not compared.
bool Replayer::PushArguments(rpc::RpcClient* client, const Params& arguments) {
    rpc::RpcCommandMuxer* const muxer = client->GetCommandMuxer();
    for (const Param& argument : arguments) {
        if (argument.code != rpc::RPC_PARAM_CALLBACK) {
            if (!PushParam(muxer, argument)) {
                return false;
            }
            continue;
        }
        const auto sink = std::make_shared<CallbackSink>(0);
        client->KeepForCall(sink);
        if (!muxer->Push(sink->Context())) {
            return false;
        }
    }
    return true;
}

Replayer::ClientPtr Replayer::ClientOf(uint32_t connection, bool* isNew) {
    const std::lock_guard<std::mutex> lock(m_lock);
    ClientPtr& client = m_clients[connection];
    *isNew = client == nullptr;
    if (*isNew) {
        client = std::make_shared<rpc::RpcClient>();
    }
    return client;
}

void Replayer::EndConnection(uint32_t connection) {
    ClientPtr client;  // destroyed without the lock
    const std::lock_guard<std::mutex> lock(m_lock);
    const auto found = m_clients.find(connection);
    if (found != m_clients.end()) {
        client.swap(found->second);
        m_clients.erase(found);
    }
}

void Replayer::Stop() {
    std::vector<ClientPtr> clients;
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        for (const auto& [connection, client] : m_clients) {
            clients.push_back(client);
        }
    }
    for (const ClientPtr& client : clients) {
        client->Disconnect();
    }
}

}  // namespace

int RunReplay(const Invocation& invocation) {
    constexpr long kDefaultTimeoutMs = 25000;
    const std::string& path = invocation.Word(0);
    std::string fault;
    const auto timeout =
        invocation.line->Number("--timeout", kDefaultTimeoutMs, 1, INT_MAX, &fault);
    if (!timeout) {
        return FailUsage(fault, "replay");
    }
    const int fd = OpenRegularFile(path, &fault);
    if (fd == -1) {
        return Fail(kFile, fault);
    }
    close(fd);
    std::ifstream in(path, std::ios::binary);
    StepList steps;
    Recording recording;
    fault = recording.Read(&in, [&](const RecordedEvent& event) {
        steps.Add(event);
        return !invocation.stop->IsStopped();
    });
    if (!fault.empty()) {
        return Fail(kFile, "'" + path + "': " + fault + "; nothing was sent");
    }
    Replayer replayer(invocation, invocation.Word(1), *timeout);
    const StopAction action(invocation.stop, [&replayer] { replayer.Stop(); });
    return replayer.Run(steps.Steps());
}

}  // namespace kpl::cli
