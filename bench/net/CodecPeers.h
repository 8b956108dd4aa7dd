// What our codecs are measured beside. One file for each peer, because a peer's headers use some of
// our names.
#ifndef KPL_BENCH_NET_CODECPEERS_H_
#define KPL_BENCH_NET_CODECPEERS_H_

#include <stddef.h>

#include <functional>
#include <string>

namespace kpl::bench {

// Works on one message; writes the result to `out`, which has room for it, and returns its length.
// Keeps its context from one message to the next: RC4's key stream goes on. What Base64 takes for
// 64 bytes is so little that a std::function would show; these are plain functions of the same
// form.
using Codec = std::function<size_t(unsigned char* out, const unsigned char* in, size_t length)>;

namespace nettle {
std::string Version();
Codec Md5();
Codec Sha1();
Codec Rc4(const std::string& key);
size_t Base64Encode(unsigned char* out, const unsigned char* in, size_t length);
size_t Base64Decode(unsigned char* out, const unsigned char* in, size_t length);
}  // namespace nettle

namespace openssl {
std::string Version();
Codec Md5();
Codec Sha1();
Codec Rc4(const std::string& key);
size_t Base64Encode(unsigned char* out, const unsigned char* in, size_t length);
size_t Base64Decode(unsigned char* out, const unsigned char* in, size_t length);
}  // namespace openssl

namespace glib {
std::string Version();
Codec Md5();
Codec Sha1();
size_t Base64Encode(unsigned char* out, const unsigned char* in, size_t length);
size_t Base64Decode(unsigned char* out, const unsigned char* in, size_t length);
}  // namespace glib

}  // namespace kpl::bench

#endif  // KPL_BENCH_NET_CODECPEERS_H_
