// SHA-1 of whole blocks. Any thread.
#ifndef KPL_NET_SHA1BLOCKS_H_
#define KPL_NET_SHA1BLOCKS_H_

#include <stddef.h>
#include <stdint.h>

namespace kpl::net {

// Takes `count` blocks of 64 bytes, at any address, into the five words of the digest.
using Sha1Blocks = void (*)(uint32_t* digest, const unsigned char* data, size_t count);

// In C++, for any processor.
void Sha1BlocksPortable(uint32_t* digest, const unsigned char* data, size_t count);

// The one that uses the processor's instructions for SHA-1. Null if the processor has none, or none
// that this build knows.
Sha1Blocks Sha1BlocksByInstructions();

}  // namespace kpl::net

#endif  // KPL_NET_SHA1BLOCKS_H_
