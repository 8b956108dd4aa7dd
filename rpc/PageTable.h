#ifndef KPL_RPC_PAGETABLE_H_
#define KPL_RPC_PAGETABLE_H_

#include <pthread.h>
#include <stdint.h>

#include <atomic>

namespace kpl::rpc {

// Gives numbers to pages of 1 MiB and turns pointers into words: page number << 20 | offset.
//
// Page number 0 is never given out, so 0 stands for null alone and no pointer has a word between 1
// and the page size. A page that got a number keeps it; nothing is ever removed. That is what makes
// the look-ups lock-free: a slot, once filled, is right for ever, and a reader that misses one
// looks again under the lock before it adds anything.
//
// Constant-initialised and without a destructor: a static one works before main and during exit.
// Any thread.
class PageTable {
public:
    static constexpr uint32_t kOffsetBits = 20;
    static constexpr uint32_t kMaxPages = 4095;

    // What Pack returns when no page number is left.
    static constexpr uint32_t kLostWord = 1;

    // Gives out at most `capacity` numbers, between 1 and kMaxPages.
    constexpr explicit PageTable(uint32_t capacity) : m_capacity(capacity) {}
    PageTable(const PageTable&) = delete;
    PageTable& operator=(const PageTable&) = delete;

    uint32_t Pack(const void* pointer);

    // Null for a word that this table never gave out.
    void* Unpack(uint32_t word) const;

private:
    // More than twice the pages, so that a probe is short and always meets an empty slot.
    static constexpr uint32_t kSlotBits = 13;
    static constexpr uint32_t kSlots = 1U << kSlotBits;

    static uint32_t FirstSlot(uintptr_t page);
    uint32_t Probe(uintptr_t page, uint32_t* slot) const;
    uint32_t NumberOf(uintptr_t page);
    uint32_t AddLocked(uintptr_t page);

    const uint32_t m_capacity;
    uint32_t m_count = 0;  // guarded by m_lock
    pthread_mutex_t m_lock = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<uintptr_t> m_pages[kMaxPages + 1] = {};  // by number: page + 1, 0 while unused
    std::atomic<uint16_t> m_slots[kSlots] = {};          // by hash: number, 0 while unused
};

}  // namespace kpl::rpc

#endif  // KPL_RPC_PAGETABLE_H_
