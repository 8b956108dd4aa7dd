// The place of a virtual operation in its class's table, for interfaces whose order is fixed.
#ifndef KPL_TESTS_SUPPORT_VIRTUALSLOT_H_
#define KPL_TESTS_SUPPORT_VIRTUALSLOT_H_

#include <stdint.h>
#include <string.h>

namespace kpl::test {

// A pointer to a virtual member function holds the offset of its entry, with the lowest bit set; on
// ARM the bit is in the second word.
template <typename Method>
int SlotOf(Method method) {
    uintptr_t words[2] = {};
    static_assert(sizeof(method) == sizeof(words), "the common C++ ABI");
    memcpy(words, &method, sizeof(words));
    return static_cast<int>((words[0] & ~uintptr_t{1}) / sizeof(void*));
}

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_VIRTUALSLOT_H_
