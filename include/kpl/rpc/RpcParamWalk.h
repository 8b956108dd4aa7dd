#ifndef KPL_RPC_RPCPARAMWALK_H_
#define KPL_RPC_RPCPARAMWALK_H_

#include <stdint.h>
#include <string.h>

#include "kpl/rpc/RpcCommandFormat.h"

namespace kpl::rpc::detail {

// Steps over the parameters of a command that may be hostile. Lengths are unsigned and sums are 64
// bits wide, so no step goes backwards or wraps; nothing at or beyond `end` is read.
// It stands in a public header so that taking a value out of a command is no call; use
// RpcCommandDemuxer.
class ParamWalk {
public:
    // At parameter 0 of a command whose bytes before `end` may be read. `count` is the header's.
    ParamWalk(char* command, int64_t end, int count)
        : m_command(command), m_valuesEnd(end - kParamHeaderSize), m_left(count) {}

    // Whether there is a parameter here. Its code can be read then, and perhaps no more.
    bool HasParam() const { return m_left > 0 && Space() >= kParamLengthOffset - kParamHeaderSize; }

    int Code() const { return LoadInt(m_command + m_offset); }

    // Where the value starts, and how many bytes there are from there to the end of the command,
    // whatever the parameter's own length says. With Space() of 0 or less there is no value.
    char* Value() const { return m_command + m_offset + kParamHeaderSize; }
    int64_t Space() const { return m_valuesEnd - m_offset; }

    // The value as a string; null when no terminator is in the space.
    const char* String() const {
        const bool ends = EndsWithItsParam() ||
                          (Space() > 0 && memchr(Value(), '\0', static_cast<size_t>(Space())));
        return ends ? Value() : nullptr;
    }

    // Whether code and length are there; only then the two below may be asked.
    bool HasHeader() const { return m_left > 0 && Space() >= 0; }
    int64_t Length() const { return LoadWord(m_command + m_offset + kParamLengthOffset); }

    // Steps over a parameter with a header.
    void Next() {
        m_offset += kParamHeaderSize + Length();
        --m_left;
    }

    // Steps over `index` parameters; false if there is none after them.
    bool SkipTo(int index) {
        if (index < 0 || index >= m_left) {
            return false;
        }
        m_left -= index;
        for (; index > 0; --index) {
            if (Space() < 0) {
                return false;
            }
            m_offset += kParamHeaderSize + Length();
        }
        return HasParam();
    }

    int64_t Offset() const { return m_offset; }
    int Left() const { return m_left; }

private:
    // As every string does that the muxer has written: its terminator is found without a search.
    bool EndsWithItsParam() const {
        const int64_t space = Space();
        return space > 0 && Length() > 0 && Length() <= space && Value()[Length() - 1] == '\0';
    }

    char* m_command;
    int64_t m_valuesEnd;  // less a parameter's header: the end for the offset of a parameter
    int64_t m_offset = kHeaderSize;
    int m_left;
};

}  // namespace kpl::rpc::detail

#endif  // KPL_RPC_RPCPARAMWALK_H_
