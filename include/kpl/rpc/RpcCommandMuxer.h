#ifndef KPL_RPC_RPCCOMMANDMUXER_H_
#define KPL_RPC_RPCCOMMANDMUXER_H_

#include <stdint.h>
#include <string.h>

#include <new>

#include "kpl/Export.h"
#include "kpl/rpc/RpcCommandFormat.h"
#include "kpl/rpc/RpcParam.h"

struct EpgDataList;

namespace kpl::rpc {

class RpcArray;

// Writes commands into a buffer of the caller's, one after the other: push the parameters, then
// finish. It never owns the buffer, and allocates only to push an EpgDataList that lies in it. A
// push that fails discards the whole command begun so far, so the result of every push matters: a
// Finish after a failed push would succeed with a command that lacks the parameters.
// One thread at a time.
class KPL_EXPORT RpcCommandMuxer {
public:
    // `len` is the size of `buf` in bytes. With a null buffer or no room every push fails.
    RpcCommandMuxer(char* buf, int len)
        : m_buffer(buf), m_capacity(buf != nullptr && len > 0 ? len : 0) {}

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
    bool IsValidCommand() const { return m_count > 0; }

    // Discards the command begun so far. The finished size is kept.
    void Reset() {
        m_finishedSize = GetFinishedSize();
        m_size = detail::kHeaderSize;
        m_count = 0;
    }

    // The buffer given to the constructor; after Finish it holds the command.
    char* GetBuffer() const { return m_buffer; }

    // What the last successful Finish returned; 0 before it and from the next first push on.
    int GetFinishedSize() const { return m_count == 0 ? m_finishedSize : 0; }

private:
    // A scalar as it lies in the buffer. It has a type instead of being bytes: a store of bytes
    // could change this object's fields for all a compiler knows, which would read them again for
    // every parameter.
    template <class Wire>
    struct __attribute__((packed)) ScalarParam {
        int32_t type;
        int32_t length;
        Wire value;
    };

    // Whether `size` more bytes fit; discards the command if they do not.
    bool HasRoom(int64_t size) { return m_capacity - m_size >= size || Discard(); }

    template <class Wire>
    bool PushScalar(RpcParamType type, Wire value) {
        constexpr int kSize = sizeof(ScalarParam<Wire>);
        if (!HasRoom(kSize)) {
            return false;
        }
        new (m_buffer + m_size) ScalarParam<Wire>{type, sizeof(value), value};
        m_size += kSize;
        ++m_count;
        return true;
    }

    bool PushString(const char* text) {
        const size_t characters = text != nullptr ? strlen(text) : 0;
        const auto length = static_cast<int64_t>(characters) + 1;
        if (!HasRoom(detail::kParamHeaderSize + length)) {
            return false;
        }
        // First of all: the text may be a received one that lies here.
        if (characters > 0) {
            memmove(NextValue(), text, characters);
        }
        NextValue()[characters] = '\0';
        return EndParam(RPC_PARAM_STRING, static_cast<int>(length));
    }

    // Where the value of the next parameter goes.
    char* NextValue() const { return m_buffer + m_size + detail::kParamHeaderSize; }

    // Completes the parameter whose value has been written there.
    bool EndParam(RpcParamType type, int length) {
        char* const param = m_buffer + m_size;
        m_size += detail::kParamHeaderSize + length;
        detail::StoreInt(param, type);
        detail::StoreInt(param + detail::kParamLengthOffset, length);
        ++m_count;
        return true;
    }

    // What every failed push does.
    bool Discard() {
        m_size = detail::kHeaderSize;
        m_count = 0;
        m_finishedSize = 0;
        return false;
    }

    bool PushStruct(const RpcArray& array);
    bool PushStruct(const EpgDataList& list);
    bool PushCallback(const RpcCallbackContext& context);

    char* m_buffer;
    int m_capacity;                    // 0 without a buffer
    int m_size = detail::kHeaderSize;  // bytes written so far, with the header's place
    int m_count = 0;                   // parameters pushed so far
    int m_finishedSize = 0;            // of the last command, until this one is finished
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
        return PushScalar(Trait::Type, wire);
    }
}

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCOMMANDMUXER_H_
