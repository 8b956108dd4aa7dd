#include "kpl/rpc/WordPointer.h"

#if UINTPTR_MAX > UINT32_MAX
#include "rpc/PageTable.h"
#endif

namespace kpl::rpc {

#if UINTPTR_MAX > UINT32_MAX

namespace {

PageTable pages(PageTable::kMaxPages);

}  // namespace

uint32_t WordPointer::Pack(const void* pointer) {
    static_assert(kLostWord == PageTable::kLostWord, "one mark for both");
    return pages.Pack(pointer);
}

void* WordPointer::Unpack(uint32_t word) {
    return pages.Unpack(word);
}

#else

uint32_t WordPointer::Pack(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

void* WordPointer::Unpack(uint32_t word) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): putting pointers together is its purpose.
    return reinterpret_cast<void*>(static_cast<uintptr_t>(word));
}

#endif

}  // namespace kpl::rpc
