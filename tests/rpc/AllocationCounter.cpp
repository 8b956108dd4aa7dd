#include "tests/rpc/AllocationCounter.h"

#include <stdlib.h>

#include <new>

namespace kpl::test {

std::atomic<int> allocations{0};

}  // namespace kpl::test

using kpl::test::allocations;

void* operator new(size_t size) {
#if !KPL_COUNTS_MALLOC
    ++allocations;
#endif
    void* memory = malloc(size);
    if (memory == nullptr) {
        abort();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    free(memory);
}

#if KPL_COUNTS_MALLOC
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

void* malloc(size_t size) noexcept {
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) noexcept {
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) noexcept {
    ++allocations;
    return __libc_realloc(memory, size);
}
}
#endif
