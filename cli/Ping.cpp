#include <limits.h>

#include <chrono>

#include "cli/Command.h"
#include "cli/Connect.h"
#include "cli/ExitCode.h"
#include "cli/Statistics.h"
#include "cli/Text.h"
#include "cli/TimeLimit.h"
#include "kpl/rpc/RpcClient.h"

namespace kpl::cli {

namespace {

// Nobody binds such a name, so the server answers at once, with an empty result.
constexpr char kNoFunction[] = "kpl-rpc ping";

struct PingOptions {
    std::string server;
    long count = 0;
    long intervalMs = 0;
    long timeoutMs = 0;
};

int ReadOptions(const Invocation& invocation, PingOptions* options) {
    constexpr long kDefaultIntervalMs = 1000;
    constexpr long kDefaultTimeoutMs = 2000;
    std::string fault;
    const CommandLine& line = *invocation.line;
    const auto count = line.Number("-c", LONG_MAX, 1, INT_MAX, &fault);
    const auto interval = line.Number("-i", kDefaultIntervalMs, 0, INT_MAX, &fault);
    const auto timeout = line.Number("--timeout", kDefaultTimeoutMs, 1, INT_MAX, &fault);
    if (!count || !interval || !timeout) {
        return FailUsage(fault, "ping");
    }
    *options = {invocation.Word(0), *count, *interval, *timeout};
    return kOk;
}

// One round trip, printed. False when there is no sense in another one.
bool PingOnce(const Invocation& invocation, const PingOptions& options, long number,
              rpc::RpcClient* client, Statistics* statistics) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const bool answered = client->Invoke(kNoFunction, options.timeoutMs);
    const auto took = std::chrono::nanoseconds(Clock::now() - start).count();
    if (!answered && invocation.stop->IsStopped()) {
        return false;  // not counted: it had no time
    }
    std::string text = "answer " + std::to_string(number) + ": ";
    if (answered) {
        statistics->AddAnswer(took);
        text += Milliseconds(took) + " ms";
    } else {
        statistics->AddLoss();
        text += client->IsAlive() ? "none within " + std::to_string(options.timeoutMs) + " ms"
                                  : "none, the server went away";
    }
    invocation.out->Print(text + "\n");
    return client->IsAlive() && !invocation.out->IsClosed();
}

int PingAll(const Invocation& invocation, const PingOptions& options, rpc::RpcClient* client) {
    const int connected = Connect(invocation, client, options.server, options.timeoutMs);
    if (connected != kOk) {
        return connected;
    }
    Statistics statistics;
    bool goesOn = true;
    for (long number = 1; goesOn; ++number) {
        const TimeLimit interval(options.intervalMs);
        goesOn = PingOnce(invocation, options, number, client, &statistics) &&
                 number < options.count && !invocation.stop->Wait(interval.LeftMs());
    }
    // After a stop the action has ended the connection: not the server went.
    const bool gone = !client->IsAlive() && !invocation.stop->IsStopped();
    invocation.out->Print("--- " + Printable(options.server) + ": " + statistics.Text());
    if (gone) {
        return kGone;
    }
    return statistics.Answers() > 0 || invocation.stop->IsStopped() ? kOk : kNoAnswer;
}

}  // namespace

int RunPing(const Invocation& invocation) {
    PingOptions options;
    const int code = ReadOptions(invocation, &options);
    if (code != kOk) {
        return code;
    }
    rpc::RpcClient client;
    const StopAction action(invocation.stop, [&client] { client.Disconnect(); });
    return PingAll(invocation, options, &client);
}

}  // namespace kpl::cli
