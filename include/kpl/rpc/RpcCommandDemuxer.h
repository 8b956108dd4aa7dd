#ifndef KPL_RPC_RPCCOMMANDDEMUXER_H_
#define KPL_RPC_RPCCOMMANDDEMUXER_H_

#include <stddef.h>
#include <stdint.h>

#include "kpl/Export.h"
#include "kpl/rpc/RpcParam.h"

struct EpgDataList;

namespace kpl::rpc {

class ParamWalk;
class RpcArray;

// Reads one command in place. The bytes may come from anywhere: nothing outside the smaller of the
// buffer and the command's own total size is ever touched, and what is missing reads as zero. It
// never allocates and never owns the buffer.
// One thread at a time.
class KPL_EXPORT RpcCommandDemuxer {
public:
    // `len` is how many bytes of `buf` are there, which may be more than the command has.
    RpcCommandDemuxer(char* buf, int len);

    // True for a whole command of a known type whose parameters add up to its total size.
    bool IsValidCommand() const;

    // The header's type and parameter count as they stand, valid or not; 0 without a header.
    int GetCommandType() const;
    int GetCommandCounts() const;

    // The header's id and total size in bytes; 0 if the command is not valid.
    unsigned int GetId() const;
    int GetSize() const;

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
    const char* GetFunctionName() const;

    // Writes the command to the debug log, one message a piece; nothing while that is disabled.
    void Dump() const;

private:
    bool HasHeader() const;
    int HeaderInt(int offset) const;
    ParamWalk Walk() const;
    void DumpParams(int count) const;
    void CopyValue(int index, void* value, size_t size) const;
    const char* GetString(int index) const;
    void ReadStruct(int index, RpcArray* array) const;
    void ReadStruct(int index, EpgDataList* list) const;

    char* m_buffer;
    int m_length;
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
        CopyValue(index, &wire, sizeof(wire));
        return static_cast<typename Trait::RealType>(wire);
    }
}

}  // namespace kpl::rpc

#endif  // KPL_RPC_RPCCOMMANDDEMUXER_H_
