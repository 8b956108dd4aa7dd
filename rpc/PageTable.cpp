#include "rpc/PageTable.h"

namespace kpl::rpc {

uint32_t PageTable::FirstSlot(uintptr_t page) {
    // Multiplicative hashing: neighbouring pages spread over the whole table.
    const uint64_t mixed = uint64_t{page} * 0x9E3779B97F4A7C15U;
    return static_cast<uint32_t>(mixed >> (64 - kSlotBits));
}

// The page's number, or 0; `slot` is then the empty one where its search ended.
uint32_t PageTable::Probe(uintptr_t page, uint32_t* slot) const {
    for (*slot = FirstSlot(page);; *slot = (*slot + 1) % kSlots) {
        const uint32_t number = m_slots[*slot].load(std::memory_order_acquire);
        if (number == 0 || m_pages[number].load(std::memory_order_relaxed) == page + 1) {
            return number;
        }
    }
}

uint32_t PageTable::AddLocked(uintptr_t page) {
    uint32_t slot = 0;
    uint32_t number = Probe(page, &slot);
    if (number != 0 || m_count == m_capacity) {
        return number;
    }
    number = ++m_count;
    // The page first: whoever sees the number finds the page behind it.
    m_pages[number].store(page + 1, std::memory_order_relaxed);
    m_slots[slot].store(static_cast<uint16_t>(number), std::memory_order_release);
    return number;
}

// 0 when the page has no number and none is left.
uint32_t PageTable::NumberOf(uintptr_t page) {
    uint32_t slot = 0;
    uint32_t number = Probe(page, &slot);
    if (number == 0) {
        pthread_mutex_lock(&m_lock);
        number = AddLocked(page);
        pthread_mutex_unlock(&m_lock);
    }
    return number;
}

uint32_t PageTable::Pack(const void* pointer) {
    if (pointer == nullptr) {
        return 0;
    }
    const auto address = reinterpret_cast<uintptr_t>(pointer);
    const uint32_t number = NumberOf(address >> kOffsetBits);
    if (number == 0) {
        return kLostWord;
    }
    const auto offset = static_cast<uint32_t>(address & ((uintptr_t{1} << kOffsetBits) - 1));
    return number << kOffsetBits | offset;
}

void* PageTable::Unpack(uint32_t word) const {
    const uintptr_t stored = m_pages[word >> kOffsetBits].load(std::memory_order_relaxed);
    if (stored == 0) {
        return nullptr;
    }
    const uint32_t offset = word & ((uint32_t{1} << kOffsetBits) - 1);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): putting pointers together is its purpose.
    return reinterpret_cast<void*>((stored - 1) << kOffsetBits | offset);
}

}  // namespace kpl::rpc
