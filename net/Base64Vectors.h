// Base64 of many groups at a time, a group being three bytes of data and four characters of text.
// Any thread.
#ifndef KPL_NET_BASE64VECTORS_H_
#define KPL_NET_BASE64VECTORS_H_

#include <stddef.h>

namespace kpl::net {

inline constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encodes groups from the first one on; returns how many. It leaves the last few, or all where the
// processor has no vector instructions that this build knows.
size_t EncodeGroupsByVectors(const unsigned char* data, size_t groups, char* text);

// Decodes groups from the first one on; returns how many. It also leaves what comes shortly before
// a character that ends all. What it writes behind the groups that it returns means nothing; the
// place for all groups is not left.
size_t DecodeGroupsByVectors(const unsigned char* text, size_t groups, char* data);

}  // namespace kpl::net

#endif  // KPL_NET_BASE64VECTORS_H_
