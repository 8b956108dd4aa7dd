#ifndef KPL_RPC_RPCCOMMANDMUXER_H_
#define KPL_RPC_RPCCOMMANDMUXER_H_

#include <stdint.h>

#include "kpl/Export.h"
#include "kpl/rpc/RpcParam.h"

struct EpgDataList;

namespace kpl::rpc {

class RpcArray;

// Writes commands into a buffer of the caller's, one after the other: push the parameters, then
// finish. It never allocates and never owns the buffer. A push that fails discards the whole
// command begun so far, so the result of every push matters: a Finish after a failed push would
// succeed with a command that lacks the parameters.
// One thread at a time.
class KPL_EXPORT RpcCommandMuxer {
public:
    // `len` is the size of `buf` in bytes. With a null buffer or no room every push fails.
    RpcCommandMuxer(char* buf, int len);

    // Appends one parameter. T is one of the types with a ParamTypeTrait; RpcArray and EpgDataList
    // need their header. A null string is sent as an empty one. Returns false, with the command
    // discarded, if there is no room, if a `long` or `unsigned long` does not fit in 4 bytes, if a
    // pointer could not be kept in its word, or if the array or list cannot be serialised.
    template <class T>
    bool Push(T value);

    // Appends one parameter of `length` bytes as they are: for structures that bring their own
    // converter. Fails as Push does, also if `length` is negative or `value` is null with a length.
    bool PushBytes(RpcParamType type, const void* value, int length);

    // Completes the command and returns its size in bytes; the muxer is then empty for the next
    // one. An invoke gets `functionName` as its last parameter; other types ignore it. Returns 0
    // for an invoke with a null or empty name, which leaves the command as it was; 0 for an invoke
    // whose name finds no room, and 0, with a message, for a buffer below 16 bytes: both discard
    // it.
    int Finish(int type, const char* functionName, unsigned int id);

    // True from the first successful push until the command is finished or discarded.
    bool IsValidCommand() const;

    // Discards the command begun so far. The finished size is kept.
    void Reset();

    // The buffer given to the constructor; after Finish it holds the command.
    char* GetBuffer() const { return m_buffer; }

    // What the last successful Finish returned; 0 before it and from the next first push on.
    int GetFinishedSize() const { return m_finishedSize; }

private:
    char* BeginParam(int64_t length);
    bool EndParam(RpcParamType type, int64_t length);
    bool Discard();
    bool PushString(const char* text);
    bool PushStruct(const RpcArray& array);
    bool PushStruct(const EpgDataList& list);
    bool PushCallback(const RpcCallbackContext& context);

    char* m_buffer;
    int m_capacity;
    int m_size;   // bytes written so far; 0: nothing yet, not even room for the header
    int m_count;  // parameters pushed so far
    int m_finishedSize;
};

template <class T>
bool RpcCommandMuxer::Push(T value) {
    using Trait = ParamTypeTrait<T>;
    if constexpr (Trait::Type == RPC_PARAM_STRING) {
        return PushString(value);
    } else if constexpr (Trait::Type == RPC_PARAM_STRUCT) {
        return PushStruct(value);
    } else if constexpr (Trait::Type == RPC_PARAM_CALLBACK) {
        return PushCallback(value);
    } else {
        using Wire = typename Trait::WireType;
        const Wire wire = static_cast<Wire>(value);
        if constexpr (sizeof(Wire) < sizeof(T)) {
            if (static_cast<T>(wire) != value) {
                return Discard();
            }
        }
        return PushBytes(Trait::Type, &wire, static_cast<int>(sizeof(wire)));
    }
}

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCOMMANDMUXER_H_
