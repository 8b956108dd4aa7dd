// MD5 (RFC 1321), at global scope. All lengths are in bits. A context is used by one thread at a
// time. MD5 is broken as a safeguard against forgery; the early WebSocket handshake needs it.
#ifndef KPL_NET_MD5_H_
#define KPL_NET_MD5_H_

#include <stdint.h>

#include "kpl/Export.h"

// A hash under way.
struct md5_ctx_st {
    uint32_t h[4];    // the chaining words A, B, C, D
    uint32_t blocks;  // blocks of 64 bytes processed so far
};

// The additive constants of the 64 steps.
KPL_EXPORT extern const uint32_t md5_T[64];

// Begins a hash.
KPL_EXPORT void md5_init(md5_ctx_st* ctx);

// Adds one block of 64 bytes.
KPL_EXPORT void md5_nextBlock(md5_ctx_st* ctx, const void* block);

// Adds the last `lengthInBits` bits, which may be several blocks or none, and the padding. Of a
// last byte that is not whole the highest bits count. After it comes only md5_ctx2hash.
KPL_EXPORT void md5_lastBlock(md5_ctx_st* ctx, const void* data, unsigned short lengthInBits);

// Writes the 16 bytes of the hash.
KPL_EXPORT void md5_ctx2hash(unsigned char* hash, const md5_ctx_st* ctx);

// The hash of `lengthInBits` bits in one go, 16 bytes. Any thread.
KPL_EXPORT void md5(unsigned char* hash, const void* data, unsigned int lengthInBits);

#endif  // KPL_NET_MD5_H_
