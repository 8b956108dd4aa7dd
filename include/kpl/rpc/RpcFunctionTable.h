#ifndef KPL_RPC_RPCFUNCTIONTABLE_H_
#define KPL_RPC_RPCFUNCTIONTABLE_H_

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kpl/Export.h"
#include "kpl/rpc/RpcExecutor.h"
#include "kpl/rpc/RpcTypedParam.h"

namespace kpl::rpc {

// A callback parameter as a bound function sees it: calling it runs the client's function there. It
// can be copied and kept after the call; it then keeps the way back to the client, not the client.
// Any thread.
class KPL_EXPORT RpcRemoteCallback {
public:
    // Callback number `index`, counted from 0, of call `id`. A null `callback` gives one that
    // cannot be called.
    RpcRemoteCallback(RpcCallback* callback, unsigned int id, int index);
    RpcRemoteCallback(const RpcRemoteCallback& other);
    RpcRemoteCallback& operator=(const RpcRemoteCallback& other);
    ~RpcRemoteCallback();

    // Sends the arguments to the client; does not wait for it. False once the client has gone, or
    // if they take more than 16384 bytes.
    template <class... Args>
    bool operator()(const Args&... args) const {
        char buffer[kBufferSize];
        RpcCommandMuxer muxer(buffer, kBufferSize);
        const bool pushed =
            muxer.Push(m_index) && (RpcTypedParam<std::decay_t<Args>>::Push(&muxer, args) && ...);
        return pushed && Send(&muxer);
    }

    // Whether it can be called; the client may be gone all the same.
    explicit operator bool() const { return m_callback != nullptr; }

private:
    static constexpr int kBufferSize = 16384;

    bool Send(RpcCommandMuxer* muxer) const;

    RpcCallback* m_callback;
    unsigned int m_id;
    int m_index;
};

// Functions of C++ types under names, as an executor. A call whose parameters do not fit the
// function in number, code or length, or whose result does not fit into 16384 bytes, leaves a
// forced message and gets a result without parameters. Functions run under the registry's lock and
// must not throw.
class KPL_EXPORT RpcFunctionTable : public RpcExecutor {
public:
    RpcFunctionTable();
    ~RpcFunctionTable() override;
    RpcFunctionTable(const RpcFunctionTable&) = delete;
    RpcFunctionTable& operator=(const RpcFunctionTable&) = delete;

    // Serves `name` with a function, a lambda or a std::function. Its parameters are scalars, const
    // char*, std::string, RpcArray, EpgDataList and RpcRemoteCallback, by value or const reference;
    // what points into memory is good during the call, also for the result. Its result, one of
    // these but the last, becomes parameter 0; a std::tuple's first value does, with the others
    // behind it; without a result an int 0 does. Returns false for a null or empty name and for one
    // that is bound already. Before the table is registered.
    template <class F>
    bool Bind(const char* name, F function);

    RpcCommandMuxer* Execute(RpcCommandDemuxer* demuxer, RpcCallback* callback) override;

private:
    enum class Outcome { Done, ArgumentsDoNotFit, ResultDoesNotFit };
    using Handler = std::function<Outcome(const RpcCommandDemuxer& command, RpcCallback* callback,
                                          RpcCommandMuxer* result)>;

    // One parameter of a bound function.
    template <class Params, size_t I>
    struct Param {
        using Type = std::tuple_element_t<I, Params>;
        static constexpr bool IsCallback = std::is_same_v<Type, RpcRemoteCallback>;
        static bool Fits(const RpcCommandDemuxer& command);
        static Type Get(const RpcCommandDemuxer& command, RpcCallback* callback);
    };

    template <class F, size_t... I>
    static Outcome Call(F& function, std::index_sequence<I...>, const RpcCommandDemuxer& command,
                        RpcCallback* callback, RpcCommandMuxer* result);
    template <class Function>
    static bool PushResult(RpcCommandMuxer* result, Function call);
    bool Add(const char* name, Handler handler);

    struct Private;
    const std::unique_ptr<Private> m_private;
};

template <class Params, size_t I>
bool RpcFunctionTable::Param<Params, I>::Fits(const RpcCommandDemuxer& command) {
    const int index = static_cast<int>(I);
    if constexpr (IsCallback) {
        return HasScalar(command, index, RPC_PARAM_CALLBACK, 8);
    } else {
        return RpcTypedParam<Type>::Fits(command, index);
    }
}

template <class Params, size_t I>
typename RpcFunctionTable::Param<Params, I>::Type RpcFunctionTable::Param<Params, I>::Get(
    const RpcCommandDemuxer& command, RpcCallback* callback) {
    const int index = static_cast<int>(I);
    if constexpr (IsCallback) {
        // Its number is its position among the callback parameters alone.
        int number = 0;
        for (int i = 0; i < index; ++i) {
            number += command.GetParamType(i) == RPC_PARAM_CALLBACK ? 1 : 0;
        }
        return RpcRemoteCallback(callback, command.GetId(), number);
    } else {
        return RpcTypedParam<Type>::Get(command, index);
    }
}

template <class F>
bool RpcFunctionTable::Bind(const char* name, F function) {
    using Params = typename CallableTraits<F>::Params;
    return Add(name, [function = std::move(function)](const RpcCommandDemuxer& command,
                                                      RpcCallback* callback,
                                                      RpcCommandMuxer* result) mutable {
        return Call(function, std::make_index_sequence<std::tuple_size_v<Params>>(), command,
                    callback, result);
    });
}

template <class F, size_t... I>
RpcFunctionTable::Outcome RpcFunctionTable::Call(F& function, std::index_sequence<I...>,
                                                 const RpcCommandDemuxer& command,
                                                 RpcCallback* callback, RpcCommandMuxer* result) {
    using Params = typename CallableTraits<F>::Params;
    (void)callback;
    // The function's name stands behind the arguments.
    if (command.GetCommandCounts() != static_cast<int>(sizeof...(I)) + 1 ||
        !(Param<Params, I>::Fits(command) && ...)) {
        return Outcome::ArgumentsDoNotFit;
    }
    // They live until the result is packed, which may point into them.
    Params arguments{Param<Params, I>::Get(command, callback)...};
    const bool pushed =
        PushResult(result, [&] { return std::apply(function, std::move(arguments)); });
    return pushed ? Outcome::Done : Outcome::ResultDoesNotFit;
}

template <class Function>
bool RpcFunctionTable::PushResult(RpcCommandMuxer* result, Function call) {
    using R = std::decay_t<decltype(call())>;
    if constexpr (std::is_void_v<R>) {
        call();
        return result->Push(0);
    } else {
        using Result = RpcTypedResult<R>;
        return RpcTypedParams<typename Result::Tuple>::Push(result, Result::ToTuple(call()));
    }
}

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCFUNCTIONTABLE_H_
