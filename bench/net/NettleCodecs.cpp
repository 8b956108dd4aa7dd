#include <nettle/arcfour.h>
#include <nettle/base64.h>
#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <nettle/version.h>

#include "bench/net/CodecPeers.h"

namespace kpl::bench::nettle {

std::string Version() {
    return "nettle " + std::to_string(NETTLE_VERSION_MAJOR) + "." +
           std::to_string(NETTLE_VERSION_MINOR);
}

// md5_digest and sha1_digest make the context ready for the next message.
Codec Md5() {
    md5_ctx ctx;
    md5_init(&ctx);
    return [ctx](unsigned char* out, const unsigned char* in, size_t length) mutable {
        md5_update(&ctx, length, in);
        md5_digest(&ctx, MD5_DIGEST_SIZE, out);
        return size_t{MD5_DIGEST_SIZE};
    };
}

Codec Sha1() {
    sha1_ctx ctx;
    sha1_init(&ctx);
    return [ctx](unsigned char* out, const unsigned char* in, size_t length) mutable {
        sha1_update(&ctx, length, in);
        sha1_digest(&ctx, SHA1_DIGEST_SIZE, out);
        return size_t{SHA1_DIGEST_SIZE};
    };
}

Codec Rc4(const std::string& key) {
    arcfour_ctx ctx;
    arcfour_set_key(&ctx, key.size(), reinterpret_cast<const unsigned char*>(key.data()));
    return [ctx](unsigned char* out, const unsigned char* in, size_t length) mutable {
        arcfour_crypt(&ctx, length, out, in);
        return length;
    };
}

size_t Base64Encode(unsigned char* out, const unsigned char* in, size_t length) {
    base64_encode_raw(reinterpret_cast<char*>(out), length, in);
    return BASE64_ENCODE_RAW_LENGTH(length);
}

size_t Base64Decode(unsigned char* out, const unsigned char* in, size_t length) {
    base64_decode_ctx ctx;
    base64_decode_init(&ctx);
    size_t size = 0;
    base64_decode_update(&ctx, &size, out, length, reinterpret_cast<const char*>(in));
    return base64_decode_final(&ctx) == 1 ? size : 0;
}

}  // namespace kpl::bench::nettle
