// 32-bit words in bytes, in either order, at any address.
#ifndef KPL_NET_BYTEORDER_H_
#define KPL_NET_BYTEORDER_H_

#include <stdint.h>

namespace kpl::net {

inline uint32_t LoadLittle(const unsigned char* from) {
    return static_cast<uint32_t>(from[0]) | static_cast<uint32_t>(from[1]) << 8 |
           static_cast<uint32_t>(from[2]) << 16 | static_cast<uint32_t>(from[3]) << 24;
}

inline void StoreLittle(unsigned char* to, uint32_t word) {
    to[0] = static_cast<unsigned char>(word);
    to[1] = static_cast<unsigned char>(word >> 8);
    to[2] = static_cast<unsigned char>(word >> 16);
    to[3] = static_cast<unsigned char>(word >> 24);
}

inline uint32_t LoadBig(const unsigned char* from) {
    return static_cast<uint32_t>(from[0]) << 24 | static_cast<uint32_t>(from[1]) << 16 |
           static_cast<uint32_t>(from[2]) << 8 | static_cast<uint32_t>(from[3]);
}

inline void StoreBig(unsigned char* to, uint32_t word) {
    to[0] = static_cast<unsigned char>(word >> 24);
    to[1] = static_cast<unsigned char>(word >> 16);
    to[2] = static_cast<unsigned char>(word >> 8);
    to[3] = static_cast<unsigned char>(word);
}

}  // namespace kpl::net

#endif  // KPL_NET_BYTEORDER_H_
