#include <limits.h>
#include <poll.h>

#include <memory>

#include "cli/Argument.h"
#include "cli/CallbackSink.h"
#include "cli/Command.h"
#include "cli/Connect.h"
#include "cli/ExitCode.h"
#include "cli/Limits.h"
#include "cli/ParamText.h"
#include "cli/Text.h"
#include "cli/TimeLimit.h"
#include "kpl/rpc/RpcClient.h"

namespace kpl::cli {

namespace {

constexpr long kDefaultTimeoutMs = 25000;
constexpr size_t kCallbackSize = 16;  // header and two words

struct CallOptions {
    Params arguments;
    std::string server;
    std::string function;
    long timeoutMs = 0;
    long callbacks = 0;
    bool json = false;
};

// Returns kOk, or the code after saying what is wrong.
int ReadOptions(const Invocation& invocation, CallOptions* options) {
    const CommandLine& line = *invocation.line;
    std::string fault;
    const auto timeout = line.Number("--timeout", kDefaultTimeoutMs, 1, INT_MAX, &fault);
    const auto callbacks = line.Number("--callbacks", 0, 1, INT_MAX, &fault);
    if (!timeout || !callbacks) {
        return FailUsage(fault, "call");
    }
    options->timeoutMs = *timeout;
    options->callbacks = *callbacks;
    options->json = line.Has("--json");
    options->server = invocation.Word(0);
    options->function = invocation.Word(1);
    if (options->function.empty()) {
        return FailUsage("a function has a name", "call");
    }
    for (size_t i = 2; i < line.Words().size(); ++i) {
        std::optional<Param> argument = ParseArgument(invocation.Word(i), &fault);
        if (!argument) {
            return FailUsage(fault, "call");
        }
        options->arguments.push_back(std::move(*argument));
    }
    const size_t size = InvokeSize(options->arguments, options->function) +
                        (options->callbacks > 0 ? kCallbackSize : 0);
    if (size > kMaxCommandSize) {
        return FailUsage("the call would take " + std::to_string(size) + " bytes of at most " +
                             std::to_string(kMaxCommandSize),
                         "call");
    }
    return kOk;
}

bool PushArguments(rpc::RpcClient* client, const CallOptions& options,
                   const std::shared_ptr<CallbackSink>& sink) {
    rpc::RpcCommandMuxer* const muxer = client->GetCommandMuxer();
    for (const Param& argument : options.arguments) {
        if (!PushParam(muxer, argument)) {
            return false;
        }
    }
    if (sink == nullptr) {
        return true;
    }
    client->KeepForCall(sink);
    return muxer->Push(sink->Context());
}

void PrintResult(Output* out, const Params& result, bool json) {
    if (json) {
        out->Print("{\"result\":" + ParamsJson(result) + "}\n");
        return;
    }
    for (const Param& param : result) {
        out->Print(ParamLine(param) + "\n");
    }
}

void PrintCallback(Output* out, const Params& params, bool json) {
    if (json) {
        out->Print("{\"callback\":" + ParamsJson(params) + "}\n");
        return;
    }
    std::string text = "callback\n";
    for (const Param& param : params) {
        text += "  " + ParamLine(param) + "\n";
    }
    out->Print(text);
}

// Waits for something to take. False when the stop comes or the time is over; a server that goes is
// noticed within the slice.
bool AwaitCallback(const Invocation& invocation, const CallbackSink& sink, long leftMs) {
    constexpr long kSliceMs = 200;
    pollfd descriptors[2] = {{sink.Descriptor(), POLLIN, 0},
                             {invocation.stop->Descriptor(), POLLIN, 0}};
    (void)poll(descriptors, 2, static_cast<int>(std::min(leftMs, kSliceMs)));
    return (descriptors[0].revents & POLLIN) != 0;
}

// Prints callbacks until all have come or nothing more can.
int PrintCallbacks(const Invocation& invocation, const CallOptions& options,
                   const rpc::RpcClient& client, CallbackSink* sink, const TimeLimit& limit) {
    long arrived = 0;
    while (arrived < options.callbacks && !invocation.out->IsClosed()) {
        const bool last = limit.LeftMs() == 0 || !client.IsAlive() || invocation.stop->IsStopped();
        const std::optional<Params> params = sink->Take();
        if (params) {
            PrintCallback(invocation.out, *params, options.json);
            ++arrived;
        } else if (last && client.IsAlive() && !invocation.stop->IsStopped()) {
            return Fail(kNoAnswer, std::to_string(arrived) + " of " +
                                       std::to_string(options.callbacks) + " callbacks within " +
                                       std::to_string(options.timeoutMs) + " ms");
        } else if (last) {
            return FailedCall(invocation, client, limit, options.server, options.timeoutMs);
        } else {
            (void)AwaitCallback(invocation, *sink, limit.LeftMs());
        }
    }
    return kOk;
}

int CallAndPrint(const Invocation& invocation, const CallOptions& options, rpc::RpcClient* client) {
    const TimeLimit limit(options.timeoutMs);
    const int connected = Connect(invocation, client, options.server, options.timeoutMs);
    if (connected != kOk) {
        return connected;
    }
    const auto sink = options.callbacks > 0
                          ? std::make_shared<CallbackSink>(static_cast<size_t>(options.callbacks))
                          : nullptr;
    if (!PushArguments(client, options, sink) ||
        !client->Invoke(options.function.c_str(), limit.LeftMs())) {
        return FailedCall(invocation, *client, limit, options.server, options.timeoutMs);
    }
    const Params result = ReadParams(*client->GetCommandDemuxer(), 0);
    PrintResult(invocation.out, result, options.json);
    if (result.empty()) {
        return Fail(kDiffers, "an empty answer: '" + Printable(options.server) +
                                  "' has no function '" + Printable(options.function) +
                                  "', the arguments do not fit it, or its result is too large");
    }
    return sink != nullptr ? PrintCallbacks(invocation, options, *client, sink.get(), limit) : kOk;
}

}  // namespace

int RunCall(const Invocation& invocation) {
    CallOptions options;
    const int code = ReadOptions(invocation, &options);
    if (code != kOk) {
        return code;
    }
    rpc::RpcClient client;
    const StopAction action(invocation.stop, [&client] { client.Disconnect(); });
    return CallAndPrint(invocation, options, &client);
}

}  // namespace kpl::cli
