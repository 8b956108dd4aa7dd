#ifndef KPL_RPC_COMMANDBUFFER_H_
#define KPL_RPC_COMMANDBUFFER_H_

#include <string.h>

namespace kpl::rpc {

// The largest command that can be sent or received.
constexpr int kMaxCommandSize = 16384;

// Collects what a stream delivers until whole commands stand in it. One thread.
class CommandBuffer {
public:
    // Where the next bytes go, and how many fit: none when one command would be larger than all.
    char* Room() { return m_bytes + m_fill; }
    int RoomSize() const { return kMaxCommandSize - m_fill; }
    void Add(int received) { m_fill += received; }

    // The bytes that were not consumed yet.
    char* Front() { return m_bytes + m_offset; }
    int Size() const { return m_fill - m_offset; }
    void Consume(int size) { m_offset += size; }

    // Moves what is left to the start, so that there is room behind it.
    void Compact() {
        const int left = Size();
        if (m_offset > 0 && left > 0) {
            memmove(m_bytes, m_bytes + m_offset, static_cast<size_t>(left));
        }
        m_fill = left;
        m_offset = 0;
    }

private:
    char m_bytes[kMaxCommandSize];
    int m_fill = 0;
    int m_offset = 0;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_COMMANDBUFFER_H_
