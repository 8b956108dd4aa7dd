// How typed functions and calls take their values out of commands and put them in: unlike the plain
// Get, a value is taken only from a parameter of a fitting code and length.
#ifndef KPL_RPC_RPCTYPEDPARAM_H_
#define KPL_RPC_RPCTYPEDPARAM_H_

#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kpl/Export.h"
#include "kpl/rpc/EpgDataList.h"
#include "kpl/rpc/RpcArray.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "kpl/rpc/RpcCommandMuxer.h"
#include "kpl/rpc/RpcParam.h"

namespace kpl::rpc {

// Whether parameter `index` has a code of the same group as `type` (one-byte types, 32-bit integers
// other than int, and 64-bit integers each form one) and exactly `length` bytes.
KPL_EXPORT bool HasScalar(const RpcCommandDemuxer& command, int index, RpcParamType type,
                          int length);

// Whether it is a string that ends inside the parameter, a whole array, a whole list.
KPL_EXPORT bool HasString(const RpcCommandDemuxer& command, int index);
KPL_EXPORT bool HasArray(const RpcCommandDemuxer& command, int index);
KPL_EXPORT bool HasEpgDataList(const RpcCommandDemuxer& command, int index);

// One value of type T as a parameter: the scalars, const char*, std::string, RpcArray, EpgDataList.
// Pointers that come out point into the command. `long` travels as 4 bytes, and int64_t is a `long`
// on 64-bit hosts: for 64-bit values use long long, which is the same on both ends everywhere.
template <class T>
struct RpcTypedParam {
    static_assert(std::is_arithmetic_v<T>,
                  "not a parameter type: use a scalar, const char*, std::string, RpcArray, "
                  "EpgDataList or a callback");

    static bool Fits(const RpcCommandDemuxer& command, int index) {
        using Wire = typename ParamTypeTrait<T>::WireType;
        return HasScalar(command, index, ParamTypeTrait<T>::Type, static_cast<int>(sizeof(Wire)));
    }
    static T Get(const RpcCommandDemuxer& command, int index) { return command.Get<T>(index); }
    static bool Push(RpcCommandMuxer* muxer, T value) { return muxer->Push(value); }
};

template <>
struct RpcTypedParam<const char*> {
    static bool Fits(const RpcCommandDemuxer& command, int index) {
        return HasString(command, index);
    }
    static const char* Get(const RpcCommandDemuxer& command, int index) {
        return command.Get<const char*>(index);
    }
    static bool Push(RpcCommandMuxer* muxer, const char* value) {
        return muxer->Push<const char*>(value);
    }
};

template <>
struct RpcTypedParam<char*> : RpcTypedParam<const char*> {};

// Travels up to its first NUL.
template <>
struct RpcTypedParam<std::string> {
    static bool Fits(const RpcCommandDemuxer& command, int index) {
        return HasString(command, index);
    }
    static std::string Get(const RpcCommandDemuxer& command, int index) {
        return command.Get<const char*>(index);
    }
    static bool Push(RpcCommandMuxer* muxer, const std::string& value) {
        return muxer->Push<const char*>(value.c_str());
    }
};

template <>
struct RpcTypedParam<RpcArray> {
    static bool Fits(const RpcCommandDemuxer& command, int index) {
        return HasArray(command, index);
    }
    static RpcArray Get(const RpcCommandDemuxer& command, int index) {
        return command.Get<RpcArray>(index);
    }
    static bool Push(RpcCommandMuxer* muxer, const RpcArray& value) { return muxer->Push(value); }
};

template <>
struct RpcTypedParam<EpgDataList> {
    static bool Fits(const RpcCommandDemuxer& command, int index) {
        return HasEpgDataList(command, index);
    }
    static EpgDataList Get(const RpcCommandDemuxer& command, int index) {
        return command.Get<EpgDataList>(index);
    }
    static bool Push(RpcCommandMuxer* muxer, const EpgDataList& value) {
        return muxer->Push(value);
    }
};

// Result and parameter types of a callable: a function, a lambda, a std::function.
template <class F>
struct CallableTraits : CallableTraits<decltype(&F::operator())> {};
template <class R, class... Args>
struct CallableTraits<R (*)(Args...)> {
    using Result = R;
    using Params = std::tuple<std::decay_t<Args>...>;
    static_assert(((!std::is_lvalue_reference_v<Args> ||
                    std::is_const_v<std::remove_reference_t<Args>>)&&...),
                  "parameters are taken by value or by const reference");
};
template <class R, class... Args>
struct CallableTraits<R (*)(Args...) noexcept> : CallableTraits<R (*)(Args...)> {};
template <class R, class C, class... Args>
struct CallableTraits<R (C::*)(Args...)> : CallableTraits<R (*)(Args...)> {};
template <class R, class C, class... Args>
struct CallableTraits<R (C::*)(Args...) const> : CallableTraits<R (*)(Args...)> {};
template <class R, class C, class... Args>
struct CallableTraits<R (C::*)(Args...) noexcept> : CallableTraits<R (*)(Args...)> {};
template <class R, class C, class... Args>
struct CallableTraits<R (C::*)(Args...) const noexcept> : CallableTraits<R (*)(Args...)> {};

// Several values as consecutive parameters.
template <class Tuple>
struct RpcTypedParams;
template <class... T>
struct RpcTypedParams<std::tuple<T...>> {
    static constexpr int Count = static_cast<int>(sizeof...(T));

    // Whether the parameters from `first` on fit; there may be more.
    static bool Fit(const RpcCommandDemuxer& command, int first) {
        return Fit(command, first, std::index_sequence_for<T...>());
    }
    static std::tuple<T...> Get(const RpcCommandDemuxer& command, int first) {
        return Get(command, first, std::index_sequence_for<T...>());
    }
    static bool Push(RpcCommandMuxer* muxer, const std::tuple<T...>& values) {
        return std::apply(
            [muxer](const T&... value) { return (RpcTypedParam<T>::Push(muxer, value) && ...); },
            values);
    }

private:
    template <size_t... I>
    static bool Fit(const RpcCommandDemuxer& command, int first, std::index_sequence<I...>) {
        (void)command;
        (void)first;
        return (RpcTypedParam<T>::Fits(command, first + static_cast<int>(I)) && ...);
    }
    template <size_t... I>
    static std::tuple<T...> Get(const RpcCommandDemuxer& command, int first,
                                std::index_sequence<I...>) {
        (void)command;
        (void)first;
        return std::tuple<T...>{RpcTypedParam<T>::Get(command, first + static_cast<int>(I))...};
    }
};

// A result: one value, or a tuple of the value and the out-values behind it.
template <class R>
struct RpcTypedResult {
    using Tuple = std::tuple<R>;
    static R FromTuple(Tuple&& values) { return std::get<0>(std::move(values)); }
    static Tuple ToTuple(R value) { return Tuple{std::move(value)}; }
};
template <class... R>
struct RpcTypedResult<std::tuple<R...>> {
    using Tuple = std::tuple<R...>;
    static Tuple FromTuple(Tuple&& values) { return std::move(values); }
    static Tuple ToTuple(Tuple values) { return values; }
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCTYPEDPARAM_H_
