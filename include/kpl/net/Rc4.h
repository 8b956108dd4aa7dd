// The RC4 stream cipher, at global scope. It scrambles; nobody should rely on it to keep a secret.
// A state is used by one thread at a time.
#ifndef KPL_NET_RC4_H_
#define KPL_NET_RC4_H_

#include "kpl/Export.h"

// Where a key stream stands.
struct rc4_state {
    unsigned char state[256];  // a permutation of 0 to 255
    unsigned char x;           // the two indices into it
    unsigned char y;           // that the next byte starts from
};

// Begins the key stream of the `keyLength` bytes at `key`. Of a key above 256 bytes the first 256
// count; a length below 1 is no key at all, and leaves the permutation in its first order.
KPL_EXPORT void rc4_init(rc4_state* state, unsigned char* key, int keyLength);

// Combines the next `length` bytes of the key stream with `in`, into `out`, which may be the same
// place. The next call goes on where this one ended. A length below 1 does nothing.
KPL_EXPORT void rc4_crypt(rc4_state* state, const unsigned char* in, unsigned char* out,
                          int length);

// The same as rc4_crypt.
KPL_EXPORT void rc4_decrypt(rc4_state* state, const unsigned char* in, unsigned char* out,
                            int length);

#endif  // KPL_NET_RC4_H_
