#ifndef KPL_RPC_RPCCOMMANDDEMUXER_H_
#define KPL_RPC_RPCCOMMANDDEMUXER_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "kpl/Export.h"
#include "kpl/rpc/RpcCommandFormat.h"
#include "kpl/rpc/RpcParam.h"
#include "kpl/rpc/RpcParamWalk.h"

struct EpgDataList;

namespace kpl::rpc {

class RpcArray;

// Reads one command in place. The bytes may come from anywhere: nothing outside the smaller of the
// buffer and the command's own total size is ever touched, and what is missing reads as zero. It
// never allocates and never owns the buffer.
// One thread at a time.
class KPL_EXPORT RpcCommandDemuxer {
public:
    // `len` is how many bytes of `buf` are there, which may be more than the command has.
    RpcCommandDemuxer(char* buf, int len) : m_buffer(buf), m_length(buf != nullptr ? len : 0) {}

    // True for a whole command of a known type whose parameters add up to its total size.
    bool IsValidCommand() const;

    // The header's type and parameter count as they stand, valid or not; 0 without a header.
    int GetCommandType() const { return HeaderInt(detail::kTypeOffset); }
    int GetCommandCounts() const { return HeaderInt(detail::kCountOffset); }

    // The header's id and total size in bytes; 0 if the command is not valid.
    unsigned int GetId() const {
        return IsValidCommand() ? detail::LoadWord(m_buffer + detail::kIdOffset) : 0;
    }
    int GetSize() const { return IsValidCommand() ? HeaderInt(detail::kTotalSizeOffset) : 0; }

    // How many parameters have this code.
    int GetCommandCounts(RpcParamType type) const;

    // The code of parameter `index`, counted from 0; 0 when there is none.
    int GetParamType(int index) const;

    // Whether any parameter has this code.
    bool HasParamType(RpcParamType type) const;

    // The value of parameter `index`; the zero value (for a string null) if it is missing or too
    // few bytes follow up to the end of the command. The parameter's code and length are not
    // compared with T: a longer type reads on into the next parameter. A string points into the
    // buffer and is valid only as long as the bytes there.
    // RpcArray and EpgDataList need their header. They stay inside the parameter; one that does not
    // fit there is empty, and so is a list without records. They point into the buffer too, and an
    // EpgDataList writes into it: the words of its texts.
    template <class T>
    typename ParamTypeTrait<T>::RealType Get(int index) const;

    // The bytes of parameter `index`, in place, and their number, which never reaches beyond the
    // command: for structures that bring their own converter. Null and 0 if it is missing.
    char* GetBytes(int index, int* length) const;

    // The last parameter as a string, which for an invoke is the function's name; null if there is
    // none.
    const char* GetFunctionName() const {
        const int count = GetCommandCounts();
        return count < 1 ? nullptr : GetString(count - 1);
    }

    // Writes the command to the debug log, one message a piece; nothing while that is disabled.
    void Dump() const;

private:
    bool HasHeader() const { return m_length >= detail::kHeaderSize; }
    int HeaderInt(int offset) const { return HasHeader() ? detail::LoadInt(m_buffer + offset) : 0; }
    // Reading stops at the end of the command or of the buffer, whatever the parameters say.
    detail::ParamWalk Walk() const {
        const int total = HeaderInt(detail::kTotalSizeOffset);
        return detail::ParamWalk(m_buffer, total < m_length ? total : m_length, GetCommandCounts());
    }
    const char* GetString(int index) const {
        detail::ParamWalk walk = Walk();
        return walk.SkipTo(index) ? walk.String() : nullptr;
    }
    void DumpParams(int count) const;
    void ReadStruct(int index, RpcArray* array) const;
    void ReadStruct(int index, EpgDataList* list) const;

    char* m_buffer;
    int m_length;  // 0 without a buffer
};

template <class T>
typename ParamTypeTrait<T>::RealType RpcCommandDemuxer::Get(int index) const {
    using Trait = ParamTypeTrait<T>;
    if constexpr (Trait::Type == RPC_PARAM_STRING) {
        return GetString(index);
    } else if constexpr (Trait::Type == RPC_PARAM_STRUCT) {
        T value;
        ReadStruct(index, &value);
        return value;
    } else {
        typename Trait::WireType wire{};
        detail::ParamWalk walk = Walk();
        if (walk.SkipTo(index) && walk.Space() >= static_cast<int64_t>(sizeof(wire))) {
            memcpy(&wire, walk.Value(), sizeof(wire));
        }
        return static_cast<typename Trait::RealType>(wire);
    }
}

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCOMMANDDEMUXER_H_
