// Typed calls: Call<R>(client, "Name", arguments...) does what GetCommandMuxer, Push, Invoke and
// Get do by hand, and checks what comes back.
#ifndef KPL_RPC_RPCCALL_H_
#define KPL_RPC_RPCCALL_H_

#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kpl/Export.h"
#include "kpl/rpc/RpcClient.h"
#include "kpl/rpc/RpcTypedParam.h"

namespace kpl::rpc {

// How long a call without a time-out of its own waits.
constexpr long kDefaultCallTimeoutMs = 25000;

// Logs that the arguments of a callback did not fit its function.
KPL_EXPORT void ComplainAboutCallback(unsigned int id);

// A callable of the client that the server can call: it runs on the client's callback thread, with
// the callback's arguments as its parameters.
template <class F>
class CallbackProxy {
public:
    // Keeps a copy of the function.
    explicit CallbackProxy(F function) : m_function(std::move(function)) {}

    static void Run(void* proxy, RpcCommandDemuxer* command) {
        using Params = RpcTypedParams<typename CallableTraits<F>::Params>;
        // Parameter 0 is the callback's number.
        if (command->GetCommandCounts() == Params::Count + 1 && Params::Fit(*command, 1)) {
            (void)std::apply(static_cast<CallbackProxy*>(proxy)->m_function,
                             Params::Get(*command, 1));
        } else {
            ComplainAboutCallback(command->GetId());
        }
    }

private:
    F m_function;
};

// Whether an argument of that type is a function to be called back: a class that is no parameter
// type, or a pointer to a function.
template <class T>
constexpr bool IsCallbackArgument = std::is_function_v<std::remove_pointer_t<T>> ||
                                    (std::is_class_v<T> && !std::is_same_v<T, std::string> &&
                                     !std::is_same_v<T, RpcArray> &&
                                     !std::is_same_v<T, EpgDataList> &&
                                     !std::is_same_v<T, RpcCallbackContext>);

// Pushes one argument: a value, or a callable as a callback parameter.
template <class T>
bool PushArgument(RpcClient* client, RpcCommandMuxer* muxer, const T& argument) {
    using Value = std::decay_t<const T>;
    if constexpr (IsCallbackArgument<Value>) {
        const auto proxy = std::make_shared<CallbackProxy<Value>>(argument);
        client->KeepForCall(proxy);
        return muxer->Push(RpcCallbackContext(proxy.get(), &CallbackProxy<Value>::Run));
    } else if constexpr (std::is_same_v<Value, RpcCallbackContext>) {
        return muxer->Push(argument);
    } else {
        return RpcTypedParam<Value>::Push(muxer, argument);
    }
}

// What Call<R> returns: an optional R; for void, whether the call was answered.
template <class R>
struct CallResult {
    using Type = std::optional<R>;
    static Type Take(const RpcCommandDemuxer& result) {
        using Tuple = typename RpcTypedResult<R>::Tuple;
        using Params = RpcTypedParams<Tuple>;
        if (result.GetCommandCounts() < Params::Count || !Params::Fit(result, 0)) {
            return std::nullopt;
        }
        return RpcTypedResult<R>::FromTuple(Params::Get(result, 0));
    }
    static Type None() { return std::nullopt; }
};
template <>
struct CallResult<void> {
    using Type = bool;
    static Type Take(const RpcCommandDemuxer& result) { return result.GetCommandCounts() > 0; }
    static Type None() { return false; }
};

// Calls `name` and returns its result: an R, or a std::tuple of the value and the out-values.
// Nothing (for void: false) when not connected, when the arguments take more than 16384 bytes, when
// no answer comes within `timeoutMs` milliseconds (negative: without limit) or the server goes,
// when the server refuses the call, and when the result is not an R. Arguments are scalars,
// strings, RpcArray, EpgDataList, RpcCallbackContext and callables; a callable is copied, runs on
// the client's callback thread and lives as long as the connection. A result that points into
// memory is good until the thread's next call or Disconnect. Any thread.
template <class R, class Ms, class... Args, std::enable_if_t<std::is_integral_v<Ms>, bool> = true>
typename CallResult<R>::Type Call(RpcClient& client, Ms timeoutMs, const char* name,
                                  const Args&... args) {
    RpcCommandMuxer* const muxer = client.GetCommandMuxer();
    muxer->Reset();
    if (!(PushArgument(&client, muxer, args) && ...) ||
        !client.Invoke(name, static_cast<long>(timeoutMs))) {
        client.ForgetCommand();
        return CallResult<R>::None();
    }
    return CallResult<R>::Take(*client.GetCommandDemuxer());
}

// The same, within 25 seconds.
template <class R, class... Args>
typename CallResult<R>::Type Call(RpcClient& client, const char* name, const Args&... args) {
    return Call<R>(client, kDefaultCallTimeoutMs, name, args...);
}

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCALL_H_
