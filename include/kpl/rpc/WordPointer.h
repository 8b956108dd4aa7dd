// A pointer kept in one 32-bit word, so that records and commands have one layout for 32-bit and
// 64-bit processes. A word means something only to the process that made it.
#ifndef KPL_RPC_WORDPOINTER_H_
#define KPL_RPC_WORDPOINTER_H_

#include <stdint.h>

#include "kpl/Export.h"

namespace kpl::rpc {

// On 32-bit platforms the word is the pointer. On 64-bit ones it is a page number and an offset:
// addresses are cut into pages of 1 MiB, the process numbers the first 4095 pages that it packs
// pointers into, and those numbers stay until it ends. Nothing grows per pointer.
// Any thread, also before main and during exit.
class KPL_EXPORT WordPointer {
public:
    // Null.
    constexpr WordPointer() : m_word(0) {}

    // IsLost() when the pointer cannot be kept.
    explicit WordPointer(const void* pointer) : m_word(Pack(pointer)) {}

    // The pointer; null for null, for one that could not be packed and for a word of another
    // process that means nothing here.
    void* Get() const { return Unpack(m_word); }

    // True when the pointer was not null and could not be packed.
    bool IsLost() const { return IsLost(m_word); }

    // 0 for null, never 0 otherwise.
    uint32_t Word() const { return m_word; }

    // The word for `pointer`: 0 for null, and one that IsLost when the process has used up its
    // pages, that is, after pointers into more than 4095 different MiB of its memory.
    static uint32_t Pack(const void* pointer);

    // The pointer that `word` stands for, null if there is none.
    static void* Unpack(uint32_t word);

    // Whether `word` is that of a pointer that could not be packed.
    static bool IsLost(uint32_t word) {
        return sizeof(void*) > sizeof(uint32_t) && word == kLostWord;
    }

private:
    // Page numbers start at 1, so no packed pointer has a word below 1 << 20.
    static constexpr uint32_t kLostWord = 1;

    uint32_t m_word;
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_WORDPOINTER_H_
