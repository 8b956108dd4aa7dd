// SHA-1 (FIPS 180-1), at global scope. A context is used by one thread at a time. SHA-1 is broken
// as a safeguard against forgery.
#ifndef KPL_NET_SHA1_H_
#define KPL_NET_SHA1_H_

#include <stdint.h>

#include "kpl/Export.h"

// A hash under way.
struct SHA1Context {
    uint32_t digest[5];   // the hash, after SHA1Result; its first byte is the highest of digest[0]
    uint32_t lengthLow;   // of the message so far, in bits
    uint32_t lengthHigh;  // its upper 32 bits
    unsigned char block[64];  // what does not fill a block yet
    int index;                // the next free byte in it
    int computed;             // 1 once SHA1Result has padded the message
    int corrupted;            // 1 after input that cannot be hashed any more
};

// Begins a hash.
KPL_EXPORT void SHA1Reset(SHA1Context* ctx);

// Adds `length` bytes to the message; 0 does nothing. Input after SHA1Result, and a message longer
// than 2^64 - 1 bits, corrupt the context until the next reset.
KPL_EXPORT void SHA1Input(SHA1Context* ctx, const unsigned char* data, unsigned int length);

// Ends the message: the hash is in `digest` then. Returns 1, also when called again; 0 if the
// context is corrupted.
KPL_EXPORT int SHA1Result(SHA1Context* ctx);

// Steps of the two above: pads the message and hashes its last block or two; hashes `block` and
// makes it empty.
KPL_EXPORT void SHA1PadMessage(SHA1Context* ctx);
KPL_EXPORT void SHA1ProcessMessageBlock(SHA1Context* ctx);

#endif  // KPL_NET_SHA1_H_
