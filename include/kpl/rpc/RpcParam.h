// The kinds of commands and parameters, and how C++ types map to them. Both ends of a connection
// share these numbers; a number is never reused.
#ifndef KPL_RPC_RPCPARAM_H_
#define KPL_RPC_RPCPARAM_H_

#include <stddef.h>
#include <stdint.h>

#include "kpl/Export.h"
#include "kpl/rpc/WordPointer.h"

namespace kpl::rpc {

class RpcCommandDemuxer;

// What a command is; the first word of it.
enum RpcCommandType : int {
    RPC_COMMAND_INVOKE = 10001,
    RPC_COMMAND_RESULT = 10002,
    RPC_COMMAND_CALLBACK = 10003
};

// What a parameter holds; the first word of it.
enum RpcParamType : int {
    RPC_PARAM_BOOL = 1,
    RPC_PARAM_INT = 2,
    RPC_PARAM_LONG = 3,
    RPC_PARAM_CHAR = 4,
    RPC_PARAM_UCHAR = 5,
    RPC_PARAM_LONGLONG = 6,
    RPC_PARAM_ULONGLONG = 7,
    RPC_PARAM_SHORT = 8,
    RPC_PARAM_USHORT = 9,
    RPC_PARAM_UINT = 10,
    RPC_PARAM_ULONG = 11,
    RPC_PARAM_DOUBLE = 12,
    RPC_PARAM_FLOAT = 13,
    RPC_PARAM_STRING = 50,
    RPC_PARAM_STRUCT = 51,
    RPC_PARAM_CALLBACK = 60
};

// A function of the client that the server may call back, with the object it works on. The server
// only sees two words that mean nothing to it and travel back unchanged.
class KPL_EXPORT RpcCallbackContext {
public:
    // What is called, on the client's callback thread; `demuxer` has the callback command.
    using Function = void (*)(void* proxy, RpcCommandDemuxer* demuxer);

    // Both null.
    constexpr RpcCallbackContext() = default;

    // The function is called with `proxy` and the callback command; neither is owned.
    RpcCallbackContext(void* proxy, Function function)
        : m_proxy(proxy), m_function(reinterpret_cast<const void*>(function)) {
        static_assert(sizeof(RpcCallbackContext) == 8 &&
                          offsetof(RpcCallbackContext, m_proxy) == 0 &&
                          offsetof(RpcCallbackContext, m_function) == 4,
                      "it travels as its two words");
    }

    // Null in every process but the one that made the context, or when it could not be kept.
    void* GetProxy() const { return m_proxy.Get(); }
    Function GetFunction() const { return reinterpret_cast<Function>(m_function.Get()); }

    // True when a pointer did not fit into its word: such a context cannot be pushed.
    bool IsLost() const { return m_proxy.IsLost() || m_function.IsLost(); }

private:
    WordPointer m_proxy;
    WordPointer m_function;
};

// Joins a C++ type to its code. `RealType` is what Get returns, `WireType` what travels: `long` and
// `unsigned long` travel as 4 bytes, so that 32-bit and 64-bit processes understand each other.
template <RpcParamType Code, class Real, class Wire = Real>
struct ParamTypeMapping {
    static constexpr RpcParamType Type = Code;
    using RealType = Real;
    using WireType = Wire;
};

// Types without a mapping do not compile.
template <class T>
struct ParamTypeTrait;

template <>
struct ParamTypeTrait<bool> : ParamTypeMapping<RPC_PARAM_BOOL, bool, uint8_t> {};
template <>
struct ParamTypeTrait<int> : ParamTypeMapping<RPC_PARAM_INT, int> {};
template <>
struct ParamTypeTrait<long> : ParamTypeMapping<RPC_PARAM_LONG, long, int32_t> {};
template <>
struct ParamTypeTrait<char> : ParamTypeMapping<RPC_PARAM_CHAR, char> {};
template <>
struct ParamTypeTrait<unsigned char> : ParamTypeMapping<RPC_PARAM_UCHAR, unsigned char> {};
template <>
struct ParamTypeTrait<long long> : ParamTypeMapping<RPC_PARAM_LONGLONG, long long> {};
template <>
struct ParamTypeTrait<unsigned long long>
    : ParamTypeMapping<RPC_PARAM_ULONGLONG, unsigned long long> {};
template <>
struct ParamTypeTrait<short> : ParamTypeMapping<RPC_PARAM_SHORT, short> {};
template <>
struct ParamTypeTrait<unsigned short> : ParamTypeMapping<RPC_PARAM_USHORT, unsigned short> {};
template <>
struct ParamTypeTrait<unsigned int> : ParamTypeMapping<RPC_PARAM_UINT, unsigned int> {};
template <>
struct ParamTypeTrait<unsigned long> : ParamTypeMapping<RPC_PARAM_ULONG, unsigned long, uint32_t> {
};
template <>
struct ParamTypeTrait<double> : ParamTypeMapping<RPC_PARAM_DOUBLE, double> {};
template <>
struct ParamTypeTrait<float> : ParamTypeMapping<RPC_PARAM_FLOAT, float> {};
template <>
struct ParamTypeTrait<const char*> : ParamTypeMapping<RPC_PARAM_STRING, const char*> {};
template <>
struct ParamTypeTrait<char*> : ParamTypeMapping<RPC_PARAM_STRING, const char*> {};
template <>
struct ParamTypeTrait<RpcCallbackContext>
    : ParamTypeMapping<RPC_PARAM_CALLBACK, RpcCallbackContext> {};

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCPARAM_H_
