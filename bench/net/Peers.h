// What our codecs are measured beside. Kept apart, because a peer's headers use some of our names.
#ifndef KPL_BENCH_NET_PEERS_H_
#define KPL_BENCH_NET_PEERS_H_

#include <stddef.h>

#include <memory>
#include <string>

namespace kpl::bench {

// Versions of all three.
std::string PeerVersions();

void NettleMd5(unsigned char* hash, const unsigned char* data, size_t length);

// A key stream of nettle's.
class NettleRc4 {
public:
    NettleRc4(const unsigned char* key, size_t length);
    ~NettleRc4();

    void Crypt(const unsigned char* in, unsigned char* out, size_t length);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// GLib's checksum, made once and reset for every message.
class GlibSha1 {
public:
    GlibSha1();
    ~GlibSha1();

    void Hash(unsigned char* hash, const unsigned char* data, size_t length);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// OpenSSL's, into a buffer that is large enough. Both return how much they wrote; decoding counts a
// last group as three bytes, whatever its padding.
size_t OpensslEncode(char* text, const unsigned char* data, size_t length);
size_t OpensslDecode(unsigned char* data, const char* text, size_t length);

// The same, into a string of its own.
std::string OpensslEncodeToString(const unsigned char* data, size_t length);
std::string OpensslDecodeToString(const std::string& text);

}  // namespace kpl::bench

#endif  // KPL_BENCH_NET_PEERS_H_
