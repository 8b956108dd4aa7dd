// The layout of a command, for what reads and writes one. Every field is a 32-bit integer in native
// byte order; nothing is aligned, so fields are only ever copied in and out.
//
//   offset 0   type            what the command is (RpcCommandType)
//          4   id              chosen by the client per call; the call's result and callbacks carry
//                              it too
//          8   total size      in bytes, header included
//         12   parameter count
//         16   the parameters, back to back: code (RpcParamType), length L, L bytes of value
#ifndef KPL_RPC_RPCCOMMANDFORMAT_H_
#define KPL_RPC_RPCCOMMANDFORMAT_H_

#include <stdint.h>
#include <string.h>

namespace kpl::rpc::detail {

constexpr int kTypeOffset = 0;
constexpr int kIdOffset = 4;
constexpr int kTotalSizeOffset = 8;
constexpr int kCountOffset = 12;
constexpr int kHeaderSize = 16;

constexpr int kParamLengthOffset = 4;
constexpr int kParamHeaderSize = 8;

inline uint32_t LoadWord(const char* from) {
    uint32_t word = 0;
    memcpy(&word, from, sizeof(word));
    return word;
}

inline int32_t LoadInt(const char* from) {
    int32_t value = 0;
    memcpy(&value, from, sizeof(value));
    return value;
}

inline void StoreWord(char* to, uint32_t word) {
    memcpy(to, &word, sizeof(word));
}

inline void StoreInt(char* to, int32_t value) {
    memcpy(to, &value, sizeof(value));
}

}  // namespace kpl::rpc::detail

#endif  // KPL_RPC_RPCCOMMANDFORMAT_H_
